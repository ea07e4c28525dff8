// What changes during an audit or around it: its members, its regions' stores, and what repairs,
// access methods and observers do from inside of a pass.
#include <Hardware/ChipReader.h>
#include <Mirl/Mirl.h>

#include <stdexcept>

#include "support/ShadowTest.h"

namespace {

using Support::Access;
using Support::Entries;
using Support::Lines;
using Support::marked;
using Support::word;
using Support::wordIs;

// Lets a test stand in for the repair.
class Repairing : public Hardware::HardwareShadow {
 public:
  using HardwareShadow::HardwareShadow;
  void doFixBadRegister(const Hardware::ChipMemory::Ptr& cm, U32 entry, U8* data) override {
    repaired.push_back(entry);
    if (instead) return instead();
    HardwareShadow::doFixBadRegister(cm, entry, data);
  }
  std::vector<U32> repaired;
  std::function<void()> instead;
};

class HardwareShadowAuditChanges : public Support::ShadowTest {
 protected:
  HardwareShadowAuditChanges() {
    shadow = repairing = Zint::makePtr<Repairing>(loop.activity, loop.clock);
    shadow->hasNotificationActiveIs(true);
  }
  void auditing(const std::vector<ChipMemory::Ptr>& regions) {
    configure(regions);
    shadow->stateIs(HardwareShadow::auditing());
    loop.turn();
    trace.full.clear();
  }
  void answered() { shadow->auditReadRequest()->statusIs(ChipReadRequest::done_); }
  void differs(const ChipMemory::Ptr& cm, U32 entry) {
    wordIs(cm->shadow(), entry, 1);
    cm->entryInitializedIs(entry);
    wordIs(cm->hardware(), entry, 2);
  }

  Zint::Ptr<Repairing> repairing;
  ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
};

// --- Membership ---------------------------------------------------------------------------------

TEST_F(HardwareShadowAuditChanges, membershipChangesOnlyWhileIdle) {
  constexpr const char* function =
      "void Hardware::HardwareShadow::chipMemoryAuditEnabledIs(const Hardware::ChipMemory::Ptr&, "
      "bool)";
  EXPECT_ASSERTION(shadow->chipMemoryAuditEnabledIs(mac, true), 0, function, "state_ == idle_");
  auditing({mac});
  EXPECT_ASSERTION(shadow->chipMemoryAuditEnabledIs(mac, true), 0, function, "state_ == idle_");
}

TEST_F(HardwareShadowAuditChanges, switchingOnAndOffMovesTheRegionAndItsEntries) {
  const ChipMemory::Ptr vlan = shadowed("vlan", 0x2000, 4);
  configure({mac, vlan});
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  shadow->chipMemoryAuditEnabledIs(vlan, true);
  EXPECT_TRUE(vlan->auditEnabled());
  EXPECT_EQ(request->chipMemory(vlan->address()), vlan);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 20u);
  shadow->chipMemoryAuditEnabledIs(vlan, true);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 20u);
  shadow->chipMemoryAuditEnabledIs(mac, false);
  EXPECT_FALSE(mac->auditEnabled());
  EXPECT_EQ(request->chipMemory(mac->address()), nullptr);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 4u);
}

TEST_F(HardwareShadowAuditChanges, switchingGoesThroughTheRegionsVirtualOperation) {
  struct Switched : ChipMemory {
    using ChipMemory::ChipMemory;
    void auditEnabledIs(bool enabled) override {
      calls.push_back(enabled);
      ChipMemory::auditEnabledIs(enabled);
    }
    std::vector<bool> calls;
  };
  const auto vlan = Zint::makePtr<Switched>("vlan", ChipAddress(0x2000), 4u, 4u, 4u, ham);
  configure({vlan});
  shadow->chipMemoryAuditEnabledIs(vlan, true);
  EXPECT_EQ(vlan->calls, std::vector<bool>{true});
  EXPECT_TRUE(vlan->auditEnabled());
  shadow->chipMemoryAuditEnabledIs(vlan, false);
  EXPECT_EQ(vlan->calls, (std::vector<bool>{true, false}));
}

