#include "callouts/Scenario.h"

namespace CallOuts {
namespace {

void bringUp(World& w) { w.bringUp(); }

void writeAsClients(World& w) {
  w.write(World::masked, 0, 8, 0x11110000);
  w.write(World::masked, 14, 1, 0x1414);
  w.write(World::plain, 2, 1, 0x2222);
  w.write(World::plain, 4, 6, 0x22220000);
  w.write(World::compared, 0, 9, 0x33330000);
  w.write(World::held, 0, 5, 0x44440000);
}

void readAsClients(World& w) {
  w.read(World::masked, 0, 14);
  w.read(World::compared, 3, 1);
}

void adopt(World& w) {
  w.registersOf(World::plain).word(0x200 + 4 * 12) = 0xabcd;  // nobody has written it
  w.registersOf(World::compared).word(0x300 + 4 * 12) = 0xabcd;
  w.pass(2);
}

void repair(World& w) {
  w.damage(World::masked, 1, 0x01000010);
  w.damage(World::masked, 14, 0x10000);
  w.damage(World::plain, 5, 0xff);
  w.damage(World::compared, 6, 0x100);
  w.registersOf(World::plain).transient = 0x200 + 4 * 7;
  w.pass();
}

void repairStuck(World& w) {
  CountedHam& registers = w.registersOf(World::plain);
  registers.stuck = 0x200 + 4 * 8;
  w.damage(World::plain, 8, 0x100);
  w.pass(2);
  registers.stuck = ~U64{0};
  w.pass();
  if (const AuditedShadow::Ptr shadow = w.shadow; shadow != nullptr) {
    shadow->quarantineDel(ChipMemory::Ptr(w.regions[World::plain]), 8);
  }
  w.pass();
}

void beAbsent(World& w) {
  w.damage(World::plain, 9, 0x10);
  w.hams[0]->isAway = true;
  for (U32 turns = 0; turns < 12; ++turns) w.turn();
  w.hams[0]->isAway = false;
  w.pass();
}

void beReset(World& w) {
  CountedHam& registers = w.registersOf(World::masked);
  const U32 sentinel = registers.word(0x10);
  registers.clear();
  registers.word(0x10) = sentinel;
  w.isResetPending = true;
  w.pass();
}

// No register tells of it: other entries do.
void beResetUnnoticed(World& w) {
  w.registersOf(World::compared).clear();
  w.pass();
}

void auditOnDemand(World& w) {
  w.damage(World::plain, 4, 0x20);
  const AuditedShadow::Ptr shadow = w.shadow;
  if (shadow == nullptr || shadow->state() != HardwareShadow::auditing()) return;
  const ChipMemory::Ptr region = w.regions[World::plain];
  if (region == nullptr || !region->shadowStoreNeeded() || region->hardware() == nullptr) return;
  try {
    shadow->doAudit(region, 0, region->entries());
  } catch (const Zint::RangeException&) {
    // Its buffers may be too short by now.
  }
}

void writeBuffered(World& w) {
  const ChipMemory::Ptr region = w.regions[World::held];
  if (region == nullptr || w.writer == nullptr || w.shadow == nullptr) return;
  region->modeIs(ChipMemory::buffered());
  w.isWritten[World::held] = {};  // its store was made anew
  w.write(World::held, 3, 6, 0x45450000);
  const ChipWriter::Ptr writer = w.writer;
  if (writer == nullptr || region->mode() != ChipMemory::buffered() || w.shadow == nullptr ||
      writer->shadow() == nullptr) {
    return;
  }
  try {
    writer->doLeaveBuffered(region);
  } catch (const Zint::RangeException&) {
    // The chip may be absent.
  }
  if (region->mode() == ChipMemory::buffered()) w.pass();
}

void leaveBuffered(World& w) {
  const ChipMemory::Ptr region = w.regions[World::held];
  if (region != nullptr && region->mode() == ChipMemory::buffered()) {
    const ChipWriter::Ptr writer = w.writer;
    if (writer != nullptr && writer->shadow() != nullptr && !w.shadow->overrideHardware() &&
        region->shadow() != nullptr) {
      writer->doLeaveBuffered(region);
    }
  }
}

void replayOnDemand(World& w) {
  const ChipWriteRequest::Ptr request = w.request;
  if (request == nullptr) return;
  if (request->state() == Zint::Request::start_) request->stateIs(Zint::Request::stop_);
  request->stateIs(Zint::Request::start_);
  for (U32 turns = 0; turns < 200; ++turns) {
    w.turn();
    if (request->status() == Zint::Request::done_) return;
    if (request->status() == Zint::Request::failed_) {
      w.pass();
      if (const ChipWriter::Ptr writer = w.writer; writer != nullptr) writer->doResume();
    }
  }
}

void writeWhileRestoring(World& w) {
  const Zint::Ptr<CountedChip> chip = w.chip;
  if (chip == nullptr || w.shadow == nullptr) return;
  if (!chip->isRestoring()) chip->doChipReset();
  w.write(World::masked, 2, 2, 0x51510000);
  w.write(World::plain, 6, 1, 0x52520000);
  w.pass();
}

void patrol(World& w) { w.pass(2); }

void beGoverned(World& w) {
  w.addGovernor();
  w.damage(World::plain, 6, 0x40);
  w.pass(2);
  if (const Driver::Governor::Ptr governor = w.governor; governor != nullptr) {
    governor->periodIs(3);
    (void)governor->wishes();
  }
  w.pass();
}

constexpr Step everyStep[] = {
    {"bring-up", bringUp},
    {"clients write", writeAsClients},
    {"clients read", readAsClients},
    {"adoption", adopt},
    {"repairs", repair},
    {"a stuck entry", repairStuck},
    {"an absence", beAbsent},
    {"a reset", beReset},
    {"an unnoticed reset", beResetUnnoticed},
    {"an audit on demand", auditOnDemand},
    {"buffered writes", writeBuffered},
    {"the end of buffering", leaveBuffered},
    {"a replay on demand", replayOnDemand},
    {"writes while restoring", writeWhileRestoring},
    {"a patrol", patrol},
    {"a pace", beGoverned},
};

}  // namespace

std::span<const Step> steps() { return everyStep; }

}  // namespace CallOuts
