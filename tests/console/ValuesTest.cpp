// Addresses, computed values and buffers, as people write and read them.
#include <tools/console/Values.h>

#include <algorithm>

#include "console/SessionTest.h"

namespace {

using Console::addressText;
using Console::integerText;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using ValuesTest = Support::SessionTest;

TEST(AddressTextTest, isTheFormOfTheTraces_andReadsBack) {
  EXPECT_EQ(addressText("8589942528"), "0x2:00001f00");
  EXPECT_EQ(integerText("0x2:00001f00"), "8589942528");
  EXPECT_EQ(integerText("0xffffffff:FFFFFFFF"), "18446744073709551615");
  EXPECT_EQ(addressText("18446744073709551615"), "0xffffffff:ffffffff");
}

TEST(AddressTextTest, otherTextsStayAsTheyAre) {
  for (const char* text : {"", "null", "0x1f00", "4096", "0x:1", "0x1:", "1:2", "0x1:00000000f",
                           "0x123456789:0", "0x1:2:3", "0x1:g"}) {
    EXPECT_EQ(integerText(text), text);
  }
  EXPECT_EQ(addressText("null"), "null");
}

TEST_F(ValuesTest, addressesArePrintedInThatForm) {
  EXPECT_EQ(outputOf("get /shadow/chipMemory/acl/address"), "0x2:000a0000\n");
  EXPECT_THAT(outputOf("ls /shadow/chipMemory"), StartsWith("0x1:00000000  'mac'#"));
  EXPECT_THAT(outputOf("ls /shadow/chipMemory/acl"),
              testing::ContainsRegex("\naddress +0x2:000a0000 +Hardware::ChipAddress\n"));
}

TEST_F(ValuesTest, addressesAreReadInBothForms) {
  const std::string acl = outputOf("get /shadow/chipMemory/acl");
  EXPECT_EQ(outputOf("call /shadow/findChipMemory address=0x2:000a0000 size=16"), acl);
  EXPECT_EQ(outputOf("call /shadow/findChipMemory address=0x2000a0000 size=16"), acl);
  EXPECT_EQ(outputOf("call /shadow/findChipMemory address=/shadow/chipMemory/acl/address size=16"),
            acl);
  EXPECT_EQ(outputOf("get /shadow/chipMemory/0x2:000a0000"), acl);
  EXPECT_EQ(outputOf("call /shadow/chipMemory/acl/inRange addr=0x2:000a1fff"), "true\n");
  EXPECT_EQ(outputOf("call /shadow/chipMemory/acl/entryIndexFromAddress addr=0x2:000a0020"), "2\n");
  EXPECT_EQ(outputOf("peek 0x1:00080000"), outputOf("peek 0x80000"));
  session_.run("poke 0x1:00080000 7");
  EXPECT_EQ(onChip(0x80000), 7u);
}

TEST_F(ValuesTest, aRegionShowsItsEntries_whichAreComputed) {
  EXPECT_THAT(outputOf("ls /shadow/chipMemory/port"),
              testing::ContainsRegex(
                  "\naddress [^\n]+\nentrySize [^\n]+\nentries +64 +U32, computed\nstride "));
  EXPECT_EQ(outputOf("get /shadow/chipMemory/port/entries"), "64\n");
  EXPECT_EQ(refusal("set /shadow/chipMemory/port/entries 65"),
            "/shadow/chipMemory/port/entries is computed: it can only be read");
  EXPECT_EQ(refusal("watch /shadow/chipMemory/port/entries"),
            "/shadow/chipMemory/port/entries is computed: it can only be read");
  // The registry's list of members has no such attribute.
  EXPECT_THAT(outputOf("describe ChipMemory"), Not(HasSubstr("\n  entries ")));
  EXPECT_THAT(refusal("get /shadow/chipMemory/port/entires"), HasSubstr("'entries'"));
}

// --- Buffers ---

TEST_F(ValuesTest, show_aRowIsAnEntry) {
  session_.run("set /shadow/chipMemory/vlan/skipWriteIfMatchesCache false");
  session_.run(
      "call /shadow/shadowWriteAndCompareWithCache chipMemory=/shadow/chipMemory/vlan entry=16 "
      "data=0102030405060708a1a2a3a4a5a6a7a8 size=16");
  EXPECT_EQ(outputOf("show /shadow/chipMemory/vlan/shadow 0x10..0x11"),
            "1024 entries of 8 bytes, 8192 bytes\n"
            "entry    offset  bytes\n"
            " 0x10      0x80  01 02 03 04  05 06 07 08\n"
            " 0x11      0x88  a1 a2 a3 a4  a5 a6 a7 a8\n");
  EXPECT_EQ(outputOf("show /shadow/chipMemory/vlan/shadow 16+2"),
            outputOf("show /shadow/chipMemory/vlan/shadow 0x10..0x11"));
  EXPECT_THAT(outputOf("show /shadow/chipMemory/vlan/shadow 17"),
              EndsWith("bytes\n 0x11      0x88  a1 a2 a3 a4  a5 a6 a7 a8\n"));
}

TEST_F(ValuesTest, show_theFirstRowsUnlessARangeIsGiven) {
  const std::string text = outputOf("show /shadow/chipMemory/mac/shadow");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 + 16 + 1);
  EXPECT_THAT(text, EndsWith("... 65520 more entries\n"));
  const std::string all = outputOf("show /shadow/chipMemory/vlan/hardware 0..1023");
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2 + 1024);
}

