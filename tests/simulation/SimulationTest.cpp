// Whole systems, each drawn from a seed, through hours of simulated time with faults.
//
//   UMBRA_SIMULATION_SEEDS=200000 simulation-tests   so many seeds, with progress
//   UMBRA_SIMULATION_SEED=7 simulation-tests         one seed, with every event
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "simulation/Simulation.h"

namespace Simulation {
namespace {

constexpr U64 usualSeeds = 2000;

U64 number(const char* variable, U64 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

TEST(Simulation, everyRuleHoldsAndEveryEventIsMet) {
  if (std::getenv("UMBRA_SIMULATION_SEED") != nullptr) {
    const U64 seed = number("UMBRA_SIMULATION_SEED", 0);
    const Outcome outcome = simulated(seed, {&std::cout, 1, {}});
    std::printf("seed %llu: hash 0x%016llx, %.0f simulated seconds\n",
                static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(outcome.hash), outcome.time);
    EXPECT_EQ(outcome.failure, "");
    return;
  }
  const U64 seeds = number("UMBRA_SIMULATION_SEEDS", usualSeeds);
  Zint::Seconds time = 0;
  U64 passes = 0;
  std::array<U64, eventKinds> counts{};
  for (U64 seed = 1; seed <= seeds; ++seed) {
    const Outcome outcome = simulated(seed);
    if (!outcome.failure.empty()) FAIL() << report(seed);
    time += outcome.time;
    passes += outcome.passes;
    for (std::size_t i = 0; i < eventKinds; ++i) counts[i] += outcome.counts[i];
    if (seeds > 10'000 && seed % 5'000 == 0) {
      std::cerr << seed << " of " << seeds << " seeds\n";
    }
  }
  constexpr Zint::Seconds year = 365.25 * 86'400;
  std::printf("%llu seeds, %.2f simulated years, %llu passes\n",
              static_cast<unsigned long long>(seeds), time / year,
              static_cast<unsigned long long>(passes));
  for (std::size_t i = 0; i < eventKinds; ++i) {
    std::printf("%12llu %s\n", static_cast<unsigned long long>(counts[i]), eventName(i));
    if (seeds >= usualSeeds) {
      EXPECT_GT(counts[i], 0u) << eventName(i);
    }
  }
}

}  // namespace
}  // namespace Simulation
