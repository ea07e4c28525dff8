// policyText(): the whole line, for each thing that decides about an entry or keeps the patrol from
// it.
#include <Driver/Policy.h>

#include "PatrolWorld.h"

namespace {

using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;

class PolicyText : public Support::PatrolWorld {
 protected:
  std::string text(U32 entry = 3) const { return shadow->policyText(cm, entry).bytes(); }

  const ChipMemory::Ptr cm = region("mac", 0x1000, 16);
};

TEST_F(PolicyText, ofARegionWithoutAPolicy) {
  EXPECT_EQ(text(), "repaired (no policy); the shadow is unconfigured");
  audit();
  EXPECT_EQ(text(), "repaired (no policy)");
  EXPECT_EQ(text(16), "mac: no such entry");
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(text(), "repaired (no policy); the shadow is idle");
}

TEST_F(PolicyText, ofEachLevelOfAPolicy) {
  const Driver::Policy::Ptr policy = policyOf(cm);
  policy->ruleIs(4, 2, Rule::detectOnly);
  policy->maskIs(std::array<U8, 4>{0, 0, 0, 0xff}, Rewrite::kept);
  policy->maskIs(5, 1, std::array<U8, 4>{1, 0, 0, 0}, Rewrite::zero);
  policy->unwrittenIs(Unwritten::baseline);
  policy->auditEveryIs(3);
  audit();
  const std::string rest = "; unwritten: baseline; read in one of 3 passes";
  EXPECT_EQ(text(3), "repaired (entries 0 to 3); mask 000000ff kept of the region" + rest);
  EXPECT_EQ(text(4), "detectOnly (entries 4 to 5); mask 000000ff kept of the region" + rest);
  EXPECT_EQ(text(5), "detectOnly (entries 4 to 5); mask 01000000 zero (entry 5)" + rest);
}

TEST_F(PolicyText, ofARegionThatIsNotUnderAudit) {
  audit();
  cm->auditEnabledIs(false);
  EXPECT_EQ(text(), "mac: not audited: auditEnabled is off");
  cm->modeIs(ChipMemory::override());
  EXPECT_EQ(text(), "mac: not audited: mode override");
  cm->shadowEnabledIs(false);
  EXPECT_EQ(text(), "mac: not audited: shadowEnabled is off");
  const ChipMemory::Ptr other =
      Hardware::chipMemoryFactory("other", ChipAddress(0x9000), 4, 4, 4, chip);
  EXPECT_EQ(shadow->policyText(other, 0), "other: not registered");
}

// The regions under audit are collected by `configured`.
TEST_F(PolicyText, ofARegionWhoseAuditWasSwitchedOnTooLate) {
  cm->auditEnabledIs(false);
  const ChipMemory::Ptr first = region("first", 0x2000, 16);
  audit();
  cm->auditEnabledIs(true);
  EXPECT_EQ(text(), "mac: not audited: auditEnabled was set after configured");
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.back().entries, 16u);
  cm->auditEnabledIs(false);
  shadow->stateIs(HardwareShadow::idle());
  shadow->chipMemoryAuditEnabledIs(cm, true);
  shadow->stateIs(HardwareShadow::auditing());
  EXPECT_EQ(text(), "repaired (no policy)");
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.back().entries, 32u);
}

TEST_F(PolicyText, ofARegionWithAShortBuffer) {
  audit();
  cm->entriesIs(32);
  EXPECT_EQ(text(), "mac: not audited: its hardware buffer is too short");
  ASSERT_TRUE(pass());
  EXPECT_EQ(passes.back().reason, "mac: its hardware buffer is too short");
  cm->entriesIs(16);
  EXPECT_EQ(text(), "repaired (no policy)");
}

TEST_F(PolicyText, ofABufferedRegion) {
  audit();
  cm->modeIs(ChipMemory::buffered());
  EXPECT_EQ(text(), "repaired (no policy); deferred: mode buffered");
}

TEST_F(PolicyText, whileThePatrolIsPausedOrOverridden) {
  audit();
  shadow->pausedIs(true);
  EXPECT_EQ(text(), "repaired (no policy); paused");
  shadow->overrideHardwareIs(true);
  EXPECT_EQ(text(), "repaired (no policy); overrideHardware is set; paused");
  shadow->pausedIs(false);
  shadow->overrideHardwareIs(false);
  EXPECT_EQ(text(), "repaired (no policy)");
}

TEST_F(PolicyText, whileTheChipIsAbsentOrIsRestored) {
  audit();
  ASSERT_TRUE(pass());
  chip->isAway = true;
  step();
  EXPECT_EQ(text(), "repaired (no policy); chip is absent: no answer");
  chip->isAway = false;
  ASSERT_TRUE(pass());
  ASSERT_TRUE(pass());
  EXPECT_EQ(text(), "repaired (no policy)");
  shadow->chip(cm)->restoresItselfIs(false);
  shadow->chip(cm)->doChipReset();
  EXPECT_EQ(text(), "repaired (no policy); chip is being restored");
  shadow->chip(cm)->doRestored();
  EXPECT_EQ(text(), "repaired (no policy)");
}

TEST_F(PolicyText, ofAnEntryInQuarantine) {
  shadow->quarantineRepairsIs(1);
  write(cm, 3, 7);
  audit();
  ASSERT_TRUE(pass());
  set(cm, 3, 8);
  ASSERT_TRUE(pass());
  EXPECT_EQ(text(3), "repaired (no policy); in quarantine");
  EXPECT_EQ(text(4), "repaired (no policy)");
}

}  // namespace
