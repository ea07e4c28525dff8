// The model's judgement of a slice.
#include <algorithm>

#include "driverlockstep/Model.h"

namespace DriverLockstep {

using Driver::Nature;
using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;
using Driver::Verdict;
using Hardware::ChipMemory;

bool Model::equal(const EntryModel& entry, const Bytes& a, const Bytes& b) const {
  for (std::size_t i = 0; i < a.size(); ++i) {
    const U8 counts = entry.mask ? static_cast<U8>(~(*entry.mask)[i]) : U8{0xff};
    if (((a[i] ^ b[i]) & counts) != 0) return false;
  }
  return true;
}

// A difference that proves something: of a value that is known and not just written.
bool Model::differs(U32 r, U32 e, const Bytes& actual) const {
  const EntryModel& entry = regions[r].entries[e];
  return Driver::isCompared(entry.rule) && entry.known && !entry.mark &&
         !equal(entry, entry.shadow, actual);
}

void Model::clearMark(EntryModel& entry) {
  entry.written = entry.written || entry.mark;
  entry.mark = false;
}

// An entry leaves the quarantine after so many visits at which it was equal, or so long after the
// last difference.
void Model::countVisit(EntryModel& entry, const Bytes& actual) {
  if (entry.repairs.empty()) return;
  if (equal(entry, entry.shadow, actual)) {
    ++entry.cleanVisits;
  } else if (entry.isQuarantined) {
    entry.cleanVisits = 0;
    entry.lastDifference = now_;
  }
  const bool isOld = entry.lastDifference + settings.quarantineTime < now_;
  const bool isClean = entry.isQuarantined && entry.cleanVisits >= settings.quarantineVisits;
  if (!isOld && !isClean) return;
  if (entry.isQuarantined) {
    ++met[isClean ? "quarantine lifted by visits" : "quarantine lifted by time"];
  }
  entry.isQuarantined = false;
  entry.repairs.clear();
}

void Model::remember(EntryModel& entry, Nature& nature) {
  if (settings.quarantineRepairs == 0 && !settings.verifies) return;
  std::erase_if(entry.repairs,
                [&](Zint::Seconds time) { return time + settings.quarantineTime < now_; });
  if (!entry.repairs.empty() && nature == Nature::soft) nature = Nature::recurring;
  entry.repairs.push_back(now_);
  entry.lastDifference = now_;
  entry.cleanVisits = 0;
  if (settings.quarantineRepairs == 0) {
    entry.repairs.erase(entry.repairs.begin(), entry.repairs.end() - 1);
  } else if (entry.repairs.size() >= settings.quarantineRepairs) {
    entry.isQuarantined = true;
    ++met["quarantine"];
  }
}

void Model::tell(Pass& pass, U32 r, U32 e, const Bytes& expected, const Bytes& actual,
                 Verdict verdict, Nature nature) {
  const Event& event = take(What::finding, r, e);
  Event wanted{.what = What::finding, .region = r, .entry = e};
  wanted.data = actual;
  wanted.expected = expected;
  wanted.verdict = verdict;
  wanted.nature = nature;
  if (!event.equals(wanted)) {
    --at_;
    fail("the model wants: " + wanted.text());
  }
  ++met[std::string("finding ") + Driver::stringValue(verdict).bytes() + " " +
        Driver::stringValue(nature).bytes()];
  if (verdict == Verdict::adopted) {
    ++pass.adopted;
  } else if (verdict != Verdict::writtenMeanwhile) {
    ++pass.differences;
    ++findings;
  }
}

std::optional<Bytes> Model::readOne(U32 r, U32 e) {
  const Event& event = take(What::read, r, e);
  if (event.count != 1) fail("one entry is enough");
  if (!Driver::isRead(regions[r].entries[e].rule)) fail("an entry was read that must not be");
  if (event.answer) return std::nullopt;
  Bytes value = regions[r].entries[e].chip;
  if (!event.data.empty()) value = event.data;
  takeClients();
  return value;
}

// Asked after a second look: a chip that went away answers anything.
bool Model::isStillPresent(U32 chip) { return take(What::present, chip, 0).answer; }

bool Model::isProbe(U32 r, U32 e) const {
  const RegionModel& region = regions[r];
  const EntryModel& entry = region.entries[e];
  // What the restoring has not written, the reset has left so.
  if (chips[region.chip].isRestored && !entry.written) return false;
  return region.hasStore() && region.audited && region.mode != ChipMemory::buffered_ &&
         Driver::isCompared(entry.rule) && entry.known && !entry.mark && !entry.open &&
         entry.shadow != entry.reset;
}

bool Model::hasProbe(U32 chip, const std::set<std::pair<U32, U32>>& seen) const {
  for (U32 r = 0; r < regions.size(); ++r) {
    if (regions[r].chip != chip) continue;
    for (U32 e = 0; e < regions[r].entries.size(); ++e) {
      if (isProbe(r, e) && !seen.contains({r, e})) return true;
    }
  }
  return false;
}

// Reads up to 16 other entries of the chip.
bool Model::chipWasReset(Pass& pass, const Slice& slice, U32 entry, bool& isVoid) {
  const U32 chip = regions[slice.region].chip;
  pass.chipProbed[chip] = pass.regionProbed[slice.region] = true;
  U32 read = 0, wrong = 0;
  std::set<std::pair<U32, U32>> seen{{slice.region, entry}};
  while (read < 16 && hasProbe(chip, seen)) {
    const Event& event = peek();
    if (event.what != What::read || regions[event.region].chip != chip) {
      std::string which;
      for (U32 r = 0; r < regions.size(); ++r) {
        for (U32 e = 0; regions[r].chip == chip && e < regions[r].entries.size(); ++e) {
          if (isProbe(r, e) && !seen.contains({r, e})) {
            which += " r" + std::to_string(r) + " " + std::to_string(e);
          }
        }
      }
      fail("the model wants probe " + std::to_string(read) + ", one of" + which);
    }
    const U32 r = event.region, e = event.entry;
    if (!seen.insert({r, e}).second) fail("probed twice");
    if (!isProbe(r, e)) fail("not an entry to probe");
    const std::optional<Bytes> value = readOne(r, e);
    if (!value) {
      isVoid = true;
      ++met["probe threw"];
      isAbsent(chip, &pass);
      return false;
    }
    if (regions[r].entries[e].mark) continue;
    ++read;
    wrong += !equal(regions[r].entries[e], regions[r].entries[e].shadow, *value);
  }
  ++met[read < 4 ? "probes without a verdict" : "probes"];
  if (read < 4 || 2 * wrong < read) return false;
  if (isStillPresent(chip)) return true;
  ++met["absent while it was probed"];
  isVoid = true;
  isAbsent(chip, &pass);
  return false;
}

Model::Judged Model::judge(Pass& pass, Slice& slice, U32& judgedEnd) {
  RegionModel& region = regions[slice.region];
  for (const Read& read : slice.reads) {
    const bool isFirst = !pass.chipProbed[region.chip] || !pass.regionProbed[slice.region];
    if (!settings.findsResets || pass.isOnDemand || !isFirst) break;
    if (chips[region.chip].probedResets == 3) break;
    if (region.mode == ChipMemory::buffered_) break;
    if (!differs(slice.region, read.entry, read.value)) continue;
    bool isVoid = false;
    const Bytes expected = region.entries[read.entry].shadow;  // a client may write it meanwhile
    if (chipWasReset(pass, slice, read.entry, isVoid)) {
      tell(pass, slice.region, read.entry, expected, read.value, Verdict::reset);
      ++chips[region.chip].probedResets;
      doChipReset(region.chip);
      return Judged::isReset;
    }
    if (isVoid) {
      judgedEnd = slice.first;
      return Judged::isVoid;
    }
    break;
  }
  Judged judged = Judged::done;
  for (Read& read : slice.reads) {
    judged = judgeEntry(pass, slice.region, read.entry, read.value);
    if (judged != Judged::done) {
      judgedEnd = read.entry;
      break;
    }
    ++pass.entries;
  }
  for (const Read& read : slice.reads) {
    if (read.entry >= judgedEnd) break;
    EntryModel& entry = region.entries[read.entry];
    const bool isBaseline = region.hasPolicy && region.unwritten == Unwritten::baseline;
    if (isBaseline && Driver::isCompared(entry.rule) && !entry.known) {
      entry.known = true;
      ++met["known as baseline"];
    }
    countVisit(entry, read.value);
  }
  return judged;
}

Model::Judged Model::judgeEntry(Pass& pass, U32 r, U32 e, Bytes& actual) {
  RegionModel& region = regions[r];
  EntryModel& entry = region.entries[e];
  if (!Driver::isCompared(entry.rule) || equal(entry, entry.shadow, actual)) {
    entry.open = false;
    return Judged::done;
  }
  const Bytes expected = entry.shadow;
  if (!entry.known) {
    entry.shadow = actual;
    entry.known = true;
    entry.open = false;
    tell(pass, r, e, actual, actual, Verdict::adopted);
    return Judged::done;
  }
  if (entry.mark) {
    tell(pass, r, e, expected, actual, Verdict::writtenMeanwhile);
    return Judged::done;
  }
  std::optional<Verdict> verdict;
  if (entry.rule != Rule::repaired || (region.unwritten == Unwritten::defaults && !entry.written)) {
    verdict = Verdict::detectOnly;
  } else if (region.mode == ChipMemory::buffered_) {
    verdict = Verdict::deferred;
  } else if (entry.isQuarantined) {
    verdict = Verdict::quarantined;
  } else if (pass.repairs >= settings.repairsPerPass) {
    verdict = Verdict::deferred;
  }
  if (verdict) {
    entry.open = true;
    tell(pass, r, e, expected, actual, *verdict);
    return Judged::done;
  }
  if (repairsInTurn_ >= settings.repairsPerTurn) {
    ++met["turn full of repairs"];
    return Judged::endOfTurn;
  }
  return repair(pass, r, e, actual);
}

Model::Judged Model::repair(Pass& pass, U32 r, U32 e, Bytes& actual) {
  RegionModel& region = regions[r];
  EntryModel& entry = region.entries[e];
  const Bytes expected = entry.shadow;
  if (settings.rereads) {
    const std::optional<Bytes> again = readOne(r, e);
    if (!again || !isStillPresent(region.chip)) {
      ++met["absent at the second look"];
      isAbsent(region.chip, &pass);
      return Judged::isVoid;
    }
    if (entry.mark) {
      tell(pass, r, e, entry.shadow, actual, Verdict::writtenMeanwhile);
      return Judged::done;
    }
    if (equal(entry, expected, *again)) {
      entry.open = false;
      ++transients;
      tell(pass, r, e, expected, actual, Verdict::transient);
      return Judged::done;
    }
    actual = *again;
  }
  const Event& asked = take(What::veto, r, e);
  if (asked.expected != expected || asked.data != actual) fail("wrong bytes in the question");
  if (!asked.answer) {
    entry.open = true;
    tell(pass, r, e, expected, actual, Verdict::refused);
    return Judged::done;
  }
  bool threw = false, isLost = false;
  Bytes kept(region.entrySize, 0);
  const bool masks = entry.mask && *entry.mask != kept;
  if (masks && entry.rewrite == Rewrite::kept) {
    const std::optional<Bytes> now = readOne(r, e);
    threw = !now || !isStillPresent(region.chip);
    if (now) kept = *now;
    if (!threw && entry.mark) {
      tell(pass, r, e, entry.shadow, actual, Verdict::writtenMeanwhile);
      return Judged::done;
    }
  }
  Bytes written = entry.shadow;
  if (masks && entry.rewrite != Rewrite::shadow) {
    for (std::size_t i = 0; i < written.size(); ++i) {
      const U8 bits = (*entry.mask)[i];
      written[i] = static_cast<U8>((written[i] & ~bits) | (kept[i] & bits));
    }
  }
  if (!threw) {
    const Event& event = take(What::write, r, e);
    threw = event.answer;
    isLost = event.isLost;
    if (event.count != 1 || event.data != written) {
      --at_;
      Event wanted{.what = What::write, .region = r, .entry = e, .count = 1, .data = written};
      fail("the model wants: " + wanted.text());
    }
  }
  ++repairsInTurn_;
  if (threw) {
    entry.open = true;
    tell(pass, r, e, entry.shadow, actual, Verdict::failed);
    isAbsent(region.chip, &pass);
    return Judged::isVoid;
  }
  if (!isLost) takeWrite(r, e, written);
  takeClients();
  ++region.registersFixed;
  ++repairs;
  ++pass.repairs;
  Nature nature = Nature::unverified;
  if (settings.verifies && !entry.mark) {
    const std::optional<Bytes> after = readOne(r, e);
    threw = !after;
    if (after && !entry.mark) {
      const bool holds = equal(entry, entry.shadow, *after);
      threw = !holds && !isStillPresent(region.chip);
      if (!threw) nature = holds ? Nature::soft : Nature::stuck;
    }
  }
  remember(entry, nature);
  entry.open = nature == Nature::stuck || threw;
  tell(pass, r, e, entry.shadow, actual, Verdict::repaired, nature);
  if (threw) {
    isAbsent(region.chip, &pass);
    return Judged::isVoid;
  }
  return Judged::done;
}

}  // namespace DriverLockstep
