#include <Zint/Clock.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>
#include <support/ManualLoop.h>

#include <limits>
#include <thread>

namespace {

using Probes::Alarm;
using Probes::rangeMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::never;
using Zint::Ptr;

struct ClockTest : testing::Test {
  Support::ManualLoop loop;
  Ptr<Alarm> alarm = makePtr<Alarm>(loop.activity, loop.clock);
};

TEST_F(ClockTest, manualClock_standsStillUntilItIsMoved) {
  EXPECT_EQ(loop.clock->time(), 0.0);
  loop.clock->timeIs(2.5);
  EXPECT_EQ(loop.clock->time(), 2.5);
}

TEST_F(ClockTest, manualClock_doesNotGoBack) {
  loop.clock->timeIs(2.5);
  EXPECT_THROW(loop.clock->timeIs(2.0), Zint::RangeException);
  EXPECT_THROW(loop.clock->timeIs(std::numeric_limits<double>::quiet_NaN()), Zint::RangeException);
  EXPECT_EQ(loop.clock->time(), 2.5);
  loop.clock->timeIs(2.5);
}

TEST_F(ClockTest, monotonicClock_doesNotGoBack) {
  const Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  const Zint::Seconds before = clock->time();
  EXPECT_LE(before, clock->time());
}

TEST_F(ClockTest, timeMin_startsAtNever) {
  EXPECT_EQ(alarm->timeMin(), never);
  EXPECT_FALSE(alarm->isArmed());
  loop.turnAt(1e9);
  EXPECT_THAT(alarm->fired, IsEmpty());
}

TEST_F(ClockTest, timeMin_zeroMeansTheNextTurnAndNotTheSetter) {
  loop.clock->timeIs(5);
  alarm->timeMinIs(0.0);
  EXPECT_THAT(alarm->fired, IsEmpty());
  EXPECT_TRUE(alarm->isArmed());
  loop.turn();
  EXPECT_THAT(alarm->fired, ElementsAre(5));
}

TEST_F(ClockTest, timeMin_firesOnceTheTimeHasReachedIt) {
  alarm->timeMinIs(1.5);
  loop.turnAt(1.4999999999999998);
  EXPECT_THAT(alarm->fired, IsEmpty());
  loop.turnAt(1.5);
  EXPECT_THAT(alarm->fired, ElementsAre(1.5));
}

TEST_F(ClockTest, timeMin_firesOnceAndIsThenDisarmed) {
  alarm->timeMinIs(1.0);
  loop.turnAt(1.0);
  EXPECT_FALSE(alarm->isArmed());
  EXPECT_EQ(alarm->timeMin(), 1.0) << "the value stays readable";
  loop.turnAt(2.0);
  EXPECT_EQ(alarm->fired.size(), 1u);
}

TEST_F(ClockTest, timeMin_isDisarmedAlreadyWhenItFires) {
  bool armed = true;
  alarm->reaction = [&] { armed = alarm->isArmed(); };
  alarm->timeMinIs(0.0);
  loop.turn();
  EXPECT_FALSE(armed);
}

TEST_F(ClockTest, timeMin_armsAgainWithTheValueItHolds) {
  alarm->timeMinIs(1.0);
  loop.turnAt(1.0);
  alarm->timeMinIs(1.0);
  EXPECT_TRUE(alarm->isArmed());
  loop.turn();
  EXPECT_THAT(alarm->fired, ElementsAre(1, 1));
}

TEST_F(ClockTest, timeMin_armedTwiceFiresOnce) {
  alarm->timeMinIs(1.0);
  alarm->timeMinIs(1.0);
  loop.turnAt(1.0);
  loop.turn();
  EXPECT_EQ(alarm->fired.size(), 1u);
}

TEST_F(ClockTest, timeMin_replacesTheEarlierWakeUp) {
  alarm->timeMinIs(1.0);
  alarm->timeMinIs(3.0);
  loop.turnAt(2.0);
  EXPECT_THAT(alarm->fired, IsEmpty());
  alarm->timeMinIs(2.5);
  loop.turnAt(2.5);
  loop.turnAt(3.0);
  EXPECT_THAT(alarm->fired, ElementsAre(2.5));
}

TEST_F(ClockTest, timeMin_neverDisarms) {
  alarm->timeMinIs(1.0);
  alarm->timeMinIs(never);
  EXPECT_FALSE(alarm->isArmed());
  loop.turnAt(1e300);
  EXPECT_THAT(alarm->fired, IsEmpty());
}

TEST_F(ClockTest, timeMin_notANumberIsRefusedAndChangesNothing) {
  alarm->timeMinIs(1.0);
  EXPECT_THROW(alarm->timeMinIs(std::numeric_limits<double>::quiet_NaN()), Zint::RangeException);
  EXPECT_EQ(alarm->timeMin(), 1.0);
  loop.turnAt(1.0);
  EXPECT_THAT(alarm->fired, ElementsAre(1));
}

TEST_F(ClockTest, timeMin_onAClockThatIsNotTheActivitysOwnIsServed) {
  const Ptr<Zint::ManualClock> foreign = Zint::manualClockFactory("foreign");
  const Ptr<Alarm> stranger = makePtr<Alarm>(loop.activity, foreign);
  stranger->timeMinIs(2.0);
  EXPECT_EQ(loop.turnAt(5.0), 0u) << "the own clock does not count";
  foreign->timeIs(2.0);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_THAT(stranger->fired, ElementsAre(2.0));
}

TEST_F(ClockTest, timeMin_withoutAClockIsRefusedExceptNever) {
  const Ptr<Alarm> idle = makePtr<Alarm>(loop.activity, nullptr);
  EXPECT_THROW(idle->timeMinIs(0.0), Zint::RangeException);
  EXPECT_FALSE(idle->isArmed());
  EXPECT_EQ(idle->timeMin(), never);
  EXPECT_NO_THROW(idle->timeMinIs(never));
}

TEST_F(ClockTest, aClockWithoutAnActivityIsRefusedWhenItIsGiven) {
  const U32 before = loop.clock->notifiees();
  EXPECT_EQ(rangeMessage([&] { makePtr<Alarm>(nullptr, loop.clock); }),
            "a clock needs an activity that serves it");
  const Ptr<Alarm> idle = makePtr<Alarm>(nullptr, nullptr);
  EXPECT_THROW(idle->notifierIs(loop.clock), Zint::RangeException);
  EXPECT_EQ(idle->notifier(), nullptr);
  EXPECT_EQ(loop.clock->notifiees(), before);
  EXPECT_THROW(alarm->zintFwkActivityIs(nullptr), Zint::RangeException);
  EXPECT_EQ(alarm->zintFwkActivity(), loop.activity);
}

TEST_F(ClockTest, anInactiveAlarmWaitsUntilItIsSwitchedOn) {
  alarm->timeMinIs(1.0);
  alarm->hasNotificationActiveIs(false);
  loop.turnAt(2.0);
  EXPECT_THAT(alarm->fired, IsEmpty());
  EXPECT_TRUE(alarm->isArmed());
  alarm->hasNotificationActiveIs(true);
  loop.turnAt(3.0);
  EXPECT_THAT(alarm->fired, ElementsAre(3));
}

TEST_F(ClockTest, anAlarmMadeInactiveWaitsUntilItIsSwitchedOn) {
  const Ptr<Alarm> idle = makePtr<Alarm>(loop.activity, loop.clock, false);
  idle->timeMinIs(0.0);
  EXPECT_EQ(loop.turn(), 0u);
  idle->hasNotificationActiveIs(true);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(idle->fired.size(), 1u);
}

TEST_F(ClockTest, anAlarmSwitchedOnTwiceFiresOnce) {
  alarm->timeMinIs(1.0);
  alarm->hasNotificationActiveIs(true);
  EXPECT_EQ(loop.turnAt(1.0), 1u);
  EXPECT_THAT(alarm->fired, ElementsAre(1.0));
  alarm->timeMinIs(2.0);
  alarm->hasNotificationActiveIs(true);
  alarm->timeMinIs(never);
  EXPECT_EQ(loop.turnAt(2.0), 0u) << "and not at all once it is disarmed";
}

TEST_F(ClockTest, theActivityThatAnAlarmHasAlreadyLeavesItsPlaceAmongThoseOfOneTime) {
  const Ptr<Alarm> other = makePtr<Alarm>(loop.activity, loop.clock);
  std::vector<const Alarm*> order;
  for (const Ptr<Alarm>& a : {alarm, other}) {
    a->reaction = [&order, a = a.ptr()] { order.push_back(a); };
    a->timeMinIs(1.0);
  }
  alarm->zintFwkActivityIs(loop.activity);
  EXPECT_EQ(loop.turnAt(1.0), 2u);
  EXPECT_THAT(order, ElementsAre(alarm.ptr(), other.ptr())) << "in the order of arming";
}

TEST_F(ClockTest, aNotifieeMarkedForDeletionIsWokenOnceTheMarkIsGone) {
  alarm->timeMinIs(1.0);
  alarm->zintDoZombieReactors(true);
  EXPECT_EQ(loop.turnAt(1.0), 0u);
  EXPECT_EQ(loop.turn(), 0u);
  EXPECT_THAT(alarm->fired, IsEmpty());
  EXPECT_TRUE(alarm->isArmed());
  EXPECT_EQ(loop.activity->wakeTime(), never) << "nothing to wake up for while the mark is there";
  alarm->zintDoZombieReactors(false);
  EXPECT_LE(loop.activity->wakeTime(), 1.0);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(loop.turn(), 0u);
  EXPECT_THAT(alarm->fired, ElementsAre(1.0));
}

TEST_F(ClockTest, aMarkThatIsTakenBackDirectlyCountsToo) {
  alarm->timeMinIs(0.0);
  alarm->zintMarkedForDeletionIs(true);
  EXPECT_EQ(loop.turn(), 0u);
  alarm->zintMarkedForDeletionIs(false);
  EXPECT_EQ(loop.turn(), 1u);
}

TEST_F(ClockTest, aWakeUpThatWaitsForTheMarkIsDisarmedAndArmedLikeAnyOther) {
  alarm->timeMinIs(0.0);
  alarm->zintDoZombieReactors(true);
  loop.turn();
  alarm->timeMinIs(never);
  alarm->zintDoZombieReactors(false);
  EXPECT_EQ(loop.turn(), 0u);
  alarm->zintDoZombieReactors(true);
  alarm->timeMinIs(0.0);
  loop.turn();
  alarm->timeMinIs(4.0);
  alarm->zintDoZombieReactors(false);
  EXPECT_EQ(loop.turnAt(3.0), 0u);
  EXPECT_EQ(loop.turnAt(4.0), 1u);
}

TEST_F(ClockTest, aDestroyedAlarmLeavesNothingBehind) {
  alarm->timeMinIs(0.0);
  alarm = nullptr;
  EXPECT_EQ(loop.activity->wakeTime(), never);
  EXPECT_EQ(loop.turn(), 0u);
}

TEST_F(ClockTest, anAlarmWhoseConstructorThrewAfterArmingLeavesNothingBehind) {
  class Failing : public Alarm {
   public:
    explicit Failing(const Support::ManualLoop& loop) : Alarm(loop.activity, loop.clock) {
      timeMinIs(1.0);
      throw 1;
    }
  };
  EXPECT_THROW(makePtr<Failing>(loop), int);
  EXPECT_EQ(loop.activity->wakeTime(), never);
}

TEST_F(ClockTest, theWakeUpMovesAlongToAnotherActivity) {
  const auto other = Zint::activityFactory("other", Ptr<const Zint::Clock>(loop.clock));
  alarm->timeMinIs(1.0);
  alarm->zintFwkActivityIs(other);
  EXPECT_EQ(loop.activity->wakeTime(), never);
  EXPECT_EQ(other->wakeTime(), 1.0);
  loop.turnAt(1.0);
  EXPECT_THAT(alarm->fired, IsEmpty());
  other->turn();
  EXPECT_THAT(alarm->fired, ElementsAre(1));
}

TEST_F(ClockTest, theWakeUpMovesAlongToAnActivityWithAnotherClock) {
  const Support::ManualLoop other;
  alarm->timeMinIs(1.0);
  alarm->zintFwkActivityIs(other.activity);
  EXPECT_EQ(loop.turnAt(1.0), 0u);
  EXPECT_EQ(other.activity->turn(), 1u);
  EXPECT_THAT(alarm->fired, ElementsAre(1)) << "the time of the clock that woke it";
}

TEST_F(ClockTest, notifierIs_ofAnotherClockForgetsTheWakeUp) {
  alarm->timeMinIs(1.0);
  alarm->notifierIs(loop.clock);
  EXPECT_TRUE(alarm->isArmed()) << "the clock it has";
  alarm->notifierIs(nullptr);
  EXPECT_FALSE(alarm->isArmed());
  loop.turnAt(1.0);
  EXPECT_THAT(alarm->fired, IsEmpty());
  EXPECT_EQ(loop.activity->wakeTime(), never);
}

TEST_F(ClockTest, timeGoesOnWithinATurnAndTheTurnsTimeDoesNot) {
  std::vector<Zint::Seconds> seen;
  alarm->reaction = [&] {
    loop.clock->timeIs(7.0);
    seen = {loop.clock->time(), Zint::now(), loop.clock->turnTime(), Zint::turnTime()};
  };
  alarm->timeMinIs(0.0);
  loop.turnAt(1.0);
  EXPECT_THAT(seen, ElementsAre(7, 7, 1, 1));
  EXPECT_EQ(loop.clock->turnTime(), 7.0) << "outside of turns, the current time";
  EXPECT_EQ(Zint::turnTime(), 7.0);
}

TEST_F(ClockTest, theSystemsTurnTimeStandsStillWithinATurn) {
  const auto clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Ptr<const Zint::Clock>(clock));
  const Ptr<Alarm> first = makePtr<Alarm>(activity, clock);
  const Ptr<Alarm> second = makePtr<Alarm>(activity, clock);
  first->timeMinIs(0.0);
  second->timeMinIs(0.0);
  std::vector<Zint::Seconds> times;
  first->reaction = second->reaction = [&] {
    times.push_back(clock->turnTime());
    EXPECT_LE(times.front(), Zint::now());
  };
  activity->turn();
  ASSERT_EQ(times.size(), 2u);
  EXPECT_EQ(times[0], times[1]);
}

