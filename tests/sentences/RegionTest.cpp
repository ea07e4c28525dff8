// The rules of one region: its buffers, its address arithmetic, its marks and its clearing.
#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;

class RegionRules : public ShadowTest {
 protected:
  ChipMemory::Ptr on(U64 address, U32 entries, U32 entrySize = 4, U32 stride = 4) {
    return Hardware::chipMemoryFactory("cm", ChipAddress(address), entries, entrySize, stride,
                                       recorder);
  }
  ChipMemory::Ptr stored(U64 address, U32 entries, U32 entrySize = 4, U32 stride = 4) {
    const ChipMemory::Ptr cm = on(address, entries, entrySize, stride);
    cm->shadowEnabledIs(true);
    return cm;
  }
  static HamAccess written(U64 address, U32 entrySize = 4, U32 entries = 1) {
    return {HamAccess::write, address, entrySize, entries};
  }

  const Zint::Ptr<RecordingHam> recorder = Zint::makePtr<RecordingHam>();
  const std::string clearRange = "void Hardware::ChipMemory::doClearRange(U32, U32, bool)";
};

TEST_F(RegionRules, shadowEnabled_bitmapsHaveOneByteMoreThanWholeBytesOfEntries) {
  for (const auto& [entries, bytes] : std::vector<std::pair<U32, U32>>{
           {0, 1}, {1, 1}, {7, 1}, {8, 2}, {15, 2}, {16, 3}, {17, 3}}) {
    const ChipMemory::Ptr cm = stored(0, entries, 3);
    EXPECT_EQ(bytes, cm->dirty()->size()) << entries;
    EXPECT_EQ(bytes, cm->initialized()->size()) << entries;
    EXPECT_EQ(entries * 3, cm->shadow()->size());
    EXPECT_EQ(entries * 3, cm->hardware()->size());
  }
}

TEST_F(RegionRules, construction_createsTheHardwareBufferAlone) {
  const ChipMemory::Ptr cm = on(0x1000, 4);
  ASSERT_NE(nullptr, cm->hardware());
  EXPECT_EQ(Entries{}, marked(cm->hardware()));
  EXPECT_EQ(nullptr, cm->shadow());
  EXPECT_EQ(nullptr, cm->initialized());
  EXPECT_EQ(nullptr, cm->dirty());
  EXPECT_EQ(ChipMemory::normal(), cm->mode());
  EXPECT_FALSE(cm->shadowEnabled() || cm->auditEnabled() || cm->readFromCache());
}

TEST_F(RegionRules, construction_productThatWrapsMakesTheWrappedSize) {
  const ChipMemory::Ptr cm = on(0, 0x10001, 0x10000);  // 2^32 + 0x10000 bytes
  EXPECT_EQ(0x10000u, cm->hardware()->size());
}

TEST_F(RegionRules, construction_hugeEntriesNeedNoMemoryWhereThereAreNone) {
  const ChipMemory::Ptr cm = stored(0, 0, 0xFFFFFFFF);
  EXPECT_EQ(0u, cm->hardware()->size());
  EXPECT_EQ(0u, cm->shadow()->size());
}

TEST_F(RegionRules, inRange_isFromTheFirstByteToTheLast) {
  const ChipMemory::Ptr cm = on(0x1000, 4);
  for (U64 in : {0x1000, 0x1001, 0x100F}) EXPECT_TRUE(cm->inRange(ChipAddress(in))) << in;
  for (U64 out : {0x0FFF, 0x1010}) EXPECT_FALSE(cm->inRange(ChipAddress(out))) << out;
  EXPECT_FALSE(cm->inRange(ChipAddress(0x100001000)));
}

TEST_F(RegionRules, inRange_endIsCarriedIntoTheHighWord) {
  const ChipMemory::Ptr cm = on(0xFFFFFFF0, 2, 4, 0x10);
  EXPECT_TRUE(cm->inRange(ChipAddress(0xFFFFFFFF)));
  EXPECT_TRUE(cm->inRange(ChipAddress(0x100000000)));
  EXPECT_TRUE(cm->inRange(ChipAddress(0x10000000F)));
  EXPECT_FALSE(cm->inRange(ChipAddress(0x100000010)));
  EXPECT_FALSE(cm->inRange(ChipAddress(0)));
  EXPECT_FALSE(cm->inRange(ChipAddress(0x1FFFFFFF0)));
}

