// Observers that change or drop what the patrol works on, from each place where they are called.
#include "PatrolWorld.h"
#include "support/TraceCapture.h"

namespace {

using Driver::AuditedShadow;
using Driver::Rule;
using Driver::Verdict;
using Support::PatrolChip;

// From where the observer acts.
enum class Place {
  finding,
  veto,
  pass,
  absent,
  read,
  write,
  state,
  audits,
  registersFixed,
  chipAudits
};

constexpr Place allPlaces[] = {Place::finding,        Place::veto,      Place::pass,  Place::absent,
                               Place::read,           Place::write,     Place::state, Place::audits,
                               Place::registersFixed, Place::chipAudits};

class PatrolObserver : public Support::PatrolWorld, public testing::WithParamInterface<Place> {
 protected:
  struct ShadowWatch : AuditedShadow::NotifieeConst {
    ShadowWatch(PatrolObserver& test)
        : AuditedShadow::NotifieeConst(test.loop.activity, test.shadow), test_(test) {
      isNonReferencingIs(true);
    }
    void onPass(const Driver::PassResult&) override { test_.at(Place::pass); }
    void onPatrolState() override { test_.at(Place::state); }
    void onAudits() override { test_.at(Place::audits); }
    PatrolObserver& test_;
  };
  struct ChipObserver : Driver::Chip::NotifieeConst {
    ChipObserver(PatrolObserver& test)
        : Driver::Chip::NotifieeConst(test.loop.activity, test.shadow->chip(test.cm)), test_(test) {
      isNonReferencingIs(true);
    }
    void handleNotification(Zint::ActivityConfig* activity) override {
      if (attribute() == Driver::Chip::Id::audits) test_.at(Place::chipAudits);
      Driver::Chip::NotifieeConst::handleNotification(activity);
    }
    void onAbsent() override { test_.at(Place::absent); }
    PatrolObserver& test_;
  };
  struct RegionWatch : ChipMemory::NotifieeConst {
    RegionWatch(PatrolObserver& test)
        : ChipMemory::NotifieeConst(test.loop.activity, test.cm), test_(test) {
      isNonReferencingIs(true);
    }
    void onRegistersFixed() override { test_.at(Place::registersFixed); }
    PatrolObserver& test_;
  };

  PatrolObserver() {
    fill(cm, 0, 8);
    fill(other, 0, 2);
    fill(far, 0, 2);
    shadow->rereadsIs(true);
    shadow->verifiesIs(true);
    shadow->quarantineRepairsIs(3);
    policyOf(cm)->ruleIs(9, 1, Rule::detectOnly);
    audit();
    chipObserver_ = Zint::makePtr<ChipObserver>(*this);
    shadowWatch_ = Zint::makePtr<ShadowWatch>(*this);
    regionWatch_ = Zint::makePtr<RegionWatch>(*this);
    settle();
    chip->afterRead = [this](U64, U32) { at(Place::read); };
    chip->afterWrite = [this](U64, U32) { at(Place::write); };
    onFinding = [this](const Driver::Finding& finding) {
      at(Place::finding);
      sum_ += finding.expected[0] + finding.actual[0] + finding.chipMemory->entries();
    };
    veto = [this](const Driver::Finding& finding) {
      at(Place::veto);
      sum_ += finding.expected[0] + finding.actual[0];
      return false;  // no veto
    };
  }

  void at(Place place) {
    if (place != GetParam() || !act_ || isActing_) return;
    isActing_ = true;
    ++acted_;
    act_();
    isActing_ = false;
  }
  // Damages, an absence, and passes during which the observer acts each time.
  void run(std::function<void()> act) {
    act_ = std::move(act);
    for (U32 round = 0; round < 4; ++round) {
      damage(cm, 2, 0x100 + round);
      damage(cm, 3, 0x100 + round);
      damage(cm, 12, 0x100 + round);
      steps(6);
      chip->isAway = round == 1;
      steps(6);
      chip->isAway = false;
      loop.clock->timeIs(loop.clock->time() + 10);
      steps(6);
    }
    act_ = nullptr;
  }
  // What stands in the end, whatever the observer has done.
  void expectAlive() {
    if (shadow->state() != HardwareShadow::auditing()) {
      if (shadow->state() == HardwareShadow::unconfigured()) {
        shadow->stateIs(HardwareShadow::configured());
      }
      shadow->stateIs(HardwareShadow::auditing());
    }
    shadow->pausedIs(false);
    shadow->overrideHardwareIs(false);
    loop.clock->timeIs(loop.clock->time() + 1000);
    steps(8);
    damage(other, 1, 0x200);
    steps(12);
    EXPECT_EQ(held(other, 1), 2u);
    EXPECT_GT(acted_, 0u);
  }

