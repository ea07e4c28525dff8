#include <Zint/Activity.h>
#include <Zint/Type.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>

namespace Zint {
namespace {

// Plain pointers: they need no destruction, so that static destructors may still trace and end
// activities. Both point to what lives. Two words of each thread's own block, reached without a
// call, also in a library that is loaded later.
[[gnu::tls_model("initial-exec")]] thread_local const Clock* turnClock_ = nullptr;
// The youngest; each knows the one before.
[[gnu::tls_model("initial-exec")]] thread_local ActivityConfig* lastActivity_ = nullptr;

// `delay` seconds from now; 0 for at once, never for not at all.
void timerIs(int descriptor, Seconds delay) {
  itimerspec timer{};
  delay = std::min(delay, delay == never ? never : 1e9);
  if (delay <= 0) {
    timer.it_value.tv_nsec = 1;
  } else if (delay != never) {
    const Seconds whole = std::floor(delay);
    timer.it_value.tv_sec = static_cast<time_t>(whole);
    // Rounded up: a loop that wakes a moment too early would spin.
    timer.it_value.tv_nsec = std::min(999'999'999L, std::lround((delay - whole) * 1e9) + 1);
  }
  timerfd_settime(descriptor, 0, &timer, nullptr);
}

}  // namespace

// Holds the clock still and makes it the thread's for the length of a turn.
class ActivityConfig::Turn {
 public:
  explicit Turn(ActivityConfig& activity) : activity_(&activity), outer_(turnClock_) {
    ZINT_ASSERT("Zint/Activity", !activity_->turning_);
    const Clock& clock = *activity_->clock_;
    if (clock.turns_ == 0) clock.turnTime_ = clock.timeRead();  // may throw: nothing has changed
    ++clock.turns_;
    activity_->turning_ = true;
    turnClock_ = &clock;
  }
  ~Turn() {
    turnClock_ = outer_;
    --activity_->clock_->turns_;
    activity_->turning_ = false;
    activity_->wakeUpdated();  // what was armed and disarmed during the turn
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Ptr<ActivityConfig> activity_;  // a handler may drop the last other reference
  const Clock* outer_;
};

ActivityConfig::ActivityConfig(Name name, const ValidPtr<const Clock>& clock)
    : Entity(std::move(name)), clock_(clock) {
  clock_->activities_.push_back(this);
  before_ = std::exchange(lastActivity_, this);
}

ActivityConfig::~ActivityConfig() {
  std::erase(clock_->activities_, this);
  ActivityConfig** link = &lastActivity_;
  while (*link != nullptr && *link != this) link = &(*link)->before_;
  if (*link == this) *link = before_;
  if (descriptor_ >= 0) close(descriptor_);
}

const Type* ActivityConfig::fwkType() const { return &activityType; }

const Clock* ActivityConfig::threadClock() {
  if (turnClock_ != nullptr) return turnClock_;
  return lastActivity_ == nullptr ? nullptr : lastActivity_->clock();
}

U32 ActivityConfig::turn() {
  const Turn turn(*this);
  const Seconds time = clock_->time();
  while (!heap_.empty() && heap_.front()->timeMin_ <= time) {
    Alarm* alarm = heap_.front();
    remove(0);
    alarm->place_ = due_.size();
    alarm->due_ = true;
    due_.push_back(alarm);
  }
  U32 delivered = 0;
  for (std::size_t i = 0; i < due_.size(); ++i) {
    const Ptr<Alarm> alarm(due_[i]);
    if (alarm == nullptr) continue;
    alarmDel(alarm.ptr());
    alarm->fire();
    ++delivered;
  }
  due_.clear();
  return delivered;
}

void ActivityConfig::run() { runUntil(never); }

void ActivityConfig::runUntil(Seconds time) {
  ZINT_ASSERT("Zint/Activity", clock_->turns_ == 0);  // in a turn, time would stand still for ever
  const Ptr<ActivityConfig> self(this);
  for (;;) {
    if (stopped_.exchange(false)) return wakeUpdated();
    turn();
    // In this order: a stop() that came during the last turn has been obeyed.
    if (stopped_.exchange(false) || clock_->turnTime_ >= time) return wakeUpdated();
    if (!waited(std::min(wakeTime(), time))) return;
  }
}

// Waits until then or until stop(); false when that would be for ever.
bool ActivityConfig::waited(Seconds until) {
  if (clock_->isManual()) {
    if (until == never) return false;
    clock_->timeAdvancedTo(until);
    return true;
  }
  pollfd poll{descriptor(), POLLIN, 0};
  timerIs(poll.fd, until == never ? never : until - clock_->time());
  // A stop() that came before the timer was set has set its flag by now; a later one sets the
  // timer.
  if (!stopped_) {
    while (::poll(&poll, 1, -1) < 0 && errno == EINTR && !stopped_) {
    }
  }
  return true;
}

void ActivityConfig::stop() {
  stopped_ = true;
  if (int descriptor = descriptor_; descriptor >= 0) timerIs(descriptor, 0);
}

Seconds ActivityConfig::wakeTime() const {
  Seconds earliest = heap_.empty() ? never : heap_.front()->timeMin_;
  for (const Alarm* alarm : due_) {
    if (alarm != nullptr) earliest = std::min(earliest, alarm->timeMin_);
  }
  return earliest;
}

int ActivityConfig::descriptor() {
  if (descriptor_ < 0) {
    const int made = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (made < 0) throw std::system_error(errno, std::generic_category(), "timerfd_create");
    descriptor_ = made;
    wakeUpdated();
  }
  return descriptor_;
}

// Keeps the descriptor's timer at the earliest wake-up.
void ActivityConfig::wakeUpdated() {
  if (descriptor_ < 0 || turning_) return;
  const Seconds wake = wakeTime();
  Seconds delay = wake == never ? never : wake - clock_->timeRead();
  // A clock that is moved by hand tells when it has been; until then there is nothing to wait for.
  if (delay > 0 && clock_->isManual()) delay = never;
  timerIs(descriptor_, delay);
}

// Room for one more alarm, and for the next turn: a turn itself allocates nothing.
void ActivityConfig::alarmRoom() {
  if (heap_.size() == heap_.capacity()) heap_.reserve(heap_.size() * 2 + 8);
  due_.reserve(heap_.capacity());
}

void ActivityConfig::alarmIs(Alarm* alarm) {
  alarmRoom();
  alarm->order_ = ++armings_;
  heap_.push_back(alarm);
  rise(heap_.size() - 1);
  wakeUpdated();
}

void ActivityConfig::alarmDel(Alarm* alarm) {
  if (alarm->place_ == Alarm::notQueued) return;
  if (std::exchange(alarm->due_, false)) {
    due_[alarm->place_] = nullptr;
  } else {
    remove(alarm->place_);
  }
  alarm->place_ = Alarm::notQueued;
  wakeUpdated();
}

bool ActivityConfig::before(const Alarm* left, const Alarm* right) {
  if (left->timeMin_ != right->timeMin_) return left->timeMin_ < right->timeMin_;
  return left->order_ < right->order_;
}

void ActivityConfig::put(std::size_t place, Alarm* alarm) {
  heap_[place] = alarm;
  alarm->place_ = place;
}

void ActivityConfig::rise(std::size_t place) {
  Alarm* alarm = heap_[place];
  for (; place > 0; place = (place - 1) / 2) {
    Alarm* parent = heap_[(place - 1) / 2];
    if (!before(alarm, parent)) break;
    put(place, parent);
  }
  put(place, alarm);
}

void ActivityConfig::sink(std::size_t place) {
  Alarm* alarm = heap_[place];
  for (;;) {
    std::size_t child = 2 * place + 1;
    if (child >= heap_.size()) break;
    if (child + 1 < heap_.size() && before(heap_[child + 1], heap_[child])) ++child;
    if (!before(heap_[child], alarm)) break;
    put(place, heap_[child]);
    place = child;
  }
  put(place, alarm);
}

void ActivityConfig::remove(std::size_t place) {
  Alarm* last = heap_.back();
  heap_.pop_back();
  if (place == heap_.size()) return;
  put(place, last);
  rise(place);
  sink(last->place_);
}

ValidPtr<ActivityConfig> activityFactory(Name name, const ValidPtr<const Clock>& clock) {
  return makePtr<ActivityConfig>(std::move(name), clock);
}

}  // namespace Zint
