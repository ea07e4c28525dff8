// The shadow's attributes and its two reactors; birth and end.
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>

namespace Hardware {

HardwareShadow::Ptr hardwareShadowFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                          const Zint::Ptr<const Zint::Clock>& clock) {
  return hardwareShadowFactoryOf<HardwareShadow>(activity, clock);
}

HardwareShadow::HardwareShadow(const Zint::Ptr<Zint::ActivityConfig>& activity,
                               const Zint::Ptr<const Zint::Clock>& clock)
    : zintFwkActivity_(activity) {
  if (clock != nullptr) newClock(clock);
}

// No reactor fires during the teardown; the members go in the reverse order of their declaration.
HardwareShadow::~HardwareShadow() {
  HardwareShadow::zintDoZombieReactors(true);
  if (clock_ != nullptr) clock_->hardwareShadowIs(nullptr);
  if (auditReadRequest_ != nullptr) auditReadRequest_->hardwareShadowIs(nullptr);
  chipMemoryChunkDelAll();
}

const Zint::Type* HardwareShadow::fwkType() const { return &hardwareShadowType; }

void HardwareShadow::hasNotificationActiveIs(bool active) {
  if (auditReadRequest_ != nullptr) auditReadRequest_->hasNotificationActiveIs(active);
  if (clock_ != nullptr) clock_->hasNotificationActiveIs(active);
  PtrInterface::hasNotificationActiveIs(active);
}

U32 HardwareShadow::auditErrors() const {
  U32 errors = 0;
  for (U16 i = 0; i < nextIndex_; ++i) {
    const ChipMemoryChunk::Ptr chunk = chipMemoryChunkArray_.at(i);
    if (chunk == nullptr || chunk->fwkKey() != chipMemoryId_.at(i)) ++errors;
    if (i > 0 && chipMemoryId_.at(i) <= chipMemoryId_.at(static_cast<U16>(i - 1))) ++errors;
    if (chunk != nullptr) errors += chunk->auditErrors();
  }
  return errors;
}

void HardwareShadow::zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) {
  if (zintFwkActivity_ == activity) return;
  if (clock_ != nullptr) clock_->zintFwkActivityIs(activity);
  if (auditReadRequest_ != nullptr) auditReadRequest_->zintFwkActivityIs(activity);
  zintFwkActivity_ = activity;  // last: the clock's notifiee refuses a null one
  notify(Id::zintFwkActivity);
}

void HardwareShadow::zintDoZombieReactors(bool zombie) {
  if (zombie == zintMarkedForDeletion()) return;
  if (clock_ != nullptr) clock_->zintDoZombieReactors(zombie);
  if (auditReadRequest_ != nullptr) auditReadRequest_->zintDoZombieReactors(zombie);
  zintMarkedForDeletionIs(zombie);
}

// --- Plain attributes ---

void HardwareShadow::overrideHardwareIs(bool overrideHardware) {
  if (Zint::updated(overrideHardware_, overrideHardware)) notify(Id::overrideHardware);
}

void HardwareShadow::minIntervalBetweenAuditsIs(const Zint::Seconds& interval) {
  if (Zint::updated(minIntervalBetweenAudits_, interval)) notify(Id::minIntervalBetweenAudits);
}

void HardwareShadow::auditsIs(U32 audits) {
  if (Zint::updated(audits_, audits)) notify(Id::audits);
}

void HardwareShadow::lastAuditStartTimeIs(const Zint::Seconds& time) {
  if (Zint::updated(lastAuditStartTime_, time)) notify(Id::lastAuditStartTime);
}

void HardwareShadow::lastChipMemoryIs(const ChipMemory::Ptr& cm) {
  const Ptr self(this);
  if (Zint::updated(lastChipMemory_, cm)) notify(Id::lastChipMemory);
}

void HardwareShadow::nextIndexIs(ChipMemoryArrayIndex nextIndex) {
  if (Zint::updated(nextIndex_, nextIndex)) notify(Id::nextIndex);
}

void HardwareShadow::chipMemoryEntriesUnderAuditIs(U32 entries) {
  if (Zint::updated(chipMemoryEntriesUnderAudit_, entries)) notify(Id::chipMemoryEntriesUnderAudit);
}

// --- Reactors ---

Zint::Ptr<const Zint::Clock> HardwareShadow::clock() const {
  return clock_ == nullptr ? nullptr : clock_->notifier();
}

