#include <telemetry/Publisher.h>
#include <telemetry/Telemetry.h>

namespace Telemetry {
namespace {

using Zint::operation;
using Zint::readOnly;
using P = Publisher;

constexpr Zint::Member publisherMembers[] = {
    readOnly<&P::directory>("directory").says("where its files are"),
    readOnly<&P::publications>("publications").in("rows").says("rows that were written"),
    readOnly<&P::notFit>("notFit").in("objects").says("objects that found no row"),
    readOnly<&P::fileBytes>("fileBytes").in("bytes").says("size of the live view"),
    readOnly<&P::events>("events").says("number of the newest event"),
    readOnly<&P::eventsSuppressed>("eventsSuppressed")
        .in("events")
        .says("events that a limiter kept out of the log"),
    readOnly<&P::errors>("errors").says("what went wrong with the files"),
    readOnly<&P::lastError>("lastError").says("the last of it"),
    readOnly<&P::longestTurn>("longestTurn").says("time that a turn took at most"),
    operation<&P::doPublish>("doPublish").says("all rows show what is there now"),
};
ZINT_CHECK_IDS(Publisher, publisherMembers, Zint::Entity::Id::isNondestructing + 1, directory,
               publications, notFit, fileBytes, events, eventsSuppressed, errors, lastError,
               longestTurn, doPublish);

}  // namespace

constexpr Zint::Type publisherType{Zint::typeNameOf<Publisher>(), "entity", &Zint::entityType,
                                   publisherMembers};

}  // namespace Telemetry
