// The library and the model are given the same operations and compared after each one.
//
//   UMBRA_LOCKSTEP_OPERATIONS=200000000 UMBRA_LOCKSTEP_SEED=7 lockstep-tests
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "lockstep/Driver.h"

namespace Lockstep {
namespace {

U64 number(const char* variable, U64 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

TEST(Lockstep, libraryAndModelAgreeAndEverySituationIsMet) {
  constexpr U64 usual = 2'000'000;
  const U64 steps = number("UMBRA_LOCKSTEP_OPERATIONS", usual);
  const U64 seed = number("UMBRA_LOCKSTEP_SEED", 1);
  std::cout << "seed " << seed << ", " << steps << " steps\n";
  Driver driver(seed);
  const std::optional<Divergence> divergence = driver.run(steps);
  driver.coverage().print(std::cout);
  std::cout << driver.scenarios() << " scenarios; ended by assertions:\n";
  for (const auto& [condition, count] : driver.endings()) {
    std::cout << "  " << count << " " << condition << "\n";
  }
  for (const auto& [name, count] : driver.happened()) {
    std::cout << "  " << count << " " << name << "\n";
    if (steps >= usual) {
      EXPECT_GT(count, 0u) << name;
    }
  }
  if (divergence) {
    FAIL() << report(*divergence) << "shrunk to\n" << report(shrink(*divergence));
  }
  if (steps >= usual) {
    EXPECT_GE(driver.coverage().minimum(), 1000u);
  }
}

}  // namespace
}  // namespace Lockstep
