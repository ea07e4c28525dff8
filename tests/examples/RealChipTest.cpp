// The driver of the guide's real chip, on a chip to which everything happens. Most tests run its
// loop, which waits for real time, until something has happened, at most so many turns. Those at
// the printed pace move a manual clock.
#include <SmallSwitch.h>
#include <gtest/gtest.h>

#include <map>

namespace {

using Driver::PatrolState;

// The registers as the chip has them.
class SmallRegisters : public Fru::HamImpl {
 public:
  SmallRegisters() { words[identity.chipMemoryOffset()] = 0x5a17c401; }

  void read(U32 address, U32* value) override {
    U32& held = words[address];
    if (isCounter(address)) ++counterReads;
    *value = isAbsent ? ~0u : held;
    if (isAbsent) return;
    if (isCounter(address)) held = 0;
    if (isStatus(address)) ++held;
  }
  void write(U32 address, U32 value) override {
    if (isAbsent) return;
    if (isCounter(address) || isStatus(address)) ++wrongWrites;
    U32& held = words[address];
    if (isInterrupt(address)) {
      latchesCleared += static_cast<U32>(__builtin_popcount(held & value & 0xffff));
      held = (value & 0xffff0000) | (held & ~value & 0xffff);
    } else {
      held = value;
    }
    if (address == stuckAddress) held &= ~stuckBits;
  }
  void reset() {
    words.clear();
    words[identity.chipMemoryOffset()] = 0x5a17c401;
  }

  std::map<U32, U32> words;
  bool isAbsent = false;
  U32 counterReads = 0;
  U32 wrongWrites = 0;
  U32 latchesCleared = 0;
  U32 stuckAddress = ~0u;
  U32 stuckBits = 0;

 private:
  static bool isCounter(U32 address) {
    return address >= portTable + 0x100 && address < portTable + 0x200;
  }
  static bool isStatus(U32 address) {
    return address >= statusTable && address < statusTable + 0x40;
  }
  static bool isInterrupt(U32 address) {
    return address >= interruptTable && address < interruptTable + 0x10;
  }
};

class RealChipTest : public testing::Test {
 protected:
  RealChipTest() {
    // Time that passes for nothing.
    small.governor->periodIs(0);
    small.governor->shareIs(0.5);
    small.chip->retryMinIs(0.001);
    for (U32 e = 0; e < 1024; ++e) small.mac->write<U64>(e, e == 9 ? 0 : 0x100000001 * e);
    for (U32 e = 0; e < 256; ++e) small.acl->write<U64>(e, e);
  }

  // Runs the driver's loop until it holds.
  bool runUntil(const std::function<bool()>& holds) {
    constexpr U32 mostTurns = 100'000;
    U32 turns = 0;
    small.run([&] { return !holds() && ++turns < mostTurns; });
    return holds();
  }
  bool runPasses(U32 passes) {
    const U32 last = small.shadow->audits() + passes;
    return runUntil([&] { return small.shadow->audits() >= last; });
  }

