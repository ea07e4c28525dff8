#include <maps/Diff.h>
#include <maps/Regions.h>
#include <maps/Table.h>

#include "MapsTest.h"

namespace {

using namespace MapsTest;
using Driver::Rule;

// "NAME address entries*entrySize/stride" of each region.
std::vector<std::string> regionsText(const Maps::Plan& plan) {
  std::vector<std::string> all;
  for (const Maps::Region& region : Maps::regionsOf(plan)) {
    all.push_back(region.name + " " + Maps::hexText(region.address) + " " +
                  std::to_string(region.entries) + "*" + std::to_string(region.entrySize) + "/" +
                  std::to_string(region.stride));
  }
  return all;
}
using Texts = std::vector<std::string>;

std::string array(const std::string& name, const std::string& offset, int count, int step,
                  const std::string& more = "") {
  return reg(name, offset,
             "<dim>" + std::to_string(count) + "</dim><dimIncrement>" + std::to_string(step) +
                 "</dimIncrement>" + more);
}

TEST(Regions, neighboursOfOneWidth_areOneRegion) {
  EXPECT_EQ(Texts{"B.a..c 0x1000 3*4/4"},
            regionsText(planned(reg("a", "0") + reg("c", "8") + reg("b", "4"))));
}

TEST(Regions, gapsWidthsAndBlocks_divide) {
  EXPECT_EQ((Texts{"B.a 0x1000 1*4/4", "B.b 0x1008 1*4/4", "B.c..d 0x100c 2*2/2"}),
            regionsText(planned(reg("a", "0") + reg("b", "8") + reg("c", "12", "<size>16</size>") +
                                reg("d", "14", "<size>16</size>"))));
  EXPECT_EQ((Texts{"P.a 0x1000 1*4/4", "Q.a 0x1004 1*4/4"}),
            regionsText(Maps::proposed(
                parsed(svd(block(reg("a", "0"), "P") + block(reg("a", "0"), "Q", "0x1004"))))));
}

TEST(Regions, undecidedRegisters_areInNone) {
  EXPECT_EQ((Texts{"B.a 0x1000 1*4/4", "B.c 0x1008 1*4/4"}),
            regionsText(planned(reg("a", "0") + reg("STATUS", "4") + reg("c", "8"))));
  EXPECT_EQ(Texts{}, regionsText(planned(reg("STATUS", "0"))));
}

TEST(Regions, array_isARegionOfItsOwn) {
  EXPECT_EQ((Texts{"B.a 0x1000 1*4/4", "B.mac 0x1004 8*4/4", "B.z 0x1024 1*4/4"}),
            regionsText(planned(reg("a", "0") + array("mac[%s]", "4", 8, 4) + reg("z", "0x24"))));
}

TEST(Regions, arrayWithGaps_hasItsStride) {
  EXPECT_EQ(Texts{"B.mac 0x1000 4*4/16"}, regionsText(planned(array("mac[%s]", "0", 4, 16))));
}

TEST(Regions, arrayWithAnotherRegisterInItsGaps_isDivided) {
  EXPECT_EQ((Texts{"B.mac[0] 0x1000 1*4/4", "B.x 0x1004 1*4/4", "B.mac[1] 0x1008 1*4/4"}),
            regionsText(planned(array("mac[%s]", "0", 2, 8) + reg("x", "4"))));
  // An undecided register in the last gap, too: the region's span would contain it.
  EXPECT_EQ((Texts{"B.mac[0..1] 0x1000 2*4/8", "B.mac[2] 0x1010 1*4/4"}),
            regionsText(planned(array("mac[%s]", "0", 3, 8) + reg("STATUS", "0x14"))));
}

TEST(Regions, undecidedElement_dividesTheArray) {
  Maps::Plan plan = planned(array("mac[%s]", "0", 8, 4));
  Maps::decide(plan, Maps::parseOverlay("B.mac[3] undecided", "o"));
  EXPECT_EQ((Texts{"B.mac[0..2] 0x1000 3*4/4", "B.mac[4..7] 0x1010 4*4/4"}), regionsText(plan));
}

TEST(Regions, twoArraysSideBySide_areTwoRegions) {
  EXPECT_EQ((Texts{"B.a 0x1000 2*4/4", "B.b 0x1008 2*4/4"}),
            regionsText(planned(array("a[%s]", "0", 2, 4) + array("b[%s]", "8", 2, 4))));
}

TEST(Regions, registersAcross4GiB_areDivided) {
  EXPECT_EQ((Texts{"B.a 0xfffffffc 1*4/4", "B.b 0x100000000 1*4/4"}),
            regionsText(Maps::proposed(
                parsed(svd(block(reg("a", "0") + reg("b", "4"), "B", "0xFFFFFFFC"))))));
}

// ---- differences --------------------------------------------------------------------------------

std::vector<std::string> differencesText(const Maps::Plan& before, const Maps::Plan& after) {
  std::vector<std::string> all;
  for (const Maps::Change& change : Maps::differences(before, after)) {
    all.push_back(std::string(Maps::textOf(change.kind)) + " " + change.name + ": " +
                  change.before + " -> " + change.after);
  }
  return all;
}

TEST(Diff, equalPlans_haveNone) {
  EXPECT_EQ(Texts{}, differencesText(planned(reg("a", "0")), planned(reg("a", "0"))));
}

TEST(Diff, whatIsNewlyAuditedAndWhatNoLonger_isTold) {
  EXPECT_EQ(
      (Texts{"newly audited B.a: undecided (it is read-only) -> repaired",
             "no longer audited B.b: repaired -> undecided (readAction is clear)",
             "newly audited B.c:  -> repaired", "no longer audited B.d: repaired -> "}),
      differencesText(
          planned(reg("a", "0", "<access>read-only</access>") + reg("b", "4") + reg("d", "12")),
          planned(reg("a", "0") + reg("b", "4", "<readAction>clear</readAction>") +
                  reg("c", "8"))));
}

TEST(Diff, movesResetValuesAndMasks_areTold) {
  EXPECT_EQ(
      (Texts{"moved B.a: 0x1000, 32 bits -> 0x1004, 32 bits", "reset value B.a: not known -> 0x5",
             "rule B.b: repaired -> repaired mask 0xfffffff0 kept"}),
      differencesText(planned(reg("a", "0") + reg("b", "8")),
                      planned(reg("a", "4", "<resetValue>5</resetValue>") +
                              reg("b", "8", "<fields>" + field("x", "[3:0]") + "</fields>"))));
}

TEST(Diff, undecidedOnes_areAddedAndRemoved) {
  EXPECT_EQ((Texts{"added B.flag:  -> undecided (it changes by itself: 'flag' in its name)",
                   "removed B.busy: undecided (it changes by itself: 'busy' in its name) -> "}),
            differencesText(planned(reg("a", "0") + reg("busy", "4")),
                            planned(reg("a", "0") + reg("flag", "4"))));
}

// ---- tables and headers -------------------------------------------------------------------------

TEST(MapTable, holdsRegionsPoliciesAndFields) {
  Maps::Plan plan = planned(array("mac[%s]", "0", 4, 4,
                                  "<resetValue>6</resetValue><fields>" + field("valid", "[0:0]") +
                                      field("port", "[4:1]") + "</fields>"));
  Maps::decide(plan, Maps::parseOverlay("B.mac[2] detectOnly", "o"));
  const Maps::Table table(plan);
  ASSERT_EQ(1u, table.regions().size());
  const Driver::TableRegion& region = table.regions()[0];
  EXPECT_STREQ("B.mac", region.name);
  EXPECT_EQ(0u, region.entries);
  ASSERT_EQ(4u, region.registers.size());
  EXPECT_STREQ("B.mac[2]", region.registers[2].name);
  EXPECT_EQ(Rule::detectOnly, region.registers[2].rule);
  EXPECT_EQ(0xFFFFFFE0u, region.registers[2].mask);
  EXPECT_EQ(6u, region.registers[2].resetValue);
  ASSERT_EQ(2u, region.registers[2].fields.size());
  EXPECT_STREQ("port", region.registers[2].fields[1].name);
}

TEST(MapTable, arrayOfEqualElements_isOneRegisterAndTheirNumber) {
  const Maps::Plan plan = planned(array("mac[%s]", "0", 4, 4));
  const Maps::Table table(plan);
  const Driver::TableRegion& region = table.regions()[0];
  EXPECT_EQ(4u, region.entries);
  ASSERT_EQ(1u, region.registers.size());
  EXPECT_STREQ("B.mac", region.registers[0].name);
  EXPECT_NE(std::string::npos, Maps::headerText(plan, "n").find(".entries = 4}"));
}

TEST(MapTable, arrayWithOtherNames_hasARegisterForEach) {
  const Maps::Table table(planned(array("P%s", "0", 4, 4)));
  EXPECT_EQ(4u, table.regions()[0].registers.size());
  EXPECT_STREQ("B.P3", table.regions()[0].registers[3].name);
}

TEST(MapHeader, constantsStandInItsNamespace) {
  const std::string text = Maps::headerText(
      planned(
          reg("a", "0", "<resetValue>6</resetValue><fields>" + field("on", "[0:0]") + "</fields>")),
      "chip::map");
  EXPECT_NE(std::string::npos, text.find("namespace chip::map {\n"));
  EXPECT_NE(
      std::string::npos,
      text.find("inline constexpr Driver::TableField fields0[] = {\n    {\"on\", 0, 1},\n};"));
  EXPECT_NE(std::string::npos,
            text.find("{.name = \"B.a\", .rule = Driver::Rule::repaired, .mask = 0xfffffffeu, "
                      ".rewrite = Driver::Rewrite::kept, .resetValue = 0x6u, .resetMask = "
                      "0xffffffffu, .fields = fields0},\n"));
  EXPECT_NE(std::string::npos,
            text.find("{.name = \"B.a\", .address = 0x1000u, .entrySize = 4, .stride = 4, "
                      ".registers = registers0},\n"));
  EXPECT_NE(std::string::npos,
            text.find("inline constexpr const Driver::TableRegion& b_a = regions[0];\n"));
}

TEST(MapHeader, textsOfTheMap_areEscaped) {
  const std::string text =
      Maps::headerText(planned(reg("x&quot;\\?\xC3\xA4y", "0") + reg("class", "8")), "n");
  EXPECT_NE(std::string::npos, text.find("\"B.x\\\"\\\\\\?\\303\\244y\""));
}

TEST(MapHeader, namespaceThatIsNone_isRefused) {
  for (const std::string space : {"", "1a", "a::", "a:b", "class", "a b", "a::class"}) {
    EXPECT_THROW(Maps::headerText(planned(reg("a", "0")), space), Zint::RangeException) << space;
  }
}

}  // namespace
