#include <Zint/Entity.h>

#include <runtime/Probes.h>

namespace {

using Probes::Thing;
using Zint::makePtr;
using Zint::Ptr;

// Records each announcement of the end with what could be seen at that moment.
class EndWatch : public Zint::Entity::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onIsNondestructing() override {
    const auto* entity = static_cast<const Zint::Entity*>(notifier());
    seen.push_back(entity->name().bytes() + (entity->isNondestructing() ? " stays" : " goes"));
  }
  std::vector<std::string> seen;

 protected:
  ~EndWatch() override = default;
};

TEST(Entity, holdsItsName) { EXPECT_EQ(makePtr<Thing>("ham0")->name(), "ham0"); }

TEST(Entity, hasNoParentUntilItIsGivenOne) {
  const Ptr<Thing> parent = makePtr<Thing>("parent");
  const Ptr<Thing> child = makePtr<Thing>("child");
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(child->parentAttributeId(), 0u);
  child->parentIs(parent.ptr(), 258);
  EXPECT_EQ(child->parent(), parent.ptr());
  EXPECT_EQ(child->parentAttributeId(), 258u);
  EXPECT_EQ(parent->references(), 1u) << "the parent is not counted";
}

TEST(Entity, attributeString_namesItsMembers) {
  const Ptr<Thing> thing = makePtr<Thing>("thing");
  EXPECT_EQ(thing->attributeString(256), "name");
  EXPECT_EQ(thing->attributeString(257), "isNondestructing");
  EXPECT_EQ(thing->attributeString(258), "unknown");
  EXPECT_EQ(thing->attributeString(0), "unknown");
}

TEST(Entity, isNondestructingIs_announcesAChangeOnly) {
  const Ptr<Thing> thing = makePtr<Thing>("thing");
  const Ptr<EndWatch> watch = makePtr<EndWatch>(nullptr, thing);
  thing->isNondestructingIs(true);
  EXPECT_TRUE(watch->seen.empty());
  thing->isNondestructingIs(false);
  thing->isNondestructingIs(false);
  EXPECT_EQ(watch->seen, std::vector<std::string>{"thing goes"});
  thing->isNondestructingIs(true);
  EXPECT_EQ(watch->seen.back(), "thing stays");
}

TEST(Entity, theLastReferenceAnnouncesTheEndToANonReferencingNotifiee) {
  bool alive = false;
  Ptr<Thing> thing = makePtr<Thing>("thing", &alive);
  const Ptr<EndWatch> watch = makePtr<EndWatch>(nullptr, thing);
  watch->isNonReferencingIs(true);
  thing = nullptr;
  EXPECT_FALSE(alive);
  EXPECT_EQ(watch->seen, std::vector<std::string>{"thing goes"});
  EXPECT_EQ(watch->notifier(), nullptr);
  EXPECT_FALSE(watch->isRegisteredNotifiee());
}

TEST(Entity, anEndAnnouncedBeforeIsNotAnnouncedAgain) {
  Ptr<Thing> thing = makePtr<Thing>("thing");
  const Ptr<EndWatch> watch = makePtr<EndWatch>(nullptr, thing);
  watch->isNonReferencingIs(true);
  thing->isNondestructingIs(false);
  thing = nullptr;
  EXPECT_EQ(watch->seen, std::vector<std::string>{"thing goes"});
}

TEST(Entity, aCopyTakenAndDroppedDuringTheAnnouncementDoesNotDestroyTwice) {
  bool alive = false;
  Ptr<Thing> thing = makePtr<Thing>("thing", &alive);
  const Ptr<Probes::Watch> watch = makePtr<Probes::Watch>(nullptr, thing);
  watch->isNonReferencingIs(true);
  watch->reaction = [&] {
    EXPECT_TRUE(alive);
    const Ptr<const Zint::PtrInterface> copy(watch->notifier());
  };
  thing = nullptr;
  EXPECT_FALSE(alive);
  EXPECT_EQ(watch->told, std::vector<Zint::AttributeId>{257});
}

TEST(Entity, parent_isNullOnceTheParentIsDestroyed) {
  Ptr<Thing> parent = makePtr<Thing>("parent");
  const Ptr<Thing> child = makePtr<Thing>("child"), second = makePtr<Thing>("second");
  child->parentIs(parent.ptr(), 258);
  second->parentIs(parent.ptr(), 259);
  parent = nullptr;
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(second->parent(), nullptr);
  const Ptr<Thing> other = makePtr<Thing>("other");
  child->parentIs(other.ptr(), 260);
  EXPECT_EQ(child->parent(), other.ptr());
  EXPECT_EQ(second->parent(), nullptr);
}

TEST(Entity, parent_outlivesItsChildren) {
  const Ptr<Thing> parent = makePtr<Thing>("parent");
  makePtr<Thing>("child")->parentIs(parent.ptr(), 258);
  const Ptr<Thing> child = makePtr<Thing>("child");
  child->parentIs(parent.ptr(), 258);
  child->parentIs(child->parent(), 259);
  EXPECT_EQ(child->parent(), parent.ptr());
  child->parentIs(nullptr, 0);
  EXPECT_EQ(child->parent(), nullptr);
}

}  // namespace
