// Every operation of every type by name, with named arguments in any order.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "support/ReflectionTest.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class ReflectionCall;

struct OperationRow {
  const char* type;
  const char* operation;
  Zint::Arguments arguments;  // `$` texts stand for objects
  const char* text;           // of the result
  void (*prepared)(ReflectionCall&) = nullptr;
  void (*expected)(ReflectionCall&) = nullptr;
};

// Public members: the rows look at them.
class ReflectionCall : public Support::ReflectionTest,
                       public testing::WithParamInterface<OperationRow> {
 public:
  using ReflectionTest::chip;
  using ReflectionTest::cm;
  using ReflectionTest::loop;
  using ReflectionTest::other;
  using ReflectionTest::reader;
  using ReflectionTest::request;
  using ReflectionTest::shadow;
  using ReflectionTest::trace;

 protected:
  void SetUp() override {
    if (row.prepared != nullptr) row.prepared(*this);
  }
  Zint::Arguments arguments() {
    Zint::Arguments texts;
    for (const auto& [name, text] : row.arguments) {
      texts.emplace_back(name, resolved(text.bytes()));
    }
    return texts;
  }
  std::string refusal(const Zint::Arguments& given) {
    return Support::exceptionText([&] { target.call(row.operation, given); });
  }
  void check(const Zint::Arguments& given) {
    EXPECT_EQ(target.call(row.operation, given).text.bytes(), resolved(row.text));
    if (row.expected != nullptr) row.expected(*this);
  }

  const OperationRow row = GetParam();
  GenericIf_ target = named(row.type);
  const std::string place = std::string(target.typeName()) + "::" + row.operation;
};

void shadowOfOnes(ReflectionCall& t) {
  std::memset(t.cm->shadow()->data(), 1, t.cm->shadow()->size());
}
void onlyEntryThree(ReflectionCall& t) {
  for (U32 i = 0; i < 8; ++i) t.cm->entryInitializedDel(i);
  t.cm->entryInitializedIs(3);
}
void cached(ReflectionCall& t) {
  shadowOfOnes(t);
  t.cm->readFromCacheIs(true);
}
void reading(ReflectionCall& t) {
  t.request->chipMemoryIs(t.cm);
  t.request->stateIs(Zint::Request::start_);
}
void notOverride(ReflectionCall& t) { t.shadow->overrideHardwareIs(true); }

