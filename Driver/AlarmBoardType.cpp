#include <Driver/AlarmBoard.h>
#include <Driver/Driver.h>
#include <Zint/Collections.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::collection;
using Zint::constructorParameter;
using Zint::ListAccess;
using Zint::mapList;
using Zint::operation;
using Zint::readOnly;
using B = AlarmBoard;

AlarmRule::Ptr insertAlarmRule(AlarmBoard& board, Zint::String8 name, AlarmRule::Scope scope,
                               U32 count, Zint::Seconds within, Zint::Seconds clearAfter) {
  const AlarmRule::Ptr made = alarmRuleFactory(std::move(name), scope, count, within, clearAfter);
  board.ruleIs(made);
  return made;
}

constexpr ListAccess boardRules =
    mapList<&B::rule, &B::rules, &B::ruleNames, &B::ruleDel, &B::ruleDelAll, &insertAlarmRule>(
        "name", "name", "scope", "count", "within", "clearAfter");
constexpr ListAccess boardAlarms = mapList<&B::alarm, &B::alarms, &B::alarmNames>("name");

constexpr Zint::Member alarmBoardMembers[] = {
    constructorParameter<&B::zintFwkActivity>("zintFwkActivity"),
    constructorParameter<&B::clock>("clock").says("the clock that its windows follow"),
    attribute<&B::maxKeys, &B::maxKeysIs>("maxKeys")
        .in("subjects")
        .says("subjects that are known at most"),
    readOnly<&B::keys>("keys").in("subjects").says("subjects that are known"),
    readOnly<&B::keysDropped>("keysDropped").says("subjects that were dropped before their time"),
    readOnly<&B::activeAlarms>("activeAlarms").says("alarms that are raised or acknowledged"),
    collection("rule", boardRules).says("the rules"),
    collection("alarm", boardAlarms).says("the alarms"),
    operation<&B::doAcknowledge>("doAcknowledge", "name")
        .says("takes note of an alarm")
        .needs(Zint::Level::operate),
    operation<&B::findingIs>("findingIs", "region", "entry", "chip", "time"),
    operation<&B::manyAtOnceIs>("manyAtOnceIs", "chip", "count", "time"),
    operation<&B::doBeginPass>("doBeginPass", "time"),
};
ZINT_CHECK_IDS(AlarmBoard, alarmBoardMembers, Zint::Entity::Id::isNondestructing + 1,
               zintFwkActivity, clock, maxKeys, keys, keysDropped, activeAlarms, rule, alarm,
               doAcknowledge, findingIs, manyAtOnceIs, doBeginPass);

}  // namespace

constexpr Zint::Type alarmBoardType =
    describe<AlarmBoard>("entity", &Zint::entityType, alarmBoardMembers);

}  // namespace Driver
