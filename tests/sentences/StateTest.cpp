// The table of states, also with observers that set a state themselves.
#include <limits>

#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;
using State = HardwareShadow::State;

class Watch : public HardwareShadow::NotifieeConst {
 public:
  Watch(const Zint::Ptr<Zint::ActivityConfig>& activity, const HardwareShadow::Ptr& shadow)
      : NotifieeConst(activity, Zint::Ptr<const HardwareShadow>(shadow)) {}
  void onState() override {
    seen.push_back(notifier()->state());
    if (also) also(seen.back());
  }
  std::vector<State> seen;
  std::function<void(State)> also;
};

class StateRules : public ShadowTest {
 protected:
  void SetUp() override {
    watch = Zint::makePtr<Watch>(loop.activity, shadow);
    trace.taken();
  }
  static Line acting(const char* state) {
    return {0, std::string("HardwareShadow::handleState( ") + state + " )"};
  }
  Zint::Seconds wake() const { return loop.activity->wakeTime(); }

  static constexpr State unconfigured = HardwareShadow::unconfigured();
  static constexpr State configured = HardwareShadow::configured();
  static constexpr State idle = HardwareShadow::idle();
  static constexpr State auditing = HardwareShadow::auditing();
  static constexpr Zint::Seconds never = std::numeric_limits<double>::infinity();
  Zint::Ptr<Watch> watch;
};

TEST_F(StateRules, configured_endsInIdleAndBothAreSeen) {
  shadow->chipMemoryIs(audited("a", 0x1000, 4));
  trace.taken();
  shadow->stateIs(configured);
  EXPECT_EQ(idle, shadow->state());
  EXPECT_EQ((std::vector{configured, idle}), watch->seen);
  EXPECT_EQ((Lines{acting("configured"), acting("idle")}), trace.taken());
  EXPECT_EQ("UmbraReadRequest", shadow->auditReadRequest()->name().bytes());
  EXPECT_EQ(Zint::Request::stop_, shadow->auditReadRequest()->state());
  EXPECT_EQ(never, wake());
}

