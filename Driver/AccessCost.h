// What the accesses of one chip cost, measured while they are made. Used by Patrol and
// ChipWriter.
//
// An access of n entries takes a + b * n, neither below 0. So n times as many entries take at most
// n times as long: what was measured for some entries bounds what more of them take, without
// knowing a and b. Fewer entries take at most a longer than their part of it.
#pragma once

#include <Zint/Clock.h>
#include <algorithm>

namespace Driver {

class AccessCost {
 public:
  // An access of that many entries, above 0, took so long.
  void add(U32 entries, Zint::Seconds seconds) {
    // A short access replaces a long one when it took longer than it could have.
    if (U64{entries} * 2 >= entries_ || seconds > 2 * seconds_) {
      entries_ = entries;
      seconds_ = seconds;
    }
    single_ = entries == 1 ? std::max(seconds, single_ * keptOfSingle) : std::min(single_, seconds);
  }
  // The entries that an access may have to take no longer than that, apart from a; at least 1.
  // Nothing measured yet: 1. It grows in steps, because a clock may be too coarse for a short one.
  U32 entriesWithin(Zint::Seconds seconds) const {
    if (entries_ == 0) return 1;
    const double most = std::min(double{largestStep} * entries_, double{~0u});
    if (seconds_ <= 0) return static_cast<U32>(most);
    return static_cast<U32>(std::clamp(entries_ * (seconds / seconds_), 1.0, most));
  }
  // What an access of one entry takes.
  Zint::Seconds single() const { return single_; }

 private:
  static constexpr U32 largestStep = 16;
  static constexpr double keptOfSingle = 0.75;

  U32 entries_ = 0;  // of the access that the others are judged by
  Zint::Seconds seconds_ = 0;
  Zint::Seconds single_ = 0;
};

}  // namespace Driver