void HardwareShadow::clockIs(const Zint::Ptr<const Zint::Clock>& clock) {
  if (clock == this->clock()) return;
  const Ptr self(this);  // the end of the old one may drop this shadow
  clock == nullptr ? clockDel() : newClock(clock);
  notify(Id::clock);
}

void HardwareShadow::newClock(const Zint::Ptr<const Zint::Clock>& clock) {
  const Ptr self(this);
  Zint::Ptr<ZintClock> made = Zint::makePtr<ZintClock>(this, clock);
  clockDel();
  clock_ = std::move(made);
}

void HardwareShadow::clockDel() {
  if (clock_ == nullptr) return;
  clock_->hardwareShadowIs(nullptr);
  clock_->timeMinIs(Zint::never);
  clock_->isRegisteredNotifieeIs(false);
  clock_ = nullptr;
}

ChipReadRequest::Ptr HardwareShadow::auditReadRequest() const {
  return auditReadRequest_ == nullptr ? nullptr : auditReadRequest_->request();
}

void HardwareShadow::auditReadRequestIs(const ChipReadRequest::Ptr& request) {
  if (request == auditReadRequest()) return;
  const Ptr self(this);
  request == nullptr ? auditReadRequestDel() : newAuditReadRequest(request);
  notify(Id::auditReadRequest);
}

void HardwareShadow::newAuditReadRequest(const ChipReadRequest::Ptr& request) {
  const Ptr self(this);
  Zint::Ptr<ZintAuditReadRequest> made = Zint::makePtr<ZintAuditReadRequest>(this, request);
  auditReadRequestDel();
  auditReadRequest_ = std::move(made);
}

void HardwareShadow::auditReadRequestDel() {
  if (auditReadRequest_ == nullptr) return;
  auditReadRequest_->hardwareShadowIs(nullptr);
  auditReadRequest_->isRegisteredNotifieeIs(false);
  auditReadRequest_ = nullptr;
}

HardwareShadow::ZintChipMemory::ZintChipMemory(HardwareShadow* shadow,
                                               const ChipMemory::Ptr& chipMemory)
    : ChipMemory::NotifieeConst(shadow->zintFwkActivity(), chipMemory, false),
      fwkKey_(chipMemory->address()),
      chipMemory_(chipMemory) {}

HardwareShadow::ZintChipMemory::~ZintChipMemory() = default;

void HardwareShadow::ZintChipMemory::chipMemoryIs(const ChipMemory::Ptr& chipMemory) {
  notifierIs(chipMemory);
  chipMemory_ = chipMemory;
}

HardwareShadow::ZintClock::ZintClock(HardwareShadow* shadow,
                                     const Zint::Ptr<const Zint::Clock>& clock)
    : Zint::Clock::NotifieeConst(shadow->zintFwkActivity(), clock, shadow->hasNotificationActive()),
      shadow_(shadow) {}

HardwareShadow::ZintClock::~ZintClock() = default;

void HardwareShadow::ZintClock::onTime() {
  if (const HardwareShadow::Ptr shadow = shadow_; shadow != nullptr) shadow->doStartAudit();
}

HardwareShadow::ZintAuditReadRequest::ZintAuditReadRequest(HardwareShadow* shadow,
                                                           const ChipReadRequest::Ptr& request)
    : ChipReadRequest::NotifieeConst(shadow->zintFwkActivity(), request,
                                     shadow->hasNotificationActive()),
      shadow_(shadow),
      request_(request) {}

HardwareShadow::ZintAuditReadRequest::~ZintAuditReadRequest() = default;

void HardwareShadow::ZintAuditReadRequest::onStatus() {
  if (const HardwareShadow::Ptr shadow = shadow_; shadow != nullptr) {
    shadow->handleAuditReadRequestStatus();
  }
}

// --- Observers ---

HardwareShadow::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                             const Zint::Ptr<const HardwareShadow>& shadow)
    : Zint::NotifieeConst(activity, shadow) {}

HardwareShadow::NotifieeConst::~NotifieeConst() = default;

void HardwareShadow::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::state:
      return onState();
    case Id::overrideHardware:
      return onOverrideHardware();
    case Id::minIntervalBetweenAudits:
      return onMinIntervalBetweenAudits();
    case Id::audits:
      return onAudits();
    case Id::lastAuditStartTime:
      return onLastAuditStartTime();
    case Id::chipMemoryEntriesUnderAudit:
      return onChipMemoryEntriesUnderAudit();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Hardware
