// The lower level of the address index: the regions of one memory id, in two dense arrays in
// ascending order of their offsets.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Hardware/ChipMemoryArrayIndex.h>
#include <Hardware/StartTable.h>
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
  void nextIndexIs(ChipMemoryArrayIndex nextIndex) {
    isIntact_ = false;
    nextIndex_ = nextIndex;
  }

  // The low word of the start address of each region.
  U32 offset(ChipMemoryArrayIndex index) const { return offset_.at(index); }
  U32 offsets() const { return offset_.size(); }
  void offsetIs(ChipMemoryArrayIndex index, U32 offset) {
    isIntact_ = false;
    offset_.atIs(index, offset);
  }
  void offsetDel(ChipMemoryArrayIndex index) {
    isIntact_ = false;
    offset_.del(index);
  }
  void offsetDelAll() {
    isIntact_ = false;
    offset_.delAll();
  }

  // The region that starts at (fwkKey, offset[index]).
  ChipMemory::Ptr chipMemory(ChipMemoryArrayIndex index) const { return chipMemory_.at(index); }
  U32 chipMemorys() const { return chipMemory_.size(); }
  void chipMemoryIs(ChipMemoryArrayIndex index, const ChipMemory::Ptr& chipMemory) {
    isIntact_ = false;
    chipMemory_.atIs(index, chipMemory);
  }
  void chipMemoryDel(ChipMemoryArrayIndex index) {
    isIntact_ = false;
    chipMemory_.del(index);
  }
  void chipMemoryDelAll() {
    isIntact_ = false;
    chipMemory_.delAll();
  }

  // The number of broken rules: offsets out of order, missing regions.
  U32 auditErrors() const override;

 private:
  friend class AddressIndex;

  // Stores a region at `index`, the first free one. The caller advances nextIndex.
  void store(ChipMemoryArrayIndex index, const ChipMemory::Ptr& chipMemory) {
    offset_.atIs(index, chipMemory->address().chipMemoryOffset());
    chipMemory_.atIs(index, chipMemory);
  }

  const U32 fwkKey_;
  ChipMemoryArrayIndex nextIndex_;
  // Whether the arrays are as the index builds them: `nextIndex_` ascending offsets, each with the
  // region that starts there. False once anything was changed by hand.
  bool isIntact_ = true;
  StartTable offsetStarts_;
  Zint::DynArray<U32, ChipMemoryArrayIndex> offset_;
  Zint::DynArray<ChipMemory::Ptr, ChipMemoryArrayIndex> chipMemory_;
};

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipMemoryChunk*) { return "Hardware::ChipMemoryChunk"; }

}  // namespace Hardware
