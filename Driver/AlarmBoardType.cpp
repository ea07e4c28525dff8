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
    constructorParameter<&B::clock>("clock"),
    attribute<&B::maxKeys, &B::maxKeysIs>("maxKeys"),
    readOnly<&B::keys>("keys"),
    readOnly<&B::keysDropped>("keysDropped"),
    readOnly<&B::activeAlarms>("activeAlarms"),
    collection("rule", boardRules),
    collection("alarm", boardAlarms),
    operation<&B::doAcknowledge>("doAcknowledge", "name"),
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
