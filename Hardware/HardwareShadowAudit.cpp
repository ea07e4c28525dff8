// The audit. One pass: doStartAudit clears the dirty bitmaps and starts the read request; the
// reader fills the hardware buffers; doAuditChips compares, adopts, reports and repairs, and arms
// the clock for the next pass.
#include <Hardware/HardwareShadow.h>

#include <Hardware/OverrideCheck.h>
#include <Hardware/StoreAccess.h>
#include <Hardware/Umbra.h>
#include <Mirl/Mirl.h>
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace Hardware {
namespace {

// The regions of a request lie all over the memory, and the order of the walk is not theirs: what
// the next ones need is asked for while one is compared. Halves the time of 100,000 small regions.
template <class Iterator>
void prefetchNext(const Iterator& member) {
  if (const auto* third = member.ahead(3)) __builtin_prefetch(third);
  if (const auto* second = member.ahead(2)) StoreAccess::prefetchRegion(*second->chipMemory());
  if (const auto* next = member.ahead(1)) StoreAccess::prefetchBuffers(*next->chipMemory());
}

// Whether a pass does not compare the region, although it is in the request.
bool isSkipped(const ChipMemory& cm) {
  return !cm.shadowEnabled() || cm.mode() == ChipMemory::override() || !cm.auditEnabled();
}

// The operation that traces of the comparison name, wherever they stand.
constexpr const char* auditFunction = "doAuditChips";

// The shadow and hardware images of one region. The comparison ends early if a call that it makes
// replaces the shadow buffer or sets the shadow's state.
struct Comparison {
  // REQUIRES: the region has an access method, the store and the hardware buffer, and the caller
  // holds all of them.
  Comparison(const ChipMemory& region, U32 end, const Zint::Epoch::Mark& mark)
      : cm(region),
        ham(*region.chipHam()),
        state(mark),
        shadowBuf(region.shadow().ptr()),
        shadow(shadowBuf->data()),
        hardware(region.hardware()->data()),
        initialized(region.initialized()->data()),
        dirty(region.dirty()->data()),
        entries(end),
        entrySize(region.entrySize()),
        comparesBytes(entrySize != 0 && !overridesCompare(ham)) {}

  const ChipMemory& cm;
  const ChipHam& ham;
  const Zint::Epoch::Mark state;
  const Hal::BufBase* const shadowBuf;
  U8* const shadow;
  U8* const hardware;
  U8* const initialized;
  U8* const dirty;
  const U32 entries;
  const U32 entrySize;
  const bool comparesBytes;  // doCompare is not overridden

  bool hasEnded() const { return cm.shadow().ptr() != shadowBuf || state.isSuperseded(); }
  U8* shadowEntry(U32 e) const { return &shadow[std::size_t{e} * entrySize]; }
  U8* hardwareEntry(U32 e) const { return &hardware[std::size_t{e} * entrySize]; }

  // The first entry from `e` on that differs; `entries` if there is none, or the comparison ends.
  U32 findDifference(U32 e) const {
    if (e >= entries || hasEnded()) return entries;
    return comparesBytes ? findDifferentBytes(e) : askForDifference(e);
  }

 private:
  U32 findDifferentBytes(U32 e) const {
    // Differences come in runs.
    if (!entriesEqual(shadowEntry(e), hardwareEntry(e), entrySize)) return e;
    const U64 equalBytes =
        firstDifference(shadowEntry(e), hardwareEntry(e), std::size_t{entries - e} * entrySize);
    return e + static_cast<U32>(equalBytes) / entrySize;  // the buffers' sizes have 32 bits
  }

  // noinline: keeps the loop's variables in callee-saved registers across doCompare.
  [[gnu::noinline]] U32 askForDifference(U32 e) const {
    U8* shadowNext = shadowEntry(e);
    U8* hardwareNext = hardwareEntry(e);
    U32 left = entries - e;
    do {
      if (!ham.doCompare(shadowNext, hardwareNext, entrySize)) return entries - left;
      shadowNext += entrySize;
      hardwareNext += entrySize;
    } while (--left > 0 && !hasEnded());
    return entries;
  }
};

void recordRecentWrite(U32 e) {
  static const Mirl::MsgDesc desc(
      Mirl::theTraceFile, "Difference found in entry %u but it was written since the audit began",
      __LINE__);
  Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 8);
  msg << e;
  msg.endMsg();
}

// One record for the entry, and one for each byte that differs.
void recordDifference(const ChipMemory& cm, U32 e, const U8* shadowEntry, const U8* hardwareEntry) {
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

// Writes "x" and two hexadecimal digits for each byte. Returns the end.
char* writeBytes(char* to, const U8* bytes, U32 size) {
  constexpr const char* digits = "0123456789ABCDEF";
  for (U32 i = 0; i < size; ++i) {
    *to++ = 'x';
    *to++ = digits[bytes[i] >> 4];
    *to++ = digits[bytes[i] & 15];
  }
  return to;
}

// Traces and records both sides of an entry. Allocates nothing for entries of up to 4,096 bytes.
// noinline: its text takes 24 KiB of the stack.
[[gnu::noinline]] void reportBytes(const U8* shadowEntry, const U8* hardwareEntry, U32 entrySize) {
  constexpr std::string_view expected = "Expected: ", actual = " Actual: ";
  constexpr U32 fewBytes = 4096;
  char few[expected.size() + actual.size() + 6 * fewBytes + 1];
  std::string many;
  char* text = few;
  if (entrySize > fewBytes) {
    const U64 length = expected.size() + actual.size() + U64{6} * entrySize;
    // std::length_error where no text is that long: in 32 bits.
    many.resize(static_cast<std::size_t>(std::min(length, U64{many.max_size()} + 1)));
    text = many.data();
  }
  char* const expectedBytes = text + expected.copy(text, expected.size());
  char* end = writeBytes(expectedBytes, shadowEntry, entrySize);
  const std::string_view expectedText(expectedBytes, 3 * std::size_t{entrySize});
  end += actual.copy(end, actual.size());
  const std::string_view actualText(end, 3 * std::size_t{entrySize});
  end = writeBytes(end, hardwareEntry, entrySize);
  *end = '\0';
  umbraTrace().trace(std::string_view(text, static_cast<std::size_t>(end - text)), 0, "",
                     "Hardware/Umbra", __LINE__, auditFunction);

  static const Mirl::MsgDesc desc(Mirl::theTraceFile, "Expected: %s Actual: %s", __LINE__);
  Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 0);
  msg << expectedText << actualText;
  msg.endMsg();
}

// What the audit does with an entry that differs: adopts it, leaves it, or repairs it.
[[gnu::always_inline]] inline void auditEntry(HardwareShadow& shadow, const ChipMemory::Ptr& cm,
                                              const Comparison& images, U32 e) {
  U8* shadowEntry = images.shadowEntry(e);
  U8* hardwareEntry = images.hardwareEntry(e);
  if (!bitmapBit(images.initialized, e)) {
    ZINT_TRACE_IN(auditFunction, umbraTrace(), 8, "", "Hardware/Umbra", __LINE__,
                  "Difference found in uninitialized entry " << e << " of memory " << cm->fwkKey());
    if (images.ham.doReadToCache(shadowEntry, hardwareEntry, images.entrySize)) {
      bitmapBitIs(images.initialized, e);
    }
  } else if (bitmapBit(images.dirty, e)) {
    // The entry was written after the pass began, so the difference proves nothing.
    ZINT_TRACE_IN(auditFunction, umbraTrace(), 8, "", "Hardware/Umbra", __LINE__,
                  "Difference found in entry " << e << " but it was written since the audit began");
    recordRecentWrite(e);
  } else {
    ZINT_TRACE_IN(auditFunction, umbraTrace(), 0, "", "Hardware/Umbra", __LINE__,
                  "Difference found in entry " << e << " of memory " << cm->fwkKey());
    recordDifference(*cm, e, shadowEntry, hardwareEntry);
    reportBytes(shadowEntry, hardwareEntry, images.entrySize);
    shadow.doFixBadRegister(cm, e, shadowEntry);
  }
}

}  // namespace

