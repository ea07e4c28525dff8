// What the patrol does with an entry: rules and masks.
#include "PatrolWorld.h"

namespace {

using Driver::Nature;
using Driver::Policy;
using Driver::Rewrite;
using Driver::Rule;
using Driver::Verdict;
using Support::Told;

class PatrolRules : public Support::PatrolWorld {
 protected:
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);

  // Mask of all entries of the table.
  static Bytes bits(U32 value) {
    const U8* bytes = reinterpret_cast<const U8*>(&value);
    return Bytes(bytes, bytes + 4);
  }
};

TEST_F(PatrolRules, repaired_isRewrittenReportedAndCounted) {
  policyOf(cm)->ruleIs(3, 2, Rule::repaired);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
  EXPECT_EQ(told, (std::vector<Told>{{"table", 3, Verdict::repaired, Nature::unverified}}));
  EXPECT_EQ(cm->registersFixed(), 1u);
  EXPECT_EQ(shadow->repairs(), 1u);
  EXPECT_EQ(shadow->findings(), 1u);
}

TEST_F(PatrolRules, detectOnly_isReportedInEachPassAndNeverRewritten) {
  policyOf(cm)->ruleIs(3, 1, Rule::detectOnly);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  const U64 writes = chip->writes;
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 8u);
  EXPECT_EQ(chip->writes, writes);
  EXPECT_EQ(told, (std::vector<Told>(2, {"table", 3, Verdict::detectOnly, Nature::unverified})));
  EXPECT_EQ(cm->registersFixed(), 0u);
  EXPECT_EQ(shadowed(cm, 3), 7u);
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 3));
  set(cm, 3, 7);
  ASSERT_TRUE(pass());
  EXPECT_FALSE(shadow->hasOpenFinding(cm, 3));
}

TEST_F(PatrolRules, volatile_isNeitherComparedNorLearnedNorServedNorSkipped) {
  policyOf(cm)->ruleIs(3, 1, Rule::volatile_);
  cm->readFromCacheIs(true);
  cm->skipWriteIfMatchesCacheIs(true);
  write(cm, 3, 7);
  audit();
  settle();
  for (U32 value = 100; value < 104; ++value) {
    set(cm, 3, value);
    ASSERT_TRUE(pass());
    EXPECT_EQ(get(cm, 3), value);
    EXPECT_EQ(served(cm, 3), ~0u);
    U32 same = shadowed(cm, 3);
    EXPECT_EQ(same, 7u);
    EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(cm, 3, reinterpret_cast<U8*>(&same), 4));
  }
  cm->doClear();
  EXPECT_EQ(served(cm, 3), ~0u);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 103u);
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(cm->registersFixed(), 0u);
}

TEST_F(PatrolRules, volatile_thatWasNeverWrittenIsNotLearned) {
  policyOf(cm)->ruleIs(3, 1, Rule::volatile_);
  set(cm, 3, 0xdead);
  set(cm, 4, 0xbeef);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_FALSE(cm->entryInitialized(3));
  EXPECT_TRUE(cm->entryInitialized(4));
  EXPECT_EQ(shadowed(cm, 3), 0u);
}

// A mode that makes a new store within the access: nothing of what was read is learned.
TEST_F(PatrolRules, volatile_isNotLearnedIntoAStoreMadeAnewWithinTheRead) {
  policyOf(cm)->ruleIs(3, 1, Rule::volatile_);
  cm->readFromCacheIs(true);
  set(cm, 3, 0xdead);
  audit();
  bool once = true;
  chip->afterRead = [&](U64, U32) {
    if (!std::exchange(once, false)) return;
    cm->modeIs(ChipMemory::override());
    cm->modeIs(ChipMemory::normal());
  };
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_FALSE(cm->entryInitialized(3));
  EXPECT_EQ(served(cm, 3), ~0u);
}

TEST_F(PatrolRules, noRead_isNeverReadNotEvenWithinALargerSlice) {
  const Policy::Ptr policy = policyOf(cm);
  policy->ruleIs(3, 2, Rule::noRead);
  policy->ruleIs(31, 1, Rule::noRead);
  policy->ruleIs(0, 1, Rule::noRead);
  for (U32 i = 0; i < 32; ++i) write(cm, i, i + 1);
  audit();
  for (U32 i = 0; i < 4; ++i) ASSERT_TRUE(pass());
  for (U32 i = 0; i < 32; ++i) {
    const bool isNever = i == 0 || i == 3 || i == 4 || i == 31;
    EXPECT_EQ(chip->readAddresses.contains(cm->entryAddress(i).value()), !isNever) << i;
  }
}

// Neither by a probe, a second look, a verification nor an audit on demand.
TEST_F(PatrolRules, noRead_isNotReadByAnyOtherAccess) {
  policyOf(cm)->ruleIs(8, 24, Rule::noRead);
  for (U32 i = 0; i < 32; ++i) write(cm, i, i + 1);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  audit();
  settle();
  for (U32 i = 0; i < 32; ++i) set(cm, i, 0);
  ASSERT_TRUE(pass());
  shadow->doAudit(cm, 0, 32);
  for (U32 i = 8; i < 32; ++i)
    EXPECT_FALSE(chip->readAddresses.contains(cm->entryAddress(i).value())) << i;
}

TEST_F(PatrolRules, noRead_isNeitherAdoptedNorRepairedFromAnOldImage) {
  const Policy::Ptr policy = policyOf(cm);
  write(cm, 3, 7);
  set(cm, 3, 8);
  policy->ruleIs(3, 1, Rule::noRead);
  audit();
  settle();
  ASSERT_TRUE(pass());
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(get(cm, 3), 8u);
}

