#include <Zint/Entity.h>
#include <Zint/Type.h>

namespace Zint {

Entity::~Entity() = default;
Entity::NotifieeConst::~NotifieeConst() = default;

void Entity::isNondestructingIs(bool nondestructing) {
  if (nondestructing == isNondestructing()) return;
  PtrInterface::isNondestructingIs(nondestructing);
  notify(Id::isNondestructing);
}

void Entity::zeroReferencesIs(bool zero) {
  if (zero) isNondestructingIs(false);
  PtrInterface::zeroReferencesIs(zero);
}

const Type* Entity::fwkType() const { return &entityType; }

String8 Entity::attributeString(AttributeId attribute) const {
  return fwkType()->attributeString(attribute);
}

void Entity::parentIs(Entity* parent, AttributeId attribute) {
  parent_ = parent;
  parentAttributeId_ = attribute;
}

void Entity::NotifieeConst::handleNotification(ActivityConfig* activity) {
  if (attribute() == Id::isNondestructing) return onIsNondestructing();
  Zint::NotifieeConst::handleNotification(activity);
}

}  // namespace Zint
