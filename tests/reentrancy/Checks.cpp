// What must be so after the actions.
#include <gtest/gtest.h>

#include <algorithm>

#include "reentrancy/World.h"

namespace Reentrancy {
namespace {

void expectSound(const ChipMemory& region) {
  SCOPED_TRACE(region.name().bytes());
  const bool store = region.shadowStoreNeeded();
  EXPECT_EQ(region.shadow() != nullptr, store);
  EXPECT_EQ(region.dirty() != nullptr, store);
  EXPECT_EQ(region.initialized() != nullptr, store);
  EXPECT_EQ(region.zintAuditErrors(), 0u);
  EXPECT_NE(region.hardware(), nullptr);  // none of them was made in override mode
  if (!store || region.shadow() == nullptr) return;
  EXPECT_EQ(region.shadow()->size(), region.entrySize() * region.entries());
  EXPECT_EQ(region.dirty()->size(), (region.entries() >> 3) + 1);
  EXPECT_EQ(region.initialized()->size(), (region.entries() >> 3) + 1);
}

bool wasNotifiedAfterTheActions(const World& world, const char* name) {
  const auto acted = std::find(world.log.begin(), world.log.end(), "!");
  return std::find(acted, world.log.end(), name) != world.log.end();
}

// Who is notified of one more change.
std::vector<std::string> notifiedByAnotherChange(World& world) {
  world.log.clear();
  world.probe();
  return world.log;
}

void expectNotified(World& world, std::vector<std::string> expected) {
  if (world.callback == Callback::EntityEnd) expected.clear();
  // What the notifiees observe is held by them alone, or cannot be reached here.
  const bool unreachable = (world.callback == Callback::ShadowState && world.shadow == nullptr) ||
                           (world.callback == Callback::RequestRegions && world.shadow == nullptr);
  if (unreachable) expected.clear();
  EXPECT_EQ(notifiedByAnotherChange(world), expected);
}

void expectRegion(const World& world, ChipMemory::ChipMemoryMode mode, U32 entries) {
  ASSERT_NE(world.target, nullptr);
  EXPECT_EQ(world.target->mode(), mode);
  EXPECT_EQ(world.target->entries(), entries);
}

ChipMemory::ChipMemoryMode modeAfter(Callback callback) {
  return callback == Callback::RegionAttribute ? ChipMemory::buffered() : ChipMemory::normal();
}

void expectNotifierGone(const World& world) {
  switch (world.callback) {
    case Callback::ShadowState:
      EXPECT_EQ(ActingShadow::living, 0);
      break;
    case Callback::RequestRegions:
      EXPECT_EQ(world.shadow->auditReadRequest(), nullptr);
      break;
    case Callback::ReaderProgress:
      EXPECT_EQ(ActingReader::living, 0);
      break;
    case Callback::DirectoryMember:
    case Callback::EntityEnd:
    case Callback::IteratorBody:
      EXPECT_EQ(world.directory, nullptr);
      break;
    case Callback::ClockTime:
      EXPECT_EQ(world.shadow->clock(), nullptr);
      EXPECT_EQ(world.reader->clock(), nullptr);
      break;
    default:
      EXPECT_EQ(ActingHam::living, 2);  // the region held its own
  }
}

void expectState(const World& world) {
  ASSERT_NE(world.shadow, nullptr);
  ASSERT_TRUE(world.stateAsked.has_value());
  const HardwareShadow::State asked = *world.stateAsked;
  EXPECT_EQ(world.shadow->state(),
            asked == HardwareShadow::configured() ? HardwareShadow::idle() : asked);
  if (world.callback == Callback::HamCompare || world.callback == Callback::Repair) {
    // The pass has been ended: it does not count, and no more is repaired.
    EXPECT_EQ(world.shadow->audits(), world.auditsBefore);
    EXPECT_EQ(world.target->registersFixed(), world.callback == Callback::Repair ? 1u : 0u);
  }
  if (world.callback == Callback::ShadowState) {
    // Both states are acted on, one after the other.
    EXPECT_EQ(std::count_if(world.trace.full.begin(), world.trace.full.end(),
                            [](const Support::TraceCapture::Full& line) {
                              return line.text.starts_with("HardwareShadow::handleState(");
                            }),
              2);
  }
  // What was being read when the reader was stopped does not count.
  if (world.callback == Callback::HamRead) {
    EXPECT_EQ(world.reader->entriesRead(), 0u);
  }
  if (asked != HardwareShadow::auditing()) {
    EXPECT_EQ(world.reader->currentChipMemory(), nullptr);
    EXPECT_EQ(world.loop.activity->wakeTime(), Zint::never);
  }
}

void expectMemberGone(const World& world) {
  switch (world.callback) {
    case Callback::DirectoryMember:
    case Callback::IteratorBody:
      EXPECT_EQ(world.directory->chipMemory("second"), nullptr);
      break;
    case Callback::RequestRegions:
      EXPECT_EQ(world.shadow->auditReadRequest()->chipMemory(ChipAddress(0x1000)), nullptr);
      break;
    default:
      break;
  }
}

// An exception leaves what it interrupts half done, as each operation documents.
void expectAbandoned(const World& world) {
  switch (world.callback) {
    case Callback::HamRead:
      // The chunk counts as unread, and no tick is scheduled.
      EXPECT_NE(world.reader->currentChipMemory(), nullptr);
      EXPECT_EQ(world.reader->entriesRead(), 0u);
      EXPECT_EQ(world.loop.activity->wakeTime(), Zint::never);
      return;
    case Callback::HamWrite:
      // The mode stays, and the old store.
      expectRegion(world, ChipMemory::normal(), 8);
      EXPECT_TRUE(world.target->entryInitialized(2));
      EXPECT_EQ(world.target->shadow()->data()[8], 0xb2);
      return;
    case Callback::HamStore:
      EXPECT_EQ(world.target->shadow()->data()[16], 0xa4);
      return;
    case Callback::HamCompare:
    case Callback::Repair:
      // The pass does not count, and none is scheduled.
      EXPECT_EQ(world.shadow->audits(), world.auditsBefore);
      EXPECT_EQ(world.shadow->state(), HardwareShadow::auditing());
      EXPECT_EQ(world.loop.activity->wakeTime(), Zint::never);
      return;
    case Callback::IteratorBody:
      EXPECT_EQ(world.visited, 1u);
      return;
    case Callback::ShadowState:
      // What notifiees throw stops nothing.
      EXPECT_GT(world.shadow->audits(), 0u);
      return;
    case Callback::RequestRegions:
      EXPECT_EQ(world.shadow->state(), HardwareShadow::idle());
      EXPECT_EQ(world.shadow->chipMemoryEntriesUnderAudit(), 16u);
      return;
    case Callback::RegionAttribute:
      return expectRegion(world, ChipMemory::buffered(), 8);
    case Callback::DirectoryMember:
      EXPECT_NE(world.directory->chipMemory("extra"), nullptr);
      return;
    case Callback::ByName:
      EXPECT_FALSE(world.target->shadowEnabled());
      return;
    case Callback::ReaderProgress:
      EXPECT_GT(world.shadow->audits(), 0u);
      return;
    case Callback::ClockTime:
    case Callback::EntityEnd:
      EXPECT_TRUE(wasNotifiedAfterTheActions(world, "later"));
      return;
  }
}

void expectSetTwice(const World& world) {
  switch (world.callback) {
    case Callback::RegionAttribute:
    case Callback::HamWrite:
      return expectRegion(world, ChipMemory::normal(), 8);
    case Callback::ShadowState:
      EXPECT_EQ(world.shadow->state(), HardwareShadow::auditing());
      EXPECT_GT(world.shadow->audits(), 0u);
      return;
    case Callback::RequestRegions:
      EXPECT_EQ(world.shadow->auditReadRequest()->chipMemorys(), 3u);
      return;
    case Callback::DirectoryMember:
      EXPECT_NE(world.directory->chipMemory("extra"), nullptr);
      EXPECT_NE(world.directory->chipMemory("another"), nullptr);
      return;
    case Callback::ClockTime:
      EXPECT_EQ(std::count(world.log.begin(), world.log.end(), "self"), 2);
      return;
    case Callback::IteratorBody:
      EXPECT_EQ(world.visited, 6u);
      return;
    case Callback::ByName:
      EXPECT_TRUE(world.target->shadowEnabled());
      return;
    case Callback::Repair:
      EXPECT_EQ(world.target->registersFixed(), 3u);
      return;
    case Callback::EntityEnd:
      EXPECT_EQ(std::count(world.log.begin(), world.log.end(), "self"), 3);
      return;
    case Callback::HamStore: {
      // The outer write continues after the inner one.
      U32 values[8];
      world.target->readFromCacheIs(true);
      ASSERT_TRUE(world.shadow->readFromCache(world.target, 0, reinterpret_cast<U8*>(values), 32));
      EXPECT_EQ(values[4], 1u);
      EXPECT_EQ(values[5], 2u);
      EXPECT_EQ(values[6], 3u);
      return;
    }
    case Callback::ReaderProgress:
    case Callback::HamRead:
    case Callback::HamCompare:
      EXPECT_GT(world.shadow->audits(), 0u);
      EXPECT_EQ(world.target->registersFixed(), 0u);
      return;
  }
}

}  // namespace

void expectSound(World& world) {
  for (const ChipMemory::Ptr& region : {world.target, world.second, world.third}) {
    if (region != nullptr) expectSound(*region);
  }
  if (world.shadow != nullptr) {
    EXPECT_EQ(world.shadow->zintAuditErrors(), 0u);
  }
  if (world.reader != nullptr && world.reader->currentChipMemory() == nullptr) {
    EXPECT_EQ(world.reader->chipMemorys(), 0u);
  }
  for (const auto& notifiee : {world.earlier, world.self, world.later, world.added}) {
    if (notifiee == nullptr) continue;
    EXPECT_EQ(notifiee->zintAuditErrors(), 0u);
    EXPECT_FALSE(notifiee->isRegisteredNotifiee() && notifiee->notifier() == nullptr);
  }
}

void expectResult(World& world, Action action) {
  using Names = std::vector<std::string>;
  const bool notified = isNotifiee(world.callback);
  switch (action) {
    case Action::UnregisterSelf:
      EXPECT_FALSE(wasNotifiedAfterTheActions(world, "self"));
      return expectNotified(world, {"earlier", "later"});
    case Action::UnregisterEarlier:
      EXPECT_FALSE(wasNotifiedAfterTheActions(world, "earlier"));
      return expectNotified(world, {"self", "later"});
    case Action::UnregisterLater:
      EXPECT_FALSE(wasNotifiedAfterTheActions(world, "later"));
      return expectNotified(world, {"earlier", "self"});
    case Action::RegisterNew: {
      // The walk under way goes on to those that were there before it.
      const auto acted = std::find(world.log.begin(), world.log.end(), "!");
      if (notified) {
        ASSERT_GT(world.log.end() - acted, 1);
        EXPECT_EQ(acted[1], "later");
      }
      return expectNotified(world, {"earlier", "self", "later", "new"});
    }
    case Action::DestroySelf:
      if (notified) {
        EXPECT_EQ(ActingNotifiee::living, 2);
        EXPECT_FALSE(wasNotifiedAfterTheActions(world, "self"));
        return expectNotified(world, {"earlier", "later"});
      }
      if (world.callback == Callback::Repair) {
        EXPECT_EQ(ActingShadow::living, 0);
      }
      if (world.callback == Callback::IteratorBody) {
        EXPECT_EQ(world.visited, 1u);
      }
      return expectNotified(world, {"earlier", "self", "later"});
    case Action::DestroyNotifier:
      if (notified) {
        EXPECT_FALSE(wasNotifiedAfterTheActions(world, "later"));
      }
      expectNotifierGone(world);
      return expectNotified(world, Names());
    case Action::DestroyOwner:
      EXPECT_EQ(ActingShadow::living, 0);
      return expectNotified(world, {"earlier", "self", "later"});
    case Action::ChangeState:
      return expectState(world);
    case Action::ChangeMode:
      return expectRegion(world, ChipMemory::override(), 8);
    case Action::ChangeEntries:
      return expectRegion(world, modeAfter(world.callback), 4);
    case Action::DeleteMember:
      return expectMemberGone(world);
    case Action::DeleteAll:
      EXPECT_EQ(world.shadow->chipMemorys(), 0u);
      if (world.directory != nullptr) {
        EXPECT_EQ(world.directory->chipMemorys(), 0u);
      }
      return;
    case Action::Throw:
      expectAbandoned(world);
      return expectNotified(world, {"earlier", "self", "later"});
    case Action::SetAgain:
      return expectSetTwice(world);
  }
}

}  // namespace Reentrancy
