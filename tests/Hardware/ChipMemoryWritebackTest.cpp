// The write-back of a region's shadow to the chip, and its trace.
#include <Hardware/ChipMemory.h>

#include <gmock/gmock.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "support/Death.h"
#include "support/RecordingHam.h"
#include "support/TraceCapture.h"

namespace Hardware {
namespace {

using Support::HamAccess;
using Support::Line;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class ChipMemoryWriteback : public testing::Test {
 protected:
  ChipMemoryWriteback() { table->shadowEnabledIs(true); }

  static HamAccess written(U64 address, U32 entries) {
    return {HamAccess::write, address, 4, entries};
  }

  const Zint::Ptr<Support::RecordingHam> ham = Zint::makePtr<Support::RecordingHam>();
  ChipMemory::Ptr table = chipMemoryFactory("table", ChipAddress(1, 0x100), 10, 4, 0x10, ham);
  Support::TraceCapture trace;
};

// --- The whole shadow --------------------------------------------------------------------------

TEST_F(ChipMemoryWriteback, whole_isOneAccessAtTheBaseAddress) {
  ham->onAccess = [this](const HamAccess&, U8* buffer) {
    EXPECT_EQ(buffer, table->shadow()->data());
  };
  table->writeback(false);
  EXPECT_THAT(ham->log, ElementsAre(written(0x100000100, 10)));
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=0"}));
}

TEST_F(ChipMemoryWriteback, whole_ofNoEntriesIsStillOneAccess) {
  table->entriesIs(0);
  table->writeback(false);
  EXPECT_THAT(ham->log, ElementsAre(written(0x100000100, 0)));
}

TEST_F(ChipMemoryWriteback, whole_actsInBufferedMode) {
  table->modeIs(ChipMemory::buffered());
  table->writeback(false);
  EXPECT_THAT(ham->log, ElementsAre(written(0x100000100, 10)));
}

// --- The initialized entries -------------------------------------------------------------------

TEST_F(ChipMemoryWriteback, initializedOnly_isOneAccessForEachInitializedEntry) {
  table->entryInitializedIs(7);
  table->entryInitializedIs(3);
  std::vector<U8*> buffers;
  ham->onAccess = [&](const HamAccess&, U8* buffer) { buffers.push_back(buffer); };
  table->writeback(true);
  EXPECT_THAT(ham->log, ElementsAre(written(0x100000130, 1), written(0x100000170, 1)));
  U8* data = table->shadow()->data();
  EXPECT_THAT(buffers, ElementsAre(data + 12, data + 28));
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=1"},
                                         Line{9, "table: wrote back 2 entries"}));
}

TEST_F(ChipMemoryWriteback, initializedOnly_mergesNoNeighboursAndLeavesSpareBitsOut) {
  table->doClear();
  table->writeback(true);
  ASSERT_EQ(ham->log.size(), 10u);
  for (U32 i = 0; i < 10; ++i) EXPECT_EQ(ham->log[i], written(0x100000100 + 0x10 * i, 1));
}

TEST_F(ChipMemoryWriteback, initializedOnly_ofNoEntriesCountsZero) {
  table->entriesIs(0);
  table->writeback(true);
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=1"},
                                         Line{9, "table: wrote back 0 entries"}));
}

TEST_F(ChipMemoryWriteback, initializedOnly_countIsDecimal) {
  table->entriesIs(100);
  table->doClearRange(0, 30, false);
  table->writeback(true);
  EXPECT_EQ(trace.taken().back(), (Line{9, "table: wrote back 31 entries"}));
}

// --- Nothing to write --------------------------------------------------------------------------

TEST_F(ChipMemoryWriteback, override_tracesTheEntryLineAlone) {
  table->modeIs(ChipMemory::override());
  table->writeback(false);
  table->writeback(true);
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=0"},
                                         Line{0, "table: writing back initialzedOnly=1"}));
}

TEST_F(ChipMemoryWriteback, override_writesNothingEvenWithAShadowInstalled) {
  table->modeIs(ChipMemory::override());
  table->shadowIs(Zint::makePtr<Hal::Buf>(40));
  table->writeback(false);
  table->writeback(true);
  EXPECT_THAT(ham->log, IsEmpty());
}

TEST_F(ChipMemoryWriteback, noShadow_tracesTheEntryLineAlone) {
  table->shadowEnabledIs(false);
  table->writeback(false);
  table->writeback(true);
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=0"},
                                         Line{0, "table: writing back initialzedOnly=1"}));
}

TEST_F(ChipMemoryWriteback, changesNeitherBitmapsNorHardware) {
  std::memset(table->hardware()->data(), 0xBB, 40);
  table->entryInitializedIs(3);
  table->dirty()->data()[0] = 0x5A;
  table->writeback(false);
  table->writeback(true);
  EXPECT_EQ(table->initialized()->data()[0], 1 << 3);
  EXPECT_EQ(table->dirty()->data()[0], 0x5A);
  EXPECT_THAT(std::vector<U8>(table->hardware()->data(), table->hardware()->data() + 40),
              Each(0xBB));
}

