// A clock whose source fails: what throws reaches who runs the activity, never a destructor.
#include <time/Kit.h>

#include <stdexcept>

namespace {

using namespace Time;

struct ThrowingClock : testing::Test {
  // Lets `reads` more readings succeed.
  void failAfter(int reads) {
    clock->onRead = [left = reads]() mutable {
      if (left-- <= 0) throw std::runtime_error("no time");
    };
  }
  void recover() { clock->onRead = nullptr; }

  Ptr<SettableClock> clock = makePtr<SettableClock>(0.0);
  Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("activity", ClockPtr(clock));
};

TEST_F(ThrowingClock, turn_aClockThatFailsAtItsEndIsReadAgainByTheNextTurn) {
  activity->descriptor();
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(5.0);
  ASSERT_FALSE(isReadable(*activity));
  failAfter(1);
  EXPECT_EQ(activity->turn(), 0u);
  EXPECT_TRUE(isReadable(*activity)) << "whoever polls must learn of the failure";
  EXPECT_THROW(activity->turn(), std::runtime_error);
  EXPECT_TRUE(isReadable(*activity));
  recover();
  EXPECT_EQ(activity->turn(), 0u);
  EXPECT_FALSE(isReadable(*activity));
  clock->passTo(5.0);
  EXPECT_EQ(activity->turn(), 1u);
}

TEST_F(ThrowingClock, timeMinIs_anotherClockThatFailsDoesNotRefuseTheWakeUp) {
  activity->descriptor();
  const Ptr<Zint::ManualClock> other = Zint::manualClockFactory("other");
  const Ptr<Sleeper> s = sleeper(activity, clock), o = sleeper(activity, other);
  s->timeMinIs(5.0);
  failAfter(0);
  EXPECT_NO_THROW(o->timeMinIs(3.0));
  EXPECT_TRUE(o->isArmed());
  EXPECT_NO_THROW(o->timeMinIs(never));
  EXPECT_FALSE(o->isArmed());
  EXPECT_NO_THROW(other->timeIs(3.0));
}

TEST_F(ThrowingClock, hasNotificationActiveIs_switchesOffWhileTheClockFails) {
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(5.0);
  failAfter(0);
  EXPECT_NO_THROW(s->hasNotificationActiveIs(false));
  EXPECT_FALSE(s->hasNotificationActive());
}

TEST_F(ThrowingClock, timeMinIs_ofANotifieeThatIsSwitchedOffDoesNotReadTheClock) {
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->hasNotificationActiveIs(false);
  failAfter(0);
  EXPECT_NO_THROW(s->timeMinIs(5.0));
  EXPECT_EQ(s->timeMin(), 5.0);
}

TEST_F(ThrowingClock, zintFwkActivityIs_ofANotifieeThatIsSwitchedOffDoesNotReadTheClock) {
  const auto second = Zint::activityFactory("second", ClockPtr(clock));
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(5.0);
  s->hasNotificationActiveIs(false);
  failAfter(0);
  EXPECT_NO_THROW(s->zintFwkActivityIs(Ptr<Zint::ActivityConfig>(second)));
}

TEST_F(ThrowingClock, aNotifieeIsDestroyedWhileItsClockFails) {
  activity->descriptor();
  const Ptr<Sleeper> s = sleeper(activity, clock);
  Ptr<Sleeper> first = sleeper(activity, clock);
  s->timeMinIs(5.0);
  first->timeMinIs(3.0);
  failAfter(0);
  first = nullptr;
  recover();
  EXPECT_EQ(activity->wakeTime(), 5.0);
}

TEST_F(ThrowingClock, runUntil_throwsWhatTheClockThrows) {
  activity->descriptor();
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(5.0);
  for (int reads = 0; reads < 4; ++reads) {
    failAfter(reads);
    EXPECT_THROW(activity->runUntil(9.0), std::runtime_error) << reads;
  }
  EXPECT_TRUE(s->isArmed());
}

}  // namespace
