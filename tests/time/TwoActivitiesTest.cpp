// Two activities, each with notifiees of both clocks.
#include <Zint/Activity.h>

#include <gmock/gmock.h>
#include <time/Kit.h>

namespace {

using namespace Time;
using testing::ElementsAre;

struct TwoActivities : testing::Test {
  Ptr<Zint::ManualClock> clockA = Zint::manualClockFactory("A");
  Ptr<Zint::ManualClock> clockB = Zint::manualClockFactory("B");
  Ptr<Zint::ActivityConfig> a = Zint::activityFactory("a", ClockPtr(clockA));
  Ptr<Zint::ActivityConfig> b = Zint::activityFactory("b", ClockPtr(clockB));
  Ptr<Sleeper> aOnA = sleeper(a, clockA), aOnB = sleeper(a, clockB), bOnA = sleeper(b, clockA),
               bOnB = sleeper(b, clockB);
};

TEST_F(TwoActivities, eachDeliversItsOwnNotifieesOfEitherClock) {
  for (const auto& one : {aOnA, aOnB, bOnA, bOnB}) one->timeMinIs(1.0);
  clockB->timeIs(1.0);
  EXPECT_EQ(a->turn(), 1u);
  EXPECT_EQ(aOnB->woken.size(), 1u);
  EXPECT_EQ(b->turn(), 1u);
  EXPECT_EQ(bOnB->woken.size(), 1u);
  clockA->timeIs(1.0);
  EXPECT_EQ(a->turn(), 1u);
  EXPECT_EQ(b->turn(), 1u);
}

TEST_F(TwoActivities, theDescriptorFollowsAClockThatTheOtherOneMoves) {
  aOnB->timeMinIs(2.0);
  EXPECT_FALSE(isReadable(*a));
  b->runUntil(2.0);
  EXPECT_TRUE(becomesReadable(*a));
  EXPECT_EQ(a->turn(), 1u);
  EXPECT_FALSE(isReadable(*a));
}

TEST_F(TwoActivities, runLeavesTheOtherClockWhereItIs) {
  aOnA->timeMinIs(5.0);
  aOnB->timeMinIs(3.0);
  a->run();
  EXPECT_THAT(aOnA->woken, ElementsAre(5.0));
  EXPECT_EQ(clockB->time(), 0.0);
  EXPECT_EQ(aOnB->woken.size(), 0u);
  EXPECT_TRUE(aOnB->isArmed());
}

TEST_F(TwoActivities, runDeliversWhatIsDueOnTheOtherClockBeforeItAdvancesItsOwn) {
  std::vector<Seconds> own;
  aOnB->reaction = [&] { own.push_back(clockA->time()); };
  aOnA->timeMinIs(5.0);
  aOnB->timeMinIs(0.0);
  a->run();
  EXPECT_THAT(own, ElementsAre(0.0));
}

TEST_F(TwoActivities, aHandlerMayArmMoveAndDestroyThoseOfTheOther) {
  aOnA->reaction = [&] {
    bOnA->timeMinIs(0.0);
    bOnB->zintFwkActivityIs(a);
    aOnB = nullptr;
    clockB->timeIs(4.0);
  };
  bOnB->timeMinIs(4.0);
  aOnB->timeMinIs(0.0);
  aOnA->timeMinIs(-1.0);
  EXPECT_EQ(a->turn(), 2u) << "what was due when it began, both clocks reading zero";
  EXPECT_EQ(b->turn(), 1u);
  EXPECT_EQ(a->turn(), 1u);
  EXPECT_THAT(bOnB->woken, ElementsAre(4.0));
}

TEST_F(TwoActivities, aTurnInsideATurnServesWhatHasBecomeDueSince) {
  aOnB->reaction = [&] {
    clockB->timeIs(6.0);
    EXPECT_EQ(b->turn(), 1u);
    EXPECT_EQ(Zint::turnTime(), 0.0) << "the outer turn's";
  };
  bOnB->timeMinIs(6.0);
  aOnB->timeMinIs(0.0);
  EXPECT_EQ(a->turn(), 1u);
  EXPECT_EQ(clockB->turnTime(), 6.0);
}

TEST_F(TwoActivities, anActivityThatIsDestroyedLeavesTheOther) {
  aOnA = aOnB = nullptr;
  bOnA->timeMinIs(1.0);
  a = nullptr;
  clockA->timeIs(1.0);
  EXPECT_EQ(b->turn(), 1u);
}

}  // namespace
