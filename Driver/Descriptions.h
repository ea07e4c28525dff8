// The descriptions of this library's types, for types that derive from them and for values by name.
#pragma once

#include <Zint/Type.h>

namespace Driver {

UMBRA_API extern const Zint::Type alarmType;
UMBRA_API extern const Zint::Type alarmStateType;
UMBRA_API extern const Zint::Type alarmBoardType;
UMBRA_API extern const Zint::Type alarmRuleType;
UMBRA_API extern const Zint::Type alarmRuleScopeType;
UMBRA_API extern const Zint::Type auditedShadowType;
UMBRA_API extern const Zint::Type chipType;
UMBRA_API extern const Zint::Type chipAccessType;
UMBRA_API extern const Zint::Type chipWriteRequestType;
UMBRA_API extern const Zint::Type chipWriterType;
UMBRA_API extern const Zint::Type complaintType;
UMBRA_API extern const Zint::Type complaintKindType;
UMBRA_API extern const Zint::Type governorType;
UMBRA_API extern const Zint::Type patrolStateType;
UMBRA_API extern const Zint::Type policyType;
UMBRA_API extern const Zint::Type ruleType;
UMBRA_API extern const Zint::Type rewriteType;
UMBRA_API extern const Zint::Type unwrittenType;

}  // namespace Driver
