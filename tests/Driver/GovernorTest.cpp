// The governor: the period, the share and the turn bound on buses of known cost.
#include <Driver/Check.h>
#include <Driver/Descriptions.h>
#include <Driver/Governor.h>
#include <Driver/Policy.h>
#include <Zint/GenericIf.h>
#include <Zint/Type.h>

#include <cmath>
#include <limits>

#include "PatrolTest.h"
#include "TurnWatch.h"
#include "support/TraceCapture.h"

namespace {

using Support::TurnWatch;

struct Governor : Support::PatrolTest {
  Governor() { chip->clock = loop.clock.ptr(); }

  // A region on a bus of that cost, known to be zero everywhere.
  ChipMemory::Ptr table(U32 entries, Zint::Seconds cost, Zint::Seconds callCost = 0) {
    const ChipMemory::Ptr cm = region("table", 0x100000, entries);
    chip->cost = cost;
    chip->callCost = callCost;
    return cm;
  }
  void govern() { governor = Driver::governorFactory(loop.activity, shadow); }
  void passesAre(U32 count) {
    for (U32 i = 0; i < count; ++i) ASSERT_TRUE(pass(1000000));
  }
  Zint::Seconds lastPeriod() const { return shadow->passPeriods().back(); }

  Support::TraceCapture traces;
  Zint::Ptr<TurnWatch> turns = Zint::makePtr<TurnWatch>(loop.activity, shadow);
  Driver::Governor::Ptr governor;
};

TEST_F(Governor, takesOverTheShadowsPace) {
  govern();
  EXPECT_EQ(governor->shadow(), shadow);
  EXPECT_EQ(governor->period(), 60);
  EXPECT_EQ(governor->share(), 0.05);
  EXPECT_EQ(governor->turnBound(), 0.001);
  EXPECT_EQ(shadow->turnBound(), 0.001);
  EXPECT_EQ(shadow->minIntervalBetweenAudits(), 60);
  EXPECT_EQ(shadow->maxEntriesPerSlice(), Driver::Governor::largestSlice);
}

TEST_F(Governor, period_isKeptFromStartToStart) {
  table(16384, 1e-6);
  govern();
  audit();
  passesAre(4);
  for (const Zint::Seconds period : shadow->passPeriods()) EXPECT_NEAR(period, 60, 0.001);
  EXPECT_NEAR(governor->announcedPeriod(), 60, 1e-9);
  EXPECT_NEAR(governor->passWork(), 0.016384, 0.0001);
  EXPECT_NEAR(governor->achievedShare(), 0.016384 / 60, 0.00001);
}

TEST_F(Governor, period_isFilledEvenly) {
  table(16384, 1e-6);
  govern();
  audit();
  passesAre(1);
  turns->turns.clear();
  passesAre(2);
  ASSERT_GT(turns->turns.size(), 30u);
  for (std::size_t i = 1; i < turns->turns.size(); ++i) {
    const Zint::Seconds gap = turns->turns[i].start - turns->turns[i - 1].start;
    EXPECT_GT(gap, 60.0 / 17 / 3);
    EXPECT_LT(gap, 60.0 / 17 * 2);
  }
}

TEST_F(Governor, share_isMoreImportantThanThePeriod) {
  table(16384, 200e-6);
  govern();
  audit();
  passesAre(1);
  for (U32 i = 0; i < 3; ++i) {
    step();  // the first turn of a pass
    const Zint::Seconds announced = governor->announcedPeriod();
    passesAre(1);
    step();
    EXPECT_NEAR(lastPeriod(), announced, announced / 100);
    EXPECT_NEAR(governor->achievedShare(), 0.05, 0.001);
    passesAre(1);
  }
  EXPECT_NEAR(governor->announcedPeriod(), 65.536, 0.1);
  EXPECT_LE(turns->longest(), 0.001 + 200e-6);
}

// Cost of an entry, and of a call beside it.
struct GovernorBuses : Governor,
                       testing::WithParamInterface<std::pair<Zint::Seconds, Zint::Seconds>> {};

TEST_P(GovernorBuses, wishesAreMetWithinTheirTolerances) {
  const auto [cost, callCost] = GetParam();
  table(16384, cost, callCost);
  govern();
  governor->periodIs(2);
  audit();
  passesAre(1);
  for (U32 i = 0; i < 4; ++i) {
    step();
    const Zint::Seconds announced = governor->announcedPeriod();
    passesAre(1);
    step();
    EXPECT_NEAR(lastPeriod(), announced, announced / 10);
    EXPECT_LE(governor->achievedShare(), 0.05 * 1.2);
    if (announced > 2.001) {
      EXPECT_GE(governor->achievedShare(), 0.05 * 0.8);
    }
    passesAre(1);
  }
  EXPECT_LE(turns->longest(), 0.001 + callCost + cost + 1e-9);
}

INSTANTIATE_TEST_SUITE_P(ofAnyCost, GovernorBuses,
                         testing::Values(std::pair(0.1e-6, 0.0), std::pair(1e-6, 0.0),
                                         std::pair(5e-6, 0.0), std::pair(50e-6, 0.0),
                                         std::pair(200e-6, 0.0), std::pair(0.1e-6, 75e-6),
                                         std::pair(1e-6, 75e-6), std::pair(5e-6, 75e-6),
                                         std::pair(50e-6, 75e-6), std::pair(200e-6, 75e-6)));

TEST_F(Governor, accessesThatCostNothingAreMadeInTheLargestSlices) {
  table(Driver::Governor::largestSlice * 2, 0);
  govern();
  audit();
  passesAre(2);  // the first one finds out
  turns->turns.clear();
  passesAre(1);
  EXPECT_LE(turns->turns.size(), 3u);
  step();
  EXPECT_NEAR(lastPeriod(), 60, 1e-6);
  EXPECT_EQ(governor->achievedShare(), 0);
}

TEST_F(Governor, aBusThatGetsSlowerIsFollowed) {
  table(16384, 1e-6);
  govern();
  governor->periodIs(1);
  audit();
  passesAre(2);
  EXPECT_NEAR(governor->announcedPeriod(), 1, 1e-9);
  // Gradually, within passes, to a tenfold.
  onFinding = nullptr;
  chip->afterRead = [this](U64, U32) { chip->cost = std::min(10e-6, chip->cost * 1.02); };
  passesAre(10);
  EXPECT_NEAR(chip->cost, 10e-6, 1e-9);
  passesAre(1);
  step();
  EXPECT_NEAR(governor->announcedPeriod(), 3.28, 0.05);
  EXPECT_NEAR(governor->achievedShare(), 0.05, 0.002);
  EXPECT_LE(turns->longest(), 0.001 * 1.3);
  chip->afterRead = nullptr;
  chip->cost = 0.5e-6;
  passesAre(3);
  EXPECT_NEAR(governor->announcedPeriod(), 1, 0.01);
}

TEST_F(Governor, aBusThatGetsSlowAtOnceCostsOneLongAccess) {
  table(16384, 1e-6);
  govern();
  audit();
  passesAre(2);
  turns->turns.clear();
  chip->cost = 100e-6;
  passesAre(1);
  U32 tooLong = 0;
  for (const Driver::TurnResult& turn : turns->turns) tooLong += turn.duration > 0.0011 ? 1 : 0;
  EXPECT_LE(tooLong, 1u);
}

TEST_F(Governor, audits_onDemandCountIntoTheShare) {
  const ChipMemory::Ptr cm = table(16384, 10e-6);
  govern();
  governor->periodIs(1);
  audit();
  passesAre(2);
  const Zint::Seconds before = governor->announcedPeriod();
  EXPECT_NEAR(before, 3.28, 0.05);
  step();
  shadow->doAudit(cm, 0, 8192);  // 82 ms: 1.6 s at 5 %
  passesAre(1);
  step();
  EXPECT_NEAR(lastPeriod(), before + 1.64, 0.1);
  EXPECT_NEAR(governor->achievedShare(), 0.05, 0.002);
}

TEST_F(Governor, repairsCountIntoTheShare) {
  const ChipMemory::Ptr cm = table(4096, 10e-6);
  shadow->findsResetsIs(false);
  govern();
  governor->periodIs(0);
  shadow->stateIs(HardwareShadow::configured());
  for (U32 e = 0; e < 4096; ++e) offer(cm, e, 7);
  shadow->stateIs(HardwareShadow::auditing());
  passesAre(2);  // the chip holds 0: written meanwhile, then repaired
  step();
  EXPECT_EQ(shadow->repairs(), 4096u);
  EXPECT_GT(lastPeriod(), 2 * 4096 * 10e-6 / 0.05 * 0.99);
  EXPECT_LE(governor->achievedShare(), 0.0505);
  EXPECT_LE(turns->longest(), 0.001 + 10e-6 + 1e-9);
}

TEST_F(Governor, chipsOfDifferentSpeedKeepTheTurnBound) {
  table(8192, 0.1e-6);
  const Zint::Ptr<Support::PatrolChip> slow = Zint::makePtr<Support::PatrolChip>("slow");
  slow->clock = loop.clock.ptr();
  slow->cost = 150e-6;
  for (U32 i = 0; i < 8; ++i) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory(Zint::Name(Zint::format("slow%u", i)),
                                    ChipAddress(0x1000000 + 0x10000 * i), 100, 4, 4, slow);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    shadow->chipMemoryIs(cm);
  }
  govern();
  audit();
  passesAre(1);
  for (U32 i = 0; i < 3; ++i) {
    step();
    const Zint::Seconds announced = governor->announcedPeriod();
    passesAre(1);
    step();
    EXPECT_NEAR(lastPeriod(), announced, announced / 10);
    passesAre(1);
  }
  EXPECT_LE(turns->longest(), 0.001 + 150e-6);
}

