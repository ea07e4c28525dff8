// The model's entries: what clients and owners do to them.
#include "driverlockstep/Model.h"

namespace DriverLockstep {

using Driver::Rule;
using Driver::Unwritten;
using Hardware::ChipMemory;

Model::Model(const Plan& plan, const World& world) : world_(world) {
  chips.resize(plan.chips);
  for (const Plan::Region& drawn : plan.regions) {
    RegionModel region;
    region.chip = drawn.chip;
    region.entrySize = drawn.entrySize;
    region.skips = drawn.skips;
    region.serves = drawn.serves;
    region.audited = drawn.audited;
    region.entries.resize(drawn.entries);
    for (EntryModel& entry : region.entries) {
      entry.shadow = entry.chip = entry.reset = Bytes(drawn.entrySize, 0);
    }
    regions.push_back(region);
  }
  settings.slice = plan.slice;
}

void Model::offer(U32 r, U32 e, const Bytes& value) {
  RegionModel& region = regions[r];
  if (!region.hasStore()) return;
  EntryModel& entry = region.entries[e];
  if (region.skips && entry.known && entry.shadow == value && entry.rule != Rule::volatile_) {
    ++region.writeHits;
    return;
  }
  entry.shadow = value;
  entry.known = entry.mark = true;
}

void Model::writeChip(U32 r, U32 e, const Bytes& value) {
  if (world_.faults[regions[r].chip].absence == Absence::none) takeWrite(r, e, value);
}

// What the chip does with a write that reaches it.
void Model::takeWrite(U32 r, U32 e, const Bytes& value) {
  if (world_.faults[regions[r].chip].stuck.contains({r, e})) return;
  regions[r].entries[e].chip = value;
}

bool Model::readFromCache(U32 r, U32 e, Bytes& value) {
  RegionModel& region = regions[r];
  const EntryModel& entry = region.entries[e];
  if (!region.serves) return false;
  if (region.mode == ChipMemory::override_) {
    value.assign(region.entrySize, 0);
    return true;
  }
  if (!entry.known || entry.rule == Rule::volatile_) return false;
  value = entry.shadow;
  ++region.readHits;
  return true;
}

void Model::clearRange(U32 r, U32 first, U32 last) {
  RegionModel& region = regions[r];
  if (!region.hasStore()) return;
  for (U32 e = first; e <= last; ++e) {
    EntryModel& entry = region.entries[e];
    entry.shadow.assign(region.entrySize, 0);
    entry.known = entry.mark = true;
  }
}

void Model::newStore(RegionModel& region) {
  for (EntryModel& entry : region.entries) {
    entry.shadow.assign(region.entrySize, 0);
    entry.known = entry.mark = entry.written = entry.open = entry.assumed = false;
  }
  if (region.hasStore()) applyUnwritten(region);
}

void Model::modeIs(U32 r, ChipMemory::ChipMemoryMode mode) {
  RegionModel& region = regions[r];
  if (region.mode == mode) return;
  region.mode = mode;
  regionChanged(r);
  if (region.shadowEnabled) newStore(region);
}

void Model::shadowEnabledIs(U32 r, bool enabled) {
  RegionModel& region = regions[r];
  if (region.shadowEnabled == enabled) return;
  region.shadowEnabled = enabled;
  regionChanged(r);
  newStore(region);
}

void Model::applyUnwritten(RegionModel& region) {
  if (!region.hasPolicy) return;
  const bool isAssumed =
      region.unwritten == Unwritten::zero || region.unwritten == Unwritten::defaults;
  for (EntryModel& entry : region.entries) {
    if (entry.assumed && !entry.written && !entry.mark) {
      entry.shadow.assign(region.entrySize, 0);
      entry.known = false;
    }
    entry.assumed = false;
    if (!isAssumed || entry.known || !Driver::isCompared(entry.rule)) continue;
    entry.shadow = region.unwritten == Unwritten::zero ? Bytes(region.entrySize, 0) : entry.reset;
    entry.known = entry.assumed = true;
  }
}

void Model::regionChanged(U32 r) {
  if (pass_) pass_->isLenient[r] = true;
}

void Model::handlePolicy(U32 r) {
  regionChanged(r);
  if (regions[r].hasStore()) applyUnwritten(regions[r]);
}

void Model::policyDel(U32 r) {
  RegionModel& region = regions[r];
  regionChanged(r);
  region.hasPolicy = false;
  region.unwritten = Unwritten::adopted;
  for (EntryModel& entry : region.entries) {
    entry.rule = Rule::repaired;
    entry.mask.reset();
    entry.rewrite = Driver::Rewrite::kept;
    entry.reset.assign(region.entrySize, 0);
  }
}

void Model::quarantineDel(U32 r, U32 e) {
  EntryModel& entry = regions[r].entries[e];
  if (entry.isQuarantined) ++met["quarantine lifted by command"];
  entry.isQuarantined = false;
  entry.repairs.clear();
}

void Model::doChipReset(U32 chip, bool hasTold) {
  ++chips[chip].resets;
  chips[chip].isTold = !hasTold;
  chips[chip].isRestoring = true;
  if (pass_) pass_->chipFailed[chip] = pass_->chipReset[chip] = true;
}

void Model::stateIs(bool auditing) {
  isAuditing = auditing;
  if (pass_ && !auditing) pass_->isEnded = true;
}

// Of chips that answer, one is enough to go on.
Driver::PatrolState Model::patrolState() const {
  using Driver::PatrolState;
  bool isAnyAlive = false, isAnyAbsent = false, isAnyRestoring = false;
  for (const ChipModel& chip : chips) {
    isAnyAbsent = isAnyAbsent || chip.isAbsent;
    isAnyRestoring = isAnyRestoring || chip.isRestoring;
    isAnyAlive = isAnyAlive || (chip.isAlive && !chip.isAbsent && !chip.isRestoring);
  }
  if (!isAuditing) return isAnyRestoring ? PatrolState::restoring : PatrolState::stopped;
  if (isPaused) return PatrolState::paused;
  if (isAnyRestoring && !isAnyAlive) return PatrolState::restoring;
  if (isAnyAbsent && !isAnyAlive) return PatrolState::suspended;
  return isInPass() ? PatrolState::reading : PatrolState::waiting;
}

bool Model::canRead(U32 r) const {
  const RegionModel& region = regions[r];
  const ChipModel& chip = chips[region.chip];
  if (!region.audited || !region.hasStore() || chip.isAbsent || chip.isRestoring) return false;
  for (const EntryModel& entry : region.entries) {
    if (Driver::isRead(entry.rule)) return true;
  }
  return false;
}

}  // namespace DriverLockstep