  const ChipMemory::Ptr cm = region("table", 0x1000, 16);
  const ChipMemory::Ptr other = region("other", 0x2000, 16);
  Zint::Ptr<PatrolChip> farChip = Zint::makePtr<PatrolChip>("far");
  const ChipMemory::Ptr far = regionOf(farChip, "far", 0x40000, 16);
  U32 acted_ = 0;

 private:
  Support::TraceCapture trace_{0};
  std::function<void()> act_;
  bool isActing_ = false;
  U64 sum_ = 0;
  Zint::Ptr<ShadowWatch> shadowWatch_;
  Zint::Ptr<ChipObserver> chipObserver_;
  Zint::Ptr<RegionWatch> regionWatch_;
};

TEST_P(PatrolObserver, setsStates) {
  run([&] {
    shadow->stateIs(HardwareShadow::idle());
    shadow->stateIs(HardwareShadow::auditing());
  });
  expectAlive();
}

TEST_P(PatrolObserver, endsTheAudit) {
  run([&] { shadow->stateIs(HardwareShadow::idle()); });
  EXPECT_EQ(shadow->state(), HardwareShadow::idle());
  EXPECT_EQ(shadow->patrolState(), Driver::PatrolState::stopped);
  const U64 reads = chip->reads;
  steps(5);
  EXPECT_EQ(chip->reads, reads);
  expectAlive();
}

TEST_P(PatrolObserver, pausesAndTogglesOverrideHardware) {
  run([&] {
    shadow->pausedIs(!shadow->paused());
    shadow->overrideHardwareIs(true);
    shadow->overrideHardwareIs(false);
  });
  expectAlive();
}

TEST_P(PatrolObserver, makesTheStoreAnew) {
  U32 entries = 16;
  run([&] {
    cm->entriesIs(entries == 16 ? 12 : 16);
    entries = cm->entries();
    cm->modeIs(ChipMemory::override());
    cm->modeIs(ChipMemory::normal());
  });
  expectAlive();
}

TEST_P(PatrolObserver, replacesBuffers) {
  run([&] {
    cm->shadowIs(Hal::bufFactory(64));
    cm->dirtyIs(Hal::bufFactory(4));
    cm->initializedIs(Hal::bufFactory(4));
    cm->hardwareIs(Hal::bufFactory(64));
  });
  expectAlive();
}

TEST_P(PatrolObserver, takesBuffersAway) {
  run([&] {
    cm->shadowIs(nullptr);
    cm->hardwareIs(nullptr);
  });
  cm->shadowIs(Hal::bufFactory(64));
  cm->hardwareIs(Hal::bufFactory(64));
  expectAlive();
}

TEST_P(PatrolObserver, replacesAndDropsThePolicy) {
  run([&] {
    shadow->policyDel(cm);
    const auto policy = Driver::policyFactory(cm);
    policy->ruleIs(3, 1, Rule::noRead);
    shadow->policyIs(policy);
    policy->ruleIs(2, 1, Rule::volatile_);
    policy->unwrittenIs(Driver::Unwritten::baseline);
  });
  expectAlive();
}

TEST_P(PatrolObserver, givesAndDropsChips) {
  std::vector<Driver::Chip::Ptr> given;
  run([&] {
    given.push_back(Driver::chipFactory("own", chip));
    shadow->chipIs(given.back());
    if (given.size() > 1) shadow->chipDel(given[given.size() - 2]);
    for (U32 i = 0; i < 40 && given.size() < 4; ++i) {
      shadow->chip(Hardware::chipMemoryFactory("one", ChipAddress(0x90000 + i), 1, 4, 4,
                                               Zint::makePtr<PatrolChip>("one")));
    }
  });
  expectAlive();
}

TEST_P(PatrolObserver, auditsOnDemand) {
  run([&] {
    shadow->doAudit(cm, 0, cm->entries());
    shadow->doAudit(other, 0, 16);
  });
  expectAlive();
}

TEST_P(PatrolObserver, writesThroughTheShadow) {
  U32 value = 1000;
  run([&] {
    for (const U32 entry : {2u, 3u, 12u}) put(cm, entry, ++value);
  });
  for (const U32 entry : {2u, 3u, 12u}) shadow->quarantineDel(cm, entry);
  steps(20);
  EXPECT_EQ(shadowed(cm, 2), held(cm, 2));
  EXPECT_EQ(shadowed(cm, 3), held(cm, 3));
  expectAlive();
}

TEST_P(PatrolObserver, resetsTheChip) {
  shadow->chip(cm)->restoresItselfIs(false);
  run([&] { shadow->chip(cm)->doChipReset(); });
  EXPECT_GT(shadow->chip(cm)->resets(), 0u);
  shadow->chip(cm)->doRestored();
  expectAlive();
}

TEST_P(PatrolObserver, replacesTheClock) {
  const auto second = Zint::manualClockFactory("second");
  run([&] {
    shadow->clockIs(nullptr);
    shadow->clockIs(second);
    shadow->clockIs(loop.clock);
  });
  expectAlive();
}

TEST_P(PatrolObserver, throws) {
  run([&] {
    acted_ += 1;
    if (GetParam() != Place::read && GetParam() != Place::write) throw std::runtime_error("oops");
  });
  expectAlive();
}

TEST_P(PatrolObserver, unregistersRegions) {
  run([&] {
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->chipMemoryDel(cm->address());
    shadow->chipMemoryIs(cm);
    shadow->stateIs(HardwareShadow::configured());
    shadow->stateIs(HardwareShadow::auditing());
  });
  expectAlive();
}

TEST_P(PatrolObserver, dropsObservers) {
  run([&] { watch = nullptr; });
  expectAlive();
}

TEST_P(PatrolObserver, switchesReactorsOffAndOn) {
  run([&] {
    shadow->hasNotificationActiveIs(false);
    shadow->hasNotificationActiveIs(true);
  });
  expectAlive();
}

INSTANTIATE_TEST_SUITE_P(Places, PatrolObserver, testing::ValuesIn(allPlaces));

// Everything is dropped from within a call: what the patrol works on is held.
class PatrolLast : public testing::TestWithParam<int> {};

TEST_P(PatrolLast, referenceToTheShadowIsDroppedFromWithin) {
  Support::TraceCapture trace(0);
  Support::ManualLoop loop;
  auto shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
  auto chip = Zint::makePtr<PatrolChip>("chip");
  auto cm = Hardware::chipMemoryFactory("table", Hardware::ChipAddress(0x1000), 16, 4, 4, chip);
  cm->shadowEnabledIs(true);
  cm->auditEnabledIs(true);
  shadow->chipMemoryIs(cm);
  auto policy = Driver::policyFactory(cm);
  const U8 mask[4] = {0, 0, 0, 0xff};
  policy->maskIs(mask, Driver::Rewrite::kept);
  shadow->policyIs(policy);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  for (U32 i = 0; i < 8; ++i) {
    U32 value = i + 1;
    shadow->shadowWriteAndCompareWithCache(cm, i, reinterpret_cast<U8*>(&value), 4);
    chip->bytes.write(0x1000 + 4 * U64{i}, reinterpret_cast<const U8*>(&value), 4);
  }
  struct DropWatch : AuditedShadow::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onFinding(const Driver::Finding&) override { then(1); }
    bool allowsRepair(const Driver::Finding&) override { return then(2), true; }
    void onPass(const Driver::PassResult&) override { then(3); }
    std::function<void(int)> then = [](int) {};
  };
  auto observer = Zint::makePtr<DropWatch>(loop.activity, shadow);
  observer->isNonReferencingIs(true);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  for (U32 i = 0; i < 4; ++i) loop.turnAt(loop.clock->time() + 1);
  chip->bytes[0x1008] = 99;
  bool isDropped = false;
  const auto drop = [&](int place) {
    if (place != GetParam() || isDropped) return;
    isDropped = true;
    shadow = nullptr;
    cm = nullptr;
    policy = nullptr;
    chip = nullptr;
    observer = nullptr;
  };
  observer->then = drop;
  if (GetParam() == 4) {
    chip->afterRead = [&](U64, U32) { drop(4); };
  }
  for (U32 i = 0; i < 8; ++i) loop.turnAt(loop.clock->time() + 1);
  EXPECT_TRUE(isDropped);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

INSTANTIATE_TEST_SUITE_P(Places, PatrolLast, testing::Values(1, 2, 3, 4));

}  // namespace
