// A notifiee is notified of the attributes that it is interested in.
#include <Zint/Notifiee.h>

#include <gmock/gmock.h>
#include <runtime/Probes.h>
#include <support/ManualLoop.h>

namespace {

using Probes::Thing;
using Probes::Watch;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::interestIn;
using Zint::makePtr;
using Zint::Ptr;

struct InterestTest : testing::Test {
  Support::ManualLoop loop;
  bool alive = false;
  Ptr<Thing> thing = makePtr<Thing>("thing", &alive);
  Ptr<Watch> a = makePtr<Watch>(loop.activity, thing);
  Ptr<Watch> b = makePtr<Watch>(loop.activity, thing);
};

TEST_F(InterestTest, isEverythingByDefault) {
  EXPECT_EQ(a->interest(), Zint::everyAttribute);
  for (const U32 attribute : {0u, 255u, 256u, 318u, 319u, 100'000u}) thing->notify(attribute);
  EXPECT_THAT(a->told, ElementsAre(0, 255, 256, 318, 319, 100'000));
}

TEST_F(InterestTest, decidesWhoIsNotified) {
  a->interestIs(interestIn(300) | interestIn(302));
  b->interestIs(interestIn(301));
  for (U32 attribute = 299; attribute < 304; ++attribute) thing->notify(attribute);
  EXPECT_THAT(a->told, ElementsAre(300, 302));
  EXPECT_THAT(b->told, ElementsAre(301));
  a->interestIs(0);
  thing->notify(300);
  EXPECT_THAT(a->told, ElementsAre(300, 302));
  a->interestIs(Zint::everyAttribute);
  thing->notify(300);
  EXPECT_THAT(a->told, ElementsAre(300, 302, 300));
}

TEST_F(InterestTest, attributesWithoutABitOfTheirOwnShareTheLast) {
  a->interestIs(interestIn(256 + 62));
  b->interestIs(interestIn(256 + 63));
  for (const U32 attribute : {255u, 318u, 319u, 320u, 1000u}) thing->notify(attribute);
  EXPECT_THAT(a->told, ElementsAre(318));
  EXPECT_THAT(b->told, ElementsAre(255, 319, 320, 1000));
}

TEST_F(InterestTest, appliesToChangesThatCarryAKey) {
  a->interestIs(interestIn(300));
  std::vector<const Watch*> told;
  const auto tell = [&told](Watch& watch) { told.push_back(&watch); };
  thing->notifyEach<Watch>(300, tell);
  thing->notifyEach<Watch>(301, tell);
  EXPECT_THAT(told, ElementsAre(a.ptr(), b.ptr(), b.ptr()));
}

TEST_F(InterestTest, isObservedSaysWhetherSomeoneRegisteredIsInterested) {
  EXPECT_TRUE(thing->isObserved(300));
  b->interestIs(interestIn(301));
  EXPECT_TRUE(thing->isObserved(300)) << "a is interested in everything";
  a->interestIs(interestIn(302));
  EXPECT_FALSE(thing->isObserved(300));
  EXPECT_TRUE(thing->isObserved(301));
  EXPECT_TRUE(thing->isObserved(302));
  a->hasNotificationActiveIs(false);
  EXPECT_FALSE(thing->isObserved(302)) << "one that is switched off";
  a->hasNotificationActiveIs(true);
  EXPECT_TRUE(thing->isObserved(302));
  a->isRegisteredNotifieeIs(false);
  EXPECT_FALSE(thing->isObserved(302));
  a->interestIs(interestIn(303));
  EXPECT_FALSE(thing->isObserved(303)) << "not registered";
  a->isRegisteredNotifieeIs(true);
  EXPECT_TRUE(thing->isObserved(303));
  b = nullptr;
  EXPECT_FALSE(thing->isObserved(301)) << "its only notifiee is gone";
  EXPECT_EQ(thing->notifiees(), 1u);
}

TEST_F(InterestTest, movesWithItsNotifiee) {
  bool otherAlive = false;
  const Ptr<Thing> other = makePtr<Thing>("other", &otherAlive);
  b = nullptr;
  a->interestIs(interestIn(300));
  a->notifierIs(other);
  EXPECT_FALSE(thing->isObserved(300));
  EXPECT_TRUE(other->isObserved(300));
  EXPECT_FALSE(other->isObserved(301));
}

TEST_F(InterestTest, ofAnUncountedNotifieeAppliesAsWell) {
  a->isNonReferencingIs(true);
  b = nullptr;
  a->interestIs(interestIn(300));
  thing->notify(301);
  thing->notify(300);
  EXPECT_THAT(a->told, ElementsAre(300));
}

TEST_F(InterestTest, changedWithinAWalkTakesEffectAtOnce) {
  a->reaction = [this] { b->interestIs(0); };
  thing->notify(300);
  EXPECT_THAT(b->told, IsEmpty());
  a->reaction = [this] { b->interestIs(Zint::everyAttribute); };
  thing->notify(300);
  EXPECT_THAT(b->told, ElementsAre(300));
}

// One that leaves within a walk leaves a hole; the others' interest is what counts then.
TEST_F(InterestTest, isComputedAnewAcrossHoles) {
  b->interestIs(interestIn(301));
  bool observed = true;
  a->reaction = [&] {
    a->isRegisteredNotifieeIs(false);
    observed = thing->isObserved(300);
  };
  thing->notify(300);
  EXPECT_FALSE(observed);
  EXPECT_TRUE(thing->isObserved(301));
}

}  // namespace