TEST_F(HardwareShadowAuditChanges, switchingOffInOverrideChangesTheFlagAlone) {
  configure({mac});
  mac->modeIs(ChipMemory::override());
  shadow->chipMemoryAuditEnabledIs(mac, false);
  EXPECT_FALSE(mac->auditEnabled());
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 1u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u);
}

TEST_F(HardwareShadowAuditChanges, switchingOnInOverrideIsTheRegionsAssertion) {
  const ChipMemory::Ptr vlan = shadowed("vlan", 0x2000, 4);
  vlan->modeIs(ChipMemory::override());
  configure({vlan});
  EXPECT_ASSERTION(shadow->chipMemoryAuditEnabledIs(vlan, true), 233,
                   "void Hardware::ChipMemory::handleAuditEnabled()",
                   "!auditEnabled() || (mode() != override())");
}

TEST_F(HardwareShadowAuditChanges, entriesAreCountedOnlyWhereTheMembershipReallyChanges) {
  const ChipMemory::Ptr vlan = shadowed("vlan", 0x2000, 4);
  configure({mac, vlan});
  mac->auditEnabledIs(false);  // past the shadow: still a member
  shadow->chipMemoryAuditEnabledIs(mac, true);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u);
  vlan->auditEnabledIs(true);  // past the shadow: no member
  shadow->chipMemoryAuditEnabledIs(vlan, false);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u);
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 1u);
}

TEST_F(HardwareShadowAuditChanges, observerOfTheSwitchMayUnconfigureTheShadowAndNothingIsEnrolled) {
  struct Watch : ChipMemory::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onAuditEnabled() override { then(); }
    std::function<void()> then;
  };
  const ChipMemory::Ptr table = shadowed("table", 0x7000, 4);
  configure({table});
  const auto watch = Zint::makePtr<Watch>(loop.activity, table);
  watch->then = [&] { shadow->stateIs(HardwareShadow::unconfigured()); };
  shadow->chipMemoryAuditEnabledIs(table, true);
  EXPECT_TRUE(table->auditEnabled());
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 0u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 0u);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 1u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 4u);
}

TEST_F(HardwareShadowAuditChanges, entriesUnderAuditAreAnnouncedWhenTheMembershipHasChanged) {
  struct Watch : HardwareShadow::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onChipMemoryEntriesUnderAudit() override {
      members.push_back(notifier()->auditReadRequest()->chipMemorys());
    }
    std::vector<U32> members;
  };
  const ChipMemory::Ptr table = shadowed("table", 0x7000, 4);
  configure({table});
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  shadow->chipMemoryAuditEnabledIs(table, true);
  shadow->chipMemoryAuditEnabledIs(table, false);
  EXPECT_EQ(watch->members, (std::vector<U32>{1, 0}));
}

TEST_F(HardwareShadowAuditChanges, observerOfTheSwitchMayDropTheLastReferenceToTheShadow) {
  class Watch : public ChipMemory::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onAuditEnabled() override { then(); }
    std::function<void()> then;
  };
  const ChipMemory::Ptr vlan = shadowed("vlan", 0x2000, 4);
  configure({vlan});
  const auto watch = Zint::makePtr<Watch>(loop.activity, vlan);
  watch->then = [&] { shadow = repairing = nullptr; };
  shadow->chipMemoryAuditEnabledIs(vlan, true);
  EXPECT_TRUE(vlan->auditEnabled());
  EXPECT_EQ(vlan->references(), 2u) << "this test's and its observer's";
}

// --- Fresh stores during a pass -----------------------------------------------------------------

// Each of these drops what the shadow held, so that the comparison learns what was read before.
struct Renewal {
  const char* name;
  std::function<void(Hardware::ChipMemory&)> before, during;
};

class HardwareShadowAuditRenewal : public HardwareShadowAuditChanges,
                                   public testing::WithParamInterface<Renewal> {};

