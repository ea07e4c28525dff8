// The patrol of an audited shadow: it reads, judges and repairs, and tells what it finds.
#include <Driver/Policy.h>

#include <cstring>

#include "PatrolTest.h"

namespace {

using Driver::Nature;
using Driver::PatrolState;
using Driver::Verdict;
using Support::Told;

struct AuditedShadow : Support::PatrolTest {};

TEST_F(AuditedShadow, auditsWithoutAReader) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  set(mac, 3, 7);
  audit();
  EXPECT_EQ(shadow->patrolState(), PatrolState::waiting);
  ASSERT_TRUE(pass());
  EXPECT_EQ(shadow->audits(), 1u);
  EXPECT_EQ(told, (std::vector<Told>{{"mac", 3, Verdict::adopted, Nature::unverified}}));
  EXPECT_EQ(shadowed(mac, 3), 7u);
  EXPECT_TRUE(mac->entryInitialized(3));
}

TEST_F(AuditedShadow, repairsADifferenceAndTellsIt) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  write(mac, 2, 0x11);
  ASSERT_TRUE(pass());
  set(mac, 2, 0x12);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(mac, 2), 0x11u);
  EXPECT_EQ(told, (std::vector<Told>{{"mac", 2, Verdict::repaired, Nature::unverified}}));
  EXPECT_EQ(texts[0], "mac entry 2: expected x11x00x00x00, actual x12x00x00x00: repaired");
  EXPECT_EQ(mac->registersFixed(), 1u);
  EXPECT_EQ(passes.back().repairs, 1u);
  EXPECT_EQ(passes.back().differences, 1u);
  EXPECT_EQ(passes.back().entries, 8u);
  EXPECT_TRUE(passes.back().isComplete);
  EXPECT_EQ(shadow->repairs(), 1u);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 2));
}

TEST_F(AuditedShadow, aSliceHasAtMostThatManyEntriesAndGoesOnInTheNextRegion) {
  const ChipMemory::Ptr a = region("a", 0x1000, 10), b = region("b", 0x2000, 6);
  shadow->maxEntriesPerSliceIs(4);
  audit();
  U32 turns = 0;
  while (passes.empty() && turns < 100) {
    const U64 before = chip->readAddresses.size();
    step();
    EXPECT_LE(chip->readAddresses.size() - before, 4u);
    ++turns;
  }
  EXPECT_EQ(chip->readAddresses.size(), 16u);
  EXPECT_LE(turns, 6u);
  EXPECT_EQ(shadow->passEntriesDone(), 16u);
  EXPECT_EQ(shadow->passEntries(), 16u);
}

TEST_F(AuditedShadow, aVetoLeavesTheEntryWithAnOpenFinding) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  write(mac, 2, 0x11);
  pass();
  set(mac, 2, 0x12);
  veto = [](const Driver::Finding& finding) { return finding.entry == 2; };
  pass();
  EXPECT_EQ(told.back().verdict, Verdict::refused);
  EXPECT_EQ(get(mac, 2), 0x12u);
  EXPECT_TRUE(shadow->hasOpenFinding(mac, 2));
  EXPECT_EQ(mac->registersFixed(), 0u);
  veto = nullptr;
  pass();
  EXPECT_EQ(get(mac, 2), 0x11u);
  EXPECT_FALSE(shadow->hasOpenFinding(mac, 2));
}

TEST_F(AuditedShadow, aNotifieeThatThrowsHasNotVetoed) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  write(mac, 2, 0x11);
  pass();
  set(mac, 2, 0x12);
  veto = [](const Driver::Finding&) -> bool { throw std::runtime_error("no"); };
  pass();
  EXPECT_EQ(get(mac, 2), 0x11u);
}

// The chip is written some turns after the offer; a slice may come between.
TEST_F(AuditedShadow, writesThatReachTheChipLaterAreNotRepairedBack) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 64);
  shadow->maxEntriesPerSliceIs(5);
  audit();
  pass();
  U32 wrong = 0;
  for (U32 i = 0; i < 2000; ++i) {
    const U32 entry = (i * 7) % 64, value = i + 1;
    offer(mac, entry, value);
    for (U32 turn = 0; turn < i % 9; ++turn) step();
    set(mac, entry, value);
    const U64 repairs = shadow->repairs();
    for (U32 turn = 0; turn < 20; ++turn) step();
    wrong += shadow->repairs() != repairs || get(mac, entry) != value ? 1 : 0;
  }
  EXPECT_EQ(wrong, 0u);
}

