// The read path: served from the shadow when every entry asked for is known.
#include <Hardware/Entries.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/PlainHam.h>
#include <Hardware/Umbra.h>
#include <algorithm>
#include <cstring>

namespace Hardware {
namespace {

// The reading as such: where somebody looks on, or the access method has a say.
bool readFromCache(const HardwareShadow& shadow, const ChipMemory::Ptr& cm, U32 entry, U32 count,
                   U8* data, U32 size) {
  // Held: an observer or an access method may replace the store or drop the region.
  const ChipMemory::Ptr region = cm;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow();
  const Hal::BufBase::Ptr initializedBuf = cm->initialized();
  const U32 entrySize = cm->entrySize();
  U8* source = shadowBuf->data() + std::size_t{entrySize} * entry;
  const U8* initialized = initializedBuf->data();
  if (!bitmapRangeIsSet(initialized, entry, count)) {
    // One byte of the bitmap, up to eight entries, at a time.
    U32 b = entry;
    for (U32 left = count; left > 0;) {
      const BitGroup group(b, left);
      if ((initialized[b >> 3] & group.mask) != group.mask) {
        if (!shadow.overrideHardware()) {
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
  }
  region->readCacheHitsInc(count);
  UMBRA_TRACE(7, __LINE__,
              "Read hit cache " << region->name() << " " << count << " entries starting at 0x"
                                << std::hex << entry);
  if (size != 0 && readsFromCachePlainly(*region->chipHam())) {
    std::memcpy(data, source, size);
    return true;
  }
  while (size > 0) {
    const U32 part = std::min(entrySize, size);
    if (!region->chipHam()->doReadFromCache(data, source, part)) return false;
    data += part;
    source += part;
    size -= part;
  }
  return true;
}

}  // namespace

bool HardwareShadow::readFromCache(const ChipMemory::Ptr& cm, U32 entry, U8* data, U32 size) {
  UMBRA_ASSERT(__LINE__, state_ != unconfigured());
  if (cm == nullptr) return false;
  if (!cm->readFromCache() && !overrideHardware_) return false;
  if (cm->mode() == ChipMemory::override()) {
    if (size != 0) std::memset(data, 0, size);
    return true;
  }
  const Hal::BufBase::Ptr& shadowBuf = cm->shadow();
  const Hal::BufBase::Ptr& initializedBuf = cm->initialized();
  UMBRA_ASSERT(__LINE__, shadowBuf);
  UMBRA_ASSERT(__LINE__, initializedBuf);
  UMBRA_ASSERT_REGION(*cm, cm->entrySize() != 0);
  const U32 entrySize = cm->entrySize();
  const U32 count = size == entrySize ? 1 : size / entrySize;
  const U64 numEntries = count;
  UMBRA_ASSERT(__LINE__, ( entry + numEntries ) <= cm->entries());
  UMBRA_ASSERT_REGION(*cm, cm->chipHam());
  const U64 bytes = U64{entry} * entrySize + size;  // a partial entry may end in the slack
  UMBRA_ASSERT_REGION(*cm, bytes <= U64{shadowBuf->size()} + shadowBuf->slack());
  UMBRA_ASSERT_REGION(*cm, bitsFit(*initializedBuf, entry + numEntries));

  if (!umbraTrace().built(7) && cm->notifiees() == 0 && countsReadsPlainly(*cm) &&
      readsFromCachePlainly(*cm->chipHam()) &&
      bitmapRangeIsSet(initializedBuf->data(), entry, count)) {
    cm->ChipMemory::readCacheHitsIs(cm->readCacheHits() + count);
    entryCopied(data, shadowBuf->data() + std::size_t{entrySize} * entry, size);
    return true;
  }
  return Hardware::readFromCache(*this, cm, entry, count, data, size);
}

bool HardwareShadow::readFromCacheHack(const ChipAddress& address, U8* data, U32 size) {
  const ChipMemory::Ptr& cm = regionAt(address, size);
  if (cm == nullptr) return false;
  return readFromCache(cm, cm->entryIndexFromAddress(address), data, size);
}

U32 HardwareShadow::readFromCacheU32(const ChipAddress& address) {
  U32 value = 0;
  return readFromCacheHack(address, reinterpret_cast<U8*>(&value), sizeof value) ? value : 0;
}

}  // namespace Hardware
