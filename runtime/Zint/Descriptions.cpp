// The descriptions of the runtime's own types: one table per type, rows in the order shown to
// users. They are bases of registered types and are not registered themselves.
#include <Zint/Activity.h>
#include <Zint/Reflect.h>
#include <Zint/Request.h>

namespace Zint {
namespace {

constexpr Member entityMembers[] = {
    constructorParameter<&Entity::name>("name").says("its name"),
    attribute<&PtrInterface::isNondestructing, &PtrInterface::isNondestructingIs>(
        "isNondestructing"),
};
ZINT_CHECK_IDS(Entity, entityMembers, firstAttributeId, name, isNondestructing);

constexpr Member requestMembers[] = {
    attribute<&Request::state, &Request::stateIs>("state").says("0 idle, 1 start, 2 stop"),
    attribute<&Request::status, &Request::statusIs>("status").says("0 none, 1 done, 2 failed"),
    attribute<&Request::generation, &Request::generationIs>("generation")
        .says("how often it was started"),
};
ZINT_CHECK_IDS(Request, requestMembers, firstAttributeId + std::size(entityMembers), state, status,
               generation);

constexpr Member clockMembers[] = {readOnly<&Clock::time>("time").says("its time")};
constexpr Member activityMembers[] = {
    readOnly<&ActivityConfig::wakeTime>("wakeTime").says("when the next wake-up is due")};

}  // namespace

constinit const Type ptrInterfaceType{"Zint::PtrInterface"};
constinit const Type notifieeType{"Zint::NotifieeConst"};
constinit const Type entityType{"Zint::Entity", "entity", nullptr, entityMembers};
constinit const Type requestType{"Zint::Request", "request entity", &entityType, requestMembers};
constinit const Type clockType{"Zint::Clock", "entity", &entityType, clockMembers};
constinit const Type activityType{"Zint::ActivityConfig", "entity", &entityType, activityMembers};

}  // namespace Zint
