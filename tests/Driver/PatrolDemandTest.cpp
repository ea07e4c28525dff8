// Audits on demand; writes that reach the chip late; what the patrol remembers at most.
#include "PatrolWorld.h"
#include "support/Random.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Rule;
using Driver::Verdict;
using Support::PatrolChip;

class PatrolDemand : public Support::PatrolWorld {
 protected:
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
};

TEST_F(PatrolDemand, doAudit_hasAResultOfItsOwnAndLeavesThePassAlone) {
  fill(cm, 0, 8);
  shadow->maxEntriesPerSliceIs(16);
  audit();
  settle();
  steps(2);
  const U64 done = shadow->passEntriesDone();
  damage(cm, 3, 99);
  damage(cm, 40, 5);
  const Driver::PassResult result = shadow->doAudit(cm, 2, 50);
  EXPECT_TRUE(result.isComplete);
  EXPECT_EQ(result.entries, 50u);
  EXPECT_EQ(result.differences, 1u);
  EXPECT_EQ(result.repairs, 1u);
  EXPECT_EQ(result.adopted, 1u);
  EXPECT_EQ(held(cm, 3), 4u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
  EXPECT_EQ(shadow->passEntriesDone(), done);
  EXPECT_TRUE(passes.empty());
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.at(0).repairs, 0u);
}

TEST_F(PatrolDemand, doAudit_needsNeitherAuditNorRegistrationOfIt) {
  const ChipMemory::Ptr other =
      Hardware::chipMemoryFactory("other", ChipAddress(0x9000), 16, 4, 4, chip);
  other->shadowEnabledIs(true);
  shadow->stateIs(HardwareShadow::configured());
  fill(other, 0, 4);
  EXPECT_EQ(shadow->doAudit(other, 0, 16).repairs, 0u);
  damage(other, 1, 99);
  EXPECT_EQ(shadow->doAudit(other, 0, 16).repairs, 1u);
  EXPECT_EQ(held(other, 1), 2u);
}

TEST_F(PatrolDemand, doAudit_refusesWhatItCannotDoAndChangesNothing) {
  EXPECT_THROW(shadow->doAudit(cm, 0, 1), Zint::RangeException);  // unconfigured
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_THROW(shadow->doAudit(nullptr, 0, 1), Zint::RangeException);
  EXPECT_THROW(shadow->doAudit(cm, 60, 5), Zint::RangeException);
  EXPECT_THROW(shadow->doAudit(cm, 2, ~0u), Zint::RangeException);
  EXPECT_EQ(shadow->doAudit(cm, 64, 0).entries, 0u);
  cm->shadowEnabledIs(false);
  EXPECT_THROW(shadow->doAudit(cm, 0, 1), Zint::RangeException);
  EXPECT_EQ(chip->reads, 0u);
}

TEST_F(PatrolDemand, doAudit_ofAChipThatIsBeingRestoredReadsNothing) {
  fill(cm, 0, 8);
  const auto asic = shadow->chip(cm);
  asic->restoresItselfIs(false);
  audit();
  settle();
  wipe(cm);
  asic->doChipReset();
  const Driver::PassResult result = shadow->doAudit(cm, 0, 64);
  EXPECT_FALSE(result.isComplete);
  EXPECT_NE(result.reason.bytes().find("restored"), std::string::npos);
  EXPECT_EQ(chip->writes, 0u);
}

TEST_F(PatrolDemand, doAudit_whileOverrideHardwareIsSetDoesNothing) {
  fill(cm, 0, 8);
  audit();
  settle();
  damage(cm, 3, 99);
  offer(cm, 5, 77);
  shadow->overrideHardwareIs(true);
  const U64 reads = chip->reads;
  const Driver::PassResult result = shadow->doAudit(cm, 0, 64);
  EXPECT_FALSE(result.isComplete);
  EXPECT_EQ(result.reason, "overrideHardware is set");
  EXPECT_EQ(result.entries, 0u);
  EXPECT_EQ(chip->reads, reads);
  EXPECT_EQ(chip->writes, 0u);
  EXPECT_NE(cm->dirty()->data()[0] & 1 << 5, 0);
  EXPECT_TRUE(told.empty());
  shadow->overrideHardwareIs(false);
  EXPECT_EQ(shadow->doAudit(cm, 0, 64).repairs, 1u);
}

TEST_F(PatrolDemand, doAudit_thatReachesTheLimitOfATurnSaysSo) {
  fill(cm, 0, 8);
  audit();
  settle();
  for (U32 i = 0; i < 8; ++i) damage(cm, i, 99);
  shadow->maxRepairsPerTurnIs(3);
  const Driver::PassResult result = shadow->doAudit(cm, 0, 64);
  EXPECT_FALSE(result.isComplete);
  EXPECT_FALSE(result.reason.bytes() == std::string());
  EXPECT_EQ(result.repairs, 3u);
}

