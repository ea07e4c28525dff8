#include <Zint/Activity.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>
#include <support/ManualLoop.h>
#include <support/TraceCapture.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <thread>

namespace {

using Probes::Alarm;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::never;
using Zint::Ptr;

// Alarms that write their letter when they are woken.
struct ActivityTest : testing::Test {
  Ptr<Alarm> alarm(const char* letter) {
    const Ptr<Alarm> made = makePtr<Alarm>(loop.activity, loop.clock);
    made->reaction = [this, letter] { log += letter; };
    return made;
  }
  Ptr<Alarm> alarm(const char* letter, Zint::Seconds timeMin) {
    const Ptr<Alarm> made = alarm(letter);
    made->timeMinIs(timeMin);
    return made;
  }
  std::string turnAt(Zint::Seconds time) {
    loop.turnAt(time);
    return std::exchange(log, {});
  }

  std::string log;
  Support::ManualLoop loop;
};

TEST_F(ActivityTest, turn_wakesInTheOrderOfDueTimeThenOfArming) {
  const auto a = alarm("a", 2.0), b = alarm("b", 1.0), c = alarm("c", 2.0), d = alarm("d", 0.0);
  a->timeMinIs(2.0);  // armed anew: after c
  EXPECT_EQ(turnAt(3.0), "dbca");
}

TEST_F(ActivityTest, turn_returnsHowManyWereWoken) {
  const auto a = alarm("a", 1.0), b = alarm("b", 2.0);
  EXPECT_EQ(loop.turn(), 0u);
  EXPECT_EQ(loop.turnAt(1.0), 1u);
  EXPECT_EQ(loop.turnAt(2.0), 1u);
}

// Arms, re-arms and disarms at random and compares each turn with a sorted list.
TEST_F(ActivityTest, turn_wakesInOrderWhateverWasArmedAndDisarmed) {
  constexpr unsigned seed = 20240611;
  std::mt19937 random(seed);
  struct Armed {
    double time;
    int order;
    std::size_t who;
  };
  std::vector<Armed> model;
  std::vector<std::size_t> woken;
  std::vector<Ptr<Alarm>> alarms(200);
  for (std::size_t i = 0; i < alarms.size(); ++i) {
    alarms[i] = alarm("");
    alarms[i]->reaction = [&woken, i] { woken.push_back(i); };
  }
  int order = 0;
  for (int time = 0; time < 100; ++time) {
    for (int step = 0; step < 60; ++step) {
      const std::size_t who = random() % alarms.size();
      std::erase_if(model, [&](const Armed& armed) { return armed.who == who; });
      const bool disarm = random() % 4 == 0;
      const double timeMin = disarm ? never : static_cast<double>(random() % 120);
      alarms[who]->timeMinIs(timeMin);
      if (!disarm) model.push_back({timeMin, ++order, who});
    }
    std::sort(model.begin(), model.end(), [](const Armed& left, const Armed& right) {
      return std::pair(left.time, left.order) < std::pair(right.time, right.order);
    });
    std::vector<std::size_t> expected;
    for (const Armed& armed : model) {
      if (armed.time <= time) expected.push_back(armed.who);
    }
    std::erase_if(model, [&](const Armed& armed) { return armed.time <= time; });
    loop.turnAt(time);
    ASSERT_EQ(std::exchange(woken, {}), expected) << "seed " << seed << " time " << time;
    ASSERT_EQ(loop.activity->wakeTime(), model.empty() ? never : model.front().time);
  }
}

TEST_F(ActivityTest, turn_runsOnlyWhatWasDueWhenItBegan) {
  const auto a = alarm("a", 0.0);
  const auto b = alarm("b");
  a->reaction = [&] {
    log += "a";
    b->timeMinIs(0.0);
    a->timeMinIs(0.0);
  };
  EXPECT_EQ(turnAt(1.0), "a");
  EXPECT_EQ(turnAt(1.0), "ba");
}

TEST_F(ActivityTest, turn_movingTheTimeMakesNothingMoreDue) {
  const auto a = alarm("a", 1.0), b = alarm("b", 2.0);
  a->reaction = [&] {
    log += "a";
    loop.clock->timeIs(5.0);
  };
  EXPECT_EQ(turnAt(1.0), "a");
  EXPECT_EQ(turnAt(5.0), "b");
}

TEST_F(ActivityTest, turn_aDueAlarmDisarmedByAnEarlierHandlerStaysSilent) {
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0), c = alarm("c", 1.0);
  a->reaction = [&] {
    log += "a";
    b->timeMinIs(never);
  };
  EXPECT_EQ(loop.turnAt(1.0), 2u);
  EXPECT_EQ(log, "ac");
}

