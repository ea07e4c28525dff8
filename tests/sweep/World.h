// What a scenario works on: a shadow with three regions on a chip, a reader, a directory and
// observers; each part is made by a step of the scenario.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>
#include <Zint/Activity.h>
#include <Zint/Trace.h>

#include <string>
#include <string_view>

#include "Chip.h"

namespace Sweep {

using Hardware::ChipAddress;
using Hardware::ChipHam;
using Hardware::ChipMemory;
using Hardware::ChipReader;
using Hardware::ChipReadRequest;
using Hardware::HardwareShadow;

// Counts the exceptions that the runtime has traced. Allocates nothing.
class ExceptionCount : public Zint::TraceSink {
 public:
  explicit ExceptionCount(U32 level) : before_(Zint::traceSinkIs(this)) {
    Hardware::umbraTrace().levelUpToIs(level);
  }
  ~ExceptionCount() override {
    Hardware::umbraTrace().levelUpToIs(0);
    Zint::traceSinkIs(before_);
  }
  void traceLine(const Zint::TraceLine& line) override {
    const bool exception = std::string_view(line.text).starts_with("exception in ");
    if (line.level == 0 && std::string_view(line.handle) == "Zint" && exception) ++exceptions;
  }

  U32 exceptions = 0;

 private:
  Zint::TraceSink* before_;
};

// Rewrites the chip whenever the region's mode changes, as a driver's observer may.
class ModeObserver : public ChipMemory::NotifieeConst {
 public:
  ModeObserver(const Zint::Ptr<Zint::ActivityConfig>& activity, const ChipMemory::Ptr& region)
      : NotifieeConst(activity, region) {}
  void onMode() override {
    ++begun;
    U32 mode = static_cast<U32>(notifier()->mode()) + 1;
    notifier()->chipHam()->doWrite(ChipAddress(0, 0x700), reinterpret_cast<U8*>(&mode), 4, 1);
    ++told;
  }
  void onNotificationException(Zint::AttributeId) override { ++reported; }

  U32 begun = 0, told = 0, reported = 0;
};

class DirectoryObserver : public Hardware::ChipMemoryBogon::NotifieeConst {
 public:
  DirectoryObserver(const Zint::Ptr<Zint::ActivityConfig>& activity,
                    const Hardware::ChipMemoryBogon::Ptr& directory)
      : NotifieeConst(activity, directory) {
    isNonReferencingIs(true);
  }
  void onChipMemory(Zint::String8) override { ++told; }
  void onNotificationException(Zint::AttributeId) override { ++reported; }

  U32 told = 0, reported = 0;
};

struct World {
  // `level`: the trace is built up to it.
  explicit World(U32 level) : trace(level) {}

  // --- What the steps use ---

  // As a client writes: the shadow first, the chip when the shadow says so.
  bool written(const ChipMemory::Ptr& cm, U32 entry, U32 value, U32 entries = 1);
  // As a client reads: the shadow first; else the chip, and what it says is offered to the shadow.
  bool read(const ChipMemory::Ptr& cm, U32 entry, U32& value);
  // The shadow with its store.
  bool shadowed(const ChipMemory::Ptr& cm);
  // Idle, configured from the start; also after an attempt that stopped midway.
  bool configured();
  // One audit pass, and idle again; false when it was not completed.
  bool pass();
  // Runs until nothing is armed or `end` says so.
  template <class End>
  void run(End end) {
    while (!end() && activity->wakeTime() != Zint::never) {
      if (activity->wakeTime() > clock->time()) clock->timeIs(activity->wakeTime());
      activity->turn();
    }
  }

  // --- What the checks use ---

  // The first broken rule; "" when all hold.
  std::string broken() const;
  // What has to come out the same in the end, failure or not: the chip, the regions and their
  // shadows, the registry, the state. Counters are left out: a repeated operation counts again.
  std::string image() const;

  ExceptionCount trace;
  Chip::Ptr chip = Zint::makePtr<Chip>();

  // Destroyed from the last to the first, as an owner would.
  Zint::Ptr<Zint::ManualClock> clock, otherClock;
  Zint::Ptr<Zint::ActivityConfig> activity;
  ChipHam::Ptr ham, derived;
  ChipMemory::Ptr a, b, c, spare;
  HardwareShadow::Ptr shadow;
  ChipReader::Ptr reader, ownReader;
  ChipReadRequest::Ptr ownRequest;
  Hardware::ChipMemoryBogon::Ptr directory;
  Zint::Ptr<ModeObserver> modeObserver;
  Zint::Ptr<DirectoryObserver> directoryObserver;
  U32 changes = 0;              // of the directory, of which its observer is to be notified
  U32 answer = 0;               // of the last read
  Hal::BufBase::Ptr stores[3];  // that a failed write-back has to leave in place
  bool staleStore = false;      // entries have changed, the store not yet
  bool keepsClock = false;      // the shadow's and the reader's clock are only ever replaceRegion
  bool keepsRequest = false;    // the same for the requests that they hold
  U32 fixedBefore = 0;          // repairs, before the pass
};

}  // namespace Sweep