void HardwareShadow::chipMemoryAuditEnabledIs(const ChipMemory::Ptr& chipMemory,
                                              bool auditEnabled) {
  refuseNull(chipMemory,
             "null _chipMemory parameter to mutator for "
             "Hardware::HardwareShadow::chipMemoryAuditEnabled not allowed\"");
  UMBRA_ASSERT(__LINE__, state_ == idle_);
  if (chipMemory->auditEnabled() == auditEnabled) return;
  const Ptr self(this);
  const ChipMemory::Ptr cm = chipMemory;
  cm->auditEnabledIs(auditEnabled);
  if (stateInAction() == unconfigured_) return;  // configured will decide
  if (cm->mode() == ChipMemory::override()) return;
  const ChipReadRequest::Ptr request = auditReadRequest();
  UMBRA_ASSERT(__LINE__, request);
  // The count changes only if this call changes the membership. If a notifiee has all regions
  // enrolled or removed re-entrantly, they are counted there.
  const Zint::Epoch::Mark enrolment(enrolments_);
  const ChipMemory::Ptr member = request->chipMemory(cm->address());
  U32 added = 0;
  if (auditEnabled) {
    if (member == cm) return;
    request->chipMemoryIs(cm);
    added = cm->entries();
  } else {
    if (member == nullptr) return;
    request->chipMemoryDel(cm->address());
  }
  const U32 removed = member == nullptr ? 0 : member->entries();
  if (enrolment.isSuperseded() || stateInAction() == configured_) return;
  chipMemoryEntriesUnderAuditIs(chipMemoryEntriesUnderAudit_ + added - removed);
}

void HardwareShadow::ZintClock::onTime() {
  if (const HardwareShadow::Ptr shadow = shadow_; shadow != nullptr) shadow->doStartAudit();
}