TEST_F(ActivityTest, turn_aDueAlarmArmedAnewByAnEarlierHandlerWaits) {
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0);
  a->reaction = [&] {
    log += "a";
    b->timeMinIs(1.0);
  };
  EXPECT_EQ(turnAt(1.0), "a");
  EXPECT_EQ(turnAt(1.0), "b");
}

TEST_F(ActivityTest, turn_aDueAlarmDestroyedByAnEarlierHandlerStaysSilent) {
  const auto a = alarm("a", 1.0);
  auto b = alarm("b", 1.0);
  const auto c = alarm("c", 1.0);
  a->reaction = [&] {
    log += "a";
    b = nullptr;
  };
  EXPECT_EQ(turnAt(1.0), "ac");
}

TEST_F(ActivityTest, turn_aDueAlarmSwitchedOffByAnEarlierHandlerWaits) {
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0);
  a->reaction = [&] {
    log += "a";
    b->hasNotificationActiveIs(false);
  };
  EXPECT_EQ(turnAt(1.0), "a");
  b->hasNotificationActiveIs(true);
  EXPECT_EQ(turnAt(1.0), "b");
}

TEST_F(ActivityTest, turn_aDueAlarmSwitchedOffAndOnWaitsForTheNextTurn) {
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0);
  a->reaction = [&] {
    log += "a";
    b->hasNotificationActiveIs(false);
    b->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(turnAt(1.0), "a");
  EXPECT_EQ(turnAt(1.0), "b");
}

TEST_F(ActivityTest, turn_aDueAlarmMovedAwayByAnEarlierHandlerIsWokenThere) {
  const auto other = Zint::activityFactory("other", Ptr<const Zint::Clock>(loop.clock));
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0);
  a->reaction = [&] {
    log += "a";
    b->zintFwkActivityIs(other);
  };
  EXPECT_EQ(turnAt(1.0), "a");
  EXPECT_EQ(other->turn(), 1u);
  EXPECT_EQ(log, "b");
}

TEST_F(ActivityTest, turn_aHandlerMayDropTheLastReferenceToItsAlarmAndActivity) {
  auto a = alarm("a", 1.0);
  loop.clock->timeIs(1.0);
  a->reaction = [&] {
    a = nullptr;
    loop.activity = nullptr;
    log += "a";
  };
  loop.activity->turn();
  EXPECT_EQ(log, "a");
}

TEST_F(ActivityTest, turn_anExceptionIsGuardedAndTheOthersAreStillWoken) {
  const Support::TraceCapture trace;
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0);
  a->reaction = [] { throw std::runtime_error("broken"); };
  EXPECT_EQ(turnAt(1.0), "b");
  EXPECT_THAT(a->reported, ElementsAre(0));
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].handle, "Zint");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].text, "exception in a handler of Zint::Clock attribute 0: broken");
}

TEST_F(ActivityTest, turn_insideATurnIsFatal) {
  EXPECT_DEATH(
      {
        const auto a = alarm("a", 0.0);
        a->reaction = [this] { loop.turn(); };
        loop.turn();
      },
      Support::Assertion(
          "Zint/Activity", 0,
          "Zint::ActivityConfig::Turn::Turn(Zint::ActivityConfig&, Zint::SystemTime&)",
          "!activity_->isTurning_"));
}

TEST_F(ActivityTest, run_insideATurnOnTheSameClockIsFatal) {
  EXPECT_DEATH(
      {
        const auto other = Zint::activityFactory("other", loop.clock);
        const auto a = alarm("a", 0.0);
        a->reaction = [&] { other->run(); };
        loop.turn();
      },
      Support::Assertion("Zint/Activity", 0, "void Zint::ActivityConfig::runUntil(Zint::Seconds)",
                         "!clock_->isInTurn()"));
}

TEST_F(ActivityTest, wakeTime_isTheEarliestWakeUp) {
  EXPECT_EQ(loop.activity->wakeTime(), never);
  const auto a = alarm("a", 3.0), b = alarm("b", 2.0);
  EXPECT_EQ(loop.activity->wakeTime(), 2.0);
  b->timeMinIs(never);
  EXPECT_EQ(loop.activity->wakeTime(), 3.0);
  a->timeMinIs(0.0);
  loop.clock->timeIs(9.0);
  EXPECT_EQ(loop.activity->wakeTime(), 0.0) << "due at the next turn";
  loop.turn();
  EXPECT_EQ(loop.activity->wakeTime(), never);
}

