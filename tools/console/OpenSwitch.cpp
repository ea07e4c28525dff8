#include "tools/console/OpenSwitch.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "tools/console/TraceLines.h"

namespace Console {

FindingList::FindingList(const Zint::Ptr<Zint::ActivityConfig>& activity,
                         const Driver::AuditedShadow::Ptr& shadow)
    : NotifieeConst(activity, shadow) {
  isNonReferencingIs(true);
  interestIs(Zint::interestIn(Driver::AuditedShadow::Id::finding));
}

void FindingList::onFinding(const Driver::Finding& finding) {
  if (lines_.size() == capacity) lines_.pop_front();
  lines_.push_back(Zint::format("%.3f s  ", finding.time).bytes() + finding.stringValue().bytes());
}

std::vector<std::string> FindingList::last(std::size_t most) const {
  const auto count = static_cast<std::ptrdiff_t>(std::min(most, lines_.size()));
  return {lines_.end() - count, lines_.end()};
}

OpenSwitch::OpenSwitch(const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const Zint::Ptr<const Zint::Clock>& clock,
                       Platform::MappedRegisters::Ptr registers, Demo::Ledger& ledger)
    : activity_(activity),
      clock_(clock),
      registers_(Zint::makePtr<Demo::AccountedRegisters>(std::move(registers), ledger)),
      switch_(activity, clock, registers_, ledger),
      findings_(Zint::makePtr<FindingList>(activity, switch_.shadow())),
      directory_(Hardware::chipMemoryBogonFactory("directory")) {
  // Of the bring-up only what the runtime has to say about exceptions in handlers.
  const TraceLines quiet(
      [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
  switch_.bringUp();
  const Hardware::HardwareShadow::Ptr shadow = switch_.shadow();
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  const Zint::Seconds latest = clock_->time() + 60;
  while (shadow->audits() == 0) {
    if (clock_->time() >= latest) throw std::runtime_error("the first audit pass does not end");
    activity_->runUntil(clock_->time() + 0.01);
  }
  shadow->minIntervalBetweenAuditsIs(0.5);
}

World OpenSwitch::world() {
  World world;
  world.activity = activity_;
  world.objects = {
      {"shadow", objectOf<Driver::AuditedShadow>(switch_.shadow())},
      {"chip", objectOf(switch_.chip())},
      {"alarms", objectOf(switch_.alarms())},
      {"directory", objectOf(directory_)},
      {"registers", objectOf(registers_)},
      {"activity", objectOf(activity_)},
      {"clock", objectOf(clock_)},
  };
  for (const Demo::Table& table : switch_.tables()) {
    world.objects.emplace_back(std::string(table.layout->name) + "-policy", objectOf(table.policy));
    world.objects.emplace_back(std::string(table.layout->name) + "-access", objectOf(table.access));
  }
  world.passes = "/shadow/audits";
  world.check = [this] {
    std::vector<std::string> lines;
    for (const Driver::Complaint::Ptr& each : switch_.complaints()) {
      lines.push_back(each->stringValue().bytes());
    }
    return lines;
  };
  world.findings = [this](std::size_t most) { return findings_->last(most); };
  world.traceHandle = "Umbra";
  world.chipSize = Demo::registerFileSize;
  world.peek = [this](U32 address) {
    U32 value = 0;
    registers_->read(address, &value);
    return value;
  };
  world.absentIs = [this](bool isAbsent) { registers_->isAbsentIs(isAbsent); };
  world.reset = [this] { registers_->doReset(); };
  world.stuckBitsAre = [this](U32 address, U32 bits) { registers_->stuckBitsAre(address, bits); };
  world.poke = [this](U32 address, U32 value) { registers_->damage(address, value); };
  return world;
}

}  // namespace Console
