// The system's monotonic time, followed with the processor's cycle counter: reading that takes a
// fraction of what the system's clock takes.
//
// The clock is read once in a millisecond at least, and sets the count right. The result is the
// clock's time to within 2 us and never goes back. While the counter does not run at a constant
// rate the clock is read each time.
#pragma once

#include <Zint/Types.h>

namespace Zint {

// Source: static U64 cycles() counts up, static Seconds time() is the clock. One for each thread,
// which needs no constructor to run.
template <class Source>
class CycleTime {
 public:
  Seconds read() {
    const U64 cycles = Source::cycles() - base_;
    if (cycles >= reach_) [[unlikely]]
      return readClock();
    return later(time_ + static_cast<S32>(cycles) * rate_);
  }

 private:
  static constexpr Seconds interval = 1e-3;  // the shortest that a rate is taken from
  static constexpr Seconds longest = 1;      // the system may sleep in a longer one
  static constexpr Seconds narrow = 1e-6;    // around a reading of the clock
  static constexpr double tolerance = 1e-3;  // between two rates that agree

  [[gnu::cold, gnu::noinline]] Seconds readClock() {
    reach_ = 0;
    const U64 before = Source::cycles();
    const Seconds time = Source::time();
    const U64 width = Source::cycles() - before;
    const U64 middle = before + width / 2;
    const Seconds elapsed = time - time_;
    const auto cycles = static_cast<double>(static_cast<S64>(middle - base_));
    double rate = 0;
    if (hasBase_ && elapsed >= 0 && elapsed <= longest && cycles > 0) {
      if (elapsed < interval) return later(time);
      // A thread that was interrupted between the two readings tries again.
      if (static_cast<double>(width) * elapsed > narrow * cycles) return later(time);
      rate = elapsed / cycles;
      const bool agrees = rate < rate_ * (1 + tolerance) && rate > rate_ * (1 - tolerance);
      if (agrees) reach_ = static_cast<U32>(interval / rate);
    }
    rate_ = rate;
    hasBase_ = true;
    base_ = middle;
    time_ = time;
    return later(time);
  }

  // The count may have been a little ahead of the clock, or that of another processor.
  Seconds later(Seconds time) { return last_ = time > last_ ? time : last_; }

  U64 base_ = 0;     // the count at time_
  U64 reach_ = 0;    // how many cycles after it the count is followed; 0 while the rate is unknown
  double rate_ = 0;  // seconds in a cycle
  Seconds time_ = 0;
  Seconds last_ = 0;  // that was returned
  bool hasBase_ = false;
};

}  // namespace Zint
