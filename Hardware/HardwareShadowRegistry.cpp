// The registry of regions, and the look-up in the address index.
#include <Hardware/HardwareShadow.h>

#include <Hardware/Umbra.h>

namespace Hardware {
namespace {

constexpr const char* nullChipMemory =
    "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not allowed\"";

}  // namespace

ChipMemory::Ptr HardwareShadow::chipMemory(const ChipAddress& address) const {
  const ZintChipMemory* reactor = chipMemory_.find(address);
  return reactor == nullptr ? nullptr : reactor->chipMemory();
}

Zint::Ptr<HardwareShadow::ZintChipMemory> HardwareShadow::chipMemoryIs(const ChipMemory::Ptr& cm) {
  const ChipMemory::Ptr held = refuseNull(cm, nullChipMemory);
  const Ptr self(this);  // the destructor of a replaced region may drop this shadow
  const ChipAddress address = held->address();
  Zint::Ptr<ZintChipMemory> reactor = chipMemory_.find(address);
  if (reactor == nullptr) {
    reactor = newChipMemory(held);
  } else if (reactor->chipMemory() == held) {
    return reactor;
  } else {
    reactor->chipMemoryIs(held);
  }
  chipMemoryNotify(address);
  return reactor;
}

Zint::Ptr<HardwareShadow::ZintChipMemory> HardwareShadow::newChipMemory(const ChipMemory::Ptr& cm) {
  Zint::Ptr<ZintChipMemory> reactor =
      Zint::makePtr<ZintChipMemory>(this, refuseNull(cm, nullChipMemory));
  chipMemory_.insert(reactor);
  return reactor;
}

ChipMemory::Ptr HardwareShadow::chipMemoryDel(const ChipAddress& address) {
  const Zint::Ptr<ZintChipMemory> reactor = chipMemory_.del(address);
  if (reactor == nullptr) return nullptr;
  chipMemoryNotify(reactor->fwkKey());
  return reactor->chipMemory();
}

void HardwareShadow::chipMemoryNotify(const ChipAddress& address) {
  const Ptr self(this);
  const ChipAddress changed = address;
  handleChipMemory(changed);
  notifyEach<NotifieeConst>(
      Id::chipMemory, [&changed](NotifieeConst& notifiee) { notifiee.onChipMemory(changed); });
}

// The collection has already changed when the rule is checked (deliberate).
void HardwareShadow::handleChipMemory(const ChipAddress& address) {
  UMBRA_ASSERT(__LINE__, state_ == unconfigured_ || overrideHardware_);
  const Ptr self(this);
  if (const ChipMemory::Ptr cm = chipMemory(address); cm != nullptr) {
    UMBRA_TRACE(0, __LINE__,
                "ChipMemory: " << cm->name() << " address=" << address.stringValue()
                               << " entries=" << cm->entries() << " entrySize=" << cm->entrySize()
                               << " stride=" << cm->stride() << " indirectAddress=0x" << std::hex
                               << cm->indirectCmdRegAddr());
    return;
  }
  UMBRA_TRACE(0, __LINE__, "ChipMemory with address=" << address.stringValue() << " removed");
  lastChipMemory_ = nullptr;
}

void HardwareShadow::handleChipMemory() { UMBRA_ASSERT(__LINE__, false); }

// Bulk removal has no reaction: the index and the last region keep the regions (deliberate:
// clients rely on it).
void HardwareShadow::chipMemoryDelAll() {
  const Ptr self(this);  // a region's destructor may drop this shadow
  for (auto reactor = chipMemory_.iterator(); reactor; ++reactor)
    chipMemory_.del(reactor->fwkKey());
}

void HardwareShadow::removeOverrideOnlyChipMem() {
  const Ptr self(this);
  for (auto reactor = chipMemory_.iterator(); reactor; ++reactor) {
    if (reactor.hasLeft()) continue;  // its key may belong to another region now
    if (reactor->chipMemory()->mode() == ChipMemory::override()) chipMemory_.del(reactor->fwkKey());
  }
}

HardwareShadow::ZintChipMemory::ZintChipMemory(HardwareShadow* shadow,
                                               const ChipMemory::Ptr& chipMemory)
    : ChipMemory::NotifieeConst(shadow->zintFwkActivity(), chipMemory, false),
      fwkKey_(chipMemory->address()),
      chipMemory_(chipMemory) {}

HardwareShadow::ZintChipMemory::~ZintChipMemory() = default;

void HardwareShadow::ZintChipMemory::chipMemoryIs(const ChipMemory::Ptr& chipMemory) {
  ChipMemory::Ptr held = refuseNull(chipMemory, nullChipMemory);
  const Zint::Ptr<ZintChipMemory> self(this);
  notifierIs(held);
  chipMemory_.swap(held);
}

// --- Address index ---

ChipMemory* HardwareShadow::findInIndex(const ChipAddress& address, U32 size) {
  ChipMemory* cm = index_.find(address);
  if (cm == nullptr) return nullptr;
  if (size != cm->entrySize()) {
    UMBRA_ASSERT_IN(findChipMemoryFunction, __LINE__, cm->entrySize() != 0, cm->fwkKey().c_str());
    UMBRA_ASSERT_IN(findChipMemoryFunction, __LINE__, cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0, "");
  }
  ChipMemory::Ptr answer(cm);
  ChipMemory::Ptr previous = std::exchange(lastChipMemory_, answer);
  if (previous != nullptr && previous->references() == 1) [[unlikely]] {
    const Ptr self(this);  // its destructor may look up another region, or drop this shadow
    previous = nullptr;
  }
  return answer.release();
}

// REQUIRES: the last region does not contain the address.
ChipMemory* HardwareShadow::findOtherForEntry(const ChipAddress& address, U32 size) {
  const ChipMemory* last = lastChipMemory_.ptr();
  // A last region that only this shadow holds would be destroyed, which may call back.
  if (last == nullptr || last->references() == 1) return nullptr;
  ChipMemory* cm = index_.find(address);
  if (cm == nullptr || cm->entrySize() != size) return nullptr;
  lastChipMemory_ = ChipMemory::Ptr(cm);
  return cm;
}

void HardwareShadow::checkSizeForLast(U32 size) const {
  UMBRA_ASSERT_IN(findChipMemoryFunction, __LINE__, lastChipMemory_->entrySize() != 0,
                  lastChipMemory_->fwkKey().c_str());
  UMBRA_ASSERT_IN(
      findChipMemoryFunction, __LINE__,
      lastChipMemory_->allowsLogicalViews() || ( size % lastChipMemory_->entrySize() ) == 0, "");
}

// The last region is released when the index is empty: its destructor may call this shadow.
void HardwareShadow::clearIndex() {
  const Ptr self(this);
  const ChipMemory::Ptr last = std::exchange(lastChipMemory_, nullptr);
  index_.clear();
}

void HardwareShadow::lastChipMemoryIs(const ChipMemory::Ptr& cm) {
  const Ptr self(this);
  if (Zint::updated(lastChipMemory_, cm)) notify(Id::lastChipMemory);
}

void HardwareShadow::nextIndexIs(ChipMemoryArrayIndex nextIndex) {
  if (nextIndex == index_.nextIndex()) return;
  index_.nextIndexIs(nextIndex);
  notify(Id::nextIndex);
}

void HardwareShadow::chipMemoryChunkDelAll() {
  const Ptr self(this);  // the destructor of a chunk's region may drop this shadow
  index_.chipMemoryChunkDelAll();
}

}  // namespace Hardware
