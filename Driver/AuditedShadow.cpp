// The audited shadow: its attributes, its notifiees, and what it hands on to its patrol.
#include <Driver/AuditedShadow.h>

#include <Driver/ChipWriter.h>
#include <Driver/Driver.h>
#include <Driver/Governor.h>
#include <Driver/Patrol.h>
#include <Zint/Enumeration.h>
#include <cmath>

namespace Driver {
namespace {

constexpr const char* patrolStateNames[] = {"stopped", "waiting",   "reading",
                                            "paused",  "suspended", "restoring"};
constexpr Zint::Enumeration patrolStates{"Driver::PatrolState", "PatrolState", patrolStateNames};

constexpr std::size_t periodsKept = 16;

constexpr const char* nullPatrolRegion =
    "null chipMemory parameter to Driver::AuditedShadow not allowed";

void requireTime(Zint::Seconds seconds, const char* message) {
  if (!(seconds >= 0)) Zint::throwRangeException(message);
}

}  // namespace

Zint::String8 stringValue(PatrolState state) {
  return Zint::enumerationText(patrolStates, static_cast<S32>(state));
}
Zint::String8 valueToStrep(const PatrolState& state) {
  return Zint::valueToStrep(stringValue(state));
}
std::ostream& operator<<(std::ostream& out, PatrolState state) { return out << stringValue(state); }

AuditedShadow::Ptr auditedShadowFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const Zint::Ptr<const Zint::Clock>& clock) {
  return Hardware::hardwareShadowFactoryOf<AuditedShadow>(activity, clock);
}

AuditedShadow::AuditedShadow(const Zint::Ptr<Zint::ActivityConfig>& activity,
                             const Zint::Ptr<const Zint::Clock>& clock)
    : HardwareShadow(activity, clock) {
  auditsItselfIs(true);
  patrol_ = std::make_unique<Patrol>(*this);
}

AuditedShadow::~AuditedShadow() { patrol_ = nullptr; }

const Zint::Type* AuditedShadow::fwkType() const { return &auditedShadowType; }

void AuditedShadow::hasNotificationActiveIs(bool active) {
  HardwareShadow::hasNotificationActiveIs(active);
  patrol_->hasNotificationActiveIs(active);
}

void AuditedShadow::zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) {
  const Ptr self(this);
  const Zint::Ptr<Zint::ActivityConfig> held = activity;
  patrol_->activityIs(held);
  HardwareShadow::zintFwkActivityIs(held);
}

void AuditedShadow::zintDoZombieReactors(bool zombie) {
  if (patrol_ != nullptr) patrol_->zombieIs(zombie);
  HardwareShadow::zintDoZombieReactors(zombie);
}

void AuditedShadow::doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data) {
  const Ptr self(this);
  if (chipMemory != nullptr && patrol_->repairJudged(chipMemory, entry)) return;
  HardwareShadow::doFixBadRegister(chipMemory, entry, data);
}

// --- Attributes without a reaction ---------------------------------------------------------------

void AuditedShadow::maxEntriesPerSliceIs(U32 entries) {
  if (entries == 0) Zint::throwRangeException("maxEntriesPerSlice must be above 0");
  if (Zint::updated(maxEntriesPerSlice_, entries)) notify(Id::maxEntriesPerSlice);
}

void AuditedShadow::sliceIntervalIs(const Zint::Seconds& seconds) {
  requireTime(seconds, "sliceInterval must be a number that is not below 0");
  if (Zint::updated(sliceInterval_, seconds)) notify(Id::sliceInterval);
}

void AuditedShadow::maxEntriesPerReplaySliceIs(U32 entries) {
  if (entries == 0) Zint::throwRangeException("maxEntriesPerReplaySlice must be above 0");
  if (Zint::updated(maxEntriesPerReplaySlice_, entries)) notify(Id::maxEntriesPerReplaySlice);
}

void AuditedShadow::replayIntervalIs(const Zint::Seconds& seconds) {
  if (!std::isfinite(seconds) || seconds < 0) {
    Zint::throwRangeException("replayInterval must be finite and not negative");
  }
  if (Zint::updated(replayInterval_, seconds)) notify(Id::replayInterval);
}

