// The writing: one tick, one slice, and the passes that a replay consists of.
#include <Driver/ChipWriter.h>

#include <Driver/AccessCost.h>
#include <Driver/Driver.h>
#include <Driver/ReplayRegion.h>
#include <cxxabi.h>
#include <algorithm>
#include <stdexcept>

namespace Driver {
namespace {

// Entries that a slice looks at, at most: most of a large region may never have been written.
constexpr U64 visitsPerSlice = 65536;
// How often is looked again for writes that were held back.
constexpr U32 maxPasses = 8;
constexpr std::size_t maxDifferences = 1024;

}  // namespace

// --- Ticks and slices ---

void ChipWriter::wakeAfter(Zint::Seconds seconds) {
  if (seconds == 0) return wakeAt(0.0);
  const Zint::Epoch::Mark command(commands_);
  const Zint::Ptr<const Zint::Clock> clock = this->clock();
  if (clock == nullptr) return;
  // The reading of the time may stop this writer or give it another clock.
  const Zint::Seconds time = clock->time();
  if (!command.isSuperseded() && clock == this->clock()) wakeAt(time + seconds);
}

void ChipWriter::handleTimeout() {
  const Ptr self(this);
  const ChipWriteRequest::Ptr request = this->request();
  if (request == nullptr || request->state() != ChipWriteRequest::start_) return;
  if (!isStarted_ || isInterrupted_) return;
  DRIVER_TRACE(9, "ChipWriter::handleTimeout");
  const Zint::Epoch::Mark command(commands_);
  doWrite();
  if (command.isSuperseded() || !isStarted_ || isInterrupted_) return;
  try {
    wakeAfter(std::max(writeInterval_, pause_));
  } catch (...) {
    wakeAt(0.0);  // the clock could not be read
    throw;
  }
}

void ChipWriter::doWrite() {
  if (!isStarted_ || isInterrupted_) return;
  const Ptr self(this);
  const AuditedShadow::Ptr shadow = this->shadow();
  const Zint::Epoch::Mark command(commands_);
  if (shadow == nullptr) return fail("the shadow is gone");
  const auto failAt = [&](const char* what) {
    if (command.isSuperseded()) return;
    Zint::String8 text;
    try {
      text = currentChipMemory_ == nullptr ? Zint::String8("replay") : currentChipMemory_->name();
      text += Zint::format(" entry %u: ", accessedEntry_) + what;
    } catch (const std::bad_alloc&) {
    }
    fail(text);
  };
  try {
    writeSlice(shadow);
  } catch (abi::__forced_unwind&) {  // cancels the thread; must not be stopped
    throw;
  } catch (const std::exception& exception) {
    failAt(exception.what());
  } catch (...) {
    failAt("an exception of the access method");
  }
}

void ChipWriter::writeSlice(const AuditedShadow::Ptr& shadow) {
  const Zint::Epoch::Mark command(commands_);
  pause_ = 0;
  sliceEndIs(*shadow);
  if (command.isSuperseded()) return;
  bool hasAccessed = false;
  U32 left = place_.isUnbounded ? ~0u : maxEntriesPerSlice_;
  for (U64 visits = place_.isUnbounded ? everyVisit : visitsPerSlice; visits > 0;) {
    if (shadow->overrideHardware()) return fail("overrideHardware is set");
    if (place_.job >= place_.end) {
      const bool goesOn = nextPass(*shadow);
      if (command.isSuperseded()) return;
      if (!goesOn) return finish();
      if (pause_ > 0) return;
      if (place_.isUnbounded) {
        sliceEnd_ = Zint::never;
        left = ~0u;
        visits = everyVisit;
      }
      continue;
    }
    const ReplayRegion region(shadow, jobs_[place_.job].region, jobs_[place_.job].isOfShadow);
    --visits;
    if (region.isHindered() || region.isBuffered()) {
      if (place_.phase == Phase::write && !leaveOrRemark(shadow, region, left)) return;
      if (command.isSuperseded()) return;
      nextJob();
      continue;
    }
    const EntryRun run = findRun(region, std::max(entriesOfAccess(left), 1u), visits);
    if (command.isSuperseded()) return;
    place_.entry = run.first;
    if (run.second == 0) {
      if (run.first >= region.cm()->entries()) nextJob();
      continue;
    }
    const Zint::Seconds begin = timeOfSlice();
    if (command.isSuperseded() || left == 0 || (hasAccessed && begin >= sliceEnd_)) return;
    currentChipMemoryIs(region.cm());
    if (command.isSuperseded()) return;
    if (!isChipPresent(shadow, region)) return;
    if (place_.phase == Phase::verify) {
      verifyRun(*shadow, region, run);
    } else {
      writeRun(shadow, region, run);
    }
    if (command.isSuperseded()) return;
    if (sliceEnd_ != Zint::never) cost_->add(run.second, std::max(timeOfSlice() - begin, 0.0));
    hasAccessed = true;
    if (command.isSuperseded()) return;
    place_.entry = run.first + run.second;
    place_.hasFound = true;
    left -= run.second;
  }
}

bool ChipWriter::isChipPresent(const AuditedShadow::Ptr& shadow, const ReplayRegion& region) {
  const Chip::Ptr chip = shadow->chip(region.cm());
  if (chip == nullptr || !chip->isAbsent()) return true;
  fail(chip->name() + " is absent: " + chip->reason());
  return false;
}

EntryRun ChipWriter::findRun(const ReplayRegion& region, U32 limit, U64& visits) const {
  const U32 most = std::min(maxEntriesPerWrite_, limit);
  const bool adopted = includesAdopted_;
  const auto isLeftOut = [&](U32 entry) {
    return !leftOut_.empty() && leftOut_.contains({region.cm().ptr(), entry});
  };
  switch (place_.phase) {
    case Phase::write:
      return region.find(place_.entry, most, visits, true,
                         [&](U32 entry) { return region.isReplayed(entry, adopted); });
    case Phase::verify:
      return region.find(place_.entry, most, visits, false, [&](U32 entry) {
        return region.isReplayed(entry, adopted) && region.isComparable(entry) &&
               !region.hasOpenFinding(entry);
      });
    default:
      return region.find(place_.entry, most, visits, true, [&](U32 entry) {
        return region.hasOpenFinding(entry) && region.isReplayed(entry, adopted) &&
               !isLeftOut(entry);
      });
  }
}

// What is written in one turn at last has no bound.
void ChipWriter::sliceEndIs(const AuditedShadow& shadow) {
  const Zint::Ptr<const Zint::Clock> clock = this->clock();
  const bool isBounded =
      !place_.isUnbounded && clock != nullptr && shadow.turnBound() != Zint::never;
  sliceEnd_ = isBounded ? clock->time() + shadow.turnBound() : Zint::never;
}

Zint::Seconds ChipWriter::timeOfSlice() const {
  if (sliceEnd_ == Zint::never) return 0;
  const Zint::Ptr<const Zint::Clock> clock = this->clock();
  return clock == nullptr ? 0 : clock->time();
}

U32 ChipWriter::entriesOfAccess(U32 left) const {
  if (sliceEnd_ == Zint::never) return left;
  return std::min(left, cost_->entriesWithin(sliceEnd_ - timeOfSlice()));
}

std::function<void(bool)> ChipWriter::accessTimer() {
  return [this, begin = Zint::Seconds{0},
          beginClock = Zint::Ptr<const Zint::Clock>()](bool begins) mutable {
    const Zint::Ptr<const Zint::Clock> clock = this->clock();
    if (clock == nullptr) return;
    if (begins) {
      begin = clock->time();
      beginClock = clock;
    } else if (clock == beginClock) {
      accessTime_ += std::max(0.0, clock->time() - begin);
      ++accesses_;
    }
  };
}

// A chip that has gone without an exception takes no write: the access is as good as none.
void ChipWriter::requireTaken(AuditedShadow& shadow, const ChipMemory::Ptr& cm, EntryRun run) {
  const Chip::Ptr chip = shadow.chip(cm);
  const Zint::Epoch::Mark command(commands_);
  if (chip == nullptr || chip->isPresent() || command.isSuperseded()) return;
  for (U32 i = 0; i < run.second; ++i) shadow.openFindingIs(cm, run.first + i, true);
  throw std::runtime_error("its sentinel register is wrong");
}

void ChipWriter::writeRun(const AuditedShadow::Ptr& shadow, const ReplayRegion& region,
                          EntryRun run) {
  const Zint::Epoch::Mark command(commands_);
  const ChipMemory::Ptr cm = region.cm();
  const bool isOnce = region.isOnce(run.first);
  accessedEntry_ = run.first;
  RegionWrite write(shadow, cm);
  write.honoursPolicy = true;
  write.repeats = !isOnce;
  write.writer = "ChipWriter::doWrite";
  write.isSuperseded = [&] { return command.isSuperseded() || region.hasLeft(); };
  write.accessing = accessTimer();
  hasHeldAccessed_ = false;
  // A client that has held its write of the entry back meanwhile wants it written once more.
  const auto leaveOut = [&](ReplayNote note, const char* reason) {
    if (hasHeldAccessed_) return;
    leftOut_.insert({cm.ptr(), run.first});
    remarkAdd({cm, note, run.first, 1, reason});
  };
  try {
    write.write(run);
    if (!command.isSuperseded()) requireTaken(*shadow, cm, run);
  } catch (...) {
    if (isOnce && !command.isSuperseded()) {
      place_.entry = run.first + 1;
      leaveOut(ReplayNote::interrupted, "it is not repeated");
    }
    throw;
  }
  if (command.isSuperseded()) return;
  if (isOnce && !write.unsettled.empty()) {
    leaveOut(ReplayNote::unsettled, "a client wrote it during its access");
    if (command.isSuperseded()) return;
  }
  entriesRewritten_ += write.rewritten;
  countWritten(run.second);
}

// What is written beyond the number that was fixed at the start counts as written again.
void ChipWriter::countWritten(U32 entries) {
  const U64 counted =
      place_.phase == Phase::write ? std::min<U64>(entries, entriesToWrite_ - entriesWritten_) : 0;
  entriesRewritten_ += entries - counted;
  entriesWrittenIs(entriesWritten_ + counted);
}

void ChipWriter::verifyRun(AuditedShadow& shadow, const ReplayRegion& region, EntryRun run) {
  const Zint::Epoch::Mark command(commands_);
  accessedEntry_ = run.first;
  DRIVER_TRACE(6, "ChipWriter::doWrite: verifying " << region.cm()->name() << " entry " << run.first
                                                    << " " << run.second << " entries");
  compareRun(region, run, [&](U32 entry, std::span<const U8> expected, std::span<const U8> actual) {
    if (command.isSuperseded() || region.hasLeft()) return false;
    shadow.openFindingIs(region.cm(), entry, true);
    leftOut_.insert({region.cm().ptr(), entry});
    if (differences_.size() < maxDifferences) {
      differences_.push_back(
          {region.cm(), entry, {expected.begin(), expected.end()}, {actual.begin(), actual.end()}});
      notify(Id::differences);
    }
    return true;
  });
}

// --- Passes ---

void ChipWriter::nextJob() {
  ++place_.job;
  place_.entry = 0;
}

// Begins a pass over the jobs of the place.
void ChipWriter::passIs(Phase phase) {
  place_.phase = phase;
  place_.job = place_.begin;
  place_.entry = 0;
  place_.hasFound = false;
  place_.heldWrites = heldWriteCount();
}

void ChipWriter::groupIs(U32 group) {
  place_ = {};
  place_.group = group;
  const auto isBefore = [](const Job& job, U32 number) { return job.group < number; };
  const auto place = [&](U32 number) {
    return static_cast<std::size_t>(std::lower_bound(jobs_.begin(), jobs_.end(), number, isBefore) -
                                    jobs_.begin());
  };
  place_.begin = place(group);
  place_.end = place(group + 1);
  passIs(Phase::write);
}

// What was held back during the writing is looked for at the end of each group, and, where a later
// group or the verification took time, at the end of all. Clients may hold writes back faster than
// slices write them: what is left after some passes is written in one turn, which they cannot
// overtake. False: nothing is left to do.
bool ChipWriter::nextPass(AuditedShadow& shadow) {
  const auto all = [this](Phase phase) {
    place_.begin = 0;
    place_.end = jobs_.size();
    place_.passes = 0;
    passIs(phase);
    return true;
  };
  if (place_.phase == Phase::write) {
    passIs(Phase::again);
    return true;
  }
  if (place_.phase == Phase::verify) return all(Phase::last);
  const bool isEnd = place_.phase == Phase::last || (delays_.size() == 1 && !verifiesThis_);
  if (place_.hasFound || place_.heldWrites != heldWriteCount()) {
    if (++place_.passes < maxPasses) {
      passIs(place_.phase);
      return true;
    }
    if (isEnd && !place_.isUnbounded) {
      place_.isUnbounded = true;
      place_.passes = 0;
      passIs(place_.phase);
      return true;
    }
    const Zint::Epoch::Mark command(commands_);
    if (isEnd) {
      looksForHeld_ = false;
      reportUnsettled(shadow);
    }
    if (command.isSuperseded()) return false;
  }
  if (place_.phase == Phase::last) return false;
  if (place_.group + 1 < delays_.size()) {
    groupIs(place_.group + 1);
    pause_ = delays_[place_.group];
    return true;
  }
  if (verifiesThis_) return all(Phase::verify);
  return delays_.size() > 1 && all(Phase::last);
}

void ChipWriter::reportUnsettled(AuditedShadow& shadow) {
  const Zint::Epoch::Mark command(commands_);
  for (place_.job = place_.begin; place_.job < place_.end; nextJob()) {
    const Job& job = jobs_[place_.job];
    const ReplayRegion region(AuditedShadow::Ptr(&shadow), job.region, job.isOfShadow);
    if (region.isHindered() || region.isBuffered()) continue;
    U64 visits = everyVisit;
    while (true) {
      const EntryRun run = findRun(region, ~0u, visits);
      if (run.second == 0) break;
      for (U32 i = 0; i < run.second; ++i) leftOut_.insert({region.cm().ptr(), run.first + i});
      remarkAdd({region.cm(), ReplayNote::unsettled, run.first, run.second,
                 "clients write it again and again"});
      if (command.isSuperseded()) return;
      place_.entry = run.first + run.second;
    }
  }
}

// --- Writes that clients hold back ---

bool ChipWriter::takesHeldWrites(const ChipMemory::Ptr& region) const {
  if (!isStarted_) return false;
  if (!isPlanned_) {
    const ChipWriteRequest::Ptr request = this->request();
    return request != nullptr && request->holds(region);
  }
  const AuditedShadow::Ptr shadow = this->shadow();
  return looksForHeld_ && shadow != nullptr && std::ranges::any_of(jobs_, [&](const Job& job) {
           return job.region == region && !ReplayRegion(shadow, region, job.isOfShadow).hasLeft();
         });
}

void ChipWriter::heldWriteIs(const ChipMemory& region, U32 entry) {
  leftOut_.erase({&region, entry});
  if (currentChipMemory_.ptr() == &region && accessedEntry_ == entry) hasHeldAccessed_ = true;
}

}  // namespace Driver
