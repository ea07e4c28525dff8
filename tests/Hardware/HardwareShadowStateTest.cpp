// The shadow's attributes, its states and what entering each one does.
#include "runtime/Probes.h"
#include "support/ShadowTest.h"

namespace {

using Support::Lines;
using ShadowState = Hardware::HardwareShadow::State;
using ShadowStates = std::vector<ShadowState>;

using Support::auditingState;
using Support::configuredState;
using Support::idleState;
using Support::unconfiguredState;
constexpr const char* handleStateFunction = "void Hardware::HardwareShadow::handleState()";

class HardwareShadowState : public Support::ShadowTest {
 protected:
  class Watch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onState() override {
      seen.push_back(notifier()->state());
      indexed.push_back(notifier()->nextIndex());
      if (then) then(notifier()->state());
    }
    ShadowStates seen;
    std::vector<U32> indexed;  // nextIndex at each announcement
    std::function<void(ShadowState)> then;
  };
  // Counts the commands given to the audit's request.
  class Commands : public ChipReadRequest::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onState() override {
      given.push_back(notifier()->state());
      if (then) then();
    }
    std::vector<S32> given;
    std::function<void()> then;
  };

  void stateReached(ShadowState state) {
    if (state == unconfiguredState) return;
    shadow->chipMemoryIs(mac);
    shadow->chipMemoryIs(plain);
    shadow->stateIs(configuredState);
    if (state == auditingState) shadow->stateIs(auditingState);
    trace.full.clear();
  }

  ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  ChipMemory::Ptr plain = region("plain", 0x2000, 4);
};

// --- The state table ----------------------------------------------------------------------------

struct Transition {
  const char* name;
  ShadowState from;
  ShadowState to;
  ShadowStates seen;
  Lines lines;
  std::vector<S32> commands;  // given to the audit's request
  U32 members;                // of it
  U32 entriesUnderAudit;
  bool indexed;
  Zint::Seconds wake;
};

std::ostream& operator<<(std::ostream& out, const Transition& row) { return out << row.name; }

class HardwareShadowStateTransition : public HardwareShadowState,
                                      public testing::WithParamInterface<Transition> {};

