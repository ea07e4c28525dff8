// What comes of each cell. A change of this table is a change of what the library promises.
#pragma once

#include "reentrancy/Names.h"

namespace Reentrancy {

// "allowed" for every cell that the table does not list.
std::string expectedOutcome(Callback callback, Action action);

}  // namespace Reentrancy
