// A region's store: what a change of mode, entries or flags does to the buffers, and the write-back
// to the chip.
#include <Hardware/ChipMemory.h>

#include <Hardware/StoreAccess.h>
#include <Hardware/Umbra.h>
#include <algorithm>

namespace Hardware {

Zint::Ptr<Hal::Buf> ChipMemory::newStore() const { return Hal::bufFactory(entrySize_ * entries_); }

Zint::Ptr<Hal::Buf> ChipMemory::newBitmap() const { return Hal::bufFactory((entries_ >> 3) + 1); }

U32 ChipMemory::storedEntries() const {
  if (mode_ == override() || !shadow_ || !initialized_ || !dirty_) return 0;
  const U64 marks = std::min(bitsOf(*initialized_), bitsOf(*dirty_));
  const U32 marked = static_cast<U32>(std::min(marks, U64{entries_}));
  return entrySize_ == 0 ? marked : std::min(marked, shadow_->size() / entrySize_);
}

void ChipMemory::updateStoreView() {
  storeView_ = {};
  storeIsDisjoint_ = false;
  if (mode_ == override() || !shadow_ || !initialized_ || !dirty_) return;
  storeView_.entries = volatileEntries_ == nullptr ? storedEntries() : 0;
  storeView_.shadow = shadow_->data();
  storeView_.initialized = initialized_->data();
  storeView_.dirty = dirty_->data();
  storeIsDisjoint_ = !overlap(*shadow_, initialized_->data(), initialized_->size()) &&
                     !overlap(*shadow_, dirty_->data(), dirty_->size()) &&
                     !overlap(*initialized_, dirty_->data(), dirty_->size());
}

// Every call creates the store anew: the old contents and marks are dropped. All three buffers are
// created before the first is installed, so that the marks of one store never meet the entries of
// another, also when memory runs out.
void ChipMemory::handleShadowStoreNeeded() {
  const Ptr self(this);
  Hal::BufBase::Ptr shadow, dirty, initialized;
  if (shadowStoreNeeded()) {
    shadow = newStore();
    dirty = newBitmap();
    initialized = newBitmap();
  }
  // A notifiee that creates a store re-entrantly wins: its three buffers stay together.
  const Zint::Epoch::Mark store = stores_.advance();
  shadowIs(shadow);
  if (!store.isSuperseded()) dirtyIs(dirty);
  if (!store.isSuperseded()) initializedIs(initialized);
}

// An existing hardware buffer is never replaced or released. Deliberate, because clients keep it.
void ChipMemory::handleAuditEnabled() {
  UMBRA_ASSERT(233, !auditEnabled() || (mode() != override()));
  if (hardware_ == nullptr && mode_ != override()) hardwareIs(newStore());
}

void ChipMemory::handleMode() {
  if (mode_ != normal()) return;
  const Ptr self(this);
  UMBRA_TRACE(0, 255, name_ << ": Init done - writing back all shadows");
  writeback(false);
}

// Deliberate: the first text's misspelling, because clients search for it.
void ChipMemory::writeback(bool initializedOnly) {
  const Ptr self(this);
  UMBRA_TRACE(0, 205, name_ << ": writing back initialzedOnly=" << initializedOnly);
  if (shadow_ == nullptr || mode_ == override()) return;
  const Hal::BufBase::Ptr shadowBuf = shadow_;
  if (!initializedOnly) {
    UMBRA_ASSERT_REGION(*this, chipHam_);
    UMBRA_ASSERT_REGION(*this, U64{entries_} * entrySize_ <= shadowBuf->size());
    chipHam_->doWrite(address_, shadowBuf->data(), entrySize_, entries_);
    return;
  }
  // An access that replaces the store ends the write-back.
  U32 count = 0;
  for (U32 i = 0; i < entries_ && shadow_ == shadowBuf; ++i) {
    if (!entryInitialized(i)) continue;
    ++count;
    UMBRA_ASSERT_REGION(*this, chipHam_);
    UMBRA_ASSERT_REGION(*this, (U64{i} + 1) * entrySize_ <= shadowBuf->size());
    chipHam_->doWrite(entryAddress(i), shadowBuf->data() + entrySize_ * i, entrySize_, 1);
  }
  UMBRA_TRACE(9, 220, name_ << ": wrote back " << count << " entries");
}

}  // namespace Hardware
