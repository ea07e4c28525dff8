// The switch's clients: every few milliseconds a slice of writes and reads of random entries.
#pragma once

#include <random>

#include "demo/common/Switch.h"

namespace Demo {

class Traffic : public Zint::Clock::NotifieeConst {
 public:
  static constexpr Zint::Seconds interval = 0.005;
  static constexpr U32 readsPerSlice = 16;
  static constexpr U32 writesPerSlice = 2;

  // Begins with trafficIs(true). The switch must outlive it or its last wake-up.
  Traffic(const Zint::Ptr<Zint::ActivityConfig>& activity,
          const Zint::Ptr<const Zint::Clock>& clock, Switch& theSwitch, U32 seed)
      : NotifieeConst(activity, clock), switch_(theSwitch), random_(seed) {}

  void onTime() override;
  void trafficIs(bool on) { timeMinIs(on ? 0.0 : Zint::never); }

  // One slice, without a clock.
  void slice();

 private:
  static constexpr U32 entriesPerRun = 4;

  U32 below(U32 limit) { return static_cast<U32>(random_() % limit); }
  // A table, and a run of its entries.
  struct Run {
    Table& table;
    U32 entry;
    U32 entries;
  };
  Run run();

  Switch& switch_;
  std::mt19937 random_;
  std::vector<U8> buffer_;
};

}  // namespace Demo
