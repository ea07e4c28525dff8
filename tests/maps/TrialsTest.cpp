#include <maps/Trials.h>

#include "MapsTest.h"

namespace {

using namespace MapsTest;

const char trialRegisters[] =
    "<register><name>mode</name><addressOffset>0</addressOffset><resetValue>0x5</resetValue>"
    "<fields><field><name>valid</name><bitRange>[0:0]</bitRange></field>"
    "<field><name>port</name><bitRange>[4:1]</bitRange></field></fields></register>"
    "<register><name>id</name><addressOffset>4</addressOffset><access>read-only</access>"
    "<resetValue>0x1234</resetValue></register>"
    "<register><name>flags</name><addressOffset>8</addressOffset>"
    "<modifiedWriteValues>oneToClear</modifiedWriteValues></register>"
    "<register><name>events</name><addressOffset>12</addressOffset><access>read-only</access>"
    "<readAction>clear</readAction></register>"
    "<register><name>key</name><addressOffset>16</addressOffset><access>write-only</access>"
    "</register>";

Maps::Plan trialPlan() {
  Maps::Plan plan = planned(trialRegisters);
  Maps::decide(plan, Maps::parseOverlay("B.id readOnly", "o"));
  return plan;
}

// A chip with one register whose lowest bit is 0 for ever.
class StuckChip : public Maps::ScratchChip {
 public:
  using ScratchChip::ScratchChip;
  U64 read(U64 address, U32 width) override {
    return ScratchChip::read(address, width) & ~U64{address == 0x1000 ? 1u : 0u};
  }
};

TEST(Trials, soundChip_passesAll) {
  const Maps::Plan plan = trialPlan();
  Maps::ScratchChip chip(plan.map);
  for (const auto trial : {&Maps::tryResetValues, &Maps::tryBitBash, &Maps::tryAccessRights}) {
    const Maps::TrialResult result = trial(plan, chip);
    EXPECT_EQ(0u, result.failed);
    EXPECT_LT(0u, result.registers);
  }
}

TEST(Trials, undecidedRegisters_areNeverAccessed) {
  struct Watched : Maps::ScratchChip {
    using ScratchChip::ScratchChip;
    U64 read(U64 address, U32 width) override {
      EXPECT_GT(0x1008u, address);
      return ScratchChip::read(address, width);
    }
    void write(U64 address, U32 width, U64 value) override {
      EXPECT_GT(0x1008u, address);
      ScratchChip::write(address, width, value);
    }
  };
  const Maps::Plan plan = trialPlan();
  Watched chip(plan.map);
  for (const auto trial : {&Maps::tryResetValues, &Maps::tryBitBash, &Maps::tryAccessRights}) {
    trial(plan, chip);
  }
}

TEST(Trials, wrongResetValue_isToldByItsFields) {
  const Maps::Plan plan = trialPlan();
  Maps::ScratchChip chip(plan.map);
  chip.valueIs(0x1000, 0x2);
  const Maps::TrialResult result = Maps::tryResetValues(plan, chip);
  ASSERT_EQ(1u, result.failures.size());
  EXPECT_EQ("B.mode after a reset: valid expected 0x1 actual 0x0, port expected 0x2 actual 0x1",
            result.failures[0].text);
}

TEST(Trials, stuckBit_isFoundByBitBash) {
  const Maps::Plan plan = trialPlan();
  StuckChip chip(plan.map);
  const Maps::TrialResult result = Maps::tryBitBash(plan, chip);
  ASSERT_EQ(1u, result.failures.size());
  EXPECT_EQ("B.mode bit 0 set alone: valid expected 0x1 actual 0x0", result.failures[0].text);
}

TEST(Trials, bitBash_putsValuesBack) {
  const Maps::Plan plan = trialPlan();
  Maps::ScratchChip chip(plan.map);
  chip.valueIs(0x1000, 0x13);
  Maps::tryBitBash(plan, chip);
  EXPECT_EQ(0x13u, chip.value(0x1000));
}

TEST(Trials, writableReadOnlyRegister_isFoundByAccessRights) {
  const Maps::Plan plan = trialPlan();
  // The same chip, but its identity can be written.
  const Maps::Map open = parsedBlock(reg("mode", "0") + reg("id", "4"));
  Maps::ScratchChip chip(open);
  const Maps::TrialResult result = Maps::tryAccessRights(plan, chip);
  ASSERT_EQ(1u, result.failures.size());
  EXPECT_EQ("B.id which is read-only, after a write: expected 0x0 actual 0xffffffff",
            result.failures[0].text);
  EXPECT_EQ(0u, chip.value(0x1004));
}

TEST(ScratchChip, readAndWriteEffects_areThoseOfTheMap) {
  const Maps::Map map = parsedBlock(trialRegisters);
  Maps::ScratchChip chip(map);
  chip.valueIs(0x1008, 0xFF);
  chip.write(0x1008, 32, 0x0F);
  EXPECT_EQ(0xF0u, chip.read(0x1008, 32));
  chip.valueIs(0x100C, 7);
  EXPECT_EQ(7u, chip.read(0x100C, 32));
  EXPECT_EQ(0u, chip.read(0x100C, 32));
  chip.write(0x1010, 32, 9);
  EXPECT_EQ(0u, chip.read(0x1010, 32));
  EXPECT_EQ(9u, chip.value(0x1010));
  chip.write(0x1004, 32, 0);
  EXPECT_EQ(0x1234u, chip.read(0x1004, 32));
  chip.doReset();
  EXPECT_EQ(5u, chip.read(0x1000, 32));
}

TEST(ScratchChip, addressWithoutRegister_isRefused) {
  const Maps::Map map = parsedBlock(reg("mode", "0"));
  Maps::ScratchChip chip(map);
  EXPECT_THROW(chip.read(0x1004, 32), Zint::RangeException);
  EXPECT_THROW(chip.write(0x1000, 16, 0), Zint::RangeException);
}

}  // namespace
