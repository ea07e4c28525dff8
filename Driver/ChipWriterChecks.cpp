// What a writer says before and after: the plan, and the differences between chips and shadow. And
// how a buffered region returns to normal.
#include <Driver/ChipWriter.h>

#include <Driver/Driver.h>
#include <Driver/ReplayRegion.h>
#include <cstring>

namespace Driver {
namespace {

constexpr U32 maxLeavingPasses = 8;

void requireChip(AuditedShadow& shadow, const Hardware::ChipMemory::Ptr& region) {
  const Chip::Ptr chip = shadow.chip(region);
  if (chip != nullptr && chip->isAbsent()) {
    Zint::throwRangeException(chip->name() + " is absent: " + chip->reason());
  }
}

bool bitOf(const Hal::BufBase::Ptr& bitmap, U32 entry) {
  return (bitmap->data()[entry >> 3] >> (entry & 7) & 1) != 0;
}
void bitIs(const Hal::BufBase::Ptr& bitmap, U32 entry) {
  U8& byte = bitmap->data()[entry >> 3];
  byte = static_cast<U8>(byte | 1u << (entry & 7));
}

// The three buffers of a region's store.
struct StoreBuffers {
  StoreBuffers(Hal::BufBase::Ptr shadowBuf, Hal::BufBase::Ptr dirtyBuf,
               Hal::BufBase::Ptr initializedBuf)
      : shadow(std::move(shadowBuf)),
        dirty(std::move(dirtyBuf)),
        initialized(std::move(initializedBuf)) {}
  explicit StoreBuffers(const Hardware::ChipMemory& cm)
      : StoreBuffers(cm.shadow(), cm.dirty(), cm.initialized()) {}
  friend bool operator==(const StoreBuffers&, const StoreBuffers&) = default;

  // Takes over what the other store knows and this one does not, and what was written to it.
  void takeOver(const StoreBuffers& other, U32 entries, U32 entrySize) const {
    for (U32 e = 0; e < entries; ++e) {
      const bool isWritten = bitOf(other.dirty, e);
      if (!isWritten && (!bitOf(other.initialized, e) || bitOf(initialized, e))) continue;
      const std::size_t at = std::size_t{e} * entrySize;
      if (shadow != other.shadow) {
        std::memcpy(shadow->data() + at, other.shadow->data() + at, entrySize);
      }
      bitIs(initialized, e);
      if (isWritten) bitIs(dirty, e);
    }
  }

