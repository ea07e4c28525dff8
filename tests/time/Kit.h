// Clocks that a test sets, notifiees that record, and what the loop asks of the system.
#pragma once

#include <Zint/Activity.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace Time {

using Zint::makePtr;
using Zint::never;
using Zint::Ptr;
using Zint::Seconds;
using ClockPtr = Ptr<const Zint::Clock>;

// Not moved by hand, as far as an activity knows: real time passes on it. Here the test says how
// much, in either direction.
class SettableClock : public Zint::Clock {
 public:
  explicit SettableClock(Seconds time) : Clock("settable"), time_(time) {}
  Seconds timeRead() const override {
    if (onRead) onRead();
    return time_;
  }
  void passTo(Seconds time) { time_ = time; }
  void jumpTo(Seconds time) {
    time_ = time;
    announceTime();
  }
  std::function<void()> onRead;

 private:
  Seconds time_;
};

// Records what now() says when it is woken, and its letter in a log.
class Sleeper : public Zint::Clock::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onTime() override {
    woken.push_back(Zint::now());
    if (log != nullptr) *log += letter;
    if (reaction) reaction();
  }
  std::vector<Seconds> woken;
  std::function<void()> reaction;
  std::string* log = nullptr;
  char letter = '?';

 protected:
  ~Sleeper() override = default;
};

inline Ptr<Sleeper> sleeper(const Ptr<Zint::ActivityConfig>& activity, const ClockPtr& clock) {
  return makePtr<Sleeper>(activity, clock);
}

// Whether the descriptor is readable now.
bool isReadable(Zint::ActivityConfig& activity);
// Waits until it is; the limit only keeps a broken descriptor from hanging the test.
bool becomesReadable(Zint::ActivityConfig& activity);

// How often this program has set a timer.
unsigned timerCalls();

// While one lives, the system's monotonic time is the one that the test sets, and what the loop
// asks of the system is recorded. A poll that waits moves the time on to the timer's deadline.
class SimulatedSystem {
 public:
  SimulatedSystem();
  ~SimulatedSystem();
  SimulatedSystem(const SimulatedSystem&) = delete;
  SimulatedSystem& operator=(const SimulatedSystem&) = delete;

  void pass(S64 nanoseconds) { time += nanoseconds; }

  S64 time = 1'000'000'000;  // nanoseconds
  S64 deadline = 0;          // of the timer that was set last
  std::vector<S64> polls;    // the times of those that did not wait
  std::vector<S64> waits;    // the times at which the others began
  std::vector<S64> timers;   // the times at which a timer was set
};

// How many blocks this program has taken from the heap.
unsigned allocations();
// Lets the allocations after the next `count` ones fail, until it is destroyed.
class NoMemoryAfter {
 public:
  explicit NoMemoryAfter(unsigned count);
  ~NoMemoryAfter();
};

}  // namespace Time
