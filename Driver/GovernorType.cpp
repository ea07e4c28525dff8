#include <Driver/Driver.h>
#include <Driver/Governor.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::constructorParameter;
using Zint::readOnly;

using G = Governor;
constexpr Zint::Member governorMembers[] = {
    constructorParameter<&G::shadow>("shadow").says("the shadow that it governs"),
    attribute<&G::period, &G::periodIs>("period")
        .says("wished time from pass to pass")
        .needs(Zint::Level::operate),
    attribute<&G::share, &G::shareIs>("share")
        .in("ratio")
        .says("wished share of the thread's time")
        .needs(Zint::Level::operate),
    attribute<&G::turnBound, &G::turnBoundIs>("turnBound")
        .says("how long a turn may take")
        .needs(Zint::Level::operate),
    readOnly<&G::announcedPeriod>("announcedPeriod")
        .says("time from pass to pass that will be kept"),
    readOnly<&G::achievedShare>("achievedShare")
        .in("ratio")
        .says("share of the thread's time that the patrol takes"),
    readOnly<&G::passWork>("passWork").says("time of the thread that a pass takes"),
    readOnly<&G::longestTurn>("longestTurn").says("longest turn so far"),
    readOnly<&G::progress>("progress").in("ratio").says("how much of the pass is done"),
    readOnly<&G::timeLeft>("timeLeft").says("time until the pass ends"),
    readOnly<&G::wishes>("wishes").says("which wishes are kept"),
};
ZINT_CHECK_IDS(Governor, governorMembers, Zint::firstAttributeId, shadow, period, share, turnBound,
               announcedPeriod, achievedShare, passWork, longestTurn, progress, timeLeft, wishes);

}  // namespace

constexpr Zint::Type governorType = describe<Governor>(countedObject, nullptr, governorMembers);

}  // namespace Driver