void AuditedShadow::turnBoundIs(const Zint::Seconds& seconds) {
  requireTime(seconds, "turnBound must be a number that is not below 0");
  if (Zint::updated(turnBound_, seconds)) notify(Id::turnBound);
}

void AuditedShadow::judgeAtOnceIs(bool judgeAtOnce) {
  if (Zint::updated(judgeAtOnce_, judgeAtOnce)) notify(Id::judgeAtOnce);
}

void AuditedShadow::rereadsIs(bool rereads) {
  if (Zint::updated(rereads_, rereads)) notify(Id::rereads);
}

void AuditedShadow::verifiesIs(bool verifies) {
  if (Zint::updated(verifies_, verifies)) notify(Id::verifies);
}

void AuditedShadow::maxRepairsPerTurnIs(U32 repairs) {
  if (repairs == 0) Zint::throwRangeException("maxRepairsPerTurn must be above 0");
  if (Zint::updated(maxRepairsPerTurn_, repairs)) notify(Id::maxRepairsPerTurn);
}

void AuditedShadow::maxRepairsPerPassIs(U32 repairs) {
  if (Zint::updated(maxRepairsPerPass_, repairs)) notify(Id::maxRepairsPerPass);
}

void AuditedShadow::quarantineRepairsIs(U32 repairs) {
  if (Zint::updated(quarantineRepairs_, repairs)) notify(Id::quarantineRepairs);
}

void AuditedShadow::quarantineTimeIs(const Zint::Seconds& seconds) {
  requireTime(seconds, "quarantineTime must be a number that is not below 0");
  if (Zint::updated(quarantineTime_, seconds)) notify(Id::quarantineTime);
}

void AuditedShadow::quarantineVisitsIs(U32 visits) {
  if (Zint::updated(quarantineVisits_, visits)) notify(Id::quarantineVisits);
}

void AuditedShadow::findsResetsIs(bool findsResets) {
  if (Zint::updated(findsResets_, findsResets)) notify(Id::findsResets);
}

// --- Patrol --------------------------------------------------------------------------------------

void AuditedShadow::pausedIs(bool paused) {
  if (!Zint::updated(paused_, paused)) return;
  const Ptr self(this);
  patrol_->handlePaused();
  notify(Id::paused);
}

Zint::String8 AuditedShadow::patrolReason() const { return patrol_->reason(); }

Zint::Seconds AuditedShadow::lastPassAge() const { return patrol_->time() - lastPassTime_; }

Zint::Seconds AuditedShadow::nextTry() const { return patrol_->nextTry(); }

PassResult AuditedShadow::doAudit(const ChipMemory::Ptr& region, U32 first, U32 count) {
  const Ptr self(this);
  return patrol_->doAudit(refuseNull(region, nullPatrolRegion), first, count);
}

Zint::Ptr<Governor> AuditedShadow::governor() const {
  if (governor_ == nullptr || governor_->isUnderDestruction()) return nullptr;
  return Zint::Ptr<Governor>(governor_);
}

void AuditedShadow::patrolStateIs(PatrolState state, Zint::Seconds time) {
  if (!Zint::updated(patrolState_, state)) return;
  patrolSince_ = time;
  notify(Id::patrolState);
}

void AuditedShadow::passPeriodIs(Zint::Seconds period) {
  if (passPeriods_.size() == periodsKept) passPeriods_.erase(passPeriods_.begin());
  passPeriods_.push_back(period);
  notify(Id::passPeriods);
}

void AuditedShadow::passEntriesIs(U64 entries) {
  passEntriesDone_ = 0;
  if (Zint::updated(passEntries_, entries)) notify(Id::passEntries);
}

void AuditedShadow::passEntriesDoneIs(U64 entries) {
  if (Zint::updated(passEntriesDone_, entries)) notify(Id::passEntriesDone);
}

void AuditedShadow::lastPassTimeIs(Zint::Seconds time) {
  if (Zint::updated(lastPassTime_, time)) notify(Id::lastPassTime);
}

void AuditedShadow::findingsInc() {
  ++findings_;
  notify(Id::findings);
}

void AuditedShadow::repairsInc() {
  ++repairs_;
  notify(Id::repairs);
}

void AuditedShadow::transientsInc() {
  ++transients_;
  notify(Id::transients);
}

void AuditedShadow::quarantinedIs(U32 entries) {
  if (Zint::updated(quarantined_, entries)) notify(Id::quarantined);
}

