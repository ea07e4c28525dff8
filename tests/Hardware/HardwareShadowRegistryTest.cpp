// The registry of regions: what is registered, what is traced, and when it may change.
#include "support/ShadowTest.h"

namespace {

using Support::Lines;

constexpr const char* handleChipMemoryFunction =
    "void Hardware::HardwareShadow::handleChipMemory(const Hardware::ChipAddress&)";

class HardwareShadowRegistry : public Support::ShadowTest {
 protected:
  class Watch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onChipMemory(const ChipAddress& address) override {
      told.push_back(address.value());
      if (then) then();
    }
    std::vector<U64> told;
    std::function<void()> then;
  };

  ChipMemory::Ptr mac = region("mac", 0x1000, 16);
  ChipMemory::Ptr vlan = region("vlan", 0x2000, 16);
};

TEST_F(HardwareShadowRegistry, chipMemoryIs_nullRaisesTheQuotedTextAndChangesNothing) {
  EXPECT_EQ(Support::exceptionText([&] { shadow->chipMemoryIs(nullptr); }),
            "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
            "allowed\"");
  EXPECT_EQ(shadow->chipMemorys(), 0u);
  EXPECT_TRUE(trace.full.empty());
}

TEST_F(HardwareShadowRegistry, newChipMemory_nullRaisesTheQuotedTextAndChangesNothing) {
  EXPECT_EQ(Support::exceptionText([&] { shadow->newChipMemory(nullptr); }),
            "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
            "allowed\"");
  EXPECT_EQ(shadow->chipMemorys(), 0u);
}

TEST_F(HardwareShadowRegistry, reactorsChipMemoryIs_nullRaisesTheQuotedTextAndChangesNothing) {
  const auto reactor = shadow->chipMemoryIs(mac);
  EXPECT_EQ(Support::exceptionText([&] { reactor->chipMemoryIs(nullptr); }),
            "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
            "allowed\"");
  EXPECT_EQ(shadow->chipMemory(ChipAddress(0x1000)), mac);
}

// A region whose destructor calls the test.
class Ending : public Hardware::ChipMemory {
 public:
  Ending(const char* name, U64 address, const Hardware::ChipHam::Ptr& ham,
         std::function<void()> atEnd)
      : ChipMemory(name, Hardware::ChipAddress(address), 4, 4, 4, ham), atEnd_(std::move(atEnd)) {}

 protected:
  ~Ending() override { atEnd_(); }

 private:
  std::function<void()> atEnd_;
};

TEST_F(HardwareShadowRegistry, chipMemoryIs_thePassedPointerMayBeClearedByTheReplacedRegion) {
  ChipMemory::Ptr passed = region("new", 0x1000, 4);
  shadow->chipMemoryIs(Zint::makePtr<Ending>("old", 0x1000, ham, [&] {
    passed = nullptr;
    shadow = nullptr;
  }));
  HardwareShadow* plain = shadow.ptr();
  const auto reactor = plain->chipMemoryIs(passed);
  EXPECT_EQ(passed, nullptr);
  EXPECT_EQ(reactor->chipMemory()->name(), "new");
}

TEST_F(HardwareShadowRegistry, clearedIndex_releasesTheLastRegionWhenItIsEmpty) {
  U32 chunks = 99;
  bool isFound = true, isDestroyed = false;
  shadow->overrideHardwareIs(true);
  configure({Zint::makePtr<Ending>("old", 0x1000, ham, [&] {
    chunks = shadow->nextIndex();
    isFound = shadow->findChipMemory(ChipAddress(0x1000), 4) != nullptr;
    isDestroyed = true;
  })});
  EXPECT_NE(found(0x1000), nullptr);
  shadow->chipMemoryDelAll();
  EXPECT_FALSE(isDestroyed) << "held by the index";
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_TRUE(isDestroyed);
  EXPECT_EQ(chunks, 0u);
  EXPECT_FALSE(isFound);
}

TEST_F(HardwareShadowRegistry, chipMemoryIs_newRegionTracesOneLine) {
  const ChipMemory::Ptr acl = region("acl", 0x200001f00, 16, 12, 32);
  acl->indirectCmdRegAddrIs(0xBEEF);
  const auto reactor = shadow->chipMemoryIs(acl);
  EXPECT_EQ(reactor->chipMemory(), acl);
  EXPECT_EQ(shadow->chipMemory(acl->address()), acl);
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text,
            "ChipMemory: acl address=0x2:00001f00 entries=16 entrySize=12 stride=32 "
            "indirectAddress=0xbeef");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].handle, "Umbra");
  EXPECT_EQ(trace.full[0].source, "Hardware/Umbra");
  EXPECT_EQ(trace.full[0].function, "handleChipMemory");
}

