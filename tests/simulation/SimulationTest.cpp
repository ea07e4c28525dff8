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
constexpr Zint::Seconds year = 365.25 * 86'400;

U64 number(const char* variable, U64 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

void printed(const std::array<U64, eventKinds>& counts) {
  for (std::size_t i = 0; i < eventKinds; ++i) {
    std::printf("%12llu %s\n", static_cast<unsigned long long>(counts[i]), eventName(i));
  }
}

TEST(Simulation, everyRuleHoldsAndEveryEventIsMet) {
  if (std::getenv("UMBRA_SIMULATION_SEED") != nullptr) {
    const U64 seed = number("UMBRA_SIMULATION_SEED", 0);
    const Outcome outcome = simulate(seed, {&std::cout, 1, {}});
    std::printf("seed %llu: hash 0x%016llx, %.0f simulated seconds\n",
                static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(outcome.hash), outcome.time);
    EXPECT_EQ(outcome.failure, "");
    return;
  }
  const U64 seeds = number("UMBRA_SIMULATION_SEEDS", usualSeeds);
  Zint::Seconds time = 0, jumped = 0;
  U64 passes = 0;
  std::array<U64, eventKinds> counts{};
  for (U64 seed = 1; seed <= seeds; ++seed) {
    const Outcome outcome = simulate(seed);
    if (!outcome.failure.empty()) FAIL() << report(seed);
    time += outcome.time;
    jumped += outcome.jumped;
    passes += outcome.passes;
    for (std::size_t i = 0; i < eventKinds; ++i) counts[i] += outcome.counts[i];
    if (seeds > 10'000 && seed % 5'000 == 0) {
      std::cerr << seed << " of " << seeds << " seeds\n";
    }
  }
  std::printf(
      "%llu seeds, %.2f simulated years (%.2f of them in jumps of the clock), %llu passes\n",
      static_cast<unsigned long long>(seeds), time / year, jumped / year,
      static_cast<unsigned long long>(passes));
  printed(counts);
  for (std::size_t i = 0; i < eventKinds && seeds >= usualSeeds; ++i) {
    EXPECT_GT(counts[i], 0u) << eventName(i);
  }
}

// The hash over every event of the first seeds: what is the same in both widths and with every
// compiler. A deliberate change of what a run does, or of a trace text, changes them all; the test
// prints the new ones.
TEST(Simulation, theSameSeedGivesTheSameEventsEverywhere) {
  static constexpr U64 golden[] = {
      0xb02f6d048b753a71, 0xef0408183bb43ec4, 0xf74659cf57ee9a08, 0x9b73e3515762bd9e,
      0x4a92ccad049c6dce, 0xa93b470489256601, 0x1c0c0ae3133b5837, 0xabf18f95f5a893f8,
      0xff73c7c6892abeb4, 0x49878a42f0aed87f, 0x96c650c9c9543ae4, 0x9cae228e294f13b4,
      0x4f817d1500ac4c1f, 0xadf19cd2db7fc64e, 0x5ca8880e0b3c7a88, 0x6aca01d894d9be48,
  };
  U64 seed = 0;
  for (const U64 wanted : golden) {
    const U64 hash = simulate(++seed).hash;
    EXPECT_EQ(hash, wanted) << format("seed %llu: 0x%016llx", static_cast<unsigned long long>(seed),
                                      static_cast<unsigned long long>(hash));
    EXPECT_EQ(simulate(seed).hash, hash) << "in the second run of seed " << seed;
  }
}

}  // namespace
}  // namespace Simulation
