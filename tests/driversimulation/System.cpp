// What happens in a system: clients, faults, changes, time.
#include "driversimulation/System.h"

#include <algorithm>

#include "driversimulation/Parts.h"

namespace DriverSimulation {

using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

System::System(U64 seed) : random_(seed) {
  shadow_ = Driver::auditedShadowFactory(loop_.activity, loop_.clock);
  const U32 chips = random_.between(1, 3);
  for (U32 c = 0; c < chips; ++c) {
    Chip chip;
    chip.ham = Zint::makePtr<Ham>("ham" + std::to_string(c), *this, c);
    chip.chip = Zint::makePtr<TellingChip>("chip" + std::to_string(c), chip.ham, *this, c);
    const Bytes id{0xa5};
    chip.chip->sentinelIs(Hardware::ChipAddress(sentinelAddress), id);
    shadow_->chipIs(chip.chip);
    chips_.push_back(chip);
    chips_.back().watch = Zint::makePtr<ChipWatch>(*this, c);
  }
  const U32 regions = random_.between(1, 5);
  for (U32 r = 0; r < regions; ++r) makeRegion(r);
  shadow_->maxEntriesPerSliceIs(random_.between(1, 40));
  shadow_->sliceIntervalIs(random_.seconds(1, 50));
  shadow_->maxEntriesPerReplaySliceIs(shadow_->maxEntriesPerSlice());
  shadow_->replayIntervalIs(shadow_->sliceInterval());
  shadow_->minIntervalBetweenAuditsIs(random_.seconds(100, 5000));
  shadow_->rereadsIs(random_.oneIn(2));
  shadow_->verifiesIs(random_.oneIn(2));
  shadow_->quarantineRepairsIs(random_.below(4));
  shadow_->maxRepairsPerTurnIs(random_.oneIn(3) ? 2 : 4096);
  if (random_.oneIn(3)) vetoOneIn_ = random_.between(2, 10);
  watch_ = Zint::makePtr<Watch>(*this);
  shadow_->stateIs(HardwareShadow::configured());
}

System::~System() {
  for (Chip& chip : chips_) chip.watch->isRegisteredNotifieeIs(false);
  shadow_->stateIs(HardwareShadow::idle());
}

void System::makeRegion(U32 number) {
  constexpr U32 sizes[] = {1, 2, 4, 4, 8};
  const U32 size = random_.oneOf(sizes);
  const U32 entries = random_.between(1, 80);
  Region region;
  region.chip = random_.below(static_cast<U32>(chips_.size()));
  region.memory = Hardware::chipMemoryFactory("r" + std::to_string(number),
                                              Hardware::ChipAddress(spaceOfRegion * (number + 1)),
                                              entries, size, size, chips_[region.chip].ham);
  region.memory->shadowEnabledIs(true);
  region.memory->auditEnabledIs(true);
  region.memory->skipWriteIfMatchesCacheIs(random_.oneIn(2));
  region.memory->readFromCacheIs(random_.oneIn(2));
  region.entries.resize(entries);
  for (Entry& entry : region.entries) entry.chip.assign(size, 0);
  region.policy = Driver::policyFactory(region.memory);
  drawPolicy(region);
  shadow_->chipMemoryIs(region.memory);
  shadow_->policyIs(region.policy);
  region.access = Driver::chipAccessFactory(shadow_, region.memory);
  regions_.push_back(region);
}

void System::drawPolicy(Region& region) {
  const U32 entries = static_cast<U32>(region.entries.size());
  for (U32 runs = random_.below(5); runs > 0; --runs) {
    const U32 first = random_.below(entries);
    const U32 count = random_.between(1, entries - first);
    const Rule rule = static_cast<Rule>(random_.below(6));
    region.policy->ruleIs(first, count, rule);
    for (U32 e = first; e < first + count; ++e) region.entries[e].rule = rule;
  }
  if (random_.oneIn(2)) {
    const U32 first = random_.below(entries);
    const U32 count = random_.between(1, entries - first);
    Bytes mask(region.memory->entrySize(), 0);
    mask[0] = random_.byte();
    const Rewrite rewrite = static_cast<Rewrite>(random_.below(3));
    region.policy->maskIs(first, count, mask, rewrite);
    for (U32 e = first; e < first + count; ++e) {
      region.entries[e].mask = mask;
      region.entries[e].rewrite = rewrite;
    }
  }
  if (random_.oneIn(3)) {
    const U32 e = random_.below(entries);
    region.policy->onceIs(e, 1, true);
    region.entries[e].isOnce = true;
  }
  if (random_.oneIn(2)) region.policy->unwrittenIs(Unwritten::baseline);
}

Outcome System::perform() {
  shadow_->stateIs(HardwareShadow::auditing());
  for (U32 rounds = random_.between(6, 12); rounds > 0 && outcome_.failure.empty(); --rounds) {
    round();
  }
  if (outcome_.failure.empty()) endFaults();
  if (outcome_.failure.empty()) checkEnd();
  outcome_.met["complete pass"] += completePasses_;
  outcome_.met["pass"] += passes_;
  return outcome_;
}

void System::round() {
  for (U32 acts = random_.between(20, 60); acts > 0; --acts) {
    act();
    for (U32 turns = random_.below(4); turns > 0; --turns) turn();
  }
  for (Region& region : regions_) {
    for (Entry& entry : region.entries) {
      if (entry.rule == Rule::volatile_ && random_.oneIn(3)) {
        entry.chip[0] = random_.byte();
        entry.faultAt = ++stamp_;
      }
      if (entry.rule == Rule::noRead && random_.oneIn(3)) {
        ++entry.counted;
        ++entry.happened;
      }
    }
  }
  checkProgress();
}

void System::act() {
  const U32 r = random_.below(static_cast<U32>(regions_.size()));
  const U32 e = random_.below(static_cast<U32>(regions_[r].entries.size()));
  const U32 what = random_.below(100);
  if (what < 60) {
    client(r, e);
  } else if (what < 85) {
    fault(r, e);
  } else if (what < 92) {
    chipFault(regions_[r].chip);
  } else {
    change();
  }
}

// Offers a write; it reaches the chip now or some turns later. Or reads a counter.
void System::client(U32 r, U32 e) {
  Region& region = regions_[r];
  Entry& entry = region.entries[e];
  if (entry.rule == Rule::noRead && !chips_[region.chip].isAway) {
    entry.seen += std::exchange(entry.counted, 0);
    ++outcome_.met["counter read"];
    return;
  }
  if (entry.rule == Rule::readOnly) return;
  if (entry.pending == 0 && random_.oneIn(4)) return accessClient(r, e);
  Bytes value = drawValue(region);
  const bool isHit = shadow_->shadowWriteAndCompareWithCache(region.memory, e, value.data(),
                                                             region.memory->entrySize());
  if (isHit) return;
  entry.wasWritten = true;
  entry.changedAt = completePasses_;
  entry.writtenAt = ++stamp_;
  if (region.isBuffered) return;
  ++entry.pending;
  pending_.push_back({random_.below(6), r, e, value});
  ++outcome_.met["client write"];
}

// Writes the shadow and the chip at once, or leaves the chip to the replay.
void System::accessClient(U32 r, U32 e) {
  Region& region = regions_[r];
  Entry& entry = region.entries[e];
  const Driver::Chip& chip = *chips_[region.chip].chip;
  const Bytes value = drawValue(region);
  const U64 held = region.access->writesHeld(), written = region.access->writeMisses();
  entry.wasWritten = true;
  entry.changedAt = completePasses_;
  entry.writtenAt = ++stamp_;
  inAccess_ = true;
  try {
    region.access->writeBytes(e, value);
    ++outcome_.met["access"];
  } catch (const std::runtime_error&) {
    ++outcome_.met["access threw"];
    if (!shadow_->hasOpenFinding(region.memory, e)) broken("no finding after" + place(r, e));
  }
  inAccess_ = false;
  if (region.access->writesHeld() != held) {
    entry.isHeld = true;
    ++outcome_.met["access held"];
    if (!chip.isRestoring()) broken("held without a replay" + place(r, e));
  }
  if (chip.isAbsent() && region.access->writeMisses() != written) {
    ++outcome_.met["access to an absent chip"];
    if (!shadow_->hasOpenFinding(region.memory, e)) broken("no finding of" + place(r, e));
  }
}

void System::fault(U32 r, U32 e) {
  Region& region = regions_[r];
  Entry& entry = region.entries[e];
  if (entry.rule == Rule::noRead || entry.isStuck) return;
  entry.changedAt = completePasses_;
  if (random_.oneIn(3)) {
    entry.glitches = true;
    return;
  }
  if (random_.oneIn(12)) {
    entry.isStuck = true;
    ++outcome_.met["stuck"];
  }
  entry.chip[random_.below(region.memory->entrySize())] ^= static_cast<U8>(1u << random_.below(8));
  entry.faultAt = ++stamp_;
  ++outcome_.met["flip"];
}

void System::chipFault(U32 c) {
  Chip& chip = chips_[c];
  switch (random_.below(6)) {
    case 0:
      chip.isAway = true;
      chip.throws = random_.oneIn(2);
      ++outcome_.met["chip vanishes"];
      break;
    case 1:
      for (Region& region : regions_) {
        if (region.chip != c) continue;
        for (Entry& entry : region.entries) {
          if (entry.isStuck || entry.rule == Rule::noRead) continue;
          std::fill(entry.chip.begin(), entry.chip.end(), U8{0});
          entry.changedAt = completePasses_;
          entry.faultAt = ++stamp_;
        }
      }
      ++outcome_.met["chip reset"];
      ++chip.resets;
      chip.isToldOf = chip.isForgotten = true;
      if (random_.oneIn(2)) chip.chip->doChipReset();
      break;
    default:
      chip.isAway = false;
      break;
  }
}

void System::change() {
  const U32 what = random_.below(5);
  if (what == 0) shadow_->pausedIs(!shadow_->paused());
  if (what == 1) shadow_->stateIs(HardwareShadow::idle());
  if (what >= 2) shadow_->stateIs(HardwareShadow::auditing());
  if (what == 4) {
    Region& region = regions_[random_.below(static_cast<U32>(regions_.size()))];
    // Only one that holds nothing yet: to leave the mode writes and forgets the whole store.
    const bool isFresh = std::none_of(region.entries.begin(), region.entries.end(),
                                      [](const Entry& entry) { return entry.wasWritten; });
    if (!isFresh || region.isBuffered) return;
    region.isBuffered = true;
    region.memory->modeIs(ChipMemory::buffered());
    ++outcome_.met["buffered"];
  }
}

void System::turn() {
  const Zint::Seconds wake = loop_.activity->wakeTime();
  if (wake != Zint::never && wake > loop_.clock->time()) loop_.clock->timeIs(wake);
  inTurn_ = true;
  loop_.turn();
  inTurn_ = false;
  for (std::size_t i = 0; i < pending_.size();) {
    if (pending_[i].turns-- > 0) {
      ++i;
      continue;
    }
    // In the order of the offers of one entry.
    const Pending now = pending_[i];
    const auto earlier = std::find_if(pending_.begin(), pending_.end(), [&](const Pending& other) {
      return other.region == now.region && other.entry == now.entry;
    });
    if (earlier != pending_.begin() + static_cast<std::ptrdiff_t>(i)) {
      pending_[i].turns = 0;
      ++i;
      continue;
    }
    pending_.erase(pending_.begin() + static_cast<std::ptrdiff_t>(i));
    Region& region = regions_[now.region];
    Entry& entry = region.entries[now.entry];
    --entry.pending;
    entry.changedAt = completePasses_;
    if (chips_[region.chip].isAway) {
      // A client that knows of a failed write says so.
      shadow_->openFindingIs(region.memory, now.entry, true);
    } else if (!entry.isStuck) {
      entry.chip = now.value;
    }
  }
}

void System::runFor(Zint::Seconds duration) {
  const Zint::Seconds until = loop_.clock->time() + duration;
  for (U32 turns = 0; loop_.clock->time() < until && turns < 20'000; ++turns) {
    const Zint::Seconds wake = loop_.activity->wakeTime();
    if (wake > until) loop_.clock->timeIs(until);
    turn();
  }
}

void System::endFaults() {
  isQuiet_ = true;
  vetoOneIn_ = 0;
  for (Region& region : regions_) {
    for (U32 e = 0; e < region.entries.size(); ++e) {
      // What it did not take before, the next pass finds.
      if (region.entries[e].isStuck) region.entries[e].faultAt = ++stamp_;
      region.entries[e].isStuck = region.entries[e].glitches = false;
      region.entries[e].changedAt = completePasses_;
      shadow_->quarantineDel(region.memory, e);
    }
  }
  for (Chip& chip : chips_) chip.isAway = false;
  shadow_->pausedIs(false);
  shadow_->stateIs(HardwareShadow::auditing());
  const U32 before = completePasses_;
  for (U32 i = 0; i < 100 && completePasses_ < before + 3; ++i) runFor(20);
  if (completePasses_ < before + 3) {
    broken("no complete pass when the faults have ended: " + shadow_->patrolReason().bytes() +
           ", " + Driver::stringValue(shadow_->patrolState()).bytes() + ", after pass " +
           std::to_string(passes_) + ": " + last_);
  }
}

System::Bytes System::drawValue(const Region& region) {
  Bytes value(region.memory->entrySize(), 0);
  if (random_.oneIn(6)) return value;
  for (U8& byte : value) byte = random_.oneIn(2) ? random_.byte() : U8{1};
  return value;
}

}  // namespace DriverSimulation