  const Zint::Ptr<SmallRegisters> registers = Zint::makePtr<SmallRegisters>();
  SmallSwitch small{registers, Zint::monotonicClockFactory("clock")};
};

TEST_F(RealChipTest, bringUp_nothingDiffersAndNothingIsWrong) {
  EXPECT_TRUE(runPasses(3));
  EXPECT_EQ(small.shadow->findings(), 0u);
  EXPECT_TRUE(Driver::check(small.shadow).empty());
}

TEST_F(RealChipTest, aFlippedBitIsRepaired_alsoInAnEntryOfZeros) {
  runPasses(1);
  registers->words[macTable + 8 * 5] ^= 0x10;
  registers->words[macTable + 8 * 9] ^= 0x10;
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(registers->words[macTable + 8 * 5], 5u);
  EXPECT_EQ(registers->words[macTable + 8 * 9], 0u);
  EXPECT_EQ(small.shadow->repairs(), 2u);
}

TEST_F(RealChipTest, countersAreReadByClientsAlone) {
  registers->words[portTable + 4 * 70] = 17;
  EXPECT_TRUE(runPasses(3));
  EXPECT_EQ(registers->counterReads, 0u);
  EXPECT_EQ(small.port->read<U32>(70), 17u);
  EXPECT_EQ(small.port->read<U32>(70), 0u);
  EXPECT_EQ(small.port->read<U32>(5), 0x105u);
  EXPECT_EQ(registers->wrongWrites, 0u);
}

TEST_F(RealChipTest, statusIsReadFromTheChipAndNeverADifference) {
  EXPECT_TRUE(runPasses(3));
  const U32 first = small.status->read<U32>(3);
  EXPECT_EQ(small.status->read<U32>(3), first + 1);
  EXPECT_EQ(small.shadow->findings(), 0u);
  EXPECT_EQ(registers->wrongWrites, 0u);
}

TEST_F(RealChipTest, hitBitsAreNoDifference_andARepairKeepsThem) {
  runPasses(1);
  registers->words[aclTable + 8 * 5 + 4] |= 0x80000000;
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(small.shadow->findings(), 0u);
  registers->words[aclTable + 8 * 5] ^= 1;
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(registers->words[aclTable + 8 * 5], 5u);
  EXPECT_EQ(registers->words[aclTable + 8 * 5 + 4], 0x80000000u);
}

TEST_F(RealChipTest, latchedInterruptsSurviveARepair_andAClientClearsThem) {
  runPasses(1);
  registers->words[interruptTable] = 0xfffe0003;  // a flipped bit, and two interrupts
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(registers->words[interruptTable], 0xffff0003u);
  EXPECT_EQ(registers->latchesCleared, 0u);
  EXPECT_EQ(small.interrupt->read<U32>(0), 0xffff0003u);
  small.interrupt->write<U32>(0, 0xffff0001);
  EXPECT_EQ(registers->words[interruptTable], 0xffff0002u);
  registers->words[interruptTable] |= 1;
  small.interrupt->write<U32>(0, 0xffff0001);
  EXPECT_EQ(registers->words[interruptTable], 0xffff0002u);
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(small.shadow->repairs(), 1u);
}

TEST_F(RealChipTest, absentChip_nothingIsJudgedUntilItIsBack) {
  runPasses(1);
  registers->isAbsent = true;
  EXPECT_TRUE(runUntil([&] { return small.shadow->patrolState() == PatrolState::suspended; }));
  EXPECT_TRUE(small.chip->isAbsent());
  small.mac->write<U64>(5, 0x77);  // lost
  registers->isAbsent = false;
  EXPECT_TRUE(runUntil([&] { return !small.chip->isAbsent(); }));
  EXPECT_EQ(small.chip->resets(), 0u);
  EXPECT_EQ(small.shadow->findings(), 0u);
  EXPECT_TRUE(runPasses(3));
  EXPECT_EQ(registers->words[macTable + 8 * 5], 0x77u);
}

TEST_F(RealChipTest, resetChip_whatWasWrittenIsWrittenAgain) {
  runPasses(1);
  registers->reset();
  EXPECT_TRUE(runUntil([&] { return small.chip->resets() == 1; }));
  EXPECT_TRUE(runUntil([&] { return !small.chip->isRestoring(); }));
  EXPECT_TRUE(runPasses(2));
  for (U32 e = 0; e < 1024; ++e) ASSERT_EQ(registers->words[macTable + 8 * e], e == 9 ? 0 : e);
  EXPECT_EQ(registers->words[portTable + 4 * 5], 0x105u);
  EXPECT_EQ(registers->words[interruptTable], 0xffff0000u);
  EXPECT_EQ(registers->counterReads + registers->wrongWrites, 0u);
  EXPECT_EQ(small.shadow->repairs(), 0u);
  EXPECT_EQ(small.chip->resets(), 1u);
}

TEST_F(RealChipTest, stuckBit_isLeftAloneAndRaisesTheAlarm) {
  runPasses(1);
  registers->stuckAddress = macTable + 8 * 5;
  registers->stuckBits = 1;
  registers->words[macTable + 8 * 5] &= ~1u;
  EXPECT_TRUE(runUntil([&] { return small.shadow->quarantined() == 1; }));
  EXPECT_EQ(small.shadow->repairs(), 3u);
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(small.shadow->repairs(), 3u);
  ASSERT_NE(small.alarms->alarm("often/mac/5"), nullptr);
  EXPECT_EQ(small.alarms->alarm("often/mac/5")->state(), Driver::Alarm::raised_);
}

// As the driver is printed: a pass a minute.
class RealChipPaceTest : public testing::Test {
 protected:
  RealChipPaceTest() {
    for (U32 e = 0; e < 1024; ++e) small.mac->write<U64>(e, 0x100000001 * e);
  }
  bool runPasses(U32 passes) {
    const U32 last = small.shadow->audits() + passes;
    for (U32 turns = 0; small.shadow->audits() < last && turns < 1'000'000; ++turns) {
      clock->advanceTimeTo(small.activity->wakeTime());
      small.activity->turn();
    }
    return small.shadow->audits() >= last;
  }

  const Zint::Ptr<SmallRegisters> registers = Zint::makePtr<SmallRegisters>();
  const Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  SmallSwitch small{registers, clock};
};

TEST_F(RealChipPaceTest, aPassBeginsEachMinute) {
  ASSERT_TRUE(runPasses(4));
  ASSERT_GE(small.shadow->passPeriods().size(), 3u);
  EXPECT_NEAR(small.shadow->passPeriods().back(), 60, 0.1);
}

TEST_F(RealChipPaceTest, stuckBit_isInQuarantineAfterThreeRepairs) {
  ASSERT_TRUE(runPasses(2));
  registers->stuckAddress = macTable + 8 * 5;
  registers->stuckBits = 1;
  registers->words[macTable + 8 * 5] &= ~1u;
  ASSERT_TRUE(runPasses(3));
  EXPECT_EQ(small.shadow->repairs(), 3u);
  EXPECT_EQ(small.shadow->quarantined(), 1u);
  ASSERT_TRUE(runPasses(5));
  EXPECT_EQ(small.shadow->repairs(), 3u);
  EXPECT_EQ(small.shadow->quarantined(), 1u);
  EXPECT_EQ(small.shadow->findings(), 8u);
  ASSERT_NE(small.alarms->alarm("often/mac/5"), nullptr);
  EXPECT_EQ(small.alarms->alarm("often/mac/5")->state(), Driver::Alarm::raised_);
}

// Three passes without a difference are enough.
TEST_F(RealChipPaceTest, quarantineEndsWhenTheBitIsNotStuckAnyMore) {
  ASSERT_TRUE(runPasses(2));
  registers->stuckAddress = macTable + 8 * 5;
  registers->stuckBits = 1;
  registers->words[macTable + 8 * 5] &= ~1u;
  ASSERT_TRUE(runPasses(4));
  ASSERT_EQ(small.shadow->quarantined(), 1u);
  registers->stuckAddress = ~0u;
  small.mac->write<U64>(5, 0x100000001 * 5);  // equal to the shadow, and written nevertheless
  EXPECT_EQ(registers->words[macTable + 8 * 5], 5u);
  ASSERT_TRUE(runPasses(3));
  EXPECT_EQ(small.shadow->quarantined(), 0u);
}

}  // namespace
