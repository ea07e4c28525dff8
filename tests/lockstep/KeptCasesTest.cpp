// Shrunk cases in which the two sides once differed, and the tools that find and shrink them.
#include <gtest/gtest.h>

#include <set>

#include "lockstep/Driver.h"

namespace Lockstep {
namespace {

// Runs the steps with everything compared after each; each of them has to do something.
void expectAgreement(const char* steps) {
  const std::optional<Steps> parsed = stepsFromText(steps);
  ASSERT_TRUE(parsed) << "not the text of steps:\n" << steps;
  Scenario scenario(Depth::full);
  for (std::size_t i = 0; i < parsed->size(); ++i) {
    const Outcome outcome = scenario.run((*parsed)[i], Scenario::takesAll);
    ASSERT_NE(outcome, Outcome::nothing) << "step without effect: " << text((*parsed)[i]);
    ASSERT_NE(outcome, Outcome::diverged)
        << scenario.difference() << "\nafter " << scenario.lastCall();
    if (outcome == Outcome::ended) {
      ASSERT_EQ(i + 1, parsed->size()) << "the case ends early, after " << text((*parsed)[i]);
    }
  }
}

// --- Kept cases. Each is what a failing run prints, pasted.

TEST(LockstepKept, byteRecordOfARepairCarriesIndexAndBothBytes) {
  expectAgreement(R"(
    regionCreate 0 0 0 0 0 195
    state 0 1
    state 0 11
    doClear
    chipAccess 0 0 0 1 42
    auditCall
    auditCall 0 248
    auditCall 0 4
  )");
}

TEST(LockstepKept, recordsAreMadeWhateverTheTraceLevel) {
  expectAgreement(R"(
    regionCreate 0 0 0 0 0 195
    state 0 1
    doClear
    chipAccess 0 0 0 1 42
    traceLevel
    request
    turn
    auditCall 0 4
  )");
}

TEST(LockstepKept, regionThatShrinksBelowWhatWasReadEndsInAnAssertion) {
  expectAgreement(R"(
    regionCreate 0 0 0 227 0 226
    state 0 1
    request
    turn
    entries
    turn 0 0 1
  )");
}

// Nothing is copied from a null pointer.
TEST(LockstepKept, writeOfNothingFromNullIsAgreedOn) {
  expectAgreement(R"(
    regionCreate 0 0 0 0 0 1
    traceLevel
    write 0 0 0 232
    flag 0 3 1
    write 0 0 0 232
  )");
}

// --- The text of steps.

TEST(LockstepText, stepsReadBackAsTheyWereWritten) {
  Random random(4);
  Steps steps;
  for (int i = 0; i < 1000; ++i) {
    U8 bytes[Step::bytes];
    for (U8& byte : bytes) byte = static_cast<U8>(random.below(3) == 0 ? random.below(256) : 0);
    steps.push_back(stepFromBytes(bytes));
  }
  EXPECT_EQ(stepsFromText(text(steps)), steps);
}

TEST(LockstepText, commentsAndHexadecimalNumbersAreRead) {
  const std::optional<Steps> steps = stepsFromText("# nothing\n\n turn 1 0xff # the rest\n");
  ASSERT_TRUE(steps);
  ASSERT_EQ(steps->size(), 1u);
  EXPECT_EQ(text(steps->front()), "turn 1 255");
}

TEST(LockstepText, otherTextIsRefused) {
  for (const char* other : {"turns", "turn x", "turn 256", "turn 1 2 3 4 5 6 7 8", "turn 1x"}) {
    EXPECT_FALSE(stepsFromText(other)) << other;
  }
}

TEST(LockstepText, everyOperationHasItsName) {
  std::set<std::string> names;
  for (U32 i = 0; i < operations; ++i) names.insert(nameOf(static_cast<Operation>(i)));
  EXPECT_EQ(names.size(), operations);
}

// --- Any bytes are operations.

TEST(LockstepBytes, randomStreamsAreRunWithoutADifference) {
  for (U64 seed = 0; seed < 50; ++seed) {
    Random random(seed);
    std::vector<U8> bytes(4003);
    for (U8& byte : bytes) byte = static_cast<U8>(random.below(256));
    const auto divergence = Driver::runBytes(bytes.data(), bytes.size());
    ASSERT_FALSE(divergence) << report(*divergence);
  }
}

// --- A fault in the library's surroundings is found, and shrunk to a case that can be kept.

struct Planted {
  const char* name;
  Plant plant;
};
void PrintTo(const Planted& planted, std::ostream* out) { *out << planted.name; }

class LockstepPlanted : public testing::TestWithParam<Planted> {};

TEST_P(LockstepPlanted, isFoundAndShrunkToAtMostTwelveSteps) {
  const Plant plant = GetParam().plant;
  for (U64 seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Driver driver(seed, plant);
    const std::optional<Divergence> divergence = driver.run(100'000);
    ASSERT_TRUE(divergence);
    const Divergence small = shrink(*divergence, plant);
    EXPECT_LE(small.steps.size(), 12u) << report(small);
    const std::optional<Steps> pasted = stepsFromText(text(small.steps));
    ASSERT_TRUE(pasted);
    EXPECT_TRUE(replay(*pasted, plant)) << "the pasted text does not show it:\n" << report(small);
    EXPECT_FALSE(replay(*pasted)) << "shown without the fault as well:\n" << report(small);
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, LockstepPlanted,
                         testing::Values(Planted{"lastByteNotCompared", Plant::lastByteNotCompared},
                                         Planted{"cacheByteLost", Plant::cacheByteLost},
                                         Planted{"registerWriteLost", Plant::registerWriteLost}),
                         [](const testing::TestParamInfo<Planted>& planted) {
                           return planted.param.name;
                         });

}  // namespace
}  // namespace Lockstep
