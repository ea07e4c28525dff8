// Every collection of every type by name: walked, searched, filled and emptied.
#include <gmock/gmock.h>

#include <algorithm>

#include "support/ReflectionTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

constexpr const char constInstance[] = "attempting to modify a const instance";

// What a collection holds at first and how a member is added; keys in the order of the walk. `$`
// texts stand for objects.
struct CollectionRow {
  const char* type;
  const char* collection;
  Names keys;
  Names values;
  Zint::Arguments added;  // arguments of the insertion
  const char* addedKey;
  const char* addedValue;
  const char* absent;      // a key that nothing has
  const char* unreadable;  // a text that is no key; null where every text is one
};

const CollectionRow collectionRows[] = {
    {"ChipReadRequest", "chipMemory", {}, {}, {{"chipMemory", "$cm"}}, "4096", "$cm", "1", "x"},
    {"ChipReader", "chipMemory", {}, {}, {{"chipMemory", "$cm"}}, "0", "$cm", "7", "x"},
    {"ChipMemoryChunk",
     "offset",
     {"0", "1"},
     {"4096", "8192"},
     {{"offset", "77"}, {"index", "2"}},
     "2",
     "77",
     "2",
     "-1"},
    {"ChipMemoryChunk",
     "chipMemory",
     {"0", "1"},
     {"$cm", "$other"},
     {{"chipMemory", "$cm"}, {"index", "2"}},
     "2",
     "$cm",
     "2",
     "65536"},
    {"HardwareShadow",
     "chipMemory",
     {"4096", "8192"},
     {"$cm", "$other"},
     {{"chipMemory", "$table"}},
     "20480",
     "$table",
     "1",
     "0x"},
    {"HardwareShadow",
     "chipMemoryChunk",
     {"0"},
     {"$ownChunk"},
     {{"fwkKey", "5"}},
     "5",
     "$found",
     "9",
     "4294967296"},
    {"HardwareShadow",
     "chipMemoryId",
     {"0"},
     {"0"},
     {{"chipMemoryId", "3"}, {"index", "1"}},
     "1",
     "3",
     "1",
     "x"},
    {"HardwareShadow",
     "chipMemoryChunkArray",
     {"0"},
     {"$ownChunk"},
     {{"index", "1"}, {"chipMemoryChunk", "$chunk"}},
     "1",
     "$chunk",
     "1",
     "x"},
    {"ChipMemoryBogon",
     "chipMemory",
     {"'table'"},
     {"$table"},
     {{"stride", "8"},
      {"chipHam", "$ham"},
      {"name", "acl"},
      {"entrySize", "4"},
      {"address", "24576"}},
     "'acl'",
     "$found",
     "nobody",
     "'x"},
};

class ReflectionCollection : public Support::ReflectionTest,
                             public testing::WithParamInterface<CollectionRow> {
 protected:
  void SetUp() override { shadow->overrideHardwareIs(true); }  // the registry may change

  std::string text(const std::string& symbol) {
    if (symbol == "$table") return Zint::objectText(directory->chipMemory("table").ptr()).bytes();
    if (symbol == "$ownChunk") {
      return Zint::objectText(shadow->chipMemoryChunkArray(0).ptr()).bytes();
    }
    return resolved(symbol);
  }
  Zint::Arguments arguments() {
    Zint::Arguments texts;
    for (const auto& [name, symbol] : row.added) texts.emplace_back(name, text(symbol.bytes()));
    return texts;
  }
  Names keys() {
    Names keys;
    for (const Zint::ListItem& item : list.items()) keys.push_back(item.key.bytes());
    return keys;
  }
  Names values() {
    Names values;
    for (const Zint::ListItem& item : list.items()) values.push_back(item.value.text.bytes());
    return values;
  }

  const CollectionRow row = GetParam();
  GenericIf_ target = named(row.type);
  Zint::GenericIf::List_ list = target.list(row.collection);
  const std::string place = std::string(target.typeName()) + "::" + row.collection;
};

TEST_P(ReflectionCollection, showsAsAList) {
  EXPECT_STREQ(list.typeName(), "Zint::GenericIf::List_");
  EXPECT_STREQ(list.kindName(), "List");
  EXPECT_STREQ(target.type().find(row.collection)->typeName, "Zint::GenericIf::List_");
}

