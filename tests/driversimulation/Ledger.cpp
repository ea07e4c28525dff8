// The ledger: what each access may be, and what must hold after passes, replays and at the end.
#include <algorithm>

#include "driversimulation/Parts.h"

namespace DriverSimulation {

using Driver::Rewrite;
using Driver::Rule;

void System::broken(const std::string& text) {
  if (!outcome_.failure.empty()) return;
  outcome_.failure = "at " + std::to_string(loop_.clock->time()) + " s, after " +
                     std::to_string(completePasses_) + " complete passes: " + text;
}

std::string System::place(U32 region, U32 entry) const {
  return " r" + std::to_string(region) + " entry " + std::to_string(entry) + " (" +
         Driver::stringValue(regions_[region].entries[entry].rule).bytes() + ")";
}

System::Bytes System::shadowed(const Region& region, U32 entry) const {
  const U32 size = region.memory->entrySize();
  const U8* at = region.memory->shadow()->data() + std::size_t{size} * entry;
  return Bytes(at, at + size);
}

bool System::isKnown(const Region& region, U32 entry) const {
  return region.memory->entryInitialized(entry);
}

bool System::isEqual(const Region& region, U32 e) const {
  const Bytes shadow = shadowed(region, e);
  const Entry& entry = region.entries[e];
  for (std::size_t i = 0; i < shadow.size(); ++i) {
    const U8 counts = entry.mask.empty() ? U8{0xff} : static_cast<U8>(~entry.mask[i]);
    if (((shadow[i] ^ entry.chip[i]) & counts) != 0) return false;
  }
  return true;
}

// Every read in a turn is the patrol's or the replay's: neither reads what must not be read.
void System::onRead(U32 r, U32 first, U32 count) {
  for (U32 e = first; e < first + count; ++e) {
    Entry& entry = regions_[r].entries[e];
    if (!Driver::isRead(entry.rule)) broken("read of" + place(r, e));
    if (entry.rule == Rule::noRead) entry.counted = 0;
    ++outcome_.met["entry read"];
  }
}

void System::onWrite(U32 r, U32 first, U32 count, const U8* data) {
  Region& region = regions_[r];
  const U32 size = region.memory->entrySize();
  const bool isReplay = !inAccess_ && chips_[region.chip].chip->isRestoring();
  if (!inTurn_ && !inAccess_) broken("a write outside of a turn" + place(r, first));
  if (region.isBuffered) broken("a write of a buffered region" + place(r, first));
  if (!isReplay && count != 1) broken("a repair of several entries" + place(r, first));
  for (U32 e = first; e < first + count; ++e) {
    Entry& entry = region.entries[e];
    const Bytes shadow = shadowed(region, e);
    if (!chips_[region.chip].isAway) entry.isHeld = false;
    if (inAccess_) {
      if (!std::equal(shadow.begin(), shadow.end(), data + std::size_t{size} * (e - first))) {
        broken("a client writes another value than the shadow's" + place(r, e));
      }
      continue;
    }
    ++outcome_.met[isReplay ? "entry replayed" : "entry repaired"];
    if (isReplay) {
      if (entry.isOnce && count != 1) broken("a replay that merges" + place(r, e));
      if (!entry.wasWritten) broken("a replay of what nobody wrote" + place(r, e));
      if (entry.rule == Rule::readOnly) broken("a replay of" + place(r, e));
    } else {
      if (entry.rule != Rule::repaired) broken("a repair of" + place(r, e));
      if (shadow_->isQuarantined(region.memory, e)) broken("a repair in quarantine" + place(r, e));
      if (!isKnown(region, e)) broken("a repair of an unknown value" + place(r, e));
    }
    for (U32 i = 0; i < size; ++i) {
      const U8 masked = entry.mask.empty() ? U8{0} : entry.mask[i];
      const U8 written = data[std::size_t{size} * (e - first) + i];
      if (((written ^ shadow[i]) & ~masked) != 0)
        broken("another value than the shadow's" + place(r, e));
      if (isReplay) continue;
      const U8 wanted = entry.rewrite == Rewrite::kept   ? entry.chip[i]
                        : entry.rewrite == Rewrite::zero ? U8{0}
                                                         : shadow[i];
      if (((written ^ wanted) & masked) != 0) broken("wrong masked bits" + place(r, e));
    }
  }
}

// The restoring begins, or begins anew. However many tell of a reset, it is one.
void System::onReset(U32 chip) {
  chips_[chip].restoringAt = ++stamp_;
  if (chips_[chip].chip->resets() > chips_[chip].resets) {
    broken("reset told twice, of " + chips_[chip].chip->name().bytes());
  }
}

// Whatever was interleaved: what clients wrote is in the chip. Of what a fault did after the
// restoring began the replay need not know: the next pass finds it. A write that its client has not
// made yet is that client's.
void System::onRestored(U32 chip) {
  ++outcome_.met["replay ended"];
  if (!tellsOfReset(chip) || !chips_[chip].isToldOf) chips_[chip].isForgotten = false;
  if (chips_[chip].isAway) return;
  for (U32 r = 0; r < regions_.size(); ++r) {
    const Region& region = regions_[r];
    if (region.chip != chip || region.isBuffered) continue;
    for (U32 e = 0; e < region.entries.size(); ++e) {
      const Entry& entry = region.entries[e];
      if (entry.isHeld) broken("a write that was held is lost" + place(r, e));
      const bool isReplayed = entry.wasWritten && entry.pending == 0 && !entry.isStuck &&
                              entry.rule != Rule::readOnly &&
                              entry.faultAt <= chips_[chip].restoringAt;
      // What is once may have been interrupted.
      if (!isReplayed || entry.isOnce) continue;
      ++outcome_.met["entry compared after a replay"];
      if (entry.writtenAt > chips_[chip].restoringAt) ++outcome_.met["of them written meanwhile"];
      if (!isEqual(region, e)) {
        broken("not restored" + place(r, e) + ", changed after pass " +
               std::to_string(entry.changedAt) + "," +
               (shadow_->isWritten(region.memory, e) ? "" : " not") + " written;" + entry.last);
      }
    }
  }
}

// What was wrong before the pass began is repaired, or there is a finding of it.
void System::onCompletePass() {
  ++completePasses_;
  for (U32 r = 0; r < regions_.size(); ++r) {
    const Region& region = regions_[r];
    if (region.isBuffered || region.memory->shadow() == nullptr) continue;
    for (U32 e = 0; e < region.entries.size(); ++e) {
      const Entry& entry = region.entries[e];
      const bool isOld = entry.changedAt + 2 < completePasses_ && entry.pending == 0;
      if (entry.rule != Rule::repaired || !isOld || !isKnown(region, e) || isEqual(region, e)) {
        continue;
      }
      const U8 marks = region.memory->dirty()->data()[e >> 3];
      if ((marks >> (e & 7) & 1) != 0) continue;
      ++outcome_.met["difference with a finding"];
      if (shadow_->hasOpenFinding(region.memory, e)) continue;
      if (shadow_->isQuarantined(region.memory, e)) continue;
      // A stuck entry whose repair nobody verifies is repaired in each pass.
      if (entry.isStuck && !shadow_->verifies()) continue;
      broken("neither repaired nor explained:" + place(r, e) + (entry.isStuck ? " stuck" : "") +
             ", changed after pass " + std::to_string(entry.changedAt) + ";" + entry.last);
    }
  }
}

// After a quiet stretch a pass has been completed, or there is a reason.
void System::checkProgress() {
  const U32 before = completePasses_;
  for (U32 i = 0; i < 8 && completePasses_ == before; ++i) runFor(20);
  if (completePasses_ > before) return;
  const std::string reason = shadow_->patrolReason().bytes();
  ++outcome_.met["no pass, with a reason"];
  if (reason.empty()) broken("the patrol is dead without a reason");
}

// The faults have ended and passes were completed: chip and shadow are equal.
void System::checkEnd() {
  for (U32 r = 0; r < regions_.size(); ++r) {
    const Region& region = regions_[r];
    if (region.isBuffered) continue;
    for (U32 e = 0; e < region.entries.size(); ++e) {
      const Entry& entry = region.entries[e];
      if (entry.seen + entry.counted != entry.happened) broken("events are lost:" + place(r, e));
      if (entry.rule != Rule::repaired) continue;
      if (!isKnown(region, e)) {
        if (!isEqual(region, e)) broken("not even known at the end:" + place(r, e));
      } else if (!isEqual(region, e)) {
        broken("wrong at the end:" + place(r, e));
      }
    }
  }
}

}  // namespace DriverSimulation
