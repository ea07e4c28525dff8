// One audit pass, entry by entry, and what is recorded of a difference.
#include <Hardware/ChipReader.h>
#include <Mirl/Mirl.h>

#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;
using Hardware::ChipReader;
using Hardware::HardwareShadow;

class AuditRules : public ShadowTest {
 protected:
  void start(const std::vector<ChipMemory::Ptr>& regions, U32 maxEntriesPerRead = 100000) {
    configure(regions);
    reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock,
                                         maxEntriesPerRead, 0.25);
    shadow->minIntervalBetweenAuditsIs(10);
    shadow->stateIs(HardwareShadow::auditing());
    loop.turn();
    trace.taken();
    Mirl::theTraceFile.clear();
  }
  ChipMemory::Ptr scriptedRegion(U32 entries, U32 entrySize, U32 stride = 0) {
    const ChipMemory::Ptr cm = Hardware::chipMemoryFactory(
        "cm", ChipAddress(0x1000), entries, entrySize, stride == 0 ? entrySize : stride, scripted);
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    return cm;
  }
  static std::vector<std::string> texts(U32 level) {
    std::vector<std::string> texts;
    for (const Mirl::Record& record : Mirl::theTraceFile.records(level)) {
      texts.push_back(record.text.bytes());
    }
    return texts;
  }
  Hardware::ChipReader::Ptr reader;
};

TEST_F(AuditRules, equal_producesThePassAlone) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  cm->doClear();
  start({cm});
  loop.turn();
  const Lines lines = trace.taken();
  EXPECT_EQ((Line{0, "HardwareShadow::handleAuditReadRequestStatus 3"}), lines[lines.size() - 2]);
  EXPECT_EQ((Line{0, "HardwareShadow::doAuditChips"}), lines.back());
  EXPECT_EQ(1u, shadow->audits());
  EXPECT_EQ(0u, cm->registersFixed());
}

TEST_F(AuditRules, difference_isReportedAndRepairedAtItsStride) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4, 0x20);
  cm->doClear();
  wordIs(cm->shadow(), 2, 0x00801F00);
  start({cm});
  loop.clock->timeIs(3);
  loop.turn();
  EXPECT_EQ(1u, cm->registersFixed());
  EXPECT_EQ(3.0, cm->lastFixTime());
  EXPECT_EQ((HamAccess{HamAccess::write, 0x1040, 4, 1}), scripted->log.back());
  const Lines lines = trace.taken();
  EXPECT_EQ((Line{0, "Difference found in entry 2 of memory cm"}), lines[lines.size() - 2]);
  EXPECT_EQ((Line{0, "Expected: x00x1Fx80x00 Actual: x00x00x00x00"}), lines.back());
  const std::vector<std::string> records = texts(0);
  ASSERT_EQ(4u, records.size());  // the difference, two bytes, both texts
  EXPECT_NE(std::string::npos, records[0].find("cm"));
  EXPECT_NE(std::string::npos, records[1].find("Byte 1 expected "));
  EXPECT_NE(std::string::npos, records[2].find("Byte 2 expected "));
  EXPECT_NE(std::string::npos, records[3].find("x00x1Fx80x00"));
}

TEST_F(AuditRules, difference_byteRecordsCarryTheValuesInTheirSizes) {
  const ChipMemory::Ptr cm = scriptedRegion(1, 4);
  cm->doClear();
  wordIs(cm->shadow(), 0, 0xFF000000);
  start({cm});
  loop.turn();
  const auto records = Mirl::theTraceFile.records(0);
  ASSERT_EQ(3u, records.size());
  std::vector<Mirl::Number> numbers;
  for (const Mirl::Argument& argument : records[1].arguments) {
    if (const auto* number = std::get_if<Mirl::Number>(&argument)) numbers.push_back(*number);
  }
  EXPECT_EQ((std::vector<Mirl::Number>{{3, 4}, {0xFF, 1}, {0, 1}}), numbers);
}

