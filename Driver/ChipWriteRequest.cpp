#include <Driver/ChipWriteRequest.h>

#include <Driver/Driver.h>
#include <Zint/Sizes.h>
#include <algorithm>
#include <cmath>

namespace Driver {
namespace {

// The place of the region at that address; null if there is none.
struct WritePlace {
  ChipWriteRequest::Group* group = nullptr;
  std::size_t index = 0;
};

WritePlace findWritePlace(std::vector<ChipWriteRequest::Group>& groups,
                          const Hardware::ChipAddress& address) {
  for (ChipWriteRequest::Group& group : groups) {
    for (std::size_t i = 0; i < group.chipMemory.size(); ++i) {
      if (group.chipMemory[i]->address() == address) return {&group, i};
    }
  }
  return {};
}

}  // namespace

ChipWriteRequest::~ChipWriteRequest() = default;
ChipWriteRequest::NotifieeConst::~NotifieeConst() = default;

Zint::Ptr<ChipWriteRequest> chipWriteRequestFactory(Zint::Name name) {
  return Zint::makePtr<ChipWriteRequest>(std::move(name));
}

const Zint::Type* ChipWriteRequest::fwkType() const { return &chipWriteRequestType; }

Hardware::ChipMemory::Ptr ChipWriteRequest::chipMemory(const ChipAddress& address) const {
  for (const Group& group : groups_) {
    for (const ChipMemory::Ptr& region : group.chipMemory) {
      if (region->address() == address) return region;
    }
  }
  return nullptr;
}

U32 ChipWriteRequest::chipMemorys() const {
  U32 count = 0;
  for (const Group& group : groups_) count += Zint::countOf(group.chipMemory);
  return count;
}

std::vector<Hardware::ChipAddress> ChipWriteRequest::chipMemoryAddresses() const {
  std::vector<ChipAddress> addresses;
  for (const Group& group : groups_) {
    for (const ChipMemory::Ptr& region : group.chipMemory) addresses.push_back(region->address());
  }
  return addresses;
}

bool ChipWriteRequest::holds(const ChipMemory::Ptr& region) const {
  return region != nullptr && chipMemory(region->address()) == region;
}

void ChipWriteRequest::chipMemoryIs(const ChipMemory::Ptr& region) {
  const ChipMemory::Ptr cm = refuseNull(
      region,
      "null _chipMemory parameter to mutator for Driver::ChipWriteRequest::chipMemory not "
      "allowed\"");
  const Ptr self(this);  // the destructor of a replaced region may drop this request
  ChipMemory::Ptr replaced;
  groups_.back().chipMemory.reserve(groups_.back().chipMemory.size() + 1);
  if (const WritePlace place = findWritePlace(groups_, cm->address()); place.group != nullptr) {
    std::vector<ChipMemory::Ptr>& regions = place.group->chipMemory;
    replaced = regions[place.index];
    regions.erase(regions.begin() + static_cast<std::ptrdiff_t>(place.index));
  }
  groups_.back().chipMemory.push_back(cm);
  replaced = nullptr;
  notify(Id::chipMemory);
}

void ChipWriteRequest::chipMemoryDel(const ChipMemory::Ptr& region) {
  if (!holds(region)) return;
  const Ptr self(this);
  const ChipMemory::Ptr held = region;  // `region` may be the member itself
  const WritePlace place = findWritePlace(groups_, held->address());
  std::vector<ChipMemory::Ptr>& regions = place.group->chipMemory;
  regions.erase(regions.begin() + static_cast<std::ptrdiff_t>(place.index));
  notify(Id::chipMemory);
}

void ChipWriteRequest::chipMemoryDelAll() {
  const Ptr self(this);
  std::vector<Group> groups(1);
  groups_.swap(groups);
  groups.clear();
  notify(Id::chipMemory);
}

void ChipWriteRequest::newGroup(const Zint::Seconds& delay) {
  if (!std::isfinite(delay) || delay < 0) {
    Zint::throwRangeException("the delay of a group must be finite and not negative");
  }
  groups_.push_back({delay, {}});
  notify(Id::chipMemory);
}

void ChipWriteRequest::includesAdoptedIs(bool includesAdopted) {
  if (Zint::updated(includesAdopted_, includesAdopted)) notify(Id::includesAdopted);
}

void ChipWriteRequest::leavesBufferedIs(bool leavesBuffered) {
  if (Zint::updated(leavesBuffered_, leavesBuffered)) notify(Id::leavesBuffered);
}

Zint::String8 ChipWriteRequest::stringValue() const {
  Zint::String8 text;
  for (const Group& group : groups_) {
    if (&group != &groups_.front()) {
      text += group.delay == 0 ? Zint::String8("; ")
                               : "; after " + Zint::valueToStrep(group.delay) + " s: ";
    }
    for (const ChipMemory::Ptr& region : group.chipMemory) {
      if (region != group.chipMemory.front()) text += ", ";
      text += region->name();
    }
  }
  return text;
}

// --- Notifiees ---

ChipWriteRequest::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                               const Zint::Ptr<const ChipWriteRequest>& request,
                                               bool active)
    : Request::NotifieeConst(activity, request, active) {}

void ChipWriteRequest::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::chipMemory:
      return onChipMemory();
    case Id::includesAdopted:
      return onIncludesAdopted();
    case Id::leavesBuffered:
      return onLeavesBuffered();
    default:
      return Request::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Driver
