// The audit: how a pass begins, what the comparison makes of each entry, and which regions take
// part.
#include <Mirl/Mirl.h>

#include "support/ShadowTest.h"

namespace {

using Mirl::Argument;
using Mirl::Number;
using Support::Access;
using Support::Entries;
using Support::HamAccess;
using Support::Lines;
using Support::marked;
using Support::word;
using Support::wordIs;

class HardwareShadowAudit : public Support::ShadowTest {
 protected:
  void auditing(const std::vector<ChipMemory::Ptr>& regions) {
    configure(regions);
    shadow->stateIs(HardwareShadow::auditing());
    trace.full.clear();
    Mirl::theTraceFile.clear();
  }
  void passBegun() {
    loop.turn();
    trace.full.clear();
  }
  void answered(Zint::Request::Status status) { shadow->auditReadRequest()->statusIs(status); }
  // Begins a pass, lets `meanwhile` happen and compares; the trace is that of the comparison.
  void pass(const std::function<void()>& meanwhile = [] {}) {
    passBegun();
    meanwhile();
    trace.full.clear();
    shadow->doAuditChips();
  }
  // The entry is initialized and clean; shadow and hardware hold these values.
  void entryIs(const ChipMemory::Ptr& cm, U32 entry, U32 expected, U32 actual) {
    wordIs(cm->shadow(), entry, expected);
    cm->entryInitializedIs(entry);
    wordIs(cm->hardware(), entry, actual);
  }

  ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
};

// --- The beginning of a pass --------------------------------------------------------------------

TEST_F(HardwareShadowAudit, doStartAudit_clearsDirtyNotesTheTimeAndStartsTheRequest) {
  auditing({mac});
  mac->doClear();
  loop.turnAt(12.5);
  EXPECT_TRUE(marked(mac->dirty()).empty()) << "spare bits as well";
  EXPECT_EQ(shadow->lastAuditStartTime(), 12.5);
  EXPECT_EQ(shadow->auditReadRequest()->state(), ChipReadRequest::start_);
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text, "HardwareShadow::doStartAudit");
  EXPECT_EQ(trace.full[0].level, 0u);
  EXPECT_EQ(trace.full[0].source, "Hardware/Umbra");
  EXPECT_EQ(trace.full[0].function, "doStartAudit");
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(HardwareShadowAudit, doStartAudit_outsideOfAuditingOrUnderOverrideHardwareDoesNothing) {
  configure({mac});
  write(mac, 3, 1);
  trace.full.clear();
  shadow->doStartAudit();
  shadow->stateIs(HardwareShadow::auditing());
  shadow->overrideHardwareIs(true);
  trace.full.clear();
  shadow->doStartAudit();
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(marked(mac->dirty()), Entries{3});
  EXPECT_NE(shadow->auditReadRequest()->state(), ChipReadRequest::start_);
}

TEST_F(HardwareShadowAudit, doStartAudit_needsTheDirtyBufferOfAShadowedRegionOnly) {
  const ChipMemory::Ptr plain = region("plain", 0x2000, 4), gone = audited("gone", 0x3000, 4);
  plain->auditEnabledIs(true);
  auditing({mac, plain, gone});
  gone->modeIs(ChipMemory::override());
  shadow->doStartAudit();
  mac->dirtyIs(nullptr);
  EXPECT_ASSERTION(shadow->doStartAudit(), 0, "void Hardware::HardwareShadow::doStartAudit()",
                   "dirty");
}

TEST_F(HardwareShadowAudit, doStartAudit_clearsAlsoWhereTheRegionsAuditWasSwitchedOff) {
  auditing({mac});
  write(mac, 3, 1);
  mac->auditEnabledIs(false);
  passBegun();
  EXPECT_TRUE(marked(mac->dirty()).empty());
}

// --- The answer of the request ------------------------------------------------------------------

TEST_F(HardwareShadowAudit, statusDoneComparesAndOtherAnswersAreOnlyTraced) {
  auditing({mac});
  passBegun();
  answered(Zint::Request::none_);
  EXPECT_EQ(shadow->audits(), 0u);
  answered(Zint::Request::done_);
  EXPECT_EQ(shadow->audits(), 1u);
  EXPECT_EQ(trace.full[0].function, "handleAuditReadRequestStatus");
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::handleAuditReadRequestStatus 0"},
                                  {0, "HardwareShadow::handleAuditReadRequestStatus 3"},
                                  {0, "HardwareShadow::doAuditChips"}}));
}

