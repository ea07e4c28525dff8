// What the runtime knows of a type.
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>

namespace Zint {

struct Type {
  const char* name;  // qualified, "Hardware::ChipMemory"
};

UMBRA_API extern const Type ptrInterfaceType;
UMBRA_API extern const Type notifieeType;
UMBRA_API extern const Type entityType;
UMBRA_API extern const Type requestType;
UMBRA_API extern const Type clockType;
UMBRA_API extern const Type activityType;

}  // namespace Zint
