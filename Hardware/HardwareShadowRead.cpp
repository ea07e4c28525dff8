// The read path: served from the shadow when every entry asked for is initialized.
#include <Hardware/HardwareShadow.h>

#include <Hardware/OverrideCheck.h>
#include <Hardware/StoreAccess.h>
#include <Hardware/Umbra.h>
#include <algorithm>
#include <cstring>

namespace Hardware {
namespace {

// The number of entries of a read of several whole ones; 0 if they are not all initialized and in
// the store, or if `data` overlaps the shadow. noinline: one entry is the common case.
[[gnu::noinline]] U32 servedEntries(const ChipMemory& cm, U32 entry, const U8* data, U32 size) {
  const U32 count = wholeEntries(cm, entry, size);
  const bool isServed = count != 0 && !overlap(*cm.shadow(), data, size) &&
                        bitmapRangeIsSet(StoreAccess::view(cm).initialized, entry, count);
  return isServed ? count : 0;
}

// A read that is served, where a notifiee or an overridden counter is called first. Held is what
// may be dropped then: the region, and its buffers, as `data` may lie in any of them.
[[gnu::noinline]] void readAnnounced(const ChipMemory& region, U32 entry, U8* data, U32 count) {
  const Zint::Ptr<const ChipMemory> cm(&region);
  const Hal::BufBase::Ptr held[] = {cm->shadow(), cm->initialized(), cm->dirty(), cm->hardware()};
  const U32 entrySize = cm->entrySize();
  const U8* from = held[0]->data() + std::size_t{entrySize} * entry;
  if (overridesReadCacheHits(*cm)) {
    cm->readCacheHitsInc(count);
  } else {
    StoreAccess::countReads(*cm, count);
    cm->notify(ChipMemory::Id::readCacheHits);
  }
  ZINT_TRACE_IN("readFromCache", umbraTrace(), 7, "", "Hardware/Umbra", __LINE__,
                "Read hit cache " << cm->name() << " " << count << " entries starting at 0x"
                                  << std::hex << entry);
  copyBytes(data, from, entrySize * count);
}

// The fast path, which calls nothing that a client can override but the counter. False: nothing was
// changed, and the reference must follow. True: done, and the answer is true.
[[gnu::always_inline]] inline bool readFast(const HardwareShadow& shadow, const ChipMemory& cm,
                                            U32 entry, U8* data, U32 size) {
  if (shadow.state() == HardwareShadow::unconfigured() ||
      !(cm.readFromCache() || shadow.overrideHardware()) || umbraTrace().isBuilt(7) ||
      cm.chipHam() == nullptr || overridesReadFromCache(*cm.chipHam())) {
    return false;
  }
  const auto& view = StoreAccess::view(cm);
  U32 count = 1;
  if (size == cm.entrySize() && size != 0) [[likely]] {
    if (entry >= view.entries || !bitmapBit(view.initialized, entry)) return false;
  } else {
    count = servedEntries(cm, entry, data, size);
    if (count == 0) return false;
  }
  if (cm.isObserved(ChipMemory::Id::readCacheHits) || overridesReadCacheHits(cm)) [[unlikely]] {
    readAnnounced(cm, entry, data, count);
    return true;
  }
  copyBytes(data, view.shadow + std::size_t{cm.entrySize()} * entry, size);
  StoreAccess::countReads(cm, count);
  return true;
}

// The end of a read that reaches beyond the shadow: `size` bytes from the shadow's byte `offset`
// on, of which those beyond it are 0.
bool readBeyond(const ChipMemory& cm, const Hal::BufBase& shadowBuf, U64 offset, U8* data,
                U32 size) {
  U8 few[64] = {};
  const Hal::Buf::Ptr many = size > sizeof few ? Zint::makePtr<Hal::Buf>(size) : Hal::Buf::Ptr();
  U8* const source = many ? many->data() : few;
  if (offset < shadowBuf.size()) {
    std::memcpy(source, shadowBuf.data() + offset, static_cast<U32>(shadowBuf.size() - offset));
  }
  return cm.chipHam()->doReadFromCache(data, source, size);
}

}  // namespace

bool HardwareShadow::readFromCache(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data,
                                   U32 size) {
  if (chipMemory != nullptr && readFast(*this, *chipMemory, entry, data, size)) return true;
  UMBRA_ASSERT(__LINE__, state_ != unconfigured());
  if (chipMemory == nullptr) return false;
  if (!chipMemory->readFromCache() && !overrideHardware_) return false;
  if (chipMemory->mode() == ChipMemory::override()) {
    fillBytes(data, 0, size);
    return true;
  }
  // The reference. What a notifiee or an access method may drop or replace is held: the shadow, the
  // region, its store.
  const Ptr self(this);
  const ChipMemory::Ptr cm = chipMemory;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow();
  const Hal::BufBase::Ptr initializedBuf = cm->initialized();
  // `data` may lie in any buffer of the region.
  const Hal::BufBase::Ptr held[] = {cm->dirty(), cm->hardware()};
  UMBRA_ASSERT(__LINE__, shadowBuf);
  UMBRA_ASSERT(__LINE__, initializedBuf);
  UMBRA_ASSERT_REGION(*cm, cm->entrySize() != 0);
  const U32 entrySize = cm->entrySize();
  const U64 numEntries = size / entrySize;
  UMBRA_ASSERT(__LINE__, ( entry + numEntries ) <= cm->entries());
  UMBRA_ASSERT_REGION(*cm, cm->chipHam());
  // Only a part of the entry past the last one may lie beyond the shadow.
  const U64 end = entry + numEntries;
  const U64 offset = U64{entry} * entrySize;
  const U64 inShadow = end == cm->entries() ? numEntries * entrySize : size;
  UMBRA_ASSERT_REGION(*cm, inShadow == 0 || offset + inShadow <= shadowBuf->size());
  UMBRA_ASSERT_REGION(*cm, numEntries == 0 || end <= bitsOf(*initializedBuf));

  const U8* initialized = initializedBuf->data();
  // One byte of the bitmap, up to eight entries, at a time.
  U32 b = entry;
  for (U32 left = static_cast<U32>(numEntries); left > 0;) {
    const BitGroup group(b, left);
    const U32 served = initialized[b >> 3] & ~StoreAccess::volatileByte(*cm, b);
    if ((served & group.mask) != group.mask) {
      if (!overrideHardware_) {
        UMBRA_TRACE(7, __LINE__,
                    "Read miss cache " << cm->name() << " " << group.count
                                       << " entries starting at " << b
                                       << " not in cache, will read from hardware");
        return false;
      }
      ZINT_TRACE_CONTEXT(umbraTrace(), 4, "<unknown>", "Hardware/Umbra", __LINE__,
                         cm->name() << ": accessing uninitialized entry " << b);
    }
    b += group.count;
    left -= group.count;
  }
  cm->readCacheHitsInc(numEntries);
  UMBRA_TRACE(7, __LINE__,
              "Read hit cache " << cm->name() << " " << numEntries << " entries starting at 0x"
                                << std::hex << entry);
  for (U64 source = offset; size > 0;) {
    const U32 part = std::min(entrySize, size);
    const bool isServed =
        source + part <= shadowBuf->size()
            ? cm->chipHam()->doReadFromCache(data, shadowBuf->data() + source, part)
            : readBeyond(*cm, *shadowBuf, source, data, part);
    if (!isServed) return false;
    data += part;
    source += part;
    size -= part;
  }
  return true;
}

namespace {

// The slow path, with a look-up. noinline keeps its registers out of the fast path. The address is
// copied and the last region held, because the look-up may drop that region: the address and `data`
// may lie in it.
[[gnu::noinline]] bool findAndRead(HardwareShadow& hardwareShadow, const ChipAddress& where,
                                   U8* data, U32 size) {
  const HardwareShadow::Ptr shadow(&hardwareShadow);
  const ChipAddress address = where;
  const ChipMemory::Ptr previous = shadow->lastChipMemory();
  const ChipMemory::Ptr cm = shadow->findChipMemory(address, size);
  return cm != nullptr && shadow->readFromCache(cm, cm->entryIndexFromAddress(address), data, size);
}

}  // namespace

bool HardwareShadow::readFromCacheHack(const ChipAddress& address, U8* data, U32 size) {
  const ChipMemory* cm = findForEntry(address, size);
  return (cm != nullptr && readFast(*this, *cm, cm->entryIndexFromAddress(address), data, size)) ||
         findAndRead(*this, address, data, size);
}

// flatten: with the size known, the fast path is shorter.
[[gnu::flatten]] U32 HardwareShadow::readFromCacheU32(const ChipAddress& address) {
  U32 value = 0;
  return readFromCacheHack(address, reinterpret_cast<U8*>(&value), sizeof value) ? value : 0;
}

}  // namespace Hardware