TEST_F(RegionRules, inRange_regionThatEndsAtTheBoundaryDoesNotContainIt) {
  const ChipMemory::Ptr cm = on(0xFFFFFFF0, 4);
  EXPECT_TRUE(cm->inRange(ChipAddress(0xFFFFFFFF)));
  EXPECT_FALSE(cm->inRange(ChipAddress(0x100000000)));
  EXPECT_FALSE(cm->inRange(ChipAddress(0)));
}

TEST_F(RegionRules, inRange_spanIsAThirtyTwoBitProduct) {
  EXPECT_FALSE(on(0, 0x10000, 0, 0x10000)->inRange(ChipAddress(0)));
  const ChipMemory::Ptr cm = on(0, 0x10001, 0, 0x10000);  // wraps to 0x10000
  EXPECT_TRUE(cm->inRange(ChipAddress(0xFFFF)));
  EXPECT_FALSE(cm->inRange(ChipAddress(0x10000)));
}

TEST_F(RegionRules, inRange_noEntriesOrNoStrideContainNothing) {
  EXPECT_FALSE(on(0x1000, 0)->inRange(ChipAddress(0x1000)));
  EXPECT_FALSE(on(0x1000, 4, 4, 0)->inRange(ChipAddress(0x1000)));
}

TEST_F(RegionRules, inRange_followsEntries) {
  const ChipMemory::Ptr cm = on(0x1000, 4);
  cm->entriesIs(5);
  EXPECT_TRUE(cm->inRange(ChipAddress(0x1013)));
  cm->entriesIs(1);
  EXPECT_FALSE(cm->inRange(ChipAddress(0x1004)));
}

TEST_F(RegionRules, entryIndexFromAddress_betweenTwoEntriesIsTheEntryBelow) {
  EXPECT_EQ(1u, on(0x1000, 4)->entryIndexFromAddress(ChipAddress(0x1006)));
  EXPECT_EQ(2u, on(0x1000, 4, 4, 12)->entryIndexFromAddress(ChipAddress(0x1000 + 35)));
}

TEST_F(RegionRules, entryIndexFromAddress_differenceIsTakenInSixtyFourBits) {
  EXPECT_EQ(1u, on(0xFFFFFFF0, 2, 4, 0x10)->entryIndexFromAddress(ChipAddress(0x100000000)));
  EXPECT_EQ(0x40000000u, on(0, 4)->entryIndexFromAddress(ChipAddress(0x100000000)));
  EXPECT_EQ(0x55555555u, on(0, 4, 4, 3)->entryIndexFromAddress(ChipAddress(0x100000000)));
}

TEST_F(RegionRules, entryIndexFromAddress_isTruncatedAndNotChecked) {
  EXPECT_EQ(5u, on(0, 4, 4, 1)->entryIndexFromAddress(ChipAddress(0x100000005)));
  EXPECT_EQ(0xFFFFFFFFu, on(0x1000, 4)->entryIndexFromAddress(ChipAddress(0xFFF)));
  EXPECT_EQ(0xFFFFFFFFu, on(0x100000000, 4)->entryIndexFromAddress(ChipAddress(0xFFFFFFFF)));
}

TEST_F(RegionRules, entryIndexFromAddress_noStrideIsFatal) {
  const ChipMemory::Ptr cm = on(0x1000, 4, 4, 0);
  EXPECT_DEATH((void)cm->entryIndexFromAddress(ChipAddress(0x1000)), "");
}

TEST_F(RegionRules, entryInitialized_isTrueOfEveryIndexInOverrideMode) {
  const ChipMemory::Ptr cm = on(0x1000, 4);
  cm->modeIs(ChipMemory::override());
  for (U32 entry : {0u, 3u, 4u, 0xFFFFFFFFu}) EXPECT_TRUE(cm->entryInitialized(entry));
  cm->entryInitializedIs(0xFFFFFFFF);
  cm->entryInitializedDel(0);
  EXPECT_TRUE(cm->entryInitialized(0));
  EXPECT_EQ(nullptr, cm->initialized());
}

