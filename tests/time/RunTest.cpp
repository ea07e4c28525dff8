// What a run asks of the system: timers and polls, on a simulated system's time.
#include <time/Kit.h>

#include <algorithm>

namespace {

using namespace Time;

constexpr S64 microsecond = 1000;

struct RunOnSimulatedSystem : testing::Test {
  // Runs `turns` turns; in each of them the wake-up takes `duration` and is armed for `delay` after
  // its end (0: for the next turn).
  void run(unsigned turns, S64 duration, Seconds delay) {
    ticker->reaction = [=, this, left = turns]() mutable {
      system.pass(duration);
      if (--left == 0) {
        atStop = system;
        return activity->stop();
      }
      ticker->timeMinIs(delay == 0 ? 0.0 : clock->time() + delay);
    };
    ticker->timeMinIs(0.0);
    activity->run();
  }

  struct Recorded {
    Recorded() = default;
    Recorded& operator=(const SimulatedSystem& system) {
      time = system.time;
      polls = system.polls;
      waits = system.waits;
      timers = system.timers;
      return *this;
    }
    S64 time = 0;
    std::vector<S64> polls, waits, timers;
  };

  SimulatedSystem system;
  const S64 began = system.time;
  Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("system");
  Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("activity", ClockPtr(clock));
  Ptr<Sleeper> ticker = sleeper(activity, clock);
  Recorded atStop;
};

TEST_F(RunOnSimulatedSystem, run_setsNoTimerWhileAWakeUpIsDue) {
  run(1000, 3 * microsecond, 0);
  EXPECT_EQ(atStop.timers.size(), 0u);
  EXPECT_EQ(atStop.waits.size(), 0u);
}

TEST_F(RunOnSimulatedSystem, run_setsNoTimerForATimeThatIsReachedAtTheEndOfTheTurn) {
  const Ptr<Sleeper> second = sleeper(activity, clock);
  second->timeMinIs(clock->time() + 2e-6);  // armed before it is due
  run(10, 3 * microsecond, 0);
  EXPECT_EQ(second->woken.size(), 1u);
  EXPECT_EQ(atStop.timers.size(), 0u);
}

TEST_F(RunOnSimulatedSystem, run_pollsEvery20MicrosecondsWhileAWakeUpIsDue) {
  for (const S64 duration : {100, 1000, 6000, 9999, 10'000}) {
    SCOPED_TRACE(duration);
    const S64 start = system.time;
    system.polls.clear();
    run(1000, duration, 0);
    S64 last = start;
    for (const S64 poll : atStop.polls) {
      EXPECT_LE(poll - last, 20 * microsecond);
      last = poll;
    }
    EXPECT_LE(atStop.time - last, 20 * microsecond);
    EXPECT_LE(static_cast<S64>(atStop.polls.size()), 1 + (atStop.time - start) / (10 * microsecond))
        << "and not more often than that";
  }
}

TEST_F(RunOnSimulatedSystem, run_pollsAfterEachLongTurnWhileAWakeUpIsDue) {
  run(100, 15 * microsecond, 0);
  EXPECT_EQ(atStop.polls.size(), 99u) << "none after the last";
}

TEST_F(RunOnSimulatedSystem, run_setsOneTimerAndPollsOnceForEachWakeUpThatItWaitsFor) {
  run(300, 5 * microsecond, 1e-3);
  EXPECT_EQ(atStop.timers.size(), 299u);
  EXPECT_EQ(atStop.waits.size(), 299u);
  EXPECT_EQ(atStop.polls.size(), 0u);
  EXPECT_GE(atStop.time, began + 299 * 1'005 * microsecond);
}

// What was left unset during the run is set at its end.
TEST_F(RunOnSimulatedSystem, run_leavesTheTimerSetForTheEarliestWakeUp) {
  const Ptr<Sleeper> later = sleeper(activity, clock);
  later->timeMinIs(clock->time() + 60);
  run(10, 3 * microsecond, 0);
  EXPECT_NEAR(static_cast<double>(system.deadline - began), 60e9, 1e5);
}

TEST_F(RunOnSimulatedSystem, run_manualClockDoesNotAskTheSystemWhileAWakeUpIsDue) {
  const auto manual = Zint::manualClockFactory("manual");
  const auto simulation = Zint::activityFactory("simulation", ClockPtr(manual));
  const Ptr<Sleeper> turns = sleeper(simulation, manual);
  turns->reaction = [&, left = 100]() mutable {
    system.pass(15 * microsecond);
    if (--left == 0) return simulation->stop();
    turns->timeMinIs(0.0);
  };
  turns->timeMinIs(0.0);
  simulation->run();
  EXPECT_EQ(turns->woken.size(), 100u);
  EXPECT_EQ(system.polls.size() + system.waits.size() + system.timers.size(), 0u);
}

}  // namespace
