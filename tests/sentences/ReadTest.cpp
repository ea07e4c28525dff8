// The read path: the order of its steps, its table of decisions, and reads of parts of entries.
#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

class ReadRules : public ShadowTest {
 protected:
  // A region of 32-bit entries 0x11111101, 0x11111102 and so on, all known.
  ChipMemory::Ptr filled(U32 entries) {
    const ChipMemory::Ptr cm =
        Hardware::chipMemoryFactory("cm", ChipAddress(0x1000), entries, 4, 4, scripted);
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    for (U32 i = 0; i < entries; ++i) {
      wordIs(cm->shadow(), i, 0x11111101 + i);
      cm->entryInitializedIs(i);
    }
    configure({cm});
    trace.taken();
    return cm;
  }
  bool read(const ChipMemory::Ptr& cm, U32 entry, U32 size) {
    std::memset(data, 0xEE, sizeof data);
    return shadow->readFromCache(cm, entry, data, size);
  }
  bool untouched(U32 from = 0) const {
    for (U32 i = from; i < sizeof data; ++i) {
      if (data[i] != 0xEE) return false;
    }
    return true;
  }
  U32 wordAt(U32 byte) const {
    U32 value;
    std::memcpy(&value, data + byte, 4);
    return value;
  }

  U8 data[256];
  const std::string function =
      "bool Hardware::HardwareShadow::readFromCache(const Hardware::ChipMemory::Ptr&, U32, U8*, "
      "U32)";
};

TEST_F(ReadRules, unconfigured_isFatalBeforeAllElse) {
  EXPECT_ASSERTION(read(nullptr, 0, 4), 0, function, "state_ != unconfigured()");
}

TEST_F(ReadRules, unconfigured_unknownAddressIsAnsweredWithoutTheCheck) {
  U32 value = 5;
  EXPECT_FALSE(shadow->readFromCacheHack(ChipAddress(0x9999), reinterpret_cast<U8*>(&value), 4));
  EXPECT_EQ(5u, value);
  EXPECT_EQ(0u, shadow->readFromCacheU32(ChipAddress(0x9999)));
}

TEST_F(ReadRules, nullRegion_isFalseUnderOverrideHardwareToo) {
  filled(4);
  EXPECT_FALSE(read(nullptr, 0, 4));
  shadow->overrideHardwareIs(true);
  EXPECT_FALSE(read(nullptr, 0, 4));
  EXPECT_TRUE(untouched());
}

