// The demonstration from beginning to end: bring-up, errors and traffic, settlement, account.
#pragma once

#include "demo/common/AccountedRegisters.h"
#include "demo/common/ChipWatch.h"
#include "demo/common/Options.h"
#include "demo/common/Report.h"
#include "demo/common/Switch.h"
#include "demo/common/Traffic.h"
#include "demo/driver/Interrupts.h"
#include "demo/driver/Status.h"

namespace Demo {

class Demonstration {
 public:
  Demonstration(const Options& options, bool isPicture);

  // Runs all of it once.
  Report run();

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

  // Audits from now on until that many passes in a row have found nothing; false when that does not
  // come about.
  bool settle(U32 cleanPasses);
  bool mayGoOn() { return Interrupts::count() == 0 && chip_.isRunning(); }
  StatusView view() const;
  Report report(bool isChipOrderly, bool isSettled);

  const Options options_;
  const Zint::Ptr<const Zint::Clock> clock_;
  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Interrupts interrupts_;
  Ledger ledger_;
  ChipProcess chip_;
  Switch switch_;
  const Zint::Ptr<ChipWatch> chipWatch_;
  const Zint::Ptr<Traffic> traffic_;
  const Zint::Ptr<PassWatch> passWatch_;
  const bool isPicture_;
  Zint::Ptr<Status> status_;
  const char* phase_ = "bring-up";
  Zint::Seconds began_ = Zint::never;  // when errors and traffic did
  Zint::Seconds ended_ = Zint::never;
};

}  // namespace Demo
