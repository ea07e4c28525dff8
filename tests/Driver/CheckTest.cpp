// What a check complains of, and what it is silent about.
#include <Driver/AuditedShadow.h>
#include <Driver/Check.h>
#include <Driver/Descriptions.h>
#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Zint/GenericIf.h>
#include <Zint/Trace.h>
#include <gtest/gtest.h>
#include <support/ManualLoop.h>
#include <support/RecordingHam.h>
#include <support/RecordingRegisters.h>

#include <string>
#include <vector>

namespace {

using Driver::ComplaintKind;
using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

class DroppedTrace : public Zint::TraceSink {
 public:
  DroppedTrace() : before_(Zint::traceSinkIs(this)) {}
  ~DroppedTrace() override { Zint::traceSinkIs(before_); }
  void traceLine(const Zint::TraceLine&) override {}

 private:
  Zint::TraceSink* before_;
};

// A plain shadow with a reader, and an audited one, each with sound regions.
class Check : public testing::Test {
 protected:
  using Kinds = std::vector<std::string>;

  Check() {
    plain->minIntervalBetweenAuditsIs(1);
    plain->chipMemoryIs(mac);
    plain->chipMemoryIs(vlan);
    plain->stateIs(HardwareShadow::configured());
    reader = Hardware::chipReaderFactory(loop.activity, plain->auditReadRequest(), loop.clock, 16,
                                         0.001);
  }

  ChipMemory::Ptr region(const char* name, U64 address, U32 entries = 16, U32 entrySize = 4,
                         U32 stride = 4, bool isAudited = true) const {
    const ChipMemory::Ptr made =
        Hardware::chipMemoryFactory(name, ChipAddress(address), entries, entrySize, stride, ham);
    made->shadowEnabledIs(isAudited);
    made->auditEnabledIs(isAudited);
    return made;
  }
  // An audited shadow of these regions, configured.
  Driver::AuditedShadow::Ptr audited(const std::vector<ChipMemory::Ptr>& regions) const {
    const auto shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
    for (const ChipMemory::Ptr& cm : regions) shadow->chipMemoryIs(cm);
    shadow->stateIs(HardwareShadow::configured());
    return shadow;
  }
  // "kind subject" of each.
  static Kinds complaints(const Zint::Ptr<const HardwareShadow>& shadow,
                          const Driver::CheckWith& with = {}) {
    Kinds found;
    for (const auto& complaint : Driver::check(shadow, with)) {
      EXPECT_FALSE(complaint->text().empty());
      EXPECT_FALSE(complaint->remedy().empty());
      found.push_back(stringValue(complaint->kind()).bytes() + " " + complaint->subject().bytes());
    }
    return found;
  }
  // Registers one more in the plain shadow and configures it again.
  void add(const ChipMemory::Ptr& cm) {
    plain->stateIs(HardwareShadow::unconfigured());
    plain->chipMemoryIs(cm);
    plain->stateIs(HardwareShadow::configured());
  }

