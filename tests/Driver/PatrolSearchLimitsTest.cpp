// How far the search for a reset goes, and how often it concludes one.
#include "PatrolWorld.h"

namespace {

using Driver::Verdict;

class PatrolSearchLimits : public Support::PatrolWorld {
 protected:
  PatrolSearchLimits() { shadow->maxEntriesPerSliceIs(1u << 20); }

  // A chip that its driver writes again.
  Driver::Chip::Ptr driverChip(const ChipMemory::Ptr& cm) {
    const Driver::Chip::Ptr asic = shadow->chip(cm);
    asic->restoresItselfIs(false);
    return asic;
  }
};

// All entries are known. Those that would tell lie within 16,384 of the one that differs, or not.
TEST_F(PatrolSearchLimits, ofEntriesThatAreInspected) {
  for (const U32 distance : {16384u, 16388u}) {
    told.clear();
    const ChipMemory::Ptr cm = region("table", distance == 16384 ? 0x100000 : 0x900000, 60000);
    shadow->stateIs(HardwareShadow::configured());
    cm->doClear();
    const U32 first = 20000;
    // Four entries that tell, the last of them `distance` behind the first one that differs.
    for (U32 e : {first, first + distance - 3, first + distance - 2, first + distance - 1,
                  first + distance}) {
      write(cm, e, 7);
    }
    shadow->stateIs(HardwareShadow::auditing());
    settle();
    const auto asic = driverChip(cm);
    const U32 before = asic->resets();
    wipe(cm);
    if (distance == 16384) {
      steps(10);
      EXPECT_EQ(asic->resets(), before + 1);
      EXPECT_EQ(count(Verdict::reset), 1u);
      EXPECT_EQ(count(Verdict::repaired), 0u);
      asic->doRestored();
    } else {
      ASSERT_TRUE(pass());
      EXPECT_EQ(asic->resets(), before);
      EXPECT_EQ(count(Verdict::repaired), 5u);
    }
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->chipMemoryDel(cm->address());
  }
}

// A chip that is wrong after three restorings does not take what they write: its entries are
// judged.
TEST_F(PatrolSearchLimits, ofResetsThatAreConcludedInSuccession) {
  const ChipMemory::Ptr cm = region("table", 0x1000, 64);
  fill(cm, 0, 64);
  const auto asic = driverChip(cm);
  audit();
  settle();
  wipe(cm);
  for (U32 resets = 1; resets <= 3; ++resets) {
    steps(20);
    EXPECT_EQ(asic->resets(), resets);
    EXPECT_EQ(count(Verdict::reset), resets);
    EXPECT_EQ(count(Verdict::repaired), 0u);
    asic->doRestored();  // and nothing was written
  }
  ASSERT_TRUE(pass());
  ASSERT_TRUE(passes.back().isComplete);
  EXPECT_EQ(asic->resets(), 3u);
  EXPECT_EQ(count(Verdict::repaired), 64u);
  for (U32 e = 0; e < 64; ++e) EXPECT_EQ(get(cm, e), e + 1);
  // The complete pass lets it be found again.
  wipe(cm);
  steps(20);
  EXPECT_EQ(asic->resets(), 4u);
}

}  // namespace
