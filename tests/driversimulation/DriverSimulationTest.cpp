// Whole systems of chips that vanish, reset and stick, under a ledger of every access.
//
//   UMBRA_DRIVERSIMULATION_SEEDS=20000 driversimulation-tests   so many seeds
//   UMBRA_SIMULATION_SEED=7 driversimulation-tests               one seed
#include <Zint/Trace.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "driversimulation/System.h"

namespace DriverSimulation {
namespace {

U64 seedNumber(const char* variable, U64 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

class NoTrace : public Zint::TraceSink {
 public:
  NoTrace() : before_(Zint::traceSinkIs(this)) {}
  ~NoTrace() override { Zint::traceSinkIs(before_); }
  void traceLine(const Zint::TraceLine&) override {}

 private:
  Zint::TraceSink* const before_;
};

TEST(DriverSimulation, everyAccessIsAllowedAndEveryDifferenceAccountedFor) {
  const NoTrace noTrace;
  constexpr U64 usual = 200;
  const U64 one = seedNumber("UMBRA_SIMULATION_SEED", 0);
  const U64 seeds = seedNumber("UMBRA_DRIVERSIMULATION_SEEDS", usual);
  std::map<std::string, U64> met;
  for (U64 seed = one != 0 ? one : 1; seed <= (one != 0 ? one : seeds); ++seed) {
    const Outcome outcome = System(seed).perform();
    ASSERT_EQ(outcome.failure, "") << "UMBRA_SIMULATION_SEED=" << seed;
    for (const auto& [what, count] : outcome.met) met[what] += count;
  }
  for (const auto& [what, count] : met) std::cout << "  " << count << " " << what << "\n";
  if (one != 0 || seeds < usual) return;
  for (const char* what : {"chip vanishes",
                           "chip reset",
                           "stuck",
                           "counter read",
                           "buffered",
                           "entry repaired",
                           "entry replayed",
                           "replay ended",
                           "entry compared after a replay",
                           "of them written meanwhile",
                           "difference with a finding",
                           "no pass, with a reason",
                           "finding adopted",
                           "finding detectOnly",
                           "finding deferred",
                           "finding refused",
                           "access held",
                           "access threw",
                           "access to an absent chip",
                           "finding quarantined",
                           "finding reset",
                           "finding transient",
                           "finding writtenMeanwhile"}) {
    EXPECT_GT(met[what], 0u) << what;
  }
}

}  // namespace
}  // namespace DriverSimulation