  Hal::BufBase::Ptr shadow, dirty, initialized;
};

void install(Hardware::ChipMemory& cm, const StoreBuffers& buffers) {
  cm.dirtyIs(buffers.dirty);
  cm.initializedIs(buffers.initialized);
  cm.shadowIs(buffers.shadow);
}

}  // namespace

// --- The plan ---

ReplayPlan ChipWriter::plan() const {
  ReplayPlan plan;
  const AuditedShadow::Ptr shadow = this->shadow();
  const ChipWriteRequest::Ptr request = this->request();
  if (shadow == nullptr || request == nullptr) return plan;
  U32 left = 0;  // of the slice
  U32 number = 0;
  Zint::Seconds delay = 0;  // before the next slice
  for (const ChipWriteRequest::Group& group : request->groups()) {
    if (group.delay != 0) left = 0;
    delay = std::max(delay, group.delay);
    for (const ChipMemory::Ptr& cm : group.chipMemory) {
      const ReplayRegion region(shadow, cm);
      const bool isLeaving = region.isBuffered() && request->leavesBuffered();
      if (region.isHindered()) {
        plan.remarks.push_back({cm, ReplayNote::skipped, 0, 0, region.hindrance()});
        continue;
      }
      if (region.isBuffered() && !isLeaving) {
        plan.remarks.push_back({cm, ReplayNote::held, 0, 0, "buffered"});
        continue;
      }
      U64 visits = everyVisit;
      for (U32 from = 0;;) {
        const U32 slice = left == 0 || isLeaving ? maxEntriesPerSlice_ : left;
        const EntryRun run =
            region.find(from, std::min(maxEntriesPerWrite_, isLeaving ? ~0u : slice), visits, true,
                        [&](U32 entry) {
                          return region.isReplayed(entry, request->includesAdopted() && !isLeaving);
                        });
        if (run.second == 0) break;
        if (left == 0 && (!isLeaving || from == 0)) {
          plan.time += plan.slices == 0 ? delay : std::max(delay, writeInterval_);
          delay = 0;
          ++plan.slices;
          left = maxEntriesPerSlice_;
        }
        left -= std::min(left, run.second);
        const bool isRead = RegionWrite::isReadFirst(region.policy(), run.first);
        plan.runs.push_back({cm, run.first, run.second, number, region.isOnce(run.first), isRead});
        plan.reads += isRead ? 1 : 0;
        plan.entries += run.second;
        plan.bytes += U64{run.second} * cm->entrySize();
        from = run.first + run.second;
      }
    }
    ++number;
  }
  plan.time += delay;
  plan.time += accessCost() * static_cast<double>(plan.runs.size() + plan.reads);
  return plan;
}

// --- Differences ---

std::vector<ChipDifference> ChipWriter::doDiff() const {
  const Zint::Ptr<const ChipWriter> self(this);
  std::vector<ChipDifference> differences;
  const AuditedShadow::Ptr shadow = this->shadow();
  const ChipWriteRequest::Ptr request = this->request();
  if (shadow == nullptr || request == nullptr) return differences;
  const std::vector<ChipWriteRequest::Group> groups = request->groups();  // reads may change them
  for (const ChipWriteRequest::Group& group : groups) {
    for (const ChipMemory::Ptr& cm : group.chipMemory) {
      for (U32 from = 0;;) {
        const ReplayRegion region(shadow, cm);  // a read may have replaced the store or the policy
        if (region.isHindered()) break;
        U64 visits = everyVisit;
        const EntryRun run = region.find(from, maxEntriesPerWrite_, visits, false,
                                         [&](U32 entry) { return region.isComparable(entry); });
        if (run.second == 0) break;
        requireChip(*shadow, cm);
        compareRun(
            region, run, [&](U32 entry, std::span<const U8> expected, std::span<const U8> actual) {
              differences.push_back(
                  {cm, entry, {expected.begin(), expected.end()}, {actual.begin(), actual.end()}});
              return true;
            });
        from = run.first + run.second;
      }
    }
  }
  return differences;
}

// --- Leaving buffered ---

bool ChipWriter::doLeaveBuffered(const ChipMemory::Ptr& region) {
  refuseNull(region, "null region parameter to Driver::ChipWriter::doLeaveBuffered not allowed");
  const Ptr self(this);
  const AuditedShadow::Ptr shadow = this->shadow();
  if (shadow == nullptr) Zint::throwRangeException("the shadow is gone");
  const ReplayRegion replayed(shadow, region);
  if (!replayed.isBuffered()) {
    Zint::throwRangeException(replayed.cm()->name() + " is not buffered");
  }
  if (replayed.isHindered()) {
    Zint::throwRangeException(replayed.cm()->name() +
                              " cannot be written: " + replayed.hindrance());
  }
  if (shadow->overrideHardware()) Zint::throwRangeException("overrideHardware is set");
  requireChip(*shadow, replayed.cm());
  const Zint::Epoch never;
  const Zint::Epoch::Mark mark(never);
  U32 written = 0;
  return writeBuffered(shadow, replayed, mark, written) && leaveBuffered(shadow, replayed.cm());
}

// For the slices: lists a region that is not written, or lets it leave buffered. False: the writing
// has ended.
bool ChipWriter::leaveOrRemark(const AuditedShadow::Ptr& shadow, const ReplayRegion& region,
                               U32& left) {
  const ChipMemory::Ptr cm = region.cm();
  if (region.isHindered()) {
    remarkAdd({cm, ReplayNote::skipped, 0, 0, region.hindrance()});
    return true;
  }
  if (!leavesBuffered_) {
    remarkAdd({cm, ReplayNote::held, 0, 0, "buffered"});
    return true;
  }
  const Zint::Epoch::Mark command(commands_);
  currentChipMemoryIs(cm);
  if (command.isSuperseded() || !isChipPresent(shadow, region)) return false;
  U32 written = 0;
  const bool isWritten = writeBuffered(shadow, region, command, written);
  if (command.isSuperseded()) return false;
  if (!isWritten || !leaveBuffered(shadow, cm)) {
    if (command.isSuperseded()) return false;
    if (region.hasLeft()) {
      remarkAdd({cm, ReplayNote::skipped, 0, 0, region.hindrance()});
    } else {
      remarkAdd({cm, ReplayNote::held, 0, 0, "a client changes it again and again"});
    }
  }
  if (command.isSuperseded()) return false;
  countWritten(written);
  left -= std::min(left, written);
  return true;
}

// Writes what clients have written since the store was made, until the chip has all of it. False:
// it has not, or the store was replaced.
bool ChipWriter::writeBuffered(const AuditedShadow::Ptr& shadow, const ReplayRegion& region,
                               const Zint::Epoch::Mark& command, U32& written) {
  const ChipMemory::Ptr cm = region.cm();
  const Hal::BufBase::Ptr store = cm->shadow();
  const U32 entrySize = cm->entrySize();
  // What the chip has of each entry.
  std::vector<U8> done(std::size_t{cm->entries()} * entrySize);
  std::vector<bool> isDone(cm->entries());
  const auto isLeft = [&](U32 entry) {
    if (!region.isReplayed(entry, false)) return false;
    const std::size_t at = std::size_t{entry} * entrySize;
    return !isDone[entry] ||
           (!region.isOnce(entry) && std::memcmp(&done[at], store->data() + at, entrySize) != 0);
  };
  for (U32 pass = 0; pass < maxLeavingPasses; ++pass) {
    bool hasFound = false;
    U64 visits = everyVisit;
    for (U32 from = 0;;) {
      const EntryRun run = region.find(from, maxEntriesPerWrite_, visits, true, isLeft);
      if (run.second == 0) break;
      hasFound = true;
      accessedEntry_ = run.first;
      RegionWrite write(shadow, cm);
      write.honoursPolicy = true;
      write.repeats = !region.isOnce(run.first);
      write.writer = "ChipWriter::doLeaveBuffered";
      write.isSuperseded = [&] { return command.isSuperseded() || region.hasLeft(); };
      write.accessing = accessTimer();
      write.write(run);
      if (write.hasEnded || cm->shadow() != store || !region.isBuffered()) return false;
      const std::size_t at = std::size_t{run.first} * entrySize;
      std::memcpy(&done[at], store->data() + at, std::size_t{run.second} * entrySize);
      for (U32 i = 0; i < run.second; ++i) isDone[run.first + i] = true;
      for (const EntryRun& unsettled : write.unsettled) {
        if (!write.repeats) continue;
        for (U32 i = 0; i < unsettled.second; ++i) isDone[unsettled.first + i] = false;
      }
      written += pass == 0 ? run.second : 0;
      entriesRewritten_ += write.rewritten + (pass == 0 ? 0 : run.second);
      from = run.first + run.second;
    }
    if (!hasFound) return true;
  }
  return false;
}

// Changes the mode without the write-back, and keeps the store with its marks. While the library
// makes a store of its own, the region has empty bitmaps, so that nothing is served that is not
// known. Whatever a notifiee writes meanwhile goes over to the store that is kept. False: a
// notifiee has changed the region, which wins.
bool ChipWriter::leaveBuffered(const AuditedShadow::Ptr& shadow, const ChipMemory::Ptr& cm) {
  const U32 entries = cm->entries();
  const U32 entrySize = cm->entrySize();
  const std::size_t bytes = std::size_t{entries} * entrySize;
  const StoreBuffers kept(*cm);
  const Hal::BufBase::Ptr empty = Hal::bufFactory(kept.dirty->size());
  const Hal::BufBase::Ptr emptyToo = Hal::bufFactory(kept.initialized->size());
  std::vector<bool> isWritten(entries), isOpen(entries), isHeld(entries);
  for (U32 e = 0; e < entries; ++e) {
    isWritten[e] = shadow->isWritten(cm, e);
    isOpen[e] = shadow->hasOpenFinding(cm, e);
  }
  const auto isAsItWas = [&](ChipMemory::ChipMemoryMode mode, const StoreBuffers& buffers) {
    return cm->mode() == mode && cm->entries() == entries && StoreBuffers(*cm) == buffers;
  };

  cm->dirtyIs(empty);
  if (!isAsItWas(ChipMemory::buffered(), {kept.shadow, empty, kept.initialized})) return false;
  cm->initializedIs(emptyToo);
  if (!isAsItWas(ChipMemory::buffered(), {kept.shadow, empty, emptyToo})) return false;
  for (U32 e = 0; e < entries; ++e) isHeld[e] = bitOf(empty, e);
  kept.takeOver({kept.shadow, empty, emptyToo}, entries, entrySize);
  std::memset(empty->data(), 0, empty->size());
  std::memset(emptyToo->data(), 0, emptyToo->size());
  cm->shadowIs(nullptr);  // nothing to write back
  if (!isAsItWas(ChipMemory::buffered(), {nullptr, empty, emptyToo})) return false;
  try {
    cm->modeIs(ChipMemory::normal());
  } catch (...) {  // no memory for a store
    if (isAsItWas(ChipMemory::normal(), {nullptr, empty, emptyToo})) install(*cm, kept);
    throw;
  }
  const StoreBuffers made(*cm);
  if (cm->mode() != ChipMemory::normal() || cm->entries() != entries ||
      !hasStoreFor(*cm, entries)) {
    return false;
  }
  kept.takeOver({made.shadow, empty, emptyToo}, entries, entrySize);
  kept.takeOver(made, entries, entrySize);
  // Both stores hold the same before each exchange, so that notifiees see one that is sound.
  std::memcpy(made.shadow->data(), kept.shadow->data(), bytes);
  cm->dirtyIs(kept.dirty);
  if (!isAsItWas(ChipMemory::normal(), {made.shadow, kept.dirty, made.initialized})) return false;
  kept.takeOver(made, entries, entrySize);
  cm->initializedIs(kept.initialized);
  if (!isAsItWas(ChipMemory::normal(), {made.shadow, kept.dirty, kept.initialized})) return false;
  std::memcpy(kept.shadow->data(), made.shadow->data(), bytes);
  cm->shadowIs(kept.shadow);
  const auto isDone = [&] { return isAsItWas(ChipMemory::normal(), kept); };
  for (U32 e = 0; e < entries && isDone(); ++e) {
    if (isWritten[e]) shadow->writtenIs(cm, e, true);
    if (isOpen[e]) shadow->openFindingIs(cm, e, true);
  }
  // What a notifiee has written while the region was buffered still.
  for (U32 e = 0; e < entries && isDone(); ++e) {
    if (!isHeld[e] || !ReplayRegion(shadow, cm).isReplayed(e, false)) continue;
    RegionWrite write(shadow, cm);
    write.honoursPolicy = true;
    write.writer = "ChipWriter::doLeaveBuffered";
    write.write({e, 1});
  }
  return isDone();
}

}  // namespace Driver
