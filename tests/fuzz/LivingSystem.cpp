#include "fuzz/LivingSystem.h"

#include <Zint/ObjectText.h>

namespace Fuzz {

namespace {

constexpr std::size_t maxObjects = 24;
constexpr U32 maxShown = 64;  // members of a collection

void add(std::string& state, std::string_view name, std::string_view text) {
  state += "  ";
  state += name;
  state += "=";
  state += text;
  state += "\n";
}

}  // namespace

LivingSystem::LivingSystem() {
  using Hardware::ChipAddress;
  const Hardware::ChipHam::Ptr ham = Hardware::genericChipHamFactory("ham", chip_);
  const Hardware::ChipHam::Ptr bare = Zint::makePtr<Hardware::ChipHam>("it's bare");
  const auto region = [&ham](const char* name, U64 address, U32 entrySize) {
    const auto cm =
        Hardware::chipMemoryFactory(name, ChipAddress(address), 12, entrySize, entrySize, ham);
    cm->shadowEnabledIs(true);
    return cm;
  };
  const Hardware::ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  const Hardware::ChipMemory::Ptr route = region("route", 0x2000, 8);
  mac->auditEnabledIs(true);
  mac->doClear();
  const Hardware::HardwareShadow::Ptr shadow =
      Hardware::hardwareShadowFactory(loop_.activity, loop_.clock);
  shadow->chipMemoryIs(mac);
  shadow->chipMemoryIs(route);
  const auto request = Hardware::chipReadRequestFactory("audit");
  shadow->auditReadRequestIs(request);
  shadow->minIntervalBetweenAuditsIs(1);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  const auto reader = Hardware::chipReaderFactory(loop_.activity, request, loop_.clock, 4, 0.125);
  const auto directory = Hardware::chipMemoryBogonFactory("directory");
  const auto table = directory->chipMemoryIs("table", ChipAddress(0x100005000), 4, 4, 4, ham);
  objects_ = {shadow,
              mac,
              route,
              request,
              reader,
              directory,
              ham,
              shadow->chipMemoryChunkArray(0),
              bare,
              table,
              Zint::makePtr<Hal::Buf>(48u),
              Hardware::chipReadRequestFactory("another"),
              loop_.activity,
              loop_.clock,
              otherLoop_.activity,
              otherLoop_.clock,
              chip_};
}

void LivingSystem::joined(const Object& object) {
  if (object == nullptr || objects_.size() >= maxObjects) return;
  if (std::find(objects_.begin(), objects_.end(), object) == objects_.end()) {
    objects_.push_back(object);
  }
}

std::string LivingSystem::state() const {
  std::string state;
  for (const Object& object : objects_) {
    const Zint::Type& type = *object->fwkType();
    state += Zint::objectText(object.ptr()).bytes() + "\n";
    for (const Zint::Member* member : membersOf(type)) {
      if (member->get != nullptr) add(state, member->name, member->get(object.ptr()));
      if (member->list == nullptr) continue;
      const U32 size = member->list->size(object.ptr());
      add(state, member->name, std::to_string(size));
      if (size > maxShown) continue;
      for (const Zint::ListItem& item : member->list->items(object.ptr())) {
        add(state, item.key, item.value.text);
      }
    }
  }
  return state;
}

void LivingSystem::turn(Zint::Seconds time) {
  loop_.turnAt(loop_.clock->time() + time);
  otherLoop_.turnAt(otherLoop_.clock->time() + time);
}

std::vector<const Zint::Member*> membersOf(const Zint::Type& type) {
  std::vector<const Zint::Member*> members;
  if (type.base != nullptr) members = membersOf(*type.base);
  for (const Zint::Member& member : type.members) members.push_back(&member);
  return members;
}

}  // namespace Fuzz