TEST_F(Governor, regionsThatAreNotAuditedInEachPassKeepTheTurnBoundAndTheShare) {
  for (U32 i = 0; i < 16; ++i) {
    const ChipMemory::Ptr cm = region(("r" + std::to_string(i)).c_str(), 0x100000 * (i + 1), 256);
    const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
    policy->auditEveryIs(1 + i % 4);
    shadow->policyIs(policy);
  }
  chip->cost = 20e-6;
  govern();
  governor->periodIs(0);
  audit();
  passesAre(3);
  for (U32 i = 0; i < 12; ++i) {
    passesAre(1);
    step();
    EXPECT_LE(governor->achievedShare(), 0.06);
  }
  EXPECT_LE(turns->longest(), 0.001 + 20e-6);
}

TEST_F(Governor, anAbsentChipCostsNoMoreThanItsTries) {
  table(1000, 10e-6);
  govern();
  governor->periodIs(1);
  audit();
  passesAre(2);
  chip->isAway = true;
  passesAre(3);
  EXPECT_EQ(shadow->patrolState(), Driver::PatrolState::suspended);
  EXPECT_EQ(governor->timeLeft(), Zint::never);
  chip->isAway = false;
  passesAre(4);
  EXPECT_EQ(shadow->patrolReason(), "");
  EXPECT_NEAR(lastPeriod(), 1, 0.01);
}

