#include "demo/driver/Demonstration.h"

#include <algorithm>

namespace Demo {

using Hardware::HardwareShadow;

Demonstration::Demonstration(const Options& options, bool isPicture)
    : options_(options), stage_(options.seed), isPicture_(isPicture) {}

Report Demonstration::run() {
  const Driver::AuditedShadow::Ptr shadow = stage_.theSwitch.shadow();
  stage_.bringUp();
  outside_ = Outside::of(options_, stage_);
  status_ =
      Zint::makePtr<Status>(stage_.activity, stage_.clock, isPicture_, [this] { return view(); });

  // Errors come far more often than on a real chip: an entry that is hit again and again is no sign
  // of a stuck bit here, and a table full of errors none of a reset.
  shadow->quarantineRepairsIs(0);
  shadow->findsResetsIs(false);
  shadow->minIntervalBetweenAuditsIs(options_.auditInterval);
  if (!options_.freezeAudit) shadow->stateIs(HardwareShadow::auditing());

  bool isSettled = false;
  if (stage_.mayGoOn()) {
    phase_ = options_.freezeAudit ? "errors, no audit" : "errors and traffic";
    began_ = stage_.clock->time();
    stage_.chip.control().flipsPerSecond = options_.flipsPerSecond;
    stage_.traffic->trafficIs(true);
    status_->timeMinIs(0.0);
    stage_.activity->runUntil(began_ + options_.seconds);
    stage_.traffic->trafficIs(false);
    ended_ = stage_.clock->time();
  }

  phase_ = "settling";
  const int interrupts = Interrupts::count();
  const bool isChipOrderly = stage_.chipWatch->endChip();
  if (!options_.freezeAudit && interrupts < 2) isSettled = stage_.settle(2);
  shadow->stateIs(HardwareShadow::idle());
  phase_ = "ended";
  status_->showLast();
  return stage_.report(isChipOrderly, isSettled);
}

StatusView Demonstration::view() const {
  StatusView view = statusOf(stage_.theSwitch);
  view.phase = phase_;
  view.seconds = options_.seconds;
  const Zint::Seconds end = std::min(stage_.clock->time(), ended_);
  view.time = end > began_ ? end - began_ : 0.0;
  view.injected = stage_.ledger.soFar().injected;
  return view;
}

}  // namespace Demo
