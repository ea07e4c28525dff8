// A chip that does not answer: what is void, what stays, when it is tried again.
#include "PatrolWorld.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Nature;
using Driver::PatrolState;
using Driver::Rewrite;
using Driver::Unwritten;
using Driver::Verdict;
using Support::PatrolChip;
using Support::Told;

class PatrolAbsent : public Support::PatrolWorld {
 protected:
  // A register of the region's chip outside of all regions that holds 0x12345678.
  static constexpr U64 idAddress = 0xf000;
  Driver::Chip::Ptr withSentinel(const ChipMemory::Ptr& cm) {
    const U32 id = 0x12345678;
    const U8* bytes = reinterpret_cast<const U8*>(&id);
    chipOf(cm).bytes.write(idAddress, bytes, 4);
    const Driver::Chip::Ptr asic = shadow->chip(cm);
    asic->sentinelIs(ChipAddress(idAddress), {bytes, 4});
    return asic;
  }
  // The bus answers `byte` for everything.
  static void vanish(const ChipMemory::Ptr& cm, U8 byte) { chipOf(cm).bytes.answersIs(byte); }
  static void comeBack(const ChipMemory::Ptr& cm) { chipOf(cm).bytes.answersIs({}); }

  Support::TraceCapture trace_{0};
};

TEST_F(PatrolAbsent, accessThatThrowsMakesTheChipAbsentAndTheSliceVoid) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);
  fill(cm, 0, 8);
  audit();
  settle();
  damage(cm, 3, 99);
  damage(cm, 20, 5);
  chip->isAway = true;
  const U32 audits = shadow->audits();
  ASSERT_TRUE(pass());
  const auto asic = shadow->chip(cm);
  EXPECT_TRUE(asic->isAbsent());
  EXPECT_NE(asic->reason().bytes().find("no answer"), std::string::npos);
  EXPECT_EQ(asic->absences(), 1u);
  EXPECT_EQ(shadow->patrolState(), PatrolState::suspended);
  EXPECT_NE(shadow->patrolReason().bytes().find("absent"), std::string::npos);
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
  EXPECT_EQ(shadow->audits(), audits);
  EXPECT_FALSE(passes.at(0).isComplete);
  EXPECT_TRUE(told.empty());
  EXPECT_FALSE(cm->entryInitialized(20));
  chip->isAway = false;
  ASSERT_TRUE(pass());
  EXPECT_FALSE(asic->isAbsent());
  EXPECT_EQ(held(cm, 3), 4u);
  EXPECT_EQ(shadow->audits(), audits + 1);
  EXPECT_NE(shadow->patrolState(), PatrolState::suspended);
}

class PatrolBus : public PatrolAbsent, public testing::WithParamInterface<U8> {};

// The bus answers all-ones, or 0, and no access throws.
TEST_P(PatrolBus, sentinelThatIsWrongMakesTheSliceVoid) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);
  fill(cm, 0, 8);
  const auto asic = withSentinel(cm);
  policyOf(cm)->unwrittenIs(Unwritten::baseline);
  audit();
  settle();
  cm->entryInitializedDel(20);
  vanish(cm, GetParam());
  ASSERT_TRUE(pass());
  EXPECT_TRUE(asic->isAbsent());
  EXPECT_EQ(asic->resets(), 0u);
  EXPECT_EQ(chip->writes, 0u);
  EXPECT_TRUE(told.empty());
  EXPECT_FALSE(cm->entryInitialized(20));
  comeBack(cm);
  for (U32 i = 0; i < 10 && asic->isAbsent(); ++i) step();
  EXPECT_FALSE(asic->isAbsent());
  EXPECT_TRUE(told.empty());
}

// The slice is read, then the chip goes: the sentinel after it tells.
TEST_P(PatrolBus, chipThatVanishesBetweenTheSliceAndItsSentinelIsAbsent) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);
  fill(cm, 0, 8);
  const auto asic = withSentinel(cm);
  audit();
  settle();
  damage(cm, 3, 99);
  chip->afterRead = [&](U64, U32) { vanish(cm, GetParam()); };
  ASSERT_TRUE(pass());
  EXPECT_TRUE(asic->isAbsent());
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(chip->writes, 0u);
}