TEST_F(Governor, turnBound_isMoreImportantThanTheOthers) {
  table(64, 200e-6);
  govern();
  governor->turnBoundIs(0.0001);
  audit();
  passesAre(2);
  EXPECT_NEAR(turns->longest(), 200e-6, 1e-9);
  for (const Driver::TurnResult& turn : turns->turns) EXPECT_EQ(turn.entries, 1u);
  EXPECT_NEAR(lastPeriod(), 60, 0.001);
}

TEST_F(Governor, wishes_sayWhatIsMet) {
  table(16384, 1e-6);
  govern();
  EXPECT_EQ(governor->wishes(), "period 60 s: met; share 5 %: met; turn 0.001 s: met");
  audit();
  passesAre(3);
  EXPECT_EQ(governor->wishes(), "period 60 s: met; share 5 %: met; turn 0.001 s: met");
}

TEST_F(Governor, wishes_sayByHowMuchTheyAreMissed) {
  table(1000, 200e-6);
  govern();
  governor->periodIs(1);
  governor->turnBoundIs(0.0001);
  audit();
  passesAre(3);
  EXPECT_EQ(governor->wishes(),
            "period 1 s: 4 s (3 s more), because a pass takes 0.2 s of work; share 5 %: met; turn "
            "0.0001 s: 0.0002 s (0.0001 s more), because one access of it took 0.0002 s and is not "
            "divided");
  governor->periodIs(0);
  EXPECT_EQ(
      governor->wishes().bytes(),
      std::string("period 0 s: 4 s, as often as the share allows; share 5 %: met; turn "
                  "0.0001 s: 0.0002 s (0.0001 s more), because one access of it took 0.0002 s "
                  "and is not divided"));
}

