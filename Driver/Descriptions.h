// The descriptions of this library's types, for types that derive from them and for values by name.
#pragma once

#include <Zint/Type.h>

namespace Driver {

UMBRA_API extern const Zint::Type alarmRuleType;
UMBRA_API extern const Zint::Type alarmRuleScopeType;

}  // namespace Driver
