// What the demonstrations happen on: the switch with its chip process, clients, and the activity
// that drives them.
#pragma once

#include "demo/common/AccountedRegisters.h"
#include "demo/common/ChipWatch.h"
#include "demo/common/Report.h"
#include "demo/common/Switch.h"
#include "demo/common/Traffic.h"
#include "demo/driver/Interrupts.h"

namespace Demo {

class Stage {
 public:
  explicit Stage(U32 seed);

  const Zint::Ptr<const Zint::Clock> clock;
  const Zint::Ptr<Zint::ActivityConfig> activity;

 private:
  const Interrupts interrupts_;

 public:
  Ledger ledger;
  ChipProcess chip;
  const Zint::Ptr<AccountedRegisters> registers;
  Switch theSwitch;
  const Zint::Ptr<ChipWatch> chipWatch;
  const Zint::Ptr<Traffic> traffic;

  // Brings the switch up. What is wrong with its set-up goes to standard error.
  void bringUp();
  // Neither has the user interrupted nor has the chip process ended.
  bool mayGoOn() { return Interrupts::count() == 0 && chip.isRunning(); }
  // Audits from now on, without pauses, until that many passes in a row have found nothing; false
  // when that does not come about.
  bool settle(U32 cleanPasses);
  // REQUIRES: the chip process has ended.
  Report report(bool isChipOrderly, bool isSettled) const;

 private:
  // Counts the passes that found nothing, from the last one back. While passes are awaited, each
  // one's end stops the activity.
  class PassWatch : public Driver::AuditedShadow::NotifieeConst {
   public:
    PassWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, const Switch& theSwitch)
        : NotifieeConst(activity, theSwitch.shadow()) {}
    void onPass(const Driver::PassResult& pass) override;
    // Begins to count.
    void isAwaitedIs(bool isAwaited);
    U32 cleanPasses() const { return clean_; }

   private:
    bool isAwaited_ = false;
    U32 clean_ = 0;
  };

  const Zint::Ptr<PassWatch> passWatch_;
};

}  // namespace Demo
