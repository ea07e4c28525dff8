// A region under audit with its reader, for whole passes.
#pragma once

#include <chrono>
#include <functional>

#include "Bench.h"

namespace Bench {

// Registers that all hold 0; an access takes a fixed time. Made in a source of its own: the
// compiler cannot turn the virtual calls of one side of a comparison into direct ones.
Zint::Ptr<Fru::HamImpl> timedRegisters(double nanoseconds);

// An access method whose chip is memory; reads and writes it in one copy.
Hardware::ChipHam::Ptr copyingHam(U32 bytes);

using MakeHam = std::function<Hardware::ChipHam::Ptr()>;

// One region of 4-byte entries, all known to be 0, on an activity; passes are run one by one.
struct PassRegion {
  PassRegion(U32 entryCount, U32 slice, const MakeHam& makeHam,
             const Zint::ValidPtr<Zint::Clock>& clock)
      : entries(entryCount),
        activity(Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock))),
        shadow(Hardware::hardwareShadowFactory(activity, clock)),
        region(Hardware::chipMemoryFactory("region", Hardware::ChipAddress(), entries, 4, 4,
                                           makeHam())) {
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    shadow->chipMemoryIs(region);
    shadow->stateIs(Hardware::HardwareShadow::configured());
    region->doClear();
    reader = Hardware::chipReaderFactory(activity, shadow->auditReadRequest(), clock, slice, 0.0);
    shadow->stateIs(Hardware::HardwareShadow::auditing());
  }

  U32 entries;
  Zint::Ptr<Zint::ActivityConfig> activity;
  Hardware::HardwareShadow::Ptr shadow;
  Hardware::ChipMemory::Ptr region;
  Hardware::ChipReader::Ptr reader;
};

// On a clock that stands still: turn by turn.
struct PassStand : PassRegion {
  PassStand(U32 entryCount, U32 slice, const MakeHam& makeHam)
      : PassRegion(entryCount, slice, makeHam, Zint::manualClockFactory("clock")) {}

  void pass() {
    const U32 audits = shadow->audits();
    while (shadow->audits() == audits) activity->turn();
  }
};

// On the system's clock: inside run(), which the end of a pass stops.
struct RunStand : PassRegion {
  RunStand(U32 entryCount, U32 slice, const MakeHam& makeHam)
      : PassRegion(entryCount, slice, makeHam, Zint::monotonicClockFactory("clock")),
        stopper(Zint::makePtr<Stopper>(activity, shadow)) {}

  void pass() { activity->run(); }

  class Stopper : public Hardware::HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onAudits() override { zintFwkActivity()->stop(); }
  };
  Zint::Ptr<Stopper> stopper;
};

}  // namespace Bench
