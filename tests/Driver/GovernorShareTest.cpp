// A share that is changed while the patrol waits because of the old one.
#include <Driver/Governor.h>

#include <cmath>

#include "PatrolTest.h"
#include "support/TraceCapture.h"

namespace {

// An access takes 0.1 ms.
struct GovernorShares : Support::PatrolTest {
  GovernorShares() {
    chip->clock = loop.clock.ptr();
    chip->callCost = 0.0001;
    region("mac", 0x1000, 1000);
    audit();
    governor = Driver::governorFactory(loop.activity, shadow);
  }
  void turnsAt(Zint::Seconds distance, U32 turns) {
    for (U32 i = 0; i < turns; ++i) loop.turnAt(loop.clock->time() + distance);
  }

  Driver::Governor::Ptr governor;
};

struct GovernorSmallShare : GovernorShares, testing::WithParamInterface<double> {};

TEST_P(GovernorSmallShare, isForgottenOnceItIsRaised) {
  Support::TraceCapture trace(0);
  governor->shareIs(GetParam());
  turnsAt(0, 20);
  EXPECT_TRUE(std::isfinite(governor->announcedPeriod()));
  EXPECT_TRUE(std::isfinite(shadow->minIntervalBetweenAudits()));
  governor->shareIs(0.5);
  governor->periodIs(0);
  const U32 before = shadow->audits();
  turnsAt(0.01, 500);
  EXPECT_GT(shadow->audits(), before + 100) << governor->wishes();
  EXPECT_LT(governor->announcedPeriod(), 0.001);
  for (const auto& line : trace.full) EXPECT_NE(line.handle, "Zint") << line.text;
}

INSTANTIATE_TEST_SUITE_P(ofAnySize, GovernorSmallShare,
                         testing::Values(1e-2, 1e-3, 1e-5, 1e-6, 1e-12, 1e-100, 1e-300, 1e-308,
                                         5e-324));

TEST_F(GovernorShares, share_thatIsRaisedWithinAPassLetsItGoOn) {
  governor->turnBoundIs(0.0001);  // several turns a pass
  governor->shareIs(1e-6);
  governor->periodIs(0);
  chip->cost = 0.0001;
  turnsAt(0, 3);
  ASSERT_EQ(shadow->patrolState(), Driver::PatrolState::reading);
  governor->shareIs(0.5);
  const U32 before = shadow->audits();
  turnsAt(0.01, 2100);
  EXPECT_GT(shadow->audits(), before);
}

TEST_F(GovernorShares, share_thatIsLoweredBetweenTwoPassesHoldsForTheNextOne) {
  governor->shareIs(0.5);
  governor->periodIs(0);
  ASSERT_TRUE(pass());
  governor->shareIs(1e-4);
  const Zint::Seconds wanted = governor->passWork() / 1e-4;
  const U32 before = shadow->audits();
  turnsAt(wanted / 100, 95);
  EXPECT_EQ(shadow->audits(), before);
  turnsAt(wanted / 100, 10);
  EXPECT_GT(shadow->audits(), before);
}

TEST_F(GovernorShares, clock_thatIsBehindTheOldOneDoesNotDelayTheNextPass) {
  loop.clock->timeIs(1e6);
  governor->periodIs(1);
  turnsAt(0.1, 50);
  const auto second = Zint::manualClockFactory("second");
  chip->clock = second.ptr();
  shadow->clockIs(second);
  const U32 before = shadow->audits();
  for (U32 i = 0; i < 100; ++i) {
    second->timeIs(second->time() + 0.1);
    loop.turn();
  }
  EXPECT_GT(shadow->audits(), before + 5);
}

}  // namespace
