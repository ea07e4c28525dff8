// The entries that the patrol reads in one access and judges after it. Used by Patrol alone.
#pragma once

#include <Driver/Patrol.h>
#include <cxxabi.h>

#include <algorithm>
#include <cstring>
#include <exception>

namespace Driver {

// Runs what may throw. False: it did, and `error` says what.
template <class Call>
bool callGuarded(Call call, Zint::String8& error) {
  try {
    call();
    return true;
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& exception) {
    error = exception.what();
  } catch (...) {
    error = "an exception of unknown type";
  }
  return false;
}

inline bool bitAt(const U8* bitmap, U32 entry) {
  return (bitmap[entry >> 3] >> (entry & 7) & 1) != 0;
}
inline void bitIs(U8* bitmap, U32 entry, bool is) {
  const U32 bit = 1u << (entry & 7);
  bitmap[entry >> 3] = static_cast<U8>(is ? bitmap[entry >> 3] | bit : bitmap[entry >> 3] & ~bit);
}

// As the audit of HardwareShadow decides it.
inline bool isUnderAudit(const Hardware::ChipMemory& cm) {
  return cm.shadowEnabled() && cm.mode() != Hardware::ChipMemory::override() && cm.auditEnabled();
}

// Why the patrol cannot read and judge the region; empty when it can.
Zint::String8 whyNotHeld(const Hardware::ChipMemory& cm);
// The same; empty also where it need not.
inline Zint::String8 whyNotAuditable(const Hardware::ChipMemory& cm) {
  return isUnderAudit(cm) ? whyNotHeld(cm) : Zint::String8();
}

// The first entry in [first, end) that the patrol reads, and the first after `first` that it does
// not; `end` if there is none. Both may be an earlier entry behind very many runs.
U32 firstRead(const Policy& policy, U32 first, U32 end);
U32 readEnd(const Policy& policy, U32 first, U32 end);

// A copy of some bits of a bitmap, from entry `first` on.
class BitCopy {
 public:
  // Of all entries in [first, end), which is not empty.
  void take(const U8* bitmap, U32 first, U32 end) {
    first_ = first >> 3;
    const U32 bytes = ((end - 1) >> 3) - first_ + 1;
    if (bytes > sizeof few_) many_.resize(bytes);
    bytes_ = bytes > sizeof few_ ? many_.data() : few_;
    size_ = bytes;
    std::memcpy(bytes_, bitmap + first_, bytes);
  }
  // False where nothing was taken, or not this entry.
  bool at(U32 entry) const {
    const U32 byte = entry >> 3;
    return byte >= first_ && byte - first_ < size_ &&
           (bytes_[byte - first_] >> (entry & 7) & 1) != 0;
  }
  void forget() { size_ = 0; }
  bool isAnySet() const {
    return size_ != 0 && (bytes_[0] != 0 || std::memcmp(bytes_, bytes_ + 1, size_ - 1) != 0);
  }

 private:
  U8 few_[160];  // 1,024 entries
  std::vector<U8> many_;
  U8* bytes_ = few_;
  U32 first_ = 0;  // bytes of the bitmap before the copy
  U32 size_ = 0;
};

struct Patrol::Run {
  Run(Patrol& patrol, const Hardware::ChipMemory::Ptr& region, U32 firstEntry, U32 endEntry,
      PassResult& passResult)
      : cm(region),
        ham(region->chipHam()),
        shadowBuf(region->shadow()),
        hardwareBuf(region->hardware()),
        initializedBuf(region->initialized()),
        dirtyBuf(region->dirty()),
        mark(patrol.commands_),
        state(patrol.stateOf(region)),
        chip(state.chip),
        result(passResult),
        first(firstEntry),
        end(endEntry),
        entrySize(region->entrySize()),
        comparesBytes(AuditedShadow::comparesBytes(*ham)) {
    const RegionMarks* known = patrol.marks(region.ptr());
    if (known != nullptr) policy = known->policy;
  }

  // Whether what was called has changed what the slice goes on with.
  bool isSuperseded() const {
    return mark.isSuperseded() || cm->shadow() != shadowBuf || cm->dirty() != dirtyBuf ||
           cm->initialized() != initializedBuf || cm->hardware() != hardwareBuf ||
           cm->entries() < end;
  }
  // The first entry from `entry` on that a client has not written since the last visit, and whose
  // value is known: a difference of it proves something. The run's end if there is none.
  U32 nextProven(U32 entry) const {
    while (entry < end && (!isKnown(entry) || isMarked(entry))) {
      const bool isByteUnknown = (entry & 7) == 0 && initializedBuf->data()[entry >> 3] == 0;
      entry += isByteUnknown ? 8 : 1;
    }
    return std::min(entry, end);
  }
  U8* expected(U32 entry) const { return shadowBuf->data() + std::size_t{entry} * entrySize; }
  U8* actual(U32 entry) const { return hardwareBuf->data() + std::size_t{entry} * entrySize; }
  bool isKnown(U32 entry) const { return bitAt(initializedBuf->data(), entry); }
  // Written by a client since the last visit.
  bool isMarked(U32 entry) const { return marks.at(entry) || bitAt(dirtyBuf->data(), entry); }
  // As nextDifference() judges it.
  // Written by a client, or with an open finding, when the run was read; also for other entries.
  bool wasMarked(U32 entry) const {
    return entry >= first && entry < end &&
           (marks.at(entry) || std::binary_search(open.begin(), open.end(), entry));
  }
  bool isEqual(U32 entry, U8* value) const {
    if (policy != nullptr && policy->mask(entry) != nullptr &&
        policy->equals(entry, expected(entry), value)) {
      return true;
    }
    return ham->doCompare(expected(entry), value, entrySize);
  }

  // Held: whatever is called may drop them.
  const Hardware::ChipMemory::Ptr cm;
  const Hardware::ChipHam::Ptr ham;
  const Hal::BufBase::Ptr shadowBuf;
  const Hal::Buf::Ptr hardwareBuf;
  const Hal::BufBase::Ptr initializedBuf;
  const Hal::BufBase::Ptr dirtyBuf;
  const Zint::Epoch::Mark mark;  // before the chip is asked whether it holds the region
  Policy::Ptr policy;            // null for none
  ChipState& state;              // while the run is not superseded
  const Chip::Ptr chip;
  PassResult& result;
  const U32 first;
  const U32 end;
  const U32 entrySize;
  const bool comparesBytes;  // the access method does not compare by itself
  BitCopy marks;             // that were cleared when the run was read
  std::vector<U32> open;     // entries whose finding was open then, ascending
  bool differs = false;      // an entry of it
};

// One entry that differs, between its report and what is told of it.
struct Patrol::Judgement {
  Run& run;
  const U32 entry;
  Verdict verdict;
  Nature nature = Nature::unverified;
  Zint::String8 error = {};  // of an access that threw
};

}  // namespace Driver
