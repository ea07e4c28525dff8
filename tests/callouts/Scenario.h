// The life of a driver, step by step.
#pragma once

#include <span>

#include "callouts/World.h"

namespace CallOuts {

struct Step {
  const char* name;
  void (*run)(World&);
};

// Bring-up, adoption, repairs, an absence, a reset, buffered writes, a replay on demand, audits on
// demand. Every step can be repeated after an exception, and does nothing without what it needs.
std::span<const Step> steps();

}  // namespace CallOuts
