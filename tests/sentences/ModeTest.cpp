// What a change of an attribute does to a region's buffers and to the chip.
#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;

class ModeRules : public ShadowTest {
 protected:
  ChipMemory::Ptr stored(U32 entries) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("cm", ChipAddress(0x1000), entries, 4, 0x10, recorder);
    cm->shadowEnabledIs(true);
    return cm;
  }
  void fill(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    wordIs(cm->shadow(), entry, value);
    cm->entryInitializedIs(entry);
  }
  static HamAccess written(U64 address, U32 entries = 1) {
    return {HamAccess::write, address, 4, entries};
  }
  static Lines writebackLines() {
    return {{0, "cm: Init done - writing back all shadows"},
            {0, "cm: writing back initialzedOnly=0"}};
  }

  const Zint::Ptr<RecordingHam> recorder = Zint::makePtr<RecordingHam>();
};

TEST_F(ModeRules, entriesIs_newValueDropsContentsAndMarks) {
  const ChipMemory::Ptr cm = stored(10);
  fill(cm, 3, 7);
  const Hal::Buf::Ptr hardware = cm->hardware();
  cm->entriesIs(20);
  EXPECT_EQ(80u, cm->shadow()->size());
  EXPECT_EQ(3u, cm->initialized()->size());
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
  EXPECT_EQ(Entries{}, marked(cm->shadow()));
  EXPECT_EQ(hardware, cm->hardware());
  EXPECT_EQ(40u, cm->hardware()->size());
}

TEST_F(ModeRules, entriesIs_sameValueKeepsTheStore) {
  const ChipMemory::Ptr cm = stored(10);
  fill(cm, 3, 7);
  const Hal::BufBase::Ptr before = cm->shadow();
  cm->entriesIs(10);
  EXPECT_EQ(before, cm->shadow());
  EXPECT_EQ((Entries{3}), marked(cm->initialized()));
}

TEST_F(ModeRules, shadowEnabledIs_falseReleasesTheStoreOnly) {
  const ChipMemory::Ptr cm = stored(4);
  cm->shadowEnabledIs(false);
  EXPECT_EQ(nullptr, cm->shadow());
  EXPECT_EQ(nullptr, cm->dirty());
  EXPECT_EQ(nullptr, cm->initialized());
  EXPECT_NE(nullptr, cm->hardware());
}

