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
    attribute<&A::maxEntriesPerSlice, &A::maxEntriesPerSliceIs>("maxEntriesPerSlice")
        .in("entries")
        .says("entries that a turn reads at most")
        .needs(Zint::Level::operate),
    attribute<&A::sliceInterval, &A::sliceIntervalIs>("sliceInterval")
        .says("time from the end of one slice to the next")
        .needs(Zint::Level::operate),
    attribute<&A::turnBound, &A::turnBoundIs>("turnBound")
        .says("how long a turn may take")
        .needs(Zint::Level::operate),
    attribute<&A::judgeAtOnce, &A::judgeAtOnceIs>("judgeAtOnce")
        .says("whether marks are cleared before a slice is read"),
    attribute<&A::rereads, &A::rereadsIs>("rereads")
        .says("whether an entry is read again before it is repaired")
        .needs(Zint::Level::operate),
    attribute<&A::verifies, &A::verifiesIs>("verifies")
        .says("whether an entry is read again after it was repaired")
        .needs(Zint::Level::operate),
    attribute<&A::maxRepairsPerTurn, &A::maxRepairsPerTurnIs>("maxRepairsPerTurn")
        .in("repairs")
        .says("repairs of a turn at most")
        .needs(Zint::Level::operate),
    attribute<&A::maxRepairsPerPass, &A::maxRepairsPerPassIs>("maxRepairsPerPass")
        .in("repairs")
        .says("repairs of a pass at most")
        .needs(Zint::Level::operate),
    attribute<&A::quarantineRepairs, &A::quarantineRepairsIs>("quarantineRepairs")
        .in("repairs")
        .says("repairs within the quarantine time that put an entry into quarantine")
        .needs(Zint::Level::operate),
    attribute<&A::quarantineTime, &A::quarantineTimeIs>("quarantineTime")
        .says("the time in which they count")
        .needs(Zint::Level::operate),
    attribute<&A::quarantineVisits, &A::quarantineVisitsIs>("quarantineVisits")
        .in("visits")
        .says("equal visits after which an entry leaves quarantine")
        .needs(Zint::Level::operate),
    attribute<&A::findsResets, &A::findsResetsIs>("findsResets")
        .says("whether a reset of the chip is looked for")
        .needs(Zint::Level::operate),
    attribute<&A::paused, &A::pausedIs>("paused")
        .says("whether somebody has paused the patrol")
        .needs(Zint::Level::operate),
    readOnly<&A::patrolState>("patrolState").says("what the patrol does"),
    readOnly<&A::patrolReason>("patrolReason").says("why it does nothing"),
    readOnly<&A::patrolSince>("patrolSince").says("since when"),
    readOnly<&A::nextTry>("nextTry").says("when a suspended patrol tries again"),
    readOnly<&A::passEntries>("passEntries").in("entries").says("entries of the pass under way"),
    readOnly<&A::passEntriesDone>("passEntriesDone")
        .in("entries")
        .says("entries of it that are done"),
    readOnly<&passPeriodsByName>("passPeriods").says("from start to start of the last passes"),
    readOnly<&A::lastPassTime>("lastPassTime").says("when the last complete pass ended"),
    readOnly<&A::lastPassAge>("lastPassAge").says("time since the last complete pass"),
    readOnly<&A::findings>("findings").says("entries that differed"),
    readOnly<&A::repairs>("repairs").says("entries that were rewritten"),
    readOnly<&A::transients>("transients").says("findings that were equal at the second look"),
    readOnly<&A::quarantined>("quarantined").in("entries").says("entries in quarantine"),
    operation<&A::policyIs>("policyIs", "policy").says("sets the policy of a region"),
    operation<&A::policy>("policy", "chipMemory")
        .says("the policy of a region")
        .needs(Zint::Level::look),
    operation<&A::chipIs>("chipIs", "chip"),
    operation<&A::chip>("chip", "chipMemory").says("the chip of a region").needs(Zint::Level::look),
    operation<&A::policyText>("policyText", "chipMemory", "entry")
        .says("what the policy does with an entry")
        .needs(Zint::Level::look),
    operation<&doAuditByName>("doAudit", "chipMemory", "first", "count")
        .says("reads and judges entries at once")
        .needs(Zint::Level::operate),
    operation<&A::isQuarantined>("isQuarantined", "chipMemory", "entry")
        .says("whether an entry is in quarantine")
        .needs(Zint::Level::look),
    operation<&A::quarantineDel>("quarantineDel", "chipMemory", "entry")
        .says("lets an entry out of quarantine")
        .needs(Zint::Level::operate),
    operation<&A::hasOpenFinding>("hasOpenFinding", "chipMemory", "entry")
        .says("whether an entry was found different and not repaired")
        .needs(Zint::Level::look),
    operation<&A::isWritten>("isWritten", "chipMemory", "entry")
        .says("whether a client has written the entry")
        .needs(Zint::Level::look),
    attribute<&A::maxEntriesPerReplaySlice, &A::maxEntriesPerReplaySliceIs>(
        "maxEntriesPerReplaySlice")
        .in("entries")
        .says("entries that a turn of a replay writes at most")
        .needs(Zint::Level::operate),
    attribute<&A::replayInterval, &A::replayIntervalIs>("replayInterval")
        .says("time from one slice of a replay to the next")
        .needs(Zint::Level::operate),
    readOnly<&A::governor>("governor").says("what paces it"),
    operation<&checkByName>("check")
        .says("what will go wrong as it is set up")
        .needs(Zint::Level::operate),
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
