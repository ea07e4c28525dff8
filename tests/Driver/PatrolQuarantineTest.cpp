// Entries that need repair again and again: reported, not rewritten.
#include "PatrolWorld.h"

namespace {

using Driver::Verdict;

class PatrolQuarantine : public Support::PatrolWorld {
 protected:
  PatrolQuarantine() {
    shadow->findsResetsIs(false);
    shadow->quarantineRepairsIs(3);
    shadow->quarantineTimeIs(100);
    shadow->quarantineVisitsIs(2);
    shadow->minIntervalBetweenAuditsIs(1);
    write(cm, 3, 7);
    audit();
    settle();
  }
  void hit(U32 times) {
    for (U32 i = 0; i < times; ++i) {
      set(cm, 3, 8 + i);
      ASSERT_TRUE(pass());
    }
  }

  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
};

TEST_F(PatrolQuarantine, kRepairsInTheTimePutTheEntryThere) {
  hit(2);
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
  hit(1);
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(shadow->quarantined(), 1u);
  EXPECT_EQ(get(cm, 3), 7u);  // the last of the repairs was one
  const U64 writes = chip->writes;
  hit(2);
  EXPECT_EQ(chip->writes, writes);
  EXPECT_EQ(count(Verdict::repaired), 3u);
  EXPECT_EQ(count(Verdict::quarantined), 2u);
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 3));
}

TEST_F(PatrolQuarantine, repairsThatLieFurtherApartDoNot) {
  for (U32 i = 0; i < 6; ++i) {
    set(cm, 3, 8);
    ASSERT_TRUE(pass());
    loop.clock->timeIs(loop.clock->time() + 60);
  }
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(count(Verdict::repaired), 6u);
}

TEST_F(PatrolQuarantine, theWindowSlides) {
  hit(1);
  loop.clock->timeIs(loop.clock->time() + 95);
  hit(1);  // two within 100 s
  loop.clock->timeIs(loop.clock->time() + 10);
  hit(1);  // the first is too old now: two again
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
  hit(1);  // three within some seconds
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
}

TEST_F(PatrolQuarantine, cleanVisitsLiftIt) {
  hit(3);
  ASSERT_TRUE(shadow->isQuarantined(cm, 3));
  ASSERT_TRUE(pass());
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  ASSERT_TRUE(pass());
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(shadow->quarantined(), 0u);
  set(cm, 3, 9);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
}

// So long after its last difference, however few visits there were.
TEST_F(PatrolQuarantine, timeLiftsIt) {
  shadow->quarantineVisitsIs(1000);
  hit(4);  // the fourth is not rewritten
  ASSERT_TRUE(shadow->isQuarantined(cm, 3));
  const Zint::Seconds last = loop.clock->time();
  set(cm, 3, 7);
  loop.clock->timeIs(last + 90);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(shadow->quarantined(), 1u);
  loop.clock->timeIs(last + 101);
  ASSERT_TRUE(pass());
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(shadow->quarantined(), 0u);
  hit(1);
  EXPECT_EQ(told.back().verdict, Verdict::repaired);
  EXPECT_EQ(get(cm, 3), 7u);
}

// One that still differs stays there, however long.
TEST_F(PatrolQuarantine, timeDoesNotLiftItWhileTheEntryDiffers) {
  hit(3);
  for (U32 i = 0; i < 5; ++i) {
    loop.clock->timeIs(loop.clock->time() + 90);
    hit(1);
    EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  }
  EXPECT_EQ(count(Verdict::quarantined), 5u);
}

TEST_F(PatrolQuarantine, aVisitThatIsNotCleanBeginsTheCountAnew) {
  hit(3);
  ASSERT_TRUE(pass());
  hit(1);
  set(cm, 3, 7);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  ASSERT_TRUE(pass());
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
}

TEST_F(PatrolQuarantine, aVisitWhoseSliceIsVoidIsNoCleanOne) {
  hit(3);
  const auto driverChip = shadow->chip(cm);
  const U8 id[4] = {1, 2, 3, 4};
  driverChip->sentinelIs(ChipAddress(0x9000), id);
  for (U32 i = 0; i < 5; ++i) {
    loop.clock->timeIs(loop.clock->time() + 100);
    step();
  }
  EXPECT_TRUE(driverChip->isAbsent());
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
}

TEST_F(PatrolQuarantine, aClientsWriteNeitherLiftsItNorIsSwallowed) {
  cm->skipWriteIfMatchesCacheIs(true);
  hit(4);
  ASSERT_TRUE(shadow->isQuarantined(cm, 3));
  EXPECT_TRUE(shadow->hasOpenFinding(cm, 3));  // so that the client's write is not skipped
  write(cm, 3, 21);
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(get(cm, 3), 21u);
  set(cm, 3, 22);
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_TRUE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(get(cm, 3), 22u);
}

TEST_F(PatrolQuarantine, aCommandLiftsIt) {
  hit(4);
  shadow->quarantineDel(cm, 4);  // not there: nothing
  EXPECT_EQ(shadow->quarantined(), 1u);
  shadow->quarantineDel(cm, 3);
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
  EXPECT_EQ(shadow->quarantined(), 0u);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 3), 7u);
  shadow->quarantineDel(cm, 3);
}

TEST_F(PatrolQuarantine, ofARegionThatLeavesIsNotCountedAnyMore) {
  hit(3);
  ASSERT_EQ(shadow->quarantined(), 1u);
  shadow->stateIs(HardwareShadow::unconfigured());
  shadow->chipMemoryDel(cm->address());
  EXPECT_EQ(shadow->quarantined(), 0u);
  EXPECT_FALSE(shadow->isQuarantined(cm, 3));
}

TEST_F(PatrolQuarantine, ofAStuckEntryIsReachedWithoutVerification) {
  chip->stuck.insert(cm->entryAddress(3).value());
  set(cm, 3, 8);
  for (U32 i = 0; i < 6; ++i) ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 3u);
  EXPECT_EQ(count(Verdict::quarantined), 3u);
}

}  // namespace
