#include <Hardware/ChipMemory.h>

#include <Hardware/StoreAccess.h>
#include <Hardware/Umbra.h>
#include <algorithm>
#include <bit>
#include <cstring>

namespace Hardware {

ChipMemory::ChipMemory(Zint::String8 name, const ChipAddress& address, U32 entries, U32 entrySize,
                       U32 stride, const Zint::Ptr<ChipHam>& chipHam)
    : address_(address),
      entries_(entries),
      entrySize_(entrySize),
      stride_(stride),
      strideShift_(static_cast<U8>(std::has_single_bit(stride) ? std::countr_zero(stride) : 32)),
      chipHam_(chipHam),
      name_(std::move(name)) {
  handleAuditEnabled();  // creates the hardware buffer; there is no store before shadowEnabled
}

// A map keeps its members alive, so the hash link is null here.
ChipMemory::~ChipMemory() {
  storeView_ = {};  // the buffers' destructors may call back
  dirty_ = nullptr;
  initialized_ = nullptr;
  shadow_ = nullptr;
  hardware_ = nullptr;
  volatileEntries_ = nullptr;
  chipHam_ = nullptr;
}

Zint::Ptr<ChipMemory> chipMemoryFactory(Zint::String8 name, const ChipAddress& address, U32 entries,
                                        U32 entrySize, U32 stride,
                                        const Zint::Ptr<ChipHam>& chipHam) {
  return Zint::makePtr<ChipMemory>(std::move(name), address, entries, entrySize, stride, chipHam);
}

const Zint::Type* ChipMemory::fwkType() const { return &chipMemoryType; }

// --- Attributes with reactions ---

void ChipMemory::entriesIs(U32 entries) {
  if (!Zint::updated(entries_, entries)) return;
  const Ptr self(this);
  updateStoreView();
  handleShadowStoreNeeded();
  notify(Id::entries);
}

void ChipMemory::shadowEnabledIs(bool enabled) {
  if (!Zint::updated(shadowEnabled_, enabled)) return;
  const Ptr self(this);
  handleShadowStoreNeeded();
  notify(Id::shadowEnabled);
}

void ChipMemory::auditEnabledIs(bool enabled) {
  if (!Zint::updated(auditEnabled_, enabled)) return;
  const Ptr self(this);
  handleAuditEnabled();
  notify(Id::auditEnabled);
}

void ChipMemory::modeIs(ChipMemoryMode mode) {
  if (!Zint::updated(mode_, mode)) return;
  const Ptr self(this);
  updateStoreView();
  handleMode();
  handleShadowStoreNeeded();
  notify(Id::mode);
}

// --- Attributes without reactions ---

// Derived; the setter exists so that it can be reached by name.
void ChipMemory::shadowStoreNeededIs(bool) {}

void ChipMemory::indirectCmdRegAddrIs(U32 address) {
  if (Zint::updated(indirectCmdRegAddr_, address)) notify(Id::indirectCmdRegAddr);
}

void ChipMemory::readFromCacheIs(bool readFromCache) {
  if (Zint::updated(readFromCache_, readFromCache)) notify(Id::readFromCache);
}

void ChipMemory::skipWriteIfMatchesCacheIs(bool skip) {
  if (Zint::updated(skipWriteIfMatchesCache_, skip)) notify(Id::skipWriteIfMatchesCache);
}

void ChipMemory::allowsLogicalViewsIs(bool allows) {
  if (Zint::updated(allowsLogicalViews_, allows)) notify(Id::allowsLogicalViews);
}

void ChipMemory::readCacheHitsInc(const U64& n) const { readCacheHitsIs(readCacheHits_ + n); }

void ChipMemory::readCacheHitsIs(const U64& hits) const {
  if (Zint::updated(readCacheHits_, hits)) notify(Id::readCacheHits);
}

void ChipMemory::writeCacheHitsInc(const U64& n) { writeCacheHitsIs(writeCacheHits_ + n); }

void ChipMemory::writeCacheHitsIs(const U64& hits) {
  if (Zint::updated(writeCacheHits_, hits)) notify(Id::writeCacheHits);
}

void ChipMemory::registersFixedInc(U32 n) { registersFixedIs(registersFixed_ + n); }

void ChipMemory::registersFixedIs(U32 registersFixed) {
  if (Zint::updated(registersFixed_, registersFixed)) notify(Id::registersFixed);
}

void ChipMemory::lastFixTimeIs(Zint::Seconds time) {
  if (Zint::updated(lastFixTime_, time)) notify(Id::lastFixTime);
}

// The replaced buffer is released when the view is up to date, and the region is held: the buffer's
// destructor may call back.
template <class Buffer>
void ChipMemory::bufferIs(Zint::Ptr<Buffer>& held, const Zint::Ptr<Buffer>& buffer,
                          Zint::AttributeId id) {
  if (held == buffer) return;
  const Ptr self(this);
  Zint::Ptr<Buffer> replaced = buffer;
  held.swap(replaced);
  updateStoreView();
  replaced = nullptr;
  notify(id);
}

void ChipMemory::hardwareIs(const Zint::Ptr<Hal::Buf>& buffer) {
  bufferIs(hardware_, buffer, Id::hardware);
}

void ChipMemory::shadowIs(const Zint::Ptr<Hal::BufBase>& buffer) {
  bufferIs(shadow_, buffer, Id::shadow);
}

void ChipMemory::initializedIs(const Zint::Ptr<Hal::BufBase>& buffer) {
  bufferIs(initialized_, buffer, Id::initialized);
}

void ChipMemory::dirtyIs(const Zint::Ptr<Hal::BufBase>& buffer) {
  bufferIs(dirty_, buffer, Id::dirty);
}

// Not an attribute: nobody is notified.
void ChipMemory::volatileEntriesIs(const Zint::Ptr<Hal::BufBase>& bitmap) {
  const Ptr self(this);
  Zint::Ptr<Hal::BufBase> replaced = bitmap;
  volatileEntries_.swap(replaced);
  updateStoreView();
}

void ChipMemory::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::entries:
      return onEntries();
    case Id::shadowEnabled:
      return onShadowEnabled();
    case Id::auditEnabled:
      return onAuditEnabled();
    case Id::mode:
      return onMode();
    case Id::registersFixed:
      return onRegistersFixed();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

ChipMemory::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                         const Zint::Ptr<const ChipMemory>& chipMemory, bool active)
    : Zint::NotifieeConst(activity, chipMemory, active) {}

