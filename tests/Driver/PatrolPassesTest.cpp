// Passes, slices and turns: what a turn does at most, when the next pass begins, clocks.
#include "PatrolWorld.h"
#include "support/TraceCapture.h"

namespace {

using Driver::PatrolState;
using Driver::Verdict;
using Support::PatrolChip;

class PatrolPasses : public Support::PatrolWorld {
 protected:
  bool isReasonEmpty() const { return shadow->patrolReason().bytes() == std::string(); }
};

TEST_F(PatrolPasses, readsAtMostTheEntriesOfASlice) {
  region("a", 0x1000, 100);
  region("b", 0x2000, 3);
  region("c", 0x3000, 50);
  shadow->maxEntriesPerSliceIs(16);
  U64 read = 0, most = 0;
  chip->afterRead = [&](U64, U32 entries) { read += entries; };
  audit();
  while (passes.empty()) {
    const U64 before = read;
    step();
    most = std::max(most, read - before);
  }
  EXPECT_EQ(most, 16u);
  EXPECT_EQ(read, 153u);
  EXPECT_EQ(passes.at(0).entries, 153u);
}

// A store that every access replaces: the slice ends, nothing is read over and over.
TEST_F(PatrolPasses, readsAtMostTheEntriesOfASliceAlsoWhereEachReadReplacesTheStore) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(64);
  audit();
  settle();
  U64 read = 0;
  chip->afterRead = [&](U64, U32 entries) {
    read += entries;
    cm->shadowIs(Hal::bufFactory(256));
  };
  for (U32 i = 0; i < 10; ++i) {
    const U64 before = read;
    step();
    EXPECT_LE(read - before, 64u);
  }
  chip->afterRead = nullptr;
  EXPECT_TRUE(pass());
}

TEST_F(PatrolPasses, sliceIntervalLiesBetweenSlices) {
  region("table", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(16);
  shadow->sliceIntervalIs(0.5);
  std::vector<Zint::Seconds> times;
  chip->afterRead = [&](U64, U32) { times.push_back(loop.clock->time()); };
  audit();
  ASSERT_TRUE(pass());
  EXPECT_EQ(times, (std::vector<Zint::Seconds>{0, 0.5, 1, 1.5}));
}

// Each access of an entry takes 1 ms.
TEST_F(PatrolPasses, turnBoundIsPassedByTheAccessesOfOneEntryAtMost) {
  shadow->findsResetsIs(false);
  const ChipMemory::Ptr cm = region("table", 0x1000, 256);
  fill(cm, 0, 256);
  audit();
  settle();
  for (U32 i = 0; i < 256; ++i) damage(cm, i, 0);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  shadow->maxEntriesPerSliceIs(4);
  shadow->turnBoundIs(0.010);
  chip->clock = loop.clock.ptr();
  chip->cost = 0.001;
  Zint::Seconds longest = 0;
  for (U32 i = 0; i < 2000 && passes.empty(); ++i) {
    const Zint::Seconds wake = loop.activity->wakeTime();
    if (wake > loop.clock->time() && wake != Zint::never) loop.clock->timeIs(wake);
    const Zint::Seconds before = loop.clock->time();
    loop.turn();
    longest = std::max(longest, loop.clock->time() - before);
  }
  ASSERT_FALSE(passes.empty());
  EXPECT_EQ(count(Verdict::repaired), 256u);
  // The bound, and what one entry takes at most: its slice, second look, write and verification.
  EXPECT_LE(longest, 0.010 + 0.004 + 0.0001);
  EXPECT_LE(passes.at(0).longestTurn, longest + 1e-9);
}

TEST_F(PatrolPasses, aMillionEntriesThatAreNotAskedForCostNoTurn) {
  const ChipMemory::Ptr cm = region("table", 0x100000, 1000000);
  const auto policy = policyOf(cm);
  policy->ruleIs(0, 999999, Driver::Rule::noRead);
  audit();
  for (U32 i = 0; i < 1000 && passes.empty(); ++i) step();
  EXPECT_EQ(chip->reads, 1u);
}

TEST_F(PatrolPasses, manyRegionsTakeManyTurns) {
  std::vector<ChipMemory::Ptr> regions;
  for (U32 i = 0; i < 5000; ++i) {
    regions.push_back(region("table", 0x100000 + 0x100 * U64{i}, 1));
  }
  shadow->maxEntriesPerSliceIs(50);
  audit();
  U64 most = 0;
  for (U32 i = 0; i < 1000 && passes.empty(); ++i) {
    const U64 before = chip->reads;
    step();
    most = std::max(most, chip->reads - before);
  }
  EXPECT_EQ(most, 50u);
  EXPECT_EQ(chip->reads, 5000u);
}

TEST_F(PatrolPasses, regionsThatAreNotReadCostTurnsToo) {
  for (U32 i = 0; i < 500; ++i) {
    const ChipMemory::Ptr cm = region("table", 0x100000 + 0x100 * U64{i}, 1);
    cm->modeIs(i == 499 ? ChipMemory::normal() : ChipMemory::override());
  }
  shadow->maxEntriesPerSliceIs(10);
  audit();
  U32 turns = 0;
  for (; turns < 1000 && passes.empty(); ++turns) step();
  EXPECT_FALSE(passes.empty());
}

TEST_F(PatrolPasses, minIntervalBetweenAudits_isFromStartToStart) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(16);
  shadow->sliceIntervalIs(1);
  shadow->minIntervalBetweenAuditsIs(10);
  audit();
  for (U32 i = 0; i < 4; ++i) {
    ASSERT_TRUE(pass());
    EXPECT_EQ(passes.back().start, 10 * i);
    EXPECT_LE(passes.back().duration, 4);
    EXPECT_EQ(shadow->lastAuditStartTime(), 10 * i);
  }
  EXPECT_EQ(shadow->passPeriods(), (std::vector<Zint::Seconds>{10, 10, 10}));
  EXPECT_EQ(shadow->audits(), 4u);
}

