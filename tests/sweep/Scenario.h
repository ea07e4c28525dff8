// A sequence of steps, each of which can fail and be repeated.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "World.h"

namespace Sweep {

// Where an exception of an access goes: to the caller of the step, or no further than the handler
// in which it came up.
enum class Reach { caller, handler };

struct Step {
  const char* name;
  // True when the step is completely done.
  bool (*run)(World&);
  // What the owner does after the step has failed or was left undone; null: the step once more.
  bool (*recover)(World&) = nullptr;
  Reach reach = Reach::caller;
  // Checks what is laid down for the moment after an access has failed; `access` is its number in
  // the step, from 1 on.
  void (*checkFailure)(World&, U32 access) = nullptr;
};

struct Scenario {
  const char* name;
  std::vector<Step> steps;
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

const std::vector<Scenario>& scenarios();

}  // namespace Sweep
