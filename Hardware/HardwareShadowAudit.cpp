// The audit. One pass: doStartAudit clears the dirty bitmaps and starts the read request; the
// reader fills the hardware buffers; doAuditChips compares, learns, reports and repairs, and arms
// the clock.
#include <Hardware/HardwareShadow.h>
#include <Hardware/OverrideCheck.h>
#include <Hardware/StoreAccess.h>
#include <Hardware/Umbra.h>
#include <Mirl/Mirl.h>
#include <cstring>

namespace Hardware {
namespace {

// A region that a pass leaves alone at compare time.
bool isSkipped(const ChipMemory& cm) {
  return !cm.shadowEnabled() || cm.mode() == ChipMemory::override() || !cm.auditEnabled();
}

// A region's two images while they are compared. Whoever replaces the store ends the comparison,
// and whoever ends the audit the whole pass.
struct Comparison {
  const ChipMemory& cm;
  const Hal::BufBase* store;
  const U32& stateChanges;
  U32 change;
  U8* shadow;
  U8* hardware;
  U32 entries;
  U32 entrySize;

  bool goesOn() const { return cm.shadow().ptr() == store && stateChanges == change; }
  U8* shadowEntry(U32 e) const { return &shadow[std::size_t{e} * entrySize]; }
  U8* hardwareEntry(U32 e) const { return &hardware[std::size_t{e} * entrySize]; }
};

// The first entry from `e` (less than `entries`) on that differs; `entries` when there is none, or
// the comparison ends. Equal entries are nobody's business.
U32 plainDifference(const Comparison& c, U32 e) {
  // Differences come in runs.
  if (!entriesEqual(c.shadowEntry(e), c.hardwareEntry(e), c.entrySize)) return e;
  return e + static_cast<U32>(firstDifference(c.shadowEntry(e), c.hardwareEntry(e),
                                              std::size_t{c.entries - e} * c.entrySize) /
                              c.entrySize);
}

// The same by asking the access method, entry by entry. What a call may have changed is read from
// memory; the rest fits into the registers that calls preserve.
[[gnu::noinline]] U32 difference(const ChipHam& ham, const Comparison& c, U32 e) {
  U8* shadow = c.shadowEntry(e);
  U8* hardware = c.hardwareEntry(e);
  U32 left = c.entries - e;
  do {
    if (!ham.doCompare(shadow, hardware, c.entrySize)) return c.entries - left;
    shadow += c.entrySize;
    hardware += c.entrySize;
  } while (--left > 0 && c.goesOn());
  return c.entries;
}

Zint::String8 byteTexts(const U8* bytes, U32 size) {
  Zint::String8 text;
  for (U32 i = 0; i < size; ++i) text += Zint::format("x%02X", bytes[i]);
  return text;
}

void recentWriteRecorded(U32 e) {
  static const Mirl::MsgDesc desc(
      Mirl::theTraceFile, "Difference found in entry %u but it was written since the audit began",
      __LINE__);
  Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 8);
  msg << e;
  msg.endMsg();
}

// A real difference: the entry, and each byte that differs.
void differenceRecorded(const ChipMemory& cm, U32 e, const U8* shadowEntry,
                        const U8* hardwareEntry) {
  static const Mirl::MsgDesc found(Mirl::theTraceFile, "Difference found in entry %u of memory %s",
                                   __LINE__);
  Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, found, 0);
  msg << e << cm.fwkKey();
  msg.endMsg();

  static const Mirl::MsgDesc byteDiffers(Mirl::theTraceFile, "Byte %u expected %x actual %x",
                                         __LINE__);
  for (U32 i = 0; i < cm.entrySize(); ++i) {
    if (shadowEntry[i] == hardwareEntry[i]) continue;
    Mirl::RingBuf::Msg byteMsg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, byteDiffers, 0);
    byteMsg << i << shadowEntry[i] << hardwareEntry[i];
    byteMsg.endMsg();
  }
}

void bytesRecorded(const Zint::String8& expected, const Zint::String8& actual) {
  static const Mirl::MsgDesc desc(Mirl::theTraceFile, "Expected: %s Actual: %s", __LINE__);
  Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 0);
  msg << expected << actual;
  msg.endMsg();
}

}  // namespace

void HardwareShadow::chipMemoryAuditEnabledIs(const ChipMemory::Ptr& chipMemory,
                                              bool auditEnabled) {
  UMBRA_ASSERT(__LINE__, state_ == idle_);
  if (chipMemory->auditEnabled() == auditEnabled) return;
  const Ptr self(this);  // an observer of the region may drop this shadow
  const ChipMemory::Ptr cm = chipMemory;
  cm->auditEnabledIs(auditEnabled);
  if (state_ == unconfigured_) return;  // an observer's doing: membership is decided anew later
  if (cm->mode() == ChipMemory::override()) return;
  // Counted only where the membership really changes.
  const ChipReadRequest::Ptr request = auditReadRequest();
  const ChipMemory::Ptr member = request->chipMemory(cm->address());
  if (auditEnabled) {
    if (member == cm) return;
    if (member != nullptr) {
      chipMemoryEntriesUnderAuditIs(chipMemoryEntriesUnderAudit_ - member->entries());
    }
    request->chipMemoryIs(cm);
    chipMemoryEntriesUnderAuditIs(chipMemoryEntriesUnderAudit_ + cm->entries());
  } else if (member != nullptr) {
    request->chipMemoryDel(cm->address());
    chipMemoryEntriesUnderAuditIs(chipMemoryEntriesUnderAudit_ - member->entries());
  }
}