TEST_F(HardwareShadowRegistry, chipMemoryIs_sameRegionAgainIsSilent) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  const auto reactor = shadow->chipMemoryIs(mac);
  trace.full.clear();
  EXPECT_EQ(shadow->chipMemoryIs(mac), reactor);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(watch->told, std::vector<U64>{0x1000});
}

TEST_F(HardwareShadowRegistry, chipMemoryIs_anotherRegionAtTheAddressRebindsAndTracesAgain) {
  const auto reactor = shadow->chipMemoryIs(mac);
  const ChipMemory::Ptr other = region("other", 0x1000, 2);
  trace.full.clear();
  EXPECT_EQ(shadow->chipMemoryIs(other), reactor);
  EXPECT_EQ(reactor->chipMemory(), other);
  EXPECT_EQ(shadow->chipMemorys(), 1u);
  EXPECT_EQ(trace.taken(),
            (Lines{{0,
                    "ChipMemory: other address=0x0:00001000 entries=2 entrySize=4 stride=4 "
                    "indirectAddress=0x0"}}));
}

TEST_F(HardwareShadowRegistry, chipMemoryIs_theReactorWatchesTheOtherRegionAndLetsGoOfTheFirst) {
  const auto reactor = shadow->chipMemoryIs(mac);
  EXPECT_EQ(reactor->notifier(), mac.ptr());
  const ChipMemory::Ptr other = region("other", 0x1000, 2);
  shadow->chipMemoryIs(other);
  EXPECT_EQ(reactor->notifier(), other.ptr());
  EXPECT_EQ(mac->references(), 1u) << "this test's";
}

TEST_F(HardwareShadowRegistry, newChipMemory_insertsWithoutAnyReaction) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  EXPECT_EQ(shadow->newChipMemory(mac)->chipMemory(), mac);
  EXPECT_EQ(shadow->chipMemory(mac->address()), mac);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_TRUE(watch->told.empty());
}

TEST_F(HardwareShadowRegistry, chipMemoryDel_returnsTheRegionAndTraces) {
  shadow->chipMemoryIs(mac);
  trace.full.clear();
  EXPECT_EQ(shadow->chipMemoryDel(mac->address()), mac);
  EXPECT_EQ(shadow->chipMemorys(), 0u);
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text, "ChipMemory with address=0x0:00001000 removed");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].function, "handleChipMemory");
}

TEST_F(HardwareShadowRegistry, chipMemoryDel_unknownAddressGivesNullAndNothingElse) {
  shadow->chipMemoryIs(mac);
  shadow->lastChipMemoryIs(mac);
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  trace.full.clear();
  EXPECT_EQ(shadow->chipMemoryDel(ChipAddress(0x1004)), nullptr);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_TRUE(watch->told.empty());
}

TEST_F(HardwareShadowRegistry, chipMemoryDel_addressMayBeTheRemovedRegionsOwn) {
  shadow->chipMemoryIs(mac);
  const ChipAddress& address = mac->address();
  mac = nullptr;
  trace.full.clear();
  EXPECT_EQ(shadow->chipMemoryDel(address)->name(), "mac");
  EXPECT_EQ(trace.taken(), (Lines{{0, "ChipMemory with address=0x0:00001000 removed"}}));
}

TEST_F(HardwareShadowRegistry, chipMemoryDel_clearsTheLastRegionWhicheverIsRemoved) {
  for (const ChipMemory::Ptr& removed : {mac, vlan}) {
    shadow->chipMemoryIs(mac);
    shadow->chipMemoryIs(vlan);
    shadow->lastChipMemoryIs(mac);
    shadow->chipMemoryDel(removed->address());
    EXPECT_EQ(shadow->lastChipMemory(), nullptr) << removed->name();
  }
}

TEST_F(HardwareShadowRegistry, chipMemoryIs_leavesTheLastRegion) {
  shadow->lastChipMemoryIs(mac);
  shadow->chipMemoryIs(vlan);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
}

TEST_F(HardwareShadowRegistry, observersAreToldTheAddressOfEachChange) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  shadow->chipMemoryIs(mac);
  shadow->chipMemoryIs(region("other", 0x1000, 2));
  shadow->chipMemoryDel(mac->address());
  EXPECT_EQ(watch->told, (std::vector<U64>{0x1000, 0x1000, 0x1000}));
}

TEST_F(HardwareShadowRegistry, observerMayDropTheLastReferenceToTheShadow) {
  auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->isNonReferencingIs(true);
  watch->then = [&] { shadow = nullptr; };
  shadow->chipMemoryIs(mac);
  EXPECT_EQ(watch->notifier(), nullptr);
  EXPECT_EQ(mac->references(), 1u);
}