// Four accesses of 0.4 ms for one entry, which are not divided.
TEST_F(Governor, wishes_sayThatTheAccessesOfOneEntryWereLong) {
  const ChipMemory::Ptr cm = table(100, 400e-6);
  shadow->findsResetsIs(false);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  govern();
  audit();
  for (U32 e = 0; e < 100; ++e) write(cm, e, e + 1);
  passesAre(2);
  for (U32 e = 0; e < 100; ++e) set(cm, e, 0);
  passesAre(1);
  EXPECT_NE(governor->wishes().bytes().find(
                "turn 0.001 s: 0.0016 s (0.0006 s more), because 0.0016 s of it were accesses that "
                "belong together, the longest of 0.0004 s"),
            std::string::npos)
      << governor->wishes();
}

// The accesses are short; what the notifiees do is not.
TEST_F(Governor, wishes_sayThatWhatIsNoAccessWasLong) {
  const ChipMemory::Ptr cm = table(100, 1e-6);
  shadow->findsResetsIs(false);
  govern();
  audit();
  for (U32 e = 0; e < 100; ++e) write(cm, e, e + 1);
  passesAre(2);
  set(cm, 50, 0);
  onFinding = [&](const Driver::Finding&) { loop.clock->timeIs(loop.clock->time() + 0.005); };
  passesAre(1);
  EXPECT_NE(governor->wishes().bytes().find(
                "because 0.005 s of it were no access, but comparisons or notifiees"),
            std::string::npos)
      << governor->wishes();
}

TEST_F(Governor, isKnownToItsShadowForAsLongAsItLives) {
  EXPECT_EQ(shadow->governor(), nullptr);
  govern();
  EXPECT_EQ(shadow->governor(), governor);
  Driver::Governor::Ptr second = Driver::governorFactory(loop.activity, shadow);
  EXPECT_EQ(shadow->governor(), second);
  governor = nullptr;
  EXPECT_EQ(shadow->governor(), second);
  second = nullptr;
  EXPECT_EQ(shadow->governor(), nullptr);
}

// Audits on demand between two passes, of 0.2 s each.
TEST_F(Governor, check_complainsOfAShareThatWasNotKept) {
  const ChipMemory::Ptr cm = table(1000, 200e-6);
  govern();
  audit();
  passesAre(2);
  EXPECT_EQ(Driver::check(shadow).size(), 0u);
  for (U32 i = 0; i < 20; ++i) shadow->doAudit(cm, 0, 1000);
  step();
  ASSERT_GT(governor->achievedShare(), 0.06);
  const auto complaints = Driver::check(shadow);
  ASSERT_EQ(complaints.size(), 1u);
  EXPECT_EQ(complaints[0]->kind(), Driver::ComplaintKind::longSlice);
  Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(shadow)};
  EXPECT_EQ(byName.call("check", {}).text, Zint::valueToStrep(complaints[0]->stringValue()));
}

TEST_F(Governor, progressAndTimeLeftFollowThePass) {
  table(16384, 1e-6);
  govern();
  EXPECT_EQ(governor->progress(), 0);
  EXPECT_EQ(governor->timeLeft(), Zint::never);
  audit();
  passesAre(2);
  EXPECT_EQ(governor->progress(), 1);
  EXPECT_EQ(governor->timeLeft(), 0);
  const Zint::Seconds begin = loop.clock->time();
  for (U32 i = 0; i < 9; ++i) step();
  EXPECT_GT(governor->progress(), 0.3);
  EXPECT_LT(governor->progress(), 0.7);
  const Zint::Seconds end = loop.clock->time() + governor->timeLeft();
  passesAre(1);
  EXPECT_NEAR(loop.clock->time(), end, 6);
  EXPECT_GT(end, begin);
  shadow->pausedIs(true);
  EXPECT_EQ(governor->timeLeft(), Zint::never);
}

