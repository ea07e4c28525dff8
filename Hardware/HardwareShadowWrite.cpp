// The write path: what a client writes is offered to the shadow first.
#include <Hardware/Entries.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/PlainHam.h>
#include <Hardware/Umbra.h>
#include <bit>
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

// What the loop over the entries does where an access method copies plainly, a byte of the bitmaps
// at a time. Returns the number of hits. Where an entry is a hit, copying it changes nothing.
U32 storedPlainly(const PlainStore& store, U32 entry, U32 numEntries) {
  if (numEntries == 1) {
    if (store.skipsHits && bitmapBit(store.initialized, entry) &&
        entriesEqual(store.shadow, store.data, store.entrySize)) {
      return 1;
    }
    bitmapBitIs(store.dirty, entry);
    bitmapBitIs(store.initialized, entry);
    entryCopied(store.shadow, store.data, store.entrySize);
    return 0;
  }
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
    hits += static_cast<U32>(std::popcount(hit));
    shadow += group.count * store.entrySize;
    data += group.count * store.entrySize;
    e += group.count;
    left -= group.count;
  }
  std::memmove(store.shadow, store.data, bytes);
  return hits;
}

// The loop over the entries as such: where somebody looks on, or the access method has a say.
bool shadowWriteAndCompareWithCache(HardwareShadow& shadow, const ChipMemory::Ptr& cm, U32 entry,
                                    U32 count, U8* data) {
  // Held: an access method may replace the store, drop the region or this shadow.
  const HardwareShadow::Ptr self(&shadow);
  const ChipMemory::Ptr region = cm;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow(), dirtyBuf = cm->dirty(),
                          initializedBuf = cm->initialized();
  U8* dirty = dirtyBuf->data();
  U8* initialized = initializedBuf->data();
  const U32 entrySize = cm->entrySize();
  bool result = true;
  U8* src = data;
  U8* dst = shadowBuf->data() + std::size_t{entrySize} * entry;
  for (U32 e = entry; e < entry + count; ++e, src += entrySize, dst += entrySize) {
    if (region->skipWriteIfMatchesCache() && bitmapBit(initialized, e) &&
        std::memcmp(dst, src, entrySize) == 0) {
      UMBRA_TRACE(7, __LINE__,
                  "Write hit cache " << region->name() << " entry 0x" << std::hex << e);
      region->writeCacheHitsInc(1);
      continue;
    }
    if (region->chipHam()->doWriteToCache(dst, src, entrySize)) {
      bitmapBitIs(dirty, e);
      bitmapBitIs(initialized, e);
    }
    result = region->mode() == ChipMemory::buffered();
  }
  return shadow.overrideHardware() || result;
}

}  // namespace

bool HardwareShadow::shadowWriteAndCompareWithCache(const ChipMemory::Ptr& cm, U32 entry, U8* data,
                                                    U32 size) {
  if (cm == nullptr) return false;
  if (cm->mode() == ChipMemory::override()) return true;
  UMBRA_TRACE(9, __LINE__,
              "HardwareShadow::shadowWrite " << cm->name() << " entry 0x" << std::hex << entry
                                             << " size 0x" << size);
  const Hal::BufBase::Ptr& shadowBuf = cm->shadow();
  const Hal::BufBase::Ptr& dirtyBuf = cm->dirty();
  const Hal::BufBase::Ptr& initializedBuf = cm->initialized();
  UMBRA_ASSERT(__LINE__, shadowBuf);
  UMBRA_ASSERT(__LINE__, dirtyBuf);
  UMBRA_ASSERT(__LINE__, initializedBuf);
  UMBRA_ASSERT_REGION(*cm, cm->entrySize() != 0);
  const bool one = size == cm->entrySize();  // the common case needs no division
  const U32 count = one ? 1 : size / cm->entrySize();
  const U64 numEntries = count;
  if (!one) UMBRA_ASSERT(__LINE__, size % cm->entrySize() == 0);
  UMBRA_ASSERT(__LINE__, entry + numEntries <= cm->entries());
  UMBRA_ASSERT_REGION(*cm, cm->chipHam());
  const U32 end = entry + count;
  const U32 entrySize = cm->entrySize();
  UMBRA_ASSERT_REGION(*cm, entriesFit(*shadowBuf, end, entrySize));
  UMBRA_ASSERT_REGION(*cm, bitsFit(*dirtyBuf, end) && bitsFit(*initializedBuf, end));

  if (count == 0 || umbraTrace().built(7) || cm->notifiees() != 0 ||
      !writesToCachePlainly(*cm->chipHam())) {
    return Hardware::shadowWriteAndCompareWithCache(*this, cm, entry, count, data);
  }
  const U32 hits =
      storedPlainly({shadowBuf->data() + std::size_t{entrySize} * entry, data, dirtyBuf->data(),
                     initializedBuf->data(), entrySize, cm->skipWriteIfMatchesCache()},
                    entry, count);
  const bool result = overrideHardware_ || hits == count || cm->mode() == ChipMemory::buffered();
  if (hits > 0) cm->writeCacheHitsInc(hits);
  return result;
}

void HardwareShadow::shadowWriteHack(const ChipAddress& address, U8* data, U32 size) {
  const ChipMemory::Ptr& cm = regionAt(address, size);
  if (cm == nullptr) return;
  shadowWriteAndCompareWithCache(cm, cm->entryIndexFromAddress(address), data, size);
}

void HardwareShadow::shadowWriteU32(const ChipAddress& address, U32 value) {
  shadowWriteHack(address, reinterpret_cast<U8*>(&value), sizeof value);
}

}  // namespace Hardware