TEST_F(ClockTest, now_isTheTimeOfTheTurnThatRuns) {
  Support::ManualLoop later;  // made last: outside of turns it gives the time
  later.clock->timeIs(50);
  EXPECT_EQ(Zint::now(), 50.0);
  alarm->timeMinIs(0.0);
  loop.turnAt(3.0);
  EXPECT_THAT(alarm->fired, ElementsAre(3));
  EXPECT_EQ(Zint::now(), 50.0);
}

TEST_F(ClockTest, now_fallsBackToTheActivityMadeBeforeWhenTheLastOneEnds) {
  loop.clock->timeIs(3);
  {
    Support::ManualLoop later;
    later.clock->timeIs(50);
    EXPECT_EQ(Zint::now(), 50.0);
  }
  EXPECT_EQ(Zint::now(), 3.0);
}

TEST_F(ClockTest, now_doesNotJumpInATurnThatMakesAnActivity) {
  std::vector<Zint::Seconds> seen;
  alarm->reaction = [&] {
    Support::ManualLoop made;
    made.clock->timeIs(50);
    seen.push_back(Zint::now());
  };
  alarm->timeMinIs(0.0);
  loop.turnAt(3);
  EXPECT_THAT(seen, ElementsAre(3));
}

TEST_F(ClockTest, anArmedAlarmThatIsSwitchedOffMovesAlongAndWaits) {
  const Support::ManualLoop other;
  alarm->timeMinIs(1.0);
  alarm->hasNotificationActiveIs(false);
  alarm->zintFwkActivityIs(other.activity);
  loop.clock->timeIs(1.0);
  EXPECT_EQ(other.activity->turn(), 0u);
  alarm->hasNotificationActiveIs(true);
  EXPECT_EQ(loop.turn(), 0u);
  EXPECT_EQ(other.activity->turn(), 1u);
}

TEST_F(ClockTest, now_isTheSystemsTimeOnAThreadWithoutActivity) {
  loop.clock->timeIs(1e12);
  std::thread([] {
    const auto clock = Zint::monotonicClockFactory("clock");
    const Zint::Seconds before = clock->time();
    const Zint::Seconds now = Zint::now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, clock->time());
  }).join();
}

}  // namespace
