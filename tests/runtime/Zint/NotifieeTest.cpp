#include <Zint/Notifiee.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>
#include <support/ManualLoop.h>

namespace {

using Probes::Thing;
using Probes::Watch;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::Ptr;

// Three watches of one thing that write their letter when they are told.
struct NotifieeTest : testing::Test {
  Ptr<Watch> watch(const char* letter, const Ptr<Thing>& of) {
    const Ptr<Watch> made = makePtr<Watch>(loop.activity, of);
    made->reaction = logging(letter);
    return made;
  }
  std::function<void()> logging(const char* letter) {
    return [this, letter] { log += letter; };
  }
  std::string told() {
    thing->notify(300);
    return std::exchange(log, {});
  }

  std::string log;
  bool alive = false;
  Support::ManualLoop loop;
  Ptr<Thing> thing = makePtr<Thing>("thing", &alive);
  Ptr<Watch> a = watch("a", thing);
  Ptr<Watch> b = watch("b", thing);
  Ptr<Watch> c = watch("c", thing);
};

TEST_F(NotifieeTest, areNotifiedAtOnceInTheOrderOfRegistration) {
  EXPECT_EQ(told(), "abc");
  a->isRegisteredNotifieeIs(false);
  a->isRegisteredNotifieeIs(true);
  EXPECT_EQ(told(), "bca");
}

TEST_F(NotifieeTest, areToldTheAttributeAndTheirActivity) {
  thing->notify(301);
  thing->notify(302);
  EXPECT_THAT(a->told, ElementsAre(301, 302));
  EXPECT_EQ(a->toldOn, loop.activity.ptr());
  EXPECT_EQ(a->attribute(), 0u) << "nothing is being announced now";
}

TEST_F(NotifieeTest, holdTheirNotifierButAreNotHeldByIt) {
  EXPECT_EQ(thing->references(), 4u);
  EXPECT_EQ(a->references(), 1u);
  const Thing* plain = thing.ptr();
  thing = nullptr;
  EXPECT_TRUE(alive);
  EXPECT_EQ(a->notifier(), plain);
  a = b = c = nullptr;
  EXPECT_FALSE(alive);
}

TEST_F(NotifieeTest, aDestroyedOneIsToldNothingMore) {
  b = nullptr;
  EXPECT_EQ(thing->notifiees(), 2u);
  EXPECT_EQ(told(), "ac");
}

TEST_F(NotifieeTest, oneUnregisteredDuringAWalkIsNotTold) {
  a->reaction = [this] {
    log += "a";
    c->isRegisteredNotifieeIs(false);
  };
  EXPECT_EQ(told(), "ab");
  EXPECT_EQ(told(), "ab");
  EXPECT_EQ(thing->notifiees(), 2u);
}

TEST_F(NotifieeTest, oneSwitchedOffDuringAWalkIsNotTold) {
  a->reaction = [this] {
    log += "a";
    b->hasNotificationActiveIs(false);
  };
  EXPECT_EQ(told(), "ac");
}

TEST_F(NotifieeTest, oneDestroyedDuringAWalkIsNotTold) {
  a->reaction = [this] {
    log += "a";
    b = nullptr;
  };
  EXPECT_EQ(told(), "ac");
}

TEST_F(NotifieeTest, oneRegisteredDuringAWalkWaitsForTheNextChange) {
  Ptr<Watch> d;
  c->reaction = [&] {
    log += "c";
    if (d == nullptr) d = watch("d", thing);
  };
  EXPECT_EQ(told(), "abc");
  EXPECT_EQ(told(), "abcd");
}

TEST_F(NotifieeTest, oneRegisteredAnewDuringAWalkWaitsForTheNextChange) {
  a->reaction = [this] {
    log += "a";
    b->isRegisteredNotifieeIs(false);
    b->isRegisteredNotifieeIs(true);
  };
  EXPECT_EQ(told(), "ac");
  a->reaction = logging("a");
  EXPECT_EQ(told(), "acb");
}

TEST_F(NotifieeTest, oneSwitchedOffAndOnDuringAWalkIsNotified) {
  a->reaction = [this] {
    log += "a";
    b->hasNotificationActiveIs(false);
    b->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(told(), "abc");
  a->reaction = logging("a");
  EXPECT_EQ(told(), "abc") << "the order stays";
}

TEST_F(NotifieeTest, oneSwitchedOffByOneAndOnByAnotherIsNotifiedAtItsPlace) {
  a->reaction = [this] {
    log += "a";
    c->hasNotificationActiveIs(false);
  };
  b->reaction = [this] {
    log += "b";
    c->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(told(), "abc");
  EXPECT_EQ(told(), "abc");
}

TEST_F(NotifieeTest, oneSwitchedOffBeforeItsTurnAndOnAfterItMissesTheChange) {
  a->reaction = [this] {
    log += "a";
    b->hasNotificationActiveIs(false);
  };
  c->reaction = [this] {
    log += "c";
    b->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(told(), "ac");
  a->reaction = logging("a");
  EXPECT_EQ(told(), "abc");
}

TEST_F(NotifieeTest, oneThatSwitchesItselfOffAndOnIsNotifiedOnce) {
  b->reaction = [this] {
    log += "b";
    b->hasNotificationActiveIs(false);
    b->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(told(), "abc");
  EXPECT_EQ(told(), "abc");
}

// The snapshot: one that was off when the walk began is not part of it. The same for a notifiee
// that holds its notifier and for one that does not.
TEST_F(NotifieeTest, oneSwitchedOnDuringAWalkWaitsForTheNextChange) {
  for (bool nonReferencing : {false, true}) {
    SCOPED_TRACE(nonReferencing);
    b->isNonReferencingIs(nonReferencing);
    b->hasNotificationActiveIs(false);
    a->reaction = [this] {
      log += "a";
      b->hasNotificationActiveIs(true);
    };
    EXPECT_EQ(told(), "ac");
    EXPECT_EQ(told(), "abc");
  }
}

TEST_F(NotifieeTest, oneSwitchedOnAndOffAndOnDuringAWalkWaitsForTheNextChange) {
  b->hasNotificationActiveIs(false);
  a->reaction = [this] {
    log += "a";
    if (b->hasNotificationActive()) return;
    b->hasNotificationActiveIs(true);
    b->hasNotificationActiveIs(false);
    b->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(told(), "ac");
  EXPECT_EQ(told(), "abc");
}

TEST_F(NotifieeTest, switchingOutsideAWalkKeepsThePlace) {
  for (bool nonReferencing : {false, true}) {
    SCOPED_TRACE(nonReferencing);
    a->isNonReferencingIs(nonReferencing);
    a->hasNotificationActiveIs(false);
    EXPECT_EQ(told(), "bc");
    a->hasNotificationActiveIs(true);
    EXPECT_EQ(told(), "abc");
  }
}

// The outer change finds c on, as it began; the inner one began while it was off.
TEST_F(NotifieeTest, eachOfTwoNestedWalksHasItsOwnSnapshot) {
  a->reaction = [this] {
    log += a->attribute() == 300 ? "a" : "A";
    if (a->attribute() != 300) return;
    c->hasNotificationActiveIs(false);
    thing->notify(301);
  };
  b->reaction = [this] {
    log += b->attribute() == 300 ? "b" : "B";
    c->hasNotificationActiveIs(true);
  };
  c->reaction = [this] { log += c->attribute() == 300 ? "c" : "C"; };
  EXPECT_EQ(told(), "aABbc");
  a->reaction = logging("a");
  b->reaction = logging("b");
  EXPECT_EQ(told(), "abc");
}

// In the outer snapshot c is off, in the second inner one on.
TEST_F(NotifieeTest, aNestedWalkNotifiesOneThatWasSwitchedOnBeforeIt) {
  c->hasNotificationActiveIs(false);
  const auto nested = [this](Watch& watch, const char* outer, const char* inner, auto reaction) {
    watch.reaction = [this, &watch, outer, inner, reaction] {
      log += watch.attribute() == 300 ? outer : inner;
      if (watch.attribute() == 300) reaction();
    };
  };
  nested(*a, "a", "A", [this] {
    thing->notify(301);
    c->hasNotificationActiveIs(true);
    thing->notify(302);
  });
  nested(*b, "b", "B", [] {});
  nested(*c, "c", "C", [] {});
  EXPECT_EQ(told(), "aABABCb");
}

// Many switches in many nested walks: each is forgotten with the walk that it does not matter to.
TEST_F(NotifieeTest, switchesInNestedWalksLeaveTheOuterSnapshotAlone) {
  bool nesting = false;
  a->reaction = [&] {
    log += nesting ? "" : "a";
    if (nesting) {
      b->hasNotificationActiveIs(!b->hasNotificationActive());
      c->hasNotificationActiveIs(!c->hasNotificationActive());
      return;
    }
    nesting = true;
    for (int i = 0; i < 100; ++i) thing->notify(301);
    nesting = false;
    log += "|";
  };
  const auto quiet = [&](const char* letter) {
    return [&, letter] { log += nesting ? "" : letter; };
  };
  b->reaction = quiet("b");
  c->reaction = quiet("c");
  EXPECT_EQ(told(), "a|bc");
  b->hasNotificationActiveIs(false);
  EXPECT_EQ(told(), "a|c");
}

TEST_F(NotifieeTest, oneSwitchedOffAndDestroyedDuringAWalkIsNotNotified) {
  a->reaction = [this] {
    log += "a";
    if (b == nullptr) return;
    b->hasNotificationActiveIs(false);
    b = nullptr;
    c->hasNotificationActiveIs(false);
    c->hasNotificationActiveIs(true);
  };
  EXPECT_EQ(told(), "ac");
  EXPECT_EQ(told(), "ac");
  EXPECT_EQ(thing->notifiees(), 2u);
}

// It gave its place up: to the walk it is a new one.
TEST_F(NotifieeTest, oneThatMovedToAnotherNotifierAndBackWaitsForTheNextChange) {
  const Ptr<Thing> other = makePtr<Thing>("other");
  a->reaction = [&] {
    log += "a";
    b->notifierIs(other);
    b->notifierIs(thing);
  };
  EXPECT_EQ(told(), "ac");
  a->reaction = logging("a");
  EXPECT_EQ(told(), "acb");
}

TEST_F(NotifieeTest, oneSwitchedOffThatIsDestroyedLeavesNoTrace) {
  b->hasNotificationActiveIs(false);
  b = nullptr;
  EXPECT_EQ(thing->notifiees(), 2u);
  EXPECT_EQ(told(), "ac");
  c->hasNotificationActiveIs(false);
  c->notifierIs(nullptr);
  EXPECT_EQ(thing->notifiees(), 1u);
  EXPECT_EQ(told(), "a");
}

TEST_F(NotifieeTest, nonReferencing_thatIsSwitchedOffForgetsADestroyedNotifier) {
  b = c = nullptr;
  a->isNonReferencingIs(true);
  a->hasNotificationActiveIs(false);
  thing = nullptr;
  EXPECT_FALSE(alive);
  EXPECT_EQ(a->notifier(), nullptr);
  a->hasNotificationActiveIs(true);
  EXPECT_EQ(a->notifier(), nullptr);
}

TEST_F(NotifieeTest, aHandlerMayDropTheLastReferenceToItself) {
  b->reaction = [this] {
    b = nullptr;
    log += "b";
  };
  EXPECT_EQ(told(), "abc");
  EXPECT_EQ(told(), "ac");
}

TEST_F(NotifieeTest, aHandlerMayDropTheLastReferenceToItsNotifier) {
  b = c = nullptr;
  a->reaction = [this] {
    thing = nullptr;
    a->notifierIs(nullptr);
    EXPECT_TRUE(alive) << "the notifier outlives the call";
    log += "a";
  };
  thing->notify(300);
  EXPECT_EQ(log, "a");
  EXPECT_FALSE(alive);
}

TEST_F(NotifieeTest, aHandlerMayDropBothItselfAndItsNotifier) {
  b = c = nullptr;
  a->reaction = [this] {
    thing = nullptr;
    a = nullptr;
  };
  thing->notify(300);
  EXPECT_FALSE(alive);
}

TEST_F(NotifieeTest, theNextOneGoesUntoldWhenItsOwnerEndsWithTheOneBefore) {
  // The handler of `a` owns b, and drops the last reference to `a`.
  a->reaction = [this, owned = std::move(b)] {
    log += "a";
    a = nullptr;
  };
  EXPECT_EQ(told(), "ac");
  EXPECT_EQ(thing->notifiees(), 1u);
}

TEST_F(NotifieeTest, aNestedChangeIsToldToAllBeforeTheOuterOneGoesOn) {
  a->reaction = [this] {
    log += a->attribute() == 300 ? "a" : "A";
    if (a->attribute() != 300) return;
    thing->notify(301);
    EXPECT_EQ(a->attribute(), 300u) << "the outer change is being announced again";
  };
  b->reaction = [this] { log += b->attribute() == 300 ? "b" : "B"; };
  c->reaction = nullptr;
  EXPECT_EQ(told(), "aABb");
}

TEST_F(NotifieeTest, oneRegisteredDuringAWalkHearsANestedChange) {
  Ptr<Watch> d;
  a->reaction = [&] {
    log += "a";
    if (d != nullptr) return;
    d = watch("d", thing);
    thing->notify(301);
  };
  EXPECT_EQ(told(), "aabcdbc");
}

TEST_F(NotifieeTest, oneRemovedInANestedWalkLeavesTheOuterOneWhole) {
  a->reaction = [this] {
    log += "a";
    if (a->attribute() == 300) thing->notify(301);
  };
  b->reaction = [this] {
    log += "b";
    b = nullptr;
  };
  EXPECT_EQ(told(), "aabcc");
}

TEST_F(NotifieeTest, hasNotificationActive_falseLeavesTheList) {
  b->hasNotificationActiveIs(false);
  EXPECT_FALSE(b->isRegisteredNotifiee());
  EXPECT_EQ(thing->notifiees(), 2u);
  EXPECT_EQ(b->notifier(), thing.ptr()) << "it stays bound";
  EXPECT_EQ(told(), "ac");
}

TEST_F(NotifieeTest, oneMadeInactiveIsOnlyBound) {
  const Ptr<Watch> d = makePtr<Watch>(loop.activity, thing, false);
  EXPECT_FALSE(d->hasNotificationActive());
  EXPECT_EQ(d->notifier(), thing.ptr());
  EXPECT_EQ(thing->notifiees(), 3u);
  thing->notify(300);
  EXPECT_THAT(d->told, IsEmpty());
  d->hasNotificationActiveIs(true);
  thing->notify(301);
  EXPECT_THAT(d->told, ElementsAre(301));
}

TEST_F(NotifieeTest, notifierIs_movesToAnotherOne) {
  const Ptr<Thing> other = makePtr<Thing>("other");
  b->notifierIs(other);
  EXPECT_EQ(told(), "ac");
  other->notify(300);
  EXPECT_EQ(log, "b");
  EXPECT_EQ(thing->references(), 3u);
  EXPECT_EQ(other->references(), 2u);
}

TEST_F(NotifieeTest, notifierIs_sameOneKeepsThePlace) {
  a->notifierIs(thing);
  EXPECT_EQ(told(), "abc");
  EXPECT_EQ(thing->references(), 4u);
}

TEST_F(NotifieeTest, notifierIs_nullWatchesNothing) {
  a->notifierIs(nullptr);
  EXPECT_EQ(a->notifier(), nullptr);
  EXPECT_EQ(told(), "bc");
  EXPECT_EQ(makePtr<Watch>(loop.activity, nullptr)->notifier(), nullptr);
}

TEST_F(NotifieeTest, zintFwkActivityIs_isWhereItIsToldFromThenOn) {
  const Support::ManualLoop other;
  a->zintFwkActivityIs(other.activity);
  thing->notify(300);
  EXPECT_EQ(a->toldOn, other.activity.ptr());
  EXPECT_EQ(a->zintFwkActivity(), other.activity);
}

TEST_F(NotifieeTest, nonReferencing_doesNotKeepTheNotifierAlive) {
  b = c = nullptr;
  a->isNonReferencingIs(true);
  EXPECT_EQ(thing->references(), 1u);
  EXPECT_EQ(told(), "a");
  thing = nullptr;
  EXPECT_FALSE(alive);
  EXPECT_EQ(a->notifier(), nullptr);
}

TEST_F(NotifieeTest, nonReferencing_falseHoldsItAgain) {
  a->isNonReferencingIs(true);
  a->isNonReferencingIs(false);
  EXPECT_EQ(thing->references(), 4u);
  EXPECT_EQ(told(), "abc");
}

TEST_F(NotifieeTest, nonReferencing_ofTheLastReferenceEndsTheNotifier) {
  b = c = nullptr;
  thing = nullptr;
  a->isNonReferencingIs(true);
  EXPECT_FALSE(alive);
  EXPECT_EQ(a->notifier(), nullptr);
}

TEST_F(NotifieeTest, nonReferencing_thatIsInactiveStillLearnsOfTheEnd) {
  const Ptr<Watch> d = makePtr<Watch>(loop.activity, thing, false);
  d->isNonReferencingIs(true);
  a = b = c = nullptr;
  thing = nullptr;
  EXPECT_FALSE(alive);
  EXPECT_THAT(d->told, IsEmpty());
  EXPECT_EQ(d->notifier(), nullptr);
}

TEST_F(NotifieeTest, isRegisteredNotifiee_falseKeepsACountedNotifierAndForgetsAnother) {
  a->isRegisteredNotifieeIs(false);
  EXPECT_EQ(a->notifier(), thing.ptr());
  b->isNonReferencingIs(true);
  b->isRegisteredNotifieeIs(false);
  EXPECT_EQ(b->notifier(), nullptr);
  EXPECT_EQ(told(), "c");
}

TEST_F(NotifieeTest, zombie_isToldNothingUntilTheMarkIsTaken) {
  b->zintDoZombieReactors(true);
  EXPECT_TRUE(b->zintMarkedForDeletion());
  EXPECT_EQ(told(), "ac");
  EXPECT_EQ(thing->notifiees(), 3u) << "it keeps its place";
  b->zintDoZombieReactors(false);
  EXPECT_EQ(told(), "abc");
}

TEST_F(NotifieeTest, zombie_markedDuringAWalkIsNotTold) {
  a->reaction = [this] {
    log += "a";
    c->zintDoZombieReactors(true);
  };
  EXPECT_EQ(told(), "ab");
}

TEST_F(NotifieeTest, notifyEach_callsThoseOfTheTypeOnly) {
  const Ptr<Zint::Entity::NotifieeConst> other =
      makePtr<Zint::Entity::NotifieeConst>(loop.activity, thing);
  b->hasNotificationActiveIs(false);
  std::vector<const Watch*> called;
  thing->notifyEach<Watch>(303, [&](Watch& watch) {
    EXPECT_EQ(watch.attribute(), 303u);
    called.push_back(&watch);
  });
  EXPECT_THAT(called, ElementsAre(a.ptr(), c.ptr()));
}

TEST(NotifieeOfNothing, mayBeSwitchedToAndFromNonReferencing) {
  const auto notifiee = Zint::makePtr<Zint::NotifieeConst>(nullptr, nullptr);
  notifiee->isNonReferencingIs(true);
  EXPECT_TRUE(notifiee->isNonReferencing());
  notifiee->isNonReferencingIs(false);
  EXPECT_FALSE(notifiee->isNonReferencing());
  EXPECT_EQ(notifiee->notifier(), nullptr);
}

}  // namespace
