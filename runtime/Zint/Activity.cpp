#include <Zint/Activity.h>

#include <Zint/CycleTime.h>
#include <Zint/PostQueue.h>
#include <Zint/Type.h>
#include <cpuid.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <x86intrin.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <optional>
#include <system_error>
#include <typeinfo>

namespace Zint {
namespace {

// Raw thread_local pointers, trivially destructible: static destructors may still trace and destroy
// activities. Never dangling. initial-exec: no call to __tls_get_addr, also in a library that is
// loaded later.
//
// The clock that is served, or of the turn that runs; null outside of turns.
[[gnu::tls_model("initial-exec")]] thread_local const Clock* turnClock_ = nullptr;
// The youngest; each knows the one made before it.
[[gnu::tls_model("initial-exec")]] thread_local ActivityConfig* lastActivity_ = nullptr;

// The processor's cycle counter, where it runs at a constant rate.
struct Processor {
  static U64 cycles() {
    static const bool isConstant = [] {
      U32 a = 0, b = 0, c = 0, d = 0;
      return __get_cpuid(0x80000007, &a, &b, &c, &d) != 0 && (d & 1u << 8) != 0;
    }();
    return isConstant ? __rdtsc() : 0;
  }
  static Seconds time() { return MonotonicClock::systemTime(); }
};

[[gnu::tls_model("initial-exec")]] constinit thread_local CycleTime<Processor> cycleTime;

// Makes the descriptor readable at a time of the system's monotonic clock; at once for a time that
// is past, never for `never`.
void setTimer(int descriptor, Seconds deadline) {
  itimerspec timer{};
  if (deadline <= 0) {
    timer.it_value.tv_nsec = 1;
  } else if (deadline != never) {
    const Seconds time = std::min(deadline, 2e9);  // what 32 bits of seconds hold
    const Seconds whole = std::floor(time);
    timer.it_value.tv_sec = static_cast<time_t>(whole);
    // Rounded up: a loop that wakes a moment too early would spin.
    timer.it_value.tv_nsec = std::min(999'999'999L, std::lround((time - whole) * 1e9) + 1);
  }
  timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &timer, nullptr);
}

}  // namespace

// While it lives, no service ends: reading a clock calls out, and the next one is read after it.
// A new service may begin, so walk by position.
class ActivityConfig::Walk {
 public:
  explicit Walk(const ActivityConfig& activity) : activity_(activity) { ++activity_.walks_; }
  ~Walk() { --activity_.walks_; }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

 private:
  const ActivityConfig& activity_;
};

