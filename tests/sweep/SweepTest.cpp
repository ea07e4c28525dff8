// Every scenario with every access failing, and with every block of memory refused.
#include "Sweep.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

using Sweep::Outcome;
using Sweep::Plan;
using Sweep::Scenario;
using Sweep::Thrown;
using Sweep::Memory::Refusal;

constexpr U32 quiet = 0, everything = 9;  // trace levels

// What is made once per process is made here, outside of any account.
Outcome cleanRun(const Scenario& scenario, U32 level) {
  Plan plan;
  plan.traceLevel = level;
  Sweep::play(scenario, plan);
  plan.access = 1;
  plan.thrown = Thrown::number;
  Sweep::play(scenario, plan);
  plan.access = 0;
  Outcome clean = Sweep::play(scenario, plan);
  EXPECT_EQ(clean.wrong, "");
  return clean;
}

class Sweeps : public testing::TestWithParam<Scenario> {
 protected:
  // Plays the plan for 1, 2, ... until its failure is not met any more, and returns how many were.
  template <class Number>
  U64 swept(Plan plan, Number Plan::*number, const Outcome& clean, const char* what) {
    U64 met = 0;
    for (;;) {
      plan.*number = static_cast<Number>(met + 1);
      const Outcome outcome = Sweep::play(GetParam(), plan);
      if (outcome.wrong != "" || HasFailure()) {
        ADD_FAILURE() << outcome.wrong << "\n  at " << what << " " << met + 1 << ", trace level "
                      << plan.traceLevel << ", thrown " << static_cast<int>(plan.thrown);
        return met;
      }
      if (!outcome.failed) return met;
      ++met;
      if (plan.givenUp) continue;
      EXPECT_EQ(outcome.image, clean.image) << "after " << what << " " << met;
    }
  }
};

TEST_P(Sweeps, everyAccessFails) {
  for (const U32 level : {quiet, everything}) {
    const Outcome clean = cleanRun(GetParam(), level);
    ASSERT_GT(clean.accesses, 0u);
    for (const Thrown thrown : {Thrown::range, Thrown::memory, Thrown::number}) {
      Plan plan;
      plan.thrown = thrown;
      plan.traceLevel = level;
      EXPECT_EQ(swept(plan, &Plan::access, clean, "access"), clean.accesses);
      if (HasFailure()) return;
    }
    std::printf("%s, trace level %u: %u accesses, 3 kinds of exceptions each\n", GetParam().name,
                static_cast<unsigned>(level), static_cast<unsigned>(clean.accesses));
  }
}

TEST_P(Sweeps, everyBlockIsRefused) {
  for (const U32 level : {quiet, everything}) {
    const Outcome clean = cleanRun(GetParam(), level);
    ASSERT_GT(clean.blocks, 0u);
    Plan plan;
    plan.traceLevel = level;
    plan.refusal = Refusal::once;
    EXPECT_EQ(swept(plan, &Plan::block, clean, "refusing once block"), clean.blocks);
    if (HasFailure()) return;
    plan.refusal = Refusal::fromThenOn;
    EXPECT_EQ(swept(plan, &Plan::block, clean, "refusing from block"), clean.blocks);
    if (HasFailure()) return;
    plan.givenUp = true;
    EXPECT_EQ(swept(plan, &Plan::block, clean, "refusing to the end from block"), clean.blocks);
    if (HasFailure()) return;
    std::printf("%s, trace level %u: %llu blocks, refused in 3 ways each\n", GetParam().name,
                static_cast<unsigned>(level), static_cast<unsigned long long>(clean.blocks));
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Sweeps, testing::ValuesIn(Sweep::scenarios()),
                         [](const testing::TestParamInfo<Scenario>& scenario) {
                           std::string name;
                           for (const char* c = scenario.param.name; *c != '\0'; ++c) {
                             name += std::isalnum(static_cast<unsigned char>(*c)) != 0 ? *c : '_';
                           }
                           return name;
                         });

}  // namespace
