// What changes in the middle of a pass: where it goes on, and what it does not do any more.
#include "PatrolWorld.h"

namespace {

using Driver::Policy;
using Driver::Rule;
using Driver::Verdict;

class PatrolPlace : public Support::PatrolWorld {
 protected:
  void until(const std::function<bool()>& isReached) {
    for (U32 i = 0; i < 2000 && !isReached(); ++i) step();
    ASSERT_TRUE(isReached());
  }
  // Sixteen known entries under a policy.
  void tableIs() {
    mac = region("mac", 0x1000, 16);
    policy = policyOf(mac);
    audit();
    fill(mac, 0, 16);
    settle();
  }
  U64 toldOf(U32 entry) const {
    U64 count = 0;
    for (const auto& finding : told) count += finding.entry == entry ? 1 : 0;
    return count;
  }

  ChipMemory::Ptr mac;
  Policy::Ptr policy;
};

// Asked before each repair.
class Asked : public Driver::AuditedShadow::NotifieeConst {
 public:
  Asked(const Zint::Ptr<Zint::ActivityConfig>& activity, const Driver::AuditedShadow::Ptr& shadow,
        std::function<void(U32 entry)> whenAsked)
      : NotifieeConst(activity, shadow), whenAsked_(std::move(whenAsked)) {
    isNonReferencingIs(true);
  }
  bool allowsRepair(const Driver::Finding& finding) override {
    whenAsked_(finding.entry);
    return true;
  }

 private:
  const std::function<void(U32 entry)> whenAsked_;
};

// --- The same place ------------------------------------------------------------------------------

TEST_F(PatrolPlace, paused_byTheObserverOfAFindingGoesOnBehindIt) {
  tableIs();
  policy->ruleIs(0, 16, Rule::detectOnly);
  damage(mac, 3, 99);
  damage(mac, 5, 99);
  onFinding = [&](const Driver::Finding&) { shadow->pausedIs(true); };
  for (U32 i = 0; i < 40 && passes.empty(); ++i) {
    step();
    shadow->pausedIs(false);
  }
  ASSERT_FALSE(passes.empty());
  EXPECT_TRUE(passes[0].isComplete);
  EXPECT_EQ(passes[0].entries, 16u);
  EXPECT_EQ(passes[0].differences, 2u);
  EXPECT_EQ(toldOf(3), 1u);
  EXPECT_EQ(toldOf(5), 1u);
}

TEST_F(PatrolPlace, paused_byTheObserverOfTheLastEntryEndsThePass) {
  tableIs();
  policy->ruleIs(0, 16, Rule::detectOnly);
  damage(mac, 15, 99);
  onFinding = [&](const Driver::Finding&) { shadow->pausedIs(true); };
  until([&] { return shadow->paused(); });
  shadow->pausedIs(false);
  ASSERT_TRUE(pass());
  EXPECT_EQ(toldOf(15), 1u);
  EXPECT_EQ(passes[0].entries, 16u);
}

TEST_F(PatrolPlace, paused_byTheObserverOfARepairAdoptsAndRepairsEachOnce) {
  const auto fresh = region("fresh", 0x8000, 16);
  tableIs();
  ASSERT_TRUE(pass());
  told.clear();
  passes.clear();
  damage(mac, 3, 99);
  damage(mac, 4, 99);
  damage(fresh, 7, 99);
  onFinding = [&](const Driver::Finding&) { shadow->pausedIs(true); };
  for (U32 i = 0; i < 40 && passes.empty(); ++i) {
    step();
    shadow->pausedIs(false);
  }
  ASSERT_FALSE(passes.empty());
  EXPECT_EQ(passes[0].repairs, 2u);
  EXPECT_EQ(passes[0].entries, 32u);
  EXPECT_EQ(count(Verdict::repaired), 2u);
  EXPECT_EQ(count(Verdict::adopted), 1u);
}

TEST_F(PatrolPlace, policy_thatEachFindingReplacesDoesNotKeepThePassFromItsEnd) {
  shadow->findsResetsIs(false);
  tableIs();
  policy->ruleIs(0, 16, Rule::detectOnly);
  for (U32 e = 0; e < 16; ++e) damage(mac, e, 99);
  onFinding = [&](const Driver::Finding&) {
    const Policy::Ptr other = Driver::policyFactory(mac);
    other->ruleIs(0, 16, Rule::detectOnly);
    shadow->policyIs(other);
  };
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes[0].isComplete);
  EXPECT_EQ(passes[0].entries, 16u);
  EXPECT_EQ(passes[0].differences, 16u);
}

TEST_F(PatrolPlace, doAudit_thatAFindingEndsCountsWhatItJudged) {
  tableIs();
  policy->ruleIs(0, 16, Rule::detectOnly);
  shadow->stateIs(HardwareShadow::idle());
  damage(mac, 3, 99);
  onFinding = [&](const Driver::Finding&) { shadow->pausedIs(true); };
  const Driver::PassResult result = shadow->doAudit(mac, 0, 16);
  EXPECT_FALSE(result.isComplete);
  EXPECT_EQ(result.differences, 1u);
  EXPECT_EQ(result.entries, 4u);
}

// --- The region ----------------------------------------------------------------------------------