TEST_P(HardwareShadowAuditRenewal, freshStoreAdoptsWhatTheReaderHadRead) {
  const ChipMemory::Ptr cm = audited("cm", 0x2000, 16);
  GetParam().before(*cm);
  auditing({cm});
  write(cm, 3, 0x33);
  wordIs(cm->hardware(), 3, 0x44);  // read before the change
  GetParam().during(*cm);
  chip->log.clear();
  trace.full.clear();
  answered();
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::handleAuditReadRequestStatus 3"},
                                  {0, "HardwareShadow::doAuditChips"},
                                  {8, "Difference found in uninitialized entry 3 of memory cm"}}));
  EXPECT_EQ(word(cm->shadow(), 3), 0x44u);
  EXPECT_EQ(marked(cm->initialized()), Entries{3});
  EXPECT_TRUE(chip->log.empty());
  EXPECT_EQ(cm->registersFixed(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, HardwareShadowAuditRenewal,
    testing::Values(Renewal{"leavingBuffered",
                            [](auto& cm) { cm.modeIs(Hardware::ChipMemory::buffered()); },
                            [](auto& cm) { cm.modeIs(Hardware::ChipMemory::normal()); }},
                    Renewal{"enteringBuffered", [](auto&) {},
                            [](auto& cm) { cm.modeIs(Hardware::ChipMemory::buffered()); }},
                    Renewal{"entries", [](auto&) {}, [](auto& cm) { cm.entriesIs(8); }},
                    Renewal{"shadowEnabled", [](auto&) {},
                            [](auto& cm) {
                              cm.shadowEnabledIs(false);
                              cm.shadowEnabledIs(true);
                            }}),
    [](const auto& row) { return row.param.name; });

// --- From inside of a pass ----------------------------------------------------------------------

TEST_F(HardwareShadowAuditChanges, repairIsCalledThroughTheVirtualOperation) {
  auditing({mac});
  differs(mac, 3);
  differs(mac, 9);
  repairing->instead = [] {};
  answered();
  EXPECT_EQ(repairing->repaired, (Entries{3, 9}));
  EXPECT_TRUE(chip->log.empty());
  EXPECT_EQ(mac->registersFixed(), 0u);
}

TEST_F(HardwareShadowAuditChanges, exceptionOfARepairIsTracedAndNoFurtherPassIsArmed) {
  auditing({mac});
  differs(mac, 3);
  differs(mac, 9);
  repairing->instead = [] { throw std::runtime_error("bus error"); };
  answered();
  EXPECT_EQ(repairing->repaired, Entries{3});
  EXPECT_EQ(shadow->audits(), 0u);
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  ASSERT_EQ(trace.full.back().handle, "Zint");
  EXPECT_EQ(trace.full.back().level, 0u);
  EXPECT_NE(trace.full.back().text.find("bus error"), std::string::npos);
}

TEST_F(HardwareShadowAuditChanges, failedChipWriteIsCountedBeforeItEndsThePass) {
  auditing({mac});
  differs(mac, 3);
  chip->beforeAccess = [](Access::Kind, U32) { throw std::runtime_error("bus error"); };
  answered();
  EXPECT_EQ(mac->registersFixed(), 1u);
  EXPECT_EQ(shadow->audits(), 0u);
  EXPECT_EQ(trace.full.back().handle, "Zint");
  chip->beforeAccess = nullptr;
  shadow->stateIs(HardwareShadow::idle());
  shadow->stateIs(HardwareShadow::auditing());
  loop.turn();
  answered();
  EXPECT_EQ(shadow->audits(), 1u) << "the owner can begin again";
}

TEST_F(HardwareShadowAuditChanges, repairThatReplacesTheStoreEndsTheComparisonOfTheRegion) {
  const ChipMemory::Ptr vlan = audited("vlan", 0x800, 4);  // behind mac in the request
  auditing({mac, vlan});
  ASSERT_EQ((*shadow->auditReadRequest()->chipMemoryIterator())->chipMemory(), mac);
  differs(mac, 3);
  differs(mac, 9);
  differs(vlan, 1);
  repairing->instead = [&] { mac->entriesIs(8); };
  answered();
  EXPECT_EQ(repairing->repaired, (Entries{3, 1}));
  EXPECT_TRUE(marked(mac->initialized()).empty());
  EXPECT_EQ(shadow->audits(), 1u);
}

TEST_F(HardwareShadowAuditChanges, repairMayEmptyTheRequestByLeavingAuditing) {
  const ChipMemory::Ptr vlan = audited("vlan", 0x2000, 4);
  auditing({mac, vlan});
  differs(mac, 3);
  differs(vlan, 1);
  repairing->instead = [&] { shadow->stateIs(HardwareShadow::unconfigured()); };
  answered();
  EXPECT_EQ(repairing->repaired.size(), 1u);
  EXPECT_EQ(shadow->state(), HardwareShadow::unconfigured());
  trace.full.clear();
  loop.turnAt(100);
  EXPECT_TRUE(trace.full.empty()) << "no pass begins";
}

TEST_F(HardwareShadowAuditChanges, repairMayDropTheLastReferenceToShadowAndRegion) {
  auditing({mac});
  shadow->chipMemoryDelAll();
  differs(mac, 3);
  differs(mac, 9);
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  bool dropped = false;
  repairing->instead = [&] {
    if (std::exchange(dropped, true)) return;
    request->chipMemoryDelAll();
    shadow->chipMemoryChunkDelAll();
    shadow->chipMemoryChunkArrayDelAll();
    mac = nullptr;
    shadow = repairing = nullptr;
  };
  request->statusIs(ChipReadRequest::done_);
  EXPECT_TRUE(dropped);
  EXPECT_EQ(request->notifiees(), 0u);
  EXPECT_EQ(loop.turnAt(100), 0u);
}

TEST_F(HardwareShadowAuditChanges, observerOfAuditsMayEndTheAudit) {
  class Watch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onAudits() override { then(); }
    std::function<void()> then;
  };
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->then = [&] { shadow->stateIs(HardwareShadow::idle()); };
  auditing({mac});
  answered();
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());
  trace.full.clear();
  loop.turnAt(100);
  EXPECT_TRUE(trace.full.empty()) << "no pass begins";
}