TEST_F(HardwareShadowAudit, statusDoneOverDoneComparesAgain) {
  auditing({mac});
  answered(Zint::Request::done_);
  answered(Zint::Request::done_);
  EXPECT_EQ(shadow->audits(), 2u);
}

TEST_F(HardwareShadowAudit, statusFailedIsFatal) {
  auditing({mac});
  EXPECT_ASSERTION(answered(Zint::Request::failed_), 0,
                   "void Hardware::HardwareShadow::handleAuditReadRequestStatus()", "false");
}

TEST_F(HardwareShadowAudit, statusOutsideOfAuditingIsIgnoredWithoutTrace) {
  configure({mac});
  answered(Zint::Request::done_);
  answered(Zint::Request::failed_);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(shadow->audits(), 0u);
}

// --- The comparison -----------------------------------------------------------------------------

TEST_F(HardwareShadowAudit, equalRegionGivesNothingButTheLineOfThePass) {
  auditing({mac});
  entryIs(mac, 3, 7, 7);
  pass();
  EXPECT_EQ(trace.full[0].function, "doAuditChips");
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::doAuditChips"}}));
  EXPECT_TRUE(chip->log.empty());
  EXPECT_EQ(mac->registersFixed(), 0u);
}

TEST_F(HardwareShadowAudit, uninitializedEntryTakesTheHardwaresValue) {
  auditing({mac});
  wordIs(mac->hardware(), 5, 0xcafe);
  pass();
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::doAuditChips"},
                                  {8, "Difference found in uninitialized entry 5 of memory mac"}}));
  EXPECT_EQ(word(mac->shadow(), 5), 0xcafeu);
  EXPECT_EQ(marked(mac->initialized()), Entries{5});
  EXPECT_TRUE(marked(mac->dirty()).empty());
  EXPECT_EQ(mac->registersFixed(), 0u);
  EXPECT_TRUE(chip->log.empty());
  EXPECT_TRUE(Mirl::theTraceFile.records(0).empty());
  EXPECT_TRUE(Mirl::theTraceFile.records(8).empty());
}

TEST_F(HardwareShadowAudit, uninitializedEntryWhoseAdoptionIsRefusedStaysUninitialized) {
  ham = scripted;
  const ChipMemory::Ptr odd = audited("odd", 0x5000, 4);
  auditing({odd});
  wordIs(odd->hardware(), 2, 9);
  scripted->refuses = true;
  pass();
  EXPECT_EQ(scripted->cachedSizes, Entries{4});
  EXPECT_TRUE(marked(odd->initialized()).empty());
  EXPECT_TRUE(scripted->log.empty());
}

TEST_F(HardwareShadowAudit, entryWrittenSinceThePassBeganIsLeftAlone) {
  auditing({mac});
  pass([&] { write(mac, 10, 5); });
  EXPECT_EQ(trace.taken(),
            (Lines{{0, "HardwareShadow::doAuditChips"},
                   {8, "Difference found in entry 10 but it was written since the audit began"}}));
  const auto records = Mirl::theTraceFile.records(8);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].arguments, (std::vector<Argument>{Number{10, 4}}));
  EXPECT_TRUE(Mirl::theTraceFile.records(0).empty());
  EXPECT_TRUE(chip->log.empty());
  EXPECT_EQ(marked(mac->dirty()), Entries{10}) << "until the next pass begins";
}

TEST_F(HardwareShadowAudit, realDifferenceIsReportedAndRepaired) {
  auditing({mac});
  entryIs(mac, 11, 0x80001f00, 0x80001fa5);
  loop.clock->timeIs(4.5);
  pass();
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::doAuditChips"},
                                  {0, "Difference found in entry 11 of memory mac"},
                                  {0, "Expected: x00x1Fx00x80 Actual: xA5x1Fx00x80"}}));
  EXPECT_EQ(chip->taken(), (std::vector<Access>{{Access::write, 0x102c, 0x80001f00}}));
  EXPECT_EQ(mac->registersFixed(), 1u);
  EXPECT_EQ(mac->lastFixTime(), 4.5);
  EXPECT_EQ(word(mac->hardware(), 11), 0x80001fa5u) << "until the next read";
  EXPECT_EQ(word(mac->shadow(), 11), 0x80001f00u);
  EXPECT_TRUE(marked(mac->dirty()).empty());
}

