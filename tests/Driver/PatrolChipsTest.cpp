// Several chips under one shadow, and resets that are told or asked for.
#include "PatrolWorld.h"
#include "support/ShadowTest.h"
#include "support/TraceCapture.h"

namespace {

using Driver::Verdict;
using Support::PatrolChip;

class PatrolChips : public Support::PatrolWorld {
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

// --- Several chips -------------------------------------------------------------------------------

TEST_F(PatrolChips, ofTwoChipsAtOnceIsOneFindingEach) {
  const auto second = Zint::makePtr<PatrolChip>("second");
  const ChipMemory::Ptr a = region("a", 0x1000, 64), b = regionOf(second, "b", 0x2000, 64);
  fill(a, 0, 64);
  fill(b, 0, 64);
  driverChip(a);
  driverChip(b);
  audit();
  settle();
  wipe(a);
  wipe(b);
  steps(30);
  EXPECT_EQ(count(Verdict::reset), 2u);
  EXPECT_EQ(told.size(), 2u);
  EXPECT_EQ(shadow->repairs(), 0u);
}

TEST_F(PatrolChips, ofOneChipIsNotDecidedByAnotherOne) {
  const auto second = Zint::makePtr<PatrolChip>("second");
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = regionOf(second, "b", 0x2000, 64);
  write(a, 0, 7);
  fill(b, 0, 64);
  audit();
  settle();
  const auto asic = driverChip(b);
  wipe(a);
  wipe(b);
  steps(30);
  EXPECT_EQ(get(a, 0), 7u);  // one known entry: repaired
  EXPECT_EQ(asic->resets(), 1u);
  EXPECT_EQ(held(b, 0), 0u);
}

TEST_F(PatrolChips, oneAbsentOneResetOneFine) {
  Support::TraceCapture trace(0);
  const auto away = Zint::makePtr<PatrolChip>("away"), fine = Zint::makePtr<PatrolChip>("fine");
  const ChipMemory::Ptr a = regionOf(away, "a", 0x1000, 32), b = region("b", 0x2000, 32),
                        c = regionOf(fine, "c", 0x3000, 32);
  for (const ChipMemory::Ptr& cm : {a, b, c}) fill(cm, 0, 32);
  for (const ChipMemory::Ptr& cm : {a, b, c}) driverChip(cm);
  audit();
  settle();
  away->isAway = true;
  wipe(b);
  damage(c, 5, 99);
  steps(40);
  EXPECT_TRUE(shadow->chip(a)->isAbsent());
  EXPECT_FALSE(shadow->chip(a)->isRestoring());
  EXPECT_TRUE(shadow->chip(b)->isRestoring());
  EXPECT_FALSE(shadow->chip(b)->isAbsent());
  EXPECT_FALSE(shadow->chip(c)->isAbsent());
  EXPECT_EQ(held(c, 5), 6u);
  EXPECT_EQ(held(b, 5), 0u);
  damage(c, 6, 99);  // and the third one's audit goes on
  steps(40);
  EXPECT_EQ(held(c, 6), 7u);
}

// --- Told and asked ------------------------------------------------------------------------------

TEST_F(PatrolChips, doChipReset_letsTheAuditOfTheChipWaitUntilItIsRestored) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  const auto asic = driverChip(cm);
  audit();
  settle();
  wipe(cm);
  asic->doChipReset();
  EXPECT_TRUE(asic->isRestoring());
  EXPECT_EQ(asic->resets(), 1u);
  const U64 reads = chip->reads;
  steps(20);
  EXPECT_EQ(chip->reads, reads);
  EXPECT_EQ(chip->writes, 0u);
  EXPECT_FALSE(shadow->patrolReason().bytes() == std::string());
  restore(cm);
  EXPECT_FALSE(asic->isRestoring());
  damage(cm, 3, 99);
  for (U32 i = 0; i < 40 && held(cm, 3) == 99; ++i) step();
  EXPECT_EQ(held(cm, 3), 4u);
}

TEST_F(PatrolChips, doChipReset_withinAPassMakesThePassIncomplete) {
  const ChipMemory::Ptr a = region("a", 0x1000, 64);
  const auto second = Zint::makePtr<PatrolChip>("second");
  const ChipMemory::Ptr b = regionOf(second, "b", 0x2000, 64);
  fill(a, 0, 64);
  fill(b, 0, 64);
  driverChip(a);
  const auto asic = driverChip(b);
  shadow->maxEntriesPerSliceIs(8);
  audit();
  settle();
  const U32 audits = shadow->audits();
  bool once = true;
  second->afterRead = [&](U64, U32) {
    if (std::exchange(once, false)) asic->doChipReset();
  };
  ASSERT_TRUE(pass());
  EXPECT_FALSE(passes.back().isComplete);
  EXPECT_FALSE(passes.back().reason.bytes() == std::string());
  EXPECT_EQ(shadow->audits(), audits);
  EXPECT_EQ(shadow->repairs(), 0u);
}

class GenerationChip : public Driver::Chip {
 public:
  using Chip::Chip;
  bool wasReset() override {
    ++asked;
    if (throws) throw std::runtime_error("no answer");
    return std::exchange(isNew, false);
  }
  U32 asked = 0;
  bool isNew = false, throws = false;
};

TEST_F(PatrolChips, wasReset_isAskedBeforeEachPass) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  const auto asic = Zint::makePtr<GenerationChip>("asic", chip);
  asic->restoresItselfIs(false);
  shadow->chipIs(asic);
  audit();
  settle();
  const U32 asked = asic->asked;
  EXPECT_GE(asked, 1u);
  ASSERT_TRUE(pass());
  EXPECT_GT(asic->asked, asked);
  wipe(cm);
  asic->isNew = true;
  steps(20);
  EXPECT_EQ(asic->resets(), 1u);
  EXPECT_TRUE(asic->isRestoring());
  EXPECT_EQ(shadow->repairs(), 0u);
  EXPECT_EQ(chip->writes, 0u);
}