// --- The mode ----------------------------------------------------------------------------------

TEST_F(ChipMemoryWriteback, bufferedToNormal_announcesAndWritesTheWholeShadow) {
  table->modeIs(ChipMemory::buffered());
  table->modeIs(ChipMemory::normal());
  EXPECT_THAT(ham->log, ElementsAre(written(0x100000100, 10)));
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: Init done - writing back all shadows"},
                                         Line{0, "table: writing back initialzedOnly=0"}));
}

TEST_F(ChipMemoryWriteback, bufferedToNormal_withoutShadowWritesNothing) {
  table->shadowEnabledIs(false);
  table->modeIs(ChipMemory::buffered());
  table->modeIs(ChipMemory::normal());
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: Init done - writing back all shadows"},
                                         Line{0, "table: writing back initialzedOnly=0"}));
}

TEST_F(ChipMemoryWriteback, overrideToNormal_writesNothingAndMakesTheStore) {
  table->modeIs(ChipMemory::override());
  table->modeIs(ChipMemory::normal());
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_NE(table->shadow(), nullptr);
  EXPECT_EQ(trace.taken().size(), 2u);
}

TEST_F(ChipMemoryWriteback, normalToNormal_writesAndTracesNothing) {
  table->modeIs(ChipMemory::normal());
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), IsEmpty());
}

TEST_F(ChipMemoryWriteback, exception_leavesTheModeStoredAndTheStoreAsItWas) {
  table->modeIs(ChipMemory::buffered());
  table->entryInitializedIs(3);
  const Hal::BufBase::Ptr shadow = table->shadow(), initialized = table->initialized();
  ham->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  EXPECT_THROW(table->modeIs(ChipMemory::normal()), std::runtime_error);
  EXPECT_EQ(table->mode(), ChipMemory::normal());
  EXPECT_EQ(table->shadow(), shadow);
  EXPECT_EQ(table->initialized(), initialized);
  EXPECT_TRUE(table->entryInitialized(3));
}

TEST_F(ChipMemoryWriteback, exception_ofOneEntryEndsTheWriteback) {
  table->doClear();
  ham->onAccess = [this](const HamAccess&, U8*) {
    if (ham->log.size() == 3) throw std::runtime_error("bus");
  };
  EXPECT_THROW(table->writeback(true), std::runtime_error);
  EXPECT_EQ(ham->log.size(), 3u);
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=1"}));
}

// --- Trace -------------------------------------------------------------------------------------

TEST_F(ChipMemoryWriteback, traceLines_haveTheirSourceLineAndFunction) {
  table->modeIs(ChipMemory::buffered());
  table->modeIs(ChipMemory::normal());
  table->writeback(true);
  ASSERT_EQ(trace.full.size(), 4u);
  const int lines[] = {255, 205, 205, 220};
  const char* functions[] = {"handleMode", "writeback", "writeback", "writeback"};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(trace.full[i].handle, "Umbra");
    EXPECT_EQ(trace.full[i].source, "Hardware/Umbra");
    EXPECT_EQ(trace.full[i].line, lines[i]);
    EXPECT_EQ(trace.full[i].function, functions[i]);
  }
}

TEST_F(ChipMemoryWriteback, closingLine_isLeftOutBelowLevel9) {
  umbraTrace().levelUpToIs(8);
  table->writeback(true);
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=1"}));
}

TEST_F(ChipMemoryWriteback, closingLine_isStillBuiltForTheCoverageStream) {
  umbraTrace().levelUpToIs(0);
  std::ostringstream coverage;
  Zint::coverageStreamIs(&coverage);
  table->writeback(true);
  Zint::coverageStreamIs(nullptr);
  EXPECT_THAT(coverage.str(), testing::HasSubstr("table: wrote back 0 entries"));
  EXPECT_THAT(trace.taken(), ElementsAre(Line{0, "table: writing back initialzedOnly=1"}));
}

// --- Strange sizes -----------------------------------------------------------------------------

TEST_F(ChipMemoryWriteback, wrappedSize_isFatalBeforeAnyAccessAndNamesTheRegion) {
  table = chipMemoryFactory("wrapped", ChipAddress(), 0x10000, 0x10001, 4, ham);
  table->shadowEnabledIs(true);
  ham->onAccess = [](const HamAccess&, U8*) { FAIL() << "an access"; };
  EXPECT_REGION_ASSERTION(table->writeback(false), "wrapped");
  table->writeback(true);
  table->entryInitializedIs(3);
  EXPECT_REGION_ASSERTION(table->writeback(true), "wrapped");
  EXPECT_REGION_ASSERTION(
      {
        table->modeIs(ChipMemory::buffered());
        table->modeIs(ChipMemory::normal());
      },
      "wrapped");
}