TEST_F(StateRules, configured_enrolsAuditedRegionsThatAreNotInOverrideMode) {
  const ChipMemory::Ptr a = audited("a", 0x1000, 4), b = audited("b", 0x2000, 8),
                        c = shadowed("c", 0x3000, 16), d = region("d", 0x4000, 32);
  b->modeIs(ChipMemory::override());
  d->auditEnabledIs(true);  // without a shadow
  configure({a, b, c, d});
  EXPECT_EQ(36u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_EQ(2u, shadow->auditReadRequest()->chipMemorys());
}

TEST_F(StateRules, sameState_isSilent) {
  shadow->stateIs(unconfigured);
  EXPECT_EQ(Lines{}, trace.taken());
  EXPECT_TRUE(watch->seen.empty());
}

TEST_F(StateRules, idle_withoutARequestIsFatal) {
  EXPECT_ASSERTION(shadow->stateIs(idle), 0, "void Hardware::HardwareShadow::handleState()",
                   "auditReadRequest()");
  EXPECT_ASSERTION(shadow->stateIs(auditing), 0, "void Hardware::HardwareShadow::handleState()",
                   "auditReadRequest()");
}

TEST_F(StateRules, unknownState_isFatal) {
  configure({});
  EXPECT_ASSERTION(shadow->stateIs(static_cast<State>(7)), 0,
                   "void Hardware::HardwareShadow::handleState()", "0");
}

TEST_F(StateRules, configured_withAFilledRequestIsFatal) {
  const auto request = Hardware::chipReadRequestFactory("mine");
  request->chipMemoryIs(region("a", 0x1000, 4));
  shadow->auditReadRequestIs(request);
  EXPECT_ASSERTION(shadow->stateIs(configured), 0, "void Hardware::HardwareShadow::handleState()",
                   "auditReadRequest()->chipMemorys() == 0");
}

TEST_F(StateRules, configured_usesARequestThatIsThere) {
  const auto request = Hardware::chipReadRequestFactory("mine");
  shadow->auditReadRequestIs(request);
  configure({audited("a", 0x1000, 4)});
  EXPECT_EQ(request, shadow->auditReadRequest());
  EXPECT_EQ(1u, request->chipMemorys());
}

TEST_F(StateRules, auditing_armsTheClockForTheNextTurn) {
  configure({audited("a", 0x1000, 4)});
  loop.clock->timeIs(5);
  shadow->stateIs(auditing);
  EXPECT_EQ(0.0, shadow->lastAuditStartTime());
  EXPECT_LE(wake(), 5);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ(5.0, shadow->lastAuditStartTime());
  EXPECT_EQ(Zint::Request::start_, shadow->auditReadRequest()->state());
}

TEST_F(StateRules, auditing_withNothingToAuditGoesBackToIdle) {
  configure({shadowed("a", 0x1000, 4)});
  watch->seen.clear();
  shadow->stateIs(auditing);
  EXPECT_EQ(idle, shadow->state());
  EXPECT_EQ((std::vector{auditing, idle}), watch->seen);
  EXPECT_EQ((Lines{acting("auditing"), acting("idle")}), trace.taken());
  EXPECT_EQ(never, wake());
}

TEST_F(StateRules, idle_disarmsStopsAndKeepsTheRequest) {
  configure({audited("a", 0x1000, 4)});
  shadow->stateIs(auditing);
  loop.turnAt(3);
  shadow->auditsIs(9);
  shadow->stateIs(idle);
  EXPECT_EQ(never, wake());
  EXPECT_EQ(Zint::Request::stop_, shadow->auditReadRequest()->state());
  EXPECT_EQ(1u, shadow->auditReadRequest()->chipMemorys());
  EXPECT_EQ(9u, shadow->audits());
  EXPECT_EQ(3.0, shadow->lastAuditStartTime());
  EXPECT_EQ(4u, shadow->chipMemoryEntriesUnderAudit());
}

TEST_F(StateRules, auditing_againRestartsAtOnceWhateverTheInterval) {
  configure({audited("a", 0x1000, 4)});
  shadow->minIntervalBetweenAuditsIs(1000);
  shadow->stateIs(auditing);
  loop.turnAt(3);
  shadow->stateIs(idle);
  shadow->stateIs(auditing);
  loop.turnAt(4);
  EXPECT_EQ(4.0, shadow->lastAuditStartTime());
}

TEST_F(StateRules, unconfigured_emptiesTheRequestAndKeepsTheRegistry) {
  configure({audited("a", 0x1000, 4), audited("b", 0x500000000, 4)});
  const auto request = shadow->auditReadRequest();
  (void)found(0x1000);
  shadow->stateIs(unconfigured);
  EXPECT_EQ(0u, request->chipMemorys());
  EXPECT_EQ(Zint::Request::stop_, request->state());
  EXPECT_EQ(0u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_EQ(0u, shadow->nextIndex());
  EXPECT_EQ(0u, shadow->chipMemoryChunks());
  EXPECT_EQ(0u, shadow->chipMemoryIds());
  EXPECT_EQ(nullptr, shadow->lastChipMemory());
  EXPECT_EQ(2u, shadow->chipMemorys());
  shadow->stateIs(configured);
  EXPECT_EQ(request, shadow->auditReadRequest());
  EXPECT_EQ(8u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_NE(nullptr, found(0x500000000));
}

TEST_F(StateRules, plainStores_startNothing) {
  configure({audited("a", 0x1000, 4)});
  shadow->overrideHardwareIs(true);
  shadow->stateIs(auditing);
  EXPECT_EQ(1u, loop.turnAt(1));
  EXPECT_EQ(0.0, shadow->lastAuditStartTime());
  shadow->overrideHardwareIs(false);
  shadow->minIntervalBetweenAuditsIs(0.5);
  EXPECT_EQ(never, wake());
  EXPECT_EQ(0u, loop.turnAt(100));
}

TEST_F(StateRules, observer_setsAuditingInIdle) {
  shadow->chipMemoryIs(audited("a", 0x1000, 4));
  watch->also = [&](State state) {
    if (state == idle) shadow->stateIs(auditing);
  };
  shadow->stateIs(configured);
  EXPECT_EQ(auditing, shadow->state());
  EXPECT_EQ((std::vector{configured, idle, auditing}), watch->seen);
  EXPECT_EQ(1u, loop.turnAt(2));
  EXPECT_EQ(2.0, shadow->lastAuditStartTime());
}

TEST_F(StateRules, observer_setsUnconfiguredInConfigured) {
  shadow->chipMemoryIs(audited("a", 0x1000, 4));
  watch->also = [&](State state) {
    if (state == configured) shadow->stateIs(unconfigured);
  };
  shadow->stateIs(configured);
  // configured continues to idle unless another state was set.
  EXPECT_EQ(unconfigured, shadow->state());
  EXPECT_EQ(0u, shadow->nextIndex());
  EXPECT_EQ(0u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_EQ(never, wake());
}

TEST_F(StateRules, observer_setsAuditingInUnconfigured) {
  configure({audited("a", 0x1000, 4)});
  watch->also = [&](State state) {
    if (state == unconfigured) shadow->stateIs(auditing);
  };
  shadow->stateIs(unconfigured);
  EXPECT_EQ(idle, shadow->state());
  EXPECT_EQ(0u, shadow->auditReadRequest()->chipMemorys());
  EXPECT_EQ(never, wake());
  EXPECT_EQ(0u, loop.turnAt(10));
}

TEST_F(StateRules, observer_setsIdleInAuditing) {
  configure({audited("a", 0x1000, 4)});
  watch->also = [&](State state) {
    if (state == auditing) shadow->stateIs(idle);
  };
  shadow->stateIs(auditing);
  EXPECT_EQ(idle, shadow->state());
  EXPECT_EQ(never, wake());
  EXPECT_EQ(0u, loop.turnAt(10));
}

TEST_F(StateRules, observer_toggleTwiceEndsInTheLastCommand) {
  configure({audited("a", 0x1000, 4)});
  bool first = true;
  watch->also = [&](State state) {
    if (state != auditing || !std::exchange(first, false)) return;
    shadow->stateIs(idle);
    shadow->stateIs(auditing);
  };
  shadow->stateIs(auditing);
  EXPECT_EQ(auditing, shadow->state());
  EXPECT_EQ(1u, loop.turnAt(10));
  EXPECT_EQ(10.0, shadow->lastAuditStartTime());
}

TEST_F(StateRules, observer_releasesTheShadowInUnconfigured) {
  configure({audited("a", 0x1000, 4)});
  watch->isNonReferencingIs(true);
  watch->also = [&](State state) {
    if (state == unconfigured) shadow = nullptr;
  };
  HardwareShadow* raw = shadow.ptr();
  raw->stateIs(unconfigured);
  EXPECT_EQ(nullptr, watch->notifier());
}

TEST_F(StateRules, clockIs_anotherClockIsNotArmedByItself) {
  configure({audited("a", 0x1000, 4)});
  const auto other = Zint::manualClockFactory("other");
  shadow->clockIs(Zint::Ptr<const Zint::Clock>(other));
  shadow->stateIs(auditing);
  other->timeIs(7);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ(7.0, shadow->lastAuditStartTime());
}

TEST_F(StateRules, factory_withoutAClockNeverStartsAPass) {
  shadow = Hardware::hardwareShadowFactory(loop.activity, nullptr);
  configure({audited("a", 0x1000, 4)});
  shadow->stateIs(auditing);
  EXPECT_EQ(0u, loop.turnAt(1));
  EXPECT_EQ(auditing, shadow->state());
  shadow->stateIs(idle);
  EXPECT_EQ(idle, shadow->state());
}

TEST_F(StateRules, zombie_noNotificationReachesTheReactors) {
  configure({audited("a", 0x1000, 4)});
  shadow->stateIs(auditing);
  shadow->zintDoZombieReactors(true);
  loop.turnAt(1);
  EXPECT_EQ(0.0, shadow->lastAuditStartTime());
  shadow->zintDoZombieReactors(false);
  loop.turnAt(2);
  EXPECT_EQ(2.0, shadow->lastAuditStartTime());
}

}  // namespace
