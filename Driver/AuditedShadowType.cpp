#include <Driver/AuditedShadow.h>
#include <Driver/Check.h>
#include <Driver/Driver.h>
#include <Driver/Governor.h>
#include <Hardware/Descriptions.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::enumerator;
using Zint::operation;
using Zint::readOnly;

constexpr Zint::Member patrolStateMembers[] = {
    enumerator("stopped", static_cast<S32>(PatrolState::stopped)),
    enumerator("waiting", static_cast<S32>(PatrolState::waiting)),
    enumerator("reading", static_cast<S32>(PatrolState::reading)),
    enumerator("paused", static_cast<S32>(PatrolState::paused)),
    enumerator("suspended", static_cast<S32>(PatrolState::suspended)),
    enumerator("restoring", static_cast<S32>(PatrolState::restoring)),
};

// Adapters for what has no text form.
Zint::String8 passPeriodsByName(const AuditedShadow& shadow) {
  std::string text;
  for (const Zint::Seconds period : shadow.passPeriods()) {
    text += (text.empty() ? "" : " ") + std::string(Zint::valueToStrep(period));
  }
  return text;
}
Zint::String8 doAuditByName(AuditedShadow& shadow, Hardware::ChipMemory::Ptr chipMemory, U32 first,
                            U32 count) {
  return shadow.doAudit(chipMemory, first, count).stringValue();
}

// Each complaint on a line of its own; empty where there is none.
Zint::String8 checkByName(const AuditedShadow& shadow) {
  Zint::String8 text;
  for (const Complaint::Ptr& complaint :
       check(Zint::Ptr<const Hardware::HardwareShadow>(&shadow))) {
    if (!text.empty()) text += "\n";
    text += complaint->stringValue();
  }
  return text;
}

using A = AuditedShadow;
constexpr Zint::Member auditedShadowMembers[] = {
    attribute<&A::maxEntriesPerSlice, &A::maxEntriesPerSliceIs>("maxEntriesPerSlice"),
    attribute<&A::sliceInterval, &A::sliceIntervalIs>("sliceInterval"),
    attribute<&A::turnBound, &A::turnBoundIs>("turnBound"),
    attribute<&A::judgeAtOnce, &A::judgeAtOnceIs>("judgeAtOnce"),
    attribute<&A::rereads, &A::rereadsIs>("rereads"),
    attribute<&A::verifies, &A::verifiesIs>("verifies"),
    attribute<&A::maxRepairsPerTurn, &A::maxRepairsPerTurnIs>("maxRepairsPerTurn"),
    attribute<&A::maxRepairsPerPass, &A::maxRepairsPerPassIs>("maxRepairsPerPass"),
    attribute<&A::quarantineRepairs, &A::quarantineRepairsIs>("quarantineRepairs"),
    attribute<&A::quarantineTime, &A::quarantineTimeIs>("quarantineTime"),
    attribute<&A::quarantineVisits, &A::quarantineVisitsIs>("quarantineVisits"),
    attribute<&A::findsResets, &A::findsResetsIs>("findsResets"),
    attribute<&A::paused, &A::pausedIs>("paused"),
    readOnly<&A::patrolState>("patrolState"),
    readOnly<&A::patrolReason>("patrolReason"),
    readOnly<&A::patrolSince>("patrolSince"),
    readOnly<&A::nextTry>("nextTry"),
    readOnly<&A::passEntries>("passEntries"),
    readOnly<&A::passEntriesDone>("passEntriesDone"),
    readOnly<&passPeriodsByName>("passPeriods"),
    readOnly<&A::lastPassTime>("lastPassTime"),
    readOnly<&A::lastPassAge>("lastPassAge"),
    readOnly<&A::findings>("findings"),
    readOnly<&A::repairs>("repairs"),
    readOnly<&A::transients>("transients"),
    readOnly<&A::quarantined>("quarantined"),
    operation<&A::policyIs>("policyIs", "policy"),
    operation<&A::policy>("policy", "chipMemory"),
    operation<&A::chipIs>("chipIs", "chip"),
    operation<&A::chip>("chip", "chipMemory"),
    operation<&A::policyText>("policyText", "chipMemory", "entry"),
    operation<&doAuditByName>("doAudit", "chipMemory", "first", "count"),
    operation<&A::isQuarantined>("isQuarantined", "chipMemory", "entry"),
    operation<&A::quarantineDel>("quarantineDel", "chipMemory", "entry"),
    operation<&A::hasOpenFinding>("hasOpenFinding", "chipMemory", "entry"),
    operation<&A::isWritten>("isWritten", "chipMemory", "entry"),
    attribute<&A::maxEntriesPerReplaySlice, &A::maxEntriesPerReplaySliceIs>(
        "maxEntriesPerReplaySlice"),
    attribute<&A::replayInterval, &A::replayIntervalIs>("replayInterval"),
    readOnly<&A::governor>("governor"),
    operation<&checkByName>("check"),
};
ZINT_CHECK_IDS(AuditedShadow, auditedShadowMembers, Hardware::HardwareShadow::Id::lastMember + 1,
               maxEntriesPerSlice, sliceInterval, turnBound, judgeAtOnce, rereads, verifies,
               maxRepairsPerTurn, maxRepairsPerPass, quarantineRepairs, quarantineTime,
               quarantineVisits, findsResets, paused, patrolState, patrolReason, patrolSince,
               nextTry, passEntries, passEntriesDone, passPeriods, lastPassTime, lastPassAge,
               findings, repairs, transients, quarantined, policyIs, policy, chipIs, chip,
               policyText, doAudit, isQuarantined, quarantineDel, hasOpenFinding, isWritten,
               maxEntriesPerReplaySlice, replayInterval, governor, check);

}  // namespace

constexpr Zint::Type patrolStateType =
    describe<PatrolState>("enumeration", nullptr, patrolStateMembers);
constexpr Zint::Type auditedShadowType =
    describe<AuditedShadow>(countedObject, &Hardware::hardwareShadowType, auditedShadowMembers);

}  // namespace Driver