// It goes after the sentinel: each later access of the judgement may be the first without it.
TEST_P(PatrolBus, chipThatVanishesWithinTheJudgementIsNeitherResetNorStuckNorFilledWithNoise) {
  for (U32 access = 3; access < 12; ++access) {
    chip->afterRead = chip->afterWrite = nullptr;
    const U64 address = 0x10000 * U64{access};
    const auto own = Zint::makePtr<PatrolChip>("own");
    const ChipMemory::Ptr cm = regionOf(own, "table", address, 32);
    const U32 mask = 0xff000000;
    policyOf(cm)->maskIs({reinterpret_cast<const U8*>(&mask), 4}, Rewrite::kept);
    const auto asic = withSentinel(cm);
    shadow->rereadsIs(true);
    shadow->verifiesIs(true);
    fill(cm, 0, 8);
    audit();
    settle();
    damage(cm, 3, 0x05000063);
    U32 accesses = 0;
    own->afterRead = own->afterWrite = [&](U64, U32) {
      if (++accesses == access) vanish(cm, GetParam());
    };
    ASSERT_TRUE(pass());
    steps(3);
    EXPECT_EQ(asic->resets(), 0u) << access;
    for (const Told& finding : told) EXPECT_NE(finding.nature, Nature::stuck) << access;
    own->afterRead = own->afterWrite = nullptr;
    comeBack(cm);
    loop.clock->timeIs(loop.clock->time() + 100);
    for (U32 i = 0; i < 3; ++i) ASSERT_TRUE(pass());
    EXPECT_EQ(held(cm, 3), 0x05000004u) << access;
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->policyDel(cm);
    shadow->chipMemoryDel(cm->address());
  }
}

INSTANTIATE_TEST_SUITE_P(Answers, PatrolBus, testing::Values(U8{0xff}, U8{0}));

TEST_F(PatrolAbsent, sentinelOfWhichSomeBitsCountLooksAtThemAlone) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);
  const U32 id = 0x12345678, mask = 0xffff0000;
  const auto asic = shadow->chip(cm);
  asic->sentinelIs(ChipAddress(idAddress), {reinterpret_cast<const U8*>(&id), 4},
                   {reinterpret_cast<const U8*>(&mask), 4});
  const U32 now = 0x12340000;
  chip->bytes.write(idAddress, reinterpret_cast<const U8*>(&now), 4);
  audit();
  settle();
  EXPECT_FALSE(asic->isAbsent());
  const U32 wrong = 0x02340000;
  chip->bytes.write(idAddress, reinterpret_cast<const U8*>(&wrong), 4);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(asic->isAbsent());
}

TEST_F(PatrolAbsent, whatEarlierSlicesProvedStays) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);
  fill(cm, 0, 8);
  shadow->maxEntriesPerSliceIs(8);
  audit();
  settle();
  damage(cm, 3, 99);  // slice 1
  cm->entryInitializedDel(9);
  damage(cm, 9, 7);   // slice 2: learned
  damage(cm, 17, 5);  // slice 3: void
  chip->afterRead = [&](U64 address, U32) {
    if (address == cm->entryAddress(8).value()) chip->isAway = true;
  };
  const U32 audits = shadow->audits();
  ASSERT_TRUE(pass());
  EXPECT_EQ(held(cm, 3), 4u);
  EXPECT_EQ(shadowed(cm, 9), 7u);
  EXPECT_FALSE(cm->entryInitialized(17));
  EXPECT_EQ(count(Verdict::repaired), 1u);
  EXPECT_EQ(shadow->audits(), audits);
  EXPECT_EQ(passes.at(0).repairs, 1u);
}

TEST_F(PatrolAbsent, theOtherChipsAuditGoesOn) {
  const auto other = Zint::makePtr<PatrolChip>("other");
  const ChipMemory::Ptr a = region("a", 0x1000, 32), b = regionOf(other, "b", 0x2000, 32);
  fill(a, 0, 8);
  fill(b, 0, 8);
  audit();
  settle();
  chip->isAway = true;
  for (U32 i = 0; i < 10; ++i) {
    damage(b, i % 8, 99);
    ASSERT_TRUE(pass());
    EXPECT_EQ(held(b, i % 8), i % 8 + 1);
  }
  EXPECT_FALSE(shadow->chip(b)->isAbsent());
  EXPECT_TRUE(shadow->chip(a)->isAbsent());
  EXPECT_GT(shadow->chip(b)->audits(), 10u);
  EXPECT_NE(shadow->patrolState(), PatrolState::suspended);
}

// A patrol that reads one chip is not suspended because another one is absent.
TEST_F(PatrolAbsent, patrolStateDoesNotFlickerWhileAnotherChipIsRead) {
  const auto other = Zint::makePtr<PatrolChip>("other");
  const ChipMemory::Ptr a = region("a", 0x1000, 32), b = regionOf(other, "b", 0x2000, 32);
  shadow->maxEntriesPerSliceIs(4);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  for (U32 i = 0; i < 60; ++i) {
    step();
    ASSERT_NE(shadow->patrolState(), PatrolState::suspended) << i;
  }
}

TEST_F(PatrolAbsent, patrolStateIsReadingOnceTheChipAnswersAgain) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 32);
  shadow->maxEntriesPerSliceIs(4);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  ASSERT_EQ(shadow->patrolState(), PatrolState::suspended);
  chip->isAway = false;
  while (shadow->chip(cm)->isAbsent()) step();
  EXPECT_EQ(shadow->patrolState(), PatrolState::reading);
  EXPECT_TRUE(shadow->patrolReason().bytes() == std::string());
  EXPECT_EQ(shadow->nextTry(), Zint::never);
}