TEST_F(ValuesTest, show_noRowHoldsPartsOfTwoEntries) {
  session_.run(
      "let t = call chipMemoryFactory name=t address=0x9000 entries=3 entrySize=24 stride=24 "
      "chipHam=null");
  EXPECT_EQ(outputOf("show /t/hardware 1..2"),
            "3 entries of 24 bytes, 72 bytes\n"
            "entry    offset  bytes\n"
            "  0x1      0x18  00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00\n"
            "           0x28  00 00 00 00  00 00 00 00\n"
            "  0x2      0x30  00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00\n"
            "           0x40  00 00 00 00  00 00 00 00\n");
}

TEST_F(ValuesTest, show_aBitmapIsADigitPerEntry) {
  session_.run("set /shadow/state idle");
  session_.run("call /shadow/chipMemory/port/doClearRange startIndex=9 endIndex=9");
  session_.run("call /shadow/chipMemory/port/entryInitializedDel entryIndex=63");
  EXPECT_EQ(outputOf("show /shadow/chipMemory/port/initialized"),
            "64 entries, 9 bytes\n"
            "entry    offset  bits\n"
            "  0x0       0x0  11111111 11111111 11111111 11111111 11111111 11111111 11111111 "
            "1111111.\n");
  EXPECT_THAT(outputOf("show /shadow/chipMemory/port/initialized 62..63"),
              EndsWith("  0x0       0x0 " + std::string(62 + 8, ' ') + "1.\n"));
}

TEST_F(ValuesTest, show_whatBelongsToNoRegionIsBytes) {
  session_.run("let b = /shadow/chipMemory/vlan/shadow");
  const std::string text = outputOf("show /b");
  EXPECT_THAT(text, StartsWith("8192 bytes\n offset  bytes\n    0x0  "));
  EXPECT_THAT(text, EndsWith("... 7936 more bytes\n"));
  EXPECT_THAT(outputOf("show /b 0x20+3"), testing::MatchesRegex("[^\n]+\n[^\n]+\n"
                                                                "   0x20  .. .. ..\n"));
}

TEST_F(ValuesTest, show_refuses) {
  EXPECT_EQ(
      refusal("show /shadow/chipMemory/vlan"),
      "/shadow/chipMemory/vlan is no buffer: show its hardware, shadow, initialized or dirty");
  EXPECT_EQ(refusal("show /shadow/state"), "/shadow/state is no buffer");
  EXPECT_EQ(refusal("show /shadow/chipMemory/stack/shadow"),
            "/shadow/chipMemory/stack/shadow is no buffer");
  EXPECT_EQ(refusal("show /shadow/chipMemory/vlan/shadow 5..4"), "show: the range 5..4 is empty");
  EXPECT_EQ(refusal("show /shadow/chipMemory/vlan/shadow 5+0"), "show: the range 5+0 is empty");
  EXPECT_EQ(refusal("show /shadow/chipMemory/vlan/shadow 0x3ff..0x400"),
            "show: 0x3ff..0x400 ends at 0x400, but there are only 0x400");
  EXPECT_EQ(refusal("show /shadow/chipMemory/vlan/shadow 4294967295..4294967296"),
            "show: 4294967296 is out of range");
  EXPECT_EQ(refusal("show /shadow/chipMemory/vlan/shadow x"), "show: an integer expected at \"x\"");
}

TEST_F(ValuesTest, noLineIsAsLongAsABuffer) {
  const auto longest = [](const std::string& text) {
    std::size_t most = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) most = std::max(most, line.size());
    return most;
  };
  for (const char* line :
       {"get /shadow/chipMemory/mac/shadow/data", "ls /shadow/chipMemory/mac/shadow",
        "ls /shadow/chipMemory/mac/shadow/data", "show /shadow/chipMemory/mac/shadow",
        "show /shadow/chipMemory/mac/dirty",
        "call /shadow/readFromCacheHack address=0x1:00000000 size=524288",
        "call /shadow/chipMemory/mac/chipHam/doRead address=0 entrySize=8 entries=1000"}) {
    EXPECT_LE(longest(outputOf(line)), 100u) << line;
  }
  EXPECT_THAT(outputOf("call /shadow/readFromCacheHack address=0x1:00000000 size=4096"),
              AllOf(StartsWith("true 4096 bytes\n000000  "), EndsWith("\n... 3840 more bytes\n")));
}

// A path means the whole value.
TEST_F(ValuesTest, aShortenedValueIsWholeAsAnArgument) {
  session_.run(
      "call /shadow/shadowWriteAndCompareWithCache chipMemory=/shadow/chipMemory/vlan entry=0 "
      "data=/shadow/chipMemory/vlan/shadow/data size=8192");
}

}  // namespace
