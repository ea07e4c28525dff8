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

// One whose constructor threw after arming is still queued.
Clock::NotifieeConst::~NotifieeConst() {
  if (zintFwkActivity() != nullptr) zintFwkActivity()->alarmDel(this);
}

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
  if (time <= time_) return;
  time_ = time;
  timeMoved();
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

Seconds turnTime() { return now(); }

Clock::NotifieeConst::NotifieeConst(const Ptr<ActivityConfig>& activity,
                                    const Ptr<const Clock>& clock, bool active)
    : Entity::NotifieeConst(activity, clock, active) {}

void Clock::NotifieeConst::timeMinIs(Seconds timeMin) {
  ActivityConfig* activity = zintFwkActivity().ptr();
  if (timeMin != timeMin) throwRangeException("a wake-up time must be a number");
  if (timeMin != never && (activity == nullptr || activity->clock() != notifier())) {
    throwRangeException("a wake-up needs an activity that runs on its clock");
  }
  const bool queued = timeMin != never && hasNotificationActive();
  if (queued) activity->alarmRoom();  // may lack memory: nothing has changed so far
  if (activity != nullptr) activity->alarmDel(this);
  timeMin_ = timeMin;
  armed_ = timeMin != never;
  if (queued) activity->alarmIs(this);
}

// A wake-up belongs to the clock that it was set on.
void Clock::NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier.ptr() != this->notifier() && armed_) timeMinIs(never);
  Entity::NotifieeConst::notifierIs(notifier);
}

void Clock::NotifieeConst::fire() {
  armed_ = false;
  guarded(0, [this] { onTime(); });
}

void Clock::NotifieeConst::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  if (zintFwkActivity() != nullptr) {
    if (!active) zintFwkActivity()->alarmDel(this);
    if (active && armed_) zintFwkActivity()->alarmRoom();
  }
  Entity::NotifieeConst::hasNotificationActiveIs(active);
  if (active && armed_) zintFwkActivity()->alarmIs(this);
}

void Clock::NotifieeConst::zeroReferencesIs(bool zero) {
  if (zintFwkActivity() != nullptr) zintFwkActivity()->alarmDel(this);
  Entity::NotifieeConst::zeroReferencesIs(zero);
}

void Clock::NotifieeConst::zintFwkActivityIs(const Ptr<ActivityConfig>& activity) {
  if (activity == zintFwkActivity()) return;
  const bool queued = armed_ && hasNotificationActive();
  // An armed one that is switched off is held to the same: it may be switched on later.
  if (armed_ && (activity == nullptr || activity->clock() != notifier())) {
    throwRangeException("a wake-up needs an activity that runs on its clock");
  }
  if (queued) activity->alarmRoom();  // may lack memory: nothing has changed so far
  if (zintFwkActivity() != nullptr) zintFwkActivity()->alarmDel(this);
  Entity::NotifieeConst::zintFwkActivityIs(activity);
  if (queued) activity->alarmIs(this);
}

}  // namespace Zint
