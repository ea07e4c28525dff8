// The registry of regions and the address index.
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>

namespace Hardware {
namespace {

constexpr const char* findSignature =
    "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory(const "
    "Hardware::ChipAddress&, U32)";

// A move that is made half of the time: without a branch to mispredict.
inline const U32* moved(bool moves, const U32* from, const U32* to) {
  return __builtin_expect_with_probability(moves, 1, 0.5) ? to : from;
}

// The position of the greatest of `count` (more than 0) ascending numbers that is not above
// `sought`; 0 when all are. A search without a branch to mispredict: each step leaves a quarter,
// for which three numbers are read side by side, and the last steps a half.
[[gnu::always_inline]] inline U32 lastNotAbove(const U32* numbers, U32 count, U32 sought) {
  const U32* base = numbers;
  while (count > 3) {
    const U32 quarter = count / 4;
    const U32* first = base + quarter;
    const U32* second = first + quarter;
    const U32* third = second + quarter;
    base = moved(*first <= sought, base, first);
    base = moved(*second <= sought, base, second);
    base = moved(*third <= sought, base, third);
    count -= 3 * quarter;
  }
  while (count > 1) {
    const U32 half = count / 2;
    base = moved(base[half] <= sought, base, base + half);
    count -= half;
  }
  return static_cast<U32>(base - numbers);
}

}  // namespace

ChipMemory::Ptr HardwareShadow::chipMemory(const ChipAddress& address) const {
  const ZintChipMemory* reactor = chipMemory_.find(address);
  return reactor == nullptr ? nullptr : reactor->chipMemory();
}

Zint::Ptr<HardwareShadow::ZintChipMemory> HardwareShadow::chipMemoryIs(const ChipMemory::Ptr& cm) {
  if (cm == nullptr) {
    Zint::throwRangeException(
        "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
        "allowed\"");
  }
  const Ptr self(this);  // a replaced region's end may drop this shadow
  const ChipAddress address = cm->address();
  Zint::Ptr<ZintChipMemory> reactor = chipMemory_.find(address);
  if (reactor == nullptr) {
    reactor = newChipMemory(cm);
  } else if (reactor->chipMemory() == cm) {
    return reactor;
  } else {
    reactor->chipMemoryIs(cm);
  }
  chipMemoryNotify(address);
  return reactor;
}

Zint::Ptr<HardwareShadow::ZintChipMemory> HardwareShadow::newChipMemory(const ChipMemory::Ptr& cm) {
  Zint::Ptr<ZintChipMemory> reactor = Zint::makePtr<ZintChipMemory>(this, cm);
  chipMemory_.insert(reactor);
  return reactor;
}

ChipMemory::Ptr HardwareShadow::chipMemoryDel(const ChipAddress& address) {
  const Zint::Ptr<ZintChipMemory> reactor = chipMemory_.del(address);
  if (reactor == nullptr) return nullptr;
  const ChipAddress removed = reactor->fwkKey();  // the argument may have gone with the region
  chipMemoryNotify(removed);
  return reactor->chipMemory();
}

void HardwareShadow::chipMemoryNotify(const ChipAddress& address) {
  const Ptr self(this);
  handleChipMemory(address);
  notifyEach<NotifieeConst>(
      Id::chipMemory, [&address](NotifieeConst& notifiee) { notifiee.onChipMemory(address); });
}

// The collection has changed already when the rule is checked.
void HardwareShadow::handleChipMemory(const ChipAddress& address) {
  UMBRA_ASSERT(__LINE__, state_ == unconfigured_ || overrideHardware_);
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

// The plain removal: no reaction, and the index and the last region stay.
void HardwareShadow::chipMemoryDelAll() {
  const Ptr self(this);  // a region's end may drop this shadow
  for (auto reactor = chipMemory_.iterator(); reactor; ++reactor)
    chipMemory_.del(reactor->fwkKey());
}

void HardwareShadow::removeOverrideOnlyChipMem() {
  const Ptr self(this);
  for (auto reactor = chipMemory_.iterator(); reactor; ++reactor) {
    if (reactor.hasLeft()) continue;  // another may have taken its place
    if (reactor->chipMemory()->mode() == ChipMemory::override()) chipMemory_.del(reactor->fwkKey());
  }
}

// --- Address index ---

ChipMemoryChunk::Ptr HardwareShadow::chipMemoryChunkIs(U32 key) {
  ChipMemoryChunk::Ptr chunk = chipMemoryChunk_.find(key);
  return chunk == nullptr ? newChipMemoryChunk(key) : chunk;
}

ChipMemoryChunk::Ptr HardwareShadow::newChipMemoryChunk(U32 key) {
  ChipMemoryChunk::Ptr chunk = Zint::makePtr<ChipMemoryChunk>(key);
  chipMemoryChunk_.insert(chunk);
  return chunk;
}

// Enters one region behind those with lower addresses: in ascending order, both levels come out
// sorted. 65,535 chunks, and as many regions in a chunk, are all that nextIndex can count. The two
// counts move last, when there was memory for all: no look-up meets a chunk without a region.
void HardwareShadow::indexed(const ChipMemory::Ptr& cm) {
  const ChipMemoryChunk::Ptr chunk = chipMemoryChunkIs(cm->address().chipMemoryId());
  const ChipMemoryArrayIndex index = chunk->nextIndex();
  UMBRA_ASSERT_REGION(*cm, index != 65535);
  chunk->offsetIs(index, cm->address().chipMemoryOffset());
  chunk->chipMemoryIs(index, cm);
  if (index == 0) {
    UMBRA_ASSERT_REGION(*cm, nextIndex_ != 65535);
    chipMemoryIdIs(nextIndex_, cm->address().chipMemoryId());
    chipMemoryChunkArrayIs(nextIndex_, chunk);
    nextIndex_ = static_cast<U16>(nextIndex_ + 1);
  }
  chunk->nextIndexIs(static_cast<U16>(index + 1));
}

void HardwareShadow::chipMemoryChunkDelAll() {
  const Ptr self(this);  // a chunk's end may drop this shadow
  chipMemoryChunk_.delAll();
}

void HardwareShadow::indexCleared() {
  // The chunks, and regions that only they hold, end when all is cleared: their end may look here.
  decltype(chipMemoryChunkArray_) released;
  chipMemoryChunkDelAll();
  released.swap(chipMemoryChunkArray_);
  chipMemoryIdDelAll();
  nextIndex_ = 0;
  lastChipMemory_ = nullptr;
}

// The size is a whole number of entries; one entry, the common case, has been ruled out.
void HardwareShadow::lastSizeChecked(U32 size) const {
  UMBRA_ASSERT_IN(findSignature, __LINE__, lastChipMemory_->entrySize() != 0,
                  lastChipMemory_->fwkKey().c_str());
  UMBRA_ASSERT_IN(
      findSignature, __LINE__,
      lastChipMemory_->allowsLogicalViews() || ( size % lastChipMemory_->entrySize() ) == 0, "");
}

ChipMemory* HardwareShadow::heldFromIndex(const ChipAddress& address, U32 size) {
  if (nextIndex_ == 0) return nullptr;

  // The chunk of exactly this memory id.
  UMBRA_ASSERT_IN(findSignature, __LINE__, nextIndex_ <= chipMemoryId_.size(), "");
  U32 mid = lastNotAbove(chipMemoryId_.data(), nextIndex_, address.chipMemoryId());
  if (chipMemoryId_.data()[mid] != address.chipMemoryId()) return nullptr;
  const ChipMemoryChunk* cmc =
      mid < chipMemoryChunkArray_.size() ? chipMemoryChunkArray_.data()[mid].ptr() : nullptr;
  UMBRA_ASSERT_IN(findSignature, __LINE__, cmc, "");

  // The region with the greatest offset that is not above the address's.
  const U32 k = cmc->nextIndex();
  UMBRA_ASSERT_IN(findSignature, __LINE__, k <= cmc->offsets(), "");
  mid = k == 0 ? 0 : lastNotAbove(cmc->offsetData(), k, address.chipMemoryOffset());
  if (mid < cmc->offsets() && cmc->offsetData()[mid] > address.chipMemoryOffset()) return nullptr;
  ChipMemory* cm = mid < cmc->chipMemorys() ? cmc->chipMemoryData()[mid].ptr() : nullptr;
  UMBRA_ASSERT_IN(findSignature, __LINE__, cm, "");
  if (!cm->inRange(address)) return nullptr;
  if (size != cm->entrySize()) {
    UMBRA_ASSERT_IN(findSignature, __LINE__, cm->entrySize() != 0, cm->fwkKey().c_str());
    UMBRA_ASSERT_IN(findSignature, __LINE__, cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0, "");
  }
  ChipMemory::Ptr answer(cm);
  ChipMemory::Ptr previous = std::exchange(lastChipMemory_, answer);
  if (previous != nullptr && previous->references() == 1) [[unlikely]] {
    const Ptr self(this);  // its end may look up another region, or drop this shadow
    previous = nullptr;
  }
  return answer.release();
}

}  // namespace Hardware