TEST_F(AuditRules, difference_bothTextsAreWholeUpToEntriesOfFourKilobytes) {
  for (U32 bytes : {64u, 110u, 111u, 330u, 700u, 4096u}) {
    shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
    const ChipMemory::Ptr cm = scriptedRegion(1, bytes);
    cm->doClear();
    cm->shadow()->data()[bytes - 1] = 0xAB;
    start({cm});
    loop.turn();
    std::string expected, actual;
    for (U32 i = 0; i < bytes; ++i) {
      expected += i == bytes - 1 ? "xAB" : "x00";
      actual += "x00";
    }
    EXPECT_EQ((Line{0, "Expected: " + expected + " Actual: " + actual}), trace.taken().back())
        << bytes;
    const auto records = Mirl::theTraceFile.records(0);
    ASSERT_FALSE(records.empty());
    const Mirl::Record& last = records.back();
    ASSERT_EQ(2u, last.arguments.size()) << bytes;
    EXPECT_EQ(expected, std::get<Zint::String8>(last.arguments[0]).bytes());
    EXPECT_EQ(actual, std::get<Zint::String8>(last.arguments[1]).bytes());
    EXPECT_EQ(std::string::npos, last.text.bytes().find("%s"));
    EXPECT_EQ(std::string::npos, last.text.bytes().find("[cut]"));
  }
}

TEST_F(AuditRules, difference_recordBeyondFourKilobytesSaysThatItIsCut) {
  const ChipMemory::Ptr cm = scriptedRegion(1, 8192);
  cm->doClear();
  cm->shadow()->data()[0] = 1;
  start({cm});
  loop.turn();
  const std::string text = texts(0).back();
  EXPECT_EQ(std::string::npos, text.find("%s"));
  EXPECT_TRUE(text.find("[cut]") != std::string::npos ||
              text.find("[left out]") != std::string::npos);
}

TEST_F(AuditRules, unknownEntry_isAdoptedAndNeitherWrittenNorCounted) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  scripted->contents = 0x5A;
  start({cm});
  loop.turn();
  EXPECT_EQ(0x5A5A5A5Au, word(cm->shadow(), 3));
  EXPECT_EQ((Entries{0, 1, 2, 3}), marked(cm->initialized()));
  EXPECT_EQ(Entries{}, marked(cm->dirty()));
  EXPECT_EQ(0u, cm->registersFixed());
  EXPECT_EQ((Line{8, "Difference found in uninitialized entry 3 of memory cm"}),
            trace.taken().back());
  EXPECT_TRUE(texts(8).empty());
  for (const HamAccess& access : scripted->log) EXPECT_EQ(HamAccess::read, access.kind);
}

TEST_F(AuditRules, unknownEntry_equalToTheChipStaysUnknown) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  start({cm});
  loop.turn();
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
}

TEST_F(AuditRules, unknownEntry_thatTheAccessMethodRefusesStaysUnknown) {
  const ChipMemory::Ptr cm = scriptedRegion(2, 4);
  scripted->contents = 0x5A;
  scripted->refuses = true;
  start({cm});
  loop.turn();
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
  EXPECT_EQ(1u, shadow->audits());
}

TEST_F(AuditRules, writtenEntry_isReportedAtLevelEightAlone) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  cm->doClear();
  start({cm});
  EXPECT_EQ(Entries{}, marked(cm->dirty()));
  EXPECT_FALSE(write(cm, 1, 7));
  trace.taken();
  loop.turn();
  EXPECT_EQ((Line{8, "Difference found in entry 1 but it was written since the audit began"}),
            trace.taken().back());
  EXPECT_EQ(1u, texts(8).size());
  EXPECT_EQ(0u, cm->registersFixed());
  EXPECT_EQ((Entries{1}), marked(cm->dirty()));
  loop.turnAt(10);  // the next pass
  loop.turn();
  EXPECT_EQ(1u, cm->registersFixed());
}

TEST_F(AuditRules, compare_isTheAccessMethodsAnswer) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  cm->doClear();
  scripted->contents = 0xFF;
  scripted->callsEverythingEqual = true;
  start({cm});
  loop.turn();
  EXPECT_EQ(0u, cm->registersFixed());
  EXPECT_EQ(0u, word(cm->shadow(), 0));
}

TEST_F(AuditRules, regionWithoutAShadow_isReadAndSkipped) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  cm->shadowEnabledIs(false);
  scripted->contents = 0xFF;
  start({cm});
  loop.turn();
  EXPECT_EQ(1u, shadow->audits());
  EXPECT_EQ(0xFF, cm->hardware()->data()[15]);
}

TEST_F(AuditRules, missingBuffers_areFatalInTheirOrder) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  cm->doClear();
  start({cm});
  const std::string function = "void Hardware::HardwareShadow::doAuditChips()";
  cm->initializedIs(nullptr);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "initializedBuf");
  cm->dirtyIs(nullptr);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "dirtyBuf");
  cm->shadowIs(nullptr);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "shadowBuf");
  cm->hardwareIs(nullptr);
  EXPECT_ASSERTION(shadow->doAuditChips(), 0, function, "hardwareBuf");
  EXPECT_ASSERTION(shadow->doStartAudit(), 0, "void Hardware::HardwareShadow::doStartAudit()",
                   "dirty");
}

