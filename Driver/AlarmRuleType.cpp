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
    constructorParameter<&AlarmRule::scope>("scope").says("what its findings are counted for"),
    constructorParameter<&AlarmRule::count>("count").says("findings that raise its alarm"),
    constructorParameter<&AlarmRule::within>("within").says("the time in which they count"),
    constructorParameter<&AlarmRule::clearAfter>("clearAfter")
        .says("time without it being met after which its alarm is cleared"),
};
ZINT_CHECK_IDS(AlarmRule, alarmRuleMembers, Zint::Entity::Id::isNondestructing + 1, scope, count,
               within, clearAfter);

}  // namespace

constexpr Zint::Type alarmRuleScopeType =
    describe<AlarmRule::Scope>("enumeration", nullptr, alarmRuleScopeMembers);
constexpr Zint::Type alarmRuleType =
    describe<AlarmRule>("entity", &Zint::entityType, alarmRuleMembers);

}  // namespace Driver
