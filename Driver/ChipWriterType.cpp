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
    attribute<&W::shadow, &W::shadowIs>("shadow"),
    attribute<&W::request, &W::requestIs>("request"),
    attribute<&W::clock, &W::clockIs>("clock"),
    attribute<&W::maxEntriesPerWrite, &W::maxEntriesPerWriteIs>("maxEntriesPerWrite"),
    attribute<&W::maxEntriesPerSlice, &W::maxEntriesPerSliceIs>("maxEntriesPerSlice"),
    attribute<&W::writeInterval, &W::writeIntervalIs>("writeInterval"),
    attribute<&W::accessCost, &W::accessCostIs>("accessCost"),
    attribute<&W::verifies, &W::verifiesIs>("verifies"),
    readOnly<&W::currentChipMemory>("currentChipMemory"),
    readOnly<&W::entriesToWrite>("entriesToWrite"),
    readOnly<&W::entriesWritten>("entriesWritten"),
    readOnly<&W::entriesRewritten>("entriesRewritten"),
    readOnly<&W::isInterrupted>("isInterrupted"),
    readOnly<&W::reason>("reason"),
    readOnly<&remarksByName>("remarks"),
    readOnly<&differencesByName>("differences"),
    readOnly<&planByName>("plan"),
    operation<&diffByName>("doDiff"),
    operation<&W::doWrite>("doWrite"),
    operation<&W::doResume>("doResume"),
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