TEST_P(HardwareShadowStateTransition, holds) {
  const Transition& row = GetParam();
  if (row.from == unconfiguredState) {  // with the request that an earlier round has left behind
    stateReached(idleState);
    shadow->stateIs(unconfiguredState);
    trace.full.clear();
  }
  stateReached(row.from);
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  const auto commands = Zint::makePtr<Commands>(loop.activity, shadow->auditReadRequest());

  shadow->stateIs(row.to);

  EXPECT_EQ(watch->seen, row.seen);
  EXPECT_EQ(trace.taken(), row.lines);
  EXPECT_EQ(commands->given, row.commands);
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), row.members);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), row.entriesUnderAudit);
  EXPECT_EQ(shadow->nextIndex() != 0, row.indexed);
  EXPECT_EQ(loop.activity->wakeTime(), row.wake);
  EXPECT_EQ(shadow->chipMemorys(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HardwareShadowStateTransition,
    testing::Values(
        Transition{"unconfigured_configured",
                   unconfiguredState,
                   configuredState,
                   {configuredState, idleState},
                   {{0, "HardwareShadow::handleState( configured )"},
                    {0, "HardwareShadow::handleState( idle )"}},
                   {2},
                   1,
                   16,
                   true,
                   Zint::never},
        Transition{"unconfigured_unconfigured",
                   unconfiguredState,
                   unconfiguredState,
                   {},
                   {},
                   {},
                   0,
                   0,
                   false,
                   Zint::never},
        Transition{"idle_idle", idleState, idleState, {}, {}, {}, 1, 16, true, Zint::never},
        Transition{"idle_auditing",
                   idleState,
                   auditingState,
                   {auditingState},
                   {{0, "HardwareShadow::handleState( auditing )"}},
                   {},
                   1,
                   16,
                   true,
                   0.0},
        Transition{"idle_unconfigured",
                   idleState,
                   unconfiguredState,
                   {unconfiguredState},
                   {{0, "HardwareShadow::handleState( unconfigured )"}},
                   {2},
                   0,
                   0,
                   false,
                   Zint::never},
        Transition{"auditing_auditing", auditingState, auditingState, {}, {}, {}, 1, 16, true, 0.0},
        Transition{"auditing_idle",
                   auditingState,
                   idleState,
                   {idleState},
                   {{0, "HardwareShadow::handleState( idle )"}},
                   {2},
                   1,
                   16,
                   true,
                   Zint::never},
        Transition{"auditing_unconfigured",
                   auditingState,
                   unconfiguredState,
                   {unconfiguredState},
                   {{0, "HardwareShadow::handleState( unconfigured )"}},
                   {2},
                   0,
                   0,
                   false,
                   0.0}),
    [](const auto& row) { return row.param.name; });

// --- Broken rules -------------------------------------------------------------------------------

TEST_F(HardwareShadowState, idleAndAuditingNeedARequest) {
  EXPECT_ASSERTION(shadow->stateIs(idleState), 0, handleStateFunction, "auditReadRequest()");
  EXPECT_ASSERTION(shadow->stateIs(auditingState), 0, handleStateFunction, "auditReadRequest()");
}

TEST_F(HardwareShadowState, configuredNeedsAnEmptyRequest) {
  constexpr const char* rule = "auditReadRequest()->chipMemorys() == 0";
  stateReached(idleState);
  EXPECT_ASSERTION(shadow->stateIs(configuredState), 0, handleStateFunction, rule);
  shadow->stateIs(auditingState);
  EXPECT_ASSERTION(shadow->stateIs(configuredState), 0, handleStateFunction, rule);
}

// Drops the audit's request as soon as it is installed.
class RequestDropper : public Hardware::HardwareShadow::NotifieeConst {
 public:
  RequestDropper(const Zint::Ptr<Zint::ActivityConfig>& activity,
                 const Hardware::HardwareShadow::Ptr& shadow)
      : NotifieeConst(activity, shadow), shadow_(shadow.ptr()) {}
  void handleNotification(Zint::ActivityConfig*) override {
    if (attribute() == Hardware::HardwareShadow::Id::auditReadRequest)
      shadow_->auditReadRequestDel();
  }

 private:
  Hardware::HardwareShadow* shadow_;
};

TEST_F(HardwareShadowState, configuredNeedsTheRequestThatItHasMade) {
  const auto dropper = Zint::makePtr<RequestDropper>(shadow->zintFwkActivity(), shadow);
  EXPECT_ASSERTION(shadow->stateIs(configuredState), 0, handleStateFunction, "auditReadRequest()");
}

TEST_F(HardwareShadowState, unknownValueIsFatal) {
  EXPECT_ASSERTION(shadow->stateIs(static_cast<ShadowState>(4)), 0, handleStateFunction, "0");
}

TEST_F(HardwareShadowState, traceComesBeforeTheAction) {
  EXPECT_EQ(Support::assertedCondition([&] { shadow->stateIs(auditingState); }),
            "auditReadRequest()");
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text, "HardwareShadow::handleState( auditing )");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].source, "Hardware/Umbra");
  EXPECT_EQ(trace.full[0].function, "handleState");
}

// --- Birth and plain attributes -----------------------------------------------------------------

TEST_F(HardwareShadowState, factoryGivesTheInitialValues) {
  EXPECT_EQ(shadow->zintFwkActivity(), loop.activity);
  EXPECT_EQ(shadow->state(), unconfiguredState);
  EXPECT_FALSE(shadow->overrideHardware());
  EXPECT_EQ(shadow->clock(), Zint::Ptr<const Zint::Clock>(loop.clock));
  EXPECT_EQ(shadow->minIntervalBetweenAudits(), 0.0);
  EXPECT_EQ(shadow->chipMemorys(), 0u);
  EXPECT_EQ(shadow->lastChipMemory(), nullptr);
  EXPECT_EQ(shadow->audits(), 0u);
  EXPECT_EQ(shadow->auditReadRequest(), nullptr);
  EXPECT_EQ(shadow->nextIndex(), 0);
  EXPECT_EQ(shadow->lastAuditStartTime(), 0.0);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 0u);
  EXPECT_TRUE(shadow->hasNotificationActive());
  EXPECT_EQ(shadow->references(), 1u);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(HardwareShadowState, withoutAClockNoPassBeginsByItself) {
  shadow = Hardware::hardwareShadowFactory(loop.activity, nullptr);
  EXPECT_EQ(shadow->clock(), nullptr);
  stateReached(auditingState);
  EXPECT_EQ(shadow->state(), auditingState);
  EXPECT_EQ(loop.turn(), 0u);
  shadow->doStartAudit();
  shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(shadow->audits(), 1u);
}

