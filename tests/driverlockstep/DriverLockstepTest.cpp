// The patrol and the model are given the same steps and compared after each one.
//
//   UMBRA_DRIVERLOCKSTEP_OPERATIONS=5000000 UMBRA_LOCKSTEP_SEED=7 driverlockstep-tests
#include <Zint/Trace.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "driverlockstep/Session.h"

namespace DriverLockstep {
namespace {

constexpr U64 stepsOfASession = 300;

// Millions of trace lines that nobody reads.
class Silence : public Zint::TraceSink {
 public:
  Silence() : before_(Zint::traceSinkIs(this)) {}
  ~Silence() override { Zint::traceSinkIs(before_); }
  void traceLine(const Zint::TraceLine&) override {}

 private:
  Zint::TraceSink* const before_;
};

U64 number(const char* variable, U64 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

TEST(DriverLockstep, libraryAndModelAgree) {
  constexpr U64 usual = 50'000;
  const Silence silence;
  const U64 steps = number("UMBRA_DRIVERLOCKSTEP_OPERATIONS", usual);
  const U64 first = number("UMBRA_LOCKSTEP_SEED", 1) * 1'000'000;
  std::map<std::string, U64> met;
  for (U64 done = 0, seed = first; done < steps; done += stepsOfASession, ++seed) {
    Session session(seed);
    Support::Random random(seed ^ 0x5deece66du);
    Failure failure{.seed = seed, .steps = {}, .text = ""};
    for (U64 i = 0; i < stepsOfASession; ++i) {
      failure.steps.push_back(Session::draw(random));
      try {
        session.perform(failure.steps.back());
      } catch (const Mismatch& mismatch) {
        failure.text = mismatch.text;
        FAIL() << "shrunk to\n" << report(shrink(failure));
      }
    }
    for (const auto& [what, count] : session.met()) met[what] += count;
  }
  for (const auto& [what, count] : met) std::cout << "  " << count << " " << what << "\n";
  if (steps < usual) return;
  for (const char* what : {"quarantine",
                           "quarantine lifted by visits",
                           "quarantine lifted by time",
                           "quarantine lifted by command",
                           "state stopped",
                           "state waiting",
                           "state reading",
                           "state paused",
                           "state suspended",
                           "state restoring",
                           "finding repaired unverified",
                           "finding repaired soft",
                           "finding repaired recurring",
                           "finding repaired stuck",
                           "finding adopted unverified",
                           "finding writtenMeanwhile unverified",
                           "finding detectOnly unverified",
                           "finding deferred unverified",
                           "finding refused unverified",
                           "finding quarantined unverified",
                           "finding transient unverified",
                           "finding reset unverified",
                           "finding failed unverified",
                           "probes",
                           "probes without a verdict",
                           "probe threw",
                           "slice threw",
                           "sentinel wrong",
                           "present again",
                           "reset found by its check",
                           "reset told by others, too",
                           "reset found after an absence",
                           "known as baseline",
                           "client within an access",
                           "turn full of repairs"}) {
    EXPECT_GT(met[what], 0u) << what;
  }
}

}  // namespace
}  // namespace DriverLockstep