TEST_F(HardwareShadowAuditChanges, observerOfTheStartTimeMayEndTheAuditBeforeAnythingIsRead) {
  class Watch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onLastAuditStartTime() override { then(); }
    std::function<void()> then;
  };
  configure({mac});
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->then = [&] { shadow->stateIs(HardwareShadow::idle()); };
  shadow->stateIs(HardwareShadow::auditing());
  loop.turnAt(1);
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::stop_);
}

TEST_F(HardwareShadowAuditChanges, readInProgressIsAbandonedByIdleAndNeverCompared) {
  configure({mac});
  const auto reader =
      Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 4, 1);
  shadow->stateIs(HardwareShadow::auditing());
  loop.turn();
  loop.turn();
  EXPECT_EQ(chip->taken().size(), 4u);
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(loop.turnAt(100), 0u);
  EXPECT_TRUE(chip->log.empty());
  EXPECT_EQ(shadow->audits(), 0u);
}

// --- What is told when --------------------------------------------------------------------------

TEST_F(HardwareShadowAuditChanges, aShadowThatIsSwitchedOffHearsOfNoAnswer) {
  auditing({mac});
  shadow->hasNotificationActiveIs(false);
  answered();
  EXPECT_EQ(shadow->audits(), 0u);
}

class EntriesObserver : public Hardware::HardwareShadow::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onChipMemoryEntriesUnderAudit() override { ++times; }
  void onChipMemory(const Hardware::ChipAddress&) override {
    lastWasKnown = notifier()->lastChipMemory() != nullptr;
  }
  U32 times = 0;
  bool lastWasKnown = true;
};

