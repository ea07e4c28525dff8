// The write path: what a client writes is offered to the shadow first.
#include <Hardware/HardwareShadow.h>

#include <Hardware/OverrideCheck.h>
#include <Hardware/StoreAccess.h>
#include <Hardware/Umbra.h>
#include <cstring>

namespace Hardware {
namespace {

// The operation that traces and assertions of this path name.
constexpr const char* writeFunction = "shadowWriteAndCompareWithCache";
constexpr const char* writeSignature =
    "bool Hardware::HardwareShadow::shadowWriteAndCompareWithCache(const "
    "Hardware::ChipMemory::Ptr&, U32, U8*, U32)";

// Writes `count` entries from `entry` on. An entry whose value the store holds already is a hit.
// Any other is copied first and marked after that: `data` may lie in the store and in its bitmaps.
// The `Writer` says whether hits are skipped, and counts, copies and traces.
template <class Writer>
[[gnu::always_inline]] inline void writeEntries(Writer& writer, U8* shadow, U8* initialized,
                                                U8* dirty, U32 entrySize, U32 entry, U32 count,
                                                U8* data) {
  U8* src = data;
  U8* dst = shadow + std::size_t{entrySize} * entry;
  for (U32 e = entry, left = count; left > 0; --left, ++e, src += entrySize, dst += entrySize) {
    if (writer.skipsMatches(e) && bitmapBit(initialized, e) && entriesEqual(dst, src, entrySize)) {
      writer.countHit(e);
      continue;
    }
    if (writer.copy(dst, src, entrySize)) {
      bitmapBitIs(dirty, e);
      bitmapBitIs(initialized, e);
    }
    writer.finishMiss();
  }
}

// The reference: an access method that may be overridden, traces and notifications.
struct CallingWriter {
  ChipMemory& cm;
  bool result = true;

  bool skipsMatches(U32 e) const {
    return cm.skipWriteIfMatchesCache() && (StoreAccess::volatileByte(cm, e) >> (e & 7) & 1) == 0;
  }
  void countHit(U32 e) const {
    ZINT_TRACE_IN(writeFunction, umbraTrace(), 7, "", "Hardware/Umbra", __LINE__,
                  "Write hit cache " << cm.name() << " entry 0x" << std::hex << e);
    cm.writeCacheHitsInc(1);
  }
  bool copy(U8* dst, U8* src, U32 entrySize) const {
    UMBRA_ASSERT_IN(writeSignature, __LINE__, cm.chipHam(), cm.fwkKey().c_str());
    return cm.chipHam()->doWriteToCache(dst, src, entrySize);
  }
  void finishMiss() { result = cm.mode() == ChipMemory::buffered(); }
};

// The fast path: the copy of the base class, no traces and no notifications.
struct BaseWriter {
  const ChipMemory& cm;
  U32 hits = 0;

