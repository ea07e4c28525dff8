// Repair with judgement: second looks, verification, limits, quarantine, buffered regions.
#include "PatrolWorld.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Nature;
using Driver::Rule;
using Driver::Unwritten;
using Driver::Verdict;
using Support::Told;

class PatrolJudgement : public Support::PatrolWorld {
 protected:
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
};

TEST_F(PatrolJudgement, reread_entryThatIsEqualAtTheSecondLookIsTransient) {
  shadow->rereadsIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  chip->afterRead = [&](U64, U32 entries) {
    if (entries > 1) set(cm, 3, 7);
  };
  const U64 writes = chip->writes;
  ASSERT_TRUE(pass());
  EXPECT_EQ(told, (std::vector<Told>{{"table", 3, Verdict::transient, Nature::unverified}}));
  EXPECT_EQ(shadow->transients(), 1u);
  EXPECT_EQ(shadow->repairs(), 0u);
  EXPECT_EQ(cm->registersFixed(), 0u);
  EXPECT_EQ(chip->writes, writes);
  EXPECT_EQ(passes.at(0).repairs, 0u);
}

TEST_F(PatrolJudgement, reread_isOffByDefault) {
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  chip->afterRead = [&](U64, U32 entries) {
    if (entries > 1) set(cm, 3, 7);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 1u);
  EXPECT_EQ(told.at(0).nature, Nature::unverified);
}

TEST_F(PatrolJudgement, reread_clientThatWritesWithinItIsNotRepaired) {
  shadow->rereadsIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  chip->afterRead = [&](U64, U32 entries) {
    if (entries == 1) offer(cm, 3, 9);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::writtenMeanwhile), 1u);
  EXPECT_EQ(count(Verdict::repaired), 0u);
  EXPECT_EQ(get(cm, 3), 8u);
}

TEST_F(PatrolJudgement, verify_repairThatHoldsIsSoft) {
  shadow->verifiesIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(told, (std::vector<Told>{{"table", 3, Verdict::repaired, Nature::soft}}));
}

TEST_F(PatrolJudgement, verify_entryThatComesBackIsRecurring) {
  shadow->verifiesIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  set(cm, 3, 9);
  ASSERT_TRUE(pass());
  EXPECT_EQ(told.back(), (Told{"table", 3, Verdict::repaired, Nature::recurring}));
}

TEST_F(PatrolJudgement, verify_writeWithoutEffectIsStuckAndItsFindingStaysOpen) {
  shadow->verifiesIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  chip->stuck.insert(cm->entryAddress(3).value());
  ASSERT_TRUE(pass());
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told.at(0).nature, Nature::stuck);
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 3));
  EXPECT_EQ(shadowed(cm, 3), 7u);
}

// A client's write within the verification is no sign of a stuck bit.
TEST_F(PatrolJudgement, verify_clientThatWritesWithinItIsNotStuck) {
  shadow->verifiesIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  chip->afterWrite = [&](U64, U32) { chip->afterRead = [&](U64, U32) { write(cm, 3, 5); }; };
  ASSERT_TRUE(pass());
  chip->afterRead = nullptr;
  chip->afterWrite = nullptr;
  ASSERT_EQ(count(Verdict::repaired), 1u);
  EXPECT_NE(told.at(0).nature, Nature::stuck);
  EXPECT_EQ(get(cm, 3), 5u);
}

TEST_F(PatrolJudgement, repairWritesTheShadowsValueAtTheMomentOfWriting) {
  shadow->rereadsIs(true);
  write(cm, 3, 7);
  write(cm, 4, 7);
  audit();
  settle();
  set(cm, 3, 8);
  set(cm, 4, 8);
  // While entry 3 is repaired a client writes entry 4.
  chip->afterWrite = [&](U64 address, U32) {
    if (address == cm->entryAddress(3).value()) offer(cm, 4, 11);
  };
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
  EXPECT_NE(get(cm, 4), 7u);  // the old value is never written over a newer one
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 4), 11u);
}