TEST_F(AuditedShadow, anAccessThatThrowsMakesTheChipAbsentUntilItAnswers) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  audit();
  write(mac, 2, 0x11);
  pass();
  chip->isAway = true;
  ASSERT_TRUE(pass());
  EXPECT_FALSE(passes.back().isComplete);
  EXPECT_EQ(passes.back().reason, "chip is absent: no answer");
  EXPECT_EQ(shadow->patrolState(), PatrolState::suspended);
  EXPECT_EQ(shadow->patrolReason(), "chip is absent: no answer");
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
  EXPECT_EQ(shadow->audits(), 1u);
  // 1 s, 2 s, 4 s, ... up to 60 s.
  std::vector<Zint::Seconds> waits;
  for (U32 i = 0; i < 8; ++i) {
    const Zint::Seconds before = loop.clock->time();
    ASSERT_TRUE(pass());
    waits.push_back(loop.clock->time() - before);
  }
  EXPECT_EQ(waits, (std::vector<Zint::Seconds>{1, 2, 4, 8, 16, 32, 60, 60}));
  chip->isAway = false;
  set(mac, 2, 0x13);
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.back().isComplete);
  EXPECT_EQ(get(mac, 2), 0x11u);
  EXPECT_EQ(shadow->patrolReason(), "");
  EXPECT_EQ(shadow->nextTry(), Zint::never);
}

TEST_F(AuditedShadow, idleStopsAndAuditingBeginsANewPass) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  shadow->maxEntriesPerSliceIs(2);
  audit();
  step();
  EXPECT_EQ(shadow->patrolState(), PatrolState::reading);
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(shadow->patrolState(), PatrolState::stopped);
  EXPECT_EQ(passes.back().reason, "the shadow is idle");
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  shadow->stateIs(HardwareShadow::auditing());
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.back().isComplete);
  EXPECT_EQ(passes.back().entries, 8u);
}

TEST_F(AuditedShadow, pauseGoesOnAtTheSamePlace) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  shadow->maxEntriesPerSliceIs(2);
  audit();
  step();
  step();
  shadow->pausedIs(true);
  EXPECT_EQ(shadow->patrolState(), PatrolState::paused);
  const U64 reads = chip->reads;
  loop.turnAt(loop.clock->time() + 100);
  EXPECT_EQ(chip->reads, reads);
  shadow->pausedIs(false);
  ASSERT_TRUE(pass());
  EXPECT_EQ(chip->reads, 4u);
  EXPECT_TRUE(passes.back().isComplete);
}

TEST_F(AuditedShadow, aResetChipIsFoundByItsOtherEntries) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 1000);
  audit();
  for (U32 e = 0; e < 1000; ++e) write(mac, e, e + 1);
  pass();
  pass();
  told.clear();
  for (U32 e = 0; e < 1000; ++e) set(mac, e, 0);
  shadow->chip(mac)->restoresItselfIs(false);
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.back().reason, "chip was reset");
  EXPECT_EQ(told, (std::vector<Told>{{"mac", 0, Verdict::reset, Nature::unverified}}));
  EXPECT_EQ(chip->writes, 0u);
  EXPECT_TRUE(shadow->chip(mac)->isRestoring());
  EXPECT_EQ(shadow->chip(mac)->resets(), 1u);
  pass(3);
  EXPECT_EQ(shadow->patrolState(), PatrolState::restoring);
  for (U32 e = 0; e < 1000; ++e) set(mac, e, e + 1);
  shadow->chip(mac)->doRestored();
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.back().isComplete);
}

// The chip of 8,192 entries that forgot them all.
TEST_F(AuditedShadow, aResetChipIsReplayedAndItsAuditGoesOn) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8192);
  const ChipMemory::Ptr learned = region("learned", 0x20000, 16);
  set(learned, 3, 77);
  audit();
  for (U32 e = 0; e < 8192; ++e) write(mac, e, e + 1);
  pass();
  pass();
  told.clear();
  chip->bytes = {};
  set(learned, 3, 78);
  chip->writes = 0;
  for (U32 i = 0; i < 100 && shadow->chip(mac)->resets() == 0; ++i) step();
  for (U32 i = 0; i < 1000 && shadow->chip(mac)->isRestoring(); ++i) step();
  EXPECT_FALSE(shadow->chip(mac)->isRestoring());
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].verdict, Verdict::reset);
  EXPECT_EQ(mac->registersFixed(), 0u);
  EXPECT_EQ(chip->writes, 8192u);
  for (U32 e = 0; e < 8192; ++e) ASSERT_EQ(get(mac, e), e + 1) << e;
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.back().isComplete);
}