TEST_F(Governor, aShorterPeriodDoesNotWaitForTheEndOfALongOne) {
  table(4096, 1e-6);
  govern();
  governor->periodIs(86400);
  audit();
  passesAre(1);
  step();
  step();
  governor->periodIs(10);  // within a pass
  const Zint::Seconds now = loop.clock->time();
  passesAre(1);
  EXPECT_LT(loop.clock->time() - now, 10);
  governor->periodIs(86400);  // between two passes
  governor->periodIs(20);
  step();
  EXPECT_LT(loop.clock->time() - now, 31);
}

TEST_F(Governor, aPauseDelaysThePassAndKeepsTheShare) {
  table(16384, 10e-6);
  govern();
  governor->periodIs(1);
  audit();
  passesAre(1);
  step();
  shadow->pausedIs(true);
  loop.turnAt(loop.clock->time() + 100);
  shadow->pausedIs(false);
  passesAre(1);
  turns->turns.clear();
  const Zint::Seconds begin = loop.clock->time();
  passesAre(1);
  EXPECT_LE(turns->work(), (loop.clock->time() - begin) * 0.055);
}

TEST_F(Governor, refusesWhatIsNoWish) {
  govern();
  const Zint::Seconds no = std::numeric_limits<Zint::Seconds>::quiet_NaN();
  EXPECT_THROW(governor->periodIs(-1), Zint::RangeException);
  EXPECT_THROW(governor->periodIs(no), Zint::RangeException);
  EXPECT_THROW(governor->periodIs(Zint::never), Zint::RangeException);
  EXPECT_THROW(governor->shareIs(0), Zint::RangeException);
  EXPECT_THROW(governor->shareIs(1.01), Zint::RangeException);
  EXPECT_THROW(governor->shareIs(no), Zint::RangeException);
  EXPECT_THROW(governor->turnBoundIs(0), Zint::RangeException);
  EXPECT_THROW(governor->turnBoundIs(no), Zint::RangeException);
  EXPECT_EQ(governor->period(), 60);
  EXPECT_EQ(governor->share(), 0.05);
  EXPECT_EQ(governor->turnBound(), 0.001);
  EXPECT_THROW(Driver::governorFactory(loop.activity, nullptr), Zint::RangeException);
  EXPECT_THROW(Driver::governorFactory(nullptr, shadow), Zint::RangeException);
}

TEST_F(Governor, mayDieBeforeTheShadowAndAfterIt) {
  table(16, 1e-6);
  govern();
  audit();
  passesAre(1);
  governor = nullptr;
  EXPECT_EQ(shadow->turnBound(), 0.001);
  passesAre(1);
  govern();
  turns = nullptr;
  watch = nullptr;
  shadow = nullptr;
  EXPECT_EQ(governor->shadow(), nullptr);
  EXPECT_EQ(governor->timeLeft(), Zint::never);
  EXPECT_EQ(governor->progress(), 0);
  governor->periodIs(5);
  EXPECT_EQ(governor->period(), 5);
}

TEST_F(Governor, aNotifieeMayDropIt) {
  class Drop : public Driver::Governor::NotifieeConst {
   public:
    Drop(const Zint::Ptr<Zint::ActivityConfig>& activity, Governor& test)
        : NotifieeConst(activity, test.governor), test_(test) {
      isNonReferencingIs(true);
    }
    void onAnnouncedPeriod() override { test_.governor = nullptr; }

   private:
    Governor& test_;
  };
  table(1000, 1e-3);
  govern();
  governor->periodIs(1);
  const auto drop = Zint::makePtr<Drop>(loop.activity, *this);
  audit();
  passesAre(1);
  EXPECT_EQ(governor, nullptr);
}

TEST_F(Governor, isDescribed) {
  const Zint::Type* type = Zint::TypeRegistry::find("Driver::Governor");
  EXPECT_EQ(type, &Driver::governorType);
  EXPECT_NE(Zint::TypeRegistry::findFactory("governorFactory"), nullptr);
}

}  // namespace
