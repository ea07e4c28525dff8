// What cannot be served is refused when the clock is given, and nothing has changed then.
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Exception.h>
#include <gmock/gmock.h>
#include <time/Kit.h>

#include <new>

namespace {

using namespace Time;
using Hardware::ChipReader;
using Hardware::HardwareShadow;

struct Refusal : testing::Test {
  Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  Ptr<Zint::ManualClock> other = Zint::manualClockFactory("other");
  Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("activity", ClockPtr(clock));
  Hardware::ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
};

TEST_F(Refusal, hardwareShadowFactory_aClockWithoutAnActivity) {
  EXPECT_THROW(Hardware::hardwareShadowFactory(nullptr, clock), Zint::RangeException);
  EXPECT_EQ(clock->notifiees(), 0u);
  EXPECT_NE(Hardware::hardwareShadowFactory(nullptr, nullptr), nullptr);
}

TEST_F(Refusal, chipReaderFactory_aClockWithoutAnActivity) {
  EXPECT_THROW(Hardware::chipReaderFactory(nullptr, request, clock, 1, 1), Zint::RangeException);
  EXPECT_EQ(clock->notifiees(), 0u);
  EXPECT_EQ(request->notifiees(), 0u);
  EXPECT_NE(Hardware::chipReaderFactory(nullptr, request, nullptr, 1, 1), nullptr);
}

TEST_F(Refusal, clockIs_andNewClock_aClockWithoutAnActivity) {
  const auto shadow = Hardware::hardwareShadowFactory(nullptr, nullptr);
  const auto reader = Hardware::chipReaderFactory(nullptr, request, nullptr, 1, 1);
  EXPECT_THROW(shadow->clockIs(clock), Zint::RangeException);
  EXPECT_THROW(shadow->newClock(clock), Zint::RangeException);
  EXPECT_THROW(reader->clockIs(clock), Zint::RangeException);
  EXPECT_THROW(reader->newClock(clock), Zint::RangeException);
  EXPECT_EQ(shadow->clock(), nullptr);
  EXPECT_EQ(reader->clock(), nullptr);
}

TEST_F(Refusal, zintFwkActivityIs_noActivityWhileThereIsAClock) {
  const auto shadow = Hardware::hardwareShadowFactory(activity, clock);
  const auto reader = Hardware::chipReaderFactory(activity, request, clock, 1, 1);
  EXPECT_THROW(shadow->zintFwkActivityIs(nullptr), Zint::RangeException);
  EXPECT_THROW(reader->zintFwkActivityIs(nullptr), Zint::RangeException);
  EXPECT_EQ(shadow->zintFwkActivity(), activity);
  EXPECT_EQ(reader->zintFwkActivity(), activity);
  shadow->clockIs(nullptr);
  shadow->zintFwkActivityIs(nullptr);
  EXPECT_EQ(shadow->zintFwkActivity(), nullptr);
}

// Runs `change` with less and less lack of memory; after each failure, `isUnchanged`.
template <class Change, class Check>
void failEachAllocation(Change change, Check expectUnchanged) {
  for (unsigned allowed = 0;; ++allowed) {
    try {
      const NoMemoryAfter limit(allowed);
      change();
    } catch (const std::bad_alloc&) {
      expectUnchanged();
      continue;
    }
    EXPECT_GT(allowed, 0u) << "nothing was allocated";
    return;
  }
}

TEST_F(Refusal, notifierIs_withoutMemoryLeavesTheWakeUpArmed) {
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(1.0);
  failEachAllocation([&] { s->notifierIs(other); },
                     [&] {
                       EXPECT_EQ(s->notifier(), clock.ptr());
                       EXPECT_TRUE(s->isArmed());
                       EXPECT_EQ(s->timeMin(), 1.0);
                       EXPECT_EQ(activity->wakeTime(), 1.0);
                       EXPECT_EQ(other->notifiees(), 0u);
                     });
  EXPECT_FALSE(s->isArmed());
}

TEST_F(Refusal, zintFwkActivityIs_withoutMemoryLeavesTheWakeUpWhereItIs) {
  const Ptr<Sleeper> s = sleeper(activity, clock);
  s->timeMinIs(1.0);
  const auto next = Zint::activityFactory("next", ClockPtr(other));
  failEachAllocation([&] { s->zintFwkActivityIs(next); },
                     [&] {
                       EXPECT_EQ(s->zintFwkActivity(), activity);
                       EXPECT_EQ(activity->wakeTime(), 1.0);
                       EXPECT_EQ(next->wakeTime(), never);
                     });
  EXPECT_EQ(activity->wakeTime(), never);
  clock->timeIs(1.0);
  EXPECT_EQ(next->turn(), 1u);
}

TEST_F(Refusal, timeMinIs_withoutMemoryArmsNothing) {
  const Ptr<Sleeper> s = sleeper(activity, other);
  failEachAllocation([&] { s->timeMinIs(0.0); },
                     [&] {
                       EXPECT_FALSE(s->isArmed());
                       EXPECT_EQ(s->timeMin(), never);
                     });
  EXPECT_EQ(activity->turn(), 1u);
}

TEST_F(Refusal, clockIs_ofAReaderWithoutMemoryLeavesItReading) {
  const auto reader = Hardware::chipReaderFactory(activity, request, clock, 1, 1);
  reader->chipMemoryEnq(
      Hardware::chipMemoryFactory("region", Hardware::ChipAddress(0x1000), 4, 4, 4, nullptr));
  request->chipMemoryIs(reader->chipMemoryDeq());
  request->stateIs(Hardware::ChipReadRequest::start_);
  ASSERT_EQ(activity->wakeTime(), 0.0);
  {
    const NoMemoryAfter none(0);
    EXPECT_THROW(reader->clockIs(other), std::bad_alloc);
  }
  EXPECT_EQ(reader->clock(), ClockPtr(clock));
  EXPECT_EQ(activity->wakeTime(), 0.0);
}

}  // namespace
