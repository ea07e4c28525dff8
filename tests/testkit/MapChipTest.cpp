// A fake chip from a register map.
#ifdef UMBRA_HAS_MAPS
#include <maps/Import.h>
#include <maps/Trials.h>
#include <testkit/MapChip.h>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

const char* const effects[] = {"modify",       "oneToClear",  "oneToSet",
                               "oneToToggle",  "zeroToClear", "zeroToSet",
                               "zeroToToggle", "clear",       "set"};
const char* const accesses[] = {"read-write", "read-only", "write-only", "writeOnce",
                                "read-writeOnce"};

// Registers with every access and effect, whole and in fields.
std::string everyRule() {
  std::string text =
      "<device><name>ASIC</name><width>32</width><size>32</size><access>read-write</access>"
      "<peripherals><peripheral><name>SW</name><baseAddress>0x1000</baseAddress><registers>";
  U32 n = 0;
  const auto add = [&](const std::string& properties, const std::string& fields) {
    text += "<register><name>R" + std::to_string(n) + "</name><addressOffset>" +
            std::to_string(4 * n) + "</addressOffset>" + properties +
            "<resetValue>0x12345678</resetValue>" +
            (fields.empty() ? "" : "<fields>" + fields + "</fields>") + "</register>";
    ++n;
  };
  for (const char* access : accesses) {
    for (const char* effect : effects) {
      const std::string rules = std::string("<access>") + access +
                                "</access><modifiedWriteValues>" + effect +
                                "</modifiedWriteValues>";
      add(rules, "");
      add("", "<field><name>F</name><bitRange>[15:4]</bitRange>" + rules +
                  "</field><field><name>G</name><bitRange>[31:20]</bitRange></field>");
    }
  }
  for (const char* action : {"clear", "set"}) {
    const std::string rules = std::string("<readAction>") + action + "</readAction>";
    add(rules, "");
    add("", "<field><name>F</name><bitRange>[15:4]</bitRange>" + rules + "</field>");
  }
  return text + "</registers></peripheral></peripherals></device>";
}

TEST(MapChipTest, namesFieldsAndResetValuesAreTheMaps) {
  const auto chip = TestKit::fakeChipOf(Maps::parseMap(everyRule(), "asic.svd"));
  EXPECT_EQ(chip->name(), "ASIC");
  EXPECT_EQ(chip->value("SW.R0"), 0x12345678u);
  EXPECT_EQ(chip->registerName(0x1004), "SW.R1");
  EXPECT_EQ(chip->valueText(0x1004, 0x00100030), "SW.R1 0x100030 F=3 G=1");
}

TEST(MapChipTest, ofRegistersThatShareBytesTheFirstHasThem) {
  const auto reg = [](const std::string& name, const std::string& offset) {
    return "<register><name>" + name + "</name><addressOffset>" + offset +
           "</addressOffset></register>";
  };
  const auto chip = TestKit::fakeChipOf(
      Maps::parseMap("<device><name>ASIC</name><size>32</size><peripherals><peripheral>"
                     "<name>SW</name><baseAddress>0x1000</baseAddress><registers>" +
                         reg("a", "0") + reg("a", "4") + reg("b", "4") +
                         "</registers></peripheral></peripherals></device>",
                     "asic.svd"));
  EXPECT_EQ(chip->registerName(0x1000), "SW.a");
  EXPECT_EQ(chip->registerName(0x1004), "SW.a~2");
}

// Maps as makers publish them.
TEST(MapChipTest, realMapsBecomeChipsWithTheirResetValues) {
  const char* const folder = std::getenv("UMBRA_MAPS");
  if (folder == nullptr || *folder == '\0') GTEST_SKIP() << "UMBRA_MAPS names no folder";
  U32 maps = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    if (file.path().extension() != ".svd") continue;
    ++maps;
    const Maps::Map map = Maps::readMap(file.path().string());
    const auto chip = TestKit::fakeChipOf(map);
    Maps::ScratchChip other(map);
    U32 compared = 0;
    for (const Maps::Register& r : map.registers) {
      if (chip->registerName(r.address) != map.nameOf(r)) continue;  // has other bytes
      const U32 width = r.layout->bytes();
      EXPECT_EQ(chip->doRead(r.address, width), other.read(r.address, 8 * width)) << map.nameOf(r);
      ++compared;
    }
    EXPECT_GT(compared, map.registers.size() / 2) << file.path();
  }
  EXPECT_GT(maps, 0u);
}

// The maps' own chip in memory was written independently of this one.
TEST(MapChipTest, eachAccessDoesWhatTheMapSays) {
  const Maps::Map map = Maps::parseMap(everyRule(), "asic.svd");
  const auto chip = TestKit::fakeChipOf(map);
  Maps::ScratchChip other(map);
  std::mt19937 random(1);
  for (U32 i = 0; i < 20'000; ++i) {
    const auto& r = map.registers[random() % map.registers.size()];
    if (random() % 2 != 0) {
      EXPECT_EQ(chip->doRead(r.address, 4), other.read(r.address, 32)) << r.name;
    } else {
      const U32 value = static_cast<U32>(random());
      chip->doWrite(r.address, 4, value);
      other.write(r.address, 32, value);
    }
    ASSERT_EQ(chip->value(map.nameOf(r)), other.value(r.address)) << r.name << " step " << i;
  }
}

}  // namespace
}  // namespace TestKitTest
#endif
