// The read path: served from the shadow when every entry asked for is known.
#include <Hardware/Entries.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/PlainHam.h>
#include <Hardware/Umbra.h>
#include <algorithm>
#include <cstring>

namespace Hardware {
namespace {

// Several entries read at once. Returns their number, 0 where they cannot be: one is not known or
// does not fit, or the bytes read are the ones written to. Out of line: one entry is the common
// case.
[[gnu::noinline]] U32 severalCopied(const ChipMemory& cm, U32 entry, U8* data, U32 size) {
  const U32 count = wholeEntries(cm, entry, size);
  const U8* shadow = cm.shadow()->data();
  if (count == 0 || overlap(shadow, cm.shadow()->size(), data, size) ||
      !bitmapRangeIsSet(cm.initialized()->data(), entry, count)) {
    return 0;
  }
  std::memcpy(data, shadow + std::size_t{cm.entrySize()} * entry, size);
  return count;
}

}  // namespace

// What the reading comes to where all is in order and nobody looks on: the entries are known, and
// the access method and the region keep the base's copy and count.
[[gnu::always_inline]] inline bool HardwareShadow::servedPlainly(const ChipMemory& cm, U32 entry,
                                                                 U8* data, U32 size) const {
  if (state_ == unconfigured_ || !(cm.readFromCache() || overrideHardware_) ||
      cm.mode() == ChipMemory::override() || umbraTrace().built(7) || cm.notifiees() != 0 ||
      cm.shadow() == nullptr || cm.initialized() == nullptr || cm.chipHam() == nullptr ||
      !countsReadsPlainly(cm) || !readsFromCachePlainly(*cm.chipHam())) {
    return false;
  }
  U32 count = 1;
  if (size == cm.entrySize()) [[likely]] {
    if (!holdsEntry(cm, entry) || !bitmapBit(cm.initialized()->data(), entry)) return false;
    entryCopied(data, cm.shadow()->data() + std::size_t{size} * entry, size);
  } else {
    count = severalCopied(cm, entry, data, size);
  }
  cm.readCacheHits_ += count;
  return count != 0;
}

bool HardwareShadow::readFromCache(const ChipMemory::Ptr& cm, U32 entry, U8* data, U32 size) {
  if (cm != nullptr && servedPlainly(*cm, entry, data, size)) return true;
  UMBRA_ASSERT(__LINE__, state_ != unconfigured());
  if (cm == nullptr) return false;
  if (!cm->readFromCache() && !overrideHardware_) return false;
  if (cm->mode() == ChipMemory::override()) {
    if (size != 0) std::memset(data, 0, size);
    return true;
  }
  // Held: an observer or an access method may replace the store or drop the region.
  const ChipMemory::Ptr region = cm;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow();
  const Hal::BufBase::Ptr initializedBuf = cm->initialized();
  UMBRA_ASSERT(__LINE__, shadowBuf);
  UMBRA_ASSERT(__LINE__, initializedBuf);
  UMBRA_ASSERT_REGION(*cm, cm->entrySize() != 0);
  const U32 entrySize = cm->entrySize();
  const U64 numEntries = size / entrySize;
  UMBRA_ASSERT(__LINE__, ( entry + numEntries ) <= cm->entries());
  UMBRA_ASSERT_REGION(*cm, cm->chipHam());
  const U64 bytes = U64{entry} * entrySize + size;  // a partial entry may end in the slack
  UMBRA_ASSERT_REGION(*cm, bytes <= U64{shadowBuf->size()} + shadowBuf->slack());
  UMBRA_ASSERT_REGION(*cm, bitsFit(*initializedBuf, entry + numEntries));

  U8* source = shadowBuf->data() + std::size_t{entrySize} * entry;
  const U8* initialized = initializedBuf->data();
  // One byte of the bitmap, up to eight entries, at a time.
  U32 b = entry;
  for (U32 left = static_cast<U32>(numEntries); left > 0;) {
    const BitGroup group(b, left);
    if ((initialized[b >> 3] & group.mask) != group.mask) {
      if (!overrideHardware_) {
        UMBRA_TRACE(7, __LINE__,
                    "Read miss cache " << region->name() << " " << group.count
                                       << " entries starting at " << b
                                       << " not in cache, will read from hardware");
        return false;
      }
      ZINT_TRACE_CONTEXT(umbraTrace(), 4, "<unknown>", "Hardware/Umbra", __LINE__,
                         region->name() << ": accessing uninitialized entry " << b);
    }
    b += group.count;
    left -= group.count;
  }
  region->readCacheHitsInc(numEntries);
  UMBRA_TRACE(7, __LINE__,
              "Read hit cache " << region->name() << " " << numEntries << " entries starting at 0x"
                                << std::hex << entry);
  while (size > 0) {
    const U32 part = std::min(entrySize, size);
    if (!region->chipHam()->doReadFromCache(data, source, part)) return false;
    data += part;
    source += part;
    size -= part;
  }
  return true;
}

namespace {

// What the last region does not take at once. Out of line: inlined, it would take the registers of
// the common case.
[[gnu::noinline]] bool readFound(HardwareShadow& shadow, const ChipAddress& address, U8* data,
                                 U32 size) {
  const HardwareShadow::Ptr held(&shadow);  // as is the region: the look-up may end another
  const ChipMemory::Ptr cm = shadow.findChipMemory(address, size);
  return cm != nullptr && shadow.readFromCache(cm, cm->entryIndexFromAddress(address), data, size);
}

}  // namespace

bool HardwareShadow::readFromCacheHack(const ChipAddress& address, U8* data, U32 size) {
  const ChipMemory* last = lastChipMemory_.ptr();
  return (last != nullptr && size == last->entrySize() && last->inRange(address) &&
          servedPlainly(*last, last->entryIndexFromAddress(address), data, size)) ||
         readFound(*this, address, data, size);
}

// Flattened: with the size known, the common case is shorter.
[[gnu::flatten]] U32 HardwareShadow::readFromCacheU32(const ChipAddress& address) {
  U32 value = 0;
  return readFromCacheHack(address, reinterpret_cast<U8*>(&value), sizeof value) ? value : 0;
}

}  // namespace Hardware