TEST_F(RegionRules, entryInitializedIs_setsOneBitLeastSignificantFirst) {
  const ChipMemory::Ptr cm = stored(0x1000, 16);
  cm->entryInitializedIs(0);
  cm->entryInitializedIs(10);
  EXPECT_EQ(0x01, cm->initialized()->data()[0]);
  EXPECT_EQ(0x04, cm->initialized()->data()[1]);
  cm->entryInitializedDel(10);
  EXPECT_EQ(0x00, cm->initialized()->data()[1]);
  EXPECT_TRUE(cm->entryInitialized(0));
}

TEST_F(RegionRules, entryInitializedIs_isNotCheckedAgainstEntries) {
  const ChipMemory::Ptr cm = stored(0x1000, 4);
  cm->entryInitializedIs(7);
  EXPECT_TRUE(cm->entryInitialized(7));
  EXPECT_EQ((Entries{7}), marked(cm->initialized()));
}

TEST_F(RegionRules, doClear_setsTheSpareBitsAndWritesNothing) {
  const ChipMemory::Ptr cm = stored(0x1000, 8);
  std::memset(cm->shadow()->data(), 0xA5, 32);
  cm->doClear();
  EXPECT_EQ(Entries{}, marked(cm->shadow()));
  EXPECT_EQ(16u, marked(cm->dirty()).size());
  EXPECT_EQ(16u, marked(cm->initialized()).size());
  EXPECT_EQ(0u, recorder->log.size());
}

TEST_F(RegionRules, doClear_inOverrideModeDoesNothing) {
  const ChipMemory::Ptr cm = stored(0x1000, 8);
  cm->modeIs(ChipMemory::override());
  cm->doClear();
  EXPECT_EQ(nullptr, cm->shadow());
}

TEST_F(RegionRules, doClearRange_inOverrideModeChecksNothing) {
  const ChipMemory::Ptr cm = stored(0x1000, 4);
  cm->modeIs(ChipMemory::override());
  cm->doClearRange(9, 2, true);
  cm->doClearRange(0, 0xFFFFFFFF, true);
  EXPECT_EQ(0u, recorder->log.size());
}

TEST_F(RegionRules, doClearRange_endBeyondEntriesIsFatal) {
  const ChipMemory::Ptr cm = stored(0x1000, 4);
  EXPECT_ASSERTION(cm->doClearRange(0, 5, false), 186, clearRange, "endIndex <= entries()");
}

TEST_F(RegionRules, doClearRange_endIsCheckedBeforeTheOrder) {
  const ChipMemory::Ptr cm = stored(0x1000, 4);
  EXPECT_ASSERTION(cm->doClearRange(9, 5, false), 186, clearRange, "endIndex <= entries()");
  EXPECT_ASSERTION(cm->doClearRange(2, 1, false), 187, clearRange, "startIndex <= endIndex");
  EXPECT_ASSERTION(cm->doClearRange(0xFFFFFFFF, 4, false), 187, clearRange,
                   "startIndex <= endIndex");
}

TEST_F(RegionRules, doClearRange_includesBothEnds) {
  const ChipMemory::Ptr cm = stored(0x1000, 10);
  std::memset(cm->shadow()->data(), 0xFF, 40);
  cm->doClearRange(3, 5, false);
  EXPECT_EQ((Entries{3, 4, 5}), marked(cm->dirty()));
  EXPECT_EQ((Entries{3, 4, 5}), marked(cm->initialized()));
  for (U32 i = 0; i < 10; ++i) {
    EXPECT_EQ(i >= 3 && i <= 5 ? 0u : 0xFFFFFFFFu, word(cm->shadow(), i)) << i;
  }
  EXPECT_EQ(0u, recorder->log.size());
}

TEST_F(RegionRules, doClearRange_writesOneEntryPerCallInAscendingOrder) {
  const ChipMemory::Ptr cm = stored(0x1000, 10, 4, 0x20);
  cm->doClearRange(3, 5, true);
  EXPECT_EQ((std::vector{written(0x1060), written(0x1080), written(0x10A0)}), recorder->log);
  EXPECT_EQ((Entries{3, 4, 5}), marked(cm->dirty()));
}

