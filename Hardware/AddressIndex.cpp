#include <Hardware/AddressIndex.h>

#include <Hardware/Umbra.h>

namespace Hardware {
namespace {

// Compiles to a conditional move: the branch would be unpredictable.
inline const U32* select(bool first, const U32* a, const U32* b) {
  return __builtin_expect_with_probability(first, 1, 0.5) ? a : b;
}

// The position of the greatest of `count` (more than 0) ascending numbers that is not above
// `sought`; 0 if all are above it. A binary search without branches to mispredict. Each step leaves
// a quarter of the numbers: its three loads do not depend on one another, so that their cache
// misses overlap. The last steps leave a half.
[[gnu::always_inline]] inline U32 lastNotAbove(const U32* numbers, U32 count, U32 sought) {
  const U32* base = numbers;
  while (count > 3) {
    const U32 quarter = count / 4;
    const U32* first = base + quarter;
    const U32* second = first + quarter;
    const U32* third = second + quarter;
    base = select(*first <= sought, first, base);
    base = select(*second <= sought, second, base);
    base = select(*third <= sought, third, base);
    count -= 3 * quarter;
  }
  while (count > 1) {
    const U32 half = count / 2;
    base = select(base[half] <= sought, base + half, base);
    count -= half;
  }
  return static_cast<U32>(base - numbers);
}

}  // namespace

// Both nextIndex values advance last, after all allocations have succeeded, so a look-up never
// sees an empty chunk.
void AddressIndex::add(const ChipMemory::Ptr& cm) {
  const U32 id = cm->address().chipMemoryId();
  const ChipMemoryChunk::Ptr chunk = chipMemoryChunkIs(id);
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

void AddressIndex::clear() {
  decltype(chipMemoryChunkArray_) released;
  chipMemoryChunkDelAll();
  released.swap(chipMemoryChunkArray_);
  chipMemoryId_.delAll();
  nextIndex_ = 0;
  isIntact_ = true;
}

ChipMemory* AddressIndex::find(const ChipAddress& address) const {
  if (nextIndex_ == 0) return nullptr;
  if (!isIntact_) [[unlikely]]
    return findByProbes(address);

  // The chunk of exactly this memory id.
  U32 mid = lastNotAbove(chipMemoryId_.data(), nextIndex_, address.chipMemoryId());
  if (chipMemoryId_.data()[mid] != address.chipMemoryId()) return nullptr;
  const ChipMemoryChunk* cmc = chipMemoryChunkArray_.data()[mid].ptr();
  if (!cmc->isIntact_) [[unlikely]]
    return findByProbes(address);

  // The region with the greatest offset that is not above the address's. It is a candidate only:
  // the address may be below the first offset, or in the gap after the region.
  mid = lastNotAbove(cmc->offset_.data(), cmc->nextIndex_, address.chipMemoryOffset());
  ChipMemory* cm = cmc->chipMemory_.data()[mid].ptr();
  return cm->inRange(address) ? cm : nullptr;
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
