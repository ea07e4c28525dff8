// The library's side: chips that fail in known ways, their regions under an audited shadow, and a
// notifiee that writes down, all in one list of events.
#pragma once

#include <Driver/AuditedShadow.h>

#include <functional>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "driverlockstep/Events.h"
#include "support/ManualLoop.h"
#include "support/Random.h"

namespace DriverLockstep {

// Drawn from a seed: what both sides are made of.
struct Plan {
  struct Region {
    U32 chip;
    U32 entries;
    U32 entrySize;
    bool skips;   // skipWriteIfMatchesCache
    bool serves;  // readFromCache
    bool audited;
  };
  explicit Plan(U64 seed);

  U32 chips;
  std::vector<Region> regions;
  U32 slice;
  Zint::Seconds sliceInterval;
  Zint::Seconds passInterval;
};

// What the chip does with accesses. The model asks the same object: it is no part of what is
// tested.
struct ChipFaults {
  Absence absence = Absence::none;
  bool forgot = false;                     // the answer of the next wasReset()
  U32 vanishesAfter = ~0u;                 // accesses that still go well; then it answers ones
  U32 throwsAfter = ~0u;                   // accesses that still go well; then one throws
  std::set<std::pair<U32, U32>> stuck;     // region, entry: writes have no effect
  std::set<std::pair<U32, U32>> glitches;  // the next read gives another value
};

class World {
 public:
  explicit World(const Plan& plan);
  ~World();

  // A client's write that comes from within an access, after so many further ones.
  struct Intrusion {
    U32 after;
    U32 region;
    U32 entry;
    Bytes value;
    bool reachesChip;
  };

  Bytes& onChip(U32 region, U32 entry) { return chip_[region][entry]; }
  Bytes shadowed(U32 region, U32 entry) const;
  static bool bit(const Zint::Ptr<Hal::BufBase>& bitmap, U32 entry);
  void offer(U32 region, U32 entry, const Bytes& value);
  // The client's own write of the chip: it is not an event. False: it is lost.
  bool writeChip(U32 region, U32 entry, const Bytes& value);
  // Moves the time to the next wake-up and turns.
  void step();

  Support::ManualLoop loop;
  Driver::AuditedShadow::Ptr shadow;
  std::vector<Hardware::ChipMemory::Ptr> regions;
  std::vector<Driver::Chip::Ptr> chips;
  std::vector<ChipFaults> faults;
  std::set<std::pair<U32, U32>> vetoed;
  bool vetoThrows = false;
  std::optional<Intrusion> intrusion;
  Events events;

 private:
  class Ham;
  class TestChip;
  class Watch;

  std::optional<U32> regionOf(const Hardware::ChipMemory& region) const;
  void intrude();

  const Plan plan_;
  std::vector<std::vector<Bytes>> chip_;
  Zint::Ptr<Watch> watch_;
};

}  // namespace DriverLockstep
