// How the shadow lets go: bulk removal, the zombie mark, and the order of its end.
#include <Zint/Notifiee.h>
#include <gmock/gmock.h>

#include "support/ShadowTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

// Says when its entity goes, and does not keep it.
class EndWatch : public Zint::Entity::NotifieeConst {
 public:
  EndWatch(const Zint::Ptr<const Zint::Entity>& entity, std::function<void()> end)
      : NotifieeConst(nullptr, entity), end_(std::move(end)) {
    isNonReferencingIs(true);
  }
  void onIsNondestructing() override { end_(); }

 private:
  std::function<void()> end_;
};

class HardwareShadowTeardown : public Support::ShadowTest {
 protected:
  Names registered() const {
    Names names;
    for (auto it = shadow->chipMemoryIterator(); it; ++it) {
      names.push_back(it->chipMemory()->name().bytes());
    }
    return names;
  }
  void watchEnd(const Zint::Ptr<const Zint::Entity>& entity, const std::string& name) {
    watches.push_back(Zint::makePtr<EndWatch>(entity, [this, name] { ended.push_back(name); }));
  }
  // A region whose end is seen: it alone holds its access method.
  ChipMemory::Ptr watchedRegion(const char* name, U64 address) {
    const auto own = Zint::makePtr<Support::RecordingHam>(name);
    watchEnd(own, name);
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory(name, ChipAddress(address), 4, 4, 4, own);
    cm->shadowEnabledIs(true);
    return cm;
  }
  void watchChunks() {
    for (U16 i = 0; i < shadow->nextIndex(); ++i) {
      const auto chunk = shadow->chipMemoryChunkArray(i);
      watchEnd(chunk, "chunk " + chunk->name().bytes());
    }
  }

  Names ended;
  std::vector<Zint::Ptr<EndWatch>> watches;
};

// --- removeOverrideOnlyChipMem, chipMemoryDelAll ---

class HardwareShadowBulkRemoval : public HardwareShadowTeardown {
 protected:
  void SetUp() override {
    over->modeIs(ChipMemory::override());
    last->modeIs(ChipMemory::override());
    held->modeIs(ChipMemory::buffered());
    configure({plain, over, held, last});
  }

  ChipMemory::Ptr plain = shadowed("plain", 0x1000, 4);
  ChipMemory::Ptr over = shadowed("over", 0x2000, 4);
  ChipMemory::Ptr held = shadowed("held", 0x3000, 4);
  ChipMemory::Ptr last = shadowed("last", 0x4000, 4);
};

TEST_F(HardwareShadowBulkRemoval, removeOverrideOnlyChipMem_leavesTheNormalAndTheBuffered) {
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(registered(), (Names{"plain", "held"}));
  EXPECT_EQ(shadow->chipMemory(ChipAddress(0x2000)), nullptr);
}

TEST_F(HardwareShadowBulkRemoval, removeOverrideOnlyChipMem_runsNoReaction) {
  class Watch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onChipMemory(const ChipAddress&) override { ++told; }
    int told = 0;
  };
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  found(0x2000);
  trace.full.clear();
  shadow->removeOverrideOnlyChipMem();  // in idle: the rule of the registry is not asked
  EXPECT_EQ(trace.taken(), Support::Lines{});
  EXPECT_EQ(shadow->lastChipMemory(), over);
  EXPECT_EQ(watch->told, 0);
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());
}

TEST_F(HardwareShadowBulkRemoval, removeOverrideOnlyChipMem_theIndexFindsThemUntilUnconfigured) {
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(found(0x2004), over);
  EXPECT_EQ(found(0x4008), last);
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(found(0x2004), nullptr);
  EXPECT_EQ(found(0x1004), plain);
}

TEST_F(HardwareShadowBulkRemoval, removeOverrideOnlyChipMem_withoutAnyDoesNothing) {
  shadow->removeOverrideOnlyChipMem();
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(shadow->chipMemorys(), 2u);
}

TEST_F(HardwareShadowBulkRemoval, chipMemoryDelAll_removesEveryRegionWithoutReaction) {
  found(0x1000);
  trace.full.clear();
  shadow->chipMemoryDelAll();
  EXPECT_THAT(registered(), IsEmpty());
  EXPECT_EQ(trace.taken(), Support::Lines{});
  EXPECT_EQ(shadow->lastChipMemory(), plain);
  EXPECT_EQ(found(0x3000), held);
}

