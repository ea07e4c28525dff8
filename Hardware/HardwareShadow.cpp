// The shadow's attributes and its two reactors, its constructor and destructor.
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

// No reactor fires during the destruction. The members are destroyed in the reverse order of their
// declaration.
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

U32 HardwareShadow::auditErrors() const { return index_.auditErrors(); }

void HardwareShadow::zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) {
  if (zintFwkActivity_ == activity) return;
  const Ptr self(this);
  Zint::Ptr<Zint::ActivityConfig> held = activity;
  if (clock_ != nullptr) clock_->zintFwkActivityIs(held);
  if (auditReadRequest_ != nullptr) auditReadRequest_->zintFwkActivityIs(held);
  zintFwkActivity_.swap(held);  // last: the clock's notifiee refuses a null one
  notify(Id::zintFwkActivity);
}

void HardwareShadow::zintDoZombieReactors(bool zombie) {
  if (zombie == zintMarkedForDeletion()) return;
  if (clock_ != nullptr) clock_->zintDoZombieReactors(zombie);
  if (auditReadRequest_ != nullptr) auditReadRequest_->zintDoZombieReactors(zombie);
  zintMarkedForDeletionIs(zombie);
}

// --- Attributes without reaction ---

void HardwareShadow::overrideHardwareIs(bool overrideHardware) {
  if (Zint::updated(overrideHardware_, overrideHardware)) notify(Id::overrideHardware);
}

void HardwareShadow::minIntervalBetweenAuditsIs(const Zint::Seconds& interval) {
  if (interval != interval) Zint::throwRangeException("minIntervalBetweenAudits must be a number");
  if (Zint::updated(minIntervalBetweenAudits_, interval)) notify(Id::minIntervalBetweenAudits);
}

void HardwareShadow::auditsIs(U32 audits) {
  if (Zint::updated(audits_, audits)) notify(Id::audits);
}

void HardwareShadow::lastAuditStartTimeIs(const Zint::Seconds& time) {
  if (time != time) Zint::throwRangeException("lastAuditStartTime must be a number");
  if (Zint::updated(lastAuditStartTime_, time)) notify(Id::lastAuditStartTime);
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
  const Ptr self(this);  // the destructor of the old one may drop this shadow
  clock == nullptr ? clockDel() : newClock(clock);
  notify(Id::clock);
}

void HardwareShadow::newClock(const Zint::Ptr<const Zint::Clock>& clock) {
  const Ptr self(this);
  Zint::Ptr<ZintClock> made = Zint::makePtr<ZintClock>(this, clock);
  clockDel();
  clock_ = std::move(made);
}

// To disarm reads other clocks, which may take the clock away here.
void HardwareShadow::clockDel() {
  const Zint::Ptr<ZintClock> reactor = std::move(clock_);
  if (reactor == nullptr) return;
  reactor->hardwareShadowIs(nullptr);
  reactor->timeMinIs(Zint::never);
  reactor->isRegisteredNotifieeIs(false);
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

HardwareShadow::ZintClock::ZintClock(HardwareShadow* shadow,
                                     const Zint::Ptr<const Zint::Clock>& clock)
    : Zint::Clock::NotifieeConst(shadow->zintFwkActivity(), clock, shadow->hasNotificationActive()),
      shadow_(shadow) {}

HardwareShadow::ZintClock::~ZintClock() = default;

HardwareShadow::ZintAuditReadRequest::ZintAuditReadRequest(HardwareShadow* shadow,
                                                           const ChipReadRequest::Ptr& request)
    : ChipReadRequest::NotifieeConst(shadow->zintFwkActivity(), request,
                                     shadow->hasNotificationActive()),
      shadow_(shadow),
      request_(request) {
  interestIs(Zint::interestIn(ChipReadRequest::Id::status));
}

HardwareShadow::ZintAuditReadRequest::~ZintAuditReadRequest() = default;

// --- Notifiees ---

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