TEST_F(HardwareShadowState, plainAttributesAreStoredWithoutReaction) {
  shadow->overrideHardwareIs(true);
  shadow->minIntervalBetweenAuditsIs(2.5);
  shadow->auditsIs(7);
  shadow->lastAuditStartTimeIs(1.5);
  shadow->chipMemoryEntriesUnderAuditIs(99);
  EXPECT_TRUE(shadow->overrideHardware());
  EXPECT_EQ(shadow->minIntervalBetweenAudits(), 2.5);
  EXPECT_EQ(shadow->audits(), 7u);
  EXPECT_EQ(shadow->lastAuditStartTime(), 1.5);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 99u);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(HardwareShadowState, everyAttributeIsAnnouncedWhenItChangesAndOnlyThen) {
  const auto announced = Zint::makePtr<Probes::Watch>(loop.activity, shadow);
  const ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("own");
  const Zint::Ptr<Zint::ActivityConfig> other =
      Zint::activityFactory("other", Zint::Ptr<const Zint::Clock>(loop.clock));
  for (int i = 0; i < 2; ++i) {
    shadow->overrideHardwareIs(true);
    shadow->minIntervalBetweenAuditsIs(2.5);
    shadow->auditsIs(7);
    shadow->lastAuditStartTimeIs(1.5);
    shadow->chipMemoryEntriesUnderAuditIs(99);
    shadow->lastChipMemoryIs(mac);
    shadow->nextIndexIs(5);
    shadow->auditReadRequestIs(request);
    shadow->clockIs(nullptr);
    shadow->zintFwkActivityIs(other);
  }
  shadow->nextIndexIs(0);
  using Id = HardwareShadow::Id;
  EXPECT_EQ(announced->told, (std::vector<Zint::AttributeId>{
                                 Id::overrideHardware, Id::minIntervalBetweenAudits, Id::audits,
                                 Id::lastAuditStartTime, Id::chipMemoryEntriesUnderAudit,
                                 Id::lastChipMemory, Id::nextIndex, Id::auditReadRequest, Id::clock,
                                 Id::zintFwkActivity, Id::nextIndex}));
}

TEST_F(HardwareShadowState, newIntervalLeavesAPassThatIsArmed) {
  stateReached(auditingState);
  shadow->minIntervalBetweenAuditsIs(60);
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
}

TEST_F(HardwareShadowState, clockReactorCanBeReplacedAndDropped) {
  stateReached(auditingState);
  shadow->clockIs(loop.clock);
  EXPECT_EQ(loop.activity->wakeTime(), 0.0) << "the same clock changes nothing";
  shadow->clockDel();
  EXPECT_EQ(shadow->clock(), nullptr);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  shadow->clockIs(loop.clock);
  EXPECT_EQ(shadow->clock(), Zint::Ptr<const Zint::Clock>(loop.clock));
  shadow->stateIs(idleState);
  shadow->stateIs(auditingState);
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
}

TEST_F(HardwareShadowState, auditReadRequestCanBeReplacedAndDropped) {
  stateReached(auditingState);
  const ChipReadRequest::Ptr first = shadow->auditReadRequest();
  const ChipReadRequest::Ptr second = Hardware::chipReadRequestFactory("second");
  EXPECT_EQ(first->notifiees(), 1u);
  shadow->auditReadRequestIs(first);
  EXPECT_EQ(first->notifiees(), 1u);
  shadow->auditReadRequestIs(second);
  EXPECT_EQ(first->notifiees(), 0u);
  EXPECT_EQ(shadow->auditReadRequest(), second);
  first->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(shadow->audits(), 0u);
  second->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(shadow->audits(), 1u);
  shadow->auditReadRequestDel();
  EXPECT_EQ(shadow->auditReadRequest(), nullptr);
}

TEST_F(HardwareShadowState, activityIsPassedOnToTheReactors) {
  stateReached(auditingState);
  const Zint::Ptr<Zint::ActivityConfig> other =
      Zint::activityFactory("other", Zint::Ptr<const Zint::Clock>(loop.clock));
  shadow->zintFwkActivityIs(other);
  EXPECT_EQ(shadow->zintFwkActivity(), other);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(other->turn(), 1u);
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::start_);
}

