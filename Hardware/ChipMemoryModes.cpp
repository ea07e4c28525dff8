// A region's modes: their texts, what a change of mode, entries or flags does to the buffers, and
// the write-back to the chip.
#include <Hardware/ChipMemory.h>
#include <Hardware/Entries.h>
#include <Hardware/Umbra.h>
#include <Zint/Enumeration.h>

namespace Hardware {
namespace {

constexpr const char* modeNames[] = {"normal", "override", "buffered"};
constexpr Zint::Enumeration modes{"ChipMemory::ChipMemoryMode", "ChipMemoryMode", modeNames};

}  // namespace

ChipMemory::ChipMemoryMode ChipMemory::ChipMemoryModeInstance(U32 value) {
  return static_cast<ChipMemoryMode>(Zint::enumerationInstance(modes, value));
}

ChipMemory::ChipMemoryMode ChipMemory::ChipMemoryModeInstance(const Zint::String8& text) {
  return static_cast<ChipMemoryMode>(Zint::enumerationInstance(modes, text));
}

Zint::String8 stringValue(ChipMemory::ChipMemoryMode mode) {
  return Zint::enumerationText(modes, mode);
}

Zint::String8 valueToStrep(const ChipMemory::ChipMemoryMode& mode) {
  return Zint::valueToStrep(stringValue(mode));
}

void sequenceToValue(Zint::String8::IteratorConst& pos, const Zint::String8::IteratorConst& end,
                     ChipMemory::ChipMemoryMode& mode) {
  Zint::String8 text;
  auto p = pos;
  Zint::sequenceToValue(p, end, text);
  mode = ChipMemory::ChipMemoryModeInstance(text);
  pos = p;
}

std::ostream& operator<<(std::ostream& out, const ChipMemory::ChipMemoryMode& mode) {
  return out << stringValue(mode);
}

// Room for one entry behind the last: clearing may touch the entry at index `entries`, and a
// partial read may end there.
Zint::Ptr<Hal::Buf> ChipMemory::newStore() const {
  return Zint::makePtr<Hal::Buf>(entrySize_ * entries_, entrySize_);
}

Zint::Ptr<Hal::Buf> ChipMemory::newBitmap() const {
  return Zint::makePtr<Hal::Buf>((entries_ >> 3) + 1);
}

// The store is made afresh every time, even where the old one would do: what it held is dropped.
// All three buffers are made before one is installed: marks of one store never meet the bytes of
// another.
void ChipMemory::handleShadowStoreNeeded() {
  const Ptr self(this);
  Hal::BufBase::Ptr shadow, dirty, initialized;
  if (shadowStoreNeeded()) {
    shadow = newStore();
    dirty = newBitmap();
    initialized = newBitmap();
  }
  // An observer that makes the store anew meanwhile has the last word: no mixture of the two.
  const U32 store = ++storesMade_;
  shadowIs(shadow);
  if (store == storesMade_) dirtyIs(dirty);
  if (store == storesMade_) initializedIs(initialized);
}

// An existing hardware buffer is never replaced or released (deliberate).
void ChipMemory::handleAuditEnabled() {
  UMBRA_ASSERT(233, !auditEnabled() || (mode() != override()));
  if (hardware_ == nullptr && mode_ != override()) hardwareIs(newStore());
}

void ChipMemory::handleMode() {
  if (mode_ != normal()) return;
  UMBRA_TRACE(0, 255, name_ << ": Init done - writing back all shadows");
  writeback(false);
}

void ChipMemory::writeback(bool initializedOnly) {
  UMBRA_TRACE(0, 205, name_ << ": writing back initialzedOnly=" << initializedOnly);
  if (shadow_ == nullptr || mode_ == override()) return;
  // Held: an access may replace the store, which ends the write-back, or drop the region.
  const Ptr self(this);
  const Hal::BufBase::Ptr shadowBuf = shadow_;
  if (!initializedOnly) {
    UMBRA_ASSERT_REGION(*this, chipHam_);
    UMBRA_ASSERT_REGION(*this, entriesFit(*shadowBuf, entries_, entrySize_));
    chipHam_->doWrite(address_, shadowBuf->data(), entrySize_, entries_);
    return;
  }
  U32 count = 0;
  for (U32 i = 0; i < entries_ && shadow_ == shadowBuf; ++i) {
    if (!entryInitialized(i)) continue;
    ++count;
    UMBRA_ASSERT_REGION(*this, chipHam_);
    UMBRA_ASSERT_REGION(*this, entriesFit(*shadowBuf, U64{i} + 1, entrySize_));
    chipHam_->doWrite(entryAddress(i), shadowBuf->data() + entrySize_ * i, entrySize_, 1);
  }
  UMBRA_TRACE(9, 220, name_ << ": wrote back " << count << " entries");
}

}  // namespace Hardware
