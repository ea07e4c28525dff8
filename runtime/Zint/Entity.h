// A counted object with a name and, when it is a member of another entity, its parent.
#pragma once

#include <Zint/Notifiee.h>
#include <Zint/Ptr.h>
#include <Zint/String8.h>

namespace Zint {

class UMBRA_API Entity : public PtrInterface {
 public:
  struct Id {
    enum : AttributeId { name = firstAttributeId, isNondestructing };
  };

  // Notified when the entity is being destroyed.
  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    using Zint::NotifieeConst::NotifieeConst;
    void handleNotification(ActivityConfig* activity) override;
    virtual void onIsNondestructing() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : NotifieeOf<NotifieeConst, Entity> {
    using NotifieeOf::NotifieeOf;
  };

  explicit Entity(Name name) : name_(std::move(name)) {}

  // Announces the change. False: the entity is being deleted.
  void isNondestructingIs(bool nondestructing) override;
  // Announces the destruction to non-referencing notifiees before the destructors run.
  void zeroReferencesIs(bool zero) override;
  const Type* fwkType() const override;

 protected:
  ~Entity() override;

 public:
  // The name of the member with that id, "unknown" when there is none.
  virtual String8 attributeString(AttributeId attribute) const;

  const Name& name() const { return name_; }

  // The entity that this one is a member of, and which of its collections. Not a counted reference:
  // null once the parent is destroyed.
  Entity* parent() const { return parent_ == nullptr ? nullptr : parent_->entity; }
  AttributeId parentAttributeId() const { return parentAttributeId_; }
  void parentIs(Entity* parent, AttributeId attribute);

 private:
  // What the children of an entity refer to; it lives as long as the entity or one of them.
  struct Anchor {
    Entity* entity;  // null once it is destroyed
    U32 references;
  };
  static void release(Anchor* anchor);

  Name name_;
  Anchor* anchor_ = nullptr;  // null until this becomes a parent
  Anchor* parent_ = nullptr;
  AttributeId parentAttributeId_ = 0;
};

}  // namespace Zint
