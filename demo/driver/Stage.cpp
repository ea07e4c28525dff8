#include "demo/driver/Stage.h"

#include <cstdio>

namespace Demo {

using Hardware::HardwareShadow;

Stage::Stage(U32 seed)
    : clock(Zint::monotonicClockFactory("clock")),
      activity(Zint::activityFactory("demonstration", clock)),
      interrupts_(*activity),
      ledger(registerFileSize),
      chip(seed),
      registers(Zint::makePtr<AccountedRegisters>(
          Platform::mappedRegistersFactory(chip.folder().registersPath()), ledger)),
      theSwitch(activity, clock, registers, ledger),
      chipWatch(Zint::makePtr<ChipWatch>(activity, clock, chip, ledger)),
      traffic(Zint::makePtr<Traffic>(activity, clock, theSwitch, seed)),
      passWatch_(Zint::makePtr<PassWatch>(activity, theSwitch)) {
  chip.folderDel();
}

void Stage::bringUp() {
  theSwitch.bringUp();
  for (const Driver::Complaint::Ptr& complaint : theSwitch.complaints()) {
    std::fprintf(stderr, "umbra-driver: %s\n", complaint->stringValue().c_str());
  }
}

bool Stage::settle(U32 cleanPasses) {
  constexpr U32 passes = 20;          // at most
  constexpr Zint::Seconds time = 20;  // at most, for all of them
  const HardwareShadow::Ptr shadow = theSwitch.shadow();
  // From idle, so that no pass counts that began earlier.
  shadow->stateIs(HardwareShadow::idle());
  shadow->minIntervalBetweenAuditsIs(0.0);
  shadow->stateIs(HardwareShadow::auditing());
  passWatch_->isAwaitedIs(true);
  const int interrupts = Interrupts::count();
  const U32 last = shadow->audits() + passes;
  const Zint::Seconds end = clock->time() + time;
  while (passWatch_->cleanPasses() < cleanPasses && shadow->audits() < last &&
         clock->time() < end && Interrupts::count() == interrupts) {
    activity->runUntil(end);
  }
  passWatch_->isAwaitedIs(false);
  return passWatch_->cleanPasses() >= cleanPasses;
}

void Stage::PassWatch::isAwaitedIs(bool isAwaited) {
  if (!Zint::updated(isAwaited_, isAwaited) || !isAwaited) return;
  clean_ = 0;
}

void Stage::PassWatch::onPass(const Driver::PassResult& pass) {
  if (!isAwaited_) return;
  clean_ = pass.isComplete && pass.differences == 0 ? clean_ + 1 : 0;
  zintFwkActivity()->stop();
}

Report Stage::report(bool isChipOrderly, bool isSettled) const {
  Report report;
  const volatile U32* held = chip.registers();
  report.differences = theSwitch.shadow()->differences();
  for (const Table& table : theSwitch.tables()) {
    report.repairs += table.region->registersFixed();
    if (!table.layout->isOnChip()) continue;
    const U32 begin = table.layout->address.chipMemoryOffset();
    report.rows.push_back({table.layout->name, ledger.account(held, begin, table.layout->end()),
                           Switch::registersDiffering(table, held)});
  }
  report.all = ledger.account(held);
  report.passes = theSwitch.shadow()->audits();
  report.isChipOrderly = isChipOrderly;
  report.isSettled = isSettled;
  return report;
}

}  // namespace Demo
