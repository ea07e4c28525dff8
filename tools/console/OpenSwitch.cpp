#include "tools/console/OpenSwitch.h"

#include <cstdio>
#include <stdexcept>

#include "tools/console/TraceLines.h"

namespace Console {

OpenSwitch::OpenSwitch(const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const Zint::Ptr<const Zint::Clock>& clock,
                       Platform::MappedRegisters::Ptr registers, Demo::Ledger& ledger)
    : activity_(activity),
      clock_(clock),
      registers_(Zint::makePtr<Demo::AccountedRegisters>(std::move(registers), ledger)),
      switch_(activity, clock, registers_, ledger),
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
      {"shadow", objectOf<Hardware::HardwareShadow>(switch_.shadow())},
      {"reader", objectOf(switch_.reader())},
      {"directory", objectOf(directory_)},
      {"registers", objectOf(registers_)},
      {"activity", objectOf(activity_)},
      {"clock", objectOf(clock_)},
  };
  world.passes = "/shadow/audits";
  world.traceHandle = "Umbra";
  world.chipSize = Demo::registerFileSize;
  world.peek = [this](U32 address) {
    U32 value = 0;
    registers_->read(address, &value);
    return value;
  };
  world.poke = [this](U32 address, U32 value) { registers_->damage(address, value); };
  return world;
}

}  // namespace Console