TEST_F(HardwareShadowBulkRemoval, inEveryState) {
  for (const auto state : {HardwareShadow::unconfigured(), HardwareShadow::auditing()}) {
    shadow->stateIs(state);
    shadow->removeOverrideOnlyChipMem();
    EXPECT_EQ(registered(), (Names{"plain", "held"}));
  }
  shadow->chipMemoryDelAll();
  EXPECT_EQ(shadow->chipMemorys(), 0u);
}

TEST_F(HardwareShadowBulkRemoval, iterator_survivesTheRemovalOfItsCurrentMember) {
  auto it = shadow->chipMemoryIterator();
  ++it;  // over
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(it->chipMemory(), over);  // held until the next step
  ++it;
  EXPECT_EQ(it->chipMemory(), held);
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(HardwareShadowBulkRemoval, iterator_survivesTheRemovalOfOthers) {
  auto it = shadow->chipMemoryIterator();  // plain
  shadow->removeOverrideOnlyChipMem();
  ++it;
  EXPECT_EQ(it->chipMemory(), held);
  shadow->chipMemoryDelAll();
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(HardwareShadowBulkRemoval, iterator_survivesTheEndOfTheShadow) {
  auto it = shadow->chipMemoryIterator();
  shadow = nullptr;
  EXPECT_EQ(it->chipMemory(), plain);
  ++it;
  EXPECT_FALSE(it);
}

// A region's end may run the code of its owner: here that of its access method, which removes what
// the walk is about to reach, or drops the shadow itself.
TEST_F(HardwareShadowTeardown, bulkRemoval_survivesWhatTheEndOfARegionDoes) {
  for (const bool dropsShadow : {false, true}) {
    shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
    std::vector<Zint::Ptr<EndWatch>> ends;
    for (const U32 address : {0x1000u, 0x2000u, 0x3000u, 0x4000u}) {
      const auto own = Zint::makePtr<Support::RecordingHam>("own");
      const auto cm = Hardware::chipMemoryFactory("cm", ChipAddress(address), 4, 4, 4, own);
      cm->modeIs(ChipMemory::override());
      if (address == 0x1000) {
        ends.push_back(Zint::makePtr<EndWatch>(own, [this, dropsShadow] {
          if (dropsShadow) {
            shadow = nullptr;
            return;
          }
          shadow->chipMemoryDel(ChipAddress(0x2000));
          shadow->chipMemoryDel(ChipAddress(0x4000));
        }));
      }
      shadow->chipMemoryIs(cm);
    }
    const HardwareShadow::Ptr held = dropsShadow ? nullptr : shadow;
    shadow->removeOverrideOnlyChipMem();
    if (!dropsShadow) {
      EXPECT_EQ(shadow->chipMemorys(), 0u);
    }
  }
}

// --- zintDoZombieReactors ---

class HardwareShadowZombie : public HardwareShadowTeardown {
 protected:
  void SetUp() override {
    configure({audited("mac", 0x1000, 4)});
    shadow->stateIs(HardwareShadow::auditing());
    trace.full.clear();
  }
};

TEST_F(HardwareShadowZombie, marked_theClockDoesNotReachTheShadow) {
  shadow->zintDoZombieReactors(true);
  EXPECT_TRUE(shadow->zintMarkedForDeletion());
  loop.turnAt(1);
  EXPECT_EQ(trace.taken(), Support::Lines{});
  EXPECT_EQ(shadow->auditReadRequest()->state(), 2);
}

TEST_F(HardwareShadowZombie, marked_theRequestDoesNotReachTheShadow) {
  shadow->zintDoZombieReactors(true);
  shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(trace.taken(), Support::Lines{});
  EXPECT_EQ(shadow->audits(), 0u);
}

TEST_F(HardwareShadowZombie, unmarked_bothReachItAgain) {
  shadow->zintDoZombieReactors(true);
  shadow->zintDoZombieReactors(false);
  EXPECT_FALSE(shadow->zintMarkedForDeletion());
  loop.turnAt(1);
  EXPECT_EQ(shadow->auditReadRequest()->state(), 1);
  shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(shadow->audits(), 1u);
}

TEST_F(HardwareShadowZombie, theRecordedValueAgain_nothingIsPassedOn) {
  shadow->zintMarkedForDeletionIs(true);  // recorded, but not passed on
  shadow->zintDoZombieReactors(true);
  loop.turnAt(1);
  EXPECT_EQ(shadow->auditReadRequest()->state(), 1);
}

TEST_F(HardwareShadowZombie, withoutReactors_onlyTheMarkIsSet) {
  const HardwareShadow::Ptr bare = Hardware::hardwareShadowFactory(loop.activity, nullptr);
  bare->zintDoZombieReactors(true);
  EXPECT_TRUE(bare->zintMarkedForDeletion());
}

// --- The destructor ---

TEST_F(HardwareShadowTeardown, destructor_releasesEveryChunkExactlyOnce) {
  for (const U64 id : {5, 1, 3}) shadow->chipMemoryIs(region("cm", id << 32, 4));
  shadow->stateIs(HardwareShadow::configured());
  watchChunks();
  shadow = nullptr;
  EXPECT_THAT(ended, ElementsAre("chunk 1", "chunk 3", "chunk 5"));
  for (const auto& watch : watches) EXPECT_EQ(watch->notifier(), nullptr);
}

TEST_F(HardwareShadowTeardown, unconfigured_releasesEveryChunkExactlyOnce) {
  for (const U64 id : {5, 1, 3}) shadow->chipMemoryIs(region("cm", id << 32, 4));
  shadow->stateIs(HardwareShadow::configured());
  watchChunks();
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_THAT(ended, testing::UnorderedElementsAre("chunk 1", "chunk 3", "chunk 5"));
  shadow = nullptr;
  EXPECT_EQ(ended.size(), 3u);
}

TEST_F(HardwareShadowTeardown, destructor_aChunkThatIsHeldLivesOn) {
  shadow->chipMemoryIs(region("cm", 0, 4));
  shadow->stateIs(HardwareShadow::configured());
  const auto chunk = shadow->chipMemoryChunkArray(0);
  watchChunks();
  shadow = nullptr;
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_EQ(chunk->references(), 1u);
}

TEST_F(HardwareShadowTeardown, destructor_leavesRegionsThatOthersHold) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 4);
  configure({mac});
  found(0x1000);
  EXPECT_GT(mac->references(), 1u);
  shadow = nullptr;
  EXPECT_EQ(mac->references(), 1u);
  EXPECT_EQ(mac->notifiees(), 0u);
}