// --- Policies, chips, and marks ------------------------------------------------------------------

void AuditedShadow::policyIs(const Policy::Ptr& policy) {
  const Ptr self(this);
  const Policy::Ptr held =
      refuseNull(policy, "null policy parameter to Driver::AuditedShadow not allowed");
  patrol_->policyIs(held->chipMemory(), held);
  notify(Id::policyIs);
}

void AuditedShadow::policyDel(const ChipMemory::Ptr& region) {
  if (policy(region) == nullptr) return;
  const Ptr self(this);
  patrol_->policyIs(ChipMemory::Ptr(region), nullptr);
  notify(Id::policyIs);
}

Policy::Ptr AuditedShadow::policy(const ChipMemory::Ptr& region) const {
  const RegionMarks* marks = patrol_->marks(region.ptr());
  return marks == nullptr ? nullptr : marks->policy;
}

Zint::String8 AuditedShadow::policyText(const ChipMemory::Ptr& region, U32 entry) const {
  return patrol_->policyText(refuseNull(region, nullPatrolRegion), entry);
}

RegisterNames::Ptr AuditedShadow::registerNames() const { return patrol_->names(); }

void AuditedShadow::registerNamesIs(const RegisterNames::Ptr& names) { patrol_->namesIs(names); }

void AuditedShadow::chipIs(const Chip::Ptr& chip) {
  const Ptr self(this);
  patrol_->chipIs(refuseNull(chip, "null chip parameter to Driver::AuditedShadow not allowed"));
  notify(Id::chipIs);
}

void AuditedShadow::chipDel(const Chip::Ptr& chip) {
  const Ptr self(this);
  const Chip::Ptr held = chip;
  patrol_->chipDel(held);
  notify(Id::chipIs);
}

Chip::Ptr AuditedShadow::chip(const ChipMemory::Ptr& region) {
  return patrol_->makeChip(refuseNull(region, nullPatrolRegion));
}

std::vector<Chip::Ptr> AuditedShadow::chips() const { return patrol_->chips(); }

bool AuditedShadow::isQuarantined(const ChipMemory::Ptr& region, U32 entry) const {
  const RegionMarks* marks = patrol_->marks(region.ptr());
  if (marks == nullptr) return false;
  const auto history = marks->repairs.find(entry);
  return history != marks->repairs.end() && history->second.isQuarantined;
}

void AuditedShadow::quarantineDel(const ChipMemory::Ptr& region, U32 entry) {
  const Ptr self(this);
  patrol_->quarantineDel(ChipMemory::Ptr(region), entry);
}

bool AuditedShadow::findReplay(const ChipMemory::Ptr& region, ChipWriter::Ptr& writer) const {
  return patrol_->findReplay(region, writer);
}

bool AuditedShadow::isWritten(const ChipMemory::Ptr& region, U32 entry) const {
  return region != nullptr && patrol_->isWritten(*region, entry);
}

void AuditedShadow::writtenIs(const ChipMemory::Ptr& region, U32 entry, bool isWritten) {
  patrol_->marksOf(refuseNull(region, nullPatrolRegion)).written.atIs(entry, isWritten);
  patrol_->handleKnown();
}

bool AuditedShadow::hasOpenFinding(const ChipMemory::Ptr& region, U32 entry) const {
  const RegionMarks* marks = patrol_->marks(region.ptr());
  return marks != nullptr && marks->store == region->dirty() && marks->open.at(entry);
}

void AuditedShadow::openFindingIs(const ChipMemory::Ptr& region, U32 entry, bool isOpen) {
  if (!isOpen && !hasOpenFinding(region, entry)) return;
  patrol_->marksOf(refuseNull(region, nullPatrolRegion)).open.atIs(entry, isOpen);
  patrol_->handleKnown();
}

// --- Notifiees -----------------------------------------------------------------------------------

AuditedShadow::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                            const Zint::Ptr<const AuditedShadow>& shadow)
    : HardwareShadow::NotifieeConst(activity, shadow) {}

AuditedShadow::NotifieeConst::~NotifieeConst() = default;

void AuditedShadow::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  if (attribute() == Id::patrolState) return onPatrolState();
  HardwareShadow::NotifieeConst::handleNotification(activity);
}

}  // namespace Driver
