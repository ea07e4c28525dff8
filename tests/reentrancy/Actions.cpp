// What user code does at a place where it was called. An action whose object is already destroyed
// (by an earlier action of the same call) does nothing.
#include <Zint/Exception.h>
#include <Zint/GenericIf.h>

#include "reentrancy/World.h"

namespace Reentrancy {
namespace {

using NotifieePtr = Zint::Ptr<Zint::NotifieeConst>;

void unregister(const NotifieePtr& notifiee) {
  if (notifiee == nullptr) return;
  if (auto* time = dynamic_cast<Zint::Clock::NotifieeConst*>(notifiee.ptr())) {
    time->timeMinIs(Zint::never);
  }
  notifiee->isRegisteredNotifieeIs(false);
}

// The notifiees release what they observe.
void unbind(World& world) {
  for (const NotifieePtr& notifiee : {world.earlier, world.self, world.later, world.added}) {
    if (notifiee != nullptr) notifiee->notifierIs(nullptr);
  }
}

void destroySelf(World& world) {
  switch (world.callback) {
    case Callback::HamRead:
    case Callback::HamWrite:
    case Callback::HamCompare:
    case Callback::HamStore:
      world.ham = nullptr;
      return;
    case Callback::Repair:
      world.shadow = nullptr;
      return;
    case Callback::IteratorBody:
      world.iterator.reset();
      return;
    default:
      world.self = nullptr;
  }
}

// The region leaves every collection, and so the index.
void destroyTarget(World& world) {
  if (world.target == nullptr) return;
  unbind(world);
  if (world.shadow != nullptr) {
    world.shadow->stateIs(HardwareShadow::unconfigured());
    world.shadow->chipMemoryDel(world.target->address());
  }
  if (world.directory != nullptr) world.directory->chipMemoryDel("target");
  world.ham = nullptr;
  world.target = nullptr;
}

void destroyNotifier(World& world) {
  switch (world.callback) {
    case Callback::ShadowState:
      unbind(world);
      world.shadow = nullptr;
      return;
    case Callback::RequestRegions:
      unbind(world);
      if (world.reader != nullptr) world.reader->requestDel();
      if (world.shadow != nullptr) world.shadow->auditReadRequestDel();
      return;
    case Callback::ReaderProgress:
      unbind(world);
      world.reader = nullptr;
      return;
    case Callback::DirectoryMember:
    case Callback::EntityEnd:
    case Callback::IteratorBody:
      unbind(world);
      world.directory = nullptr;
      return;
    case Callback::ClockTime:
      unbind(world);
      if (world.reader != nullptr) world.reader->clockDel();
      if (world.shadow != nullptr) world.shadow->clockDel();
      return;
    default:
      destroyTarget(world);
  }
}

void changeState(World& world) {
  if (world.shadow == nullptr) return;
  constexpr HardwareShadow::State next[] = {HardwareShadow::configured_,
                                            HardwareShadow::unconfigured_,
                                            HardwareShadow::auditing_, HardwareShadow::idle_};
  world.stateAsked = next[world.shadow->state()];
  world.shadow->stateIs(*world.stateAsked);
}

void deleteMember(World& world) {
  switch (world.callback) {
    case Callback::DirectoryMember:
    case Callback::EntityEnd:
    case Callback::IteratorBody:
      if (world.directory != nullptr) world.directory->chipMemoryDel("second");
      return;
    case Callback::RequestRegions:
      if (world.shadow == nullptr || world.shadow->auditReadRequest() == nullptr) return;
      world.shadow->auditReadRequest()->chipMemoryDel(ChipAddress(0x1000));
      return;
    case Callback::ReaderProgress:
      if (world.reader != nullptr) {
        world.reader->chipMemoryDel(world.reader->chipMemoryMetadata().head);
      }
      return;
    default:
      if (world.shadow != nullptr) world.shadow->chipMemoryDel(ChipAddress(0x2000));
  }
}

void deleteAll(World& world) {
  if (world.reader != nullptr) world.reader->chipMemoryDelAll();
  if (world.shadow != nullptr) {
    if (world.shadow->auditReadRequest() != nullptr) {
      world.shadow->auditReadRequest()->chipMemoryDelAll();
    }
  }
  if (world.shadow != nullptr) world.shadow->chipMemoryDelAll();
  if (world.directory != nullptr) world.directory->chipMemoryDelAll();
}

void setAgain(World& world) {
  switch (world.callback) {
    case Callback::RegionAttribute:
      if (world.target != nullptr) world.target->modeIs(ChipMemory::normal());
      return;
    case Callback::ShadowState:
      if (world.shadow != nullptr) world.shadow->stateIs(HardwareShadow::idle());
      if (world.shadow != nullptr) world.shadow->stateIs(HardwareShadow::auditing());
      return;
    case Callback::RequestRegions:
      if (world.shadow == nullptr || world.shadow->auditReadRequest() == nullptr) return;
      if (world.third != nullptr) world.shadow->auditReadRequest()->chipMemoryIs(world.third);
      return;
    case Callback::ReaderProgress:
      if (world.reader != nullptr) world.reader->entriesReadIs(0);
      return;
    case Callback::DirectoryMember:
      if (world.directory == nullptr) return;
      world.directory->chipMemoryIs("another", ChipAddress(0x9800), 8, 4, 4, nullptr);
      return;
    case Callback::ClockTime:
      if (auto* time = dynamic_cast<Zint::Clock::NotifieeConst*>(world.self.ptr());
          time != nullptr && time->notifier() != nullptr) {
        time->timeMinIs(0.0);
      }
      return;
    case Callback::EntityEnd:
      if (world.self != nullptr && world.self->notifier() != nullptr) {
        auto* ending = const_cast<Zint::PtrInterface*>(world.self->notifier());
        ending->isNondestructingIs(true);
        ending->isNondestructingIs(false);
      }
      return;
    case Callback::HamRead:
      if (world.reader != nullptr) world.reader->doRead();
      return;
    case Callback::HamWrite:
      if (world.target != nullptr) world.target->modeIs(ChipMemory::buffered());
      if (world.target != nullptr) world.target->modeIs(ChipMemory::normal());
      return;
    case Callback::HamCompare:
      if (world.shadow != nullptr) world.shadow->doAuditChips();
      return;
    case Callback::HamStore:
      if (world.shadow != nullptr) world.write(5, 0x77);
      return;
    case Callback::Repair: {
      U32 value = 0xa2;
      if (world.shadow == nullptr || world.target == nullptr) return;
      world.shadow->doFixBadRegister(world.target, 2, reinterpret_cast<U8*>(&value));
      return;
    }
    case Callback::IteratorBody:
      if (world.directory == nullptr) return;
      for (auto it = world.directory->chipMemoryIterator(); it; ++it) ++world.visited;
      return;
    case Callback::ByName:
      if (world.target == nullptr) return;
      Zint::GenericIf_(world.target).attributeIs("shadowEnabled", "true");
  }
}

}  // namespace

void perform(World& world, Action action) {
  switch (action) {
    case Action::UnregisterSelf:
      return unregister(world.self);
    case Action::UnregisterEarlier:
      return unregister(world.earlier);
    case Action::UnregisterLater:
      return unregister(world.later);
    case Action::RegisterNew:
      if (world.callback == Callback::EntityEnd && world.directory == nullptr) {
        // What is being destroyed can still be observed, without a reference.
        const Zint::PtrInterface* ending = world.self == nullptr ? nullptr : world.self->notifier();
        world.added = Zint::makePtr<Zint::NotifieeConst>(nullptr, nullptr);
        world.added->isNonReferencingIs(true);
        if (ending != nullptr) world.added->notifierIs(ending);
        return;
      }
      if (world.shadow != nullptr && world.target != nullptr)
        world.added = world.newNotifiee("new");
      return;
    case Action::DestroySelf:
      return destroySelf(world);
    case Action::DestroyNotifier:
      return destroyNotifier(world);
    case Action::DestroyOwner:
      if (world.callback == Callback::ShadowState) unbind(world);
      world.shadow = nullptr;
      return;
    case Action::ChangeState:
      return changeState(world);
    case Action::ChangeMode:
      if (world.target != nullptr) world.target->modeIs(ChipMemory::override());
      return;
    case Action::ChangeEntries:
      if (world.target != nullptr) world.target->entriesIs(4);
      return;
    case Action::DeleteMember:
      return deleteMember(world);
    case Action::DeleteAll:
      return deleteAll(world);
    case Action::Throw:
      Zint::throwRangeException("no such luck");
    case Action::SetAgain:
      return setAgain(world);
  }
}

}  // namespace Reentrancy
