#include <telemetry/RegionFigures.h>
#include <telemetry/Telemetry.h>

namespace Telemetry {
namespace {

using Zint::readOnly;
using F = RegionFigures;

constexpr Zint::Member regionFiguresMembers[] = {
    readOnly<&F::findings>("findings").says("entries that differed"),
    readOnly<&F::repairs>("repairs").says("entries that were rewritten"),
    readOnly<&F::adoptions>("adoptions").says("entries whose values became known"),
    readOnly<&F::writtenMeanwhile>("writtenMeanwhile")
        .says("differences that prove nothing: a client wrote the entry"),
    readOnly<&F::detectOnly>("detectOnly").says("findings whose rule forbids to rewrite"),
    readOnly<&F::deferred>("deferred").says("findings that are rewritten later"),
    readOnly<&F::refused>("refused").says("repairs that a notifiee vetoed"),
    readOnly<&F::transients>("transients").says("findings that were equal at the second look"),
    readOnly<&F::inQuarantine>("inQuarantine").says("findings of entries in quarantine"),
    readOnly<&F::failedRepairs>("failedRepairs").says("repairs at which the access failed"),
    readOnly<&F::lostByReset>("lostByReset").says("entries that differed after a reset"),
    readOnly<&F::softRepairs>("softRepairs").says("repairs that hold"),
    readOnly<&F::recurringRepairs>("recurringRepairs")
        .says("repairs of entries that were repaired not long ago"),
    readOnly<&F::stuckRepairs>("stuckRepairs").says("repairs without effect"),
    readOnly<&F::lastFindingTime>("lastFindingTime")
        .in("seconds since 1970")
        .says("time of the last finding"),
    readOnly<&F::findingsIn5s>("findingsIn5s").says("findings in the last 5 seconds"),
    readOnly<&F::findingsIn1m>("findingsIn1m").says("findings in the last minute"),
    readOnly<&F::findingsIn1h>("findingsIn1h").says("findings in the last hour"),
};

}  // namespace

constexpr Zint::Type regionFiguresType{Zint::typeNameOf<RegionFigures>(), "value", nullptr,
                                       regionFiguresMembers};

}  // namespace Telemetry
