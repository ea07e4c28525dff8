// A system with a deliberately broken access method does not get through: the rules really fail.
#include <gtest/gtest.h>

#include "simulation/Simulation.h"

namespace Simulation {
namespace {

constexpr U64 sabotageSeeds = 20;

// In how many of the runs each rule was broken; `goesOn`: also after the first one.
struct Breaches {
  U32 attributed = 0, repaired = 0, settled = 0, answered = 0, any = 0;
};

Breaches breaches(Sabotage::Kind kind, bool goesOn = false) {
  Breaches found;
  for (U64 seed = 1; seed <= sabotageSeeds; ++seed) {
    Options options;
    options.sabotage.kind = kind;
    options.sabotage.after = 3;
    options.goesOn = goesOn;
    const Outcome outcome = simulate(seed, options);
    found.attributed += outcome.isBroken(Rule::attributed);
    found.repaired += outcome.isBroken(Rule::repaired);
    found.settled += outcome.isBroken(Rule::settled);
    found.answered += outcome.isBroken(Rule::answered);
    found.any += !outcome.failure.empty();
  }
  return found;
}

TEST(Sabotage, theUnbrokenAccessOfTheSameRunsIsFaultless) {
  EXPECT_EQ(breaches(Sabotage::harmless).any, 0u);
}

TEST(Sabotage, aDroppedRepairIsMissedAndLeavesTheFault) {
  const Breaches found = breaches(Sabotage::dropsRepair, true);
  EXPECT_GE(found.attributed, 15u);
  EXPECT_GE(found.repaired, 15u);
  EXPECT_GE(found.settled, 10u);
}

TEST(Sabotage, aWriteToAnotherEntryHasNoCause) {
  EXPECT_GE(breaches(Sabotage::writesElsewhere).attributed, 15u);
}

TEST(Sabotage, aWrongReadLeadsToARepairWithoutACause) {
  EXPECT_GE(breaches(Sabotage::readsWrong).attributed, 15u);
}

TEST(Sabotage, aWrongAnswerFromTheShadowIsSeen) {
  EXPECT_GE(breaches(Sabotage::servesWrong).answered, 15u);
}

TEST(Sabotage, aComparisonThatSeesNoDifferenceLeavesEveryFault) {
  const Breaches found = breaches(Sabotage::blind, true);
  EXPECT_GE(found.attributed, 15u);
  EXPECT_GE(found.repaired, 15u);
  EXPECT_GE(found.settled, 10u);
}

// The report of a failure names the seed and shows the last events.
TEST(Sabotage, theReportNamesTheSeedTheRuleAndTheLastEvents) {
  Options options;
  options.sabotage.kind = Sabotage::dropsRepair;
  U64 seed = 1;
  while (simulate(seed, options).failure.empty()) ++seed;
  const std::string text = report(seed, options);
  EXPECT_NE(text.find("seed " + std::to_string(seed) + ": rule \"attributed\" broken at "),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("trace 0: Difference found in entry "), std::string::npos) << text;
  EXPECT_NE(text.find("UMBRA_SIMULATION_SEED=" + std::to_string(seed)), std::string::npos);
}

}  // namespace
}  // namespace Simulation
