#include <Driver/Alarm.h>
#include <Driver/Driver.h>

namespace Driver {
namespace {

using Zint::constructorParameter;
using Zint::enumerator;
using Zint::operation;
using Zint::readOnly;

constexpr Zint::Member alarmStateMembers[] = {
    enumerator("cleared", Alarm::cleared_),
    enumerator("raised", Alarm::raised_),
    enumerator("acknowledged", Alarm::acknowledged_),
};

constexpr Zint::Member alarmMembers[] = {
    constructorParameter<&Alarm::rule>("rule").says("the rule that it belongs to"),
    constructorParameter<&Alarm::subject>("subject").says("what it is about"),
    readOnly<&Alarm::state>("state").says("cleared, raised or acknowledged"),
    readOnly<&Alarm::findings>("findings").says("findings since it was raised"),
    readOnly<&Alarm::raises>("raises").says("how often it was raised"),
    readOnly<&Alarm::firstTime>("firstTime").says("when its first finding came"),
    readOnly<&Alarm::lastTime>("lastTime").says("when its last finding came"),
    readOnly<&Alarm::raisedTime>("raisedTime").says("when it was last raised"),
    readOnly<&Alarm::acknowledgedTime>("acknowledgedTime").says("when it was last acknowledged"),
    readOnly<&Alarm::clearedTime>("clearedTime").says("when it was last cleared"),
    operation<&Alarm::doAcknowledge>("doAcknowledge")
        .says("takes note of it")
        .needs(Zint::Level::operate),
};
ZINT_CHECK_IDS(Alarm, alarmMembers, Zint::Entity::Id::isNondestructing + 1, rule, subject, state,
               findings, raises, firstTime, lastTime, raisedTime, acknowledgedTime, clearedTime,
               doAcknowledge);

}  // namespace

constexpr Zint::Type alarmStateType =
    describe<Alarm::State>("enumeration", nullptr, alarmStateMembers);
constexpr Zint::Type alarmType = describe<Alarm>("entity", &Zint::entityType, alarmMembers);

}  // namespace Driver
