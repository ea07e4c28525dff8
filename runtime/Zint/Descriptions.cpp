// The descriptions of the runtime's own types: one table per type, rows in the order shown to
// users. They are bases of registered types and are not registered themselves.
#include <Zint/Activity.h>
#include <Zint/Reflect.h>
#include <Zint/Request.h>

namespace Zint {
namespace {

constexpr Member entityMembers[] = {
    constructorParameter<&Entity::name>("name"),
    attribute<&PtrInterface::isNondestructing, &PtrInterface::isNondestructingIs>(
        "isNondestructing"),
};
ZINT_CHECK_IDS(Entity, entityMembers, firstAttributeId, name, isNondestructing);

constexpr Member requestMembers[] = {
    attribute<&Request::state, &Request::stateIs>("state"),
    attribute<&Request::status, &Request::statusIs>("status"),
    attribute<&Request::generation, &Request::generationIs>("generation"),
};
ZINT_CHECK_IDS(Request, requestMembers, firstAttributeId + std::size(entityMembers), state, status,
               generation);

constexpr Member clockMembers[] = {readOnly<&Clock::time>("time")};
constexpr Member activityMembers[] = {readOnly<&ActivityConfig::wakeTime>("wakeTime")};

}  // namespace

constinit const Type ptrInterfaceType{"Zint::PtrInterface"};
constinit const Type notifieeType{"Zint::NotifieeConst"};
constinit const Type entityType{"Zint::Entity", "entity", nullptr, entityMembers};
constinit const Type requestType{"Zint::Request", "request entity", &entityType, requestMembers};
constinit const Type clockType{"Zint::Clock", "entity", &entityType, clockMembers};
constinit const Type activityType{"Zint::ActivityConfig", "entity", &entityType, activityMembers};

}  // namespace Zint