TEST_F(AuditedShadow, aReplayThatMeetsAnAbsentChipGoesOnWhenItAnswers) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 100);
  audit();
  for (U32 e = 0; e < 100; ++e) write(mac, e, e + 1);
  pass();
  pass();
  chip->bytes = {};
  chip->isAway = true;
  shadow->chip(mac)->doChipReset();
  for (U32 i = 0; i < 10; ++i) step();
  EXPECT_TRUE(shadow->chip(mac)->isRestoring());
  EXPECT_TRUE(shadow->chip(mac)->isAbsent());
  EXPECT_EQ(shadow->patrolState(), PatrolState::restoring);
  chip->isAway = false;
  for (U32 i = 0; i < 50 && shadow->chip(mac)->isRestoring(); ++i) step();
  EXPECT_FALSE(shadow->chip(mac)->isRestoring());
  EXPECT_FALSE(shadow->chip(mac)->isAbsent());
  for (U32 e = 0; e < 100; ++e) ASSERT_EQ(get(mac, e), e + 1) << e;
  ASSERT_TRUE(pass());
  EXPECT_TRUE(passes.back().isComplete);
}

// Also while nothing is audited.
TEST_F(AuditedShadow, aResetIsReplayedWhileTheShadowIsIdle) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 10);
  shadow->stateIs(HardwareShadow::configured());
  for (U32 e = 0; e < 10; ++e) write(mac, e, e + 1);
  chip->bytes = {};
  shadow->chip(mac)->doChipReset();
  for (U32 i = 0; i < 20; ++i) step();
  for (U32 e = 0; e < 10; ++e) EXPECT_EQ(get(mac, e), e + 1);
}

TEST_F(AuditedShadow, fewDamagesAreRepairedAndNoReset) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 100);
  audit();
  for (U32 e = 0; e < 4; ++e) write(mac, 10 * e, 5);
  pass();
  set(mac, 10, 0);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(mac, 10), 5u);
  EXPECT_EQ(shadow->chip(mac)->resets(), 0u);
}

TEST_F(AuditedShadow, verifiesARepair) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  shadow->verifiesIs(true);
  audit();
  write(mac, 2, 0x11);
  pass();
  set(mac, 2, 0x12);
  pass();
  EXPECT_EQ(told.back(), (Told{"mac", 2, Verdict::repaired, Nature::soft}));
  set(mac, 2, 0x12);
  pass();
  EXPECT_EQ(told.back(), (Told{"mac", 2, Verdict::repaired, Nature::recurring}));
  loop.clock->timeIs(loop.clock->time() + 100);
  chip->stuck.insert(0x1008);
  set(mac, 2, 0x12);
  pass();
  EXPECT_EQ(told.back(), (Told{"mac", 2, Verdict::repaired, Nature::stuck}));
  EXPECT_TRUE(shadow->hasOpenFinding(mac, 2));
}

TEST_F(AuditedShadow, quarantineIsLiftedByCleanVisits) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 8);
  shadow->quarantineRepairsIs(3);
  shadow->quarantineVisitsIs(2);
  audit();
  write(mac, 2, 0x11);
  pass();
  for (U32 i = 0; i < 3; ++i) {
    set(mac, 2, 0x12);
    pass();
  }
  EXPECT_TRUE(shadow->isQuarantined(mac, 2));
  EXPECT_EQ(shadow->quarantined(), 1u);
  set(mac, 2, 0x12);
  pass();
  EXPECT_EQ(told.back().verdict, Verdict::quarantined);
  EXPECT_EQ(get(mac, 2), 0x12u);
  set(mac, 2, 0x11);
  pass();
  EXPECT_TRUE(shadow->isQuarantined(mac, 2));
  pass();
  EXPECT_FALSE(shadow->isQuarantined(mac, 2));
  EXPECT_EQ(shadow->quarantined(), 0u);
}

}  // namespace