TEST_F(ActivityTest, wakeTime_countsThoseThatTheTurnHasYetToWake) {
  const auto a = alarm("a", 1.0), b = alarm("b", 2.0);
  Zint::Seconds seen = 0;
  a->reaction = [&] { seen = loop.activity->wakeTime(); };
  loop.turnAt(2.0);
  EXPECT_EQ(seen, 2.0);
}

TEST_F(ActivityTest, run_movesAManualClockFromWakeUpToWakeUp) {
  const auto a = alarm("a"), b = alarm("b", 2.5);
  a->reaction = [&] {
    if (a->fired.size() < 3) a->timeMinIs(Zint::now() + 1.0);
  };
  a->timeMinIs(1.0);
  loop.activity->run();
  EXPECT_THAT(a->fired, ElementsAre(1, 2, 3));
  EXPECT_THAT(b->fired, ElementsAre(2.5));
  EXPECT_EQ(loop.clock->time(), 3.0);
}

TEST_F(ActivityTest, run_returnsAtOnceWhenNothingWillEverWake) {
  loop.activity->run();
  EXPECT_EQ(loop.clock->time(), 0.0);
}

TEST_F(ActivityTest, runUntil_hasRunWhatIsDueAtThatTime) {
  const auto a = alarm("a", 1.0), b = alarm("b", 2.0), c = alarm("c", 2.5);
  loop.activity->runUntil(2.0);
  EXPECT_EQ(log, "ab");
  EXPECT_EQ(loop.clock->time(), 2.0);
}

TEST_F(ActivityTest, runUntil_reachesTheTimeWithoutAnyWakeUp) {
  loop.activity->runUntil(4.0);
  EXPECT_EQ(loop.clock->time(), 4.0);
}

TEST_F(ActivityTest, runUntil_aPastTimeRunsOneTurn) {
  loop.clock->timeIs(5.0);
  const auto a = alarm("a", 0.0), b = alarm("b", 6.0);
  loop.activity->runUntil(1.0);
  EXPECT_EQ(log, "a");
  EXPECT_EQ(loop.clock->time(), 5.0);
}

TEST_F(ActivityTest, stop_endsRunAfterTheTurn) {
  const auto a = alarm("a", 1.0), b = alarm("b", 1.0), c = alarm("c", 2.0);
  a->reaction = [&] {
    log += "a";
    loop.activity->stop();
  };
  loop.activity->run();
  EXPECT_EQ(log, "ab");
  loop.activity->run();
  EXPECT_EQ(log, "abc") << "one stop ends one run";
}

TEST_F(ActivityTest, stop_inTheLastTurnDoesNotEndTheNextRun) {
  const auto a = alarm("a", 1.0), b = alarm("b", 2.0);
  a->reaction = [&] {
    log += "a";
    loop.activity->stop();
  };
  loop.activity->runUntil(1.0);
  loop.activity->runUntil(2.0);
  EXPECT_EQ(log, "ab");
}

TEST_F(ActivityTest, stop_beforeRunEndsTheNextOne) {
  const auto a = alarm("a", 0.0);
  loop.activity->stop();
  loop.activity->run();
  EXPECT_EQ(log, "");
  loop.activity->run();
  EXPECT_EQ(log, "a");
}

TEST_F(ActivityTest, run_onTheSystemsClockRunsWhatIsDue) {
  const auto clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  const Ptr<Alarm> a = makePtr<Alarm>(activity, clock);
  a->reaction = [&] { a->fired.size() < 3 ? a->timeMinIs(0.0) : activity->stop(); };
  a->timeMinIs(0.0);
  activity->run();
  EXPECT_EQ(a->fired.size(), 3u);
}

TEST_F(ActivityTest, stop_fromAnotherThreadEndsAWaitingRun) {
  const auto clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  Zint::ActivityConfig* shared = activity.ptr();
  std::thread other([shared] { shared->stop(); });
  activity->run();  // for ever, were it not stopped
  other.join();
}

TEST_F(ActivityTest, holdsItsClock) {
  const auto activity = Zint::activityFactory("activity", Zint::manualClockFactory("inner"));
  EXPECT_EQ(activity->clock()->name(), "inner");
  EXPECT_EQ(activity->name(), "activity");
  EXPECT_STREQ(activity->fwkType()->name, "Zint::ActivityConfig");
}

}  // namespace
