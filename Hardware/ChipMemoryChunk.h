// The regions of one chip memory id, as two dense arrays in ascending order of their offsets.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Hardware/ChipMemoryArrayIndex.h>
#include <Zint/DynArray.h>
#include <Zint/Entity.h>
#include <Zint/HashMap.h>

namespace Hardware {

class UMBRA_API ChipMemoryChunk : public Zint::Entity, public Zint::HashMapLink<ChipMemoryChunk> {
 public:
  using Ptr = Zint::Ptr<ChipMemoryChunk>;

  // The memory id that all its regions share; also the chunk's name.
  explicit ChipMemoryChunk(U32 fwkKey);

  const Zint::Type* fwkType() const override;

 protected:
  ~ChipMemoryChunk() override;

 public:
  U32 fwkKey() const { return fwkKey_; }

  // The number of regions.
  ChipMemoryArrayIndex nextIndex() const { return nextIndex_; }
  void nextIndexIs(ChipMemoryArrayIndex nextIndex) { nextIndex_ = nextIndex; }

  // The low word of the start address of each region.
  U32 offset(ChipMemoryArrayIndex index) const { return offset_.at(index); }
  const U32* offsetData() const { return offset_.data(); }
  U32 offsets() const { return offset_.size(); }
  void offsetIs(ChipMemoryArrayIndex index, U32 offset) { offset_.atIs(index, offset); }
  void offsetDel(ChipMemoryArrayIndex index) { offset_.del(index); }
  void offsetDelAll() { offset_.delAll(); }

  // The region that starts at (fwkKey, offset[index]).
  ChipMemory::Ptr chipMemory(ChipMemoryArrayIndex index) const { return chipMemory_.at(index); }
  const ChipMemory::Ptr* chipMemoryData() const { return chipMemory_.data(); }
  U32 chipMemorys() const { return chipMemory_.size(); }
  void chipMemoryIs(ChipMemoryArrayIndex index, const ChipMemory::Ptr& chipMemory) {
    chipMemory_.atIs(index, chipMemory);
  }
  void chipMemoryDel(ChipMemoryArrayIndex index) { chipMemory_.del(index); }
  void chipMemoryDelAll() { chipMemory_.delAll(); }

  // Broken rules of the index: offsets out of order, missing regions.
  U32 auditErrors() const override;

 private:
  const U32 fwkKey_;
  ChipMemoryArrayIndex nextIndex_;
  Zint::DynArray<U32, ChipMemoryArrayIndex> offset_;
  Zint::DynArray<ChipMemory::Ptr, ChipMemoryArrayIndex> chipMemory_;
};

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipMemoryChunk*) { return "Hardware::ChipMemoryChunk"; }

}  // namespace Hardware
