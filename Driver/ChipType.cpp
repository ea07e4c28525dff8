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
    constructorParameter<&Chip::chipHam>("chipHam"),
    readOnly<&Chip::isAbsent>("isAbsent"),
    readOnly<&Chip::reason>("reason"),
    readOnly<&Chip::since>("since"),
    readOnly<&Chip::nextTry>("nextTry"),
    readOnly<&Chip::tries>("tries"),
    readOnly<&Chip::absences>("absences"),
    attribute<&Chip::retryMin, &Chip::retryMinIs>("retryMin"),
    attribute<&Chip::retryMax, &Chip::retryMaxIs>("retryMax"),
    readOnly<&Chip::isRestoring>("isRestoring"),
    readOnly<&Chip::resets>("resets"),
    attribute<&Chip::restoresItself, &Chip::restoresItselfIs>("restoresItself"),
    attribute<&Chip::replay, &Chip::replayIs>("replay"),
    operation<&Chip::doChipReset>("doChipReset"),
    operation<&Chip::doRestored>("doRestored"),
    operation<&Chip::isPresent>("isPresent"),
    operation<&Chip::wasReset>("wasReset"),
    readOnly<&Chip::audits>("audits"),
    operation<&sentinelIsByName>("sentinelIs", "address", "?value", "?mask"),
};
ZINT_CHECK_IDS(Chip, chipMembers, Zint::Entity::Id::isNondestructing + 1, chipHam, isAbsent, reason,
               since, nextTry, tries, absences, retryMin, retryMax, isRestoring, resets,
               restoresItself, replay, doChipReset, doRestored, isPresent, wasReset, audits,
               sentinelIs);

}  // namespace

constexpr Zint::Type chipType = describe<Chip>("entity", &Zint::entityType, chipMembers);

}  // namespace Driver