const std::vector<OperationRow>& operationRows() {
  static const std::vector<OperationRow> all = {
      {"ChipAddress", "chipAddressIs", {{"memId", "3"}, {"offset", "16"}}, ""},
      {"GenericChipHam",
       "doRead",
       {{"address", "4096"}, {"entrySize", "4"}, {"entries", "2"}},
       "0d00000000000000",
       [](ReflectionCall& t) { t.chip->registers[0x1000] = 13; }},
      {"GenericChipHam",
       "doWrite",
       {{"address", "4096"}, {"buffer", "0100000002000000"}, {"entrySize", "4"}, {"entries", "2"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_EQ(t.chip->registers[0x1004], 2u); }},
      {"GenericChipHam", "doCompare", {{"a", "0102"}, {"b", "0102"}}, "true"},
      {"GenericChipHam", "doReadToCache", {{"source", "0a0b"}}, "true 0a0b"},
      {"GenericChipHam", "doWriteToCache", {{"source", "0a0b"}}, "true 0a0b"},
      {"GenericChipHam", "doReadFromCache", {{"source", "0a0b"}}, "true 0a0b"},
      {"GenericChipHam", "doCompare", {{"a", ""}, {"b", ""}}, "true"},
      {"GenericChipHam", "doReadToCache", {{"source", ""}}, "true "},
      {"GenericChipHam", "doWriteToCache", {{"source", ""}}, "true "},
      {"GenericChipHam", "doReadFromCache", {{"source", ""}}, "true "},
      {"GenericChipHam", "byteFromBitStream", {{"stream", "00f00f"}, {"bit", "12"}}, "255"},
      {"GenericChipHam",
       "byteToBitStream",
       {{"stream", "0000"}, {"bit", "4"}, {"value", "255"}},
       "f00f"},
      {"GenericChipHam", "bitFromBitStream", {{"stream", "0080"}, {"bit", "15"}}, "true"},
      {"GenericChipHam",
       "bitToBitStream",
       {{"stream", "0000"}, {"bit", "9"}, {"value", "true"}},
       "0002"},
      {"GenericChipHam",
       "copyBits",
       {{"destination", "0000"},
        {"destinationBit", "4"},
        {"source", "ff"},
        {"sourceBit", "0"},
        {"bits", "8"}},
       "f00f"},
      {"ChipMemory", "inRange", {{"addr", "4127"}}, "true"},
      {"ChipMemory", "handleAuditEnabled", {}, ""},
      {"ChipMemory",
       "handleMode",
       {},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_EQ(t.chip->taken().size(), 8u); }},
      {"ChipMemory",
       "handleShadowStoreNeeded",
       {},
       "",
       shadowOfOnes,
       [](ReflectionCall& t) { EXPECT_EQ(Support::word(t.cm->shadow(), 0), 0u); }},
      {"ChipMemory", "entryIndexFromAddress", {{"addr", "4110"}}, "3"},
      {"ChipMemory",
       "doClear",
       {},
       "",
       shadowOfOnes,
       [](ReflectionCall& t) { EXPECT_EQ(Support::word(t.cm->shadow(), 7), 0u); }},
      {"ChipMemory",
       "doClearRange",
       {{"startIndex", "2"}, {"endIndex", "3"}},
       "",
       shadowOfOnes,
       [](ReflectionCall& t) {
         EXPECT_NE(Support::word(t.cm->shadow(), 1), 0u);
         EXPECT_EQ(Support::word(t.cm->shadow(), 2), 0u);
         EXPECT_EQ(Support::word(t.cm->shadow(), 3), 0u);
         EXPECT_NE(Support::word(t.cm->shadow(), 4), 0u);
         EXPECT_TRUE(t.chip->taken().empty());
       }},
      {"ChipMemory",
       "writeback",
       {{"initializedOnly", "true"}},
       "",
       onlyEntryThree,
       [](ReflectionCall& t) {
         EXPECT_EQ(t.chip->taken(),
                   (std::vector<Support::Access>{{Support::Access::write, 0x100c, 0}}));
       }},
      {"ChipMemory", "entryInitialized", {{"entryIndex", "3"}}, "true", onlyEntryThree},
      {"ChipMemory",
       "entryInitializedIs",
       {{"entryIndex", "5"}},
       "",
       onlyEntryThree,
       [](ReflectionCall& t) { EXPECT_TRUE(t.cm->entryInitialized(5)); }},
      {"ChipMemory",
       "entryInitializedDel",
       {{"entryIndex", "3"}},
       "",
       onlyEntryThree,
       [](ReflectionCall& t) { EXPECT_FALSE(t.cm->entryInitialized(3)); }},
      {"ChipReadRequest", "handleState", {}, ""},
      {"ChipReader",
       "doRead",
       {},
       "",
       reading,
       [](ReflectionCall& t) { EXPECT_EQ(t.chip->taken().size(), 4u); }},
      {"ChipReader",
       "handleReadRequest",
       {},
       "",
       reading,
       [](ReflectionCall& t) { EXPECT_EQ(t.reader->currentChipMemory(), t.cm); }},
      {"ChipReader",
       "hasNotificationActiveIs",
       {{"hasNotificationActive", "false"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_FALSE(t.reader->hasNotificationActive()); }},
      {"ChipReader",
       "zintDoZombieReactors",
       {{"zombie", "true"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_TRUE(t.reader->zintMarkedForDeletion()); }},
      {"HardwareShadow",
       "removeOverrideOnlyChipMem",
       {},
       "",
       [](ReflectionCall& t) { t.other->modeIs(Hardware::ChipMemory::override()); },
       [](ReflectionCall& t) { EXPECT_EQ(t.shadow->chipMemorys(), 1u); }},
      {"HardwareShadow", "findChipMemory", {{"address", "4100"}, {"size", "8"}}, "$cm"},
      {"HardwareShadow",
       "shadowWriteAndCompareWithCache",
       {{"chipMemory", "$cm"}, {"entry", "1"}, {"data", "0102030405060708"}, {"size", "8"}},
       "false",
       nullptr,
       [](ReflectionCall& t) { EXPECT_EQ(Support::word(t.cm->shadow(), 2), 0x08070605u); }},
      {"HardwareShadow",
       "shadowWriteHack",
       {{"address", "4100"}, {"dataPtr", "01020304"}, {"size", "4"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_EQ(Support::word(t.cm->shadow(), 1), 0x04030201u); }},
      {"HardwareShadow",
       "readFromCacheHack",
       {{"address", "4096"}, {"dataPtr", "00000000"}, {"size", "4"}},
       "true 01010101",
       cached},
      {"HardwareShadow",
       "shadowWriteU32",
       {{"address", "4100"}, {"value", "9"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_EQ(Support::word(t.cm->shadow(), 1), 9u); }},
      {"HardwareShadow", "readFromCacheU32", {{"address", "4096"}}, "16843009", cached},
      {"HardwareShadow",
       "handleState",
       {},
       "",
       nullptr,
       [](ReflectionCall& t) {
         EXPECT_EQ(t.trace.taken().back().text, "HardwareShadow::handleState( idle )");
       }},
      {"HardwareShadow",
       "handleChipMemory",
       {{"address", "1"}},
       "",
       notOverride,
       [](ReflectionCall& t) {
         EXPECT_EQ(t.trace.taken().back().text, "ChipMemory with address=0x0:00000001 removed");
       }},
      {"HardwareShadow", "handleAuditReadRequestStatus", {}, ""},
      {"HardwareShadow",
       "doFixBadRegister",
       {{"chipMemory", "$cm"}, {"entry", "2"}, {"data", "07000000"}},
       "",
       nullptr,
       [](ReflectionCall& t) {
         EXPECT_EQ(t.chip->registers[0x1008], 7u);
         EXPECT_GE(t.cm->registersFixed(), 1u);
       }},
      {"HardwareShadow",
       "chipMemoryAuditEnabledIs",
       {{"chipMemory", "$other"}, {"auditEnabled", "true"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_EQ(t.shadow->chipMemoryEntriesUnderAudit(), 16u); }},
      {"HardwareShadow",
       "hasNotificationActiveIs",
       {{"hasNotificationActive", "false"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_FALSE(t.shadow->hasNotificationActive()); }},
      {"HardwareShadow",
       "zintDoZombieReactors",
       {{"zombie", "true"}},
       "",
       nullptr,
       [](ReflectionCall& t) { EXPECT_TRUE(t.shadow->zintMarkedForDeletion()); }},
  };
  return all;
}

const Zint::Member& memberOf(const OperationRow& row) {
  return *Zint::TypeRegistry::find(std::string("Hardware::") + row.type)->find(row.operation);
}

bool isOptional(const Zint::Member& member, const Zint::String8& name) {
  return std::any_of(member.arguments.begin(), member.arguments.end(), [&](const char* argument) {
    return argument != nullptr && argument == "?" + name.bytes();
  });
}

TEST_P(ReflectionCall, takesItsArgumentsInTheGivenOrder) { check(arguments()); }

TEST_P(ReflectionCall, takesItsArgumentsInReversedOrder) {
  Zint::Arguments reversed = arguments();
  std::reverse(reversed.begin(), reversed.end());
  check(reversed);
}

TEST_P(ReflectionCall, takesItsArgumentsRotated) {
  Zint::Arguments rotated = arguments();
  for (std::size_t i = 1; i < rotated.size(); ++i) {
    std::rotate(rotated.begin(), rotated.begin() + 1, rotated.end());
    if (row.prepared != nullptr) row.prepared(*this);
    check(rotated);
  }
}

TEST_P(ReflectionCall, refusesAMissingArgument) {
  for (std::size_t i = 0; i < row.arguments.size(); ++i) {
    Zint::Arguments fewer = arguments();
    const Zint::String8 name = fewer[i].first;
    if (isOptional(memberOf(row), name)) continue;
    fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_EQ(refusal(fewer), place + ": missing argument " + name.bytes());
  }
}

TEST_P(ReflectionCall, refusesASurplusArgument) {
  Zint::Arguments more = arguments();
  more.insert(more.begin(), {"colour", "red"});
  EXPECT_EQ(refusal(more), place + ": surplus argument colour=red");
}

TEST_P(ReflectionCall, refusesAnArgumentGivenTwice) {
  for (std::size_t i = 0; i < row.arguments.size(); ++i) {
    Zint::Arguments twice = arguments();
    twice.push_back(twice[i]);
    EXPECT_EQ(refusal(twice), place + ": argument given twice: " + twice[i].first.bytes());
  }
}

TEST_P(ReflectionCall, refusesAnUnreadableArgumentAndDoesNothing) {
  chip->taken();
  const Support::Lines nothing;
  trace.full.clear();
  for (std::size_t i = 0; i < row.arguments.size(); ++i) {
    Zint::Arguments wrong = arguments();
    wrong[i].second = "'?";
    const std::string message = refusal(wrong);
    EXPECT_THAT(message, HasSubstr(" deserializing attribute " + place + " from \""));
    EXPECT_THAT(message, HasSubstr(wrong[i].first.bytes() + "='?"));
  }
  EXPECT_EQ(trace.taken(), nothing);
  EXPECT_TRUE(chip->taken().empty());
}

TEST_P(ReflectionCall, isRefusedThroughAReadOnlyViewUnlessItIsConstant) {
  if (target.object() == nullptr) return;
  GenericIf_ view = GenericIf_::readOnlyView(target.object());
  if (memberOf(row).flags.has(Zint::ZintAttrIntrospectionFlags::constant)) {
    EXPECT_EQ(view.call(row.operation, arguments()).text.bytes(), resolved(row.text));
  } else {
    EXPECT_EQ(Support::exceptionText([&] { view.call(row.operation, arguments()); }),
              "attempting to modify a const instance");
  }
}

INSTANTIATE_TEST_SUITE_P(all, ReflectionCall, testing::ValuesIn(operationRows()),
                         [](const testing::TestParamInfo<OperationRow>& tested) {
                           const OperationRow& row = tested.param;
                           const bool ofNothing =
                               !row.arguments.empty() && row.arguments[0].second == "";
                           return std::string(row.type) + "_" + row.operation +
                                  (ofNothing ? "_ofNothing" : "");
                         });

TEST(ReflectionOperations, everyOperationOfEveryTypeIsTested) {
  std::vector<std::string> expected;
  std::set<std::string> tested;
  for (const auto& [name, type] : Support::livingTypes()) {
    // The base access method's operations are called on the generic one.
    for (const Zint::Member& member : type->members) {
      if (member.call == nullptr) continue;
      expected.push_back((name == "ChipHam" ? "GenericChipHam" : name) + "::" + member.name);
    }
  }
  for (const OperationRow& row : operationRows())
    tested.insert(std::string(row.type) + "::" + row.operation);
  EXPECT_THAT(tested, testing::UnorderedElementsAreArray(expected));
}

}  // namespace