  DroppedTrace trace;
  Support::ManualLoop loop;
  Zint::Ptr<Support::RecordingHam> ham = Zint::makePtr<Support::RecordingHam>();
  Hardware::GenericChipHam::Ptr words =
      Hardware::genericChipHamFactory("words", Zint::makePtr<Support::RecordingRegisters>());
  ChipMemory::Ptr mac = region("mac", 0x1000);
  ChipMemory::Ptr vlan = region("vlan", 0x2000);
  HardwareShadow::Ptr plain = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
  Zint::Ptr<Hardware::ChipReader> reader;
};

// --- Silence ---

TEST_F(Check, isSilentAboutSoundShadowsInEachState) {
  const auto other = audited({region("a", 0), region("b", 0x40)});
  for (const auto state : {HardwareShadow::idle(), HardwareShadow::auditing(),
                           HardwareShadow::idle(), HardwareShadow::unconfigured()}) {
    plain->stateIs(state);
    other->stateIs(state);
    EXPECT_EQ(complaints(plain), Kinds{}) << state;
    EXPECT_EQ(complaints(other), Kinds{}) << state;
  }
  EXPECT_EQ(complaints(Hardware::hardwareShadowFactory(loop.activity, nullptr)), Kinds{});
}

TEST_F(Check, isSilentAboutThousandsOfRegionsWithAndWithoutGaps) {
  for (U32 distance : {0x40u, 0x48u, 0x1000u, 0x10000u}) {
    std::vector<ChipMemory::Ptr> regions;
    for (U32 i = 0; i < 5000; ++i) regions.push_back(region("r", 0x100000000 + U64{i} * distance));
    EXPECT_EQ(complaints(audited(regions), {.shadows = {plain}, .regions = regions}), Kinds{})
        << distance;
  }
}

TEST_F(Check, isSilentAboutAChipOfSeveralMemories) {
  std::vector<ChipMemory::Ptr> regions;
  for (U64 memory = 0; memory < 100; ++memory) {
    regions.push_back(region("low", memory << 32));
    regions.push_back(region("high", (memory << 32) + 0xffffffc0));  // ends with the memory
  }
  EXPECT_EQ(complaints(audited(regions)), Kinds{});
}

TEST_F(Check, isSilentAboutTheEndOfTheAddressSpace) {
  EXPECT_EQ(complaints(audited({region("last", ~U64{0} - 0x3f)})), Kinds{});
}

TEST_F(Check, accessesNoChipAndChangesNothing) {
  plain->stateIs(HardwareShadow::auditing());
  const U32 references = static_cast<U32>(mac->references());
  complaints(plain, {.shadows = {plain}, .regions = {mac}});
  EXPECT_EQ(ham->log.size(), 0u);
  EXPECT_EQ(mac->references(), references);
  EXPECT_EQ(plain->lastChipMemory(), nullptr);
  EXPECT_EQ(plain->state(), HardwareShadow::auditing());
}

TEST_F(Check, ofNoShadowIsRefused) {
  try {
    Driver::check(nullptr);
    ADD_FAILURE();
  } catch (const Zint::RangeException& exception) {
    EXPECT_STREQ(exception.what(), "there is no shadow to check");
  }
}

// --- Layout ---

TEST_F(Check, overlap_isToldForEachRegionThatBeginsInAnother) {
  add(region("wide", 0x3000, 256, 4, 4));
  EXPECT_EQ(complaints(plain), Kinds{});
  add(region("in", 0x3010));
  add(region("too", 0x33fc));
  add(region("behind", 0x3500));
  EXPECT_EQ(complaints(plain), (Kinds{"overlap in", "overlap too"}));
}

TEST_F(Check, overlap_isToldOnceForEachRegionInAPileOfThousands) {
  std::vector<ChipMemory::Ptr> regions;
  for (U32 i = 0; i < 5000; ++i) regions.push_back(region("r", i * 4, 65536));
  EXPECT_EQ(complaints(audited(regions)).size(), 4999u);
}

TEST_F(Check, replaced_namesARegionThatGaveWayAtItsAddress) {
  const ChipMemory::Ptr second = region("second", 0x1000);
  add(second);
  EXPECT_EQ(complaints(plain, {.regions = {mac, vlan, second}}), (Kinds{"replaced mac"}));
  EXPECT_EQ(complaints(plain, {.regions = {vlan, second, region("none", 0x7000), nullptr}}),
            Kinds{});
}

TEST_F(Check, replaced_isToldOfAnIndexThatIsOutOfDate) {
  plain->overrideHardwareIs(true);
  const ChipMemory::Ptr second = region("second", 0x1000, 16, 4, 4, false);
  const ChipMemory::Ptr third = region("third", 0x9000, 16, 4, 4, false);
  plain->chipMemoryIs(second);
  plain->chipMemoryIs(third);
  plain->chipMemoryDel(ChipAddress(0x2000));
  EXPECT_EQ(complaints(plain),
            (Kinds{"replaced mac", "replaced vlan", "replaced second", "replaced third"}));
  plain->stateIs(HardwareShadow::unconfigured());
  plain->stateIs(HardwareShadow::configured());
  EXPECT_EQ(complaints(plain), Kinds{});
}

TEST_F(Check, replaced_isToldOfALastRegionThatIsNotRegistered) {
  plain->lastChipMemoryIs(region("stranger", 0x1000));
  EXPECT_EQ(complaints(plain), (Kinds{"replaced stranger"}));
  plain->lastChipMemoryIs(vlan);
  EXPECT_EQ(complaints(plain), Kinds{});
}

TEST_F(Check, wrappingSpan_isToldOfASpanOf32BitsAndMore) {
  const ChipMemory::Ptr fits = region("fits", 0x700000000, 1, 4, 0xffffffff, false);
  const ChipMemory::Ptr wraps = region("wraps", 0x800000000, 0x10000, 4, 0x10001, false);
  EXPECT_EQ(complaints(audited({fits})), Kinds{});
  EXPECT_EQ(complaints(audited({wraps})), (Kinds{"wrappingSpan wraps"}));
}

TEST_F(Check, wrappingSpan_isToldOfARegionThatLeavesItsMemory) {
  EXPECT_EQ(complaints(audited({region("ends", 0xffffffc0)})), Kinds{});
  EXPECT_EQ(complaints(audited({region("leaves", 0xffffffc4)})), (Kinds{"wrappingSpan leaves"}));
}

TEST_F(Check, stride_isToldOfGapsUnderAnAccessMethodOfPackedWords) {
  const auto make = [&](U32 entries, U32 stride, const Hardware::ChipHam::Ptr& by) {
    return audited({Hardware::chipMemoryFactory("r", ChipAddress(0x1000), entries, 4, stride, by)});
  };
  EXPECT_EQ(complaints(make(16, 8, words)), (Kinds{"stride r"}));
  EXPECT_EQ(complaints(make(16, 4, words)), Kinds{});
  EXPECT_EQ(complaints(make(1, 8, words)), Kinds{});
  EXPECT_EQ(complaints(make(16, 8, ham)), Kinds{});  // its own business
}

TEST_F(Check, wordSize_isToldOfEntriesThatAreNoWords) {
  const auto make = [&](U32 size, const Hardware::ChipHam::Ptr& by) {
    return audited({Hardware::chipMemoryFactory("r", ChipAddress(0x1000), 16, size, size, by)});
  };
  EXPECT_EQ(complaints(make(6, words)), (Kinds{"wordSize r"}));
  EXPECT_EQ(complaints(make(12, words)), Kinds{});
  EXPECT_EQ(complaints(make(6, ham)), Kinds{});
}

TEST_F(Check, zeroSize_isToldOfEachSize) {
  EXPECT_EQ(complaints(audited({region("e", 0, 0, 4, 4, false)})), (Kinds{"zeroSize e"}));
  EXPECT_EQ(complaints(audited({region("s", 0, 4, 0, 4, false)})), (Kinds{"zeroSize s"}));
  EXPECT_EQ(complaints(audited({region("d", 0, 4, 4, 0, false)})), (Kinds{"zeroSize d"}));
  EXPECT_EQ(complaints(audited({region("r", 0, 1, 1, 1, false)})), Kinds{});
}

TEST_F(Check, smallBuffer_isToldOfEntriesThatGrew) {
  mac->entriesIs(32);
  EXPECT_EQ(complaints(plain), (Kinds{"smallBuffer mac"}));
  mac->hardwareIs(Zint::makePtr<Hal::Buf>(32 * 4));
  EXPECT_EQ(complaints(plain), Kinds{});
  mac->hardwareIs(nullptr);
  EXPECT_EQ(complaints(plain), (Kinds{"smallBuffer mac"}));
}

// --- Audit ---

TEST_F(Check, neverRead_isToldOfAShadowWithoutAReader) {
  reader = nullptr;
  EXPECT_EQ(complaints(plain), (Kinds{"neverRead shadow"}));
  EXPECT_EQ(complaints(audited({region("a", 0)})), Kinds{});  // it reads by itself
}

TEST_F(Check, neverRead_isToldOfAShadowWithoutAClockOrWithoutReactors) {
  plain->clockIs(nullptr);
  EXPECT_EQ(complaints(plain), (Kinds{"neverRead shadow"}));
  plain->clockIs(loop.clock);
  EXPECT_EQ(complaints(plain), Kinds{});
  plain->hasNotificationActiveIs(false);
  EXPECT_EQ(complaints(plain), (Kinds{"neverRead shadow"}));
  const auto other = Driver::auditedShadowFactory(loop.activity, nullptr);
  other->chipMemoryIs(region("a", 0));
  EXPECT_EQ(complaints(other), (Kinds{"neverRead shadow"}));
}

TEST_F(Check, neverRead_isToldOfARegionWhoseAuditCameTooLate) {
  const ChipMemory::Ptr late = region("late", 0x3000, 16, 4, 4, false);
  late->shadowEnabledIs(true);
  add(late);
  late->auditEnabledIs(true);
  EXPECT_EQ(complaints(plain), (Kinds{"neverRead late"}));
  plain->chipMemoryAuditEnabledIs(late, false);
  plain->chipMemoryAuditEnabledIs(late, true);
  EXPECT_EQ(complaints(plain), Kinds{});
}

TEST_F(Check, neverCompared_isToldOfAnAuditedRegionWithoutAShadow) {
  mac->shadowEnabledIs(false);
  EXPECT_EQ(complaints(plain), (Kinds{"neverCompared mac"}));
  mac->shadowEnabledIs(true);
  EXPECT_EQ(complaints(plain), Kinds{});
}

TEST_F(Check, auditedTwice_isToldOfARegionUnderTwoAudits) {
  const auto other = audited({mac, region("own", 0x5000)});
  EXPECT_EQ(complaints(plain), Kinds{});
  EXPECT_EQ(complaints(plain, {.shadows = {other, plain, nullptr}}), (Kinds{"auditedTwice mac"}));
  EXPECT_EQ(complaints(other, {.shadows = {other, plain}}), (Kinds{"auditedTwice mac"}));
  EXPECT_EQ(complaints(plain, {.shadows = {plain}}), Kinds{});
}

TEST_F(Check, bufferedAudit_isToldForAsLongAsItLasts) {
  mac->modeIs(ChipMemory::buffered());
  EXPECT_EQ(complaints(plain), (Kinds{"bufferedAudit mac"}));
  EXPECT_EQ(complaints(audited({mac})), (Kinds{"bufferedAudit mac"}));
  mac->modeIs(ChipMemory::normal());
  EXPECT_EQ(complaints(plain), Kinds{});
}

TEST_F(Check, overriddenAudit_isToldWhileAuditing) {
  plain->overrideHardwareIs(true);
  EXPECT_EQ(complaints(plain), Kinds{});
  plain->stateIs(HardwareShadow::auditing());
  EXPECT_EQ(complaints(plain), (Kinds{"overriddenAudit shadow"}));
  const auto complaint = Driver::check(plain).front();
  EXPECT_EQ(complaint->text(),
            "overrideHardware is set while auditing: no pass begins, and nobody is told");
  EXPECT_EQ(complaint->remedy(), "set the state idle first, or clear overrideHardware");
  plain->overrideHardwareIs(false);
  EXPECT_EQ(complaints(plain), Kinds{});
}

// It says itself that it is suspended, and goes on by itself.
TEST_F(Check, overriddenAudit_ofAShadowWithAPatrol) {
  const Driver::AuditedShadow::Ptr shadow = audited({region("a", 0)});
  shadow->stateIs(HardwareShadow::auditing());
  shadow->overrideHardwareIs(true);
  EXPECT_EQ(complaints(shadow), (Kinds{"overriddenAudit shadow"}));
  const auto complaint = Driver::check(shadow).front();
  EXPECT_EQ(complaint->text(), "overrideHardware is set while auditing: the patrol is suspended");
  EXPECT_EQ(complaint->remedy(), "clear overrideHardware: the patrol goes on by itself");
  EXPECT_EQ(shadow->patrolState(), Driver::PatrolState::suspended);
  EXPECT_EQ(shadow->patrolReason(), "overrideHardware is set");
  shadow->overrideHardwareIs(false);
  EXPECT_EQ(complaints(shadow), Kinds{});
  while (shadow->audits() == 0) loop.turnAt(loop.activity->wakeTime());
  EXPECT_EQ(shadow->patrolReason(), "");
}

TEST_F(Check, zeroInterval_isToldOfPassesAndOfSlicesWithoutAPause) {
  plain->minIntervalBetweenAuditsIs(0);
  EXPECT_EQ(complaints(plain), (Kinds{"zeroInterval shadow"}));
  const auto other = audited({region("a", 0)});
  EXPECT_EQ(complaints(other), Kinds{});
  other->sliceIntervalIs(0);
  EXPECT_EQ(complaints(other), (Kinds{"zeroInterval shadow"}));
}

TEST_F(Check, longSlice_isToldWhereSlicesTakeMoreThanTheirShare) {
  const auto shadow = audited({region("a", 0)});
  shadow->sliceIntervalIs(0.75);
  EXPECT_EQ(complaints(shadow, {.sliceTime = 0.25, .share = 0.25}), Kinds{});
  EXPECT_EQ(complaints(shadow, {.sliceTime = 0.25, .share = 0.125}), (Kinds{"longSlice shadow"}));
  EXPECT_EQ(complaints(shadow, {.sliceTime = 0.5, .share = 0.25}), (Kinds{"longSlice shadow"}));
  EXPECT_EQ(complaints(shadow, {.sliceTime = 1e9}), Kinds{});  // no share was asked
}

// --- Policies ---

TEST_F(Check, unmatchedRun_isToldOfRunsBeyondTheEntries) {
  const ChipMemory::Ptr table = region("table", 0);
  const auto shadow = audited({table});
  const auto policy = Driver::policyFactory(table);
  policy->ruleIs(8, 8, Driver::Rule::detectOnly);
  shadow->policyIs(policy);
  EXPECT_EQ(complaints(shadow), Kinds{});
  policy->ruleIs(60, 10, Driver::Rule::detectOnly);
  EXPECT_EQ(complaints(shadow), (Kinds{"unmatchedRun table"}));
}

TEST_F(Check, skippedVolatile_isToldWhereTheRegionDoesNotKnowOfThem) {
  const ChipMemory::Ptr table = region("table", 0);
  const auto shadow = audited({table});
  const auto policy = Driver::policyFactory(table);
  policy->ruleIs(3, 7, Driver::Rule::volatile_);
  shadow->policyIs(policy);
  table->skipWriteIfMatchesCacheIs(true);
  table->readFromCacheIs(true);
  EXPECT_EQ(complaints(shadow), Kinds{});  // the policy has told the region
  table->volatileEntriesIs(nullptr);
  EXPECT_EQ(complaints(shadow), (Kinds{"skippedVolatile table"}));
  table->readFromCacheIs(false);
  EXPECT_EQ(complaints(shadow), (Kinds{"skippedVolatile table"}));
  table->skipWriteIfMatchesCacheIs(false);
  EXPECT_EQ(complaints(shadow), Kinds{});
  table->skipWriteIfMatchesCacheIs(true);
  policy->isInForceIs(false);
  EXPECT_EQ(complaints(shadow), (Kinds{"skippedVolatile table"}));
  policy->isInForceIs(true);
  EXPECT_EQ(complaints(shadow), Kinds{});
}

// --- Complaints ---

TEST_F(Check, complaintIsOneLineForPeopleAndFourAttributesByName) {
  mac->entriesIs(32);
  const auto found = Driver::check(plain);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->stringValue(),
            "mac: its entries take 128 bytes, its hardware buffer has 64: to read them ends the "
            "process or the pass. Remedy: set hardware to a buffer of that size whenever entries "
            "grows.");
  const auto byName = Zint::GenericIf_::readOnlyView(found[0]);
  EXPECT_EQ(byName.typeName(), std::string("Driver::Complaint"));
  EXPECT_EQ(byName.attribute("kind"), "'smallBuffer'");
  EXPECT_EQ(byName.attribute("subject"), "'mac'");
}

TEST_F(Check, kindsAreNamedAsTheTypeNamesThem) {
  const auto rows = Driver::complaintKindType.members;
  ASSERT_EQ(rows.size(), 16u);
  for (const Zint::Member& row : rows)
    EXPECT_EQ(stringValue(static_cast<ComplaintKind>(row.value)), row.name);
  EXPECT_EQ(stringValue(static_cast<ComplaintKind>(16)), "ComplaintKind(16)");
}

}  // namespace
