// One system: a few chips under an audited shadow, their clients and their faults, all drawn from a
// seed, and a ledger of every access. The ledger knows the rules and asks the library as little as
// it can.
#pragma once

#include <Driver/AuditedShadow.h>
#include <Driver/ChipAccess.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/ManualLoop.h"
#include "support/Random.h"

namespace DriverSimulation {

struct Outcome {
  std::string failure;  // empty when every rule held
  std::map<std::string, U64> met;
};

class System {
 public:
  explicit System(U64 seed);
  ~System();

  Outcome perform();

 private:
  class Ham;
  class Watch;
  class ChipWatch;
  class TellingChip;

  using Bytes = std::vector<U8>;
  struct Entry {
    Driver::Rule rule = Driver::Rule::repaired;
    Bytes mask;  // empty for none
    Driver::Rewrite rewrite = Driver::Rewrite::kept;
    Bytes chip;
    bool isOnce = false;
    bool isStuck = false;
    bool glitches = false;    // at the next read
    bool wasWritten = false;  // by a client, which is told of it here and not by the library
    bool isHeld = false;      // a write that its client has left to the replay
    U32 pending = 0;          // offered writes that have not reached the chip
    U32 changedAt = 0;        // complete passes when a client or a fault last changed it
    U64 faultAt = 0;          // stamp of the last fault that changed the chip
    U64 writtenAt = 0;        // stamp of the last write of a client
    std::string last;         // findings, with the pass of each
    // Events of a counter that is cleared by reading: all, on the chip, and read by clients.
    U64 happened = 0, counted = 0, seen = 0;
  };
  struct Region {
    Hardware::ChipMemory::Ptr memory;
    Driver::Policy::Ptr policy;
    Driver::ChipAccess::Ptr access;
    U32 chip = 0;
    bool isBuffered = false;
    std::vector<Entry> entries;
  };
  struct Chip {
    Zint::Ptr<Ham> ham;
    Driver::Chip::Ptr chip;
    Zint::Ptr<ChipWatch> watch;
    bool isAway = false, throws = false;
    U64 restoringAt = 0;       // stamp of the last reset that was told or found
    bool isToldOf = false;     // its register says that it was reset, until it is read
    bool isForgotten = false;  // it was reset, and not restored since
    U32 resets = 0;            // real ones, and those that a search for one has made out of damage
  };
  struct Pending {
    U32 turns, region, entry;
    Bytes value;
  };

  void makeRegion(U32 number);
  void drawPolicy(Region& region);

  // --- What happens ---
  void round();
  void act();
  void client(U32 region, U32 entry);
  void accessClient(U32 region, U32 entry);
  void fault(U32 region, U32 entry);
  void chipFault(U32 chip);
  void change();
  void turn();
  void runFor(Zint::Seconds duration);
  void endFaults();

  // --- The ledger ---
  void onRead(U32 region, U32 first, U32 count);
  void onWrite(U32 region, U32 first, U32 count, const U8* data);
  void onReset(U32 chip);
  void onRestored(U32 chip);
  void onCompletePass();
  void checkProgress();
  void checkEnd();
  void broken(const std::string& text);

  Bytes shadowed(const Region& region, U32 entry) const;
  bool isEqual(const Region& region, U32 entry) const;  // chip and shadow, under the mask
  bool isKnown(const Region& region, U32 entry) const;
  Bytes drawValue(const Region& region);
  std::string place(U32 region, U32 entry) const;

  Support::Random random_;
  Support::ManualLoop loop_;
  Driver::AuditedShadow::Ptr shadow_;
  std::vector<Chip> chips_;
  std::vector<Region> regions_;
  std::vector<Pending> pending_;
  Zint::Ptr<Watch> watch_;
  bool inTurn_ = false;
  bool inAccess_ = false;  // of a client
  bool isQuiet_ = false;   // faults have ended
  U32 vetoOneIn_ = 0;
  U64 stamp_ = 0;  // orders what happens to chips
  U32 completePasses_ = 0;
  U32 passes_ = 0;
  std::string last_;  // result of a pass
  Outcome outcome_;
};

}  // namespace DriverSimulation