TEST_F(HardwareShadowAudit, realDifferenceIsRecordedByEntryByteAndDump) {
  const ChipMemory::Ptr wide = audited("wide", 0x5000, 2, 8);
  auditing({wide});
  wordIs(wide->shadow(), 2, 0x04030201);
  wordIs(wide->hardware(), 2, 0x040302ff);
  wordIs(wide->shadow(), 3, 0xee000000);
  wide->entryInitializedIs(1);
  pass();
  const auto records = Mirl::theTraceFile.records(0);
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].arguments, (std::vector<Argument>{Number{1, 4}, Zint::String8("wide")}));
  EXPECT_EQ(records[1].arguments,
            (std::vector<Argument>{Number{0, 4}, Number{0x01, 1}, Number{0xff, 1}}));
  EXPECT_EQ(records[1].text, "Byte 0 expected 1 actual ff");
  EXPECT_EQ(records[2].arguments,
            (std::vector<Argument>{Number{7, 4}, Number{0xee, 1}, Number{0x00, 1}}));
  EXPECT_EQ(records[3].arguments,
            (std::vector<Argument>{Zint::String8("x01x02x03x04x00x00x00xEE"),
                                   Zint::String8("xFFx02x03x04x00x00x00x00")}));
  EXPECT_TRUE(Mirl::theTraceFile.records(8).empty());
}

TEST_F(HardwareShadowAudit, bufferedRegionIsComparedLikeAnyOther) {
  mac->modeIs(ChipMemory::buffered());
  auditing({mac});
  write(mac, 2, 0x99);
  pass();
  EXPECT_EQ(chip->taken(), (std::vector<Access>{{Access::write, 0x1008, 0x99}}));
  EXPECT_EQ(mac->registersFixed(), 1u);
}

TEST_F(HardwareShadowAudit, sparseRegionStepsByTheStrideOnTheChipOnly) {
  const ChipMemory::Ptr sparse = audited("sparse", 0x4000, 4, 4, 64);
  auditing({sparse});
  entryIs(sparse, 3, 1, 2);
  pass();
  EXPECT_EQ(chip->taken(), (std::vector<Access>{{Access::write, 0x40c0, 1}}));
}

TEST_F(HardwareShadowAudit, regionOfNoEntriesIsVisitedWithoutEffect) {
  const ChipMemory::Ptr empty = audited("empty", 0x5000, 0);
  auditing({empty});
  pass();
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::doAuditChips"}}));
  EXPECT_EQ(shadow->audits(), 1u);
}

TEST_F(HardwareShadowAudit, accessMethodSaysWhatIsEqual) {
  ham = scripted;
  scripted->callsEverythingEqual = true;
  const ChipMemory::Ptr odd = audited("odd", 0x5000, 4);
  auditing({odd});
  entryIs(odd, 1, 1, 2);
  wordIs(odd->hardware(), 2, 7);
  pass();
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::doAuditChips"}}));
  EXPECT_TRUE(scripted->log.empty());
}

TEST_F(HardwareShadowAudit, accessMethodIsGivenTheShadowsEntryThenTheHardwaresAndTheEntrySize) {
  struct Compared {
    U8* a;
    U8* b;
    U32 bytes;
    bool operator==(const Compared&) const = default;
  };
  struct ComparingHam : Support::RecordingHam {
    bool doCompare(U8* a, U8* b, U32 bytes) const override {
      compared.push_back({a, b, bytes});
      return RecordingHam::doCompare(a, b, bytes);
    }
    mutable std::vector<Compared> compared;
  };
  const auto comparing = Zint::makePtr<ComparingHam>();
  ham = comparing;
  const ChipMemory::Ptr cm = audited("cm", 0x5000, 2);
  auditing({cm});
  pass();
  EXPECT_EQ(comparing->compared,
            (std::vector<Compared>{{cm->shadow()->data(), cm->hardware()->data(), 4},
                                   {cm->shadow()->data() + 4, cm->hardware()->data() + 4, 4}}));
}

TEST_F(HardwareShadowAudit, memberIsSkippedWithoutShadowInOverrideOrWithoutAudit) {
  const ChipMemory::Ptr a = audited("a", 0x2000, 2), b = audited("b", 0x3000, 2),
                        c = audited("c", 0x4000, 2);
  auditing({a, b, c});
  passBegun();
  for (const ChipMemory::Ptr& cm : {a, b, c}) entryIs(cm, 0, 1, 2);
  a->shadowEnabledIs(false);
  b->modeIs(ChipMemory::override());
  c->auditEnabledIs(false);
  trace.full.clear();
  shadow->doAuditChips();
  EXPECT_EQ(trace.taken(), (Lines{{0, "HardwareShadow::doAuditChips"}}));
  EXPECT_EQ(shadow->audits(), 1u);
}