TEST_F(PatrolPasses, minIntervalBetweenAudits_isKeptWhateverChangesMeanwhile) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  shadow->minIntervalBetweenAuditsIs(100);
  audit();
  settle();
  const U64 reads = chip->reads;
  policyOf(cm)->ruleIs(1, 1, Driver::Rule::detectOnly);
  loop.turn();
  EXPECT_EQ(chip->reads, reads) << "policy";
  const auto own = Driver::chipFactory("own", chip);
  shadow->chipIs(own);
  loop.turn();
  EXPECT_EQ(chip->reads, reads) << "chip";
  shadow->chipDel(own);
  shadow->pausedIs(true);
  loop.turn();
  shadow->pausedIs(false);
  loop.turn();
  EXPECT_EQ(chip->reads, reads) << "pause";
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.back().start, 100);
}

TEST_F(PatrolPasses, minIntervalBetweenAudits_thatIsShortenedHoldsForThePassThatIsAwaited) {
  region("table", 0x1000, 64);
  shadow->minIntervalBetweenAuditsIs(1000);
  audit();
  settle();
  shadow->minIntervalBetweenAuditsIs(20);
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.back().start, 20);
}

TEST_F(PatrolPasses, passPeriods_areTheLastSixteen) {
  region("table", 0x1000, 4);
  shadow->minIntervalBetweenAuditsIs(1);
  audit();
  for (U32 i = 0; i < 10; ++i) ASSERT_TRUE(pass());
  shadow->minIntervalBetweenAuditsIs(2);
  for (U32 i = 0; i < 16; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(shadow->passPeriods().size(), 16u);
  EXPECT_EQ(shadow->passPeriods().back(), 2);
}

TEST_F(PatrolPasses, progressIsOfATotalThatIsFixedAtTheStart) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  const ChipMemory::Ptr late = region("late", 0x2000, 64);
  shadow->maxEntriesPerSliceIs(16);
  audit();
  steps(2);
  EXPECT_EQ(shadow->passEntries(), 128u);
  U64 last = 0;
  cm->entriesIs(8);
  while (passes.empty()) {
    EXPECT_EQ(shadow->passEntries(), 128u);
    EXPECT_GE(shadow->passEntriesDone(), last);
    EXPECT_LE(shadow->passEntriesDone(), 128u);
    last = shadow->passEntriesDone();
    step();
  }
  EXPECT_EQ(shadow->passEntriesDone(), 128u);
}

TEST_F(PatrolPasses, paused_stopsAtItsPlaceAndGoesOnThere) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(16);
  std::vector<U64> places;
  chip->afterRead = [&](U64 address, U32) { places.push_back((address - 0x1000) / 4); };
  audit();
  steps(2);
  shadow->pausedIs(true);
  EXPECT_EQ(shadow->patrolState(), PatrolState::paused);
  EXPECT_FALSE(isReasonEmpty());
  loop.clock->timeIs(500);
  steps(5);
  EXPECT_EQ(places, (std::vector<U64>{0, 16}));
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
  shadow->pausedIs(false);
  ASSERT_TRUE(pass());
  EXPECT_EQ(places, (std::vector<U64>{0, 16, 32, 48}));
  EXPECT_TRUE(passes.at(0).isComplete);
}

TEST_F(PatrolPasses, overrideHardware_onAndOffIsNoEndOfTheAudit) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  audit();
  settle();
  shadow->overrideHardwareIs(true);
  const U64 reads = chip->reads;
  steps(5);
  EXPECT_EQ(chip->reads, reads);
  EXPECT_EQ(shadow->patrolState(), PatrolState::suspended);
  EXPECT_NE(shadow->patrolReason().bytes().find("overrideHardware"), std::string::npos);
  shadow->overrideHardwareIs(false);
  EXPECT_TRUE(pass());
}