TEST_F(PatrolJudgement, maxRepairsPerTurn_isNeverPassedAndNothingIsForgotten) {
  shadow->findsResetsIs(false);
  for (U32 i = 0; i < 64; ++i) write(cm, i, i + 1);
  audit();
  settle();
  for (U32 i = 0; i < 64; ++i) set(cm, i, 0);
  shadow->maxRepairsPerTurnIs(5);
  U64 most = 0;
  U32 turns = 0;
  while (passes.empty() && turns < 200) {
    const U64 before = chip->writes;
    step();
    most = std::max(most, chip->writes - before);
    ++turns;
  }
  EXPECT_EQ(most, 5u);
  EXPECT_GE(turns, 13u);
  EXPECT_EQ(count(Verdict::repaired), 64u);
  EXPECT_EQ(told.size(), 64u);
  for (U32 i = 0; i < 64; ++i) EXPECT_EQ(get(cm, i), i + 1);
}

TEST_F(PatrolJudgement, maxRepairsPerTurn_valueWrittenBetweenTurnsIsTheOneThatIsWritten) {
  shadow->findsResetsIs(false);
  write(cm, 3, 7);
  write(cm, 4, 7);
  audit();
  settle();
  set(cm, 3, 8);
  set(cm, 4, 8);
  shadow->maxRepairsPerTurnIs(1);
  while (shadow->repairs() == 0) step();
  offer(cm, 4, 12);
  for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 4), 12u);
}

TEST_F(PatrolJudgement, maxRepairsPerPass_defersTheRestToTheNextPass) {
  shadow->findsResetsIs(false);
  for (U32 i = 0; i < 8; ++i) write(cm, i, i + 1);
  audit();
  settle();
  for (U32 i = 0; i < 8; ++i) set(cm, i, 0);
  shadow->maxRepairsPerPassIs(5);
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 5u);
  EXPECT_EQ(count(Verdict::deferred), 3u);
  EXPECT_EQ(passes.at(0).repairs, 5u);
  EXPECT_EQ(passes.at(0).differences, 8u);
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 7));
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 8u);
  EXPECT_FALSE(shadow->hasOpenFinding(cm, 7));
}

TEST_F(PatrolJudgement, veto_isRefusedAndAskedAgainInTheNextPass) {
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  bool vetoes = true;
  veto = [&](const Driver::Finding&) { return vetoes; };
  ASSERT_TRUE(pass());
  EXPECT_EQ(told, (std::vector<Told>{{"table", 3, Verdict::refused, Nature::unverified}}));
  EXPECT_EQ(get(cm, 3), 8u);
  EXPECT_EQ(cm->registersFixed(), 0u);
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 3));
  vetoes = false;
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
}

TEST_F(PatrolJudgement, veto_ofAnObserverThatThrowsIsNone) {
  Support::TraceCapture trace(0);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  veto = [](const Driver::Finding&) -> bool { throw std::runtime_error("observer"); };
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
}

TEST_F(PatrolJudgement, veto_ofOneObserverIsEnough) {
  struct Other : Driver::AuditedShadow::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    bool allowsRepair(const Driver::Finding&) override { return true; }
  };
  const auto other = Zint::makePtr<Other>(loop.activity, shadow);
  other->isNonReferencingIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  veto = [](const Driver::Finding&) { return true; };
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 8u);
}

TEST_F(PatrolJudgement, repairThatThrowsIsFailedAndNotCounted) {
  Support::TraceCapture trace(0);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  chip->afterRead = [&](U64, U32 entries) { chip->isAway = entries > 1; };
  steps(20);
  EXPECT_EQ(count(Verdict::failed), 1u);
  EXPECT_EQ(cm->registersFixed(), 0u);
  EXPECT_EQ(shadow->repairs(), 0u);
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 3));
  chip->afterRead = nullptr;
  chip->isAway = false;
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
  EXPECT_EQ(cm->registersFixed(), 1u);
}

TEST_F(PatrolJudgement, bufferedRegionIsDeferredAndNeverWritten) {
  cm->modeIs(ChipMemory::buffered());
  offer(cm, 3, 0x55);
  audit();
  settle();
  for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0u);
  EXPECT_EQ(cm->registersFixed(), 0u);
  EXPECT_EQ(count(Verdict::deferred), 3u);
  EXPECT_EQ(told.size(), 3u);
}

}  // namespace
