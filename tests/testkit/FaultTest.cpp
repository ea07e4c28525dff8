// Faults: what they do, that they end, and that a seed repeats them.
#include <testkit/FakeChip.h>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

using TestKit::Fault;

using FaultTest = FakeChipTest;

TEST_F(FaultTest, absent_readsAreAllOnesOrZeroAndWritesAreLost) {
  write("lock", 5);
  {
    const Fault gone = chip->absent();
    EXPECT_EQ(read("lock"), 0xffffffffu);
    EXPECT_EQ(chip->doRead(0x4, 2), 0xffffu);
    write("lock", 6);
    EXPECT_EQ(gone.hits(), 3u);
  }
  EXPECT_EQ(read("lock"), 5u);
  const Fault gone = chip->absent(TestKit::Absence::zeros);
  EXPECT_EQ(read("lock"), 0u);
}

TEST_F(FaultTest, absent_readsHaveNoSideEffect) {
  chip->valueIs("drops[0]", 5);
  {
    const Fault gone = chip->absent();
    read("drops[0]");
  }
  EXPECT_EQ(read("drops[0]"), 5u);
}

TEST_F(FaultTest, absent_errorMakesEveryAccessThrow) {
  Fault gone = chip->absent(TestKit::Absence::error);
  EXPECT_THROW(read("lock"), TestKit::NoAnswer);
  EXPECT_THROW(write("lock", 5), TestKit::NoAnswer);
  EXPECT_EQ(chip->lastAccesses(), "    #1 read lock failed\n    #2 write lock 0x5 failed\n");
  gone.end();
  EXPECT_EQ(read("lock"), 0u);
}

TEST_F(FaultTest, stuckAt_writesResetsAndFlipsLeaveTheBitsAsTheyAre) {
  {
    const Fault stuck = chip->stuckAt("mac[3]", 0x5, 0x1);
    EXPECT_EQ(chip->value("mac[3]"), 0x1u);
    EXPECT_EQ(stuck.hits(), 0u);
    write("mac[3]", 0xe);
    EXPECT_EQ(read("mac[3]"), 0xbu);
    EXPECT_EQ(stuck.hits(), 1u);
    chip->flip("mac[3]", 0);
    EXPECT_EQ(chip->value("mac[3]"), 0xbu);
    chip->resetNow();
    EXPECT_EQ(chip->value("mac[3]"), 0x1u);
    write("mac[2]", 0xe);
    EXPECT_EQ(read("mac[2]"), 0xeu);
  }
  EXPECT_EQ(chip->value("mac[3]"), 0x1u);
  write("mac[3]", 0xe);
  EXPECT_EQ(chip->value("mac[3]"), 0xeu);
}

TEST_F(FaultTest, lostWrite_concernsItsRegistersAndWritesAlone) {
  const Fault lost = chip->lostWrite("mac");
  write("mac[1]", 5);
  write("lock", 5);
  EXPECT_EQ(read("mac[1]"), 0u);
  EXPECT_EQ(read("lock"), 5u);
  EXPECT_EQ(lost.hits(), 1u);
  EXPECT_EQ(chip->writes("mac"), 1u);
}

TEST_F(FaultTest, failing_hasNoEffect) {
  const Fault failing = chip->failing("ctrl");
  EXPECT_THROW(write("ctrl", 0), TestKit::NoAnswer);
  EXPECT_EQ(chip->value("ctrl"), 3u);
  EXPECT_EQ(read("lock"), 0u);
}

TEST_F(FaultTest, flip_damagesOneBitThatNoAccessSees) {
  EXPECT_EQ(chip->flip("mac[2]", 4), "mac[2] bit 4");
  EXPECT_EQ(chip->value("mac[2]"), 0x10u);
  EXPECT_EQ(chip->writes(), 0u);
  EXPECT_THROW(chip->flip("mac[2]", 32), Zint::RangeException);
}

TEST_F(FaultTest, flip_ofAnArrayTakesAnyRegisterAndAnyBit) {
  std::set<std::string> flipped;
  for (U32 i = 0; i < 200; ++i) flipped.insert(chip->flip("mac"));
  EXPECT_GT(flipped.size(), 100u);
  for (const std::string& each : flipped) EXPECT_TRUE(each.starts_with("mac[")) << each;
}

TEST_F(FaultTest, flipping_recursAfterEachRepair) {
  const Fault recurring = chip->flipping("mac[2]", 1, 3);
  for (U32 i = 1; i < 4; ++i) {
    EXPECT_EQ(read("mac[2]"), 8u);
    write("mac[2]", 0);
    EXPECT_EQ(recurring.hits(), i);
  }
  EXPECT_EQ(read("mac[1]"), 0u);
}

TEST_F(FaultTest, slow_movesTheClockOnAtEachAccess) {
  EXPECT_THROW(Fault(chip->slow(0.001)), Zint::RangeException);
  const auto clock = Zint::Ptr<Zint::ManualClock>(Zint::manualClockFactory("clock"));
  chip->clockIs(clock);
  EXPECT_THROW(Fault(chip->slow(-1)), Zint::RangeException);
  {
    const Fault slow = chip->slow(0.25);
    read("lock");
    write("lock", 1);
  }
  read("lock");
  EXPECT_EQ(clock->time(), 0.5);
}

TEST_F(FaultTest, resetAfter_resetsRightBeforeThatAccess) {
  EXPECT_THROW(Fault(chip->resetAfter(0)), Zint::RangeException);
  const Fault reset = chip->resetAfter(3);
  write("ctrl", 1);
  write("lock", 1);
  EXPECT_EQ(chip->value("ctrl"), 1u);
  write("lock", 2);
  EXPECT_EQ(chip->value("ctrl"), 3u);
  EXPECT_EQ(chip->value("lock"), 2u);
  write("ctrl", 1);
  EXPECT_EQ(chip->value("ctrl"), 1u);
  EXPECT_EQ(reset.hits(), 1u);
}

TEST_F(FaultTest, aFaultThatIsReplacedHasEnded) {
  Fault fault = chip->absent();
  fault = chip->lostWrite("lock");
  EXPECT_EQ(read("lock"), 0u);
  Fault moved = std::move(fault);
  write("lock", 1);
  EXPECT_EQ(moved.hits(), 1u);
  EXPECT_EQ(read("lock"), 0u);
}

TEST_F(FaultTest, aFaultMayOutliveItsChip) {
  auto own = TestKit::fakeChipFactory("short");
  TestKit::FakeChip::Ptr held = own;
  own = TestKit::fakeChipFactory("other");
  Fault gone = held->absent();
  held = nullptr;
  gone.end();
  EXPECT_EQ(gone.hits(), 0u);
}

// What was lost of 1,000 writes.
std::vector<bool> lossesWith(U64 seed) {
  const auto chip = TestKit::fakeChipFactory("asic");
  chip->registerIs({.name = "r"});
  chip->seedIs(seed);
  const Fault lost = chip->lostWrite("r", 0.1);
  std::vector<bool> losses;
  for (U32 i = 1; i <= 1000; ++i) {
    const U64 before = chip->value("r");
    chip->write(0, i);
    losses.push_back(chip->value("r") == before);
  }
  return losses;
}

TEST(FaultSeed, theSameSeedRepeatsTheSameFaults) {
  const auto losses = lossesWith(7);
  EXPECT_EQ(losses, lossesWith(7));
  EXPECT_NE(losses, lossesWith(8));
  EXPECT_NEAR(static_cast<double>(std::count(losses.begin(), losses.end(), true)), 100, 40);
}

}  // namespace
}  // namespace TestKitTest