TEST_F(RegionRules, doClearRange_anEntryIsClearedWhenItsTurnComes) {
  const ChipMemory::Ptr cm = stored(0x1000, 4);
  std::memset(cm->shadow()->data(), 0xFF, 16);
  std::vector<Entries> dirtyThen;
  std::vector<U32> nextThen;
  recorder->onAccess = [&](const HamAccess&, U8* buffer) {
    EXPECT_EQ(0, buffer[0]);
    dirtyThen.push_back(marked(cm->dirty()));
    EXPECT_EQ(marked(cm->dirty()), marked(cm->initialized()));
    if (dirtyThen.size() < 4) {
      nextThen.push_back(word(cm->shadow(), static_cast<U32>(dirtyThen.size())));
    }
  };
  cm->doClearRange(0, 3, true);
  EXPECT_EQ((std::vector<Entries>{{0}, {0, 1}, {0, 1, 2}, {0, 1, 2, 3}}), dirtyThen);
  EXPECT_EQ((std::vector<U32>(3, 0xFFFFFFFF)), nextThen);
}

TEST_F(RegionRules, doClearRange_endIndexEqualToEntriesPasses) {
  const ChipMemory::Ptr cm = stored(0x1000, 4);
  std::vector<U32> sent;
  recorder->onAccess = [&](const HamAccess&, U8* buffer) {
    U32 value;
    std::memcpy(&value, buffer, 4);
    sent.push_back(value);
  };
  cm->doClearRange(2, 4, true);
  EXPECT_EQ((Entries{2, 3, 4}), marked(cm->dirty()));
  EXPECT_EQ((Entries{2, 3, 4}), marked(cm->initialized()));
  EXPECT_EQ((std::vector{written(0x1008), written(0x100C), written(0x1010)}), recorder->log);
  EXPECT_EQ((std::vector<U32>{0, 0, 0}), sent);
  EXPECT_EQ(16u, cm->shadow()->size());
}

TEST_F(RegionRules, doClearRange_endIndexEqualToEntriesUsesTheSpareByteOfTheBitmaps) {
  const ChipMemory::Ptr cm = stored(0x1000, 8);
  cm->doClearRange(8, 8, false);
  EXPECT_EQ((Entries{8}), marked(cm->dirty()));
  EXPECT_EQ((Entries{8}), marked(cm->initialized()));
}

TEST_F(RegionRules, doClearRange_ofARegionWithoutEntriesTouchesEntryZero) {
  const ChipMemory::Ptr cm = stored(0x1000, 0, 64);
  bool allZero = true;
  recorder->onAccess = [&](const HamAccess&, U8* buffer) {
    for (U32 i = 0; i < 64; ++i) allZero = allZero && buffer[i] == 0;
  };
  cm->doClearRange(0, 0, true);
  EXPECT_EQ((Entries{0}), marked(cm->dirty()));
  EXPECT_EQ((std::vector{written(0x1000, 64)}), recorder->log);
  EXPECT_TRUE(allZero);
}

TEST_F(RegionRules, doClearRange_addressIsCarriedIntoTheHighWord) {
  const ChipMemory::Ptr cm = stored(0xFFFFFFFC, 2);
  cm->doClearRange(0, 1, true);
  EXPECT_EQ((std::vector{written(0xFFFFFFFC), written(0x100000000)}), recorder->log);
}

TEST_F(RegionRules, counters_addAndDoNotSaturate) {
  const ChipMemory::Ptr cm = on(0x1000, 4);
  const Zint::Ptr<const ChipMemory> constant = cm;
  constant->readCacheHitsIs(U64{0xFFFFFFFF});
  constant->readCacheHitsInc(U64{2});
  EXPECT_EQ(0x100000001u, cm->readCacheHits());
  cm->writeCacheHitsIs(~U64{0});
  cm->writeCacheHitsInc(U64{2});
  EXPECT_EQ(1u, cm->writeCacheHits());
  cm->registersFixedIs(0xFFFFFFFF);
  cm->registersFixedInc(3);
  EXPECT_EQ(2u, cm->registersFixed());
}

TEST_F(RegionRules, shadowStoreNeededIs_doesNothing) {
  const ChipMemory::Ptr cm = on(0x1000, 4);
  cm->shadowStoreNeededIs(true);
  EXPECT_FALSE(cm->shadowStoreNeeded());
  EXPECT_EQ(nullptr, cm->shadow());
}

}  // namespace
