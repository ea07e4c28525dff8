// Enters the chip's log into the ledger, and stops the activity when the chip process has ended.
#pragma once

#include <Zint/Activity.h>

#include "demo/common/ChipProcess.h"
#include "demo/common/Ledger.h"

namespace Demo {

class ChipWatch : public Zint::Clock::NotifieeConst {
 public:
  static constexpr Zint::Seconds interval = 0.01;

  // Begins at once. The chip process and the ledger must outlive it or its last wake-up.
  ChipWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
            const Zint::Ptr<const Zint::Clock>& clock, ChipProcess& chip, Ledger& ledger)
      : NotifieeConst(activity, clock), chip_(chip), ledger_(ledger) {
    timeMinIs(0.0);
  }

  // Stops the activity when the process has ended.
  void onTime() override;
  // Ends the chip process, after which the ledger knows of every flip. As ChipProcess::end().
  bool endChip();

 private:
  void takeFlips();

  ChipProcess& chip_;
  Ledger& ledger_;
};

}  // namespace Demo