TEST_F(ReadRules, flagOff_isFalseBeforeAnyCheck) {
  const ChipMemory::Ptr cm = filled(4);
  cm->readFromCacheIs(false);
  EXPECT_FALSE(read(cm, 100, 4));
  EXPECT_TRUE(untouched());
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(ReadRules, flagOff_isServedUnderOverrideHardware) {
  const ChipMemory::Ptr cm = filled(4);
  cm->readFromCacheIs(false);
  shadow->overrideHardwareIs(true);
  EXPECT_TRUE(read(cm, 1, 4));
  EXPECT_EQ(0x11111102u, wordAt(0));
}

TEST_F(ReadRules, overrideMode_readsAsZerosOfAnySizeAndCountsNothing) {
  const ChipMemory::Ptr cm = filled(4);
  cm->modeIs(ChipMemory::override());
  trace.taken();
  EXPECT_TRUE(read(cm, 1000, 7));
  for (U32 i = 0; i < 7; ++i) EXPECT_EQ(0, data[i]);
  EXPECT_TRUE(untouched(7));
  EXPECT_EQ(0u, cm->readCacheHits());
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(ReadRules, overrideMode_withoutEitherFlagIsFalse) {
  const ChipMemory::Ptr cm = filled(4);
  cm->modeIs(ChipMemory::override());
  cm->readFromCacheIs(false);
  EXPECT_FALSE(read(cm, 0, 4));
  EXPECT_TRUE(untouched());
}

TEST_F(ReadRules, checks_buffersThenRange) {
  const ChipMemory::Ptr cm = filled(4);
  EXPECT_ASSERTION(read(cm, 4, 4), 0, function, "( entry + numEntries ) <= cm->entries()");
  cm->initializedIs(nullptr);
  EXPECT_ASSERTION(read(cm, 4, 4), 0, function, "initializedBuf");
  cm->shadowIs(nullptr);
  EXPECT_ASSERTION(read(cm, 4, 4), 0, function, "shadowBuf");
}

TEST_F(ReadRules, checks_dirtyBufferIsNotNeeded) {
  const ChipMemory::Ptr cm = filled(4);
  cm->dirtyIs(nullptr);
  EXPECT_TRUE(read(cm, 0, 16));
  EXPECT_EQ(0x11111104u, wordAt(12));
}

TEST_F(ReadRules, checks_sumThatWrapsDoesNotReachAnyByte) {
  const ChipMemory::Ptr cm = filled(4);
  EXPECT_ASSERTION(read(cm, 0xFFFFFFFF, 4), 0, function, "( entry + numEntries ) <= cm->entries()");
}

TEST_F(ReadRules, hit_countsEntriesAndTraces) {
  const ChipMemory::Ptr cm = filled(20);
  EXPECT_TRUE(read(cm, 12, 16));
  EXPECT_EQ(4u, cm->readCacheHits());
  EXPECT_EQ(0x1111110Du, wordAt(0));
  EXPECT_TRUE(untouched(16));
  ASSERT_EQ(1u, trace.full.size());
  EXPECT_EQ("readFromCache", trace.full[0].function);
  EXPECT_EQ((Lines{{7, "Read hit cache cm 4 entries starting at 0xc"}}), trace.taken());
}

TEST_F(ReadRules, miss_reportsTheGroupThatFailed) {
  const ChipMemory::Ptr cm = filled(16);
  cm->entryInitializedDel(8);
  EXPECT_FALSE(read(cm, 6, 16));
  EXPECT_TRUE(untouched());
  EXPECT_EQ(0u, cm->readCacheHits());
  EXPECT_EQ((Lines{{7,
                    "Read miss cache cm 2 entries starting at 8 not in cache, will read from "
                    "hardware"}}),
            trace.taken());
}

TEST_F(ReadRules, miss_groupsEndAtByteBoundaries) {
  const ChipMemory::Ptr cm = filled(30);
  cm->entryInitializedDel(23);
  EXPECT_FALSE(read(cm, 3, 27 * 4));
  EXPECT_EQ((Lines{{7,
                    "Read miss cache cm 8 entries starting at 16 not in cache, will read from "
                    "hardware"}}),
            trace.taken());
  EXPECT_TRUE(read(cm, 24, 6 * 4));
  EXPECT_TRUE(read(cm, 16, 7 * 4));
}

TEST_F(ReadRules, miss_groupWithinOneByteHasItsOwnLength) {
  const ChipMemory::Ptr cm = filled(16);
  cm->entryInitializedDel(3);
  EXPECT_FALSE(read(cm, 2, 8));
  EXPECT_EQ((Lines{{7,
                    "Read miss cache cm 2 entries starting at 2 not in cache, will read from "
                    "hardware"}}),
            trace.taken());
}

TEST_F(ReadRules, overrideHardware_unknownEntriesAreServedAndTracedPerGroup) {
  const ChipMemory::Ptr cm = filled(30);
  for (U32 i : {5u, 9u, 10u}) cm->entryInitializedDel(i);
  shadow->overrideHardwareIs(true);
  EXPECT_TRUE(read(cm, 4, 20 * 4));
  EXPECT_EQ(20u, cm->readCacheHits());
  EXPECT_EQ(0x11111106u, wordAt(4));
  ASSERT_EQ(3u, trace.full.size());
  EXPECT_EQ("<unknown>", trace.full[0].context);
  EXPECT_EQ("", trace.full[2].context);
  EXPECT_EQ((Lines{{4, "cm: accessing uninitialized entry 4"},
                   {4, "cm: accessing uninitialized entry 8"},
                   {7, "Read hit cache cm 20 entries starting at 0x4"}}),
            trace.taken());
}

TEST_F(ReadRules, noEntries_isAHitOfZeroEntries) {
  const ChipMemory::Ptr cm = filled(4);
  EXPECT_TRUE(read(cm, 4, 0));
  EXPECT_TRUE(untouched());
  EXPECT_EQ((Lines{{7, "Read hit cache cm 0 entries starting at 0x4"}}), trace.taken());
}

TEST_F(ReadRules, part_isCopiedAfterTheWholeEntriesAndNotCounted) {
  const ChipMemory::Ptr cm = filled(4);
  cm->allowsLogicalViewsIs(true);
  EXPECT_TRUE(read(cm, 1, 6));
  EXPECT_EQ(0x11111102u, wordAt(0));
  EXPECT_EQ(0x03, data[4]);
  EXPECT_EQ(0x11, data[5]);
  EXPECT_TRUE(untouched(6));
  EXPECT_EQ(1u, cm->readCacheHits());
  EXPECT_EQ((std::vector<U32>{4, 2}), scripted->cachedSizes);
}

TEST_F(ReadRules, part_itsEntryNeedNotBeKnown) {
  const ChipMemory::Ptr cm = filled(4);
  cm->allowsLogicalViewsIs(true);
  cm->entryInitializedDel(2);
  EXPECT_TRUE(read(cm, 1, 7));
  EXPECT_EQ(0x03, data[4]);
  EXPECT_FALSE(read(cm, 1, 8));
}

TEST_F(ReadRules, part_smallerThanAnEntryIsAHitOfZeroEntries) {
  const ChipMemory::Ptr cm = filled(4);
  cm->allowsLogicalViewsIs(true);
  EXPECT_TRUE(read(cm, 3, 1));
  EXPECT_EQ(0x04, data[0]);
  EXPECT_TRUE(untouched(1));
  EXPECT_EQ(0u, cm->readCacheHits());
  EXPECT_EQ((Lines{{7, "Read hit cache cm 0 entries starting at 0x3"}}), trace.taken());
}

TEST_F(ReadRules, part_beyondTheLastEntryReadsAsZero) {
  const ChipMemory::Ptr cm = filled(4);
  cm->allowsLogicalViewsIs(true);
  EXPECT_TRUE(read(cm, 3, 7));
  EXPECT_EQ(0x11111104u, wordAt(0));
  for (U32 i = 4; i < 7; ++i) EXPECT_EQ(0, data[i]) << i;
  EXPECT_TRUE(untouched(7));
  EXPECT_TRUE(read(cm, 4, 3));
  for (U32 i = 0; i < 3; ++i) EXPECT_EQ(0, data[i]) << i;
  EXPECT_TRUE(untouched(3));
}

TEST_F(ReadRules, part_isAcceptedWithoutLogicalViewsWhereNoAddressIsLookedUp) {
  const ChipMemory::Ptr cm = filled(4);
  EXPECT_TRUE(read(cm, 0, 5));
  EXPECT_EQ(0x02, data[4]);
}

TEST_F(ReadRules, part_byAddressStartsAtTheEntry) {
  const ChipMemory::Ptr cm = filled(4);
  cm->allowsLogicalViewsIs(true);
  std::memset(data, 0xEE, sizeof data);
  EXPECT_TRUE(shadow->readFromCacheHack(ChipAddress(0x1006), data, 2));
  EXPECT_EQ(0x02, data[0]);  // of the entry's first byte, not of the address
  EXPECT_EQ(0x11, data[1]);
}

TEST_F(ReadRules, refusalMidway_isFalseAfterTheReadWasCounted) {
  const ChipMemory::Ptr cm = filled(4);
  U32 calls = 0;
  scripted->onCached = [&] { scripted->refuses = ++calls == 2; };
  EXPECT_FALSE(read(cm, 0, 12));
  EXPECT_EQ(3u, cm->readCacheHits());
  EXPECT_EQ(0x11111101u, wordAt(0));
  EXPECT_TRUE(untouched(4));
}

TEST_F(ReadRules, byAddress_aKnownZeroAndAMissAreTheSameWord) {
  const ChipMemory::Ptr cm = filled(4);
  wordIs(cm->shadow(), 1, 0);
  cm->entryInitializedDel(2);
  EXPECT_EQ(0u, shadow->readFromCacheU32(ChipAddress(0x1004)));
  EXPECT_EQ(0u, shadow->readFromCacheU32(ChipAddress(0x1008)));
  EXPECT_EQ(0x11111104u, shadow->readFromCacheU32(ChipAddress(0x100C)));
}

}  // namespace
