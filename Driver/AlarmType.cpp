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
    constructorParameter<&Alarm::rule>("rule"),
    constructorParameter<&Alarm::subject>("subject"),
    readOnly<&Alarm::state>("state"),
    readOnly<&Alarm::findings>("findings"),
    readOnly<&Alarm::raises>("raises"),
    readOnly<&Alarm::firstTime>("firstTime"),
    readOnly<&Alarm::lastTime>("lastTime"),
    readOnly<&Alarm::raisedTime>("raisedTime"),
    readOnly<&Alarm::acknowledgedTime>("acknowledgedTime"),
    readOnly<&Alarm::clearedTime>("clearedTime"),
    operation<&Alarm::doAcknowledge>("doAcknowledge"),
};
ZINT_CHECK_IDS(Alarm, alarmMembers, Zint::Entity::Id::isNondestructing + 1, rule, subject, state,
               findings, raises, firstTime, lastTime, raisedTime, acknowledgedTime, clearedTime,
               doAcknowledge);

}  // namespace

constexpr Zint::Type alarmStateType =
    describe<Alarm::State>("enumeration", nullptr, alarmStateMembers);
constexpr Zint::Type alarmType = describe<Alarm>("entity", &Zint::entityType, alarmMembers);

}  // namespace Driver
