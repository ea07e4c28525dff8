// A whole system in one thread: simulated chips, their regions, a shadow and a reader on a clock
// that only the simulation moves, with a ledger that watches them.
#pragma once

#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Trace.h>

#include <memory>
#include <vector>

#include "simulation/Access.h"
#include "simulation/Ledger.h"
#include "support/ManualLoop.h"
#include "support/Random.h"

namespace Simulation {

using Support::Random;

class System : public Zint::TraceSink {
 public:
  // Chips, regions and settings are drawn from `random`; the shadow is still unconfigured.
  System(Random& random, Journal& journal, Sabotage& sabotage);
  ~System() override;

  Ledger ledger;
  Hardware::HardwareShadow::Ptr shadow;

  Hardware::ChipMemory::Ptr& region(U32 number) { return regions_[number]; }
  Hardware::ChipAddress address(U32 number, U32 entry);
  Chip& chip(U32 number) { return *chips_[number]; }
  U32 chips() const { return static_cast<U32>(chips_.size()); }
  U32 totalEntries() const { return totalEntries_; }

  Zint::Seconds now() const { return loop_.clock->time(); }
  // Runs the next wake-up that is due before `until`; false when there is none.
  bool turnBefore(Zint::Seconds until);
  void runFor(Zint::Seconds duration);
  // Moves the clock on past every wake-up on the way.
  void jumpFor(Zint::Seconds duration);
  Zint::Seconds jumped() const { return jumped_; }  // so far
  void stateIs(State state);
  void sliceIs(U32 entries, Zint::Seconds pause);
  // In the middle of the audit's reading, after so many further entries.
  void interruptAfter(std::function<void()> work, U32 after);
  // One that is still pending is dropped.
  void interruptionDel() { interruption_.work = nullptr; }
  // Compares the library's buffers and counters with the ledger.
  void compared();

  void traceLine(const Zint::TraceLine& line) override;

 private:
  void makeChip(Random& random);
  void makeRegion(Random& random, const Layout& layout);
  void drawSettings(Random& random, U32 number);
  void turnAt(Zint::Seconds time);

  Journal& journal_;
  Sabotage& sabotage_;
  Support::ManualLoop loop_;
  Interruption interruption_;
  std::vector<std::unique_ptr<Chip>> chips_;
  std::vector<Zint::Ptr<ChipRegisters>> registers_;
  std::vector<Hardware::ChipMemory::Ptr> regions_;
  Hardware::ChipReader::Ptr reader_;  // once configured
  U32 slice_ = 1;
  Zint::Seconds pause_ = 0;
  Zint::Seconds jumped_ = 0;
  U32 totalEntries_ = 0;
  Zint::TraceSink* const sinkBefore_;
};

}  // namespace Simulation
