// The model's passes: slices, the end of a pass, absent chips.
#include <algorithm>
#include <utility>

#include "driverlockstep/Model.h"

namespace DriverLockstep {

using Driver::Verdict;

void Model::fail(const std::string& text) const {
  std::string all = text + "\nevents of the turn:\n";
  for (std::size_t i = 0; i < events_->size(); ++i) {
    all += (i == at_ ? "> " : "  ") + (*events_)[i].text() + "\n";
  }
  throw Mismatch{all};
}

const Event& Model::peek() const {
  if (atEnd()) fail("the model wants another event");
  return (*events_)[at_];
}

const Event& Model::take(What what, U32 region, U32 entry) {
  const Event& event = peek();
  if (event.what != what || event.region != region || event.entry != entry) {
    Event wanted{.what = what, .region = region, .entry = entry};
    fail("the model wants: " + wanted.text());
  }
  ++at_;
  return event;
}

void Model::takeClients() {
  while (!atEnd() && peek().what == What::client) {
    const Event& event = (*events_)[at_++];
    offer(event.region, event.entry, event.data);
    regions[event.region].entries[event.entry].touched = true;
    if (event.answer && !event.isLost) takeWrite(event.region, event.entry, event.data);
    ++met["client within an access"];
  }
}

void Model::isAbsent(U32 chip, Pass* pass) {
  ChipModel& model = chips[chip];
  if (model.isAbsent) {
    ++model.tries;
  } else {
    model.isAbsent = true;
    ++model.absences;
    ++model.relapses;
    model.tries = 0;
    model.isAlive = false;
    ++met["chip absent"];
  }
  const U32 doublings = std::min(model.tries + model.relapses - 1, 6u);
  model.nextTry = now_ + std::min<Zint::Seconds>(60, 1u << doublings);
  if (pass != nullptr) pass->chipFailed[chip] = true;
  if (pass_)
    pass_->chipFailed[chip] = pass_->chipVanished[chip] =
        true;  // also where an audit on demand has found it
}

Model::Pass Model::newPass() const {
  Pass pass;
  pass.next.assign(regions.size(), 0);
  pass.takesPart.assign(regions.size(), true);
  pass.regionProbed.assign(regions.size(), false);
  pass.chipProbed.assign(chips.size(), false);
  pass.chipFailed.assign(chips.size(), false);
  pass.chipReset.assign(chips.size(), false);
  pass.chipVanished.assign(chips.size(), false);
  pass.hasRead.assign(chips.size(), false);
  pass.isLenient.assign(regions.size(), false);
  return pass;
}

void Model::beginPass() {
  pass_ = std::make_unique<Pass>(newPass());
  for (U32 r = 0; r < regions.size(); ++r) {
    pass_->takesPart[r] = regions[r].audited && regions[r].hasStore();
    const ChipModel& chip = chips[regions[r].chip];
    if (chip.isRestoring || chip.isAbsent) pass_->chipFailed[regions[r].chip] = true;
  }
  ++met["pass"];
}

void Model::follow(const Events& events, Zint::Seconds now) {
  events_ = &events;
  at_ = 0;
  now_ = now;
  readInTurn_ = repairsInTurn_ = 0;
  while (!atEnd()) {
    const Event event = peek();
    switch (event.what) {
      case What::client:
        takeClients();
        break;
      case What::begin:
        ++at_;
        if (pass_) fail("a pass within a pass");
        beginPass();
        break;
      case What::wasReset:
        ++at_;
        if (std::exchange(chips[event.region].isAsked, false)) {
          if (event.answer) ++met["reset told by others, too"];
        } else if (event.answer) {
          doChipReset(event.region, true);
          ++met["reset found by its check"];
        }
        break;
      case What::read:
      case What::present:
        if (!isAuditing) fail("read while nothing is audited");
        if (const U32 chip = event.what == What::read ? regions[event.region].chip : event.region;
            chips[chip].isAbsent && now >= chips[chip].nextTry) {
          retry();
          break;
        }
        if (event.what == What::present) fail("asked without a slice");
        if (!pass_) fail("read outside of a pass");
        if (!canRead(event.region)) {
          fail("read of a region that is not to be read");
        }
        pass_->takesPart[event.region] = true;
        slice(*pass_, 0, static_cast<U32>(regions[event.region].entries.size()));
        if (readInTurn_ > settings.slice) fail("more entries in a turn than allowed");
        break;
      case What::pass:
        ++at_;
        endPass(event);
        break;
      default:
        fail("nothing that the model knows of");
    }
  }
}

// Whether an absent chip answers: an entry is read, if there is one to read, and the chip asked.
void Model::retry() {
  const Event first = peek();
  const U32 chip = first.what == What::read ? regions[first.region].chip : first.region;
  bool isPresent = true;
  ++met["absent chip tried"];
  if (first.what == What::read) {
    const std::optional<Bytes> value = readOne(first.region, first.entry);
    isPresent = value.has_value();
  }
  isPresent = isPresent && take(What::present, chip, 0).answer;
  if (!isPresent) return isAbsent(chip, nullptr);
  const bool wasReset = take(What::wasReset, chip, 0).answer;
  chips[chip].isAbsent = false;
  chips[chip].isAlive = true;
  ++met["present again"];
  if (!wasReset) return;
  doChipReset(chip, true);
  ++met["reset found after an absence"];
}

void Model::followAudit(const Events& events, Zint::Seconds now, U32 region, U32 first, U32 count,
                        const Driver::PassResult& result) {
  events_ = &events;
  at_ = 0;
  now_ = now;
  readInTurn_ = repairsInTurn_ = 0;
  Pass pass = newPass();
  pass.isOnDemand = true;
  pass.next[region] = first;
  bool isWhole = true;
  while (!atEnd()) {
    if (peek().what == What::client) {
      takeClients();
      continue;
    }
    if (peek().what == What::pass) {  // the chip was reset: the patrol's own pass has ended
      endPass((*events_)[at_++]);
      continue;
    }
    if (peek().what != What::read || peek().region != region) fail("not the region's slice");
    slice(pass, first, first + count);
  }
  for (U32 e = pass.next[region]; e < first + count; ++e) {
    isWhole = isWhole && !Driver::isRead(regions[region].entries[e].rule);
  }
  if (result.isComplete != isWhole) fail("complete or not: " + result.stringValue().bytes());
  if (result.entries != pass.entries || result.differences != pass.differences ||
      result.repairs != pass.repairs || result.adopted != pass.adopted) {
    fail("wrong result: " + result.stringValue().bytes());
  }
}

// The reads of a slice, the question, and the judgement.
void Model::slice(Pass& pass, U32 first, U32 end) {
  Slice slice;
  slice.region = peek().region;
  RegionModel& region = regions[slice.region];
  slice.first = slice.end = std::max(pass.next[slice.region], first);
  bool threw = false;
  std::vector<U32> cleared;
  if (settings.judgeAtOnce) {
    // Cleared before the read; what comes from within it counts.
    for (std::size_t i = at_; i < events_->size() && (*events_)[i].what != What::present; ++i) {
      const Event& event = (*events_)[i];
      if (event.what != What::read) continue;
      for (U32 e = event.entry; e < std::min(event.entry + event.count, end); ++e) {
        if (!region.entries[e].mark) continue;
        clearMark(region.entries[e]);
        cleared.push_back(e);
      }
    }
  }
  while (!atEnd() && (peek().what == What::read || peek().what == What::client)) {
    if (peek().what == What::client) {
      takeClients();
      continue;
    }
    const Event& event = (*events_)[at_];
    if (event.region != slice.region) fail("a slice of two regions");
    if (event.entry < slice.end || event.entry + event.count > end) fail("read out of order");
    for (U32 e = slice.end; e < event.entry; ++e) {
      if (Driver::isRead(region.entries[e].rule) && !pass.isLenient[slice.region]) {
        fail("an entry was left out");
      }
    }
    for (U32 i = 0; i < event.count; ++i) {
      const EntryModel& entry = region.entries[event.entry + i];
      if (!Driver::isRead(entry.rule)) fail("an entry was read that must not be");
      Bytes value = entry.chip;
      if (!event.data.empty()) {
        const U8* answered = event.data.data() + std::size_t{i} * region.entrySize;
        value.assign(answered, answered + region.entrySize);
      }
      slice.reads.push_back({event.entry + i, value});
    }
    slice.end = event.entry + event.count;
    readInTurn_ += event.count;
    threw = event.answer;
    ++at_;
    if (threw) break;
  }
  const bool isPresent = !threw && take(What::present, region.chip, 0).answer;
  if (!isPresent) {
    ++met[threw ? "slice threw" : "sentinel wrong"];
    // What was collected stays collected; the mark is given back.
    for (U32 e : cleared) region.entries[e].mark = true;
    return isAbsent(region.chip, &pass);
  }
  pass.hasRead[region.chip] = chips[region.chip].isAlive = true;
  if (ChipModel& chip = chips[region.chip]; chip.isAbsent) {
    chip.isAbsent = false;
    ++met["present again"];
    const Event& asked = take(What::wasReset, region.chip, 0);
    if (asked.answer) {
      ++met["reset found after an absence"];
      for (U32 e : cleared) region.entries[e].mark = true;
      return doChipReset(region.chip, true);
    }
  }
  ++met["slice"];
  for (EntryModel& entry : region.entries) entry.touched = false;
  U32 judgedEnd = slice.end;
  if (judge(pass, slice, judgedEnd) == Judged::isReset) return;
  const auto& dirty = world_.regions[slice.region]->dirty();
  for (const Read& read : slice.reads) {
    const U32 e = read.entry;
    EntryModel& entry = region.entries[e];
    if (!entry.mark || e >= judgedEnd) continue;
    // A mark that came within the judgement is that of the next visit.
    if (settings.judgeAtOnce || entry.touched) {
      entry.written = true;
      entry.mark = World::bit(dirty, e);
    } else {
      clearMark(entry);
    }
  }
  pass.next[slice.region] = judgedEnd;
}

void Model::endPass(const Event& event) {
  if (!pass_) fail("the end of a pass that never began");
  const Pass pass = std::move(*pass_);
  pass_ = nullptr;
  bool isComplete = true, isLeftOut = false, isLenient = false;
  std::vector<bool> isWhole(chips.size(), true), isUnsure(chips.size(), false);
  for (U32 r = 0; r < regions.size(); ++r) {
    const U32 chip = regions[r].chip;
    if (pass.isLenient[r]) isLenient = isUnsure[chip] = true;
    if (!pass.takesPart[r] || !regions[r].hasStore() || pass.isLenient[r]) continue;
    const auto& entries = regions[r].entries;
    const bool isAnyLeft =
        std::any_of(entries.begin() + static_cast<std::ptrdiff_t>(pass.next[r]), entries.end(),
                    [](const EntryModel& entry) { return Driver::isRead(entry.rule); });
    // Whether a region is missed of which nothing is left to read is not said.
    if (pass.chipFailed[chip] && !isAnyLeft && pass.next[r] < entries.size()) {
      isLenient = isUnsure[chip] = true;
    }
    for (U32 e = pass.next[r]; e < regions[r].entries.size(); ++e) {
      if (!Driver::isRead(regions[r].entries[e].rule)) continue;
      isComplete = isWhole[chip] = false;
      if (!pass.chipFailed[chip] && !pass.isEnded) isLeftOut = true;
    }
  }
  for (U32 c = 0; c < chips.size(); ++c) {
    if (pass.chipReset[c]) isComplete = isWhole[c] = false;
  }
  if (isLeftOut) fail("entries were left out");
  if (pass.isEnded) isComplete = false;
  if (isComplete && isLenient) isComplete = event.pass.isComplete;
  for (U32 c = 0; c < chips.size(); ++c) {
    const bool counts = !pass.isEnded && isWhole[c] && pass.hasRead[c] && !pass.chipVanished[c];
    if (!counts || (isUnsure[c] && world_.chips[c]->audits() == chips[c].audits)) continue;
    ++chips[c].audits;
    chips[c].relapses = 0;
    chips[c].isRestored = false;
    chips[c].probedResets = 0;
  }
  if (isComplete) ++audits;
  if (event.pass.isComplete != isComplete) fail("complete or not");
  if (isComplete != event.pass.reason.empty()) fail("a reason if it is not complete");
  if (event.pass.entries != pass.entries || event.pass.differences != pass.differences ||
      event.pass.repairs != pass.repairs || event.pass.adopted != pass.adopted) {
    fail("wrong result, wanted " + std::to_string(pass.entries) + " entries, " +
         std::to_string(pass.differences) + " differences, " + std::to_string(pass.repairs) +
         " repairs, " + std::to_string(pass.adopted) + " adopted");
  }
  ++met[isComplete ? "complete pass" : "pass ended early"];
}

}  // namespace DriverLockstep
