// A chip that has lost its state: told, asked, or found by a probe.

#include "PatrolWorld.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Nature;
using Driver::Policy;
using Driver::Rule;
using Driver::Verdict;
using Support::PatrolChip;
using Support::Told;

class PatrolReset : public Support::PatrolWorld {
 protected:
  // The chip of a region, which the driver restores.
  Driver::Chip::Ptr driverChip(const ChipMemory::Ptr& cm) {
    const Driver::Chip::Ptr made = shadow->chip(cm);
    made->restoresItselfIs(false);
    return made;
  }
  // The driver has written everything again.
  void restore(const ChipMemory::Ptr& cm) {
    for (U32 i = 0; i < cm->entries(); ++i) damage(cm, i, shadowed(cm, i));
    shadow->chip(cm)->doRestored();
  }
};

TEST_F(PatrolReset, of8192EntriesIsNoRepairOneFindingAndHardlyATraceLine) {
  const ChipMemory::Ptr cm = region("table", 0x10000, 8192);
  for (U32 i = 0; i < 8192; ++i) write(cm, i, i + 1);
  const auto asic = driverChip(cm);
  audit();
  settle();
  for (U32 i = 0; i < 8192; ++i) set(cm, i, 0);
  const U64 writes = chip->writes;
  Support::TraceCapture trace(0);
  steps(60);
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(count(Verdict::reset), 1u);
  EXPECT_EQ(shadow->findings(), 1u);
  EXPECT_EQ(shadow->repairs(), 0u);
  EXPECT_EQ(cm->registersFixed(), 0u);
  EXPECT_EQ(chip->writes, writes);
  EXPECT_LE(trace.taken().size(), 4u);
  EXPECT_EQ(asic->resets(), 1u);
  EXPECT_TRUE(asic->isRestoring());
  EXPECT_FALSE(asic->isAbsent());
  restore(cm);
  told.clear();
  ASSERT_TRUE(pass());
  ASSERT_TRUE(passes.back().isComplete || pass());
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(shadow->repairs(), 0u);
}

// --- Sparse tables
// --------------------------------------------------------------------------------

class PatrolSparse : public PatrolReset, public testing::WithParamInterface<U32> {};

TEST_P(PatrolSparse, oneDamageAmongFewKnownEntriesIsRepaired) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 256);
  for (U32 i = 0; i < GetParam(); ++i) write(cm, 10 * i, 7);
  audit();
  settle();
  set(cm, 0, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(get(cm, 0), 7u);
  EXPECT_EQ(told, (std::vector<Told>{{"table", 0, Verdict::repaired, Nature::unverified}}));
  EXPECT_EQ(shadow->chip(cm)->resets(), 0u);
}

// Fewer than four others: no verdict, also if all are wrong.
TEST_P(PatrolSparse, allOfFewKnownEntriesAreJudgedLikeAnyOther) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 256);
  for (U32 i = 0; i < GetParam(); ++i) write(cm, 10 * i, 7);
  audit();
  settle();
  wipe(cm);
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), GetParam());
  EXPECT_EQ(told.size(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(KnownEntries, PatrolSparse, testing::Values(1u, 2u, 3u, 4u));

TEST_F(PatrolReset, probe_ofFiveKnownEntriesThatAreAllWrongFindsIt) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 256);
  for (U32 i = 0; i < 5; ++i) write(cm, 50 * i, 7);
  const auto asic = driverChip(cm);
  audit();
  settle();
  wipe(cm);
  steps(20);
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(count(Verdict::reset), 1u);
  EXPECT_EQ(asic->resets(), 1u);
  EXPECT_EQ(get(cm, 0), 0u);
}

// 4 others, of which 2 are wrong: at least half.
TEST_F(PatrolReset, probe_halfOfTheOthersIsEnoughAndLessIsNot) {
  for (const U32 wrong : {1u, 2u}) {
    const ChipMemory::Ptr cm = region(wrong == 1 ? "a" : "b", wrong * 0x10000, 5);
    fill(cm, 0, 5);
    const auto own = Driver::chipFactory(wrong == 1 ? "a" : "b", chip);
    audit();
    settle();
    const auto asic = driverChip(cm);
    const U32 before = asic->resets();
    damage(cm, 0, 99);
    for (U32 i = 1; i <= wrong; ++i) damage(cm, i, 99);
    if (wrong == 1) {
      ASSERT_TRUE(pass());
      EXPECT_EQ(count(Verdict::repaired), 2u);
      EXPECT_EQ(asic->resets(), before);
      shadow->stateIs(HardwareShadow::unconfigured());
      shadow->chipMemoryDel(cm->address());
    } else {
      steps(20);
      EXPECT_EQ(count(Verdict::repaired), 0u);
      EXPECT_EQ(asic->resets(), before + 1);
    }
    told.clear();
  }
}

TEST_F(PatrolReset, probe_readsAtMostSixteenOthers) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 1024);
  fill(cm, 0, 1024);
  audit();
  settle();
  damage(cm, 500, 1);
  U64 singles = 0;
  chip->afterRead = [&](U64 address, U32 entries) {
    if (entries <= 16) singles += entries;
    if (entries == 1) {
      EXPECT_NE(address, cm->entryAddress(500).value());
    }
  };
  ASSERT_TRUE(pass());
  EXPECT_GE(singles, 4u);
  EXPECT_LE(singles, 16u);
  EXPECT_EQ(get(cm, 500), 501u);
}

