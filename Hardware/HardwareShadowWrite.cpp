// The write path: what a client writes is offered to the shadow first.
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>
#include <cstring>

namespace Hardware {

bool HardwareShadow::shadowWriteAndCompareWithCache(const ChipMemory::Ptr& cm, U32 entry, U8* data,
                                                    U32 size) {
  if (cm == nullptr) return false;
  if (cm->mode() == ChipMemory::override()) return true;
  UMBRA_TRACE(9, __LINE__,
              "HardwareShadow::shadowWrite " << cm->name() << " entry 0x" << std::hex << entry
                                             << " size 0x" << size);
  // Held: an access method may replace the store or drop the region.
  const ChipMemory::Ptr region = cm;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow();
  const Hal::BufBase::Ptr dirtyBuf = cm->dirty();
  const Hal::BufBase::Ptr initializedBuf = cm->initialized();
  UMBRA_ASSERT(__LINE__, shadowBuf);
  UMBRA_ASSERT(__LINE__, dirtyBuf);
  UMBRA_ASSERT(__LINE__, initializedBuf);
  UMBRA_ASSERT_REGION(*cm, cm->entrySize() != 0);
  const U64 numEntries = size / cm->entrySize();
  UMBRA_ASSERT(__LINE__, size % cm->entrySize() == 0);
  UMBRA_ASSERT(__LINE__, entry + numEntries <= cm->entries());
  const U64 end = entry + numEntries;
  const U32 entrySize = region->entrySize();
  UMBRA_ASSERT_REGION(*region, entriesFit(*shadowBuf, end, entrySize));
  UMBRA_ASSERT_REGION(*region, bitsFit(*dirtyBuf, end) && bitsFit(*initializedBuf, end));

  bool result = true;
  U8* src = data;
  U8* dst = shadowBuf->data() + std::size_t{entrySize} * entry;
  for (U32 e = entry; e < end; ++e, src += entrySize, dst += entrySize) {
    if (region->skipWriteIfMatchesCache() && bitmapBit(initializedBuf->data(), e) &&
        std::memcmp(dst, src, entrySize) == 0) {
      UMBRA_TRACE(7, __LINE__,
                  "Write hit cache " << region->name() << " entry 0x" << std::hex << e);
      region->writeCacheHitsInc(1);
      continue;
    }
    if (region->chipHam()->doWriteToCache(dst, src, entrySize)) {
      bitmapBitIs(dirtyBuf->data(), e);
      bitmapBitIs(initializedBuf->data(), e);
    }
    result = region->mode() == ChipMemory::buffered();
  }
  return overrideHardware_ || result;
}

void HardwareShadow::shadowWriteHack(const ChipAddress& address, U8* data, U32 size) {
  const ChipMemory::Ptr cm = findChipMemory(address, size);
  if (cm == nullptr) return;
  shadowWriteAndCompareWithCache(cm, cm->entryIndexFromAddress(address), data, size);
}

void HardwareShadow::shadowWriteU32(const ChipAddress& address, U32 value) {
  shadowWriteHack(address, reinterpret_cast<U8*>(&value), sizeof value);
}

}  // namespace Hardware
