#include <Hardware/ChipReadRequest.h>

#include <Hardware/Umbra.h>

namespace Hardware {
namespace {

constexpr const char* nullRequestMember =
    "null _chipMemory parameter to mutator for Hardware::ChipReadRequest::chipMemory not allowed\"";

}  // namespace

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
  const ChipMemory::Ptr cm = refuseNull(chipMemory, nullRequestMember);
  const Ptr self(this);  // the destructor of a replaced region may drop this request
  const Zint::Ptr<ZintChipMemory> member = chipMemory_.find(cm->address());
  if (member == nullptr) {
    newChipMemory(cm);
  } else if (member->chipMemory() == cm) {
    return;
  } else {
    member->chipMemoryIs(cm);
  }
  chipMemoryNotify(cm->address());
}

void ChipReadRequest::newChipMemory(const ChipMemory::Ptr& chipMemory) {
  chipMemory_.insert(Zint::makePtr<ZintChipMemory>(refuseNull(chipMemory, nullRequestMember)));
}

void ChipReadRequest::ZintChipMemory::chipMemoryIs(const ChipMemory::Ptr& chipMemory) {
  chipMemory_ = refuseNull(chipMemory, nullRequestMember);
}

ChipMemory::Ptr ChipReadRequest::chipMemoryDel(const ChipAddress& address) {
  const Zint::Ptr<ZintChipMemory> member = chipMemory_.del(address);
  if (member == nullptr) return nullptr;
  chipMemoryNotify(member->fwkKey());
  return member->chipMemory();
}

void ChipReadRequest::chipMemoryDelAll() {
  const Ptr self(this);
  for (auto member = chipMemory_.iterator(); member; ++member) chipMemoryDel(member->fwkKey());
}

void ChipReadRequest::chipMemoryNotify(const ChipAddress& address) {
  const ChipAddress changed = address;
  notifyEach<NotifieeConst>(Id::chipMemory, [&changed](NotifieeConst& notifiee) {
    notifiee.onChipMemoryzintImmediate();
    notifiee.onChipMemory(changed);
  });
}

ChipReadRequest::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                              const Zint::Ptr<const ChipReadRequest>& request,
                                              bool active)
    : Request::NotifieeConst(activity, request, active) {}

void ChipReadRequest::NotifieeConst::onChipMemory(const ChipAddress&) { onChipMemory(); }

}  // namespace Hardware
