// Runs scenarios with one failure each, and checks the state that it leaves.
#pragma once

#include <string>

#include "Memory.h"
#include "Scenario.h"

namespace Sweep {

// What fails in a run: at most one of the two.
struct Plan {
  U32 access = 0;  // 0: none
  Thrown thrown = Thrown::nothing;
  U64 block = 0;  // 0: none
  Memory::Refusal refusal = Memory::Refusal::none;
  // Given up at the first failure: the world is torn down while there is no memory yet.
  bool givenUp = false;
  U32 traceLevel = 0;
};

struct Outcome {
  // What was wrong; "" when nothing was. A broken expectation of a step fails the test by itself.
  std::string wrong;
  std::string image;  // of the end
  U32 accesses = 0;
  U64 blocks = 0;
  bool failed = false;  // the planned failure was met
};

Outcome play(const Scenario& scenario, const Plan& plan);

}  // namespace Sweep