TEST_F(PatrolRules, writeOnly_isNeverRead) {
  policyOf(cm)->ruleIs(3, 1, Rule::writeOnly);
  write(cm, 3, 7);
  set(cm, 3, 0xffff);
  audit();
  settle();
  ASSERT_TRUE(pass());
  EXPECT_FALSE(chip->readAddresses.contains(cm->entryAddress(3).value()));
  EXPECT_EQ(get(cm, 3), 0xffffu);
  EXPECT_TRUE(told.empty());
  EXPECT_TRUE(shadow->isWritten(cm, 3));  // the replay writes it
}

TEST_F(PatrolRules, readOnly_isComparedWhereItIsKnownAndNeverWritten) {
  policyOf(cm)->ruleIs(3, 2, Rule::readOnly);
  write(cm, 3, 7);
  set(cm, 4, 1);
  audit();
  settle();
  set(cm, 3, 8);
  const U64 writes = chip->writes;
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 8u);
  EXPECT_EQ(chip->writes, writes);
  EXPECT_EQ(count(Verdict::detectOnly), 1u);
}

TEST_F(PatrolRules, readOnly_whoseValueIsNotKnownIsNoDifference) {
  policyOf(cm)->ruleIs(4, 1, Rule::readOnly);
  set(cm, 4, 0x123);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::detectOnly), 0u);
  EXPECT_EQ(shadow->findings(), 0u);
}

TEST_F(PatrolRules, hardwareHoldsWhatWasReadAndNothingElse) {
  policyOf(cm)->maskIs(bits(0xff), Rewrite::kept);
  write(cm, 3, 0x1200);
  audit();
  settle();
  set(cm, 3, 0xabcd1235);
  ASSERT_TRUE(pass());
  U32 image;
  std::memcpy(&image, cm->hardware()->data() + 12, 4);
  EXPECT_EQ(image, 0xabcd1235u);
}

TEST_F(PatrolRules, mask_bitsAreNotCompared) {
  policyOf(cm)->maskIs(bits(0xff), Rewrite::kept);
  write(cm, 3, 0x1200);
  audit();
  settle();
  set(cm, 3, 0x12ab);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(get(cm, 3), 0x12abu);
}

// As the chip holds them immediately before the write, not as the slice has read them.
TEST_F(PatrolRules, mask_keptBitsAreReadImmediatelyBeforeTheWrite) {
  policyOf(cm)->maskIs(bits(0xff), Rewrite::kept);
  write(cm, 3, 0x1200);
  audit();
  settle();
  set(cm, 3, 0x9901);
  chip->afterRead = [&](U64, U32 entries) {
    if (entries > 1) set(cm, 3, 0x9902);  // after the slice
  };
  ASSERT_TRUE(pass());
  chip->afterRead = nullptr;
  EXPECT_EQ(get(cm, 3), 0x1202u);
  EXPECT_EQ(texts.at(0).find("9902"), std::string::npos);
}

TEST_F(PatrolRules, mask_zeroBitsAreWrittenAsZero) {
  policyOf(cm)->maskIs(3, 1, bits(0xff), Rewrite::zero);
  write(cm, 3, 0x12aa);
  audit();
  settle();
  set(cm, 3, 0x99ff);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0x1200u);
  EXPECT_EQ(shadowed(cm, 3), 0x12aau);
}

TEST_F(PatrolRules, mask_shadowBitsAreWrittenAsTheShadowHoldsThem) {
  policyOf(cm)->maskIs(bits(0xff), Rewrite::shadow);
  write(cm, 3, 0x12aa);
  audit();
  settle();
  set(cm, 3, 0x99ff);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 0x12aau);
}

TEST_F(PatrolRules, mask_ofARunReplacesThatOfTheRegion) {
  const Policy::Ptr policy = policyOf(cm);
  policy->maskIs(bits(0xff), Rewrite::kept);
  policy->maskIs(4, 1, bits(0xff00), Rewrite::kept);
  write(cm, 3, 0);
  write(cm, 4, 0);
  audit();
  settle();
  set(cm, 3, 0x11);
  set(cm, 4, 0x1100);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(told.empty());
  set(cm, 3, 0x1100);
  set(cm, 4, 0x11);
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 2u);
}

// A learned value is what the chip holds, masked bits included.
TEST_F(PatrolRules, mask_adoptedEntryKeepsItsMaskedBits) {
  policyOf(cm)->maskIs(bits(0xffff0000), Rewrite::kept);
  cm->readFromCacheIs(true);
  set(cm, 3, 0xabcd1234);
  audit();
  ASSERT_TRUE(pass());
  EXPECT_EQ(served(cm, 3), 0xabcd1234u);
}

TEST_F(PatrolRules, policyDel_letsThePlainRulesHoldAgain) {
  policyOf(cm)->ruleIs(3, 1, Rule::detectOnly);
  write(cm, 3, 7);
  audit();
  settle();
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  shadow->policyDel(cm);
  EXPECT_EQ(shadow->policy(cm), nullptr);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
}

TEST_F(PatrolRules, ruleThatChangesBetweenPassesHoldsAtOnce) {
  const Policy::Ptr policy = policyOf(cm);
  write(cm, 3, 7);
  audit();
  settle();
  policy->ruleIs(3, 1, Rule::detectOnly);
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 8u);
  policy->ruleIs(3, 1, Rule::repaired);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
}

}  // namespace
