// What clients do, as lists of steps. Something can be dropped at every step.
#pragma once

#include "teardown/Scene.h"

namespace Teardown {

using Here = std::function<void()>;

struct Step {
  const char* name;
  // Calls `here` once, where the step drops something: after what it does, or inside a handler.
  std::function<void(Scene&, const Here&)> run;
};

struct Scenario {
  const char* name;
  std::vector<Step> steps;
};

const std::vector<Scenario>& scenarios();

}  // namespace Teardown