TEST_F(PatrolPlace, region_thatIsReplacedInTheMiddleOfItsAuditIsNotRepairedAnyMore) {
  shadow->maxEntriesPerSliceIs(4);
  const auto old = region("old", 0x1000, 16);
  audit();
  fill(old, 0, 16);
  settle();
  until([&] { return shadow->passEntriesDone() == 4; });
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(old->address());
  const auto fresh = region("fresh", 0x1000, 16);
  shadow->overrideHardwareIs(false);
  put(fresh, 10, 4711);
  const U64 writes = chip->writes;
  for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(held(fresh, 10), 4711u);
  EXPECT_EQ(old->registersFixed(), 0u);
  EXPECT_EQ(chip->writes, writes);
}

TEST_F(PatrolPlace, region_thatIsReplacedInTheMiddleOfASearchForAResetIsNoReset) {
  chip->clock = loop.clock.ptr();
  chip->callCost = 0.001;
  shadow->turnBoundIs(0.002);
  const auto old = region("old", 0x1000, 64);
  audit();
  fill(old, 0, 64);
  settle();
  damage(old, 0, 99);
  U32 probes = 0;
  chip->afterRead = [&](U64 address, U32 entries) {
    probes += entries == 1 && address != 0x1000 ? 1 : 0;
  };
  until([&] { return probes >= 2; });
  ASSERT_EQ(shadow->repairs(), 0u);  // the search is under way
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryDel(old->address());
  const auto fresh = region("fresh", 0x1000, 64);
  shadow->overrideHardwareIs(false);
  for (U32 e = 0; e < 64; ++e) put(fresh, e, 0);
  for (U32 i = 0; i < 2; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::reset), 0u);
  EXPECT_EQ(shadow->chip(fresh)->resets(), 0u);
  EXPECT_EQ(held(fresh, 10), 0u);
}

// --- The policy ----------------------------------------------------------------------------------

TEST_F(PatrolPlace, rule_thatAnObserverSetsWhenItIsAskedHoldsAtOnce) {
  tableIs();
  damage(mac, 3, 99);
  const auto asked = Zint::makePtr<Asked>(
      loop.activity, shadow, [&](U32 entry) { policy->ruleIs(entry, 1, Rule::detectOnly); });
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(mac, 3), 99u);
  EXPECT_EQ(count(Verdict::detectOnly), 1u);
  EXPECT_EQ(shadow->repairs(), 0u);
}

TEST_F(PatrolPlace, rule_thatTheSecondLookSetsHoldsAtOnceAndNobodyIsAsked) {
  shadow->rereadsIs(true);
  tableIs();
  damage(mac, 3, 99);
  U32 questions = 0;
  const auto asked = Zint::makePtr<Asked>(loop.activity, shadow, [&](U32) { ++questions; });
  chip->afterRead = [&](U64 address, U32 entries) {
    if (address == 0x100c && entries == 1) policy->ruleIs(3, 1, Rule::readOnly);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(mac, 3), 99u);
  EXPECT_EQ(questions, 0u);
  EXPECT_EQ(count(Verdict::detectOnly), 1u);
}

TEST_F(PatrolPlace, rule_thatTheSecondLookSetsToVolatileIsNoDifference) {
  shadow->rereadsIs(true);
  tableIs();
  damage(mac, 3, 99);
  chip->afterRead = [&](U64 address, U32 entries) {
    if (address == 0x100c && entries == 1) policy->ruleIs(3, 1, Rule::volatile_);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(mac, 3), 99u);
  EXPECT_TRUE(told.empty());
}

TEST_F(PatrolPlace, rule_thatTheReadOfKeptBitsSetsHoldsAtOnce) {
  tableIs();
  const U32 mask = 0xff00;
  policy->maskIs({reinterpret_cast<const U8*>(&mask), 4}, Driver::Rewrite::kept);
  damage(mac, 3, 99);
  chip->afterRead = [&](U64 address, U32 entries) {
    if (address == 0x100c && entries == 1) policy->ruleIs(3, 1, Rule::detectOnly);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(mac, 3), 99u);
  EXPECT_EQ(count(Verdict::detectOnly), 1u);
}

// --- Waits without an end ------------------------------------------------------------------------

TEST_F(PatrolPlace, sliceInterval_withoutEndIsAReason) {
  mac = region("mac", 0x1000, 16);
  shadow->maxEntriesPerSliceIs(4);
  shadow->sliceIntervalIs(Zint::never);
  audit();
  steps(20);
  EXPECT_EQ(shadow->passEntriesDone(), 4u);
  EXPECT_EQ(shadow->patrolReason(), "sliceInterval is infinite");
  shadow->sliceIntervalIs(0.001);
  EXPECT_EQ(shadow->patrolReason(), "");
  ASSERT_TRUE(pass());
}

TEST_F(PatrolPlace, minIntervalBetweenAudits_withoutEndIsAReason) {
  mac = region("mac", 0x1000, 16);
  shadow->minIntervalBetweenAuditsIs(Zint::never);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_FALSE(pass(20));
  EXPECT_EQ(shadow->patrolReason(), "minIntervalBetweenAudits is infinite");
  shadow->minIntervalBetweenAuditsIs(1);
  EXPECT_EQ(shadow->patrolReason(), "");
  ASSERT_TRUE(pass());
}

}  // namespace
