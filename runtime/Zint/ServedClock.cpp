#include <Zint/ServedClock.h>

#include <Zint/Activity.h>
#include <algorithm>
#include <typeinfo>

namespace Zint {
namespace {

// Whether a parked wake-up may be delivered again.
bool isUnmarked(const WakeUp* wakeUp) { return !wakeUp->notifiee()->zintMarkedForDeletion(); }

}  // namespace

Seconds SystemTime::read() {
  if (!std::exchange(isKnown_, true)) time_ = MonotonicClock::systemTime();
  return time_;
}

ServedClock::ServedClock(ActivityConfig& activity, const Clock& clock)
    : activity_(activity), clock_(&clock), isSystemClock_(typeid(clock) == typeid(MonotonicClock)) {
  clock_->servedAdd(this);
}

ServedClock::~ServedClock() {
  if (isInTurn_) clock_->turnEnd();
  if (clock_ != nullptr) clock_->servedDel(this);
}

ServedClock::Share ServedClock::share() {
  ++shares_;
  return Share(this);
}

void ServedClock::release() {
  --shares_;
  activity_.dropUnserved();
}

Seconds ServedClock::clockTime() const {
  const Ptr<const Clock> clock(clock_);
  return clock->time();
}

bool ServedClock::isNext(Seconds due) const {
  if (due == 0.0 || clock_ == nullptr) return due == 0.0;
  // In a turn the system's clock is not read: what it has reached by now may as well wait for it,
  // because it never goes back.
  return due <= (isSystemClock_ && isInTurn_ ? time_ : clockTime());
}

void ServedClock::reserve() {
  const std::size_t size = waiting_.size() + next_.size() + turn_.size() + parked_.size() + 1;
  for (WakeQueue* queue : {&waiting_, &next_, &turn_, &parked_}) queue->reserve(size);
}

void ServedClock::arm(WakeUp& wakeUp, Seconds due, bool isNext) {
  if (clock_ == nullptr) return;
  wakeUp.leaveQueue();
  (isNext ? next_ : waiting_).add(wakeUp, due, activity_.countArming());
  activity_.updateTimer();
}

void ServedClock::disarm(WakeUp& wakeUp) {
  if (!wakeUp.isQueued()) return;
  wakeUp.leaveQueue();
  activity_.updateTimer();
}

void ServedClock::reconsider() {
  if (!parked_.isEmpty()) activity_.updateTimer();
}

void ServedClock::onTimeMoved() { activity_.resetTimer(*this); }

void ServedClock::onClockDestroyed() {
  clock_ = nullptr;
  isInTurn_ = false;
  for (WakeQueue* queue : {&waiting_, &next_, &turn_, &parked_}) queue->clear();
}

void ServedClock::readTime(SystemTime& systemTime) {
  if (clock_ == nullptr) return;
  if (isSystemClock_) {
    time_ = systemTime.read();
  } else {
    time_ = clockTime();
    systemTime.forget();  // the reading may have taken long
  }
}

void ServedClock::beginTurn() {
  if (clock_ == nullptr) return;
  clock_->turnBegin(time_);
  isInTurn_ = true;
  while (!next_.isEmpty()) turn_.take(*next_.earliest());
  while (!waiting_.isEmpty() && waitsFor() <= time_) turn_.take(*waiting_.earliest());
  for (std::size_t i = 0; i < parked_.size();) {
    WakeUp* wakeUp = parked_.wakeUps()[i];
    if (!isUnmarked(wakeUp)) {
      ++i;
      continue;
    }
    turn_.take(*wakeUp);
    i = 0;  // the others have moved
  }
}

void ServedClock::endTurn() {
  if (!std::exchange(isInTurn_, false)) return;
  clock_->turnEnd();
  // Left over only if the thread was cancelled in a handler.
  while (!turn_.isEmpty()) next_.take(*turn_.earliest());
}

Seconds ServedClock::lateness(const WakeUp& wakeUp) const {
  return wakeUp.due() == 0.0 ? never : time_ - wakeUp.due();
}

bool ServedClock::hasDue() const {
  return !next_.isEmpty() || !turn_.isEmpty() ||
         std::any_of(parked_.wakeUps().begin(), parked_.wakeUps().end(), isUnmarked);
}

Seconds ServedClock::wakeTime() const {
  Seconds earliest = waitsFor();
  if (!hasDue()) return earliest;
  earliest = std::min(earliest, clockTime());
  for (const WakeQueue* queue : {&next_, &turn_}) {
    if (!queue->isEmpty()) earliest = std::min(earliest, queue->earliest()->due());
  }
  return earliest;
}

Seconds ServedClock::delay(SystemTime& systemTime) const {
  if (hasDue()) return 0;
  if (waiting_.isEmpty()) return never;
  if (isSystemClock_) return waitsFor() - systemTime.read();
  const bool isManual = clock_->isManual();
  const Seconds delay = waitsFor() - clockTime();
  systemTime.forget();  // as above
  // A clock that is moved by hand reports when it has been; no real time brings it there.
  return delay > 0 && isManual ? never : delay;
}

}  // namespace Zint