TEST_F(HardwareShadowRegistry, iteratesInAscendingOrderOfUnsignedAddresses) {
  const std::vector<U64> ascending{
      0x0,         0x7fffffff,         0x80000000,         0x100000000,
      0x1fffffff0, 0x7fffffff00000000, 0x8000000000000000, 0xffffffff00000000};
  for (const std::size_t i : {5, 0, 7, 3, 1, 6, 2, 4}) {
    shadow->chipMemoryIs(region("r", ascending[i], 1));
  }
  std::vector<U64> walked;
  for (auto reactor = shadow->chipMemoryIterator(); reactor; ++reactor) {
    walked.push_back(reactor->chipMemory()->address().value());
  }
  EXPECT_EQ(walked, ascending);
}

TEST_F(HardwareShadowRegistry, changesNeedUnconfiguredOrOverrideHardware) {
  configure({mac});
  constexpr const char* rule = "state_ == unconfigured_ || overrideHardware_";
  EXPECT_ASSERTION(shadow->chipMemoryIs(vlan), 0, handleChipMemoryFunction, rule);
  EXPECT_ASSERTION(shadow->chipMemoryIs(region("other", 0x1000, 1)), 0, handleChipMemoryFunction,
                   rule);
  EXPECT_ASSERTION(shadow->chipMemoryDel(mac->address()), 0, handleChipMemoryFunction, rule);
  shadow->chipMemoryIs(mac);  // no change
  shadow->chipMemoryDel(vlan->address());
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryIs(vlan);
  shadow->chipMemoryDel(mac->address());
  EXPECT_EQ(shadow->chipMemorys(), 1u);
}

TEST_F(HardwareShadowRegistry, changesWhileConfiguredIsAnnouncedNeedOverrideHardwareToo) {
  class StateWatch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onState() override {
      if (notifier()->state() == HardwareShadow::configured()) then();
    }
    std::function<void()> then;
  };
  std::vector<std::string> conditions;
  const auto asserted = [&](const std::function<void()>& change) {
    conditions.push_back(Support::assertedCondition(change));
  };
  const auto watch = Zint::makePtr<StateWatch>(loop.activity, shadow);
  watch->then = [&] {
    asserted([&] { shadow->chipMemoryIs(vlan); });
    asserted([&] { shadow->chipMemoryIs(region("other", 0x1000, 1)); });
    asserted([&] { shadow->chipMemoryDel(mac->address()); });
    shadow->overrideHardwareIs(true);
    asserted([&] { shadow->chipMemoryIs(mac); });
  };
  configure({mac});
  const std::string rule = "state_ == unconfigured_ || overrideHardware_";
  EXPECT_EQ(conditions, (std::vector<std::string>{rule, rule, rule, ""}));
}

TEST_F(HardwareShadowRegistry, theRuleIsCheckedAfterTheCollectionHasChanged) {
  configure({});
  EXPECT_EQ(Support::assertedCondition([&] { shadow->chipMemoryIs(mac); }),
            "state_ == unconfigured_ || overrideHardware_");
  EXPECT_EQ(shadow->chipMemory(mac->address()), mac);
  EXPECT_TRUE(trace.full.empty());
}

TEST_F(HardwareShadowRegistry, handleChipMemoryWithoutAddressIsNeverCalled) {
  EXPECT_ASSERTION(shadow->handleChipMemory(), 0,
                   "void Hardware::HardwareShadow::handleChipMemory()", "false");
}

TEST_F(HardwareShadowRegistry, regionAddedToABuiltIndexIsFoundOnlyAsTheLastRegion) {
  configure({mac});
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryIs(vlan);
  EXPECT_EQ(found(0x2000), nullptr);
  shadow->lastChipMemoryIs(vlan);
  EXPECT_EQ(found(0x2000), vlan);
}

TEST_F(HardwareShadowRegistry, regionRemovedFromABuiltIndexIsStillFoundUntilItIsCleared) {
  configure({mac, vlan});
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(vlan->address());
  EXPECT_EQ(found(0x2000), vlan);
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(found(0x2000), nullptr);
}

TEST_F(HardwareShadowRegistry, aBuiltIndexKeepsItsRegionsAlive) {
  configure({mac});
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(mac->address());
  EXPECT_EQ(mac->references(), 2u);
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(mac->references(), 1u);
}

TEST_F(HardwareShadowRegistry, reboundRegionLeavesABuiltIndexAsItWas) {
  configure({mac});
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryIs(region("other", 0x1000, 16));
  EXPECT_EQ(found(0x1000), mac);
}

TEST_F(HardwareShadowRegistry, bulkRemovalRunsNoReactionInAnyState) {
  configure({mac, vlan});
  shadow->lastChipMemoryIs(mac);
  vlan->modeIs(ChipMemory::override());
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(shadow->chipMemory(vlan->address()), nullptr);
  EXPECT_EQ(shadow->chipMemory(mac->address()), mac);
  shadow->chipMemoryDelAll();
  EXPECT_EQ(shadow->chipMemorys(), 0u);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
  EXPECT_TRUE(trace.full.empty());
}

}  // namespace
