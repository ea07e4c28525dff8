#include "demo/driver/Demonstration.h"

#include <algorithm>

namespace Demo {

using Hardware::HardwareShadow;

namespace {

Zint::Ptr<Fru::HamImpl> registersOf(const ChipProcess& chip, Ledger& ledger) {
  return Zint::makePtr<AccountedRegisters>(
      Platform::mappedRegistersFactory(chip.folder().registersPath()), ledger);
}

}  // namespace

Demonstration::Demonstration(const Options& options, bool isPicture)
    : options_(options),
      clock_(Zint::monotonicClockFactory("clock")),
      activity_(Zint::activityFactory("demonstration", clock_)),
      interrupts_(*activity_),
      ledger_(registerFileSize),
      chip_(options.seed),
      switch_(activity_, clock_, registersOf(chip_, ledger_), ledger_),
      chipWatch_(Zint::makePtr<ChipWatch>(activity_, clock_, chip_, ledger_)),
      traffic_(Zint::makePtr<Traffic>(activity_, clock_, switch_, options.seed)),
      passWatch_(Zint::makePtr<PassWatch>(activity_, switch_)),
      isPicture_(isPicture) {
  chip_.folderDel();
}

Report Demonstration::run() {
  const Driver::AuditedShadow::Ptr shadow = switch_.shadow();
  switch_.bringUp();
  status_ = Zint::makePtr<Status>(activity_, clock_, isPicture_, [this] { return view(); });

  // Errors come far more often than on a real chip: an entry that is hit again and again is no sign
  // of a stuck bit here, and a table full of errors none of a reset.
  shadow->quarantineRepairsIs(0);
  shadow->findsResetsIs(false);
  shadow->minIntervalBetweenAuditsIs(options_.auditInterval);
  if (!options_.freezeAudit) shadow->stateIs(HardwareShadow::auditing());

  bool isSettled = false;
  if (mayGoOn()) {
    phase_ = options_.freezeAudit ? "errors, no audit" : "errors and traffic";
    began_ = clock_->time();
    chip_.control().flipsPerSecond = options_.flipsPerSecond;
    traffic_->trafficIs(true);
    status_->timeMinIs(0.0);
    activity_->runUntil(began_ + options_.seconds);
    traffic_->trafficIs(false);
    ended_ = clock_->time();
  }

  phase_ = "settling";
  const int interrupts = Interrupts::count();
  const bool isChipOrderly = chipWatch_->endChip();
  if (!options_.freezeAudit && interrupts < 2) isSettled = settle(2);
  shadow->stateIs(HardwareShadow::idle());
  phase_ = "ended";
  status_->showLast();
  return report(isChipOrderly, isSettled);
}

bool Demonstration::settle(U32 cleanPasses) {
  constexpr U32 passes = 20;          // at most
  constexpr Zint::Seconds time = 20;  // at most, for all of them
  const HardwareShadow::Ptr shadow = switch_.shadow();
  // From idle, so that no pass counts that began earlier.
  shadow->stateIs(HardwareShadow::idle());
  shadow->minIntervalBetweenAuditsIs(0.0);
  shadow->stateIs(HardwareShadow::auditing());
  passWatch_->isAwaitedIs(true);
  const int interrupts = Interrupts::count();
  const U32 last = shadow->audits() + passes;
  const Zint::Seconds end = clock_->time() + time;
  while (passWatch_->cleanPasses() < cleanPasses && shadow->audits() < last &&
         clock_->time() < end && Interrupts::count() == interrupts) {
    activity_->runUntil(end);
  }
  passWatch_->isAwaitedIs(false);
  return passWatch_->cleanPasses() >= cleanPasses;
}

void Demonstration::PassWatch::isAwaitedIs(bool isAwaited) {
  if (!Zint::updated(isAwaited_, isAwaited) || !isAwaited) return;
  clean_ = 0;
}

void Demonstration::PassWatch::onPass(const Driver::PassResult& pass) {
  if (!isAwaited_) return;
  clean_ = pass.isComplete && pass.differences == 0 ? clean_ + 1 : 0;
  zintFwkActivity()->stop();
}

StatusView Demonstration::view() const {
  StatusView view = statusOf(switch_);
  view.phase = phase_;
  view.seconds = options_.seconds;
  const Zint::Seconds end = std::min(clock_->time(), ended_);
  view.time = end > began_ ? end - began_ : 0.0;
  view.injected = ledger_.soFar().injected;
  return view;
}

Report Demonstration::report(bool isChipOrderly, bool isSettled) {
  Report report;
  const volatile U32* registers = chip_.registers();
  report.differences = switch_.shadow()->differences();
  for (const Table& table : switch_.tables()) {
    report.repairs += table.region->registersFixed();
    if (!table.layout->isOnChip()) continue;
    const U32 begin = table.layout->address.chipMemoryOffset();
    report.rows.push_back({table.layout->name,
                           ledger_.account(registers, begin, table.layout->end()),
                           Switch::registersDiffering(table, registers)});
  }
  report.all = ledger_.account(registers);
  report.passes = switch_.shadow()->audits();
  report.isChipOrderly = isChipOrderly;
  report.isSettled = isSettled;
  return report;
}

}  // namespace Demo