TEST_P(ReflectionCollection, isWalkedInItsOrder) {
  Names expected;
  for (const std::string& value : row.values) expected.push_back(text(value));
  EXPECT_EQ(keys(), row.keys);
  EXPECT_EQ(values(), expected);
  EXPECT_EQ(list.size(), row.keys.size());
  EXPECT_EQ(target.attribute(row.collection).bytes(), std::to_string(row.keys.size()));
}

TEST_P(ReflectionCollection, findsByKey) {
  for (const Zint::ListItem& item : list.items()) {
    const Zint::Result found = list.find(item.key);
    EXPECT_EQ(found.text, item.value.text);
    EXPECT_EQ(found.object, item.value.object);
  }
  EXPECT_EQ(list.find(row.absent).text, "null");
  EXPECT_EQ(list.find(row.absent).object, nullptr);
}

TEST_P(ReflectionCollection, insertsFromNamedArguments) {
  const Zint::Result inserted = list.insert(arguments());
  Names expected = row.keys;
  expected.emplace_back(row.addedKey);
  EXPECT_THAT(keys(), testing::UnorderedElementsAreArray(expected));
  const Zint::Result found = list.find(row.addedKey);
  EXPECT_NE(found.text, "null");
  const bool isNew = std::string(row.addedValue) == "$found";
  EXPECT_EQ(found.text.bytes(), isNew ? inserted.text.bytes() : text(row.addedValue));
}

TEST_P(ReflectionCollection, insertsAsAnOperationInReversedOrder) {
  Zint::Arguments reversed = arguments();
  std::reverse(reversed.begin(), reversed.end());
  target.call(std::string(row.collection) + "Is", reversed);
  EXPECT_EQ(list.size(), row.keys.size() + 1);
}

TEST_P(ReflectionCollection, removesByKey) {
  list.insert(arguments());
  list.del(row.addedKey);
  EXPECT_EQ(keys(), row.keys);
  list.insert(arguments());
  const Names full = keys();
  const Names::const_iterator added = std::find_if(full.begin(), full.end(), [&](const auto& key) {
    return std::find(row.keys.begin(), row.keys.end(), key) == row.keys.end();
  });
  ASSERT_NE(added, full.end());
  target.call(std::string(row.collection) + "Del", {{list.keyName(), *added}});
  EXPECT_EQ(keys(), row.keys);
}

TEST_P(ReflectionCollection, removesEverything) {
  list.insert(arguments());
  list.delAll();
  EXPECT_EQ(list.size(), 0u);
  list.delAll();
  target.call(std::string(row.collection) + "DelAll", {});
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_P(ReflectionCollection, refusesAMissingASurplusAndARepeatedArgument) {
  const std::string insertion = place + "Is: ";
  for (std::size_t left = 0; left < row.added.size(); ++left) {
    Zint::Arguments fewer = arguments();
    const std::string name = fewer[left].first.bytes();
    fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(left));
    EXPECT_EQ(Support::exceptionText([&] { list.insert(fewer); }),
              insertion + "missing argument " + name);
    Zint::Arguments twice = arguments();
    twice.push_back(twice[left]);
    EXPECT_EQ(Support::exceptionText([&] { list.insert(twice); }),
              insertion + "argument given twice: " + name);
  }
  Zint::Arguments more = arguments();
  more.emplace_back("colour", "red");
  EXPECT_EQ(Support::exceptionText([&] { list.insert(more); }),
            insertion + "surplus argument colour=red");
  EXPECT_EQ(keys(), row.keys);
}

TEST_P(ReflectionCollection, refusesAnUnreadableArgument) {
  for (std::size_t i = 0; i < row.added.size(); ++i) {
    Zint::Arguments wrong = arguments();
    wrong[i].second = "'?";
    const std::string message = Support::exceptionText([&] { list.insert(wrong); });
    EXPECT_THAT(message, testing::HasSubstr(" deserializing attribute " + place + "Is from "));
    EXPECT_THAT(message, testing::HasSubstr(wrong[i].first.bytes() + "='?"));
  }
  EXPECT_EQ(keys(), row.keys);
}

TEST_P(ReflectionCollection, refusesAnUnreadableKey) {
  const std::string ending =
      " deserializing attribute " + place + " from \"" + row.unreadable + "\"";
  EXPECT_THAT(Support::exceptionText([&] { list.find(row.unreadable); }),
              testing::EndsWith(ending));
  EXPECT_THAT(Support::exceptionText([&] { list.del(row.unreadable); }), testing::EndsWith(ending));
  EXPECT_EQ(keys(), row.keys);
}

