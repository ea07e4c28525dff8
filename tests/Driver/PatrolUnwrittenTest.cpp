// What an entry is before anybody wrote it, and what a store made anew keeps.
#include "PatrolWorld.h"

namespace {

using Driver::Nature;
using Driver::Policy;
using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;
using Driver::Verdict;
using Support::Told;

class PatrolUnwritten : public Support::PatrolWorld {
 protected:
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);

  static Bytes bits(U32 value) {
    const U8* bytes = reinterpret_cast<const U8*>(&value);
    return Bytes(bytes, bytes + 4);
  }
};

TEST_F(PatrolUnwritten, adoptedTakesOverWhatTheChipHolds) {
  set(cm, 3, 5);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_EQ(shadowed(cm, 3), 5u);
  EXPECT_EQ(told, (std::vector<Told>{{"table", 3, Verdict::adopted, Nature::unverified}}));
  EXPECT_EQ(passes.at(0).adopted, 1u);
  EXPECT_EQ(passes.at(0).differences, 0u);
}

TEST_F(PatrolUnwritten, zeroIsDefendedFromTheStart) {
  policyOf(cm)->unwrittenIs(Unwritten::zero);
  set(cm, 3, 5);
  audit();
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
  EXPECT_EQ(count(Verdict::adopted), 0u);
}

TEST_F(PatrolUnwritten, defaultsExpectsResetValuesAndReportsADifference) {
  const Policy::Ptr policy = policyOf(cm);
  policy->resetValueIs(3, 2, bits(0x11));
  policy->unwrittenIs(Unwritten::defaults);
  set(cm, 3, 0x11);
  set(cm, 4, 0x12);
  audit();
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  ASSERT_FALSE(told.empty());
  for (const Told& finding : told) EXPECT_EQ(finding.entry, 4u);
  EXPECT_EQ(count(Verdict::adopted), 0u);
}

TEST_F(PatrolUnwritten, baselineMakesALaterFlipADifference) {
  policyOf(cm)->unwrittenIs(Unwritten::baseline);
  cm->readFromCacheIs(true);
  audit();
  settle();
  EXPECT_TRUE(cm->entryInitialized(3));
  EXPECT_FALSE(shadow->isWritten(cm, 3));
  set(cm, 3, 0x40);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0u);
  EXPECT_EQ(served(cm, 3), 0u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
}

TEST_F(PatrolUnwritten, baselineOfAnEntryThatIsNotZeroIsAdopted) {
  policyOf(cm)->unwrittenIs(Unwritten::baseline);
  set(cm, 3, 9);
  audit();
  settle();
  EXPECT_EQ(shadowed(cm, 3), 9u);
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 9u);
}

TEST_F(PatrolUnwritten, zeroWrittenWhileBufferedIsDefendedWithBaseline) {
  policyOf(cm)->unwrittenIs(Unwritten::baseline);
  cm->modeIs(ChipMemory::buffered());
  offer(cm, 2, 0);
  cm->modeIs(ChipMemory::normal());
  audit();
  settle();
  set(cm, 2, 0x40);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 2), 0u);
}

TEST_F(PatrolUnwritten, storeMadeAnewKeepsThePolicy) {
  const Policy::Ptr policy = policyOf(cm);
  policy->unwrittenIs(Unwritten::zero);
  policy->ruleIs(4, 1, Rule::detectOnly);
  policy->ruleIs(5, 1, Rule::volatile_);
  policy->maskIs(6, 1, bits(0xff), Rewrite::kept);
  audit();
  settle();
  cm->shadowEnabledIs(false);
  cm->shadowEnabledIs(true);
  for (const U32 entry : {3u, 4u, 5u, 6u}) set(cm, entry, 0x21);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0u);
  EXPECT_EQ(get(cm, 4), 0x21u);
  EXPECT_EQ(get(cm, 5), 0x21u);
  EXPECT_EQ(get(cm, 6), 0x21u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
  EXPECT_EQ(count(Verdict::detectOnly), 1u);
  EXPECT_EQ(told.size(), 2u);
}

TEST_F(PatrolUnwritten, storeMadeAnewDefendsResetValues) {
  const Policy::Ptr policy = policyOf(cm);
  policy->resetValueIs(0, 32, bits(0x11));
  policy->unwrittenIs(Unwritten::defaults);
  for (U32 i = 0; i < 32; ++i) set(cm, i, 0x11);
  audit();
  settle();
  cm->entriesIs(16);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(told.empty());
  set(cm, 3, 0x12);
  ASSERT_TRUE(pass());
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told.at(0).entry, 3u);
}

// Also where only masked bits keep an entry from being all zeros.
TEST_F(PatrolUnwritten, baselineLooksAtTheBitsThatAreCompared) {
  const Policy::Ptr policy = policyOf(cm);
  policy->maskIs(bits(0xff000000), Rewrite::kept);
  policy->unwrittenIs(Unwritten::baseline);
  set(cm, 3, 0xab000000);
  audit();
  settle();
  set(cm, 3, 0xab000040);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0xab000000u);
  EXPECT_EQ(count(Verdict::repaired), 1u);
  EXPECT_EQ(count(Verdict::adopted), 0u);
}

TEST_F(PatrolUnwritten, baselineOfAVoidSliceIsNotLearned) {
  policyOf(cm)->unwrittenIs(Unwritten::baseline);
  const U8 id[4] = {1, 2, 3, 4};
  const auto asic = shadow->chip(cm);
  asic->sentinelIs(ChipAddress(0x9000), id);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_TRUE(asic->isAbsent());
  EXPECT_FALSE(cm->entryInitialized(3));
  chip->bytes.write(0x9000, id, 4);
  for (U32 i = 0; i < 5; ++i) step();
  EXPECT_TRUE(cm->entryInitialized(3));
}

TEST_F(PatrolUnwritten, resetValuesThatAreGivenLaterAreTheOnesThatAreExpected) {
  const Policy::Ptr policy = policyOf(cm);
  policy->unwrittenIs(Unwritten::defaults);
  policy->resetValueIs(0, 32, bits(0x11));
  for (U32 i = 0; i < 32; ++i) set(cm, i, 0x11);
  audit();
  settle();
  set(cm, 3, 0x12);
  ASSERT_TRUE(pass());
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told.at(0).entry, 3u);
  EXPECT_EQ(texts.at(0).find("expected x11"), texts.at(0).find("expected"));
}

// An entry that a client wrote is no unwritten one: its value is defended as ever.
TEST_F(PatrolUnwritten, entriesThatAClientWroteKeepTheirValues) {
  const Policy::Ptr policy = policyOf(cm);
  write(cm, 3, 7);
  policy->unwrittenIs(Unwritten::defaults);
  policy->resetValueIs(0, 32, bits(0x11));
  for (U32 i = 0; i < 32; ++i) {
    if (i != 3) set(cm, i, 0x11);
  }
  audit();
  settle();
  EXPECT_EQ(shadowed(cm, 3), 7u);
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
}

TEST_F(PatrolUnwritten, isKeptByEntriesThatWereAdoptedBefore) {
  const Policy::Ptr policy = policyOf(cm);
  set(cm, 3, 9);
  audit();
  settle();
  policy->unwrittenIs(Unwritten::zero);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 9u);
}

}  // namespace