ChipMemory::NotifieeConst::~NotifieeConst() = default;

// --- Entries ---

// For a span that ends beyond its chip's memory, or beyond all addresses, where the sum wraps.
bool ChipMemory::inRangeAcross(const ChipAddress& addr) const {
  const U64 base = address_.value();
  const U64 end = base + U32{stride_ * entries_};
  return base <= addr.value() && addr.value() < end;
}

U32 ChipMemory::entryIndexByDivision(const ChipAddress& addr) const {
  UMBRA_ASSERT_IN(
      "U32 Hardware::ChipMemory::entryIndexFromAddress(const Hardware::ChipAddress&) const",
      __LINE__, stride_ != 0, name_.c_str());
  const U64 distance = addr.value() - address_.value();
  if (distance >> 32 == 0) return static_cast<U32>(distance) / stride_;  // many times faster
  return static_cast<U32>(distance / stride_);
}

bool ChipMemory::entryInitialized(U32 entryIndex) const {
  if (mode_ == override()) return true;
  UMBRA_ASSERT_REGION(*this, initialized_ && entryIndex < bitsOf(*initialized_));
  return bitmapBit(initialized_->data(), entryIndex);
}

void ChipMemory::entryInitializedIs(U32 entryIndex) {
  if (mode_ == override()) return;
  UMBRA_ASSERT_REGION(*this, initialized_ && entryIndex < bitsOf(*initialized_));
  bitmapBitIs(initialized_->data(), entryIndex);
}

void ChipMemory::entryInitializedDel(U32 entryIndex) {
  if (mode_ == override()) return;
  UMBRA_ASSERT_REGION(*this, initialized_ && entryIndex < bitsOf(*initialized_));
  bitmapBitDel(initialized_->data(), entryIndex);
}

void ChipMemory::doClear() {
  if (mode_ == override()) return;
  UMBRA_ASSERT_REGION(*this, shadow_ && dirty_ && initialized_);
  fillBytes(shadow_->data(), 0, shadow_->size());
  fillBytes(dirty_->data(), 0xff, dirty_->size());
  fillBytes(initialized_->data(), 0xff, initialized_->size());
}

void ChipMemory::doClearRange(U32 startIndex, U32 endIndex, bool writeThrough) {
  if (mode_ == override()) return;
  UMBRA_ASSERT(186, endIndex <= entries());
  UMBRA_ASSERT(187, startIndex <= endIndex);
  const Ptr self(this);
  const Hal::BufBase::Ptr shadowBuf = shadow_, dirtyBuf = dirty_, initializedBuf = initialized_;
  UMBRA_ASSERT_REGION(*this, shadowBuf && dirtyBuf && initializedBuf);
  UMBRA_ASSERT_REGION(*this, chipHam_ || !writeThrough);
  UMBRA_ASSERT_REGION(*this, endIndex < bitsOf(*dirtyBuf) && endIndex < bitsOf(*initializedBuf));
  // Of the entries from startIndex on that exist, all lie in the shadow.
  const U64 end = std::min(U64{endIndex} + 1, U64{entries_});
  UMBRA_ASSERT_REGION(*this, startIndex >= end || end * entrySize_ <= shadowBuf->size());
  // An access that replaces the store ends the clearing.
  for (U64 next = startIndex; next <= endIndex && shadow_ == shadowBuf; ++next) {
    const U32 i = static_cast<U32>(next);
    const U64 first = std::min(next * entrySize_, U64{shadowBuf->size()});
    const U32 stored = static_cast<U32>(std::min(U64{entrySize_}, shadowBuf->size() - first));
    U8* entry = shadowBuf->data() + first;
    bitmapBitIs(dirtyBuf->data(), i);
    fillBytes(entry, 0, stored);
    bitmapBitIs(initializedBuf->data(), i);
    if (!writeThrough) continue;
    // The chip gets the whole entry past the last one, though the shadow lacks it.
    const Hal::Buf::Ptr zeros =
        stored < entrySize_ ? Zint::makePtr<Hal::Buf>(entrySize_) : Hal::Buf::Ptr();
    chipHam_->doWrite(entryAddress(i), zeros ? zeros->data() : entry, entrySize_, 1);
  }
}

}  // namespace Hardware