TEST_F(HardwareShadowAuditChanges, aMemberThatIsSwitchedOnAgainIsNotCountedAnew) {
  configure({mac});
  mac->auditEnabledIs(false);  // by the region itself: it stays a member
  const auto told = Zint::makePtr<EntriesObserver>(
      loop.activity, Zint::Ptr<const Hardware::HardwareShadow>(shadow));
  shadow->chipMemoryAuditEnabledIs(mac, true);
  EXPECT_EQ(told->times, 0u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u);
}

TEST_F(HardwareShadowAuditChanges, aRemovedRegionIsForgottenBeforeItsRemovalIsTold) {
  configure({mac});
  ASSERT_EQ(found(0x1000), mac);
  const auto told = Zint::makePtr<EntriesObserver>(
      loop.activity, Zint::Ptr<const Hardware::HardwareShadow>(shadow));
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(mac->address());
  EXPECT_FALSE(told->lastWasKnown);
}

struct Fixes : Hardware::ChipMemory::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void onRegistersFixed() override { timeWhenTold = notifier()->lastFixTime(); }
  Zint::Seconds timeWhenTold = -1;
};

TEST_F(HardwareShadowAuditChanges, aRepairIsCountedThenTimed) {
  auditing({mac});
  loop.clock->timeIs(loop.clock->time() + 1);
  differs(mac, 3);
  const auto fixes =
      Zint::makePtr<Fixes>(loop.activity, Zint::Ptr<const Hardware::ChipMemory>(mac));
  answered();
  EXPECT_EQ(fixes->timeWhenTold, 0.0);
  EXPECT_EQ(mac->lastFixTime(), loop.clock->time());
}

TEST_F(HardwareShadowAuditChanges, aDifferenceIsRecordedInFullBeforeItsRepairIsTried) {
  auditing({mac});
  differs(mac, 3);
  Mirl::theTraceFile.clear();
  std::vector<Zint::String8> recorded;
  repairing->instead = [&] {
    for (const Mirl::Record& record : Mirl::theTraceFile.records(0)) {
      recorded.push_back(record.text);
    }
  };
  answered();
  ASSERT_EQ(recorded.size(), 3u);
  EXPECT_EQ(recorded.back(), "Expected: x01x00x00x00 Actual: x02x00x00x00");
}

TEST_F(HardwareShadowAuditChanges, chipMemoryAuditEnabledIs_nullRaisesARangeException) {
  configure({mac});
  EXPECT_EQ(Support::exceptionText([&] { shadow->chipMemoryAuditEnabledIs(nullptr, true); }),
            "null _chipMemory parameter to mutator for "
            "Hardware::HardwareShadow::chipMemoryAuditEnabled not allowed\"");
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 1u);
}

TEST_F(HardwareShadowAuditChanges, doFixBadRegister_nullRaisesARangeException) {
  U8 data[4] = {};
  EXPECT_EQ(Support::exceptionText([&] { shadow->doFixBadRegister(nullptr, 0, data); }),
            "null _chipMemory parameter to mutator for "
            "Hardware::HardwareShadow::doFixBadRegister not allowed\"");
}

// Its data is an entry of the store that a notifiee of the region replaces.
TEST_F(HardwareShadowAuditChanges, doFixBadRegister_dataOutlivesTheStoreItIsIn) {
  class Watch : public ChipMemory::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onRegistersFixed() override { then(); }
    std::function<void()> then;
  };
  wordIs(mac->shadow(), 3, 0x01020304);
  const auto watch =
      Zint::makePtr<Watch>(loop.activity, Zint::Ptr<const Hardware::ChipMemory>(mac), true);
  watch->then = [&] { mac->entriesIs(1000); };
  HardwareShadow::Ptr base = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
  base->doFixBadRegister(mac, 3, mac->shadow()->data() + 12);
  EXPECT_EQ(chip->log,
            (std::vector<Support::Access>{{Support::Access::write, 0x100c, 0x01020304}}));
}

}  // namespace
