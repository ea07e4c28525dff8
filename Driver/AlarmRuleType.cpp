#include <Driver/AlarmRule.h>
#include <Driver/Driver.h>

namespace Driver {
namespace {

using Zint::constructorParameter;
using Zint::enumerator;

constexpr Zint::Member alarmRuleScopeMembers[] = {
    enumerator("entry", AlarmRule::entry_),
    enumerator("region", AlarmRule::region_),
    enumerator("chip", AlarmRule::chip_),
    enumerator("shadow", AlarmRule::shadow_),
    enumerator("manyAtOnce", AlarmRule::manyAtOnce_),
};

constexpr Zint::Member alarmRuleMembers[] = {
    constructorParameter<&AlarmRule::scope>("scope"),
    constructorParameter<&AlarmRule::count>("count"),
    constructorParameter<&AlarmRule::within>("within"),
    constructorParameter<&AlarmRule::clearAfter>("clearAfter"),
};
ZINT_CHECK_IDS(AlarmRule, alarmRuleMembers, Zint::Entity::Id::isNondestructing + 1, scope, count,
               within, clearAfter);

}  // namespace

constexpr Zint::Type alarmRuleScopeType =
    describe<AlarmRule::Scope>("enumeration", nullptr, alarmRuleScopeMembers);
constexpr Zint::Type alarmRuleType =
    describe<AlarmRule>("entity", &Zint::entityType, alarmRuleMembers);

}  // namespace Driver
