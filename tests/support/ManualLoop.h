// An activity on a clock that only the test moves: the test kit's.
#pragma once

#include <testkit/ManualLoop.h>

namespace Support {

using TestKit::ManualLoop;

}  // namespace Support
