#include <Hardware/ChipReadRequest.h>
#include <Hardware/Umbra.h>

namespace Hardware {

ChipReadRequest::~ChipReadRequest() = default;
ChipReadRequest::NotifieeConst::~NotifieeConst() = default;

Zint::Ptr<ChipReadRequest> chipReadRequestFactory(Zint::Name name) {
  return Zint::makePtr<ChipReadRequest>(std::move(name));
}

const Zint::Type* ChipReadRequest::fwkType() const { return &chipReadRequestType; }

ChipMemory::Ptr ChipReadRequest::chipMemory(const ChipAddress& address) const {
  const ZintChipMemory* member = chipMemory_.find(address);
  return member == nullptr ? nullptr : member->chipMemory();
}

void ChipReadRequest::chipMemoryIs(const ChipMemory::Ptr& chipMemory) {
  if (chipMemory == nullptr) {
    Zint::throwRangeException(
        "null _chipMemory parameter to mutator for Hardware::ChipReadRequest::chipMemory not "
        "allowed\"");
  }
  const Ptr self(this);  // a replaced region's end may drop this request
  const ChipAddress address = chipMemory->address();
  if (ZintChipMemory* member = chipMemory_.find(address); member == nullptr) {
    newChipMemory(chipMemory);
  } else if (member->chipMemory() == chipMemory) {
    return;
  } else {
    member->chipMemoryIs(chipMemory);
  }
  chipMemoryNotify(address);
}

void ChipReadRequest::newChipMemory(const ChipMemory::Ptr& chipMemory) {
  chipMemory_.insert(Zint::makePtr<ZintChipMemory>(chipMemory));
}

ChipMemory::Ptr ChipReadRequest::chipMemoryDel(const ChipAddress& address) {
  const Zint::Ptr<ZintChipMemory> member = chipMemory_.del(address);
  if (member == nullptr) return nullptr;
  const ChipAddress removed = member->fwkKey();  // the argument may have gone with the region
  chipMemoryNotify(removed);
  return member->chipMemory();
}

void ChipReadRequest::chipMemoryDelAll() {
  const Ptr self(this);
  for (auto member = chipMemory_.iterator(); member; ++member) chipMemoryDel(member->fwkKey());
}

void ChipReadRequest::chipMemoryNotify(const ChipAddress& address) {
  notifyEach<NotifieeConst>(Id::chipMemory, [&address](NotifieeConst& notifiee) {
    notifiee.onChipMemoryzintImmediate();
    notifiee.onChipMemory(address);
  });
}

ChipReadRequest::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                              const Zint::Ptr<const ChipReadRequest>& request,
                                              bool active)
    : Request::NotifieeConst(activity, request, active) {}

void ChipReadRequest::NotifieeConst::onChipMemory(const ChipAddress&) { onChipMemory(); }

}  // namespace Hardware