void HardwareShadow::doStartAudit() {
  if (state_ != auditing_ || overrideHardware_ || auditsItself_) return;
  const Ptr self(this);
  const Zint::Epoch::Mark mark(stateChanges_);
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::doStartAudit");
  const ChipReadRequest::Ptr request = auditReadRequest();
  UMBRA_ASSERT(__LINE__, request);
  for (auto member = request->chipMemoryIterator(); member; ++member) {
    const ChipMemory::Ptr cm = member->chipMemory();
    if (!cm->shadowStoreNeeded()) continue;
    const Hal::BufBase::Ptr dirty = cm->dirty();
    UMBRA_ASSERT(__LINE__, dirty);
    fillBytes(dirty->data(), 0, dirty->size());
  }
  // A time of the clock that wakes the next pass. When that clock has called this, now() is the
  // same time.
  const Zint::Ptr<const Zint::Clock> clock = this->clock();
  lastAuditStartTimeIs(clock == nullptr ? Zint::now() : clock->time());
  if (mark.isSuperseded()) return;  // a notifiee ended the audit
  request->stateIs(ChipReadRequest::start_);
}

void HardwareShadow::ZintAuditReadRequest::onStatus() {
  if (const HardwareShadow::Ptr shadow = shadow_; shadow != nullptr) {
    shadow->handleAuditReadRequestStatus();
  }
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

// Ends without counting the pass if a repair or a notifiee sets the state (deliberate).
void HardwareShadow::doAuditChips() {
  if (auditsItself_) return;
  // Held: a trace's receiver, a repair or a notifiee may drop the request, a region or this shadow.
  const Ptr self(this);
  const Zint::Epoch::Mark mark(stateChanges_);
  UMBRA_TRACE(0, __LINE__, "HardwareShadow::doAuditChips");
  const ChipReadRequest::Ptr request = auditReadRequest();
  UMBRA_ASSERT(__LINE__, request);
  for (auto member = request->chipMemoryIterator(); member; ++member) {
    prefetchNext(member);
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
    UMBRA_ASSERT_REGION(*cm, entries <= StoreAccess::storedEntries(*cm));

    const Comparison comparison(*cm, entries, mark);
    U32 e = comparison.findDifference(0);
    while (e < entries) {
      auditEntry(*this, cm, comparison, e);
      e = comparison.findDifference(e + 1);
    }
    if (mark.isSuperseded()) return;
  }
  auditsIs(audits_ + 1);
  if (!mark.isSuperseded()) wakeClockAt(lastAuditStartTime_ + minIntervalBetweenAudits_);
}

// --- What a derived shadow audits by itself ---

namespace {

// What a comparison of a region goes on with, whatever it calls.
struct HeldRegion {
  HeldRegion(const ChipMemory::Ptr& region, const char* nullMessage)
      : cm(refuseNull(region, nullMessage)),
        buffers{cm->shadow(), cm->hardware(), cm->dirty(), cm->initialized()} {}
  bool holdsEntries(U32 end) const {
    return cm->chipHam() && buffers[0] && buffers[1] && buffers[2] && buffers[3] &&
           end <= StoreAccess::storedEntries(*cm) &&
           U64{end} * cm->entrySize() <= buffers[1]->size();
  }

  const ChipMemory::Ptr cm;
  const Hal::BufBase::Ptr buffers[4];
};

}  // namespace

U32 HardwareShadow::differentEntry(const ChipMemory::Ptr& cm, U32 first, U32 end) const {
  const Zint::Ptr<const HardwareShadow> self(this);
  const HeldRegion held(
      cm, "null cm parameter to Hardware::HardwareShadow::differentEntry not allowed");
  UMBRA_ASSERT_REGION(*held.cm, held.holdsEntries(end));
  return Comparison(*held.cm, end, Zint::Epoch::Mark(stateChanges_)).findDifference(first);
}

bool HardwareShadow::comparesBytes(const ChipHam& ham) { return !overridesCompare(ham); }

void HardwareShadow::doAuditEntry(const ChipMemory::Ptr& cm, U32 entry) {
  const Ptr self(this);
  const HeldRegion held(cm,
                        "null cm parameter to Hardware::HardwareShadow::doAuditEntry not allowed");
  UMBRA_ASSERT_REGION(*held.cm, entry < ~0u && held.holdsEntries(entry + 1));
  auditEntry(*this, held.cm, Comparison(*held.cm, entry + 1, Zint::Epoch::Mark(stateChanges_)),
             entry);
}

void HardwareShadow::doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data) {
  refuseNull(chipMemory,
             "null _chipMemory parameter to mutator for "
             "Hardware::HardwareShadow::doFixBadRegister not allowed\"");
  const ChipMemory::Ptr cm = chipMemory;
  const Hal::BufBase::Ptr shadowBuf = cm->shadow();  // `data` is usually an entry of it
  UMBRA_ASSERT_REGION(*cm, cm->chipHam());
  cm->registersFixedInc(1);
  cm->lastFixTimeIs(Zint::now());
  cm->chipHam()->doWrite(cm->entryAddress(entry), data, cm->entrySize(), 1);
}

}  // namespace Hardware
