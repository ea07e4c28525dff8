// Runs against an array with a value for each entry.
#include <Driver/Runs.h>
#include <gtest/gtest.h>

#include "support/Random.h"

namespace {

using Driver::Runs;

void runIs(Runs<U32>& runs, U32 first, U64 end, U32 value) {
  runs.roomIs();
  runs.runIs(first, end, value);
}

TEST(Runs, withoutRunsEveryEntryHasTheDefault) {
  const Runs<U32> runs;
  EXPECT_TRUE(runs.isEmpty());
  EXPECT_EQ(runs.at(0), 0u);
  EXPECT_EQ(runs.at(~0u), 0u);
  EXPECT_EQ(runs.endOf(7), Runs<U32>::endOfAll);
  EXPECT_EQ(runs.firstOf(7), 0u);
}

TEST(Runs, aRunReplacesAndSplitsOthers) {
  Runs<U32> runs;
  runIs(runs, 10, 30, 1);
  runIs(runs, 15, 20, 2);
  EXPECT_EQ(runs.at(9), 0u);
  EXPECT_EQ(runs.at(10), 1u);
  EXPECT_EQ(runs.at(19), 2u);
  EXPECT_EQ(runs.at(20), 1u);
  EXPECT_EQ(runs.at(30), 0u);
  EXPECT_EQ(runs.firstOf(29), 20u);
  EXPECT_EQ(runs.endOf(12), 15u);
  EXPECT_EQ(runs.runs().size(), 4u);
}

TEST(Runs, equalNeighboursAreOne) {
  Runs<U32> runs;
  runIs(runs, 10, 20, 1);
  runIs(runs, 30, 40, 1);
  runIs(runs, 20, 30, 1);
  EXPECT_EQ(runs.runs().size(), 2u);
  EXPECT_TRUE(runs.holds(10, 40, 1));
  EXPECT_FALSE(runs.holds(10, 41, 1));
  runIs(runs, 0, Runs<U32>::endOfAll, 0);
  EXPECT_TRUE(runs.isEmpty());
}

TEST(Runs, theLastEntryNumberHasARun) {
  Runs<U32> runs;
  runIs(runs, ~0u, Runs<U32>::endOfAll, 3);
  EXPECT_EQ(runs.at(~0u), 3u);
  EXPECT_EQ(runs.at(~0u - 1), 0u);
  EXPECT_EQ(runs.endOf(~0u), Runs<U32>::endOfAll);
  runIs(runs, 0, Runs<U32>::endOfAll, 3);
  EXPECT_EQ(runs.runs().size(), 1u);
}

TEST(Runs, areThoseOfAnArray) {
  constexpr U32 entries = 60;
  for (U64 seed = 0; seed < 300; ++seed) {
    Support::Random random(seed);
    Runs<U32> runs;
    U32 model[entries] = {};
    for (U32 step = 0; step < 60; ++step) {
      const U32 first = random.below(entries);
      const U32 end = random.between(first + 1, entries);
      const U32 value = random.below(3);
      bool holds = true;
      for (U32 e = first; e < end; ++e) holds = holds && model[e] == value;
      ASSERT_EQ(runs.holds(first, end, value), holds) << seed;
      runIs(runs, first, end, value);
      std::fill(model + first, model + end, value);
      std::size_t changes = 0;
      for (U32 e = 0; e < entries; ++e) {
        ASSERT_EQ(runs.at(e), model[e]) << seed << " step " << step;
        changes += model[e] != (e == 0 ? 0 : model[e - 1]) ? 1 : 0;
        U32 stop = e + 1;
        while (stop < entries && model[stop] == model[e]) ++stop;
        ASSERT_EQ(std::min<U64>(runs.endOf(e), entries), stop) << seed;
      }
      changes += model[entries - 1] != 0 ? 1 : 0;
      ASSERT_EQ(runs.runs().size(), changes) << seed;
    }
  }
}

}  // namespace
