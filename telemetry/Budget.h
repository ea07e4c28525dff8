// What one turn may take of the thread, by the system's clock.
#pragma once

#include <Zint/Clock.h>

namespace Telemetry {

class Budget {
 public:
  explicit Budget(Zint::Seconds seconds) : end_(Zint::MonotonicClock::systemTime() + seconds) {}
  bool isSpent() const { return Zint::MonotonicClock::systemTime() >= end_; }

 private:
  Zint::Seconds end_;
};

}  // namespace Telemetry
