// One activity, several clocks: manual, settable, below zero, standing still, jumping.
#include <Zint/Activity.h>

#include <gmock/gmock.h>
#include <time/Kit.h>

#include <stdexcept>

namespace {

using namespace Time;
using testing::ElementsAre;
using testing::IsEmpty;

struct ServedClocks : testing::Test {
  Ptr<Sleeper> on(const ClockPtr& clock, char letter = '?') {
    const Ptr<Sleeper> made = sleeper(activity, clock);
    made->log = &log;
    made->letter = letter;
    return made;
  }
  std::string turn() {
    activity->turn();
    return std::exchange(log, {});
  }

  std::string log;
  Ptr<SettableClock> own = makePtr<SettableClock>(100.0);
  Ptr<SettableClock> other = makePtr<SettableClock>(-5.0);
  Ptr<Zint::ManualClock> manual = Zint::manualClockFactory("manual");
  Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("activity", ClockPtr(own));
  Ptr<Sleeper> a = on(own, 'a'), b = on(other, 'b'), m = on(manual, 'm');
};

TEST_F(ServedClocks, turn_servesEachByItsOwnTime) {
  a->timeMinIs(101);
  b->timeMinIs(-4);
  m->timeMinIs(3);
  EXPECT_EQ(turn(), "");
  other->passTo(-4);
  EXPECT_EQ(turn(), "b");
  manual->timeIs(3);
  EXPECT_EQ(turn(), "m");
  own->passTo(101);
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(activity->wakeTime(), never);
}

TEST_F(ServedClocks, turn_betweenClocksWhatHasBeenDueLongestIsFirstThenTheOrderOfArming) {
  a->timeMinIs(101);
  m->timeMinIs(1);
  b->timeMinIs(-4);
  const Ptr<Sleeper> z = on(manual, 'z'), y = on(own, 'y');
  y->timeMinIs(0.0);
  z->timeMinIs(0.0);
  own->passTo(103);   // a: 2 s
  manual->timeIs(3);  // m: 2 s
  other->passTo(-1);  // b: 3 s
  EXPECT_EQ(turn(), "yzbam");
}

TEST_F(ServedClocks, turn_whatIsArmedOnAnotherClockDuringATurnWaits) {
  b->reaction = [&] { m->timeMinIs(0.0); };
  a->timeMinIs(0.0);
  b->timeMinIs(0.0);
  EXPECT_EQ(turn(), "ab");
  EXPECT_EQ(turn(), "m");
}

TEST_F(ServedClocks, turn_aNotifieeThatTakesAnotherClockDuringATurnIsServedThere) {
  const auto fresh = makePtr<SettableClock>(7.0);
  a->reaction = [&] {
    b->notifierIs(fresh);
    b->timeMinIs(8.0);
  };
  a->timeMinIs(0.0);
  b->timeMinIs(0.0);
  EXPECT_EQ(turn(), "a") << "another clock disarms";
  EXPECT_EQ(turn(), "");
  fresh->passTo(8.0);
  EXPECT_EQ(turn(), "b");
}

TEST_F(ServedClocks, turn_aClockThatThrowsLeavesEverythingAsItIs) {
  a->timeMinIs(0.0);
  b->timeMinIs(0.0);
  other->onRead = [] { throw std::runtime_error("no time"); };
  EXPECT_THROW(activity->turn(), std::runtime_error);
  other->onRead = nullptr;
  EXPECT_FALSE(own->isInTurn());
  EXPECT_EQ(turn(), "ab");
}

TEST_F(ServedClocks, turn_allocatesNothing) {
  std::vector<Ptr<Sleeper>> many;
  for (const ClockPtr& clock : {ClockPtr(own), ClockPtr(other), ClockPtr(manual)}) {
    for (int i = 0; i < 50; ++i) many.push_back(sleeper(activity, clock));
  }
  for (const auto& one : many) {
    one->woken.reserve(4);
    one->timeMinIs(0.0);
    one->reaction = [notifiee = one.ptr()] { notifiee->timeMinIs(0.0); };
  }
  EXPECT_EQ(activity->turn(), many.size());
  const unsigned before = allocations();
  EXPECT_EQ(activity->turn(), many.size());
  EXPECT_EQ(allocations(), before);
}

TEST_F(ServedClocks, now_isTheCurrentTimeOfTheClockThatIsServed) {
  std::vector<Seconds> seen;
  a->reaction = [&] { seen = {Zint::now(), Zint::turnTime()}; };
  b->reaction = [&] {
    other->passTo(-3);
    EXPECT_EQ(Zint::now(), -3.0);
    EXPECT_EQ(Zint::turnTime(), -5.0);
  };
  b->timeMinIs(0.0);
  a->timeMinIs(0.0);
  m->timeMinIs(0.0);
  EXPECT_EQ(turn(), "bam");
  EXPECT_THAT(b->woken, ElementsAre(-5.0));
  EXPECT_THAT(seen, ElementsAre(100.0, 100.0));
  EXPECT_THAT(m->woken, ElementsAre(0.0));
  EXPECT_EQ(Zint::now(), 100.0) << "outside of turns, the own clock's";
}

TEST_F(ServedClocks, now_afterATurnInsideAHandlerIsThatOfTheServedClockAgain) {
  const auto inner = Zint::activityFactory("inner", Zint::manualClockFactory("inner"));
  b->reaction = [&] {
    inner->turn();
    EXPECT_EQ(Zint::now(), -5.0);
  };
  b->timeMinIs(0.0);
  EXPECT_EQ(turn(), "b");
}

TEST_F(ServedClocks, wakeTime_isTheEarliestInRealTime) {
  b->timeMinIs(-3);
  EXPECT_EQ(activity->wakeTime(), 102.0) << "two seconds are left";
  a->timeMinIs(101.5);
  EXPECT_EQ(activity->wakeTime(), 101.5);
  other->passTo(-4);
  EXPECT_EQ(activity->wakeTime(), 101.0);
  other->passTo(50);
  EXPECT_EQ(activity->wakeTime(), 100.0) << "due";
}

TEST_F(ServedClocks, wakeTime_ofAnotherClockThatIsMovedByHandCountsOnceItIsDue) {
  m->timeMinIs(2);
  EXPECT_EQ(activity->wakeTime(), never);
  manual->timeIs(2);
  EXPECT_EQ(activity->wakeTime(), 100.0);
}

TEST_F(ServedClocks, zeroIsTheNextTurnOnAClockBelowZero) {
  const Ptr<Zint::ActivityConfig> below = Zint::activityFactory("below", ClockPtr(other));
  const Ptr<Sleeper> s = sleeper(below, other);
  s->timeMinIs(0.0);
  EXPECT_LE(below->wakeTime(), -5.0);
  EXPECT_TRUE(becomesReadable(*below));
  EXPECT_EQ(below->turn(), 1u);
  EXPECT_FALSE(isReadable(*below));
  s->timeMinIs(-1.0);
  EXPECT_EQ(below->turn(), 0u);
  EXPECT_FALSE(isReadable(*below));
}

TEST_F(ServedClocks, aTimeThatIsPastAtArmingIsTheNextTurnThoughTheClockJumpsBack) {
  a->timeMinIs(99);
  const Ptr<Sleeper> later = on(own, 'l');
  own->passTo(101);
  later->timeMinIs(100.5);
  own->jumpTo(-7);
  EXPECT_LE(activity->wakeTime(), -7.0);
  EXPECT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(turn(), "al");
}

TEST_F(ServedClocks, aClockThatJumpsBackBeforeTheTimeIsWaitedFor) {
  a->timeMinIs(101);
  own->jumpTo(50);
  own->passTo(100.5);
  EXPECT_EQ(turn(), "");
  own->jumpTo(200);
  EXPECT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(turn(), "a");
}

TEST_F(ServedClocks, descriptor_isReadableForAnyClock) {
  EXPECT_FALSE(isReadable(*activity));
  m->timeMinIs(2);
  b->timeMinIs(1000);
  EXPECT_FALSE(isReadable(*activity));
  manual->timeIs(2);
  EXPECT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(turn(), "m");
  EXPECT_FALSE(isReadable(*activity));
  other->jumpTo(1000);
  EXPECT_TRUE(becomesReadable(*activity));
  b->notifierIs(nullptr);
  EXPECT_FALSE(isReadable(*activity));
}

TEST_F(ServedClocks, descriptor_ofAClockThatStandsStillBecomesReadableAgainAndAgain) {
  b->timeMinIs(-5 + 1e-3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(becomesReadable(*activity)) << i;
    EXPECT_EQ(turn(), "") << i;
  }
  other->passTo(0);
  EXPECT_TRUE(becomesReadable(*activity));
  EXPECT_EQ(turn(), "b");
  EXPECT_FALSE(isReadable(*activity));
}

TEST_F(ServedClocks, timer_isSetWhenTheEarliestChangesAndNotOtherwise) {
  activity->descriptor();
  auto calls = [before = timerCalls()]() mutable {
    return timerCalls() - std::exchange(before, timerCalls());
  };
  a->timeMinIs(200);
  EXPECT_EQ(calls(), 1u);
  const Ptr<Sleeper> later = on(own, 'l');
  later->timeMinIs(300);
  later->timeMinIs(250);
  later->timeMinIs(never);
  a->timeMinIs(200);
  m->timeMinIs(4);
  manual->timeIs(3);
  EXPECT_EQ(turn(), "");
  EXPECT_EQ(calls(), 0u) << "what is later, and the same again";
  b->timeMinIs(5);
  EXPECT_EQ(calls(), 1u);
  b->timeMinIs(never);
  EXPECT_EQ(calls(), 1u);
  a->timeMinIs(0.0);
  EXPECT_EQ(calls(), 1u);
  b->timeMinIs(0.0);
  m->timeMinIs(0.0);
  EXPECT_EQ(calls(), 0u) << "due already";
  a->reaction = [&] { a->timeMinIs(0.0); };
  EXPECT_EQ(turn(), "abm");
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(calls(), 0u) << "still due";
  a->reaction = nullptr;
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(calls(), 1u) << "nothing is armed any more";
  EXPECT_EQ(turn(), "");
  EXPECT_EQ(calls(), 0u);
}

// The clock moves with each reading: real time would, here a tick's worth at once.
TEST_F(ServedClocks, timer_isSetOncePerTickOfARun) {
  const auto clock = Zint::monotonicClockFactory("system");
  const auto loop = Zint::activityFactory("loop", ClockPtr(clock));
  const Ptr<Sleeper> tick = sleeper(loop, clock);
  unsigned ticks = 0;
  tick->reaction = [&] {
    if (++ticks == 20) return loop->stop();
    tick->timeMinIs(clock->time() + 1e-3);
  };
  loop->descriptor();
  tick->timeMinIs(0.0);
  const unsigned before = timerCalls();
  loop->run();
  EXPECT_EQ(ticks, 20u);
  EXPECT_LE(timerCalls() - before, 20u + 2u) << "two for the stop";
}

TEST_F(ServedClocks, aClockThatIsDestroyedForgetsTheWakeUpsOfThoseWhoDoNotHoldIt) {
  b->isNonReferencingIs(true);
  b->timeMinIs(0.0);
  ASSERT_TRUE(becomesReadable(*activity));
  other = nullptr;
  EXPECT_EQ(b->notifier(), nullptr);
  EXPECT_FALSE(b->isArmed());
  EXPECT_FALSE(isReadable(*activity));
  EXPECT_EQ(activity->wakeTime(), never);
  EXPECT_EQ(turn(), "");
}

TEST_F(ServedClocks, aClockMayBeDestroyedInTheTurnThatServesIt) {
  const auto second = on(other, 'c');
  for (const auto& one : {b, second}) {
    one->isNonReferencingIs(true);
    one->timeMinIs(0.0);
  }
  b->reaction = [&] { other = nullptr; };
  EXPECT_EQ(turn(), "b") << "the clock is held while its notifiee is served, and no longer";
  EXPECT_FALSE(second->isArmed());
}

TEST_F(ServedClocks, aClockIsServedNoMoreWhenItsLastNotifieeHasGone) {
  b->timeMinIs(0.0);
  b = nullptr;
  unsigned reads = 0;
  other->onRead = [&] { ++reads; };
  EXPECT_EQ(turn(), "");
  EXPECT_EQ(reads, 0u);
}

TEST_F(ServedClocks, run_onAManualClockWaitsForARealOne) {
  const auto system = Zint::monotonicClockFactory("system");
  const auto loop = Zint::activityFactory("loop", ClockPtr(manual));
  const Ptr<Sleeper> real = sleeper(loop, system), simulated = sleeper(loop, manual);
  const Seconds due = system->time() + 2e-3;
  real->timeMinIs(due);
  real->reaction = [&] {
    EXPECT_GE(system->time(), due);
    loop->stop();
  };
  simulated->timeMinIs(1000);
  loop->run();
  EXPECT_EQ(real->woken.size(), 1u);
  EXPECT_THAT(simulated->woken, ElementsAre(1000.0));
}

}  // namespace
