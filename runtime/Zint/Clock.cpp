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

// Every reading of the clock may call back and drop the notifiee, which is held. It comes first:
// what follows sees what it has changed, and every step that may throw is taken before anything
// changes.

Clock::NotifieeConst::NotifieeConst(const Ptr<ActivityConfig>& activity,
                                    const Ptr<const Clock>& clock, bool active)
    : Entity::NotifieeConst(activity, clock, active),
      served_(serve(activity.ptr(), clock.ptr())),
      wakeUp_(this) {}

Clock::NotifieeConst::~NotifieeConst() = default;

void Clock::NotifieeConst::timeMinIs(Seconds timeMin) {
  if (timeMin != timeMin) throwRangeException("a wake-up time must be a number");
  const Ptr<const NotifieeConst> self(this);
  const bool isArmed = timeMin != never;
  const bool isNext = isArmed && hasNotificationActive() && isNextTurn(timeMin);
  if (isArmed && notifier() == nullptr) throwRangeException("a wake-up needs a clock");
  if (isArmed && hasNotificationActive()) served_->reserve();
  timeMin_ = timeMin;
  isArmed_ = isArmed;
  updateWakeUp(isNext);
}

// Whether a wake-up for `timeMin` would be delivered by the next turn; false without a clock.
bool Clock::NotifieeConst::isNextTurn(Seconds timeMin) const {
  return served_ != nullptr && served_->isNext(timeMin);
}

// REQUIRES: room for a wake-up that is armed and active.
void Clock::NotifieeConst::updateWakeUp(bool isNext) {
  if (served_ == nullptr) return;
  if (isArmed_ && hasNotificationActive()) {
    served_->arm(wakeUp_, timeMin_, isNext);
  } else {
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

// A wake-up belongs to the clock that it was set on.
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
  const Ptr<const NotifieeConst> self(this);
  const bool isNext = active && isArmed_ && isNextTurn(timeMin_);
  if (active && isArmed_) served_->reserve();
  Entity::NotifieeConst::hasNotificationActiveIs(active);
  updateWakeUp(isNext);
}

void Clock::NotifieeConst::zeroReferencesIs(bool zero) {
  if (served_ != nullptr) served_->disarm(wakeUp_);
  Entity::NotifieeConst::zeroReferencesIs(zero);
}

void Clock::NotifieeConst::zintFwkActivityIs(const Ptr<ActivityConfig>& activity) {
  if (activity == zintFwkActivity()) return;
  const Ptr<const NotifieeConst> self(this);
  const Ptr<ActivityConfig> old = zintFwkActivity(), next = activity;  // outlive what they serve
  const bool isNext = isArmed_ && hasNotificationActive() && isNextTurn(timeMin_);
  ServedClock::Share served = serve(next.ptr(), notifier());
  if (served != nullptr && isArmed_ && hasNotificationActive()) served->reserve();
  Entity::NotifieeConst::zintFwkActivityIs(next);
  wakeUp_.leaveQueue();
  served_ = std::move(served);  // sets the old activity's timer anew
  updateWakeUp(isNext);
}

void Clock::NotifieeConst::zintDoZombieReactors(bool zombie) {
  Entity::NotifieeConst::zintDoZombieReactors(zombie);
  if (served_ != nullptr) served_->reconsider();
}

}  // namespace Zint
