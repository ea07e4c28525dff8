// The activity inside a foreign event loop: its descriptor is readable while a wake-up is due.
#include <Zint/Activity.h>

#include <fcntl.h>
#include <poll.h>
#include <runtime/Probes.h>
#include <support/ManualLoop.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace {

using Probes::Alarm;
using Zint::makePtr;
using Zint::never;
using Zint::Ptr;

bool readable(Zint::ActivityConfig& activity) {
  pollfd poll{activity.descriptor(), POLLIN, 0};
  return ::poll(&poll, 1, 0) == 1 && poll.revents == POLLIN;
}

// For a wake-up that is due now. The kernel may take a moment to say so: the limit only keeps a
// broken descriptor from hanging the test.
bool becomesReadable(Zint::ActivityConfig& activity) {
  pollfd poll{activity.descriptor(), POLLIN, 0};
  return ::poll(&poll, 1, 30'000) == 1 && poll.revents == POLLIN;
}

struct ActivityDescriptorTest : testing::Test {
  Support::ManualLoop loop;
  Ptr<Alarm> alarm = makePtr<Alarm>(loop.activity, loop.clock);
};

TEST_F(ActivityDescriptorTest, isOneAndTheSame) {
  EXPECT_GE(loop.activity->descriptor(), 0);
  EXPECT_EQ(loop.activity->descriptor(), loop.activity->descriptor());
}

TEST_F(ActivityDescriptorTest, isClosedWithItsActivity) {
  auto brief = Zint::activityFactory("brief", Ptr<const Zint::Clock>(loop.clock));
  const int descriptor = brief->descriptor();
  EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
  brief = loop.activity;
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

// In a process whose standard input is closed.
TEST_F(ActivityDescriptorTest, mayBeNumber0) {
  const auto serves = [this] {
    close(0);
    if (loop.activity->descriptor() != 0 || readable(*loop.activity)) return 1;
    alarm->timeMinIs(0.0);
    return becomesReadable(*loop.activity) && loop.activity->descriptor() == 0 ? 0 : 2;
  };
  EXPECT_EXIT(std::_Exit(serves()), testing::ExitedWithCode(0), "");
}

TEST_F(ActivityDescriptorTest, isNotReadableWhenNothingIsArmed) {
  EXPECT_FALSE(readable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, isReadableForAWakeUpAtTheNextTurn) {
  loop.activity->descriptor();
  alarm->timeMinIs(0.0);
  EXPECT_TRUE(becomesReadable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, isReadableForAWakeUpArmedBeforeItWasMade) {
  alarm->timeMinIs(0.0);
  EXPECT_TRUE(becomesReadable(*loop.activity));
}

// A timer's line of what the system tells about a descriptor: seconds and nanoseconds.
std::string timeLeft(int descriptor) {
  std::ifstream told("/proc/self/fdinfo/" + std::to_string(descriptor));
  std::string line;
  while (std::getline(told, line) && !line.starts_with("it_value")) {
  }
  return line;
}

// Real time has no say in a clock that is moved by hand.
TEST_F(ActivityDescriptorTest, waitsForNoTimeWhileAManualClockHasNotReachedTheWakeUp) {
  for (const double delay : {0.25, 1.0, 5.0}) {
    alarm->timeMinIs(delay);
    EXPECT_EQ(timeLeft(loop.activity->descriptor()), "it_value: (0, 0)") << delay;
  }
}

TEST_F(ActivityDescriptorTest, becomesReadableWhenAManualClockReachesTheWakeUp) {
  alarm->timeMinIs(2.0);
  loop.clock->timeIs(1.0);
  EXPECT_FALSE(readable(*loop.activity));
  loop.clock->timeIs(2.0);
  EXPECT_TRUE(becomesReadable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, isReadableNoMoreWhenTheWakeUpIsDisarmed) {
  alarm->timeMinIs(0.0);
  ASSERT_TRUE(becomesReadable(*loop.activity));
  alarm->timeMinIs(never);
  EXPECT_FALSE(readable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, isReadableNoMoreAfterTheTurn) {
  alarm->timeMinIs(0.0);
  ASSERT_TRUE(becomesReadable(*loop.activity));
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_FALSE(readable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, isReadableForAWakeUpArmedInTheTurn) {
  alarm->reaction = [this] { alarm->timeMinIs(0.0); };
  alarm->timeMinIs(0.0);
  for (int turn = 0; turn < 3; ++turn) {
    ASSERT_TRUE(becomesReadable(*loop.activity)) << "turn " << turn;
    EXPECT_EQ(loop.turn(), 1u);
  }
}

TEST_F(ActivityDescriptorTest, isReadableWhenTheTurnMovedTheClockToTheWakeUp) {
  const Ptr<Alarm> later = makePtr<Alarm>(loop.activity, loop.clock);
  later->timeMinIs(2.0);
  alarm->reaction = [this] { loop.clock->timeIs(3.0); };
  alarm->timeMinIs(0.0);
  ASSERT_TRUE(becomesReadable(*loop.activity));
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_TRUE(becomesReadable(*loop.activity));
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_FALSE(readable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, followsAManualClockThatAnotherActivityMoves) {
  const auto other = Zint::activityFactory("other", Ptr<const Zint::Clock>(loop.clock));
  alarm->timeMinIs(2.0);
  ASSERT_FALSE(readable(*loop.activity));
  other->runUntil(2.0);
  EXPECT_TRUE(becomesReadable(*loop.activity));
}

TEST_F(ActivityDescriptorTest, isNotReadableAfterAStopThatHasEndedItsRun) {
  loop.activity->descriptor();
  loop.activity->stop();
  loop.activity->run();
  EXPECT_FALSE(readable(*loop.activity));
}

struct SystemClockDescriptorTest : testing::Test {
  Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  Ptr<Alarm> alarm = makePtr<Alarm>(activity, clock);
};

TEST_F(SystemClockDescriptorTest, isReadableForAWakeUpAtTheNextTurnOnly) {
  EXPECT_FALSE(readable(*activity));
  alarm->timeMinIs(0.0);
  EXPECT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(activity->turn(), 1u);
  EXPECT_FALSE(readable(*activity));
}

TEST_F(SystemClockDescriptorTest, isReadableForAWakeUpArmedInTheTurn) {
  alarm->reaction = [this] { alarm->timeMinIs(0.0); };
  alarm->timeMinIs(0.0);
  ASSERT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(activity->turn(), 1u);
  EXPECT_TRUE(becomesReadable(*activity));
}

// The far side of what a timer of 32-bit words holds, and a fraction that it cannot express.
TEST_F(SystemClockDescriptorTest, isNotReadableForAWakeUpFarAway) {
  for (const Zint::Seconds delay : {20.0, 1e5, 1e9 + 7.5, 4e9, 1e15, 1e300}) {
    alarm->timeMinIs(0.0);
    ASSERT_TRUE(becomesReadable(*activity));
    alarm->timeMinIs(clock->time() + delay);
    EXPECT_FALSE(readable(*activity)) << delay;
  }
}

TEST_F(SystemClockDescriptorTest, isReadableForAWakeUpInThePast) {
  alarm->timeMinIs(clock->time());
  EXPECT_TRUE(becomesReadable(*activity));
  alarm->timeMinIs(-1e300);
  EXPECT_TRUE(becomesReadable(*activity));
}

TEST(ActivityDescriptor, isNotReadableBeforeTheTime) {
  const Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  const auto alarm = makePtr<Alarm>(activity, Ptr<const Zint::Clock>(clock));
  alarm->timeMinIs(Zint::now() + 0.9);
  pollfd poll{activity->descriptor(), POLLIN, 0};
  EXPECT_EQ(::poll(&poll, 1, 20), 0);
}

}  // namespace
