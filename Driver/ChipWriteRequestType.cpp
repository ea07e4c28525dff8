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

using R = ChipWriteRequest;

void removeFromWriteRequest(R& request, Hardware::ChipAddress address) {
  request.chipMemoryDel(request.chipMemory(address));
}

R::ChipMemory::Ptr appendToWriteRequest(R& request, R::ChipMemory::Ptr region) {
  request.chipMemoryIs(region);
  return region;
}

constexpr Zint::ListAccess writeRequestRegions =
    Zint::mapList<&R::chipMemory, &R::chipMemorys, &R::chipMemoryAddresses, &removeFromWriteRequest,
                  &R::chipMemoryDelAll, &appendToWriteRequest>("address", "chipMemory");

constexpr Zint::Member chipWriteRequestMembers[] = {
    collection("chipMemory", writeRequestRegions)
        .says("the regions that are written, in this order"),
    operation<&R::newGroup>("newGroup", "delay"),
    attribute<&R::includesAdopted, &R::includesAdoptedIs>("includesAdopted")
        .says("whether known entries that nobody wrote are written"),
    attribute<&R::leavesBuffered, &R::leavesBufferedIs>("leavesBuffered")
        .says("whether buffered regions become normal"),
    readOnly<&R::stringValue>("stringValue").says("the request as a text"),
};
ZINT_CHECK_IDS(ChipWriteRequest, chipWriteRequestMembers, Zint::Request::Id::generation + 1,
               chipMemory, newGroup, includesAdopted, leavesBuffered, stringValue);

}  // namespace

constexpr Zint::Type chipWriteRequestType =
    describe<ChipWriteRequest>("request entity", &Zint::requestType, chipWriteRequestMembers);

}  // namespace Driver