TEST_F(PatrolPasses, reasonIsEmptyWhileThePatrolWorksAndNamesAnAuditThatIsNotOn) {
  region("table", 0x1000, 64);
  EXPECT_EQ(shadow->patrolState(), PatrolState::stopped);
  EXPECT_FALSE(isReasonEmpty());
  loop.clock->timeIs(5000);
  audit();
  EXPECT_TRUE(isReasonEmpty());
  ASSERT_TRUE(pass());
  EXPECT_TRUE(isReasonEmpty());
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_NE(shadow->patrolReason().bytes().find("idle"), std::string::npos);
}

TEST_F(PatrolPasses, reasonSaysThatNobodyDrivesTheLoop) {
  Support::TraceCapture trace(0);
  region("table", 0x1000, 64);
  audit();
  ASSERT_TRUE(pass());
  loop.clock->timeIs(loop.clock->time() + 30);
  EXPECT_NE(shadow->patrolReason().bytes().find("nobody drives the loop"), std::string::npos);
  step();
  EXPECT_TRUE(isReasonEmpty());
}

TEST_F(PatrolPasses, reasonSaysThatTheReactorsWereNeverSwitchedOn) {
  const auto raw =
      Zint::makePtr<Driver::AuditedShadow>(loop.activity, Zint::Ptr<const Zint::Clock>(loop.clock));
  EXPECT_NE(raw->patrolReason().bytes().find("never switched on"), std::string::npos);
}

// --- Clocks --------------------------------------------------------------------------------------

TEST_F(PatrolPasses, clock_thatIsDroppedStopsAndAnotherOneGoesOnAtThePlace) {
  region("table", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(16);
  audit();
  steps(2);
  shadow->clockIs(nullptr);
  EXPECT_NE(shadow->patrolReason().bytes().find("clock"), std::string::npos);
  const U64 reads = chip->reads;
  loop.clock->timeIs(50);
  loop.turn();
  EXPECT_EQ(chip->reads, reads);
  shadow->clockIs(loop.clock);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.at(0).isComplete);
  EXPECT_EQ(chip->reads, 4u);
}

TEST_F(PatrolPasses, clock_thatCountsFromAnotherZeroDoesNotMakeThePatrolWait) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  loop.clock->timeIs(10000);
  shadow->minIntervalBetweenAuditsIs(5);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  ASSERT_TRUE(shadow->chip(cm)->isAbsent());
  chip->isAway = false;
  const auto second = Zint::manualClockFactory("second");
  shadow->clockIs(second);
  for (U32 i = 0; i < 100 && shadow->audits() < 3; ++i) {
    second->timeIs(second->time() + 1);
    loop.turn();
  }
  EXPECT_GE(shadow->audits(), 3u);
  EXPECT_FALSE(shadow->chip(cm)->isAbsent());
  for (const Driver::PassResult& result : passes) EXPECT_GE(result.duration, 0);
}

TEST_F(PatrolPasses, clock_replacedWithinAPassLeavesNoNegativeDuration) {
  region("table", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(16);
  loop.clock->timeIs(10000);
  audit();
  steps(2);
  const auto second = Zint::manualClockFactory("second");
  shadow->clockIs(second);
  for (U32 i = 0; i < 20 && passes.empty(); ++i) {
    second->timeIs(second->time() + 1);
    loop.turn();
  }
  ASSERT_FALSE(passes.empty());
  EXPECT_GE(passes.at(0).duration, 0);
  EXPECT_GE(passes.at(0).longestTurn, 0);
}

TEST_F(PatrolPasses, clock_ofItsOwnIsServedBesideThatOfTheActivity) {
  region("table", 0x1000, 64);
  const auto own = Zint::manualClockFactory("own");
  shadow->clockIs(own);
  shadow->minIntervalBetweenAuditsIs(10);
  audit();
  loop.turn();
  loop.turn();
  EXPECT_EQ(shadow->audits(), 1u);
  loop.turnAt(100);
  EXPECT_EQ(shadow->audits(), 1u);
  own->timeIs(10);
  loop.turn();
  loop.turn();
  EXPECT_EQ(shadow->audits(), 2u);
}

// The pass of the base is one call away, and does nothing.
TEST_F(PatrolPasses, passOfTheBaseIsSwitchedOff) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  audit();
  settle();
  const U32 audits = shadow->audits();
  damage(cm, 1, 5);
  const auto reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(),
                                                  loop.clock, 1024, 0.001);
  shadow->doStartAudit();
  shadow->doAuditChips();
  shadow->auditReadRequest()->stateIs(Zint::Request::start_);
  EXPECT_EQ(shadow->audits(), audits);
  EXPECT_FALSE(cm->entryInitialized(1));
  EXPECT_NE(shadow->clock(), nullptr);
}

}  // namespace
