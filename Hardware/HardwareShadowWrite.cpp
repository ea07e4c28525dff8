// The write path: what a client writes is offered to the shadow first.
#include <Hardware/Entries.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/PlainHam.h>
#include <Hardware/Umbra.h>
#include <cstring>

namespace Hardware {
namespace {

// What the loop over the entries does where an access method copies plainly. Returns the number of
// hits.
[[gnu::always_inline]] inline U32 oneStored(const ChipMemory& cm, U32 entry, const U8* data) {
  const U32 entrySize = cm.entrySize();
  U8* shadow = cm.shadow()->data() + std::size_t{entrySize} * entry;
  if (cm.skipWriteIfMatchesCache() && bitmapBit(cm.initialized()->data(), entry) &&
      entriesEqual(shadow, data, entrySize)) {
    return 1;
  }
  bitmapBitIs(cm.dirty()->data(), entry);
  bitmapBitIs(cm.initialized()->data(), entry);
  entryCopied(shadow, data, entrySize);
  return 0;
}

// The same for several, a byte of the bitmaps at a time. Where an entry is a hit, copying it
// changes nothing.
[[gnu::noinline]] U32 severalStored(const ChipMemory& cm, U32 entry, const U8* data, U32 count) {
  const U32 entrySize = cm.entrySize();
  const std::size_t bytes = std::size_t{entrySize} * count;
  U8* const firstShadow = cm.shadow()->data() + std::size_t{entrySize} * entry;
  U8* const dirty = cm.dirty()->data();
  U8* const initialized = cm.initialized()->data();
  if (!cm.skipWriteIfMatchesCache()) {
    std::memmove(firstShadow, data, bytes);
    bitmapRangeIs(dirty, entry, count);
    bitmapRangeIs(initialized, entry, count);
    return 0;
  }
  if (count > 8 && bitmapRangeIsSet(initialized, entry, count) &&
      std::memcmp(firstShadow, data, bytes) == 0) {
    return count;
  }
  U32 hits = 0;
  const U8* shadow = firstShadow;
  const U8* offered = data;
  for (U32 e = entry, left = count; left > 0;) {
    const BitGroup group(e, left);
    const U32 equal = equalEntries(shadow, offered, entrySize, group.count) << (e & 7);
    const U32 hit = equal & initialized[e >> 3] & group.mask;
    const U32 missed = group.mask & ~hit;
    dirty[e >> 3] = static_cast<U8>(dirty[e >> 3] | missed);
    initialized[e >> 3] = static_cast<U8>(initialized[e >> 3] | missed);
    hits += bitsOfByte(hit);
    shadow += group.count * entrySize;
    offered += group.count * entrySize;
    e += group.count;
    left -= group.count;
  }
  std::memmove(firstShadow, data, bytes);
  return hits;
}

// The number of several entries that can be stored at once; 0 where one must come after the other,
// because later ones see what earlier ones have changed, or each is counted by a derived region.
[[gnu::noinline]] U32 storableAtOnce(const ChipMemory& cm, U32 entry, const U8* data, U32 size) {
  const U32 count = wholeEntries(cm, entry, size);
  const bool plain = count != 0 && bitFits(*cm.dirty(), entry + count - 1) &&
                     !overlap(cm.shadow()->data(), cm.shadow()->size(), data, size) &&
                     countsWritesPlainly(cm);
  return plain ? count : 0;
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
  U32 count = 1;
  U32 hits = 0;
  if (size == cm.entrySize()) [[likely]] {
    if (!holdsEntry(cm, entry) || !bitFits(*cm.dirty(), entry)) return false;
    hits = oneStored(cm, entry, data);
  } else {
    count = storableAtOnce(cm, entry, data, size);
    if (count == 0) return false;
    hits = severalStored(cm, entry, data, count);
  }
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

namespace {

// What the last region does not take at once. Out of line: inlined, it would take the registers of
// the common case.
[[gnu::noinline]] void writeFound(HardwareShadow& shadow, const ChipAddress& address, U8* data,
                                  U32 size) {
  const HardwareShadow::Ptr held(&shadow);  // as is the region: the look-up may end another
  const ChipMemory::Ptr cm = shadow.findChipMemory(address, size);
  if (cm == nullptr) return;
  shadow.shadowWriteAndCompareWithCache(cm, cm->entryIndexFromAddress(address), data, size);
}

}  // namespace

void HardwareShadow::shadowWriteHack(const ChipAddress& address, U8* data, U32 size) {
  ChipMemory* last = lastChipMemory_.ptr();
  bool answer;
  if (last == nullptr || size != last->entrySize() || !last->inRange(address) ||
      !takenPlainly(*last, last->entryIndexFromAddress(address), data, size, answer)) {
    writeFound(*this, address, data, size);
  }
}

// Flattened: with the size known, the common case is shorter.
[[gnu::flatten]] void HardwareShadow::shadowWriteU32(const ChipAddress& address, U32 value) {
  shadowWriteHack(address, reinterpret_cast<U8*>(&value), sizeof value);
}

}  // namespace Hardware
