// What a client does by name: bulk operations, factories, bytes in texts, and a whole session.
#include <gmock/gmock.h>

#include "support/ReflectionTest.h"

namespace {

class ReflectionUse : public Support::ReflectionTest {
 protected:
  std::string refusal(const std::string& type, const char* operation,
                      const Zint::Arguments& arguments) {
    return Support::exceptionText([&] { named(type).call(operation, arguments); });
  }
  // The reason of a refusal that also names the operation and all arguments; the whole refusal when
  // it does not.
  std::string reason(const std::string& type, const char* operation,
                     const Zint::Arguments& arguments) {
    std::string place =
        " deserializing attribute Hardware::" + type + "::" + operation + " from \"";
    for (const auto& [name, text] : arguments) {
      place += (place.back() == '"' ? "" : " ") + name.bytes() + "=" + text.bytes();
    }
    const std::string whole = refusal(type, operation, arguments);
    return whole.ends_with(place + "\"") ? whole.substr(0, whole.size() - place.size() - 1) : whole;
  }
};

// --- Bulk operations ---

TEST_F(ReflectionUse, chipMemoryDelAll_removesEveryRegionOfTheShadowInAnyState) {
  named("HardwareShadow").call("chipMemoryDelAll", {});  // idle: no rule is asked
  EXPECT_EQ(shadow->chipMemorys(), 0u);
  EXPECT_EQ(trace.taken(), Support::Lines{});
}

TEST_F(ReflectionUse, chipMemoryDel_ofTheShadowRunsItsRule) {
  EXPECT_EQ(Support::assertedCondition([&] {
              named("HardwareShadow").call("chipMemoryDel", {{"address", "4096"}});
            }),
            "state_ == unconfigured_ || overrideHardware_");
}

TEST_F(ReflectionUse, writeback_ofEverythingIsOneAccess) {
  named("ChipMemory").call("writeback", {{"initializedOnly", "false"}});
  EXPECT_EQ(chip->taken().size(), 8u);
}

TEST_F(ReflectionUse, doClearRange_hasItsBounds) {
  EXPECT_EQ(Support::assertedCondition([&] {
              named("ChipMemory").call("doClearRange", {{"endIndex", "9"}, {"startIndex", "0"}});
            }),
            "endIndex <= entries()");
}

// --- Bytes ---

TEST_F(ReflectionUse, bytes_mustBeAsManyAsTheOperationTouches) {
  EXPECT_EQ(reason("GenericChipHam", "doWrite",
                   {{"address", "0"}, {"buffer", "010203"}, {"entrySize", "4"}, {"entries", "1"}}),
            "3 bytes given where 4 are needed");
  EXPECT_EQ(reason("HardwareShadow", "shadowWriteHack",
                   {{"address", "4096"}, {"dataPtr", "01"}, {"size", "4"}}),
            "1 bytes given where 4 are needed");
  EXPECT_EQ(reason("HardwareShadow", "doFixBadRegister",
                   {{"chipMemory", resolved("$cm")}, {"entry", "0"}, {"data", "0102030405"}}),
            "5 bytes given where 4 are needed");
  EXPECT_EQ(reason("GenericChipHam", "doCompare", {{"a", "0102"}, {"b", "01"}}),
            "1 bytes given where 2 are needed");
  EXPECT_TRUE(chip->taken().empty());
  EXPECT_EQ(cm->registersFixed(), 0u);
}

TEST_F(ReflectionUse, bytes_aWrongNumberIsReportedLikeATextThatCannotBeRead) {
  EXPECT_EQ(refusal("HardwareShadow", "shadowWriteHack",
                    {{"address", "4096"}, {"dataPtr", "01"}, {"size", "4"}}),
            "1 bytes given where 4 are needed deserializing attribute "
            "Hardware::HardwareShadow::shadowWriteHack from \"address=4096 dataPtr=01 size=4\"");
}

TEST_F(ReflectionUse, bytes_aStreamMustReachToTheLastBit) {
  const char* beyond = "the bits reach beyond the stream";
  EXPECT_EQ(reason("GenericChipHam", "bitFromBitStream", {{"stream", "00"}, {"bit", "8"}}), beyond);
  EXPECT_EQ(reason("GenericChipHam", "byteFromBitStream", {{"stream", "0000"}, {"bit", "9"}}),
            beyond);
  EXPECT_EQ(reason("GenericChipHam", "copyBits",
                   {{"destination", "00"},
                    {"destinationBit", "1"},
                    {"source", "00"},
                    {"sourceBit", "0"},
                    {"bits", "8"}}),
            beyond);
  EXPECT_EQ(reason("GenericChipHam", "bitFromBitStream", {{"stream", "00"}, {"bit", "4294967295"}}),
            beyond);
  EXPECT_EQ(reason("GenericChipHam", "bitFromBitStream", {{"stream", "00"}, {"bit", "7"}}), "");
  EXPECT_EQ(reason("GenericChipHam", "byteFromBitStream", {{"stream", "0000"}, {"bit", "8"}}), "");
  EXPECT_EQ(reason("GenericChipHam", "bitToBitStream",
                   {{"stream", "00"}, {"bit", "7"}, {"value", "true"}}),
            "");
  EXPECT_EQ(reason("GenericChipHam", "byteToBitStream",
                   {{"stream", "0000"}, {"bit", "8"}, {"value", "1"}}),
            "");
  EXPECT_EQ(
      reason("GenericChipHam", "byteToBitStream", {{"stream", "00"}, {"bit", "1"}, {"value", "1"}}),
      beyond);
  EXPECT_EQ(reason("GenericChipHam", "bitToBitStream",
                   {{"stream", "00"}, {"bit", "8"}, {"value", "true"}}),
            beyond);
}

TEST_F(ReflectionUse, bytes_anAnswerIsKeptWithinReason) {
  EXPECT_EQ(reason("GenericChipHam", "doRead",
                   {{"address", "0"}, {"entrySize", "65536"}, {"entries", "65536"}}),
            "4294967296 bytes are more than a text should hold");
  EXPECT_EQ(
      reason("HardwareShadow", "readFromCacheHack", {{"address", "4096"}, {"size", "4294967292"}}),
      "4294967292 bytes are more than a text should hold");
}

TEST_F(ReflectionUse, readFromCacheHack_makesItsOwnRoomAndSaysWhenItIsNotServed) {
  EXPECT_EQ(
      named("HardwareShadow").call("readFromCacheHack", {{"size", "4"}, {"address", "4096"}}).text,
      "false");
  cm->readFromCacheIs(true);
  EXPECT_EQ(
      named("HardwareShadow").call("readFromCacheHack", {{"size", "4"}, {"address", "4096"}}).text,
      "true 00000000");
}

// A region is needed where the operation would look into it.
TEST_F(ReflectionUse, operations_onARegionRefuseNull) {
  const char* needed = "a region is needed";
  EXPECT_EQ(reason("HardwareShadow", "doFixBadRegister",
                   {{"chipMemory", "null"}, {"entry", "0"}, {"data", ""}}),
            needed);
  EXPECT_EQ(reason("HardwareShadow", "chipMemoryAuditEnabledIs",
                   {{"chipMemory", "null"}, {"auditEnabled", "true"}}),
            needed);
  EXPECT_EQ(Support::exceptionText([&] {
              named("ChipReader").list("chipMemory").insert({{"chipMemory", "null"}});
            }),
            "a region is needed deserializing attribute Hardware::ChipReader::chipMemoryIs from "
            "\"chipMemory=null\"");
}

// No region: nothing is stored, and the caller writes the chip.
TEST_F(ReflectionUse, shadowWriteAndCompareWithCache_ofNullIsFalse) {
  EXPECT_EQ(named("HardwareShadow")
                .call("shadowWriteAndCompareWithCache",
                      {{"chipMemory", "null"}, {"entry", "0"}, {"data", "01"}, {"size", "1"}})
                .text,
            "false");
}

// --- Factories ---

TEST_F(ReflectionUse, chipReaderFactory_makesAReaderThatReads) {
  const auto read = Hardware::chipReadRequestFactory("read");
  const Zint::Result made =
      GenericIf_::make("chipReaderFactory", {{"readInterval", "0.25"},
                                             {"clock", resolved("$clock")},
                                             {"maxEntriesPerRead", "3"},
                                             {"request", Zint::objectText(read.ptr())},
                                             {"activity", resolved("$activity")}});
  GenericIf_ its = GenericIf_::of(made);
  EXPECT_STREQ(its.typeName(), "Hardware::ChipReader");
  EXPECT_EQ(its.attribute("readInterval"), "0.25");
  EXPECT_EQ(its.attribute("maxEntriesPerRead"), "3");
  EXPECT_TRUE(made.object->hasNotificationActive());
  GenericIf_(read).call("chipMemoryIs", {{"chipMemory", resolved("$cm")}});
  GenericIf_(read).attributeIs("state", "1");
  for (int turn = 1; turn <= 4; ++turn) loop.turnAt(turn);
  EXPECT_EQ(GenericIf_(read).attribute("status"), "3");
  EXPECT_EQ(chip->taken().size(), 8u);
}

TEST_F(ReflectionUse, factories_makeEveryObjectByName) {
  const Zint::Result made =
      GenericIf_::make("genericChipHamFactory", {{"hamImpl", resolved("$chip")}, {"name", "'h'"}});
  const Zint::Result region = GenericIf_::make("chipMemoryFactory", {{"name", "'r'"},
                                                                     {"stride", "8"},
                                                                     {"entrySize", "4"},
                                                                     {"entries", "2"},
                                                                     {"chipHam", made.text},
                                                                     {"address", "0x100"}});
  EXPECT_EQ(GenericIf_::of(region).attribute("stride"), "8");
  EXPECT_EQ(GenericIf_::of(region).target("chipHam").object, made.object);
  const Zint::Result bare = GenericIf_::make(
      "hardwareShadowFactory", {{"clock", "null"}, {"activity", resolved("$activity")}});
  EXPECT_EQ(GenericIf_::of(bare).attribute("clock"), "null");
  EXPECT_EQ(
      GenericIf_::of(GenericIf_::make("chipReadRequestFactory", {{"name", "q"}})).attribute("name"),
      "'q'");
  EXPECT_EQ(GenericIf_::of(GenericIf_::make("chipMemoryBogonFactory", {{"name", "d"}}))
                .list("chipMemory")
                .size(),
            0u);
}

TEST_F(ReflectionUse, factories_refuseWrongArguments) {
  const auto made = [&](const char* factory, const Zint::Arguments& arguments) {
    return Support::exceptionText([&] { GenericIf_::make(factory, arguments); });
  };
  EXPECT_EQ(made("chipReadFactory", {}), "factories: unknown member chipReadFactory");
  EXPECT_EQ(made("chipReadRequestFactory", {}), "chipReadRequestFactory: missing argument name");
  EXPECT_EQ(made("chipReadRequestFactory", {{"name", "a"}, {"b", "c"}}),
            "chipReadRequestFactory: surplus argument b=c");
  EXPECT_THAT(made("hardwareShadowFactory", {{"activity", resolved("$cm")}, {"clock", "null"}}),
              testing::HasSubstr(" is of another type deserializing attribute "
                                 "hardwareShadowFactory from \"activity="));
}

// --- A session ---

// A region by name, written, damaged, repaired by the audit, and dropped again.
TEST_F(ReflectionUse, session_oneRegionFromItsMakingToItsEnd) {
  GenericIf_ switchShadow = named("HardwareShadow");
  GenericIf_ auditReader = named("ChipReader");
  auditReader.attributeIs("request", switchShadow.attribute("auditReadRequest"));
  switchShadow.attributeIs("state", "unconfigured");
  const Zint::Result vlan = named("ChipMemoryBogon")
                                .call("chipMemoryIs", {{"name", "vlan"},
                                                       {"address", "32768"},
                                                       {"entries", "4"},
                                                       {"entrySize", "4"},
                                                       {"stride", "4"},
                                                       {"chipHam", resolved("$ham")}});
  GenericIf_ table = GenericIf_::of(vlan);
  table.attributeIs("shadowEnabled", "true");
  table.attributeIs("auditEnabled", "true");
  table.call("doClear", {});
  switchShadow.call("chipMemoryIs", {{"chipMemory", vlan.text}});
  switchShadow.attributeIs("state", "configured");
  EXPECT_EQ(switchShadow.attribute("state"), "'idle'");
  EXPECT_EQ(switchShadow.call("findChipMemory", {{"size", "4"}, {"address", "32776"}}).text,
            vlan.text);
  switchShadow.call("shadowWriteU32", {{"value", "5"}, {"address", "32776"}});
  chip->registers[0x8008] = 0xbad;
  switchShadow.attributeIs("state", "auditing");
  for (int turn = 1; turn <= 10; ++turn) loop.turnAt(turn);
  EXPECT_EQ(chip->registers[0x8008], 5u);
  EXPECT_EQ(table.attribute("registersFixed"), "1");
  table.attributeIs("mode", "override");
  switchShadow.attributeIs("state", "idle");
  switchShadow.call("removeOverrideOnlyChipMem", {});
  EXPECT_EQ(switchShadow.list("chipMemory").find("32768").text, "null");
  switchShadow.attributeIs("state", "unconfigured");
  EXPECT_EQ(switchShadow.attribute("chipMemoryChunk"), "0");
  named("ChipMemoryBogon").call("chipMemoryDel", {{"name", "vlan"}});
  EXPECT_EQ(named("ChipMemoryBogon").list("chipMemory").find("vlan").text, "null");
}

}  // namespace
