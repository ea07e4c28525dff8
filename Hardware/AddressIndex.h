// The address index of a shadow: from an address to the region that contains it.
//
//   index.build(registry.iterator(), visit);  // regions in ascending address order
//   ChipMemory* cm = index.find(address);     // two searches of dense arrays, see StartTable
//
// Two levels, both in ascending order. The upper level has the memory ids (upper address words) and
// a chunk for each of them. A chunk has the offsets (lower address words) of its regions and the
// regions themselves.
//
// Every part can also be changed by hand; the names are those of the shadow's attributes. An index
// that was changed by hand is searched probe by probe, and array elements beyond the end read as 0
// or null.
//
// Used by HardwareShadow alone.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Hardware/ChipMemoryArrayIndex.h>
#include <Hardware/ChipMemoryChunk.h>
#include <Hardware/StartTable.h>
#include <Zint/DynArray.h>
#include <Zint/HashMap.h>

namespace Hardware {

// The function that a failed look-up reports.
constexpr const char* findChipMemoryFunction =
    "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory(const "
    "Hardware::ChipAddress&, U32)";

class AddressIndex {
 public:
  // Adds every region and calls `visit` with it. `reactor` walks them in ascending address order.
  // REQUIRES: at most 65,535 memory ids, and 65,535 regions of one memory id: nextIndex cannot
  // count 65,536 in its 16 bits.
  template <class Iterator, class Visit>
  void build(Iterator reactor, Visit visit) {
    if (isEmpty()) forget();
    for (; reactor; ++reactor) {
      add(reactor->chipMemory());
      visit(reactor->chipMemory());
    }
    buildStartTables();
  }
  // Releases the chunks. Regions that only they hold are destroyed last, when the index is empty:
  // their destructors may call the shadow.
  void clear();
  // The region that contains `address`; null if there is none. Allocates nothing and calls nothing
  // that can be overridden. A missing chunk or region is a fatal assertion of findChipMemory.
  ChipMemory* find(const ChipAddress& address) const;
  // The number of broken rules: order, and agreement of the two levels.
  U32 auditErrors() const;

  ChipMemoryChunk::Ptr chipMemoryChunk(U32 key) const { return chipMemoryChunk_.find(key); }
  U32 chipMemoryChunks() const { return chipMemoryChunk_.size(); }
  auto chipMemoryChunkIterator() const { return chipMemoryChunk_.iterator(); }
  // Finds or makes.
  ChipMemoryChunk::Ptr chipMemoryChunkIs(U32 key) {
    ChipMemoryChunk::Ptr chunk = chipMemoryChunk_.find(key);
    return chunk == nullptr ? newChipMemoryChunk(key) : chunk;
  }
  ChipMemoryChunk::Ptr newChipMemoryChunk(U32 key) {
    ChipMemoryChunk::Ptr chunk = Zint::makePtr<ChipMemoryChunk>(key);
    chipMemoryChunk_.insert(chunk);
    return chunk;
  }
  ChipMemoryChunk::Ptr chipMemoryChunkDel(U32 key) { return chipMemoryChunk_.del(key); }
  void chipMemoryChunkDelAll() { chipMemoryChunk_.delAll(); }

  ChipMemoryArrayIndex nextIndex() const { return nextIndex_; }
  void nextIndexIs(ChipMemoryArrayIndex nextIndex) {
    isIntact_ = false;
    nextIndex_ = nextIndex;
  }

  U32 chipMemoryId(ChipMemoryArrayIndex index) const { return chipMemoryId_.at(index); }
  U32 chipMemoryIds() const { return chipMemoryId_.size(); }
  void chipMemoryIdIs(ChipMemoryArrayIndex index, U32 id) {
    isIntact_ = false;
    chipMemoryId_.atIs(index, id);
  }
  void chipMemoryIdDel(ChipMemoryArrayIndex index) {
    isIntact_ = false;
    chipMemoryId_.del(index);
  }
  void chipMemoryIdDelAll() {
    isIntact_ = false;
    chipMemoryId_.delAll();
  }

  ChipMemoryChunk::Ptr chipMemoryChunkArray(ChipMemoryArrayIndex index) const {
    return chipMemoryChunkArray_.at(index);
  }
  U32 chipMemoryChunkArrays() const { return chipMemoryChunkArray_.size(); }
  void chipMemoryChunkArrayIs(ChipMemoryArrayIndex index, const ChipMemoryChunk::Ptr& chunk) {
    isIntact_ = false;
    chipMemoryChunkArray_.atIs(index, chunk);
  }
  void chipMemoryChunkArrayDel(ChipMemoryArrayIndex index) {
    isIntact_ = false;
    chipMemoryChunkArray_.del(index);
  }
  void chipMemoryChunkArrayDelAll() {
    isIntact_ = false;
    chipMemoryChunkArray_.delAll();
  }

 private:
  void add(const ChipMemory::Ptr& cm);
  void buildStartTables();
  // What an empty index remembers of the one before.
  void forget() {
    idStarts_.clear();
    lastFound_ = 0;
    isIntact_ = true;
  }
  ChipMemory* findByProbes(const ChipAddress& address) const;
  bool isEmpty() const {
    return nextIndex_ == 0 && chipMemoryId_.size() == 0 && chipMemoryChunkArray_.size() == 0;
  }

  // Destroyed from the last to the first.
  Zint::HashMap<ChipMemoryChunk, U32> chipMemoryChunk_;
  ChipMemoryArrayIndex nextIndex_;
  // Whether the arrays are as build() makes them: `nextIndex_` ascending ids, each with a chunk.
  bool isIntact_ = true;
  StartTable idStarts_;
  mutable U32 lastFound_ = 0;  // the chunk in which the last address was sought
  Zint::DynArray<U32, ChipMemoryArrayIndex> chipMemoryId_;
  Zint::DynArray<ChipMemoryChunk::Ptr, ChipMemoryArrayIndex> chipMemoryChunkArray_;
};

// Inlined into the look-up of the shadow, its only caller: the call took a tenth of its time.
[[gnu::always_inline]] inline ChipMemory* AddressIndex::find(const ChipAddress& address) const {
  if (nextIndex_ == 0) return nullptr;
  if (!isIntact_) [[unlikely]]
    return findByProbes(address);

  // The chunk of exactly this memory id.
  const U32* ids = chipMemoryId_.data();
  U32 mid = lastFound_;
  if (ids[mid] != address.chipMemoryId()) {
    mid = idStarts_.lastNotAbove(ids, nextIndex_, address.chipMemoryId());
    if (ids[mid] != address.chipMemoryId()) return nullptr;
    lastFound_ = mid;
  }
  const ChipMemoryChunk* cmc = chipMemoryChunkArray_.data()[mid].ptr();
  if (!cmc->isIntact_) [[unlikely]]
    return findByProbes(address);

  // The region with the greatest offset that is not above the address's. It is a candidate only:
  // the address may be below the first offset, or in the gap after the region.
  mid = cmc->offsetStarts_.lastNotAbove(cmc->offset_.data(), cmc->nextIndex_,
                                        address.chipMemoryOffset());
  ChipMemory* cm = cmc->chipMemory_.data()[mid].ptr();
  return cm->inRange(address) ? cm : nullptr;
}

}  // namespace Hardware
