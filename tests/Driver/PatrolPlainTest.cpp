// What the audit of HardwareShadow does where a real chip is not as it expects; the tests of the
// patrol show the same cases with an audited shadow.
#include "PatrolWorld.h"
#include "support/Death.h"
#include "support/TraceCapture.h"

namespace {

using Support::PatrolChip;

class PlainHazard : public Support::PlainAudit {};

TEST_F(PlainHazard, oneChipThatThrowsStopsTheAuditOfAll) {
  Support::TraceCapture trace(0);
  const auto other = Zint::makePtr<PatrolChip>("other");
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = regionOf(other, "b", 0x2000, 4);
  put(b, 0, 5);
  audit();
  ASSERT_TRUE(pass());
  chip->isAway = true;
  set(b, 0, 6);
  EXPECT_FALSE(pass(200));
  EXPECT_EQ(get(b, 0), 6u);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);  // and nobody will look again
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
}

TEST_F(PlainHazard, aChipThatAnswersAllOnesIsRepairedEntryByEntry) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  for (U32 i = 0; i < 32; ++i) put(cm, i, i + 1);
  audit();
  ASSERT_TRUE(pass());
  for (U32 i = 0; i < 64; ++i) set(cm, i, ~0u);
  ASSERT_TRUE(pass());
  EXPECT_EQ(cm->registersFixed(), 32u);
  EXPECT_EQ(served(cm, 40), ~0u);  // learned, and served if the region serves
  EXPECT_EQ(Support::PlainAudit::get(cm, 40), ~0u);
}

TEST_F(PlainHazard, aResetOf8192EntriesIs8192RepairsAndTwoLinesEach) {
  const ChipMemory::Ptr cm = region("table", 0x10000, 8192);
  for (U32 i = 0; i < 8192; ++i) put(cm, i, i + 1);
  audit();
  ASSERT_TRUE(pass());
  for (U32 i = 0; i < 8192; ++i) set(cm, i, 0);
  Support::TraceCapture trace(0);
  ASSERT_TRUE(pass());
  EXPECT_EQ(cm->registersFixed(), 8192u);
  EXPECT_GE(trace.taken().size(), 16384u);
  EXPECT_GE(chip->writes, 8192u);
}

TEST_F(PlainHazard, aFlipInAnEntryThatNobodyWroteIsAdoptedAndServed) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  cm->readFromCacheIs(true);
  audit();
  ASSERT_TRUE(pass());
  set(cm, 2, 0x40);
  ASSERT_TRUE(pass());
  EXPECT_EQ(served(cm, 2), 0x40u);
  EXPECT_EQ(cm->registersFixed(), 0u);
}

TEST_F(PlainHazard, aFlipInAnEntryThatWasWrittenAsZeroWhileBufferedIsAdoptedAndServed) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  cm->readFromCacheIs(true);
  cm->modeIs(ChipMemory::buffered());
  offer(cm, 2, 0);
  cm->modeIs(ChipMemory::normal());
  audit();
  ASSERT_TRUE(pass());
  set(cm, 2, 0x40);
  ASSERT_TRUE(pass());
  EXPECT_EQ(served(cm, 2), 0x40u);
}

TEST_F(PlainHazard, aBufferedRegionIsRepairedBeforeItsTime) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  cm->modeIs(ChipMemory::buffered());
  offer(cm, 1, 0x55);
  audit();
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 1), 0x55u);
  EXPECT_EQ(cm->registersFixed(), 1u);
}

TEST_F(PlainHazard, aClearedEntryThatChangesByItselfIsServedAndHit) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  cm->readFromCacheIs(true);
  cm->skipWriteIfMatchesCacheIs(true);
  cm->doClear();
  shadow->stateIs(HardwareShadow::configured());
  set(cm, 2, 0xdead);
  EXPECT_EQ(served(cm, 2), 0u);
  EXPECT_TRUE(offer(cm, 2, 0));
}

TEST_F(PlainHazard, everyEntryIsReadAlsoThoseWhereReadingHasEffects) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_TRUE(chip->readAddresses.contains(cm->entryAddress(3).value()));
}

TEST_F(PlainHazard, aRepairThatThrowsIsCountedAndEndsTheAudit) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  put(cm, 1, 7);
  audit();
  ASSERT_TRUE(pass());
  set(cm, 1, 8);
  chip->afterRead = [this](U64, U32) { chip->isAway = true; };
  EXPECT_FALSE(pass(200));
  EXPECT_EQ(cm->registersFixed(), 1u);
  EXPECT_EQ(get(cm, 1), 8u);
}

TEST_F(PlainHazard, overrideHardwareOnAndOffEndsTheAuditInSilence) {
  region("table", 0x1000, 4);
  audit();
  ASSERT_TRUE(pass());
  shadow->overrideHardwareIs(true);
  for (U32 i = 0; i < 50; ++i) step();
  shadow->overrideHardwareIs(false);
  EXPECT_FALSE(pass(200));
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
}

TEST_F(PlainHazard, everyRepairOfAPassFallsIntoOneTurn) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x10000, 4096);
  for (U32 i = 0; i < 4096; ++i) put(cm, i, i + 1);
  audit();
  ASSERT_TRUE(pass());
  for (U32 i = 0; i < 4096; ++i) set(cm, i, 0);
  U64 most = 0;
  for (U32 i = 0; i < 50; ++i) {
    const U64 before = chip->writes;
    step();
    most = std::max(most, chip->writes - before);
  }
  EXPECT_EQ(most, 4096u);
}

TEST_F(PlainHazard, aStuckEntryIsRepairedInEveryPass) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  put(cm, 1, 7);
  audit();
  ASSERT_TRUE(pass());
  set(cm, 1, 8);
  chip->stuck.insert(cm->entryAddress(1).value());
  for (U32 i = 0; i < 20; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(cm->registersFixed(), 20u);
}

TEST_F(PlainHazard, aRegionThatGrewUnderAuditEndsTheProcess) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  cm->entriesIs(8);
  audit();
  EXPECT_REGION_ASSERTION(pass(), "table");
}

// Of writes whose chip follows some turns after the offer.
TEST_F(PlainHazard, aWriteThatReachesTheChipLaterMayBeRepairedBack) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  put(cm, 1, 7);
  audit();
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  // Offered when the pass has not begun yet: its mark is cleared at the start.
  shadow->minIntervalBetweenAuditsIs(10);
  ASSERT_TRUE(pass());
  offer(cm, 1, 9);
  ASSERT_TRUE(pass());
  EXPECT_EQ(cm->registersFixed(), 1u);
}

}  // namespace