TEST_F(ChipMemoryWriteback, shadowOrBitmapThatIsTooSmall_isFatalAndNamesTheRegion) {
  table->initializedIs(Zint::makePtr<Hal::Buf>(1));
  EXPECT_REGION_ASSERTION(table->writeback(true), "table");
  table->shadowIs(Zint::makePtr<Hal::Buf>(39));
  EXPECT_REGION_ASSERTION(table->writeback(false), "table");
}

TEST_F(ChipMemoryWriteback, noAccessMethod_isFatalAndNamesTheRegion) {
  table = chipMemoryFactory("bare", ChipAddress(), 4, 4, 4, nullptr);
  table->shadowEnabledIs(true);
  EXPECT_REGION_ASSERTION(table->writeback(false), "bare");
  table->writeback(true);
  EXPECT_EQ(trace.full.back().text, "bare: wrote back 0 entries");
  table->entryInitializedIs(2);
  EXPECT_REGION_ASSERTION(table->writeback(true), "bare");
  EXPECT_REGION_ASSERTION(table->doClearRange(0, 1, true), "bare");
  table->doClearRange(0, 1, false);
}

// The size of the store wraps: what lies in it is written back, what does not is fatal.
TEST_F(ChipMemoryWriteback, ofEntriesWithinAStoreWhoseSizeWraps) {
  const auto recording = Zint::makePtr<Support::RecordingHam>();
  table = chipMemoryFactory("wide", ChipAddress(0x1000), 0x10001, 0x10000, 4, recording);
  table->shadowEnabledIs(true);
  table->entryInitializedIs(0);
  table->writeback(true);
  EXPECT_THAT(recording->taken(),
              ElementsAre(Support::HamAccess{Support::HamAccess::write, 0x1000, 0x10000, 1}));
  table->entryInitializedIs(1);
  EXPECT_REGION_ASSERTION(table->writeback(true), "wide");
}

// --- What an access may do meanwhile -----------------------------------------------------------

using Change = void (*)(ChipMemory&);

class ChipMemoryWritebackChanged : public ChipMemoryWriteback,
                                   public testing::WithParamInterface<Change> {};

TEST_P(ChipMemoryWritebackChanged, aChangeOfTheStoreInsideAnAccessEndsTheWriteback) {
  table->doClear();
  ham->onAccess = [this](const HamAccess&, U8*) {
    if (ham->log.size() == 2) GetParam()(*table);
  };
  table->writeback(true);
  EXPECT_EQ(ham->log.size(), 2u);
  EXPECT_EQ(trace.taken().back(), (Line{9, "table: wrote back 2 entries"}));
}

TEST_P(ChipMemoryWritebackChanged, aChangeInsideTheWholeAccessIsFollowedByAConsistentStore) {
  table->modeIs(ChipMemory::buffered());
  ham->onAccess = [this](const HamAccess& access, U8* buffer) {
    if (ham->log.size() == 1) GetParam()(*table);
    // The buffer outlives the change.
    for (U32 i = 0; i < access.entries * access.entrySize; ++i) EXPECT_EQ(buffer[i], 0);
  };
  table->modeIs(ChipMemory::normal());
  EXPECT_EQ(table->shadow() != nullptr, table->shadowStoreNeeded());
  if (table->shadowStoreNeeded()) {
    EXPECT_EQ(table->shadow()->size(), table->entries() * 4);
    EXPECT_EQ(table->initialized()->size(), (table->entries() >> 3) + 1);
    EXPECT_FALSE(table->entryInitialized(0));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Changes, ChipMemoryWritebackChanged,
    testing::Values(Change{[](ChipMemory& m) { m.modeIs(ChipMemory::override()); }},
                    Change{[](ChipMemory& m) { m.modeIs(ChipMemory::buffered()); }},
                    Change{[](ChipMemory& m) { m.shadowEnabledIs(false); }},
                    Change{[](ChipMemory& m) { m.entriesIs(1); }},
                    Change{[](ChipMemory& m) { m.entriesIs(1000); }}));

TEST_F(ChipMemoryWriteback, survivesTheLastOtherReferenceGoingInAnAccess) {
  table->doClear();
  ham->onAccess = [this](const HamAccess&, U8*) { table = nullptr; };
  table.ptr()->writeback(true);
  EXPECT_EQ(ham->log.size(), 10u);
}

TEST_F(ChipMemoryWriteback, modeIs_survivesTheLastOtherReferenceGoingInAnAccess) {
  table->modeIs(ChipMemory::buffered());
  ham->onAccess = [this](const HamAccess&, U8*) { table = nullptr; };
  table.ptr()->modeIs(ChipMemory::normal());
  EXPECT_THAT(ham->log, ElementsAre(written(0x100000100, 10)));
}

}  // namespace
}  // namespace Hardware