// --- Configuring --------------------------------------------------------------------------------

TEST_F(HardwareShadowState, configuringMakesTheNamedRequestOfTheAuditedRegions) {
  const ChipMemory::Ptr overridden = audited("overridden", 0x3000, 8);
  overridden->modeIs(ChipMemory::override());
  const ChipMemory::Ptr waiting = audited("waiting", 0x4000, 5);
  waiting->modeIs(ChipMemory::buffered());
  const ChipMemory::Ptr shadowless = region("shadowless", 0x5000, 3);
  shadowless->auditEnabledIs(true);
  configure({mac, plain, overridden, waiting, shadowless});
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  EXPECT_EQ(request->name(), "UmbraReadRequest");
  EXPECT_EQ(request->chipMemorys(), 3u);
  EXPECT_EQ(request->chipMemory(mac->address()), mac);
  EXPECT_EQ(request->chipMemory(waiting->address()), waiting);
  EXPECT_EQ(request->chipMemory(shadowless->address()), shadowless);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u + 5 + 3);
  EXPECT_EQ(shadow->state(), idleState);
}

TEST_F(HardwareShadowState, configuringAgainReusesTheRequestAndRebuildsTheLookup) {
  stateReached(auditingState);
  const ChipReadRequest::Ptr request = shadow->auditReadRequest();
  shadow->stateIs(unconfiguredState);
  EXPECT_EQ(found(0x1000), nullptr);
  shadow->stateIs(configuredState);
  EXPECT_EQ(shadow->auditReadRequest(), request);
  EXPECT_EQ(request->chipMemory(mac->address()), mac);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u);
  EXPECT_EQ(found(0x1000), mac);
}

TEST_F(HardwareShadowState, configuredIsAnnouncedBeforeItIsActedOn) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  stateReached(idleState);
  EXPECT_EQ(watch->seen, (ShadowStates{configuredState, idleState}));
  EXPECT_EQ(watch->indexed, (std::vector<U32>{0, 1}));
}

TEST_F(HardwareShadowState, theSameRegionsAreEnrolledWithAndWithoutAnObserverOfTheRequest) {
  class Regions : public ChipReadRequest::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onChipMemory(const ChipAddress& key) override { told.push_back(key.value()); }
    std::vector<U64> told;
  };
  const ChipMemory::Ptr overridden = audited("overridden", 0x3000, 4);
  overridden->modeIs(ChipMemory::override());
  for (const ChipMemory::Ptr& cm : {mac, plain, overridden, audited("acl", 0x4000, 2)})
    shadow->chipMemoryIs(cm);
  const auto enrolled = [this] {
    std::vector<Zint::String8> names;
    const ChipReadRequest::Ptr request = shadow->auditReadRequest();
    for (auto member = request->chipMemoryIterator(); member; ++member)
      names.push_back(member->chipMemory()->name());
    return names;
  };
  shadow->stateIs(configuredState);
  const std::vector<Zint::String8> unobserved = enrolled();
  EXPECT_EQ(unobserved.size(), 2u);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 18u);
  shadow->stateIs(unconfiguredState);

  const auto regions = Zint::makePtr<Regions>(loop.activity, shadow->auditReadRequest());
  shadow->stateIs(configuredState);
  EXPECT_EQ(enrolled(), unobserved);
  EXPECT_EQ(regions->told, (std::vector<U64>{0x1000, 0x4000}));
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 18u);
}

TEST_F(HardwareShadowState, entriesUnderAuditAreCountedWhenIdleIsAnnounced) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  std::vector<U32> counted;
  watch->then = [&](ShadowState) { counted.push_back(shadow->chipMemoryEntriesUnderAudit()); };
  configure({mac, plain, audited("vlan", 0x3000, 5)});
  EXPECT_EQ(watch->seen, (ShadowStates{configuredState, idleState}));
  EXPECT_EQ(counted, (std::vector<U32>{0, 16 + 5}));
}

// --- Auditing and idle --------------------------------------------------------------------------