TEST_P(ReflectionCollection, refusesToChangeThroughAReadOnlyView) {
  GenericIf_ view = GenericIf_::readOnlyView(target.object());
  auto readOnly = view.list(row.collection);
  EXPECT_EQ(Support::exceptionText([&] { readOnly.insert(arguments()); }), constInstance);
  EXPECT_EQ(Support::exceptionText([&] { readOnly.del(row.absent); }), constInstance);
  EXPECT_EQ(Support::exceptionText([&] { readOnly.delAll(); }), constInstance);
  EXPECT_EQ(readOnly.items().size(), row.keys.size());
  EXPECT_EQ(keys(), row.keys);
}

INSTANTIATE_TEST_SUITE_P(all, ReflectionCollection, testing::ValuesIn(collectionRows),
                         [](const testing::TestParamInfo<CollectionRow>& tested) {
                           return std::string(tested.param.type) + "_" + tested.param.collection;
                         });

TEST(ReflectionCollections, everyCollectionOfEveryTypeIsTested) {
  Names expected, tested;
  for (const auto& [name, type] : Support::livingTypes()) {
    for (const Zint::Member* member : Support::allMembers(*type)) {
      if (member->list != nullptr) expected.push_back(name + "::" + member->name);
    }
  }
  for (const CollectionRow& row : collectionRows)
    tested.push_back(std::string(row.type) + "::" + row.collection);
  EXPECT_THAT(tested, testing::UnorderedElementsAreArray(expected));
}

// --- What the collections refuse themselves ---

class ReflectionMutator : public Support::ReflectionTest {};

TEST_F(ReflectionMutator, ofNull_isRefusedWithItsText) {
  EXPECT_EQ(Support::exceptionText([&] {
              named("HardwareShadow").list("chipMemory").insert({{"chipMemory", "null"}});
            }),
            "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
            "allowed\"");
  EXPECT_EQ(Support::exceptionText([&] {
              named("ChipReadRequest").list("chipMemory").insert({{"chipMemory", "null"}});
            }),
            "null _chipMemory parameter to mutator for Hardware::ChipReadRequest::chipMemory not "
            "allowed\"");
}

// --- The directory ---

class ReflectionDirectory : public Support::ReflectionTest {
 protected:
  Zint::Arguments asked(const char* name, const char* stride = "4") {
    return {{"name", name},
            {"address", "28672"},
            {"entrySize", "4"},
            {"stride", stride},
            {"chipHam", resolved("$ham")}};
  }
  Zint::GenericIf::List_ regions = GenericIf_(directory).list("chipMemory");
};

TEST_F(ReflectionDirectory, creates_aRegionWithoutEntriesUnlessTheyAreGiven) {
  const Zint::Result made = regions.insert(asked("vlan"));
  EXPECT_EQ(made.object.ptr(), directory->chipMemory("vlan").ptr());
  EXPECT_FALSE(made.isConst);
  EXPECT_EQ(directory->chipMemory("vlan")->entries(), 0u);
  EXPECT_EQ(directory->chipMemory("vlan")->address(), ChipAddress(28672));
}

TEST_F(ReflectionDirectory, finds_theSameRegionAgainAndKeepsItsEntries) {
  Zint::Arguments withEntries = asked("vlan");
  withEntries.emplace_back("entries", "16");
  const Zint::Result made = regions.insert(withEntries);
  EXPECT_EQ(directory->chipMemory("vlan")->entries(), 16u);
  EXPECT_EQ(regions.insert(asked("vlan")).object, made.object);
  EXPECT_EQ(directory->chipMemory("vlan")->entries(), 16u);
}

TEST_F(ReflectionDirectory, refuses_otherConstructorParametersByTheirNames) {
  regions.insert(asked("vlan"));
  try {
    regions.insert(asked("vlan", "8"));
    FAIL() << "accepted";
  } catch (const Zint::NameInUseException& exception) {
    EXPECT_STREQ(exception.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute "
                 "_stride has a different value of 8 than the current value of 4 not allowed");
  }
}

TEST_F(ReflectionDirectory, removed_isWhatTheShadowMayStillHold) {
  shadow->overrideHardwareIs(true);
  named("HardwareShadow").list("chipMemory").insert({{"chipMemory", regions.find("table").text}});
  regions.del("table");
  EXPECT_EQ(regions.size(), 0u);
  EXPECT_EQ(shadow->chipMemory(ChipAddress(0x5000))->name(), "table");
}

}  // namespace