// Entries whose known value is the reset value say nothing.
TEST_F(PatrolReset, probe_ofEntriesThatHoldTheirResetValuesDecidesNothing) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  const U32 reset = 0x77;
  const U8* bytes = reinterpret_cast<const U8*>(&reset);
  policyOf(cm)->resetValueIs(0, 64, {bytes, 4});
  for (U32 i = 0; i < 64; ++i) write(cm, i, reset);
  write(cm, 5, 1);
  write(cm, 6, 2);
  audit();
  settle();
  for (U32 i = 0; i < 64; ++i) set(cm, i, 0x78);
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 64u);
}

TEST_F(PatrolReset, probe_ofEntriesThatAreZeroButWhoseResetValueIsNotFindsIt) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  const U32 reset = 0x77;
  const U8* bytes = reinterpret_cast<const U8*>(&reset);
  policyOf(cm)->resetValueIs(0, 64, {bytes, 4});
  const auto asic = driverChip(cm);
  for (U32 i = 0; i < 64; ++i) write(cm, i, 0);
  audit();
  settle();
  for (U32 i = 0; i < 64; ++i) set(cm, i, reset);
  steps(20);
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(asic->resets(), 1u);
}

// A region with too few entries asks others of the same chip.
TEST_F(PatrolReset, probe_reachesIntoOtherRegionsOfTheChip) {
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = region("b", 0x2000, 64),
                        c = region("c", 0x20000, 64);
  write(a, 0, 7);
  fill(b, 0, 2);
  fill(c, 0, 3);
  const auto asic = driverChip(a);
  audit();
  settle();
  wipe(a);
  wipe(b);
  wipe(c);
  steps(20);
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(count(Verdict::reset), 1u);
  EXPECT_EQ(asic->resets(), 1u);
  EXPECT_EQ(chip->writes, 0u);
}

TEST_F(PatrolReset, probe_oneDamageWhereOtherRegionsAreSoundIsRepaired) {
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = region("b", 0x2000, 64);
  write(a, 0, 7);
  fill(b, 0, 20);
  audit();
  settle();
  wipe(a);
  ASSERT_TRUE(pass());
  EXPECT_EQ(told, (std::vector<Told>{{"a", 0, Verdict::repaired, Nature::unverified}}));
}

// A part of a chip that was reset alone: the first difference in its region asks again.
TEST_F(PatrolReset, probe_ofTheFirstDifferenceInARegionFindsARegionThatWasLost) {
  const ChipMemory::Ptr a = region("a", 0x2000, 64), b = region("b", 0x1000, 64);
  fill(a, 0, 64);
  fill(b, 0, 64);
  const auto asic = driverChip(a);
  audit();
  settle();
  damage(a, 3, 99);  // the first of the chip: no reset
  wipe(b);
  steps(30);
  EXPECT_EQ(asic->resets(), 1u);
  EXPECT_EQ(chip->writes, 1u);
  EXPECT_EQ(count(Verdict::reset), 1u);
}

TEST_F(PatrolReset, probe_neitherReadsNorCountsWhatMustNotBeReadOrCompared) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  const Policy::Ptr policy = policyOf(cm);
  policy->ruleIs(20, 10, Rule::noRead);
  policy->ruleIs(30, 10, Rule::writeOnly);
  policy->ruleIs(40, 24, Rule::volatile_);
  fill(cm, 0, 3);
  fill(cm, 20, 44);
  audit();
  settle();
  wipe(cm);
  chip->readAddresses.clear();
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 3u);
  for (U32 i = 20; i < 40; ++i)
    EXPECT_FALSE(chip->readAddresses.contains(cm->entryAddress(i).value())) << i;
}

TEST_F(PatrolReset, probe_comparesUnderTheMask) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  const U32 mask = 0xff;
  policyOf(cm)->maskIs({reinterpret_cast<const U8*>(&mask), 4}, Driver::Rewrite::kept);
  for (U32 i = 0; i < 64; ++i) write(cm, i, 0x100 + i);
  audit();
  settle();
  for (U32 i = 0; i < 64; ++i) set(cm, i, 0x100);  // masked bits have changed
  set(cm, 9, 0x200);
  ASSERT_TRUE(pass());
  EXPECT_EQ(told, (std::vector<Told>{{"table", 9, Verdict::repaired, Nature::unverified}}));
}

TEST_F(PatrolReset, probe_ofAChipThatVanishesInItIsAbsentNotReset) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  const auto asic = driverChip(cm);
  audit();
  settle();
  wipe(cm);
  chip->afterRead = [&](U64, U32 entries) { chip->isAway = entries == 64; };
  steps(10);
  EXPECT_TRUE(asic->isAbsent());
  EXPECT_EQ(asic->resets(), 0u);
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(chip->writes, 0u);
}

TEST_F(PatrolReset, probe_isNotMadeWhereItIsSwitchedOff) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  shadow->findsResetsIs(false);
  audit();
  settle();
  wipe(cm);
  ASSERT_TRUE(pass());
  EXPECT_EQ(count(Verdict::repaired), 64u);
}

}  // namespace
