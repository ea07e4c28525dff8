#include <Driver/Check.h>
#include <Driver/Driver.h>

namespace Driver {
namespace {

using Zint::constructorParameter;

constexpr Zint::Member kindRow(const char* name, ComplaintKind kind) {
  return Zint::enumerator(name, static_cast<S32>(kind));
}

constexpr Zint::Member complaintKindMembers[] = {
    kindRow("overlap", ComplaintKind::overlap),
    kindRow("replaced", ComplaintKind::replaced),
    kindRow("wrappingSpan", ComplaintKind::wrappingSpan),
    kindRow("stride", ComplaintKind::stride),
    kindRow("wordSize", ComplaintKind::wordSize),
    kindRow("zeroSize", ComplaintKind::zeroSize),
    kindRow("smallBuffer", ComplaintKind::smallBuffer),
    kindRow("neverRead", ComplaintKind::neverRead),
    kindRow("neverCompared", ComplaintKind::neverCompared),
    kindRow("auditedTwice", ComplaintKind::auditedTwice),
    kindRow("bufferedAudit", ComplaintKind::bufferedAudit),
    kindRow("skippedVolatile", ComplaintKind::skippedVolatile),
    kindRow("overriddenAudit", ComplaintKind::overriddenAudit),
    kindRow("zeroInterval", ComplaintKind::zeroInterval),
    kindRow("longSlice", ComplaintKind::longSlice),
    kindRow("unmatchedRun", ComplaintKind::unmatchedRun),
};

constexpr Zint::Member complaintMembers[] = {
    constructorParameter<&Complaint::kind>("kind"),
    constructorParameter<&Complaint::subject>("subject"),
    constructorParameter<&Complaint::text>("text"),
    constructorParameter<&Complaint::remedy>("remedy"),
};
ZINT_CHECK_IDS(Complaint, complaintMembers, Zint::firstAttributeId, kind, subject, text, remedy);

}  // namespace

constexpr Zint::Type complaintKindType =
    describe<ComplaintKind>("enumeration", nullptr, complaintKindMembers);
constexpr Zint::Type complaintType = describe<Complaint>(countedObject, nullptr, complaintMembers);

}  // namespace Driver
