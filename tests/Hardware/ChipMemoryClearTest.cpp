// The initialized bitmap, and clearing.
#include <Hardware/ChipMemory.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "support/Buffers.h"
#include "support/Death.h"
#include "support/RecordingHam.h"

namespace Hardware {
namespace {

using Support::bytes;
using Support::HamAccess;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class ChipMemoryClear : public testing::Test {
 protected:
  static constexpr const char* doClearRange =
      "void Hardware::ChipMemory::doClearRange(U32, U32, bool)";

  ChipMemoryClear() { table->shadowEnabledIs(true); }

  // Every byte of shadow and hardware, as a sign of what was not touched.
  void filled() {
    std::memset(table->shadow()->data(), 0xAA, table->shadow()->size());
    std::memset(table->hardware()->data(), 0xBB, table->hardware()->size());
  }
  std::vector<U32> marked(const Hal::BufBase::Ptr& bitmap) const {
    std::vector<U32> entries;
    for (U32 i = 0; i < bitmap->size() * 8; ++i) {
      if (((bitmap->data()[i >> 3] >> (i & 7)) & 1) != 0) entries.push_back(i);
    }
    return entries;
  }

  const Zint::Ptr<Support::RecordingHam> ham = Zint::makePtr<Support::RecordingHam>();
  ChipMemory::Ptr table = chipMemoryFactory("table", ChipAddress(1, 0x100), 16, 4, 0x10, ham);
};

// --- The initialized bitmap --------------------------------------------------------------------

TEST_F(ChipMemoryClear, entryInitialized_isTheEntrysBitLeastSignificantFirst) {
  for (U32 entry = 0; entry < 16; ++entry) {
    table->entryInitializedIs(entry);
    EXPECT_TRUE(table->entryInitialized(entry));
    EXPECT_THAT(marked(table->initialized()), ElementsAre(entry));
    EXPECT_EQ(table->initialized()->data()[entry >> 3], 1 << (entry & 7));
    table->entryInitializedDel(entry);
    EXPECT_FALSE(table->entryInitialized(entry));
    EXPECT_THAT(marked(table->initialized()), IsEmpty());
  }
}

TEST_F(ChipMemoryClear, entryInitializedDel_clearsThatBitAlone) {
  for (U32 entry : {3u, 4u, 5u}) table->entryInitializedIs(entry);
  table->entryInitializedDel(4);
  EXPECT_THAT(marked(table->initialized()), ElementsAre(3, 5));
  EXPECT_THAT(marked(table->dirty()), IsEmpty());
}

TEST_F(ChipMemoryClear, entryInitialized_inOverrideModeIsTrueWithoutAnyBuffer) {
  table->modeIs(ChipMemory::override());
  table->hardwareIs(nullptr);
  for (U32 entry : {0u, 15u, 16u, 1000u, 0xffffffffu}) {
    EXPECT_TRUE(table->entryInitialized(entry));
    table->entryInitializedIs(entry);
    table->entryInitializedDel(entry);
    EXPECT_TRUE(table->entryInitialized(entry));
  }
  EXPECT_EQ(table->initialized(), nullptr);
}

TEST_F(ChipMemoryClear, entryInitialized_servesTheSpareBits) {
  table->entryInitializedIs(16);
  EXPECT_TRUE(table->entryInitialized(16));
  EXPECT_FALSE(table->entryInitialized(23));
}

TEST_F(ChipMemoryClear, entryInitialized_outsideTheBitmapIsFatalAndNamesTheRegion) {
  EXPECT_REGION_ASSERTION(table->entryInitialized(24), "table");
  EXPECT_REGION_ASSERTION(table->entryInitializedIs(24), "table");
  EXPECT_REGION_ASSERTION(table->entryInitializedDel(0xffffffff), "table");
}

TEST_F(ChipMemoryClear, entryInitialized_withoutTheStoreIsFatalAndNamesTheRegion) {
  table->shadowEnabledIs(false);
  EXPECT_REGION_ASSERTION(table->entryInitialized(0), "table");
  EXPECT_REGION_ASSERTION(table->entryInitializedIs(0), "table");
  EXPECT_REGION_ASSERTION(table->entryInitializedDel(0), "table");
}

// --- doClear -----------------------------------------------------------------------------------

TEST_F(ChipMemoryClear, doClear_zeroesTheShadowAndSetsEveryBitSpareOnesToo) {
  filled();
  table->doClear();
  EXPECT_THAT(bytes(table->shadow()), Each(0));
  EXPECT_THAT(bytes(table->dirty()), ElementsAre(0xff, 0xff, 0xff));
  EXPECT_THAT(bytes(table->initialized()), ElementsAre(0xff, 0xff, 0xff));
}

TEST_F(ChipMemoryClear, doClear_keepsTheBuffersAndTouchesNeitherChipNorHardware) {
  filled();
  const Hal::BufBase::Ptr before = table->shadow();
  table->doClear();
  EXPECT_EQ(table->shadow(), before);
  EXPECT_THAT(bytes(table->hardware()), Each(0xBB));
  EXPECT_THAT(ham->log, IsEmpty());
}

TEST_F(ChipMemoryClear, doClear_actsInBufferedMode) {
  table->modeIs(ChipMemory::buffered());
  table->doClear();
  EXPECT_TRUE(table->entryInitialized(15));
  EXPECT_THAT(ham->log, IsEmpty());
}

TEST_F(ChipMemoryClear, doClear_inOverrideModeDoesNothing) {
  table->modeIs(ChipMemory::override());
  table->doClear();
  EXPECT_EQ(table->shadow(), nullptr);
}

TEST_F(ChipMemoryClear, doClear_withoutTheStoreIsFatalAndNamesTheRegion) {
  table->shadowEnabledIs(false);
  EXPECT_REGION_ASSERTION(table->doClear(), "table");
}

TEST_F(ChipMemoryClear, doClear_ofARegionWithoutEntries) {
  table->entriesIs(0);
  table->doClear();
  EXPECT_THAT(bytes(table->initialized()), ElementsAre(0xff));
}

// --- doClearRange ------------------------------------------------------------------------------

TEST_F(ChipMemoryClear, doClearRange_clearsAndMarksBothEndsAndAllBetween) {
  filled();
  table->doClearRange(7, 9, false);
  EXPECT_THAT(marked(table->dirty()), ElementsAre(7, 8, 9));
  EXPECT_THAT(marked(table->initialized()), ElementsAre(7, 8, 9));
  std::vector<U8> expected(64, 0xAA);
  std::fill_n(expected.begin() + 28, 12, U8{0});
  EXPECT_EQ(bytes(table->shadow()), expected);
  EXPECT_THAT(bytes(table->hardware()), Each(0xBB));
  EXPECT_THAT(ham->log, IsEmpty());
}

TEST_F(ChipMemoryClear, doClearRange_ofOneEntry) {
  table->doClearRange(0, 0, false);
  EXPECT_THAT(marked(table->dirty()), ElementsAre(0));
}

TEST_F(ChipMemoryClear, doClearRange_writesEachEntryThroughInAscendingOrder) {
  filled();
  table->doClearRange(2, 4, true);
  EXPECT_THAT(ham->log, ElementsAre(HamAccess{HamAccess::write, 0x100000120, 4, 1},
                                    HamAccess{HamAccess::write, 0x100000130, 4, 1},
                                    HamAccess{HamAccess::write, 0x100000140, 4, 1}));
}

TEST_F(ChipMemoryClear, doClearRange_keepsTheDirtyBitOfAWrittenEntry) {
  table->doClearRange(2, 2, true);
  EXPECT_THAT(marked(table->dirty()), ElementsAre(2));
}

TEST_F(ChipMemoryClear, doClearRange_finishesEachEntryBeforeItsAccess) {
  filled();
  ham->onAccess = [this](const HamAccess& access, U8* buffer) {
    const U32 entry = static_cast<U32>((access.address - 0x100000100) / 0x10);
    EXPECT_EQ(buffer, table->shadow()->data() + 4 * entry);
    EXPECT_THAT(std::vector<U8>(buffer, buffer + 4), Each(0));
    EXPECT_EQ(marked(table->dirty()).back(), entry);
    EXPECT_EQ(marked(table->initialized()).back(), entry);
  };
  table->doClearRange(2, 4, true);
  EXPECT_EQ(ham->log.size(), 3u);
}

TEST_F(ChipMemoryClear, doClearRange_passesAnExceptionOfAnAccessOn) {
  ham->onAccess = [](const HamAccess& access, U8*) {
    if (access.address == 0x100000130) throw std::runtime_error("bus");
  };
  EXPECT_THROW(table->doClearRange(2, 5, true), std::runtime_error);
  EXPECT_THAT(marked(table->initialized()), ElementsAre(2, 3));
}

TEST_F(ChipMemoryClear, doClearRange_inOverrideModeReturnsBeforeTheChecks) {
  table->modeIs(ChipMemory::override());
  table->doClearRange(0, 17, true);
  table->doClearRange(2, 1, true);
  EXPECT_THAT(ham->log, IsEmpty());
}

TEST_F(ChipMemoryClear, doClearRange_endBehindEntriesIsFatal) {
  EXPECT_ASSERTION(table->doClearRange(0, 17, false), 186, doClearRange, "endIndex <= entries()");
  EXPECT_ASSERTION(table->doClearRange(0, 0xffffffff, false), 186, doClearRange,
                   "endIndex <= entries()");
}

TEST_F(ChipMemoryClear, doClearRange_endIsCheckedBeforeTheStart) {
  EXPECT_ASSERTION(table->doClearRange(20, 17, false), 186, doClearRange, "endIndex <= entries()");
}

TEST_F(ChipMemoryClear, doClearRange_startBehindEndIsFatal) {
  EXPECT_ASSERTION(table->doClearRange(2, 1, false), 187, doClearRange, "startIndex <= endIndex");
}

TEST_F(ChipMemoryClear, doClearRange_checksComeBeforeTheStore) {
  table->shadowEnabledIs(false);
  EXPECT_ASSERTION(table->doClearRange(0, 17, false), 186, doClearRange, "endIndex <= entries()");
  EXPECT_ASSERTION(table->doClearRange(2, 1, false), 187, doClearRange, "startIndex <= endIndex");
  EXPECT_REGION_ASSERTION(table->doClearRange(0, 1, false), "table");
}

// --- One past the last entry -------------------------------------------------------------------

TEST_F(ChipMemoryClear, doClearRange_endEqualToEntriesPasses) {
  filled();
  table->doClearRange(15, 16, true);
  EXPECT_THAT(marked(table->dirty()), ElementsAre(15, 16));
  EXPECT_THAT(marked(table->initialized()), ElementsAre(15, 16));
  EXPECT_THAT(ham->log, ElementsAre(HamAccess{HamAccess::write, 0x1000001F0, 4, 1},
                                    HamAccess{HamAccess::write, 0x100000200, 4, 1}));
  EXPECT_EQ(table->shadow()->size(), 64u);
  EXPECT_EQ(bytes(table->hardware()), std::vector<U8>(64, 0xBB));
}

TEST_F(ChipMemoryClear, doClearRange_endEqualToEntriesStaysInsideTheAllocation) {
  for (U32 entries : {0u, 1u, 7u, 8u, 16u, 1000u}) {
    for (U32 entrySize : {0u, 1u, 4u, 4096u}) {
      table = chipMemoryFactory("t", ChipAddress(), entries, entrySize, entrySize, ham);
      table->shadowEnabledIs(true);
      table->doClearRange(0, entries, false);
      EXPECT_EQ(table->shadow()->size(), entries * entrySize);
      EXPECT_EQ(marked(table->dirty()).size(), entries + 1);
    }
  }
}

TEST_F(ChipMemoryClear, doClearRange_endEqualToEntriesWritesZerosToTheChipAndNothingPastTheBuffer) {
  std::vector<U8> lent(64 + 8, 0xAA);
  struct Lent : Hal::BufBase {
    Lent(U8* data, U32 size) : BufBase(data, size) {}
  };
  for (const U32 size : {64u, 66u, 68u}) {
    std::fill(lent.begin(), lent.end(), U8{0xAA});
    table->shadowIs(Zint::makePtr<Lent>(lent.data(), size));
    std::vector<U8> written;
    ham->onAccess = [&](const HamAccess&, U8* buffer) { written.assign(buffer, buffer + 4); };
    table->doClearRange(16, 16, true);
    EXPECT_THAT(written, ElementsAre(0, 0, 0, 0));
    std::vector<U8> expected(72, 0xAA);
    std::fill(expected.begin() + 64, expected.begin() + size, U8{0});
    EXPECT_EQ(lent, expected) << size;
  }
}

TEST_F(ChipMemoryClear, buffersAreExactlyAsLongAsTheirEntries) {
  for (const U32 entrySize : {0u, 1u, 4u, 0x10000001u}) {
    table = chipMemoryFactory("t", ChipAddress(), 16, entrySize, 4, ham);
    table->shadowEnabledIs(true);
    EXPECT_EQ(table->shadow()->size(), 16 * entrySize);
    EXPECT_EQ(table->hardware()->size(), 16 * entrySize);
    EXPECT_EQ(table->initialized()->size(), 3u);
  }
}

// No room for an entry is taken where there is none.
TEST_F(ChipMemoryClear, aRegionWithoutEntriesMayHaveTheLargestEntrySize) {
  table = chipMemoryFactory("t", ChipAddress(), 0, 0xffffffff, 4, ham);
  table->shadowEnabledIs(true);
  table->doClearRange(0, 0, false);
  EXPECT_THAT(marked(table->dirty()), ElementsAre(0));
}

TEST_F(ChipMemoryClear, doClearRange_inBuffersThatAreTooSmallIsFatalAtTheStart) {
  table->initializedIs(Zint::makePtr<Hal::Buf>(1));
  EXPECT_REGION_ASSERTION(table->doClearRange(0, 8, true), "table");
  table->doClearRange(0, 7, true);
  EXPECT_EQ(ham->log.size(), 8u);
}

// --- Sizes that wrap ---------------------------------------------------------------------------

TEST_F(ChipMemoryClear, doClearRange_ofAWrappedSizeIsFatalAndNamesTheRegion) {
  table = chipMemoryFactory("wrapped", ChipAddress(), 0x10000, 0x10001, 4, ham);
  table->shadowEnabledIs(true);
  EXPECT_REGION_ASSERTION(table->doClearRange(5, 5, false), "wrapped");
  EXPECT_REGION_ASSERTION(table->doClearRange(0, 0x10000, false), "wrapped");
}

TEST_F(ChipMemoryClear, doClear_ofAWrappedSizeStaysInTheBuffers) {
  table = chipMemoryFactory("wrapped", ChipAddress(), 0x10000, 0x10000, 4, ham);
  table->shadowEnabledIs(true);
  table->doClear();
  EXPECT_EQ(table->shadow()->size(), 0u);
  EXPECT_THAT(bytes(table->dirty()), Each(0xff));
}

// --- What an access may do meanwhile -----------------------------------------------------------

using Change = void (*)(ChipMemory&);

class ChipMemoryClearChanged : public ChipMemoryClear,
                               public testing::WithParamInterface<Change> {};

TEST_P(ChipMemoryClearChanged, aChangeOfTheStoreInsideAnAccessEndsTheClearing) {
  ham->onAccess = [this](const HamAccess&, U8*) {
    if (ham->log.size() == 2) GetParam()(*table);
  };
  table->doClearRange(0, 9, true);
  EXPECT_EQ(ham->log.size(), 2u);
  if (table->initialized() != nullptr) {
    EXPECT_THAT(marked(table->initialized()), IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Changes, ChipMemoryClearChanged,
    testing::Values(Change{[](ChipMemory& m) { m.modeIs(ChipMemory::override()); }},
                    Change{[](ChipMemory& m) { m.modeIs(ChipMemory::buffered()); }},
                    Change{[](ChipMemory& m) { m.shadowEnabledIs(false); }},
                    Change{[](ChipMemory& m) { m.entriesIs(3); }},
                    Change{[](ChipMemory& m) { m.entriesIs(1000); }}));

TEST_F(ChipMemoryClear, doClearRange_survivesTheLastOtherReferenceGoingInAnAccess) {
  ham->onAccess = [this](const HamAccess&, U8*) { table = nullptr; };
  table.ptr()->doClearRange(0, 3, true);
  EXPECT_EQ(ham->log.size(), 4u);
}

}  // namespace
}  // namespace Hardware
