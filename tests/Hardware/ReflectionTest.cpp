// Every attribute of every type by name: read, and set through its text.
#include <gmock/gmock.h>

#include "support/ReflectionTest.h"

namespace {

using testing::StartsWith;

// What an attribute of a fresh object reads, and what it is set to. A text that ends in '*' stands
// for all that begin so.
struct AttributeRow {
  const char* type;
  const char* attribute;
  const char* text;
  const char* newText = nullptr;  // null for one that cannot be set
};

const AttributeRow attributeRows[] = {
    {"ChipAddress", "value", "8589942528", "18446744073709551615"},
    {"ChipAddress", "chipMemoryId", "2"},
    {"ChipAddress", "chipMemoryOffset", "7936"},
    {"ChipAddress", "hash", "16252928"},
    {"ChipAddress", "stringValue", "'0x2:00001f00'"},
    {"ChipMemoryArrayIndex", "value", "7", "65535"},
    {"ChipHam", "name", "'bare'"},
    {"ChipHam", "isNondestructing", "true", "false"},
    {"GenericChipHam", "name", "'ham'"},
    {"GenericChipHam", "isNondestructing", "true", "false"},
    {"GenericChipHam", "hamImpl", "$chip"},
    {"ChipMemory", "name", "'mac'"},
    {"ChipMemory", "address", "4096"},
    {"ChipMemory", "entrySize", "4"},
    {"ChipMemory", "stride", "4"},
    {"ChipMemory", "chipHam", "$ham"},
    {"ChipMemory", "indirectCmdRegAddr", "0", "4294967295"},
    {"ChipMemory", "shadowEnabled", "true", "false"},
    {"ChipMemory", "auditEnabled", "true", "false"},
    {"ChipMemory", "mode", "'normal'", "'buffered'"},
    {"ChipMemory", "shadowStoreNeeded", "true", "true"},  // derived: setting it does nothing
    {"ChipMemory", "readFromCache", "false", "true"},
    {"ChipMemory", "skipWriteIfMatchesCache", "false", "true"},
    {"ChipMemory", "readCacheHits", "0", "18446744073709551615"},
    {"ChipMemory", "writeCacheHits", "0", "4294967296"},
    {"ChipMemory", "registersFixed", "0", "4294967295"},
    {"ChipMemory", "lastFixTime", "0", "1.25"},
    {"ChipMemory", "hardware", "Buf#*", "$buffer"},
    {"ChipMemory", "shadow", "Buf#*", "$buffer"},
    {"ChipMemory", "initialized", "Buf#*", "$buffer"},
    {"ChipMemory", "dirty", "Buf#*", "null"},
    {"ChipMemory", "allowsLogicalViews", "false", "true"},
    {"ChipMemory", "fwkKey", "'mac'"},
    {"ChipReadRequest", "name", "'request'"},
    {"ChipReadRequest", "isNondestructing", "true", "false"},
    {"ChipReadRequest", "state", "0", "2"},
    {"ChipReadRequest", "status", "0", "3"},
    {"ChipReadRequest", "generation", "0", "17"},
    {"ChipReader", "zintFwkActivity", "$activity", "$otherActivity"},
    {"ChipReader", "request", "$request", "$otherRequest"},
    {"ChipReader", "clock", "$clock", "$otherClock"},
    {"ChipReader", "maxEntriesPerRead", "4", "1024"},
    {"ChipReader", "readInterval", "0.5", "0.001"},
    {"ChipReader", "currentChipMemory", "null", "$cm"},
    {"ChipReader", "entriesRead", "0", "3"},
    {"ChipReader", "chipMemoryMetadata", "0:0", "5:5"},
    {"ChipMemoryChunk", "name", "'0'"},
    {"ChipMemoryChunk", "isNondestructing", "true", "false"},
    {"ChipMemoryChunk", "fwkKey", "0"},
    {"ChipMemoryChunk", "nextIndex", "2", "1"},
    {"HardwareShadow", "zintFwkActivity", "$activity", "$otherActivity"},
    {"HardwareShadow", "state", "'idle'", "'auditing'"},
    {"HardwareShadow", "overrideHardware", "false", "true"},
    {"HardwareShadow", "clock", "$clock", "$otherClock"},
    {"HardwareShadow", "minIntervalBetweenAudits", "0", "0.1"},
    {"HardwareShadow", "lastChipMemory", "null", "$other"},
    {"HardwareShadow", "audits", "0", "4294967295"},
    {"HardwareShadow", "auditReadRequest", "'UmbraReadRequest'#*", "$otherRequest"},
    {"HardwareShadow", "nextIndex", "1", "0"},
    {"HardwareShadow", "lastAuditStartTime", "0", "1e+300"},
    {"HardwareShadow", "chipMemoryEntriesUnderAudit", "8", "4294967295"},
    {"ChipMemoryBogon", "name", "'directory'"},
    {"ChipMemoryBogon", "isNondestructing", "true", "false"},
};

class ReflectionAttribute : public Support::ReflectionTest,
                            public testing::WithParamInterface<AttributeRow> {
 protected:
  void expectText(const std::string& actual, const std::string& expected) {
    if (expected.ends_with('*')) {
      EXPECT_THAT(actual, StartsWith(expected.substr(0, expected.size() - 1)));
    } else {
      EXPECT_EQ(actual, resolved(expected));
    }
  }
  std::string read(GenericIf_& object, const char* attribute) {
    return object.attribute(attribute).bytes();
  }

  const AttributeRow row = GetParam();
  GenericIf_ target = named(row.type);
};

TEST_P(ReflectionAttribute, isReadAsText) {
  expectText(read(target, row.attribute), row.text);
  const auto view = [&] {
    return target.object() == nullptr ? target : GenericIf_::readOnlyView(target.object());
  }();
  EXPECT_EQ(view.attribute(row.attribute).bytes(), read(target, row.attribute));
}

TEST_P(ReflectionAttribute, goesThroughItsTextAndBack) {
  const std::string before = read(target, row.attribute);
  const Zint::Member& member = *target.type().find(row.attribute);
  // What is taken out of a pointer attribute must live to be put back.
  const Zint::Ptr<const Zint::PtrInterface> held =
      member.target == nullptr ? nullptr : target.target(row.attribute).object;
  if (row.newText == nullptr) {
    EXPECT_THAT(
        Support::exceptionText([&] { target.attributeIs(row.attribute, before); }),
        StartsWith(std::string(target.typeName()) + "::" + row.attribute + ": cannot be set to "));
  } else {
    const std::string text = resolved(row.newText);
    target.attributeIs(row.attribute, text);
    EXPECT_EQ(read(target, row.attribute), text);
    target.attributeIs(row.attribute, before);
  }
  EXPECT_EQ(read(target, row.attribute), before);
}

// A text that does not parse: type, member and text are named, nothing changes.
TEST_P(ReflectionAttribute, refusesWhatItCannotRead) {
  if (row.newText == nullptr) return;
  const std::string before = read(target, row.attribute);
  const std::string place = std::string(target.typeName()) + "::" + row.attribute;
  for (const std::string& text : {std::string("?"), before + " x", std::string("'x")}) {
    const std::string message =
        Support::exceptionText([&] { target.attributeIs(row.attribute, text); });
    EXPECT_TRUE(message.ends_with(" deserializing attribute " + place + " from \"" + text + "\""))
        << "from " << text << ": " << message;
    EXPECT_EQ(read(target, row.attribute), before);
  }
}

TEST_P(ReflectionAttribute, refusesToChangeAReadOnlyView) {
  if (target.object() == nullptr) return;  // values have no views
  GenericIf_ view = GenericIf_::readOnlyView(target.object());
  const std::string before = read(target, row.attribute);
  EXPECT_EQ(Support::exceptionText([&] {
              view.attributeIs(row.attribute, row.newText == nullptr ? "0" : resolved(row.newText));
            }),
            "attempting to modify a const instance");
  EXPECT_EQ(read(target, row.attribute), before);
}

INSTANTIATE_TEST_SUITE_P(all, ReflectionAttribute, testing::ValuesIn(attributeRows),
                         [](const testing::TestParamInfo<AttributeRow>& tested) {
                           return std::string(tested.param.type) + "_" + tested.param.attribute;
                         });

// The rows above are all that there are.
TEST(ReflectionAttributes, everyAttributeOfEveryTypeIsTested) {
  std::vector<std::string> expected, tested;
  for (const auto& [name, type] : Support::livingTypes()) {
    for (const Zint::Member* member : Support::allMembers(*type)) {
      if (member->get != nullptr) {
        expected.push_back(name + "::" + member->name + (member->set == nullptr ? "" : "="));
      }
    }
  }
  for (const AttributeRow& row : attributeRows) {
    tested.push_back(std::string(row.type) + "::" + row.attribute +
                     (row.newText == nullptr ? "" : "="));
  }
  EXPECT_THAT(tested, testing::UnorderedElementsAreArray(expected));
}

// --- What setting by name does ---

class Reflection : public Support::ReflectionTest {};

TEST_F(Reflection, setting_runsTheReactions) {
  named("ChipMemory").attributeIs("mode", "'override'");
  EXPECT_EQ(cm->shadow(), nullptr);
  named("HardwareShadow").attributeIs("state", "'unconfigured'");
  EXPECT_EQ(shadow->chipMemoryChunks(), 0u);
}

TEST_F(Reflection, setting_theStateDrivesTheAudit) {
  named("ChipReader").attributeIs("request", named("HardwareShadow").attribute("auditReadRequest"));
  chip->registers[0x1008] = 5;
  named("HardwareShadow").attributeIs("state", "auditing");
  for (int turn = 1; turn < 6; ++turn) loop.turnAt(turn);
  EXPECT_NE(named("HardwareShadow").attribute("audits"), "0");
  EXPECT_EQ(named("ChipMemory").attribute("registersFixed"), "1");
  EXPECT_EQ(chip->registers[0x1008], 0u);
}

TEST_F(Reflection, setting_anUnknownEnumeratorNamesItsType) {
  EXPECT_EQ(Support::exceptionText([&] { named("HardwareShadow").attributeIs("state", "'Idle'"); }),
            "State deserializing attribute Hardware::HardwareShadow::state from \"'Idle'\"");
  EXPECT_EQ(Support::exceptionText([&] { named("ChipMemory").attributeIs("mode", "off"); }),
            "ChipMemoryMode deserializing attribute Hardware::ChipMemory::mode from \"off\"");
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());
}

TEST_F(Reflection, setting_anArrayIndexTruncates) {
  named("ChipMemoryArrayIndex").attributeIs("value", "8");
  EXPECT_EQ(index, 8);
  EXPECT_NE(
      Support::exceptionText([&] { named("ChipMemoryArrayIndex").attributeIs("value", "65537"); }),
      "");  // a U16: it is the index's own text that truncates
  named("HardwareShadow").attributeIs("nextIndex", "65537");
  EXPECT_EQ(shadow->nextIndex(), 1);
}

TEST_F(Reflection, enumerations_haveNoAttributesToRead) {
  EXPECT_EQ(Hardware::hardwareShadowStateType.find("idle")->value, 2);
  EXPECT_EQ(Hardware::hardwareShadowStateType.find("idle")->get, nullptr);
}

}  // namespace
