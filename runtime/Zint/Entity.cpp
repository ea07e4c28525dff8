#include <Zint/Entity.h>

#include <Zint/Type.h>

namespace Zint {

Entity::~Entity() {
  if (anchor_ != nullptr) anchor_->entity = nullptr;
  release(anchor_);
  release(parent_);
}

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
  if (parent != nullptr) {
    if (parent->anchor_ == nullptr) parent->anchor_ = new Anchor{parent, 1};
    ++parent->anchor_->references;
  }
  release(std::exchange(parent_, parent == nullptr ? nullptr : parent->anchor_));
  parentAttributeId_ = attribute;
}

void Entity::release(Anchor* anchor) {
  if (anchor != nullptr && --anchor->references == 0) delete anchor;
}

void Entity::NotifieeConst::handleNotification(ActivityConfig* activity) {
  if (attribute() == Id::isNondestructing) return onIsNondestructing();
  Zint::NotifieeConst::handleNotification(activity);
}

}  // namespace Zint
