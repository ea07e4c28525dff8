// The scenarios of the registry, the directory, requests and exchanged parts.
#pragma once

#include "Scenario.h"

namespace Sweep {

void scenariosOfParts(std::vector<Scenario>& scenarios);  // appends them

}  // namespace Sweep
