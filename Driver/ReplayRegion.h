// One region as the replay sees it: what may be written of it, and in which runs. Used by the
// sources of ChipWriter alone.
#pragma once

#include <Driver/RegionWrite.h>
#include <algorithm>

namespace Driver {

class ReplayRegion {
 public:
  using ChipMemory = Hardware::ChipMemory;

  // `wasOfShadow`: whether it was a region of the shadow when the replay started.
  ReplayRegion(const AuditedShadow::Ptr& shadow, const ChipMemory::Ptr& region,
               bool wasOfShadow = false)
      : shadow_(shadow), cm_(region), policy_(shadow->policy(region)), wasOfShadow_(wasOfShadow) {}

  const ChipMemory::Ptr& cm() const { return cm_; }
  const Policy* policy() const { return policy_.ptr(); }
  Rule rule(U32 entry) const { return policy_ == nullptr ? Rule::repaired : policy_->rule(entry); }
  bool isOnce(U32 entry) const { return policy_ != nullptr && policy_->isOnce(entry); }
  bool isBuffered() const { return cm_->mode() == ChipMemory::buffered(); }
  bool isWritten(U32 entry) const { return shadow_->isWritten(cm_, entry); }
  bool hasOpenFinding(U32 entry) const { return shadow_->hasOpenFinding(cm_, entry); }

  // Whether the shadow has it no more: what it holds is not to be written then.
  bool hasLeft() const { return wasOfShadow_ && shadow_->chipMemory(cm_->address()) != cm_; }
  // Why nothing of the region can be written; "" where it can.
  const char* hindrance() const {
    if (hasLeft()) return "removed from the shadow";
    if (cm_->mode() == ChipMemory::override()) return "overridden";
    if (cm_->chipHam() == nullptr) return "without an access method";
    if (!cm_->shadowStoreNeeded() || cm_->shadow() == nullptr) return "without a store";
    if (cm_->entrySize() == 0 || !hasStoreFor(*cm_, cm_->entries())) return "its buffers are short";
    return "";
  }
  bool isHindered() const { return *hindrance() != '\0'; }
  // Whether a replay writes the entry. REQUIRES: not hindered.
  bool isReplayed(U32 entry, bool includesAdopted) const {
    const Rule rule = this->rule(entry);
    if (rule == Rule::readOnly) return false;
    return isWritten(entry) ||
           (includesAdopted && rule != Rule::volatile_ && cm_->entryInitialized(entry));
  }
  // Whether the shadow says what the chip must hold there, and reading it has no effect.
  // REQUIRES: not hindered.
  bool isComparable(U32 entry) const {
    return isCompared(rule(entry)) && cm_->entryInitialized(entry) && !isVolatile(entry);
  }
  // Compares a value of the shadow with one of the chip.
  bool equals(U32 entry, U8* expected, U8* actual) const {
    if (policy_ != nullptr && policy_->mask(entry) != nullptr) {
      return policy_->equals(entry, expected, actual);
    }
    return cm_->chipHam()->doCompare(expected, actual, cm_->entrySize());
  }

  // The first run from `from` on of entries that are selected, of at most `limit` (above 0). Its
  // length is 0 where there is none, or where all `visits` are used up: it begins where the search
  // ended. For writing, entries that are once stay alone, and so do those that are read first from
  // those that are not.
  template <class Select>
  EntryRun find(U32 from, U32 limit, U64& visits, bool isForWriting, Select selects) const {
    const U32 end = cm_->entries();
    U32 first = from;
    for (; first < end && visits > 0 && !selects(first); ++first) --visits;
    if (first >= end || visits == 0) return {first, 0};
    const bool isAlone = isForWriting && isOnce(first);
    const bool isReadFirst = RegionWrite::isReadFirst(policy_.ptr(), first);
    const U32 most = isAlone ? 1 : std::min(limit, end - first);
    U32 count = 1;
    while (count < most && selects(first + count) &&
           (!isForWriting ||
            (!isOnce(first + count) &&
             RegionWrite::isReadFirst(policy_.ptr(), first + count) == isReadFirst))) {
      ++count;
    }
    visits -= std::min<U64>(visits, count);
    return {first, count};
  }

 private:
  bool isVolatile(U32 entry) const {
    const Hal::BufBase* bitmap = cm_->volatileEntries().ptr();
    return bitmap != nullptr && entry >> 3 < bitmap->size() &&
           (bitmap->data()[entry >> 3] >> (entry & 7) & 1) != 0;
  }

  const AuditedShadow::Ptr shadow_;
  const ChipMemory::Ptr cm_;
  const Policy::Ptr policy_;
  const bool wasOfShadow_;
};

// No limit on the entries that are looked at.
constexpr U64 everyVisit = ~U64{0};

// Reads a run and calls `judge(entry, expected, actual)` for each of its entries that differs and
// that no client has changed meanwhile, until it returns false. Nothing where somebody who was
// called since the run was found has taken its store away.
template <class Judge>
void compareRun(const ReplayRegion& region, EntryRun run, Judge judge) {
  const Hardware::ChipMemory::Ptr cm = region.cm();
  if (!hasStoreFor(*cm, U64{run.first} + run.second)) return;
  const Hal::BufBase::Ptr store = cm->shadow();
  const U32 entrySize = cm->entrySize();
  const U8* const stored = store->data() + std::size_t{run.first} * entrySize;
  std::vector<U8> expected(stored, stored + std::size_t{run.second} * entrySize);
  std::vector<U8> actual(expected.size());
  cm->chipHam()->doRead(cm->entryAddress(run.first), actual.data(), entrySize, run.second);
  for (U32 i = 0; i < run.second; ++i) {
    const std::size_t at = std::size_t{i} * entrySize;
    if (cm->shadow() != store) return;
    if (!std::equal(&expected[at], &expected[at] + entrySize, stored + at)) continue;
    if (region.equals(run.first + i, &expected[at], &actual[at])) continue;
    if (!judge(run.first + i, std::span<const U8>(&expected[at], entrySize),
               std::span<const U8>(&actual[at], entrySize))) {
      return;
    }
  }
}

}  // namespace Driver
