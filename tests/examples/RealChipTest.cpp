// The driver of the guide's real chip, on a chip to which everything happens. Most tests run its
// loop, which waits for real time, until something has happened, at most so many turns. Those at
// the printed pace move a manual clock.
#include <SmallSwitch.h>
#include <gtest/gtest.h>
#include <testkit/FakeChip.h>

namespace {

using Driver::PatrolState;

// The registers as the chip has them.
TestKit::FakeChip::Ptr smallChip() {
  const auto chip = TestKit::fakeChipFactory("chip0");
  const U32 id = identity.chipMemoryOffset();
  chip->registerIs({.name = "mac", .address = macTable, .count = 2 * 1024});
  chip->registerIs({.name = "port", .address = portTable, .count = 64});
  chip->registerIs({.name = "counter",
                    .address = portTable + 0x100,
                    .count = 64,
                    .readOnly = TestKit::allBits,
                    .clearOnRead = TestKit::allBits});
  chip->registerIs({.name = "acl", .address = aclTable, .count = 2 * 256});
  chip->registerIs({.name = "status", .address = statusTable, .count = 16});
  chip->registerIs(
      {.name = "interrupt", .address = interruptTable, .count = 4, .oneToClear = 0xffff});
  chip->registerIs({.name = "identity", .address = id, .resetValue = 0x5a17c401});
  chip->registerIs({.name = "scratch", .address = scratch.chipMemoryOffset()});
  chip->beforeAccessIs([registers = chip.ptr()](const TestKit::Access& access) {
    // The status changes by itself.
    const std::string name = registers->registerName(access.address);
    if (name.starts_with("status")) registers->valueIs(name, registers->value(name) + 1);
  });
  return chip;
}

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

  const TestKit::FakeChip::Ptr registers = smallChip();
  SmallSwitch small{registers, Zint::monotonicClockFactory("clock")};
};

TEST_F(RealChipTest, bringUp_nothingDiffersAndNothingIsWrong) {
  EXPECT_TRUE(runPasses(3));
  EXPECT_EQ(small.shadow->findings(), 0u);
  EXPECT_TRUE(Driver::check(small.shadow).empty());
}

TEST_F(RealChipTest, aFlippedBitIsRepaired_alsoInAnEntryOfZeros) {
  runPasses(1);
  registers->flip("mac[10]", 4);
  registers->flip("mac[18]", 4);
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(registers->value("mac[10]"), 5u);
  EXPECT_EQ(registers->value("mac[18]"), 0u);
  EXPECT_EQ(small.shadow->repairs(), 2u);
}

TEST_F(RealChipTest, countersAreReadByClientsAlone) {
  registers->valueIs("counter[6]", 17);
  EXPECT_TRUE(runPasses(3));
  EXPECT_EQ(registers->reads("counter"), 0u);
  EXPECT_EQ(small.port->read<U32>(70), 17u);
  EXPECT_EQ(small.port->read<U32>(70), 0u);
  EXPECT_EQ(small.port->read<U32>(5), 0x105u);
  EXPECT_EQ(registers->writes("counter") + registers->writes("status"), 0u);
}

TEST_F(RealChipTest, statusIsReadFromTheChipAndNeverADifference) {
  EXPECT_TRUE(runPasses(3));
  const U32 first = small.status->read<U32>(3);
  EXPECT_EQ(small.status->read<U32>(3), first + 1);
  EXPECT_EQ(small.shadow->findings(), 0u);
  EXPECT_EQ(registers->writes("counter") + registers->writes("status"), 0u);
}

TEST_F(RealChipTest, hitBitsAreNoDifference_andARepairKeepsThem) {
  runPasses(1);
  registers->flip("acl[11]", 31);
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(small.shadow->findings(), 0u);
  registers->flip("acl[10]", 0);
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(registers->value("acl[10]"), 5u);
  EXPECT_EQ(registers->value("acl[11]"), 0x80000000u);
}

TEST_F(RealChipTest, latchedInterruptsSurviveARepair_andAClientClearsThem) {
  runPasses(1);
  registers->valueIs("interrupt[0]", 0xfffe0003);  // a flipped bit, and two interrupts
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(registers->value("interrupt[0]"), 0xffff0003u);
  EXPECT_EQ(small.interrupt->read<U32>(0), 0xffff0003u);
  small.interrupt->write<U32>(0, 0xffff0001);
  EXPECT_EQ(registers->value("interrupt[0]"), 0xffff0002u);
  registers->valueIs("interrupt[0]", 0xffff0003);
  small.interrupt->write<U32>(0, 0xffff0001);
  EXPECT_EQ(registers->value("interrupt[0]"), 0xffff0002u);
  EXPECT_TRUE(runPasses(2));
  EXPECT_EQ(small.shadow->repairs(), 1u);
}

TEST_F(RealChipTest, absentChip_nothingIsJudgedUntilItIsBack) {
  runPasses(1);
  auto gone = registers->absent();
  EXPECT_TRUE(runUntil([&] { return small.shadow->patrolState() == PatrolState::suspended; }));
  EXPECT_TRUE(small.chip->isAbsent());
  small.mac->write<U64>(5, 0x77);  // lost
  gone.end();
  EXPECT_TRUE(runUntil([&] { return !small.chip->isAbsent(); }));
  EXPECT_EQ(small.chip->resets(), 0u);
  EXPECT_EQ(small.shadow->findings(), 0u);
  EXPECT_TRUE(runPasses(3));
  EXPECT_EQ(registers->value("mac[10]"), 0x77u);
}

TEST_F(RealChipTest, resetChip_whatWasWrittenIsWrittenAgain) {
  runPasses(1);
  registers->resetNow();
  EXPECT_TRUE(runUntil([&] { return small.chip->resets() == 1; }));
  EXPECT_TRUE(runUntil([&] { return !small.chip->isRestoring(); }));
  EXPECT_TRUE(runPasses(2));
  for (U32 e = 0; e < 1024; ++e) {
    ASSERT_EQ(registers->value("mac[" + std::to_string(2 * e) + "]"), e == 9 ? 0 : e);
  }
  EXPECT_EQ(registers->value("port[5]"), 0x105u);
  EXPECT_EQ(registers->value("interrupt[0]"), 0xffff0000u);
  EXPECT_EQ(registers->reads("counter"), 0u);
  EXPECT_EQ(registers->writes("counter") + registers->writes("status"), 0u);
  EXPECT_EQ(small.shadow->repairs(), 0u);
  EXPECT_EQ(small.chip->resets(), 1u);
}

TEST_F(RealChipTest, stuckBit_isLeftAloneAndRaisesTheAlarm) {
  runPasses(1);
  auto stuck = registers->stuckAt("mac[10]", 1, 0);
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

  const TestKit::FakeChip::Ptr registers = smallChip();
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
  auto stuck = registers->stuckAt("mac[10]", 1, 0);
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
  auto stuck = registers->stuckAt("mac[10]", 1, 0);
  ASSERT_TRUE(runPasses(4));
  ASSERT_EQ(small.shadow->quarantined(), 1u);
  stuck.end();
  small.mac->write<U64>(5, 0x100000001 * 5);  // equal to the shadow, and written nevertheless
  EXPECT_EQ(registers->value("mac[10]"), 5u);
  ASSERT_TRUE(runPasses(3));
  EXPECT_EQ(small.shadow->quarantined(), 0u);
}

}  // namespace
