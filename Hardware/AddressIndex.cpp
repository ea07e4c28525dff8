#include <Hardware/AddressIndex.h>

#include <Hardware/Umbra.h>

namespace Hardware {

// Both nextIndex values advance last, after all allocations have succeeded, so a look-up never
// sees an empty chunk.
void AddressIndex::add(const ChipMemory::Ptr& cm) {
  const U32 id = cm->address().chipMemoryId();
  // Regions come in ascending order: the chunk is usually the last one.
  const bool isOfLast = isIntact_ && nextIndex_ != 0 && chipMemoryId_.data()[nextIndex_ - 1] == id;
  const ChipMemoryChunk::Ptr chunk =
      isOfLast ? chipMemoryChunkArray_.data()[nextIndex_ - 1] : chipMemoryChunkIs(id);
  const U16 index = chunk->nextIndex();
  UMBRA_ASSERT_REGION(*cm, index != 65535);
  chunk->store(index, cm);
  if (index == 0) {
    UMBRA_ASSERT_REGION(*cm, nextIndex_ != 65535);
    chipMemoryId_.atIs(nextIndex_, id);
    chipMemoryChunkArray_.atIs(nextIndex_, chunk);
    nextIndex_ = static_cast<U16>(nextIndex_ + 1);
  }
  chunk->nextIndex_ = static_cast<U16>(index + 1);
}

// An array that was changed by hand is not searched with its table.
void AddressIndex::buildStartTables() {
  if (!isIntact_) return;
  for (U16 i = 0; i < nextIndex_; ++i) {
    ChipMemoryChunk& chunk = *chipMemoryChunkArray_.data()[i];
    if (chunk.isIntact_) chunk.offsetStarts_.build(chunk.offset_.data(), chunk.nextIndex_);
  }
  idStarts_.build(chipMemoryId_.data(), nextIndex_);
}

void AddressIndex::clear() {
  decltype(chipMemoryChunkArray_) released;
  chipMemoryChunkDelAll();
  released.swap(chipMemoryChunkArray_);
  chipMemoryId_.delAll();
  nextIndex_ = 0;
  forget();
}

// The search for an index that was changed by hand. What it finds in arrays that are out of order
// depends on the order of its probes, which clients can observe (deliberate).
[[gnu::cold, gnu::noinline]] ChipMemory* AddressIndex::findByProbes(
    const ChipAddress& address) const {
  const U32 id = address.chipMemoryId();
  U16 mid = 0;
  for (S32 lo = 0, hi = nextIndex_ - 1;;) {
    if (hi < lo) return nullptr;
    mid = static_cast<U16>((lo + hi) / 2);
    if (chipMemoryId(mid) == id) break;
    if (chipMemoryId(mid) > id) {
      hi = mid - 1;
    } else {
      lo = mid + 1;
    }
  }
  const ChipMemoryChunk::Ptr cmc = chipMemoryChunkArray(mid);
  UMBRA_ASSERT_IN(findChipMemoryFunction, __LINE__, cmc, "");

  const U32 offset = address.chipMemoryOffset();
  mid = 0;
  for (S32 lo = 0, hi = cmc->nextIndex() - 1; hi >= lo;) {
    mid = static_cast<U16>((lo + hi) / 2);
    if (offset < cmc->offset(mid)) {
      hi = mid - 1;
    } else {
      lo = mid + 1;
    }
  }
  if (cmc->offset(mid) > offset) {
    if (mid == 0) return nullptr;
    --mid;
  }
  const ChipMemory::Ptr cm = cmc->chipMemory(mid);
  UMBRA_ASSERT_IN(findChipMemoryFunction, __LINE__, cm, "");
  return cm->inRange(address) ? cm.ptr() : nullptr;
}

U32 AddressIndex::auditErrors() const {
  U32 errors = 0;
  for (U16 i = 0; i < nextIndex_; ++i) {
    const ChipMemoryChunk::Ptr chunk = chipMemoryChunkArray(i);
    if (chunk == nullptr || chunk->fwkKey() != chipMemoryId(i)) ++errors;
    if (i > 0 && chipMemoryId(i) <= chipMemoryId(static_cast<U16>(i - 1))) ++errors;
    if (chunk != nullptr) errors += chunk->auditErrors();
  }
  return errors;
}

}  // namespace Hardware
