// The write path: what a client writes is offered to the shadow first.
#include <Hardware/Entries.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/PlainHam.h>
#include <Hardware/Umbra.h>
#include <cstring>

namespace Hardware {
namespace {

struct PlainStore {
  U8* shadow;  // of the first entry
  const U8* data;
  U8* dirty;
  U8* initialized;
  U32 entrySize;
  bool skipsHits;
};

// What the loop over the entries does where an access method copies plainly. Returns the number of
// hits.
[[gnu::always_inline]] inline U32 oneStoredPlainly(const PlainStore& store, U32 entry) {
  if (store.skipsHits && bitmapBit(store.initialized, entry) &&
      entriesEqual(store.shadow, store.data, store.entrySize)) {
    return 1;
  }
  bitmapBitIs(store.dirty, entry);
  bitmapBitIs(store.initialized, entry);
  entryCopied(store.shadow, store.data, store.entrySize);
  return 0;
}

// The same for many, a byte of the bitmaps at a time. Where an entry is a hit, copying it changes
// nothing.
U32 storedPlainly(const PlainStore& store, U32 entry, U32 numEntries) {
  const std::size_t bytes = std::size_t{store.entrySize} * numEntries;
  if (!store.skipsHits) {
    std::memmove(store.shadow, store.data, bytes);
    bitmapRangeIs(store.dirty, entry, numEntries);
    bitmapRangeIs(store.initialized, entry, numEntries);
    return 0;
  }
  if (numEntries > 8 && bitmapRangeIsSet(store.initialized, entry, numEntries) &&
      std::memcmp(store.shadow, store.data, bytes) == 0) {
    return numEntries;
  }
  U32 hits = 0;
  const U8* shadow = store.shadow;
  const U8* data = store.data;
  for (U32 e = entry, left = numEntries; left > 0;) {
    const BitGroup group(e, left);
    const U32 equal = equalEntries(shadow, data, store.entrySize, group.count) << (e & 7);
    const U32 hit = equal & store.initialized[e >> 3] & group.mask;
    const U32 missed = group.mask & ~hit;
    store.dirty[e >> 3] = static_cast<U8>(store.dirty[e >> 3] | missed);
    store.initialized[e >> 3] = static_cast<U8>(store.initialized[e >> 3] | missed);
    hits += bitsOfByte(hit);
    shadow += group.count * store.entrySize;
    data += group.count * store.entrySize;
    e += group.count;
    left -= group.count;
  }
  std::memmove(store.shadow, store.data, bytes);
  return hits;
}

}  // namespace

// What the writing comes to where all is in order and nobody looks on, and the access method keeps
// the base's copy; `answer` is then the answer.
[[gnu::always_inline]] inline bool HardwareShadow::takenPlainly(ChipMemory& cm, U32 entry,
                                                                const U8* data, U32 size,
                                                                bool& answer) const {
  if (cm.mode() == ChipMemory::override() || umbraTrace().builtFrom(7) || cm.notifiees() != 0 ||
      cm.shadow() == nullptr || cm.dirty() == nullptr || cm.initialized() == nullptr ||
      cm.chipHam() == nullptr || !writesToCachePlainly(*cm.chipHam())) {
    return false;
  }
  const U32 count = wholeEntries(cm, entry, size);
  if (count == 0 || !bitFits(*cm.dirty(), entry + count - 1)) return false;
  // One entry after the other, where later ones see what earlier ones have changed, or each is
  // counted by a derived region.
  if (count > 1 &&
      (overlap(cm.shadow()->data(), cm.shadow()->size(), data, size) || !countsWritesPlainly(cm))) {
    return false;
  }
  const U32 entrySize = cm.entrySize();
  const PlainStore store{cm.shadow()->data() + std::size_t{entrySize} * entry,
                         data,
                         cm.dirty()->data(),
                         cm.initialized()->data(),
                         entrySize,
                         cm.skipWriteIfMatchesCache()};
  const U32 hits = count == 1 ? oneStoredPlainly(store, entry) : storedPlainly(store, entry, count);
  answer = overrideHardware_ || hits == count || cm.mode() == ChipMemory::buffered();
  if (hits > 0) cm.writeCacheHitsInc(hits);
  return true;
}

bool HardwareShadow::shadowWriteAndCompareWithCache(const ChipMemory::Ptr& cm, U32 entry, U8* data,
                                                    U32 size) {
  if (cm == nullptr) return false;
  bool result = true;
  if (takenPlainly(*cm, entry, data, size, result)) return result;
  if (cm->mode() == ChipMemory::override()) return true;
  UMBRA_TRACE(9, __LINE__,
              "HardwareShadow::shadowWrite " << cm->name() << " entry 0x" << std::hex << entry
                                             << " size 0x" << size);
  // Held: an access method may replace the store, drop the region or this shadow.
  const Ptr self(this);
  const ChipMemory::Ptr region = cm;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow(), dirtyBuf = cm->dirty(),
                          initializedBuf = cm->initialized();
  UMBRA_ASSERT(__LINE__, shadowBuf);
  UMBRA_ASSERT(__LINE__, dirtyBuf);
  UMBRA_ASSERT(__LINE__, initializedBuf);
  UMBRA_ASSERT_REGION(*cm, cm->entrySize() != 0);
  const U32 entrySize = cm->entrySize();
  const U64 numEntries = size / entrySize;
  UMBRA_ASSERT(__LINE__, size % cm->entrySize() == 0);
  UMBRA_ASSERT(__LINE__, entry + numEntries <= cm->entries());
  const U32 end = entry + static_cast<U32>(numEntries);
  if (numEntries != 0) {
    UMBRA_ASSERT_REGION(*cm, entriesFit(*shadowBuf, end, entrySize));
    UMBRA_ASSERT_REGION(*cm, bitsFit(*dirtyBuf, end) && bitsFit(*initializedBuf, end));
  }

  U8* dirty = dirtyBuf->data();
  U8* initialized = initializedBuf->data();
  U8* src = data;
  U8* dst = shadowBuf->data() + std::size_t{entrySize} * entry;
  for (U32 e = entry; e < end; ++e, src += entrySize, dst += entrySize) {
    if (region->skipWriteIfMatchesCache() && bitmapBit(initialized, e) &&
        std::memcmp(dst, src, entrySize) == 0) {
      UMBRA_TRACE(7, __LINE__,
                  "Write hit cache " << region->name() << " entry 0x" << std::hex << e);
      region->writeCacheHitsInc(1);
      continue;
    }
    UMBRA_ASSERT_REGION(*region, region->chipHam());
    if (region->chipHam()->doWriteToCache(dst, src, entrySize)) {
      bitmapBitIs(dirty, e);
      bitmapBitIs(initialized, e);
    }
    result = region->mode() == ChipMemory::buffered();
  }
  return overrideHardware_ || result;
}

void HardwareShadow::shadowWriteHack(const ChipAddress& address, U8* data, U32 size) {
  if (!isInLast(address, size)) {
    const Ptr self(this);  // held, as is the region: the look-up may have ended another
    const ChipMemory::Ptr cm = foundInIndex(address, size);
    if (cm != nullptr) {
      shadowWriteAndCompareWithCache(cm, cm->entryIndexFromAddress(address), data, size);
    }
    return;
  }
  const ChipMemory::Ptr& cm = lastChipMemory_;
  const U32 entry = cm->entryIndexFromAddress(address);
  bool answer = true;
  if (takenPlainly(*cm, entry, data, size, answer)) return;
  shadowWriteAndCompareWithCache(cm, entry, data, size);
}

void HardwareShadow::shadowWriteU32(const ChipAddress& address, U32 value) {
  shadowWriteHack(address, reinterpret_cast<U8*>(&value), sizeof value);
}

}  // namespace Hardware