TEST_F(AuditRules, status_isIgnoredUnlessAuditing) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  configure({cm});
  shadow->auditReadRequest()->statusIs(Zint::Request::done_);
  shadow->auditReadRequest()->statusIs(Zint::Request::failed_);
  EXPECT_EQ(Lines{}, trace.taken());
  EXPECT_EQ(0u, shadow->audits());
}

TEST_F(AuditRules, status_failureIsFatalAndOthersAreTracedOnly) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  start({cm});
  EXPECT_ASSERTION(shadow->auditReadRequest()->statusIs(Zint::Request::failed_), 0,
                   "void Hardware::HardwareShadow::handleAuditReadRequestStatus()", "false");
  shadow->auditReadRequest()->statusIs(static_cast<Zint::Request::Status>(1));
  EXPECT_EQ((Lines{{0, "HardwareShadow::handleAuditReadRequestStatus 1"}}), trace.taken());
}

TEST_F(AuditRules, nextPass_isMeasuredFromStartToStart) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  start({cm}, 1);  // four ticks, 0.25 s apart
  for (int i = 0; i < 4; ++i) loop.turnAt(i * 0.25);
  EXPECT_EQ(1u, shadow->audits());
  EXPECT_EQ(10.0, loop.activity->wakeTime());
  EXPECT_EQ(0u, loop.turnAt(9.99));
  EXPECT_EQ(1u, loop.turnAt(10));
  EXPECT_EQ(10.0, shadow->lastAuditStartTime());
}

TEST_F(AuditRules, nextPass_followsAtOnceWhereTheReadTookLonger) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  start({cm}, 1);
  shadow->minIntervalBetweenAuditsIs(0.5);
  for (int i = 0; i < 4; ++i) loop.turnAt(i * 0.25);
  EXPECT_EQ(1u, loop.turn());
  EXPECT_EQ(0.75, shadow->lastAuditStartTime());
}

TEST_F(AuditRules, doFixBadRegister_carriesIntoTheHighWord) {
  const ChipMemory::Ptr cm =
      Hardware::chipMemoryFactory("cm", ChipAddress(0xFFFFFFF0), 4, 4, 8, scripted);
  U8 data[4] = {1, 2, 3, 4};
  loop.clock->timeIs(4);
  shadow->doFixBadRegister(cm, 3, data);
  EXPECT_EQ((std::vector{HamAccess{HamAccess::write, 0x100000008, 4, 1}}), scripted->log);
  EXPECT_EQ(1u, cm->registersFixed());
  EXPECT_EQ(nullptr, cm->shadow());
}

TEST_F(AuditRules, chipMemoryAuditEnabledIs_movesTheRegionAndItsEntries) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4), other = audited("other", 0x9000, 8);
  configure({cm, other});
  shadow->chipMemoryAuditEnabledIs(cm, false);
  EXPECT_EQ(8u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_EQ(1u, shadow->auditReadRequest()->chipMemorys());
  shadow->chipMemoryAuditEnabledIs(cm, false);
  EXPECT_EQ(8u, shadow->chipMemoryEntriesUnderAudit());
  shadow->chipMemoryAuditEnabledIs(cm, true);
  EXPECT_EQ(12u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_TRUE(cm->auditEnabled());
}

TEST_F(AuditRules, chipMemoryAuditEnabledIs_inOverrideModeChangesTheFlagAlone) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  configure({cm});
  cm->modeIs(ChipMemory::override());
  shadow->chipMemoryAuditEnabledIs(cm, false);
  EXPECT_FALSE(cm->auditEnabled());
  EXPECT_EQ(4u, shadow->chipMemoryEntriesUnderAudit());
  EXPECT_EQ(1u, shadow->auditReadRequest()->chipMemorys());
}

TEST_F(AuditRules, chipMemoryAuditEnabledIs_outsideIdleIsFatalAndNullIsRefused) {
  const ChipMemory::Ptr cm = scriptedRegion(4, 4);
  EXPECT_ASSERTION(shadow->chipMemoryAuditEnabledIs(cm, true), 0,
                   "void Hardware::HardwareShadow::chipMemoryAuditEnabledIs(const "
                   "Hardware::ChipMemory::Ptr&, bool)",
                   "state_ == idle_");
  configure({cm});
  EXPECT_THROW(shadow->chipMemoryAuditEnabledIs(nullptr, true), Zint::RangeException);
}

}  // namespace
