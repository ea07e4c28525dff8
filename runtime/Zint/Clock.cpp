#include <Zint/Activity.h>
#include <Zint/Clock.h>
#include <Zint/Type.h>
#include <ctime>

namespace Zint {
namespace {

Seconds monotonicTime() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<Seconds>(time.tv_sec) + static_cast<Seconds>(time.tv_nsec) * 1e-9;
}

}  // namespace

Clock::~Clock() = default;
Clock::NotifieeConst::~NotifieeConst() = default;

const Type* Clock::fwkType() const { return &clockType; }

void Clock::timeMoved() const {
  for (ActivityConfig* activity : activities_) activity->wakeUpdated();
}

Seconds MonotonicClock::timeRead() const { return monotonicTime(); }

void ManualClock::timeIs(Seconds time) {
  if (!(time >= time_)) throwRangeException("a clock's time does not go back");
  time_ = time;
  timeMoved();
}

void ManualClock::timeAdvancedTo(Seconds time) const {
  if (time > time_) time_ = time;
}

ValidPtr<MonotonicClock> monotonicClockFactory(Name name) {
  return makePtr<MonotonicClock>(std::move(name));
}

ValidPtr<ManualClock> manualClockFactory(Name name) {
  return makePtr<ManualClock>(std::move(name));
}

Seconds now() {
  const Clock* clock = ActivityConfig::threadClock();
  return clock == nullptr ? monotonicTime() : clock->time();
}

Clock::NotifieeConst::NotifieeConst(const Ptr<ActivityConfig>& activity,
                                    const Ptr<const Clock>& clock, bool active)
    : Entity::NotifieeConst(activity, clock, active) {}

void Clock::NotifieeConst::timeMinIs(Seconds timeMin) {
  ActivityConfig* activity = zintFwkActivity().ptr();
  if (timeMin != timeMin) throwRangeException("a wake-up time must be a number");
  if (timeMin != never && (activity == nullptr || activity->clock() != notifier())) {
    throwRangeException("a wake-up needs an activity that runs on its clock");
  }
  if (activity != nullptr) activity->alarmDel(this);
  timeMin_ = timeMin;
  armed_ = timeMin != never;
  if (armed_ && hasNotificationActive()) activity->alarmIs(this);
}

void Clock::NotifieeConst::fire() {
  armed_ = false;
  guarded(0, [this] { onTime(); });
}

void Clock::NotifieeConst::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  if (zintFwkActivity() != nullptr) {
    if (!active) zintFwkActivity()->alarmDel(this);
    if (active && armed_) zintFwkActivity()->alarmIs(this);
  }
  Entity::NotifieeConst::hasNotificationActiveIs(active);
}

void Clock::NotifieeConst::zeroReferencesIs(bool zero) {
  if (zintFwkActivity() != nullptr) zintFwkActivity()->alarmDel(this);
  Entity::NotifieeConst::zeroReferencesIs(zero);
}

void Clock::NotifieeConst::zintFwkActivityIs(const Ptr<ActivityConfig>& activity) {
  if (activity == zintFwkActivity()) return;
  const bool queued = armed_ && hasNotificationActive();
  if (queued && (activity == nullptr || activity->clock() != notifier())) {
    throwRangeException("a wake-up needs an activity that runs on its clock");
  }
  if (zintFwkActivity() != nullptr) zintFwkActivity()->alarmDel(this);
  Entity::NotifieeConst::zintFwkActivityIs(activity);
  if (queued) activity->alarmIs(this);
}

}  // namespace Zint
