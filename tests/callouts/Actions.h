// What user code may do while it is called.
#pragma once

#include <span>

#include "callouts/World.h"

namespace CallOuts {

struct Action {
  const char* name;
  void (*perform)(World&);
};

// Each does nothing where what it needs has been dropped.
std::span<const Action> actions();

}  // namespace CallOuts
