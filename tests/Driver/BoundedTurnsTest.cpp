// No turn of an audited shadow takes longer than its bound and one access more, or the accesses of
// one entry, whatever is under audit; and what was found without a bound is found with one.
#include <Driver/Chip.h>
#include <Driver/Governor.h>
#include <Driver/Policy.h>

#include "PatrolTest.h"
#include "TurnWatch.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Verdict;
using Support::Told;
using Support::TurnWatch;

constexpr Zint::Seconds bound = 0.001;
constexpr Zint::Seconds access = 20e-6;

struct BoundedTurns : Support::PatrolTest {
  BoundedTurns() {
    chip->clock = loop.clock.ptr();
    chip->cost = access;
    shadow->turnBoundIs(bound);
    shadow->maxEntriesPerSliceIs(1u << 20);
    shadow->sliceIntervalIs(0);
  }
  void expectBounded() const {
    EXPECT_LE(turns->longest(), bound + access + 1e-9);
    EXPECT_GT(turns->longest(), bound / 2);
  }
  bool wholePass() { return pass(1000000) && passes.back().isComplete; }

  Support::TraceCapture traces;
  Zint::Ptr<TurnWatch> turns = Zint::makePtr<TurnWatch>(loop.activity, shadow);
};

TEST_F(BoundedTurns, aLargeRegion) {
  region("large", 0x100000, 65536);
  audit();
  ASSERT_TRUE(wholePass());
  expectBounded();
  EXPECT_EQ(passes.back().entries, 65536u);
  // Nearly all of each turn is used.
  EXPECT_LE(turns->turns.size(), 65536 * access / bound * 1.1);
}

