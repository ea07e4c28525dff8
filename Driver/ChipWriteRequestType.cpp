#include <Driver/ChipWriteRequest.h>
#include <Driver/Driver.h>
#include <Zint/Accessors.h>
#include <Zint/Collections.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::collection;
using Zint::operation;
using Zint::readOnly;

using W = ChipWriteRequest;

void removeFromWriteRequest(W& request, Hardware::ChipAddress address) {
  request.chipMemoryDel(request.chipMemory(address));
}

W::ChipMemory::Ptr appendToWriteRequest(W& request, W::ChipMemory::Ptr region) {
  request.chipMemoryIs(region);
  return region;
}

constexpr Zint::ListAccess writeRequestRegions =
    Zint::mapList<&W::chipMemory, &W::chipMemorys, &W::chipMemoryAddresses, &removeFromWriteRequest,
                  &W::chipMemoryDelAll, &appendToWriteRequest>("address", "chipMemory");

constexpr Zint::Member chipWriteRequestMembers[] = {
    collection("chipMemory", writeRequestRegions)
        .says("the regions that are written, in this order"),
    operation<&W::newGroup>("newGroup", "delay"),
    attribute<&W::includesAdopted, &W::includesAdoptedIs>("includesAdopted")
        .says("whether known entries that nobody wrote are written"),
    attribute<&W::leavesBuffered, &W::leavesBufferedIs>("leavesBuffered")
        .says("whether buffered regions become normal"),
    readOnly<&W::stringValue>("stringValue").says("the request as a text"),
};
ZINT_CHECK_IDS(ChipWriteRequest, chipWriteRequestMembers, Zint::Request::Id::generation + 1,
               chipMemory, newGroup, includesAdopted, leavesBuffered, stringValue);

}  // namespace

constexpr Zint::Type chipWriteRequestType =
    describe<ChipWriteRequest>("request entity", &Zint::requestType, chipWriteRequestMembers);

}  // namespace Driver