TEST_F(ModeRules, modeIs_bufferedMakesTheStoreAfreshAndWritesNothing) {
  const ChipMemory::Ptr cm = stored(4);
  fill(cm, 1, 9);
  trace.taken();
  cm->modeIs(ChipMemory::buffered());
  EXPECT_EQ(Entries{}, marked(cm->shadow()));
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
  EXPECT_EQ(0u, recorder->log.size());
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(ModeRules, modeIs_normalWritesTheWholeShadowInOneAccessThenStartsEmpty) {
  const ChipMemory::Ptr cm = stored(4);
  cm->modeIs(ChipMemory::buffered());
  fill(cm, 2, 0x1234);
  U32 sent = 0;
  recorder->onAccess = [&](const HamAccess&, U8* buffer) {
    std::memcpy(&sent, buffer + 8, 4);
    EXPECT_EQ(ChipMemory::normal(), cm->mode());
    EXPECT_EQ((Entries{2}), marked(cm->initialized()));
  };
  trace.taken();
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ((std::vector{written(0x1000, 4)}), recorder->log);
  EXPECT_EQ(0x1234u, sent);
  EXPECT_EQ(Entries{}, marked(cm->shadow()));
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
  EXPECT_EQ(writebackLines(), trace.taken());
}

TEST_F(ModeRules, modeIs_normalWithoutAShadowTracesAndWritesNothing) {
  const ChipMemory::Ptr cm = stored(4);
  cm->shadowEnabledIs(false);
  cm->modeIs(ChipMemory::buffered());
  trace.taken();
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ(writebackLines(), trace.taken());
  EXPECT_EQ(0u, recorder->log.size());
}

TEST_F(ModeRules, modeIs_fromOverrideToNormalHasNothingToWriteBack) {
  const ChipMemory::Ptr cm = stored(4);
  cm->modeIs(ChipMemory::override());
  EXPECT_EQ(nullptr, cm->shadow());
  trace.taken();
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ(writebackLines(), trace.taken());
  EXPECT_EQ(0u, recorder->log.size());
  EXPECT_NE(nullptr, cm->shadow());
}

TEST_F(ModeRules, modeIs_normalAgainIsSilent) {
  const ChipMemory::Ptr cm = stored(4);
  fill(cm, 1, 9);
  trace.taken();
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ(Lines{}, trace.taken());
  EXPECT_EQ((Entries{1}), marked(cm->initialized()));
}

TEST_F(ModeRules, modeIs_failedWriteBackKeepsTheModeAndTheOldStore) {
  const ChipMemory::Ptr cm = stored(4);
  cm->modeIs(ChipMemory::buffered());
  fill(cm, 2, 5);
  recorder->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  EXPECT_THROW(cm->modeIs(ChipMemory::normal()), std::runtime_error);
  EXPECT_EQ(ChipMemory::normal(), cm->mode());
  EXPECT_EQ((Entries{2}), marked(cm->initialized()));
  EXPECT_EQ(5u, word(cm->shadow(), 2));
}

TEST_F(ModeRules, modeIs_traceLinesHaveTheirLinesAndFunctions) {
  const ChipMemory::Ptr cm = stored(4);
  cm->modeIs(ChipMemory::buffered());
  trace.full.clear();
  cm->modeIs(ChipMemory::normal());
  cm->writeback(true);
  ASSERT_EQ(4u, trace.full.size());
  EXPECT_EQ(255, trace.full[0].line);
  EXPECT_EQ("handleMode", trace.full[0].function);
  EXPECT_EQ(205, trace.full[1].line);
  EXPECT_EQ("writeback", trace.full[1].function);
  EXPECT_EQ(220, trace.full[3].line);
  EXPECT_EQ("Hardware/Umbra", trace.full[3].source);
}

TEST_F(ModeRules, writeback_initializedOnlyWritesThoseEntriesOneByOne) {
  const ChipMemory::Ptr cm = stored(10);
  fill(cm, 3, 1);
  fill(cm, 7, 2);
  cm->dirty()->data()[0] = 0xFF;
  trace.taken();
  cm->writeback(true);
  EXPECT_EQ((std::vector{written(0x1030), written(0x1070)}), recorder->log);
  EXPECT_EQ((Lines{{0, "cm: writing back initialzedOnly=1"}, {9, "cm: wrote back 2 entries"}}),
            trace.taken());
  EXPECT_EQ((Entries{3, 7}), marked(cm->initialized()));
  EXPECT_EQ(0xFF, cm->dirty()->data()[0]);
}

TEST_F(ModeRules, writeback_spareBitsAreNoEntries) {
  const ChipMemory::Ptr cm = stored(4);
  cm->doClear();
  cm->writeback(true);
  EXPECT_EQ(4u, recorder->log.size());
}

TEST_F(ModeRules, writeback_ofNoEntriesCountsNone) {
  const ChipMemory::Ptr cm = stored(0);
  trace.taken();
  cm->writeback(true);
  EXPECT_EQ(0u, recorder->log.size());
  EXPECT_EQ((Lines{{0, "cm: writing back initialzedOnly=1"}, {9, "cm: wrote back 0 entries"}}),
            trace.taken());
  cm->writeback(false);
  EXPECT_EQ((std::vector{written(0x1000, 0)}), recorder->log);
}

TEST_F(ModeRules, writeback_inOverrideModeOnlyAnnouncesItself) {
  const ChipMemory::Ptr cm = stored(4);
  cm->modeIs(ChipMemory::override());
  trace.taken();
  cm->writeback(false);
  cm->writeback(true);
  EXPECT_EQ(
      (Lines{{0, "cm: writing back initialzedOnly=0"}, {0, "cm: writing back initialzedOnly=1"}}),
      trace.taken());
  EXPECT_EQ(0u, recorder->log.size());
}

TEST_F(ModeRules, writeback_inOverrideModeIgnoresABufferThatAClientInstalled) {
  const ChipMemory::Ptr cm = stored(4);
  const Hal::BufBase::Ptr buffer = cm->shadow();
  cm->modeIs(ChipMemory::override());
  cm->shadowIs(buffer);
  cm->writeback(false);
  EXPECT_EQ(0u, recorder->log.size());
}

TEST_F(ModeRules, auditEnabledIs_trueInOverrideModeIsFatal) {
  const ChipMemory::Ptr cm = stored(4);
  cm->modeIs(ChipMemory::override());
  EXPECT_ASSERTION(cm->auditEnabledIs(true), 233, "void Hardware::ChipMemory::handleAuditEnabled()",
                   "!auditEnabled() || (mode() != override())");
}

TEST_F(ModeRules, auditEnabledIs_enteringOverrideIsNotCheckedAndSwitchingOffPasses) {
  const ChipMemory::Ptr cm = stored(4);
  cm->auditEnabledIs(true);
  cm->modeIs(ChipMemory::override());
  EXPECT_TRUE(cm->auditEnabled());
  cm->auditEnabledIs(true);  // no change, no check
  cm->auditEnabledIs(false);
  EXPECT_FALSE(cm->auditEnabled());
}

TEST_F(ModeRules, auditEnabledIs_everyChangeMakesAnAbsentHardwareBuffer) {
  const ChipMemory::Ptr cm = stored(4);
  cm->hardwareIs(nullptr);
  cm->auditEnabledIs(true);
  ASSERT_NE(nullptr, cm->hardware());
  EXPECT_EQ(16u, cm->hardware()->size());
  cm->hardwareIs(nullptr);
  cm->entriesIs(6);
  EXPECT_EQ(nullptr, cm->hardware());
  cm->auditEnabledIs(false);
  ASSERT_NE(nullptr, cm->hardware());
  EXPECT_EQ(24u, cm->hardware()->size());
}

TEST_F(ModeRules, auditEnabledIs_inOverrideModeMakesNoHardwareBuffer) {
  const ChipMemory::Ptr cm = stored(4);
  cm->auditEnabledIs(true);
  cm->modeIs(ChipMemory::override());
  cm->hardwareIs(nullptr);
  cm->auditEnabledIs(false);
  EXPECT_EQ(nullptr, cm->hardware());
}

}  // namespace
