// The client and the world: traffic through the shadow, faults in the chips, and the owner's
// changes of state, modes and settings, drawn from the seed.
#pragma once

#include <vector>

#include "simulation/System.h"

namespace Simulation {

class Driver {
 public:
  Driver(System& system, Random& random, Journal& journal)
      : system_(system), ledger_(system.ledger), random_(random), journal_(journal) {}

  // Configures the shadow and begins to audit.
  void begins();
  // A burst of traffic, faults and changes, in part within an audit pass, and a long quiet stretch.
  void round();
  // The faults end; two passes later the chips must hold what the shadow does.
  void ends();

 private:
  struct Action {
    U32 weight;
    void (Driver::*perform)();
  };
  template <std::size_t n>
  void performed(const Action (&actions)[n]);
  void acted();

  // Traffic: the write and read paths.
  void writeOne() { written(1); }
  void writeSome() { written(random_.between(2, 12)); }
  void written(U32 count);
  void writtenAt(U32 region, U32 entry, U32 count);
  void writtenDirectly(U32 region, U32 entry, U32 count);
  void writeLazily();
  void readSome();
  void readChecked(U32 region, U32 entry, U32 size);
  void cleared();
  void writtenBack();

  // Faults.
  void flipped();
  void ignoredBitFlipped();
  void stuck();
  void released();
  void writeLost();
  void readGlitched();

  // Time.
  void turned();
  void interrupted();
  void interruption();
  void waited();
  void quiet();

  // Control.
  void paceChanged();
  void auditPaused();
  void auditResumed();
  void auditRestarted();
  void overrideToggled();
  void changedWhileIdle();
  void modeChanged(U32 region, Mode mode);
  void auditChanged(U32 region, bool on);
  void shadowChanged(U32 region, bool on);
  void settingsChanged(U32 region);
  void reconfigured();

  U32 anyRegion() { return random_.below(ledger_.regions()); }
  U32 anyEntry(U32 region) { return random_.below(ledger_.book(region).layout.entries); }
  bool isFound(U32 region, U32 entry, U32 size);
  void expected(Rule rule, bool holds, const char* text) {
    if (!holds) journal_.broken(rule, text);
  }
  void dataDrawn(U32 region, U32 entry, U32 count);

  System& system_;
  Ledger& ledger_;
  Random& random_;
  Journal& journal_;
  std::vector<U8> data_;    // to write
  std::vector<U8> answer_;  // of a read
  std::vector<U8> wanted_;  // its right answer
};

}  // namespace Simulation