// Everything that the shadow alone holds goes in the reverse order of its attributes: the chunk
// array, the audit's request, the last region, the registry in ascending order, the clock, the
// activity.
TEST_F(HardwareShadowTeardown, destructor_order) {
  Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("own clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("own activity", Zint::Ptr<const Zint::Clock>(loop.clock));
  watchEnd(clock, "clock");
  watchEnd(activity, "activity");
  shadow = Hardware::hardwareShadowFactory(activity, clock);
  clock = nullptr;
  activity = nullptr;
  shadow->chipMemoryIs(watchedRegion("low", 0x100000000));
  shadow->chipMemoryIs(watchedRegion("last", 0x100001000));
  shadow->chipMemoryIs(watchedRegion("high", 0x200000000));
  shadow->stateIs(HardwareShadow::configured());
  found(0x100001000);
  shadow->chipMemory(ChipAddress(0x100001000))->modeIs(ChipMemory::override());
  shadow->removeOverrideOnlyChipMem();  // held by the index and as the last region
  watchChunks();
  watchEnd(shadow->auditReadRequest(), "request");

  shadow = nullptr;
  EXPECT_THAT(ended, ElementsAre("chunk 1", "chunk 2", "request", "last", "low", "high", "clock",
                                 "activity"));
}

// By the time that the first member goes, nothing reaches the shadow any more.
TEST_F(HardwareShadowTeardown, destructor_retiresItsReactorsFirst) {
  configure({audited("mac", 0x1000, 4)});
  shadow->stateIs(HardwareShadow::auditing());
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  const Zint::PtrInterface* plain = shadow.ptr();
  bool marked = false;
  std::size_t observers = 0;
  watches.push_back(Zint::makePtr<EndWatch>(shadow->chipMemoryChunkArray(0), [&] {
    marked = plain->zintMarkedForDeletion();
    observers = request->notifiees();
    request->statusIs(ChipReadRequest::done_);
  }));
  trace.full.clear();
  shadow = nullptr;
  EXPECT_TRUE(marked);
  EXPECT_EQ(observers, 1u);  // its reactor is still there, and deaf
  EXPECT_EQ(request->notifiees(), 0u);
  EXPECT_EQ(trace.taken(), Support::Lines{});
}

}  // namespace