TEST_F(PatrolDemand, auditEvery_readsARegionInEachNthPassAlone) {
  const ChipMemory::Ptr rare = region("rare", 0x2000, 16);
  policyOf(rare)->auditEveryIs(3);
  U32 rareReads = 0;
  chip->afterRead = [&](U64 address, U32) { rareReads += address == 0x2000 ? 1 : 0; };
  audit();
  for (U32 i = 0; i < 9; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(rareReads, 3u);
  EXPECT_EQ(shadow->audits(), 9u);
}

TEST_F(PatrolDemand, chipReset_againAndAgainKeepsThePatrolFromNoOtherChip) {
  Support::TraceCapture trace(0);
  const auto second = Zint::makePtr<PatrolChip>("second");
  const ChipMemory::Ptr last = regionOf(second, "last", 0xf1000, 64);
  fill(last, 0, 4);
  const auto asic = shadow->chip(cm);
  asic->restoresItselfIs(false);
  shadow->maxEntriesPerSliceIs(8);
  audit();
  settle();
  for (U32 i = 0; i < 64; ++i) {  // in each turn
    if (i == 10) damage(last, 60, 99), last->entryInitializedIs(60);
    asic->doChipReset();
    asic->doRestored();
    step();
  }
  EXPECT_EQ(held(last, 60), 0u);
}

// --- Writes that reach the chip some turns after their offer
// --------------------------------------

class PatrolLate : public Support::PatrolWorld, public testing::WithParamInterface<bool> {};

// 2,000 writes; the mark of each is cleared when its slice was judged, not before it is read.
TEST_P(PatrolLate, aWriteIsNotRepairedBack) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  shadow->findsResetsIs(false);
  shadow->judgeAtOnceIs(GetParam());
  shadow->maxEntriesPerSliceIs(8);
  std::vector<U32> wanted(64);
  for (U32 i = 0; i < 64; ++i) put(cm, i, wanted[i] = i + 1);
  audit();
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  Support::Random random(20240611);
  U32 repairedWrites = 0;
  for (U32 i = 0; i < 2000; ++i) {
    const U32 entry = random.below(64);
    const U64 before = shadow->repairs();
    offer(cm, entry, wanted[entry] = 1000 + i);
    const U32 turns = random.below(4);
    for (U32 turn = 0; turn < turns; ++turn) step();
    damage(cm, entry, wanted[entry]);
    steps(random.below(3));
    repairedWrites += shadow->repairs() != before ? 1 : 0;
  }
  steps(40);
  for (U32 i = 0; i < 64; ++i) EXPECT_EQ(held(cm, i), wanted[i]);
  if (GetParam()) {
    EXPECT_GT(repairedWrites, 100u);  // for such clients judgeAtOnce is wrong
  } else {
    EXPECT_EQ(repairedWrites, 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(JudgeAtOnce, PatrolLate, testing::Bool());

// --- Memory --------------------------------------------------------------------------------------

TEST_F(PatrolDemand, histories_areBoundedAndDoNotRunOut) {
  shadow->findsResetsIs(false);
  shadow->quarantineRepairsIs(1);
  shadow->quarantineTimeIs(1e9);
  put(cm, 1, 7);
  audit();
  settle();
  for (U32 i = 0; i < 5000; ++i) {
    damage(cm, 1, 8);
    shadow->doAudit(cm, 1, 1);
    ASSERT_TRUE(shadow->isQuarantined(cm, 1)) << i;
    shadow->quarantineDel(cm, 1);
  }
  EXPECT_EQ(shadow->quarantined(), 0u);
}

TEST_F(PatrolDemand, histories_ofRegionsThatLeaveMakeRoom) {
  Support::TraceCapture trace(0);
  shadow->findsResetsIs(false);
  shadow->quarantineRepairsIs(1);
  shadow->quarantineTimeIs(1e9);
  for (U32 round = 0; round < 6; ++round) {
    const ChipMemory::Ptr large = region("large", 0x100000, 1000);
    fill(large, 0, 1000);
    audit();
    ASSERT_TRUE(pass());
    for (U32 i = 0; i < 1000; ++i) damage(large, i, 0);
    ASSERT_TRUE(pass());
    EXPECT_EQ(shadow->quarantined(), 1000u) << round;
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->chipMemoryDel(large->address());
    EXPECT_EQ(shadow->quarantined(), 0u);
  }
}

// More entries than are remembered: those beyond are repaired as if for the first time.
TEST_F(PatrolDemand, histories_thatAreFullLetTheRestBeRepaired) {
  Support::TraceCapture trace(0);
  shadow->findsResetsIs(false);
  shadow->quarantineRepairsIs(1);
  shadow->quarantineTimeIs(1e9);
  const ChipMemory::Ptr large = region("large", 0x100000, 6000);
  fill(large, 0, 6000);
  audit();
  settle();
  for (U32 round = 0; round < 2; ++round) {
    for (U32 i = 0; i < 6000; ++i) damage(large, i, 0);
    ASSERT_TRUE(pass());
  }
  EXPECT_EQ(shadow->quarantined(), 4096u);
  EXPECT_EQ(shadow->repairs(), 6000u + 6000u - 4096u);
}

}  // namespace