TEST_F(HardwareShadowAudit, missingBuffersAreFatalInTheirOrder) {
  constexpr const char* function = "void Hardware::HardwareShadow::doAuditChips()";
  auditing({mac});
  const Zint::Ptr<Hal::Buf> hardware = mac->hardware();
  const Hal::BufBase::Ptr store = mac->shadow(), dirty = mac->dirty();
  mac->hardwareIs(nullptr);
  mac->shadowIs(nullptr);
  mac->dirtyIs(nullptr);
  mac->initializedIs(nullptr);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "hardwareBuf");
  mac->hardwareIs(hardware);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "shadowBuf");
  mac->shadowIs(store);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "dirtyBuf");
  mac->dirtyIs(dirty);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "initializedBuf");
}

TEST_F(HardwareShadowAudit, hardwareBufferSmallerThanTheEntriesIsFatalAndNamesTheRegion) {
  auditing({mac});
  mac->entriesIs(17);
  EXPECT_REGION_ASSERTION(shadow->doAuditChips(), "mac");
}

TEST_F(HardwareShadowAudit, aRegionWithoutAccessMethodIsFatalAndNamesTheRegion) {
  ham = nullptr;
  auditing({audited("bare", 0x2000, 4)});
  EXPECT_REGION_ASSERTION(shadow->doAuditChips(), "bare");
}

// --- The end of a pass --------------------------------------------------------------------------

TEST_F(HardwareShadowAudit, nextPassIsArmedFromTheStartOfTheLast) {
  shadow->minIntervalBetweenAuditsIs(10);
  auditing({mac});
  loop.turnAt(3);
  loop.clock->timeIs(5);
  answered(Zint::Request::done_);
  EXPECT_EQ(loop.activity->wakeTime(), 13.0);
  EXPECT_EQ(shadow->state(), HardwareShadow::auditing());
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 16u);
  EXPECT_EQ(loop.turnAt(12), 0u);
  EXPECT_EQ(loop.turnAt(14), 1u);
  EXPECT_EQ(shadow->lastAuditStartTime(), 14.0);
}

TEST_F(HardwareShadowAudit, passThatTookLongerThanTheIntervalIsFollowedAtOnce) {
  shadow->minIntervalBetweenAuditsIs(1);
  auditing({mac});
  loop.turnAt(3);
  loop.clock->timeIs(9);
  answered(Zint::Request::done_);
  EXPECT_EQ(loop.turn(), 1u);
  EXPECT_EQ(shadow->lastAuditStartTime(), 9.0);
}

TEST_F(HardwareShadowAudit, auditsCountsPassesThatEndedNotThoseThatBegan) {
  auditing({mac});
  passBegun();
  shadow->stateIs(HardwareShadow::idle());
  shadow->stateIs(HardwareShadow::auditing());
  passBegun();
  EXPECT_EQ(shadow->audits(), 0u);
  answered(Zint::Request::done_);
  EXPECT_EQ(shadow->audits(), 1u);
}

// --- The repair ---------------------------------------------------------------------------------

TEST_F(HardwareShadowAudit, doFixBadRegister_addressCarriesIntoTheHighWord) {
  ham = scripted;
  const ChipMemory::Ptr far = audited("far", 0x1fffffff0, 4, 8, 16);
  U8 data[8] = {};
  shadow->doFixBadRegister(far, 3, data);
  EXPECT_EQ(scripted->taken(), (std::vector<HamAccess>{{HamAccess::write, 0x200000020, 8, 1}}));
}

TEST_F(HardwareShadowAudit, doFixBadRegister_distanceIsA32BitProduct) {
  ham = scripted;
  const ChipMemory::Ptr far = audited("far", 0x100000000, 4, 4, 0x80000000);
  U8 data[4] = {};
  shadow->doFixBadRegister(far, 3, data);
  EXPECT_EQ(scripted->taken(), (std::vector<HamAccess>{{HamAccess::write, 0x180000000, 4, 1}}));
}

TEST_F(HardwareShadowAudit, doFixBadRegister_countsBeforeItWrites) {
  ham = scripted;
  const ChipMemory::Ptr odd = audited("odd", 0x5000, 4);
  loop.clock->timeIs(8);
  U32 fixed = 0;
  Zint::Seconds time = 0;
  scripted->onAccess = [&](const HamAccess&, U8*) {
    fixed = odd->registersFixed();
    time = odd->lastFixTime();
  };
  U8 data[4] = {};
  shadow->doFixBadRegister(odd, 0, data);
  EXPECT_EQ(fixed, 1u);
  EXPECT_EQ(time, 8.0);
}

}  // namespace