// The read of the sentinel belongs to each access of the slice, and to each second look.
TEST_F(BoundedTurns, aLargeRegionOfAChipWithASentinel) {
  const ChipMemory::Ptr cm = region("large", 0x100000, 20000);
  const U32 value = 0x5a17c401;
  chip->bytes.write(0x10, reinterpret_cast<const U8*>(&value), 4);
  const Driver::Chip::Ptr driven = Driver::chipFactory("driven", chip);
  driven->sentinelIs(ChipAddress(0x10), {reinterpret_cast<const U8*>(&value), 4});
  shadow->chipIs(driven);
  shadow->findsResetsIs(false);
  shadow->rereadsIs(true);
  audit();
  for (U32 e = 0; e < 20000; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  expectBounded();
  EXPECT_LE(turns->turns.size(), 20000 * access / bound * 1.2);
  turns->turns.clear();
  for (U32 e = 0; e < 20000; e += 3) set(cm, e, 0);
  ASSERT_TRUE(wholePass());
  expectBounded();
  EXPECT_EQ(passes.back().repairs, 6667u);
  EXPECT_TRUE(chip->readAddresses.contains(0x10));
  EXPECT_EQ(driven->absences(), 0u);
}

TEST_F(BoundedTurns, manyRegionsOfOneEntry) {
  for (U32 i = 0; i < 5000; ++i) {
    region(("r" + std::to_string(i)).c_str(), 0x100000 + 0x100 * U64{i}, 1);
  }
  audit();
  ASSERT_TRUE(wholePass());
  expectBounded();
  EXPECT_EQ(passes.back().entries, 5000u);
  EXPECT_LE(turns->turns.size(), 5000 * access / bound * 1.1);
}

TEST_F(BoundedTurns, regionsOfOneAndOfManyEntries) {
  chip->callCost = 75e-6;
  for (U32 i = 0; i < 200; ++i) {
    region(("r" + std::to_string(i)).c_str(), 0x100000 * (1 + U64{i}), i % 3 == 0 ? 1000 : 1 + i);
  }
  audit();
  ASSERT_TRUE(wholePass());
  EXPECT_LE(turns->longest(), bound + 75e-6 + access + 1e-9);
}

TEST_F(BoundedTurns, entriesThatAreAdopted) {
  const ChipMemory::Ptr cm = region("mac", 0x100000, 20000);
  for (U32 e = 0; e < 20000; ++e) set(cm, e, e + 1);
  audit();
  ASSERT_TRUE(wholePass());
  expectBounded();
  EXPECT_EQ(passes.back().adopted, 20000u);
}

TEST_F(BoundedTurns, entriesThatAreRepaired) {
  const ChipMemory::Ptr cm = region("mac", 0x100000, 20000);
  shadow->findsResetsIs(false);
  audit();
  for (U32 e = 0; e < 20000; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  for (U32 e = 0; e < 20000; ++e) set(cm, e, ~e);
  ASSERT_TRUE(wholePass());
  expectBounded();
  EXPECT_EQ(passes.back().repairs, 20000u);
  EXPECT_EQ(passes.back().entries, 20000u);
  for (U32 e = 0; e < 20000; ++e) ASSERT_EQ(get(cm, e), e + 1);
}

// A re-read, the read of kept bits, the write and the verification of one entry.
TEST_F(BoundedTurns, repairsWithAllTheirAccesses) {
  const ChipMemory::Ptr cm = region("mac", 0x100000, 3000);
  const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
  const U8 mask[] = {0, 0, 0, 0xff};
  policy->maskIs(mask, Driver::Rewrite::kept);
  shadow->policyIs(policy);
  shadow->findsResetsIs(false);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  audit();
  for (U32 e = 0; e < 3000; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  for (U32 e = 0; e < 3000; e += 1 + e % 3) set(cm, e, ~e);
  turns->turns.clear();
  ASSERT_TRUE(wholePass());
  expectBounded();
  for (U32 e = 0; e < 3000; ++e) ASSERT_EQ(get(cm, e) & 0xffffff, e + 1);
}

// Four accesses behind the first one take longer than the bound: nothing else is in such a turn.
TEST_F(BoundedTurns, aRepairThatIsLongerThanTheBoundIsDoneAlone) {
  chip->cost = 400e-6;
  const ChipMemory::Ptr cm = region("mac", 0x100000, 100);
  shadow->findsResetsIs(false);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  audit();
  for (U32 e = 0; e < 100; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  for (U32 e = 0; e < 100; ++e) set(cm, e, 0);
  ASSERT_TRUE(wholePass());
  EXPECT_LE(turns->longest(), 4 * 400e-6 + 1e-9);
  EXPECT_EQ(passes.back().repairs, 100u);
}

// Up to 16 other entries are read at the first difference of a region.
TEST_F(BoundedTurns, theSearchForAResetIsSpreadOverTurns) {
  chip->cost = 200e-6;
  const ChipMemory::Ptr a = region("a", 0x100000, 500), b = region("b", 0x200000, 500);
  audit();
  for (U32 e = 0; e < 500; ++e) write(a, e, e + 1);
  for (U32 e = 0; e < 500; ++e) write(b, e, e + 1);
  ASSERT_TRUE(wholePass());
  turns->turns.clear();
  set(a, 100, 0);
  set(b, 300, 0);
  ASSERT_TRUE(wholePass());
  EXPECT_LE(turns->longest(), bound + 200e-6 + 1e-9);
  EXPECT_EQ(passes.back().repairs, 2u);
  EXPECT_EQ(shadow->chip(a)->resets(), 0u);
  told.clear();
  turns->turns.clear();
  shadow->chip(a)->restoresItselfIs(false);
  for (U32 e = 0; e < 500; ++e) {
    set(a, e, 0);
    set(b, e, 0);
  }
  const U64 writes = chip->writes;
  ASSERT_TRUE(pass(100000));
  EXPECT_FALSE(passes.back().isComplete);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].verdict, Verdict::reset);
  EXPECT_EQ(chip->writes, writes);
  EXPECT_LE(turns->longest(), bound + 200e-6 + 1e-9);
}

TEST_F(BoundedTurns, aSearchThatIsUnderWayEndsWithThePass) {
  chip->cost = 400e-6;
  const ChipMemory::Ptr cm = region("mac", 0x100000, 100);
  audit();
  for (U32 e = 0; e < 100; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  set(cm, 0, 0);
  step();
  step();
  step();
  shadow->stateIs(HardwareShadow::idle());
  shadow->stateIs(HardwareShadow::auditing());
  ASSERT_TRUE(wholePass());
  EXPECT_EQ(get(cm, 0), 1u);
  EXPECT_EQ(passes.back().repairs, 1u);
}

TEST_F(BoundedTurns, aRegionThatLosesItsStoreDuringTheSearchIsPassedOver) {
  chip->cost = 400e-6;
  const ChipMemory::Ptr cm = region("mac", 0x100000, 100);
  audit();
  for (U32 e = 0; e < 100; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  set(cm, 0, 0);
  step();
  step();
  cm->shadowEnabledIs(false);
  ASSERT_TRUE(pass(100000));
  EXPECT_EQ(get(cm, 0), 0u);
  EXPECT_EQ(shadow->chip(cm)->resets(), 0u);
}

TEST_F(BoundedTurns, chipsThatAreAskedWhetherTheyWereReset) {
  class Asked : public Driver::Chip {
   public:
    Asked(const char* name, const Zint::Ptr<Support::PatrolChip>& ham, U32& asked)
        : Chip(name, ham), ham_(ham), asked_(asked) {}
    bool wasReset() override {
      ++asked_;
      U8 value[4];
      ham_->doRead(ChipAddress(0), value, 4, 1);
      return false;
    }
    bool holds(const ChipMemory&) const override { return false; }

   private:
    const Zint::Ptr<Support::PatrolChip> ham_;
    U32& asked_;
  };
  region("mac", 0x100000, 10);
  U32 asked = 0;
  for (U32 i = 0; i < 500; ++i) {
    shadow->chipIs(Zint::makePtr<Asked>(("chip" + std::to_string(i)).c_str(), chip, asked));
  }
  audit();
  ASSERT_TRUE(wholePass());
  EXPECT_EQ(asked, 500u);
  expectBounded();
  ASSERT_TRUE(wholePass());
  EXPECT_EQ(asked, 1000u);
}

TEST_F(BoundedTurns, chipsThatDoNotAnswer) {
  for (U32 i = 0; i < 300; ++i) {
    const Zint::Ptr<Support::PatrolChip> other = Zint::makePtr<Support::PatrolChip>("other");
    other->clock = loop.clock.ptr();
    other->cost = access;
    other->isAway = i % 2 == 0;
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("r", ChipAddress(0x100000 + 0x100 * i), 10, 4, 4, other);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    shadow->chipMemoryIs(cm);
  }
  audit();
  ASSERT_TRUE(pass(10000));
  EXPECT_FALSE(passes.back().isComplete);
  EXPECT_EQ(passes.back().entries, 1500u);
  EXPECT_LE(turns->longest(), bound + 10 * access);
}

// A clock that shows one microsecond more at each look: what costs no access is bounded, too.
struct TickingClock : Zint::Clock {
  explicit TickingClock(const char* name) : Clock(name) {}
  Zint::Seconds timeRead() const override { return now += 1e-6; }
  bool isManual() const override { return true; }
  void advanceTimeTo(Zint::Seconds time) const override { now = std::max(now, time); }
  mutable Zint::Seconds now = 0;
};

TEST(BoundedTurnsOfAClockThatTicks, regionsThatArePassedOver) {
  const Support::TraceCapture traces(0);
  const Zint::Ptr<TickingClock> clock = Zint::makePtr<TickingClock>("clock");
  const Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(activity, clock);
  const Zint::Ptr<Support::PatrolChip> chip = Zint::makePtr<Support::PatrolChip>("chip");
  for (U32 i = 0; i < 3000; ++i) {
    const auto cm = Hardware::chipMemoryFactory("r", Hardware::ChipAddress(0x100000 + 0x100 * i), 4,
                                                4, 4, chip);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    shadow->chipMemoryIs(cm);
    const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
    policy->auditEveryIs(5);
    shadow->policyIs(policy);
  }
  const Zint::Ptr<TurnWatch> turns = Zint::makePtr<TurnWatch>(activity, shadow);
  shadow->turnBoundIs(bound);
  shadow->sliceIntervalIs(0);
  shadow->maxEntriesPerSliceIs(1u << 20);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  for (U32 i = 0; i < 1000 && shadow->audits() < 4; ++i) activity->turn();
  EXPECT_EQ(shadow->audits(), 4u);
  EXPECT_EQ(chip->reads, 0u);
  EXPECT_GE(turns->turns.size(), 8u);
  EXPECT_LE(turns->longest(), bound + 10e-6);
}

// The clock stands still: only the slices bound what is prepared.
TEST_F(BoundedTurns, aPolicyIsPreparedForTheEntriesOfTheSlice) {
  chip->cost = 0;
  const ChipMemory::Ptr cm = region("mac", 0x100000, 1u << 17);
  const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
  for (U32 e = 0; e < cm->entries(); e += 2) policy->ruleIs(e, 1, Driver::Rule::volatile_);
  shadow->policyIs(policy);
  shadow->maxEntriesPerSliceIs(4096);
  audit();
  U64 most = 0;
  for (U64 prepared = 0; shadow->audits() == 0;) {
    step();
    most = std::max(most, policy->entriesPrepared() - prepared);
    prepared = policy->entriesPrepared();
  }
  EXPECT_EQ(most, 4096u);
  EXPECT_EQ(policy->entriesPrepared(), cm->entries());
}

// The clock moves on when it is looked at: the bound ends the preparation.
TEST(BoundedTurnsOfAClockThatTicks, aPolicyIsPreparedInSteps) {
  const Support::TraceCapture traces(0);
  const Zint::Ptr<TickingClock> clock = Zint::makePtr<TickingClock>("clock");
  const Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(activity, clock);
  const Zint::Ptr<Support::PatrolChip> chip = Zint::makePtr<Support::PatrolChip>("chip");
  const auto cm =
      Hardware::chipMemoryFactory("r", Hardware::ChipAddress(0x100000), 1u << 18, 4, 4, chip);
  cm->shadowEnabledIs(true);
  cm->auditEnabledIs(true);
  shadow->chipMemoryIs(cm);
  shadow->turnBoundIs(40e-6);
  shadow->sliceIntervalIs(0);
  shadow->maxEntriesPerSliceIs(1u << 20);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  // The patrol knows by then that an access of all entries takes no longer than one of few.
  for (U32 i = 0; i < 1000 && shadow->audits() < 2; ++i) activity->turn();
  ASSERT_EQ(shadow->audits(), 2u);
  const Driver::Policy::Ptr policy = Driver::policyFactory(cm);
  for (U32 e = 0; e < cm->entries(); e += 2) policy->ruleIs(e, 1, Driver::Rule::volatile_);
  shadow->policyIs(policy);
  const Zint::Ptr<TurnWatch> turns = Zint::makePtr<TurnWatch>(activity, shadow);
  U64 most = 0, prepared = 0;
  for (U32 i = 0; i < 1000 && shadow->audits() < 3; ++i) {
    activity->turn();
    most = std::max(most, policy->entriesPrepared() - prepared);
    prepared = policy->entriesPrepared();
  }
  EXPECT_EQ(shadow->audits(), 3u);
  EXPECT_LE(most, 41 * 1024u);
  EXPECT_LE(turns->longest(), 50e-6);
}

// Each access of the replay takes its part of the bound, and it does not wait as the patrol does.
TEST_F(BoundedTurns, theReplayAfterAResetGoesOnAtOnce) {
  const ChipMemory::Ptr cm = region("mac", 0x100000, 8192);
  const Driver::Governor::Ptr governor = Driver::governorFactory(loop.activity, shadow);
  audit();
  for (U32 e = 0; e < 8192; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  ASSERT_GT(shadow->sliceInterval() + shadow->minIntervalBetweenAudits(), 1);
  for (U32 e = 0; e < 8192; ++e) set(cm, e, 0);
  const Zint::Seconds start = loop.clock->time();
  shadow->chip(cm)->doChipReset();
  Zint::Seconds longest = 0;
  while (shadow->chip(cm)->isRestoring() && loop.clock->time() < start + 100) {
    const Zint::Seconds wake = loop.activity->wakeTime();
    if (wake > loop.clock->time()) loop.clock->timeIs(wake);
    const Zint::Seconds begin = loop.clock->time();
    loop.turn();
    longest = std::max(longest, loop.clock->time() - begin);
  }
  const Zint::Seconds work = 8192 * access;
  EXPECT_LE(loop.clock->time() - start, 2.2 * work + 0.01);
  EXPECT_LE(longest, bound + access + 1e-9);
  for (U32 e = 0; e < 8192; ++e) ASSERT_EQ(get(cm, e), e + 1);
  // Neighbours share an access also then.
  EXPECT_GT(longest, bound / 2);
}

// The bound of 0 leaves one entry, or one region that is passed over, for each turn.
TEST_F(BoundedTurns, aBoundOfZeroStillGoesOn) {
  shadow->turnBoundIs(0);
  region("a", 0x100000, 20);
  region("b", 0x200000, 20);
  audit();
  ASSERT_TRUE(wholePass());
  EXPECT_LE(turns->longest(), access + 1e-9);
  EXPECT_EQ(passes.back().entries, 40u);
}

// The same chips and clients with and without a bound: the same values, repairs and verdicts.
TEST_F(BoundedTurns, whatIsFoundIsWhatIsFoundWithoutABound) {
  const ChipMemory::Ptr cm = region("mac", 0x100000, 2000);
  audit();
  for (U32 e = 0; e < 2000; ++e) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  std::vector<std::vector<Told>> tolds;
  for (const Zint::Seconds turnBound : {Zint::never, bound, 3 * access, 0.0}) {
    shadow->turnBoundIs(turnBound);
    for (U32 e = 0; e < 2000; e += 7 + e % 5) set(cm, e, 0xdead);
    told.clear();
    ASSERT_TRUE(wholePass());
    for (U32 e = 0; e < 2000; ++e) ASSERT_EQ(get(cm, e), e + 1);
    EXPECT_EQ(passes.back().entries, 2000u);
    tolds.push_back(told);
  }
  for (const auto& found : tolds) EXPECT_EQ(found, tolds[0]);
}

// Bits that are set far apart, in pages that are made one by one.
TEST_F(BoundedTurns, writtenEntriesOfALargeRegionAreRemembered) {
  const ChipMemory::Ptr cm = region("mac", 0x100000, 100000);
  audit();
  for (U32 e = 0; e < 100000; e += 9999) write(cm, e, e + 1);
  ASSERT_TRUE(wholePass());
  for (U32 e = 0; e < 100000; e += 3) EXPECT_EQ(shadow->isWritten(cm, e), e % 9999 == 0) << e;
}

}  // namespace
