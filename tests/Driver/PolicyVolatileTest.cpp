// What a region's data path does with the volatile entries of its policy, and when it hears of
// them.
#include <Driver/Policy.h>

#include "support/ShadowTest.h"

namespace {

using Driver::Policy;
using Driver::Rule;

class VolatileRule : public Support::ShadowTest {
 protected:
  VolatileRule() {
    configure({cm});
    cm->readFromCacheIs(true);
    cm->skipWriteIfMatchesCacheIs(true);
    cm->doClear();
  }
  Support::Entries volatileEntries() const {
    return cm->volatileEntries() == nullptr ? Support::Entries()
                                            : Support::marked(cm->volatileEntries());
  }
  bool isServed(U32 entry) {
    U32 value;
    return shadow->readFromCache(cm, entry, reinterpret_cast<U8*>(&value), 4);
  }

  const ChipMemory::Ptr cm = shadowed("table", 0x1000, 20);
  Policy::Ptr policy = Driver::policyFactory(cm);
};

TEST_F(VolatileRule, withoutAPolicyAClearedEntryIsServedAndHit) {
  EXPECT_TRUE(isServed(4));
  EXPECT_TRUE(write(cm, 4, 0));
}

TEST_F(VolatileRule, isNeitherServedNorHitAlsoAfterDoClear) {
  policy->ruleIs(4, 2, Rule::volatile_);
  cm->doClear();
  EXPECT_FALSE(isServed(4));
  EXPECT_FALSE(write(cm, 4, 0));
  EXPECT_FALSE(isServed(5));
  EXPECT_TRUE(isServed(3));
  EXPECT_TRUE(isServed(6));
  EXPECT_TRUE(write(cm, 6, 0));
}

TEST_F(VolatileRule, otherRulesLeaveTheDataPathAlone) {
  using enum Rule;
  for (const Rule rule : {repaired, detectOnly, noRead, writeOnly, readOnly}) {
    policy->ruleIs(4, 2, rule);
    EXPECT_EQ(cm->volatileEntries(), nullptr);
    EXPECT_TRUE(isServed(4));
  }
}

TEST_F(VolatileRule, bitmapFollowsTheRuns) {
  policy->ruleIs(4, 8, Rule::volatile_);
  policy->ruleIs(18, 1, Rule::volatile_);
  EXPECT_EQ(volatileEntries(), (Support::Entries{4, 5, 6, 7, 8, 9, 10, 11, 18}));
  policy->ruleIs(5, 6, Rule::repaired);
  EXPECT_EQ(volatileEntries(), (Support::Entries{4, 11, 18}));
  policy->ruleIs(0, 20, Rule::detectOnly);
  EXPECT_EQ(cm->volatileEntries(), nullptr);
}

TEST_F(VolatileRule, bitmapGrowsAndShrinksWithTheRegion) {
  policy->ruleIs(18, ~0u - 18, Rule::volatile_);
  EXPECT_EQ(volatileEntries(), (Support::Entries{18, 19}));
  cm->entriesIs(25);
  EXPECT_EQ(volatileEntries(), (Support::Entries{18, 19, 20, 21, 22, 23, 24}));
  cm->entriesIs(18);
  EXPECT_EQ(cm->volatileEntries(), nullptr);
  cm->entriesIs(19);
  EXPECT_EQ(volatileEntries(), (Support::Entries{18}));
}

TEST_F(VolatileRule, aRunBeyondTheRegionIsKnownWhenTheRegionGrows) {
  policy->ruleIs(30, 2, Rule::volatile_);
  EXPECT_EQ(cm->volatileEntries(), nullptr);
  cm->entriesIs(64);
  EXPECT_EQ(volatileEntries(), (Support::Entries{30, 31}));
}

TEST_F(VolatileRule, endsWithThePolicy) {
  policy->ruleIs(4, 2, Rule::volatile_);
  policy = nullptr;
  EXPECT_EQ(cm->volatileEntries(), nullptr);
  EXPECT_TRUE(isServed(4));
  EXPECT_EQ(cm->notifiees(), 0u);
}

TEST_F(VolatileRule, anotherBitmapThanItsOwnIsLeftThere) {
  policy->ruleIs(4, 2, Rule::volatile_);
  const Hal::Buf::Ptr others = Hal::bufFactory(3);
  cm->volatileEntriesIs(others);
  policy->isInForceIs(false);
  EXPECT_EQ(cm->volatileEntries(), others);
  policy = nullptr;
  EXPECT_EQ(cm->volatileEntries(), others);
}

TEST_F(VolatileRule, aPolicyOutOfForceTakesItsBitmapBack) {
  policy->ruleIs(4, 2, Rule::volatile_);
  policy->isInForceIs(false);
  EXPECT_EQ(cm->volatileEntries(), nullptr);
  policy->ruleIs(5, 2, Rule::volatile_);
  EXPECT_EQ(cm->volatileEntries(), nullptr);
  policy->isInForceIs(true);
  EXPECT_EQ(volatileEntries(), (Support::Entries{4, 5, 6}));
}

TEST_F(VolatileRule, aPolicyInForceTellsItsRegionAgain) {
  policy->ruleIs(4, 2, Rule::volatile_);
  const Policy::Ptr other = Driver::policyFactory(cm);
  other->ruleIs(9, 1, Rule::volatile_);
  EXPECT_EQ(volatileEntries(), (Support::Entries{9}));
  policy->isInForceIs(true);
  EXPECT_EQ(volatileEntries(), (Support::Entries{4, 5}));
  other->isInForceIs(false);
  EXPECT_EQ(volatileEntries(), (Support::Entries{4, 5}));
}

TEST_F(VolatileRule, thePolicyObservesTheRegionsEntriesAlone) {
  EXPECT_TRUE(cm->isObserved(ChipMemory::Id::entries));
  EXPECT_FALSE(cm->isObserved(ChipMemory::Id::writeCacheHits));
  EXPECT_FALSE(cm->isObserved(ChipMemory::Id::readCacheHits));
}

}  // namespace
