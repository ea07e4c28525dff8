// Keeps the ledger up to date with the chip's log, and notices when the chip process has gone.
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

  // Stops the activity when the process is no longer there.
  void onTime() override;
  // Ends the chip process, after which the ledger knows of every flip. As ChipProcess::end().
  bool chipEnded();

 private:
  void flipsTaken();

  ChipProcess& chip_;
  Ledger& ledger_;
};

}  // namespace Demo
