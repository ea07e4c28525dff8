#include <Driver/Driver.h>
#include <Driver/Governor.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::constructorParameter;
using Zint::readOnly;

using G = Governor;
constexpr Zint::Member governorMembers[] = {
    constructorParameter<&G::shadow>("shadow"),
    attribute<&G::period, &G::periodIs>("period"),
    attribute<&G::share, &G::shareIs>("share"),
    attribute<&G::turnBound, &G::turnBoundIs>("turnBound"),
    readOnly<&G::announcedPeriod>("announcedPeriod"),
    readOnly<&G::achievedShare>("achievedShare"),
    readOnly<&G::passWork>("passWork"),
    readOnly<&G::longestTurn>("longestTurn"),
    readOnly<&G::progress>("progress"),
    readOnly<&G::timeLeft>("timeLeft"),
    readOnly<&G::wishes>("wishes"),
};
ZINT_CHECK_IDS(Governor, governorMembers, Zint::firstAttributeId, shadow, period, share, turnBound,
               announcedPeriod, achievedShare, passWork, longestTurn, progress, timeLeft, wishes);

}  // namespace

constexpr Zint::Type governorType = describe<Governor>(countedObject, nullptr, governorMembers);

}  // namespace Driver
