// The chip and the shadow compared: as they are, and under a policy.
#include <Driver/ChipAccess.h>
#include <Hardware/GenericChipHam.h>
#include <testkit/ManualLoop.h>
#include <testkit/PolicyEquals.h>

#include <array>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

class ChipEqualsShadowTest : public FakeChipTest {
 protected:
  ChipEqualsShadowTest() {
    region->shadowEnabledIs(true);
    shadow->chipMemoryIs(region);
    shadow->policyIs(policy);
    shadow->stateIs(Hardware::HardwareShadow::configured());
    for (U32 i = 0; i < 7; ++i) mac->write<U32>(i, 0x10 + i);
  }
  std::string reported() {
    Captured captured;
    TestKit::expectChipEqualsShadow(chip, region);
    return captured.text();
  }
  std::string reportedUnderPolicy() {
    Captured captured;
    TestKit::expectChipEqualsShadow(chip, shadow, region);
    return captured.text();
  }

  TestKit::ManualLoop loop;
  const Zint::Ptr<Hardware::ChipMemory> region =
      Hardware::chipMemoryFactory("table", Hardware::ChipAddress(0, 0x100), 8, 4, 4,
                                  Hardware::genericChipHamFactory("asic", chip));
  const Driver::AuditedShadow::Ptr shadow =
      Driver::auditedShadowFactory(loop.activity, Zint::Ptr<const Zint::Clock>(loop.clock));
  const Driver::Policy::Ptr policy = Driver::policyFactory(region);
  const Driver::ChipAccess::Ptr mac = Driver::chipAccessFactory(shadow, region);
};

TEST_F(ChipEqualsShadowTest, equal_nothingIsReportedAndNothingAccessed) {
  const U64 accesses = chip->reads() + chip->writes();
  EXPECT_EQ(reported(), "");
  EXPECT_EQ(reportedUnderPolicy(), "");
  EXPECT_EQ(chip->reads() + chip->writes(), accesses);
}

TEST_F(ChipEqualsShadowTest, aDifferenceIsToldByName) {
  chip->flip("mac[3]", 3);
  EXPECT_THAT(reported(),
              HasSubstr("chip \"asic\" does not equal the shadow, seed 1: 1 of 8 entries differ\n"
                        "  table[3]: expected mac[3] 0x13, actual 0x1b\n"
                        "  the last accesses:\n"));
}

TEST_F(ChipEqualsShadowTest, manyDifferencesAreCounted) {
  chip->valueIs("mac", 0xff);
  EXPECT_THAT(reported(), HasSubstr("7 of 8 entries differ"));
}

TEST_F(ChipEqualsShadowTest, entriesThatNobodyWroteAreNotCompared) {
  chip->flip("mac[7]", 3);
  EXPECT_EQ(reported(), "");
}

TEST_F(ChipEqualsShadowTest, underAPolicyMaskedBitsAndUncomparedEntriesMayDiffer) {
  const std::array<U8, 4> mask{0xf0, 0, 0, 0};
  policy->maskIs(mask, Driver::Rewrite::kept);
  policy->ruleIs(5, 1, Driver::Rule::volatile_);
  chip->flip("mac[3]", 4);
  chip->flip("mac[5]", 0);
  EXPECT_EQ(reportedUnderPolicy(), "");
  EXPECT_THAT(reported(), HasSubstr("2 of 8"));
  chip->flip("mac[3]", 0);
  EXPECT_THAT(reportedUnderPolicy(), HasSubstr("1 of 8"));
}

TEST_F(ChipEqualsShadowTest, aRegionWithoutAStoreIsRefused) {
  region->shadowEnabledIs(false);
  EXPECT_THROW(reported(), Zint::RangeException);
}

}  // namespace
}  // namespace TestKitTest
