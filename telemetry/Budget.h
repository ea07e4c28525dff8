// What one turn may take of the thread, by the system's clock.
#pragma once

#include <Zint/Clock.h>

namespace Telemetry {

class Budget {
 public:
  explicit Budget(Zint::Seconds seconds) : Budget(seconds, Zint::MonotonicClock::systemTime()) {}
  bool isSpent() const { return Zint::MonotonicClock::systemTime() >= end_; }
  // Then nothing is begun that takes longer than a whole budget.
  bool isHalfSpent() const { return Zint::MonotonicClock::systemTime() >= middle_; }

 private:
  Budget(Zint::Seconds seconds, Zint::Seconds now)
      : end_(now + seconds), middle_(now + seconds / 2) {}

  Zint::Seconds end_;
  Zint::Seconds middle_;
};

}  // namespace Telemetry
