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
    const Outcome outcome = simulated(seed, {&std::cout, 1, {}});
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
    const Outcome outcome = simulated(seed);
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
      0x4f844b894c180ec3, 0xb16f5e25c788c418, 0x5a3a4727d35d704b, 0x12c38ccef46761ec,
      0xd3ba3ac91ac188b1, 0xa48c7a2a166f9cd3, 0x17143003a955983e, 0x880c146d15aa39e5,
      0xb101526a6ecff377, 0x591c7f331e9b8b44, 0xaf3bd994ecfd0aa4, 0x4b2d0b775c910c2e,
      0x6cf26b2273a3651a, 0xadf19cd2db7fc64e, 0x69c2ad40905e8201, 0xa0300584065744f8,
  };
  U64 seed = 0;
  for (const U64 wanted : golden) {
    const U64 hash = simulated(++seed).hash;
    EXPECT_EQ(hash, wanted) << formatted("seed %llu: 0x%016llx",
                                         static_cast<unsigned long long>(seed),
                                         static_cast<unsigned long long>(hash));
    EXPECT_EQ(simulated(seed).hash, hash) << "in the second run of seed " << seed;
  }
}

}  // namespace
}  // namespace Simulation
