#include <Driver/ChipWriter.h>
#include <Driver/Driver.h>
#include <Zint/Accessors.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::operation;
using Zint::readOnly;

using W = ChipWriter;

Zint::String8 remarksByName(const W& writer) { return stringValue(writer.remarks()); }
Zint::String8 differencesByName(const W& writer) { return stringValue(writer.differences()); }
Zint::String8 planByName(const W& writer) { return writer.plan().stringValue(); }
Zint::String8 diffByName(const W& writer) { return stringValue(writer.doDiff()); }

constexpr Zint::Member chipWriterMembers[] = {
    attribute<&W::zintFwkActivity, &W::zintFwkActivityIs>("zintFwkActivity"),
    attribute<&W::shadow, &W::shadowIs>("shadow").says("whose entries it writes"),
    attribute<&W::request, &W::requestIs>("request").says("what it writes"),
    attribute<&W::clock, &W::clockIs>("clock").says("the clock that its slices follow"),
    attribute<&W::maxEntriesPerWrite, &W::maxEntriesPerWriteIs>("maxEntriesPerWrite")
        .in("entries")
        .says("entries of an access at most")
        .needs(Zint::Level::operate),
    attribute<&W::maxEntriesPerSlice, &W::maxEntriesPerSliceIs>("maxEntriesPerSlice")
        .in("entries")
        .says("entries of a slice at most")
        .needs(Zint::Level::operate),
    attribute<&W::writeInterval, &W::writeIntervalIs>("writeInterval")
        .says("time from one slice to the next")
        .needs(Zint::Level::operate),
    attribute<&W::accessCost, &W::accessCostIs>("accessCost")
        .says("time that an access is expected to take"),
    attribute<&W::verifies, &W::verifiesIs>("verifies")
        .says("whether what was written is read back")
        .needs(Zint::Level::operate),
    readOnly<&W::currentChipMemory>("currentChipMemory").says("the region that is being written"),
    readOnly<&W::entriesToWrite>("entriesToWrite")
        .in("entries")
        .says("entries that the replay writes"),
    readOnly<&W::entriesWritten>("entriesWritten").in("entries").says("entries that were written"),
    readOnly<&W::entriesRewritten>("entriesRewritten")
        .in("entries")
        .says("entries that were written again"),
    readOnly<&W::isInterrupted>("isInterrupted").says("whether an access has ended the replay"),
    readOnly<&W::reason>("reason").says("why"),
    readOnly<&remarksByName>("remarks").says("what was held, skipped or not repeated"),
    readOnly<&differencesByName>("differences").says("entries that were read back differently"),
    readOnly<&planByName>("plan").says("what a replay would write"),
    operation<&diffByName>("doDiff").says("compares shadow and chip").needs(Zint::Level::operate),
    operation<&W::doWrite>("doWrite").says("writes the next slice").needs(Zint::Level::operate),
    operation<&W::doResume>("doResume")
        .says("goes on after an interruption")
        .needs(Zint::Level::operate),
    operation<&W::doLeaveBuffered>("doLeaveBuffered", "chipMemory"),
    operation<&W::handleWriteRequest>("handleWriteRequest"),
    operation<&W::hasNotificationActiveIs>("hasNotificationActiveIs", "hasNotificationActive"),
    operation<&W::zintDoZombieReactors>("zintDoZombieReactors", "zombie"),
};
ZINT_CHECK_IDS(ChipWriter, chipWriterMembers, Zint::firstAttributeId, zintFwkActivity, shadow,
               request, clock, maxEntriesPerWrite, maxEntriesPerSlice, writeInterval, accessCost,
               verifies, currentChipMemory, entriesToWrite, entriesWritten, entriesRewritten,
               isInterrupted, reason, remarks, differences, plan, doDiff, doWrite, doResume,
               doLeaveBuffered, handleWriteRequest, hasNotificationActiveIs, zintDoZombieReactors);

}  // namespace

constexpr Zint::Type chipWriterType =
    describe<ChipWriter>(countedObject, nullptr, chipWriterMembers);

}  // namespace Driver