void HardwareShadow::doStartAudit() {
  if (state_ != auditing_ || overrideHardware_) return;
  const Ptr self(this);
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::doStartAudit");
  const ChipReadRequest::Ptr request = auditReadRequest();
  UMBRA_ASSERT(__LINE__, request);
  for (auto member = request->chipMemoryIterator(); member; ++member) {
    const ChipMemory::Ptr cm = member->chipMemory();
    if (!cm->shadowStoreNeeded()) continue;
    const Hal::BufBase::Ptr dirty = cm->dirty();
    UMBRA_ASSERT(__LINE__, dirty);
    std::memset(dirty->data(), 0, dirty->size());
  }
  const U32 change = stateChanges_;
  // The clock that the next pass is armed on; it is the one of now() when it called this.
  lastAuditStartTimeIs(clock_ == nullptr ? Zint::now() : clock_->notifier()->time());
  if (change != stateChanges_) return;  // an observer ended the audit
  request->stateIs(ChipReadRequest::start_);
}

void HardwareShadow::handleAuditReadRequestStatus() {
  if (state_ != auditing_) return;
  const Ptr self(this);
  const ChipReadRequest::Ptr request = auditReadRequest();
  UMBRA_ASSERT(__LINE__, request);
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::handleAuditReadRequestStatus " << request->status());
  if (request->status() == ChipReadRequest::done_) {
    UMBRA_ASSERT(__LINE__, state_ == auditing_);
    doAuditChips();
  } else if (request->status() == ChipReadRequest::failed_) {
    // A read failure of the audit's request is treated as impossible.
    UMBRA_ASSERT(__LINE__, false);
  }
}

void HardwareShadow::doAuditChips() {
  // Held: a trace's receiver, a repair or a notifiee may drop the request, a region or this shadow.
  const Ptr self(this);
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::doAuditChips");
  const ChipReadRequest::Ptr request = auditReadRequest();
  UMBRA_ASSERT(__LINE__, request);
  const U32 change = stateChanges_;
  for (auto member = request->chipMemoryIterator(); member; ++member) {
    const ChipMemory::Ptr cm = member->chipMemory();
    if (isSkipped(*cm)) continue;
    const Hal::BufBase::Ptr hardwareBuf = cm->hardware();
    const Hal::BufBase::Ptr shadowBuf = cm->shadow();
    const Hal::BufBase::Ptr dirtyBuf = cm->dirty();
    const Hal::BufBase::Ptr initializedBuf = cm->initialized();
    UMBRA_ASSERT(__LINE__, hardwareBuf);
    UMBRA_ASSERT(__LINE__, shadowBuf);
    UMBRA_ASSERT(__LINE__, dirtyBuf);
    UMBRA_ASSERT(__LINE__, initializedBuf);
    UMBRA_ASSERT_REGION(*cm, cm->chipHam());
    const U32 entries = cm->entries();
    const U32 entrySize = cm->entrySize();
    UMBRA_ASSERT_REGION(*cm, U64{entries} * entrySize <= hardwareBuf->size());
    UMBRA_ASSERT_REGION(*cm, entries <= StoreAccess::view(*cm).entries);

    const ChipHam& ham = *cm->chipHam();
    const bool plain = entrySize != 0 && !overridesCompare(ham);
    const Comparison comparison{*cm,     shadowBuf.ptr(),   stateChanges_,
                                change,  shadowBuf->data(), hardwareBuf->data(),
                                entries, entrySize};
    for (U32 e = 0; e < entries && comparison.goesOn(); ++e) {
      e = plain ? plainDifference(comparison, e) : difference(ham, comparison, e);
      if (e == entries) break;
      U8* shadowEntry = comparison.shadowEntry(e);
      U8* hardwareEntry = comparison.hardwareEntry(e);
      if (!bitmapBit(initializedBuf->data(), e)) {
        UMBRA_TRACE(8, __LINE__,
                    "Difference found in uninitialized entry " << e << " of memory " << cm->name());
        if (ham.doReadToCache(shadowEntry, hardwareEntry, entrySize)) {
          bitmapBitIs(initializedBuf->data(), e);
        }
      } else if (bitmapBit(dirtyBuf->data(), e)) {
        // The hardware was read before or during a later write: it proves nothing.
        UMBRA_TRACE(
            8, __LINE__,
            "Difference found in entry " << e << " but it was written since the audit began");
        recentWriteRecorded(e);
      } else {
        UMBRA_TRACE(0, __LINE__, "Difference found in entry " << e << " of memory " << cm->name());
        differenceRecorded(*cm, e, shadowEntry, hardwareEntry);
        const Zint::String8 expected = byteTexts(shadowEntry, entrySize);
        const Zint::String8 actual = byteTexts(hardwareEntry, entrySize);
        UMBRA_TRACE(0, __LINE__, "Expected: " << expected << " Actual: " << actual);
        bytesRecorded(expected, actual);
        doFixBadRegister(cm, e, shadowEntry);
      }
    }
    if (change != stateChanges_) return;
  }
  auditsIs(audits_ + 1);
  if (change == stateChanges_ && clock_ != nullptr)
    clock_->timeMinIs(lastAuditStartTime_ + minIntervalBetweenAudits_);
}

void HardwareShadow::doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data) {
  const ChipMemory::Ptr cm = chipMemory;  // an observer may clear the pointer that was passed
  UMBRA_ASSERT_REGION(*cm, cm->chipHam());
  cm->registersFixedInc(1);
  cm->lastFixTimeIs(Zint::now());
  cm->chipHam()->doWrite(cm->entryAddress(entry), data, cm->entrySize(), 1);
}

}  // namespace Hardware
