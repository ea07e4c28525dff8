#include <Zint/Clock.h>

#include <Zint/Activity.h>
#include <Zint/Type.h>
#include <ctime>

namespace Zint {
namespace {

// The activity's service of the clock; null without a clock.
ServedClock::Share serve(ActivityConfig* activity, const PtrInterface* clock) {
  if (clock == nullptr) return nullptr;
  if (activity == nullptr) throwRangeException("a clock needs an activity that serves it");
  return activity->serve(static_cast<const Clock&>(*clock));
}

}  // namespace

// --- Clocks ---

Clock::~Clock() {
  while (!served_.empty()) {
    served_.back()->onClockDestroyed();
    served_.pop_back();
  }
}

const Type* Clock::fwkType() const { return &clockType; }

void Clock::announceTime() const {
  for (std::size_t i = 0; i < served_.size(); ++i) served_[i]->onTimeMoved();
}

Seconds MonotonicClock::systemTime() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<Seconds>(time.tv_sec) + static_cast<Seconds>(time.tv_nsec) * 1e-9;
}

Seconds MonotonicClock::timeRead() const { return systemTime(); }

void ManualClock::timeIs(Seconds time) {
  if (!(time >= time_)) throwRangeException("a clock's time does not go back");
  advanceTimeTo(time);
}

void ManualClock::advanceTimeTo(Seconds time) const {
  if (time <= time_) return;
  time_ = time;
  announceTime();
}

ValidPtr<MonotonicClock> monotonicClockFactory(Name name) {
  return makePtr<MonotonicClock>(std::move(name));
}

ValidPtr<ManualClock> manualClockFactory(Name name) {
  return makePtr<ManualClock>(std::move(name));
}

Seconds now() {
  const Clock* clock = ActivityConfig::threadClock();
  return clock == nullptr ? MonotonicClock::systemTime() : clock->time();
}

Seconds turnTime() {
  const Clock* clock = ActivityConfig::threadClock();
  return clock == nullptr ? MonotonicClock::systemTime() : clock->turnTime();
}

// --- Notifiees ---

Clock::NotifieeConst::NotifieeConst(const Ptr<ActivityConfig>& activity,
                                    const Ptr<const Clock>& clock, bool active)
    : Entity::NotifieeConst(activity, clock, active),
      served_(serve(activity.ptr(), clock.ptr())),
      wakeUp_(this) {}

Clock::NotifieeConst::~NotifieeConst() = default;

void Clock::NotifieeConst::timeMinIs(Seconds timeMin) {
  if (timeMin != timeMin) throwRangeException("a wake-up time must be a number");
  const bool isArmed = timeMin != never;
  if (isArmed && notifier() == nullptr) throwRangeException("a wake-up needs a clock");
  const bool isQueued = isArmed && hasNotificationActive();
  const bool isNext = isQueued && served_->prepare(timeMin);  // may throw: nothing has changed
  timeMin_ = timeMin;
  isArmed_ = isArmed;
  if (isQueued) {
    served_->arm(wakeUp_, timeMin, isNext);
  } else if (served_ != nullptr) {
    served_->disarm(wakeUp_);
  }
}

bool Clock::NotifieeConst::deliverWakeUp() {
  if (zintMarkedForDeletion()) return false;
  isArmed_ = false;
  served_->disarm(wakeUp_);
  runGuarded(0, [this] { onTime(); });
  return true;
}

// A wake-up belongs to the clock that it was set on. Every step that may throw is taken before
// anything changes.
void Clock::NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier.ptr() == Zint::NotifieeConst::notifier()) return;
  const Ptr<const PtrInterface> old(Zint::NotifieeConst::notifier());
  ServedClock::Share served = serve(zintFwkActivity().ptr(), notifier.ptr());
  Entity::NotifieeConst::notifierIs(notifier);
  if (std::exchange(isArmed_, false)) timeMin_ = never;
  wakeUp_.leaveQueue();
  served_ = std::move(served);  // sets the timer anew
}

void Clock::NotifieeConst::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  const bool isQueued = active && isArmed_;
  const bool isNext = isQueued && served_->prepare(timeMin_);  // may throw: nothing has changed
  Entity::NotifieeConst::hasNotificationActiveIs(active);
  if (isQueued) {
    served_->arm(wakeUp_, timeMin_, isNext);
  } else if (served_ != nullptr) {
    served_->disarm(wakeUp_);
  }
}

void Clock::NotifieeConst::zeroReferencesIs(bool zero) {
  if (served_ != nullptr) served_->disarm(wakeUp_);
  Entity::NotifieeConst::zeroReferencesIs(zero);
}

void Clock::NotifieeConst::zintFwkActivityIs(const Ptr<ActivityConfig>& activity) {
  if (activity == zintFwkActivity()) return;
  const Ptr<ActivityConfig> old = zintFwkActivity();  // outlives what it serves
  ServedClock::Share served = serve(activity.ptr(), notifier());
  const bool isQueued = served != nullptr && isArmed_ && hasNotificationActive();
  const bool isNext = isQueued && served->prepare(timeMin_);  // may throw: nothing has changed
  Entity::NotifieeConst::zintFwkActivityIs(activity);
  wakeUp_.leaveQueue();
  served_ = std::move(served);  // sets the old activity's timer anew
  if (isQueued) served_->arm(wakeUp_, timeMin_, isNext);
}

void Clock::NotifieeConst::zintDoZombieReactors(bool zombie) {
  Entity::NotifieeConst::zintDoZombieReactors(zombie);
  if (served_ != nullptr) served_->reconsider();
}

}  // namespace Zint
