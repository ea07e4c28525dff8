// The descriptions of this library's types.
#pragma once

#include <Zint/Type.h>

namespace Telemetry {

UMBRA_API extern const Zint::Type controlSocketType;
UMBRA_API extern const Zint::Type publisherType;
UMBRA_API extern const Zint::Type regionFiguresType;

}  // namespace Telemetry