TEST_F(PatrolChips, wasReset_thatThrowsMeansAbsent) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  const auto asic = Zint::makePtr<GenerationChip>("asic", chip);
  shadow->chipIs(asic);
  audit();
  settle();
  asic->throws = true;
  steps(10);
  EXPECT_TRUE(asic->isAbsent());
  EXPECT_EQ(asic->resets(), 0u);
  asic->throws = false;
  ASSERT_TRUE(pass());
  EXPECT_FALSE(asic->isAbsent());
}

// A chip that was powered down has both: it was absent, and it forgot.
TEST_F(PatrolChips, wasReset_isAskedAfterAnAbsenceBeforeAnythingIsJudged) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  const auto asic = Zint::makePtr<GenerationChip>("asic", chip);
  asic->restoresItselfIs(false);
  shadow->chipIs(asic);
  audit();
  settle();
  chip->isAway = true;
  steps(5);
  ASSERT_TRUE(asic->isAbsent());
  wipe(cm);
  asic->isNew = true;
  chip->isAway = false;
  steps(20);
  EXPECT_FALSE(asic->isAbsent());
  EXPECT_TRUE(asic->isRestoring());
  EXPECT_EQ(chip->writes, 0u);
  EXPECT_TRUE(told.empty());
}

TEST_F(PatrolChips, patrolState_goesOnWithAChipThatTellsOfItsResetAsSoonAsItAnswers) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  const auto other = Zint::makePtr<Support::PatrolChip>("other");
  const ChipMemory::Ptr away = regionOf(other, "away", 0x9000, 16);
  const auto asic = Zint::makePtr<GenerationChip>("asic", chip);
  asic->restoresItselfIs(false);
  shadow->chipIs(asic);
  audit();
  settle();
  chip->isAway = other->isAway = true;
  steps(5);
  ASSERT_EQ(shadow->patrolState(), Driver::PatrolState::suspended);
  asic->isNew = true;
  chip->isAway = false;
  shadow->doAudit(cm, 0, 1);
  ASSERT_TRUE(asic->isRestoring());
  asic->doRestored();
  EXPECT_NE(shadow->patrolState(), Driver::PatrolState::suspended);
}

// --- Chips of a driver's own kind ----------------------------------------------------------------

// All regions below an address, whatever their access methods.
class RangeChip : public Driver::Chip {
 public:
  RangeChip() : Chip("range", nullptr) {}
  bool holds(const Hardware::ChipMemory& region) const override {
    if (throws) throw std::runtime_error("holds");
    return region.address().value() < 0x4000;
  }
  bool isPresent() override {
    ++asked;
    return answers;
  }
  bool throws = false, answers = true;
  U32 asked = 0;
};

TEST_F(PatrolChips, derivedChipHoldsRegionsOfSeveralAccessMethods) {
  Support::TraceCapture trace(0);
  const auto second = Zint::makePtr<PatrolChip>("second");
  const ChipMemory::Ptr a = region("a", 0x1000, 16), b = regionOf(second, "b", 0x2000, 16),
                        c = regionOf(second, "c", 0x8000, 16);
  const auto range = Zint::makePtr<RangeChip>();
  shadow->chipIs(range);
  EXPECT_EQ(shadow->chip(a), range);
  EXPECT_EQ(shadow->chip(b), range);
  EXPECT_NE(shadow->chip(c), range);
  for (const ChipMemory::Ptr& cm : {a, b, c}) fill(cm, 0, 4);
  audit();
  settle();
  range->answers = false;
  for (const ChipMemory::Ptr& cm : {a, b, c}) damage(cm, 1, 99);
  steps(10);
  EXPECT_TRUE(range->isAbsent());
  EXPECT_EQ(held(a, 1), 99u);
  EXPECT_EQ(held(b, 1), 99u);
  EXPECT_EQ(held(c, 1), 2u);
  range->answers = true;
  loop.clock->timeIs(loop.clock->time() + 100);
  steps(10);
  EXPECT_EQ(held(a, 1), 2u);
  EXPECT_EQ(held(b, 1), 2u);
}

