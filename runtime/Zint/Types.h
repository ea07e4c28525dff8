// The fixed-width integers, attributes and time: what nearly every header includes.
#pragma once

#include <Zint/Attribute.h>
#include <Zint/Integers.h>

namespace Zint {

// A count of seconds; a point in time is a count from the clock's own zero.
using Seconds = double;

}  // namespace Zint
