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
  void begin();
  // A burst of traffic, faults and changes, in part within an audit pass, and a long quiet stretch.
  void round();
  // The faults end; two passes later the chips must hold what the shadow does.
  void end();

 private:
  struct Action {
    U32 weight;
    void (Driver::*perform)();
  };
  template <std::size_t n>
  void performOne(const Action (&actions)[n]);
  void act();

  // Traffic: the write and read paths.
  void writeOne() { writeEntries(1); }
  void writeSome() { writeEntries(random_.between(2, 12)); }
  void writeEntries(U32 count);
  void writeAt(U32 region, U32 entry, U32 count);
  void writeDirectly(U32 region, U32 entry, U32 count);
  void writeLazily();
  void readSome();
  void checkRead(U32 region, U32 entry, U32 size);
  void clearEntries();
  void writeBack();

  // Faults.
  void flipBit();
  void flipIgnoredBit();
  void stickBit();
  void releaseBits();
  void loseNextWrite();
  void glitchNextRead();

  // Time.
  void turnOnce();
  void interruptPass();
  void actWithinPass();
  void waitAWhile();
  void stayQuiet();

  // Control.
  void changePace();
  void pauseAudit();
  void resumeAudit();
  void restartAudit();
  void toggleOverride();
  void changeWhileIdle();
  void changeMode(U32 region, Mode mode);
  void changeAudit(U32 region, bool on);
  void changeShadow(U32 region, bool on);
  void changeSettings(U32 region);
  void reconfigure();

  U32 anyRegion() { return random_.below(ledger_.regions()); }
  U32 anyEntry(U32 region) { return random_.below(ledger_.book(region).layout.entries); }
  bool isFound(U32 region, U32 entry, U32 size);
  void check(Rule rule, bool holds, const char* text) {
    if (!holds) journal_.broken(rule, text);
  }
  void drawData(U32 region, U32 entry, U32 count);

  System& system_;
  Ledger& ledger_;
  Random& random_;
  Journal& journal_;
  std::vector<U8> data_;    // to write
  std::vector<U8> answer_;  // of a read
  std::vector<U8> wanted_;  // its right answer
};

}  // namespace Simulation