TEST_F(PatrolAbsent, triesAreOneSecondApartDoublingToSixty) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  const auto asic = shadow->chip(cm);
  Zint::Seconds last = asic->since();
  for (const Zint::Seconds wait : {1.0, 2.0, 4.0, 8.0, 16.0, 32.0, 60.0, 60.0}) {
    EXPECT_DOUBLE_EQ(asic->nextTry(), last + wait);
    EXPECT_DOUBLE_EQ(shadow->nextTry(), last + wait);
    const U32 tries = asic->tries();
    while (asic->tries() == tries) step();
    EXPECT_DOUBLE_EQ(loop.clock->time(), last + wait);
    last = loop.clock->time();
  }
  EXPECT_EQ(asic->absences(), 1u);
}

TEST_F(PatrolAbsent, triesFollowTheirOwnWaitsWhateverTheIntervalOfPasses) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  shadow->minIntervalBetweenAuditsIs(1000);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  const auto asic = shadow->chip(cm);
  asic->retryMinIs(3);
  asic->retryMaxIs(5);
  const Zint::Seconds gone = loop.clock->time();
  chip->isAway = false;
  while (asic->isAbsent() && loop.clock->time() < gone + 500) step();
  EXPECT_LE(loop.clock->time(), gone + 5);
  EXPECT_FALSE(asic->isAbsent());
}

TEST_F(PatrolAbsent, triesOfOneChipDoNotWaitForTheNextPassOfTheOthers) {
  const auto other = Zint::makePtr<PatrolChip>("other");
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = regionOf(other, "b", 0x2000, 4);
  shadow->minIntervalBetweenAuditsIs(1000);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  const auto asic = shadow->chip(a);
  ASSERT_TRUE(asic->isAbsent());
  chip->isAway = false;
  const Zint::Seconds gone = asic->since();
  const U64 reads = other->reads;
  while (asic->isAbsent() && loop.clock->time() < gone + 500) step();
  EXPECT_LE(loop.clock->time(), gone + 1);
  EXPECT_EQ(other->reads, reads);  // whose next pass is not due
}

TEST_F(PatrolAbsent, patrolThatWaitsForATryDoesNotSpin) {
  region("table", 0x1000, 4);
  audit();
  settle();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  shadow->pausedIs(true);
  U32 delivered = 0;
  for (U32 i = 0; i < 100; ++i) {
    const Zint::Seconds wake = loop.activity->wakeTime();
    if (wake == Zint::never) break;
    if (wake > loop.clock->time()) loop.clock->timeIs(wake);
    delivered += loop.turn();
  }
  EXPECT_LE(delivered, 3u);
  EXPECT_EQ(shadow->patrolState(), PatrolState::paused);
  EXPECT_NE(shadow->patrolReason().bytes().find("paused"), std::string::npos);
}

TEST_F(PatrolAbsent, timeAndAgeOfTheLastCompletePassAreKnown) {
  region("table", 0x1000, 4);
  audit();
  EXPECT_EQ(shadow->lastPassTime(), -Zint::never);
  settle();
  const Zint::Seconds last = shadow->lastPassTime();
  EXPECT_EQ(last, loop.clock->time());
  chip->isAway = true;
  ASSERT_TRUE(pass());
  loop.clock->timeIs(last + 50);
  EXPECT_EQ(shadow->lastPassTime(), last);
  EXPECT_DOUBLE_EQ(shadow->lastPassAge(), 50);
}

TEST_F(PatrolAbsent, marksOfAVoidSliceAreKept) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  write(cm, 1, 7);
  audit();
  settle();
  offer(cm, 1, 8);  // the chip follows later
  chip->isAway = true;
  ASSERT_TRUE(pass());
  chip->isAway = false;
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::writtenMeanwhile), 1u);
  EXPECT_EQ(count(Verdict::repaired), 0u);
}

TEST_F(PatrolAbsent, doAuditSaysThatTheChipIsAbsent) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  audit();
  settle();
  chip->isAway = true;
  const Driver::PassResult result = shadow->doAudit(cm, 0, 4);
  EXPECT_FALSE(result.isComplete);
  EXPECT_NE(result.reason.bytes().find("no answer"), std::string::npos);
  EXPECT_EQ(result.entries, 0u);
}

TEST_F(PatrolAbsent, isToldToItsObserversOnce) {
  struct ChipObserver : Driver::Chip::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onAbsent() override { told.push_back(notifier()->isAbsent()); }
    std::vector<bool> told;
  };
  const ChipMemory::Ptr cm = region("table", 0x1000, 4);
  const auto observer = Zint::makePtr<ChipObserver>(loop.activity, shadow->chip(cm));
  audit();
  settle();
  chip->isAway = true;
  steps(8);
  chip->isAway = false;
  steps(8);
  EXPECT_EQ(observer->told, (std::vector<bool>{true, false}));
}

}  // namespace