TEST_F(HardwareShadowState, auditingWithNothingToAuditGoesStraightBackToIdle) {
  mac->modeIs(ChipMemory::override());
  configure({mac, plain});
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 0u);
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  shadow->stateIs(auditingState);
  EXPECT_EQ(watch->seen, (ShadowStates{auditingState, idleState}));
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::handleState( auditing )"},
                                  {0, "HardwareShadow::handleState( idle )"}}));
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(HardwareShadowState, idleKeepsTheRequestsRegionsTheCountsAndTheBuffers) {
  stateReached(auditingState);
  loop.turnAt(3);
  shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
  const Hal::BufBase::Ptr store = mac->shadow();
  shadow->stateIs(idleState);
  EXPECT_EQ(shadow->auditReadRequest()->chipMemorys(), 1u);
  EXPECT_EQ(shadow->audits(), 1u);
  EXPECT_EQ(shadow->lastAuditStartTime(), 3.0);
  EXPECT_EQ(mac->shadow(), store);
}

TEST_F(HardwareShadowState, idleDisarmsTheClockBeforeTheRequestIsStopped) {
  stateReached(auditingState);
  const auto commands = Zint::makePtr<Commands>(loop.activity, shadow->auditReadRequest());
  Zint::Seconds wake = loop.activity->wakeTime();
  EXPECT_EQ(wake, 0.0);
  commands->then = [&] { wake = loop.activity->wakeTime(); };
  shadow->stateIs(idleState);
  EXPECT_EQ(commands->given, std::vector<S32>{ChipReadRequest::stop_});
  EXPECT_EQ(wake, Zint::never);
}

TEST_F(HardwareShadowState, firstPassBeginsInTheNextTurnNotInTheCall) {
  stateReached(auditingState);
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::stop_);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::start_);
}

TEST_F(HardwareShadowState, reenteringAuditingBeginsAtOnceWhateverTheInterval) {
  shadow->minIntervalBetweenAuditsIs(1000);
  stateReached(auditingState);
  loop.turnAt(5);
  shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(loop.activity->wakeTime(), 1005.0);
  shadow->stateIs(idleState);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  shadow->stateIs(auditingState);
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
  loop.turnAt(6);
  EXPECT_EQ(shadow->lastAuditStartTime(), 6.0);
}

TEST_F(HardwareShadowState, unconfiguredWhileAPassIsArmedStartsNone) {
  stateReached(auditingState);
  shadow->stateIs(unconfiguredState);
  trace.full.clear();
  loop.turnAt(1);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::stop_);
}

TEST_F(HardwareShadowState, overrideHardwareHoldsPassesBackUntilTheClockIsArmedAgain) {
  shadow->overrideHardwareIs(true);
  stateReached(auditingState);
  EXPECT_EQ(loop.turn(), 1u) << "the clock still fires";
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never) << "but is not armed again";
  shadow->overrideHardwareIs(false);
  EXPECT_EQ(loop.turn(), 0u);
  shadow->stateIs(idleState);
  shadow->stateIs(auditingState);
  loop.turn();
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::start_);
}

// --- What observers may do ----------------------------------------------------------------------

TEST_F(HardwareShadowState, observerThatSetsAnotherStateHasTheLastWord) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->then = [&](ShadowState state) {
    if (state == idleState) shadow->stateIs(auditingState);
  };
  stateReached(idleState);
  EXPECT_EQ(shadow->state(), auditingState);
  EXPECT_EQ(watch->seen, (ShadowStates{configuredState, idleState, auditingState}));
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
}

TEST_F(HardwareShadowState, observerThatWithdrawsTheFirstConfiguredLeavesTheShadowUnconfigured) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->then = [&](ShadowState state) {
    if (state == configuredState) shadow->stateIs(unconfiguredState);
  };
  shadow->chipMemoryIs(mac);
  shadow->stateIs(configuredState);
  EXPECT_EQ(shadow->state(), unconfiguredState);
  EXPECT_EQ(shadow->nextIndex(), 0);
}

TEST_F(HardwareShadowState, observerMayDropTheLastReferenceToTheShadow) {
  stateReached(idleState);
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->isNonReferencingIs(true);
  watch->then = [&](ShadowState) { shadow = nullptr; };
  shadow->stateIs(auditingState);
  EXPECT_EQ(watch->notifier(), nullptr);
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::handleState( auditing )"}}));
  EXPECT_EQ(loop.turn(), 0u);
}

}  // namespace