// One turn: holds the turn time of all clocks that are served, and sets the clock that now() reads.
class ActivityConfig::Turn {
 public:
  Turn(ActivityConfig& activity, SystemTime& systemTime)
      : activity_(&activity), outer_(turnClock_) {
    ZINT_ASSERT("Zint/Activity", !activity_->isTurning_);
    auto& served = activity_->served_;
    // A clock may throw: then nothing has changed.
    const Walk walk(*activity_);
    for (std::size_t i = 0; i < served.size(); ++i) served[i]->readTime(systemTime);
    activity_->isTurning_ = true;
    activity_->delivered_ = 0;
    for (const auto& clock : served) clock->beginTurn();
    turnClock_ = activity_->clock();
  }
  ~Turn() {
    turnClock_ = outer_;
    for (const auto& served : activity_->served_) served->endTurn();
    activity_->isTurning_ = false;
    activity_->eraseUnserved();
    // For what was armed and disarmed during the turn. A run does it before it waits, and at its
    // end.
    if (!activity_->isRunning_) activity_->updateTimer();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  // The clock whose wake-up is delivered next; null when there is none.
  ServedClock* next() const {
    ServedClock* next = nullptr;
    for (const auto& served : activity_->served_) {
      if (served->earliestOfTurn() == nullptr) continue;
      if (next == nullptr || isBefore(*served, *next)) next = served.get();
    }
    return next;
  }

  void deliver(ServedClock& served) {
    WakeUp& wakeUp = *served.earliestOfTurn();
    // Held: the handler may drop both.
    const Ptr<const Clock> clock(served.clock());
    const Ptr<Clock::NotifieeConst> notifiee(static_cast<Clock::NotifieeConst*>(wakeUp.notifiee()));
    turnClock_ = clock.ptr();
    if (notifiee->deliverWakeUp()) {
      ++activity_->delivered_;
    } else {
      served.park(wakeUp);
    }
    turnClock_ = activity_->clock();
  }

 private:
  static bool isBefore(const ServedClock& left, const ServedClock& right) {
    const WakeUp& a = *left.earliestOfTurn();
    const WakeUp& b = *right.earliestOfTurn();
    const Seconds lateness = left.lateness(a), other = right.lateness(b);
    return lateness != other ? lateness > other : a.order() < b.order();
  }

  Ptr<ActivityConfig> activity_;  // a handler may drop the last other reference
  const Clock* outer_;
};

ActivityConfig::ActivityConfig(Name name, const ValidPtr<const Clock>& clock)
    : Entity(std::move(name)), clock_(clock) {
  served_.push_back(std::make_unique<ServedClock>(*this, *clock_));
  older_ = std::exchange(lastActivity_, this);
}

ActivityConfig::~ActivityConfig() {
  ActivityConfig** link = &lastActivity_;
  while (*link != nullptr && *link != this) link = &(*link)->older_;
  if (*link == this) *link = older_;
  if (posts_ != nullptr) {
    posts_->end();
  } else if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

const Type* ActivityConfig::fwkType() const { return &activityType; }

const Clock* ActivityConfig::threadClock() {
  if (turnClock_ != nullptr) return turnClock_;
  return lastActivity_ == nullptr ? nullptr : lastActivity_->clock();
}

// Here because it is called for each record: it reads the thread's clock without a call.
Seconds recordTime() {
  const Clock* clock = turnClock_;
  if (clock == nullptr && lastActivity_ != nullptr) clock = lastActivity_->clock();
  if (clock == nullptr) return cycleTime.read();
  if (clock->isInTurn() || typeid(*clock) != typeid(MonotonicClock)) return clock->turnTime();
  return cycleTime.read();
}

// --- Clocks ---

ServedClock::Share ActivityConfig::serve(const Clock& clock) {
  for (const auto& served : served_) {
    if (served->clock() == &clock) return served->share();
  }
  served_.push_back(std::make_unique<ServedClock>(*this, clock));
  return served_.back()->share();
}

void ActivityConfig::dropUnserved() {
  if (isTurning_ || walks_ > 0) return;  // the end of the turn does it, or the next one to leave
  eraseUnserved();
  updateTimer();
}

void ActivityConfig::eraseUnserved() {
  if (walks_ > 0) return;
  for (std::size_t i = served_.size(); --i > 0;) {
    if (served_[i]->isShared()) continue;
    if (timer_.source == served_[i].get())
      timer_.due = std::nan("");  // another may get its address
    served_.erase(served_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

// --- Turns ---

U32 ActivityConfig::turn() {
  const Ptr<ActivityConfig> self(this);
  SystemTime systemTime;
  runTurn(systemTime);
  return delivered_;
}

// Returns the own clock's time at which the turn began.
Seconds ActivityConfig::runTurn(SystemTime& systemTime) {
  Turn turn(*this, systemTime);
  const Seconds time = own().turnTime();
  if (hasPosts()) [[unlikely]]
    delivered_ += posts_->run();
  while (ServedClock* next = turn.next()) turn.deliver(*next);
  return time;
}

void ActivityConfig::run() { runUntil(never); }

void ActivityConfig::runUntil(Seconds time) {
  ZINT_ASSERT("Zint/Activity", !clock_->isInTurn());  // its own turns would be inside that one
  const Ptr<ActivityConfig> self(this);
  struct Limit {
    ActivityConfig& activity;
    ~Limit() {
      activity.limit_ = never;
      activity.isRunning_ = false;
      activity.updateTimer();
    }
  } limit{*this};
  limit_ = time;
  isRunning_ = true;
  std::optional<U64> posted;  // when `time` was reached
  for (SystemTime systemTime;;) {
    if (takeStop()) return;
    const Seconds began = runTurn(systemTime);
    // In this order: a stop() that came during the last turn has been obeyed.
    if (takeStop()) return;
    if (began >= time) {
      if (!hasPosts()) return;
      if (!posted) posted = posts_->claimed();
      if (!clock_->isManual() && posts_->taken() >= *posted) return;
    }
    systemTime.forget();
    if (!wait(time, systemTime)) return;
  }
}

// Whether stop() was called since the last time. Reads before it exchanges: most often it was not.
bool ActivityConfig::takeStop() { return isStopped_ && isStopped_.exchange(false); }

// Waits for the next wake-up, `until` or stop(), or advances a manual clock; false when that would
// be for ever.
bool ActivityConfig::wait(Seconds until, SystemTime& systemTime) {
  if (clock_->isManual()) {
    const Seconds delay = earliest(systemTime).delay;
    if (delay <= 0) return true;
    if (const Seconds next = std::min(own().wakeTime(), until); next != never) {
      clock_->advanceTimeTo(next);
      return true;
    }
    if (delay == never) return false;
  }
  const Timer wanted = earliestOrDue(systemTime);
  if (wanted.delay <= 0 && systemTime.read() - polled_ < pollInterval) return true;
  makeDescriptor();
  pollfd poll{descriptor_, POLLIN, 0};
  if (wanted.delay <= 0) {
    polled_ = systemTime.read();
    ::poll(&poll, 1, 0);
  } else {
    setTimerTo(wanted);
    // A stop() that came before the timer was set has set its flag by now; a later one sets the
    // timer.
    while (!isStopped_ && ::poll(&poll, 1, -1) < 0 && errno == EINTR) {
    }
  }
  systemTime.forget();
  return true;
}

void ActivityConfig::stop() {
  isStopped_ = true;
  if (const int descriptor = descriptor_; descriptor >= 0) {
    setTimer(descriptor, 0);
    isTimerTaken_ = true;
  }
}

// --- Functions from other threads ---

Poster ActivityConfig::poster(U32 capacity) {
  if (capacity == 0 || capacity > Poster::maxCapacity)
    throwRangeException("the capacity of a poster is 1 to 65536");
  if (posts_ == nullptr) {
    const int descriptor = ActivityConfig::descriptor();
    posts_ = std::make_shared<PostQueue>(capacity, descriptor);
  }
  return Poster(posts_);
}

[[gnu::noinline]] bool ActivityConfig::isPostPending() const { return posts_->isPending(); }

// --- The earliest wake-up ---

Seconds ActivityConfig::wakeTime() const {
  const Walk walk(*this);
  SystemTime systemTime;
  Seconds earliest = own().wakeTime();
  if (hasPosts()) earliest = std::min(earliest, clock_->time());
  for (std::size_t i = 1; i < served_.size(); ++i) {
    const Seconds delay = served_[i]->delay(systemTime);
    if (delay != never) earliest = std::min(earliest, clock_->time() + std::max(delay, 0.0));
  }
  return earliest;
}

int ActivityConfig::descriptor() {
  if (makeDescriptor()) updateTimer();
  return descriptor_;
}

// False: it is there already.
bool ActivityConfig::makeDescriptor() {
  if (descriptor_ >= 0) return false;
  const int made = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  if (made < 0) throw std::system_error(errno, std::generic_category(), "timerfd_create");
  descriptor_ = made;
  return true;
}

ActivityConfig::Timer ActivityConfig::earliest(SystemTime& systemTime) const {
  const Walk walk(*this);
  Timer earliest;
  if (hasPosts()) [[unlikely]] {
    earliest = {posts_.get(), 0, 0};
    return earliest;
  }
  for (std::size_t i = 0; i < served_.size(); ++i) {
    const Seconds delay = served_[i]->delay(systemTime);
    if (delay < earliest.delay) earliest = {served_[i].get(), served_[i]->waitsFor(), delay};
  }
  if (limit_ != never && !clock_->isManual()) {
    const Seconds delay = limit_ - clock_->time();
    if (delay < earliest.delay) earliest = {&limit_, limit_, delay};
  }
  return earliest;
}

// Throws nothing: destructors call it. A clock that cannot be read counts as due, so that the next
// turn reads it again and throws to whoever runs that turn.
ActivityConfig::Timer ActivityConfig::earliestOrDue(SystemTime& systemTime) const {
  try {
    return earliest(systemTime);
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return {.source = this, .delay = 0};
  }
}

void ActivityConfig::updateTimer() {
  if (descriptor_ < 0 || isTurning_) return;
  SystemTime systemTime;
  setTimerTo(earliestOrDue(systemTime));
}

void ActivityConfig::setTimerTo(Timer wanted) {
  const Seconds time = MonotonicClock::systemTime();
  // A timer that has expired keeps the descriptor readable until it is set again.
  const bool isExpired = timer_.deadline <= time;
  const bool isDue = wanted.delay <= 0;
  wanted.deadline = isDue ? 0 : time + wanted.delay;
  bool isTaken = isTimerTaken_.exchange(false);
  if (posts_ != nullptr && posts_->takeTimer()) [[unlikely]]
    isTaken = true;
  if (!isTaken) {
    if (isDue && isExpired) return;
    if (wanted.source == nullptr && timer_.source == nullptr) return;
    // The deadline of one wake-up comes out a little different each time. A clock that runs faster
    // than the system's brings it forward by more than that.
    constexpr Seconds tolerance = 1e-4;
    if (!isDue && !isExpired && wanted.source == timer_.source && wanted.due == timer_.due &&
        wanted.deadline > timer_.deadline - tolerance) {
      return;
    }
  }
  timer_ = wanted;
  setTimer(descriptor_, timer_.deadline);
  if (!isDue && hasPosts()) [[unlikely]]
    setTimerForPosts();
}

// A function was posted after the earliest wake-up had been worked out, and its sender's timer has
// been set over.
[[gnu::noinline]] void ActivityConfig::setTimerForPosts() {
  timer_ = {posts_.get(), 0, 0, 0};
  setTimer(descriptor_, timer_.deadline);
}

void ActivityConfig::resetTimer(const ServedClock& served) {
  if (timer_.source == &served || timer_.source == &limit_)
    timer_.due = std::nan("");  // equal to no other
  updateTimer();
}

ValidPtr<ActivityConfig> activityFactory(Name name, const ValidPtr<const Clock>& clock) {
  return makePtr<ActivityConfig>(std::move(name), clock);
}

}  // namespace Zint