  bool skipsMatches(U32) const { return cm.skipWriteIfMatchesCache(); }
  void countHit(U32) { ++hits; }
  static bool copy(U8* dst, const U8* src, U32 entrySize) {
    copyBytes(dst, src, entrySize);
    return true;
  }
  static void finishMiss() {}
};

// The bits of a group's entries that are hits, from `e` on.
[[gnu::always_inline]] inline U32 hitsOfGroup(const U8* initialized, U32 e, const BitGroup& group,
                                              const U8* shadow, const U8* data, U32 entrySize) {
  const U32 equal = equalEntries(shadow, data, entrySize, group.count) << (e & 7);
  return equal & initialized[e >> 3] & group.mask;
}

// Equivalent to writeEntries with a BaseWriter, but a byte of the bitmaps at a time. Returns the
// number of hits. REQUIRES: the three buffers and `data` are disjoint. Then copying a hit changes
// nothing, and no entry depends on another.
[[gnu::noinline]] U32 writeDisjointEntries(const ChipMemory& cm, U32 entry, const U8* data,
                                           U32 count) {
  const auto& view = StoreAccess::view(cm);
  const U32 entrySize = cm.entrySize();
  const std::size_t bytes = std::size_t{entrySize} * count;
  U8* const firstShadow = view.shadow + std::size_t{entrySize} * entry;
  U8* const dirty = view.dirty;
  U8* const initialized = view.initialized;
  if (!cm.skipWriteIfMatchesCache()) {
    std::memcpy(firstShadow, data, bytes);
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
    const U32 hit = hitsOfGroup(initialized, e, group, shadow, offered, entrySize);
    const U32 missed = group.mask & ~hit;
    dirty[e >> 3] = static_cast<U8>(dirty[e >> 3] | missed);
    initialized[e >> 3] = static_cast<U8>(initialized[e >> 3] | missed);
    hits += bitsOfByte(hit);
    shadow += group.count * entrySize;
    offered += group.count * entrySize;
    e += group.count;
    left -= group.count;
  }
  std::memcpy(firstShadow, data, bytes);
  return hits;
}

// Whether a hit calls what a client may have supplied: a notifiee or an overridden counter.
bool reportsHits(const ChipMemory& cm) {
  return cm.isObserved(ChipMemory::Id::writeCacheHits) || overridesWriteCacheHits(cm);
}

// Whether any of `count` entries would be a hit.
bool holdsHit(const ChipMemory& cm, U32 entry, const U8* data, U32 count) {
  if (!cm.skipWriteIfMatchesCache()) return false;
  const auto& view = StoreAccess::view(cm);
  const U32 entrySize = cm.entrySize();
  const U8* shadow = view.shadow + std::size_t{entrySize} * entry;
  for (U32 e = entry, left = count; left > 0;) {
    const BitGroup group(e, left);
    if (hitsOfGroup(view.initialized, e, group, shadow, data, entrySize) != 0) return true;
    shadow += group.count * entrySize;
    data += group.count * entrySize;
    e += group.count;
    left -= group.count;
  }
  return false;
}

// The number of entries that writeDisjointEntries may write; 0 where the reference must.
[[gnu::noinline]] U32 disjointEntries(const ChipMemory& cm, U32 entry, const U8* data, U32 size) {
  const U32 count = wholeEntries(cm, entry, size);
  const bool isDisjoint =
      count != 0 && StoreAccess::isDisjoint(cm) && !overlap(*cm.shadow(), data, size) &&
      !overlap(*cm.initialized(), data, size) && !overlap(*cm.dirty(), data, size);
  if (!isDisjoint || (reportsHits(cm) && holdsHit(cm, entry, data, count))) return 0;
  return count;
}

// The fast path, which calls nothing that a client can override. False: nothing was changed, and
// the reference must follow. True: done, with the result in `result`.
[[gnu::always_inline]] inline bool writeFast(const HardwareShadow& shadow, ChipMemory& cm,
                                             U32 entry, U8* data, U32 size, bool& result) {
  const auto& view = StoreAccess::view(cm);
  if (umbraTrace().isBuiltFrom(7) || cm.chipHam() == nullptr ||
      overridesWriteToCache(*cm.chipHam())) {
    return false;
  }
  U32 count = 1;
  U32 hits = 0;
  if (size == cm.entrySize() && size != 0) [[likely]] {
    if (entry >= view.entries) return false;
    BaseWriter writer{cm};
    writeEntries(writer, view.shadow, view.initialized, view.dirty, size, entry, 1, data);
    hits = writer.hits;
    if (hits != 0 && reportsHits(cm)) return false;  // a hit has changed nothing
  } else {
    count = disjointEntries(cm, entry, data, size);
    if (count == 0) return false;
    hits = writeDisjointEntries(cm, entry, data, count);
  }
  StoreAccess::countSkippedWrites(cm, hits);
  result = shadow.overrideHardware() || hits == count || cm.mode() == ChipMemory::buffered();
  return true;
}

}  // namespace

bool HardwareShadow::shadowWriteAndCompareWithCache(const ChipMemory::Ptr& chipMemory, U32 entry,
                                                    U8* data, U32 size) {
  if (chipMemory == nullptr) return false;
  bool answer;
  if (writeFast(*this, *chipMemory, entry, data, size, answer)) return answer;
  if (chipMemory->mode() == ChipMemory::override()) return true;
  // The reference. What an access method may drop or replace is held: the shadow, the region, its
  // store.
  const Ptr self(this);
  const ChipMemory::Ptr cm = chipMemory;
  // `data` may lie in a buffer of the region, which whoever is called may replace.
  const Hal::BufBase::Ptr held[] = {cm->shadow(), cm->dirty(), cm->initialized(), cm->hardware()};
  UMBRA_TRACE(9, __LINE__,
              "HardwareShadow::shadowWrite " << cm->name() << " entry 0x" << std::hex << entry
                                             << " size 0x" << size);
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
  UMBRA_ASSERT_REGION(*cm, numEntries == 0 || entry + numEntries <= StoreAccess::storedEntries(*cm));

  CallingWriter writer{*cm};
  writeEntries(writer, shadowBuf->data(), initializedBuf->data(), dirtyBuf->data(), entrySize,
               entry, static_cast<U32>(numEntries), data);
  return overrideHardware_ || writer.result;
}

namespace {

// The slow path, with a look-up. noinline keeps its registers out of the fast path. The address is
// copied and the last region held, because the look-up may drop that region: the address and `data`
// may lie in it.
[[gnu::noinline]] void findAndWrite(HardwareShadow& hardwareShadow, const ChipAddress& where,
                                    U8* data, U32 size) {
  const HardwareShadow::Ptr shadow(&hardwareShadow);
  const ChipAddress address = where;
  const ChipMemory::Ptr previous = shadow->lastChipMemory();
  const ChipMemory::Ptr cm = shadow->findChipMemory(address, size);
  if (cm == nullptr) return;
  shadow->shadowWriteAndCompareWithCache(cm, cm->entryIndexFromAddress(address), data, size);
}

}  // namespace

void HardwareShadow::shadowWriteHack(const ChipAddress& address, U8* data, U32 size) {
  ChipMemory* cm = findForEntry(address, size);
  bool answer;
  if (cm == nullptr ||
      !writeFast(*this, *cm, cm->entryIndexFromAddress(address), data, size, answer)) {
    findAndWrite(*this, address, data, size);
  }
}

// flatten: with the size known, the fast path is shorter.
[[gnu::flatten]] void HardwareShadow::shadowWriteU32(const ChipAddress& address, U32 value) {
  shadowWriteHack(address, reinterpret_cast<U8*>(&value), sizeof value);
}

}  // namespace Hardware
