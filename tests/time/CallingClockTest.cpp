// A clock whose source calls back when it is read: whoever asks it the time may lose, within the
// call, what the question was about.
#include <time/Kit.h>

#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <support/RecordingHam.h>

namespace {

using namespace Time;

struct CallingClock : testing::Test {
  CallingClock() {
    activity->descriptor();  // from here on a timer is kept, which reads clocks
    other = sleeper(activity, clock);
    other->timeMinIs(5.0);
  }
  // At the next reading alone.
  void callOnce(std::function<void()> call) {
    clock->onRead = [this, call = std::move(call)] {
      const auto once = std::exchange(clock->onRead, nullptr);
      call();
      ++calls;
    };
  }

  static Hardware::ChipMemory::Ptr makeRegion() {
    return Hardware::chipMemoryFactory("region", Hardware::ChipAddress(0, 0), 4, 4, 4, nullptr);
  }

  Ptr<SettableClock> clock = makePtr<SettableClock>(0.0);
  Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("activity", ClockPtr(clock));
  Ptr<Sleeper> other;
  int calls = 0;
};

TEST_F(CallingClock, timeMinIs_theNotifieeIsDroppedWhileItIsArmed) {
  Ptr<Sleeper> s = sleeper(activity, clock);
  callOnce([&] { s = nullptr; });
  s.ptr()->timeMinIs(3.0);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(activity->wakeTime(), 5.0);
}

TEST_F(CallingClock, hasNotificationActiveIs_theNotifieeIsDroppedWhileItIsSwitchedOn) {
  Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(3.0);
  s->hasNotificationActiveIs(false);
  callOnce([&] { s = nullptr; });
  s.ptr()->hasNotificationActiveIs(true);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(activity->wakeTime(), 5.0);
}

TEST_F(CallingClock, zintFwkActivityIs_notifieeAndArgumentAreDroppedMeanwhile) {
  Ptr<Zint::ActivityConfig> second = Zint::activityFactory("second", ClockPtr(clock));
  Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(3.0);
  callOnce([&] {
    s = nullptr;
    second = nullptr;
  });
  s.ptr()->zintFwkActivityIs(second);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(activity->wakeTime(), 5.0);
}

TEST_F(CallingClock, reader_itsClockIsTakenAwayWhileItIsTakenAway) {
  const auto request = Hardware::chipReadRequestFactory("request");
  const auto reader = Hardware::chipReaderFactory(activity, request, ClockPtr(clock), 1, 0.0);
  const auto region = makeRegion();
  request->chipMemoryIs(region);
  request->stateIs(Hardware::ChipReadRequest::start_);
  callOnce([&] { reader->clockIs(nullptr); });
  reader->clockIs(nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(reader->clock(), nullptr);
}

// Within a slice, so that the reader's next reading is the one that calls.
struct ReaderOnCallingClock : CallingClock {
  ReaderOnCallingClock() {
    ham->onAccess = [this](const Support::HamAccess&, U8*) { callOnce(call); };
    const auto region =
        Hardware::chipMemoryFactory("region", Hardware::ChipAddress(0, 0), 4, 4, 4, ham);
    region->auditEnabledIs(true);
    request->chipMemoryIs(region);
    request->stateIs(Hardware::ChipReadRequest::start_);
  }

  std::function<void()> call;
  Ptr<Support::RecordingHam> ham = makePtr<Support::RecordingHam>();
  Hardware::ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  Hardware::ChipReader::Ptr reader =
      Hardware::chipReaderFactory(activity, request, ClockPtr(clock), 1, 1.0);
};

TEST_F(ReaderOnCallingClock, tick_itsClockIsTakenAwayWhileTheTimeIsRead) {
  call = [this] { reader->clockIs(nullptr); };
  activity->turn();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(reader->clock(), nullptr);
  EXPECT_EQ(activity->wakeTime(), 5.0);
}

TEST_F(ReaderOnCallingClock, tick_itIsStoppedWhileTheTimeIsRead) {
  call = [this] { request->stateIs(Hardware::ChipReadRequest::stop_); };
  activity->turn();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(activity->wakeTime(), 5.0) << "nothing of the reader's is armed";
}

TEST_F(CallingClock, shadow_itsClockIsTakenAwayWhileItIsTakenAway) {
  const auto shadow = Hardware::hardwareShadowFactory(activity, ClockPtr(clock));
  const auto region = makeRegion();
  shadow->chipMemoryIs(region);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  shadow->chipMemoryAuditEnabledIs(region, true);
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  callOnce([&] { shadow->clockIs(nullptr); });
  shadow->clockIs(nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(shadow->clock(), nullptr);
}

}  // namespace