TEST_F(PatrolChips, derivedChipThatThrowsWhenAskedWhatItHoldsIsNoEndOfThePatrol) {
  Support::TraceCapture trace(0);
  const ChipMemory::Ptr a = region("a", 0x1000, 16);
  fill(a, 0, 4);
  const auto range = Zint::makePtr<RangeChip>();
  shadow->chipIs(range);
  audit();
  settle();
  range->throws = true;
  damage(a, 1, 99);
  steps(10);
  EXPECT_NE(loop.activity->wakeTime(), Zint::never);
  range->throws = false;
  steps(10);
  EXPECT_EQ(held(a, 1), 2u);
}

TEST_F(PatrolChips, chipMadeForAnAccessMethodLeavesWithItsLastRegion) {
  const auto removed = [&](const ChipMemory::Ptr& cm) {
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->chipMemoryDel(cm->address());
    shadow->stateIs(HardwareShadow::configured());
    return shadow->chips().size();
  };
  const auto otherHam = Zint::makePtr<PatrolChip>("other"),
             heldHam = Zint::makePtr<PatrolChip>("held");
  const ChipMemory::Ptr a = regionOf(chip, "a", 0x1000, 16),
                        b = regionOf(otherHam, "b", 0x2000, 16);
  const ChipMemory::Ptr c = regionOf(otherHam, "c", 0x3000, 16),
                        d = regionOf(heldHam, "d", 0x4000, 16);
  audit();
  settle();
  ASSERT_EQ(shadow->chips().size(), 3u);
  EXPECT_EQ(removed(b), 3u);
  EXPECT_EQ(removed(c), 2u);
  const Driver::Chip::Ptr held = shadow->chip(d);
  EXPECT_EQ(removed(d), 2u);
  EXPECT_EQ(removed(a), 1u);
  ASSERT_EQ(shadow->chips().size(), 1u);
  EXPECT_EQ(shadow->chips()[0], held);
}

TEST_F(PatrolChips, chipGivenLastIsAskedFirst) {
  const ChipMemory::Ptr a = region("a", 0x1000, 16);
  const auto first = Driver::chipFactory("first", chip),
             second = Driver::chipFactory("second", chip);
  shadow->chipIs(first);
  shadow->chipIs(second);
  EXPECT_EQ(shadow->chip(a), second);
  shadow->chipDel(second);
  EXPECT_EQ(shadow->chip(a), first);
  shadow->chipDel(first);
  EXPECT_NE(shadow->chip(a), first);
  EXPECT_EQ(shadow->chip(a)->name(), chip->name());
}

// --- The data path -------------------------------------------------------------------------------

TEST_F(PatrolChips, chipOfAnotherShadowIsRefused) {
  const auto a = region("a", 0x1000, 4);
  const auto given = Driver::chipFactory("given", chip);
  shadow->chipIs(given);
  shadow->chipIs(given);
  auto other = Driver::auditedShadowFactory(loop.activity, loop.clock);
  EXPECT_EQ(Support::exceptionText([&] { other->chipIs(given); }),
            "given is a chip of another shadow");
  EXPECT_TRUE(other->chips().empty());
  shadow->chipDel(given);
  other->chipIs(given);
  EXPECT_EQ(Support::exceptionText([&] { shadow->chipIs(given); }),
            "given is a chip of another shadow");
  const auto made = shadow->chip(a);
  EXPECT_EQ(Support::exceptionText([&] { other->chipIs(made); }),
            "chip is a chip of another shadow");
  other = nullptr;
  shadow->chipIs(given);
  EXPECT_EQ(shadow->chip(a), given);
}

TEST_F(PatrolChips, chipThatTheShadowHasMadeMayBeGivenToIt) {
  const auto a = region("a", 0x1000, 8);
  const auto made = shadow->chip(a);
  shadow->chipIs(made);
  EXPECT_EQ(shadow->chips(), std::vector<Driver::Chip::Ptr>{made});
  audit();
  fill(a, 0, 8);
  settle();
  wipe(a);
  made->doChipReset();
  const U64 writes = chip->writes;
  while (made->isRestoring()) step();
  EXPECT_EQ(chip->writes, writes + 8);
  shadow->chipDel(made);
  EXPECT_NE(shadow->chip(a), made);
}

TEST_F(PatrolChips, dataPathIsObservedByNobody) {
  const ChipMemory::Ptr a = region("a", 0x1000, 16), b = region("b", 0x2000, 16);
  policyOf(b)->unwrittenIs(Driver::Unwritten::zero);
  audit();
  settle();
  EXPECT_EQ(a->notifiees(), 0u);
  for (const ChipMemory::Ptr& cm : {a, b}) {
    EXPECT_FALSE(cm->isObserved(ChipMemory::Id::writeCacheHits));
    EXPECT_FALSE(cm->isObserved(ChipMemory::Id::readCacheHits));
  }
}

}  // namespace
