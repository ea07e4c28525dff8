#include <Driver/Chip.h>
#include <Driver/ChipWriteRequest.h>
#include <Driver/Driver.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::Bytes;
using Zint::constructorParameter;
using Zint::operation;
using Zint::readOnly;

void sentinelIsByName(Chip& chip, Hardware::ChipAddress address, Bytes value, Bytes mask) {
  chip.sentinelIs(address, value.bytes, mask.bytes);
}

constexpr Zint::Member chipMembers[] = {
    constructorParameter<&Chip::chipHam>("chipHam").says(
        "the access method that its sentinel is read by"),
    readOnly<&Chip::isAbsent>("isAbsent").says("whether it does not answer"),
    readOnly<&Chip::reason>("reason").says("why it is absent or being restored"),
    readOnly<&Chip::since>("since").says("since when"),
    readOnly<&Chip::nextTry>("nextTry").says("when it is tried again"),
    readOnly<&Chip::tries>("tries").says("tries since it is absent"),
    readOnly<&Chip::absences>("absences").says("how often it was absent"),
    attribute<&Chip::retryMin, &Chip::retryMinIs>("retryMin")
        .says("time to the first try")
        .needs(Zint::Level::operate),
    attribute<&Chip::retryMax, &Chip::retryMaxIs>("retryMax")
        .says("time between tries at most")
        .needs(Zint::Level::operate),
    readOnly<&Chip::isRestoring>("isRestoring").says("whether it is being restored after a reset"),
    readOnly<&Chip::resets>("resets").says("resets that were told or found"),
    attribute<&Chip::restoresItself, &Chip::restoresItselfIs>("restoresItself")
        .says("whether a replay follows a reset")
        .needs(Zint::Level::operate),
    attribute<&Chip::replay, &Chip::replayIs>("replay").says("what is replayed"),
    operation<&Chip::doChipReset>("doChipReset")
        .says("tells that it has lost its state")
        .needs(Zint::Level::operate),
    operation<&Chip::doRestored>("doRestored")
        .says("tells that it has been restored")
        .needs(Zint::Level::operate),
    operation<&Chip::isPresent>("isPresent")
        .says("whether it answers now")
        .needs(Zint::Level::operate),
    operation<&Chip::wasReset>("wasReset"),
    readOnly<&Chip::audits>("audits").says("whether its regions are audited"),
    operation<&sentinelIsByName>("sentinelIs", "address", "?value", "?mask"),
};
ZINT_CHECK_IDS(Chip, chipMembers, Zint::Entity::Id::isNondestructing + 1, chipHam, isAbsent, reason,
               since, nextTry, tries, absences, retryMin, retryMax, isRestoring, resets,
               restoresItself, replay, doChipReset, doRestored, isPresent, wasReset, audits,
               sentinelIs);

}  // namespace

constexpr Zint::Type chipType = describe<Chip>("entity", &Zint::entityType, chipMembers);

}  // namespace Driver
