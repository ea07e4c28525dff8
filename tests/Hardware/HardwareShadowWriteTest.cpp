// The write path: what is stored, what is marked, and whether the chip still needs the write.
#include "Allocations.h"
#include "support/ShadowTest.h"

namespace {

using Support::bufferedMode;
using Support::Entries;
using Support::Line;
using Support::Lines;
using Support::marked;
using Support::normalMode;
using Support::overrideMode;
using Support::word;

constexpr const char* writeFunction =
    "bool Hardware::HardwareShadow::shadowWriteAndCompareWithCache(const "
    "Hardware::ChipMemory::Ptr&, U32, U8*, U32)";

class HardwareShadowWrite : public Support::ShadowTest {
 protected:
  HardwareShadowWrite() { trace.full.clear(); }

  bool writeWords(U32 entry, std::vector<U32> words) {
    return shadow->shadowWriteAndCompareWithCache(mac, entry, reinterpret_cast<U8*>(words.data()),
                                                  static_cast<U32>(words.size() * 4));
  }
  bool writeBytes(const ChipMemory::Ptr& cm, U32 entry, U32 size) {
    U8 bytes[64] = {};
    return shadow->shadowWriteAndCompareWithCache(cm, entry, bytes, size);
  }
  void dirtyCleared() { std::memset(mac->dirty()->data(), 0, mac->dirty()->size()); }

  ChipMemory::Ptr mac = shadowed("mac", 0x1000, 16);
};

// --- The decision table -------------------------------------------------------------------------

struct WriteDecision {
  const char* name;
  bool null;
  Hardware::ChipMemory::ChipMemoryMode mode;
  bool skip;
  bool overrideHardware;
  U32 entry;               // entries 0 and 1 hold 0x10 and 0x11, entry 2 holds an unwritten 0
  std::vector<U32> words;  // written from there on
  bool result;
  U64 hits;
  Entries dirty;
  Entries initialized;
  U32 lines;
};

std::ostream& operator<<(std::ostream& out, const WriteDecision& row) { return out << row.name; }

class HardwareShadowWriteDecision : public HardwareShadowWrite,
                                    public testing::WithParamInterface<WriteDecision> {
 protected:
  void isTaken(U32 lines);
};

void HardwareShadowWriteDecision::isTaken(U32 lines) {
  const WriteDecision& row = GetParam();
  mac->modeIs(row.mode);
  if (row.mode != ChipMemory::override()) {
    writeWords(0, {0x10, 0x11});
    dirtyCleared();
  }
  mac->skipWriteIfMatchesCacheIs(row.skip);
  shadow->overrideHardwareIs(row.overrideHardware);
  trace.full.clear();
  if (row.null) mac = nullptr;

  EXPECT_EQ(writeWords(row.entry, row.words), row.result);

  EXPECT_EQ(trace.full.size(), lines);
  EXPECT_TRUE(chip->log.empty());
  if (row.null) return;
  EXPECT_EQ(mac->writeCacheHits(), row.hits);
  if (row.mode == ChipMemory::override()) return;
  EXPECT_EQ(marked(mac->dirty()), row.dirty);
  EXPECT_EQ(marked(mac->initialized()), row.initialized);
  for (U32 i = 0; i < row.words.size(); ++i) {
    EXPECT_EQ(word(mac->shadow(), row.entry + i), row.words[i]);
  }
}

TEST_P(HardwareShadowWriteDecision, isTaken) { isTaken(GetParam().lines); }

TEST_P(HardwareShadowWriteDecision, isTakenAlsoWithoutATrace) {
  Hardware::umbraTrace().levelUpToIs(0);
  isTaken(0);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HardwareShadowWriteDecision,
    testing::Values(
        WriteDecision{"null", true, normalMode, true, false, 0, {0x10}, false, 0, {}, {}, 0},
        WriteDecision{
            "null_overrideHardware", true, normalMode, true, true, 0, {1}, false, 0, {}, {}, 0},
        WriteDecision{"override", false, overrideMode, true, false, 0, {7}, true, 0, {}, {}, 0},
        WriteDecision{"override_overrideHardware",
                      false,
                      overrideMode,
                      true,
                      true,
                      0,
                      {7},
                      true,
                      0,
                      {},
                      {},
                      0},
        WriteDecision{
            "allHit", false, normalMode, true, false, 0, {0x10, 0x11}, true, 2, {}, {0, 1}, 3},
        WriteDecision{"allHit_buffered",
                      false,
                      bufferedMode,
                      true,
                      false,
                      0,
                      {0x10, 0x11},
                      true,
                      2,
                      {},
                      {0, 1},
                      3},
        WriteDecision{
            "secondMisses", false, normalMode, true, false, 0, {0x10, 7}, false, 1, {1}, {0, 1}, 2},
        WriteDecision{
            "firstMisses", false, normalMode, true, false, 0, {7, 0x11}, false, 1, {0}, {0, 1}, 2},
        WriteDecision{"miss_overrideHardware",
                      false,
                      normalMode,
                      true,
                      true,
                      0,
                      {0x10, 7},
                      true,
                      1,
                      {1},
                      {0, 1},
                      2},
        WriteDecision{"miss_buffered",
                      false,
                      bufferedMode,
                      true,
                      false,
                      0,
                      {0x10, 7},
                      true,
                      1,
                      {1},
                      {0, 1},
                      2},
        WriteDecision{"neverSkips",
                      false,
                      normalMode,
                      false,
                      false,
                      0,
                      {0x10, 0x11},
                      false,
                      0,
                      {0, 1},
                      {0, 1},
                      1},
        WriteDecision{"equalButUninitialized",
                      false,
                      normalMode,
                      true,
                      false,
                      2,
                      {0},
                      false,
                      0,
                      {2},
                      {0, 1, 2},
                      1},
        WriteDecision{"noEntry", false, normalMode, true, false, 1, {}, true, 0, {}, {0, 1}, 1},
        WriteDecision{
            "noEntry_atTheEnd", false, bufferedMode, true, false, 16, {}, true, 0, {}, {0, 1}, 1}),
    [](const auto& row) { return row.param.name; });

// --- Rules --------------------------------------------------------------------------------------

TEST_F(HardwareShadowWrite, bufferedWriteIsDirtyAndTheSameValueAgainOnlyCounts) {
  mac->modeIs(ChipMemory::buffered());
  mac->skipWriteIfMatchesCacheIs(true);
  EXPECT_TRUE(write(mac, 3, 0xabcd));
  EXPECT_EQ(marked(mac->dirty()), Entries{3});
  EXPECT_TRUE(write(mac, 3, 0xabcd));
  EXPECT_EQ(mac->writeCacheHits(), 1u);
  EXPECT_EQ(marked(mac->dirty()), Entries{3});
  EXPECT_EQ(marked(mac->initialized()), Entries{3});
}

TEST_F(HardwareShadowWrite, anObserverIsToldOfEachHitWithOrWithoutATrace) {
  struct Watch : ChipMemory::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void handleNotification(Zint::ActivityConfig*) override {
      if (attribute() == ChipMemory::Id::writeCacheHits)
        hits.push_back(notifier()->writeCacheHits());
    }
    std::vector<U64> hits;
  };
  mac->skipWriteIfMatchesCacheIs(true);
  writeWords(4, {1, 2, 3});
  const auto watch = Zint::makePtr<Watch>(loop.activity, mac);
  for (const U32 level : {0u, 9u}) {
    Hardware::umbraTrace().levelUpToIs(level);
    mac->writeCacheHitsIs(0);
    watch->hits.clear();
    writeWords(4, {1, 7, 3});
    EXPECT_EQ(watch->hits, (std::vector<U64>{1, 2})) << level;
    writeWords(5, {2});
  }
}

TEST_F(HardwareShadowWrite, nothingFromNowhereNeedsNoChip) {
  const ChipMemory::Ptr cm = shadowed("r", 0x1000, 8);
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 8, nullptr, 0));
  EXPECT_TRUE(Support::marked(cm->dirty()).empty());
}

TEST_F(HardwareShadowWrite, entriesArePackedByTheirSizeNotByTheStride) {
  const ChipMemory::Ptr sparse = shadowed("sparse", 0x4000, 4, 4, 64);
  write(sparse, 3, 0x01020304);
  EXPECT_EQ(word(sparse->shadow(), 3), 0x01020304u);
  EXPECT_EQ(sparse->shadow()->data()[12], 4);
}

TEST_F(HardwareShadowWrite, differenceInTheLastByteOfAnEntryIsAMiss) {
  mac->skipWriteIfMatchesCacheIs(true);
  write(mac, 0, 0x00000001);
  EXPECT_FALSE(write(mac, 0, 0x80000001));
  EXPECT_EQ(mac->writeCacheHits(), 0u);
}

TEST_F(HardwareShadowWrite, neitherTheStateNorShadowEnabledIsAsked) {
  ASSERT_EQ(shadow->state(), HardwareShadow::unconfigured());
  const Hal::BufBase::Ptr store = mac->shadow(), dirty = mac->dirty(), known = mac->initialized();
  mac->shadowEnabledIs(false);
  mac->shadowIs(store);
  mac->dirtyIs(dirty);
  mac->initializedIs(known);
  EXPECT_FALSE(write(mac, 5, 9));
  EXPECT_EQ(word(store, 5), 9u);
}

TEST_F(HardwareShadowWrite, refusedEntryIsNotMarkedAndTheResultFollowsTheMode) {
  ham = scripted;
  scripted->refuses = true;
  const ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  EXPECT_FALSE(write(odd, 1, 5));
  odd->modeIs(ChipMemory::buffered());
  EXPECT_TRUE(write(odd, 1, 5));
  EXPECT_TRUE(marked(odd->dirty()).empty());
  EXPECT_TRUE(marked(odd->initialized()).empty());
  EXPECT_EQ(scripted->cachedSizes, (std::vector<U32>{4, 4}));
}

TEST_F(HardwareShadowWrite, tracesTheWriteAndEachHit) {
  mac->skipWriteIfMatchesCacheIs(true);
  writeWords(9, {1, 2});
  trace.full.clear();
  writeWords(9, {1, 2});
  const std::vector<Line> expected{{9, "HardwareShadow::shadowWrite mac entry 0x9 size 0x8"},
                                   {7, "Write hit cache mac entry 0x9"},
                                   {7, "Write hit cache mac entry 0xa"}};
  for (const auto& line : trace.full) {
    EXPECT_EQ(line.function, "shadowWriteAndCompareWithCache");
    EXPECT_EQ(line.source, "Hardware/Umbra");
  }
  EXPECT_EQ(trace.taken(), expected);
}

TEST_F(HardwareShadowWrite, hitsAreTracedFromLevel7On) {
  mac->skipWriteIfMatchesCacheIs(true);
  writeWords(9, {1});
  Hardware::umbraTrace().levelUpToIs(6);
  trace.full.clear();
  writeWords(9, {1});
  EXPECT_TRUE(trace.full.empty());
  Hardware::umbraTrace().levelUpToIs(7);
  writeWords(9, {1});
  EXPECT_EQ(trace.taken(), (Lines{{7, "Write hit cache mac entry 0x9"}}));
}

TEST_F(HardwareShadowWrite, missingBuffersAreFatalInTheirOrder) {
  const Hal::BufBase::Ptr store = mac->shadow(), dirty = mac->dirty();
  mac->shadowIs(nullptr);
  mac->dirtyIs(nullptr);
  mac->initializedIs(nullptr);
  EXPECT_ASSERTION(write(mac, 0, 1), 0, writeFunction, "shadowBuf");
  mac->shadowIs(store);
  EXPECT_ASSERTION(write(mac, 0, 1), 0, writeFunction, "dirtyBuf");
  mac->dirtyIs(dirty);
  EXPECT_ASSERTION(write(mac, 0, 1), 0, writeFunction, "initializedBuf");
}

TEST_F(HardwareShadowWrite, partialEntryIsRefusedAlsoWithLogicalViews) {
  EXPECT_ASSERTION(writeBytes(mac, 0, 6), 0, writeFunction, "size % cm->entrySize() == 0");
  mac->allowsLogicalViewsIs(true);
  EXPECT_ASSERTION(writeBytes(mac, 0, 6), 0, writeFunction, "size % cm->entrySize() == 0");
  EXPECT_ASSERTION(writeBytes(mac, 16, 6), 0, writeFunction, "size % cm->entrySize() == 0");
}

TEST_F(HardwareShadowWrite, rangePastTheEntriesIsFatal) {
  constexpr const char* rule = "entry + numEntries <= cm->entries()";
  EXPECT_FALSE(writeBytes(mac, 15, 4));
  EXPECT_ASSERTION(writeBytes(mac, 16, 4), 0, writeFunction, rule);
  EXPECT_ASSERTION(writeBytes(mac, 15, 8), 0, writeFunction, rule);
  EXPECT_ASSERTION(writeBytes(mac, 17, 0), 0, writeFunction, rule);
}

TEST_F(HardwareShadowWrite, rangeCheckDoesNotWrap) {
  constexpr const char* rule = "entry + numEntries <= cm->entries()";
  EXPECT_ASSERTION(writeBytes(mac, 0xffffffff, 4), 0, writeFunction, rule);
  EXPECT_ASSERTION(writeBytes(mac, 0xfffffff8, 64), 0, writeFunction, rule);
}

TEST_F(HardwareShadowWrite, checksComeAfterTheTraceAndBeforeAnythingIsStored) {
  EXPECT_EQ(Support::assertedCondition([&] {
              writeWords(15, {5, 6});
            }),
            "entry + numEntries <= cm->entries()");
  EXPECT_EQ(trace.taken(), (Lines{{9, "HardwareShadow::shadowWrite mac entry 0xf size 0x8"}}));
  EXPECT_EQ(word(mac->shadow(), 15), 0u);
  EXPECT_TRUE(marked(mac->dirty()).empty());
}

TEST_F(HardwareShadowWrite, storeSmallerThanTheEntriesIsFatalAndNamesTheRegion) {
  mac->shadowIs(Zint::makePtr<Hal::Buf>(8u));
  EXPECT_FALSE(writeBytes(mac, 1, 4));
  EXPECT_REGION_ASSERTION(writeBytes(mac, 2, 4), "mac");
}

TEST_F(HardwareShadowWrite, storeWhoseSizeWrappedIsFatalAndNamesTheRegion) {
  const ChipMemory::Ptr huge = shadowed("huge", 0x10000, 0x10000, 0x10000);
  ASSERT_EQ(huge->shadow()->size(), 0u);
  std::vector<U8> entry(0x10000);
  EXPECT_REGION_ASSERTION(shadow->shadowWriteAndCompareWithCache(huge, 0, entry.data(), 0x10000),
                          "huge");
}

// --- By address ---------------------------------------------------------------------------------

TEST_F(HardwareShadowWrite, shadowWriteHack_writesTheEntryAtTheAddress) {
  const ChipMemory::Ptr sparse = shadowed("sparse", 0x4000, 4, 4, 64);
  configure({mac, sparse});
  U32 words[] = {5, 6};
  shadow->shadowWriteHack(ChipAddress(0x4040), reinterpret_cast<U8*>(words), 8);
  EXPECT_EQ(marked(sparse->initialized()), (Entries{1, 2}));
  EXPECT_EQ(word(sparse->shadow(), 2), 6u);
  EXPECT_TRUE(chip->log.empty());
}

TEST_F(HardwareShadowWrite, shadowWriteU32_writesFourBytes) {
  configure({mac});
  shadow->shadowWriteU32(ChipAddress(0x1008), 0xa1b2c3d4);
  EXPECT_EQ(word(mac->shadow(), 2), 0xa1b2c3d4u);
  EXPECT_EQ(marked(mac->dirty()), Entries{2});
}

TEST_F(HardwareShadowWrite, addressInNoRegionIsIgnored) {
  configure({mac});
  U8 bytes[8] = {};
  shadow->shadowWriteU32(ChipAddress(0x1040), 1);
  shadow->shadowWriteHack(ChipAddress(0xfff), bytes, 8);
  EXPECT_TRUE(trace.full.empty());
  EXPECT_TRUE(marked(mac->dirty()).empty());
}

TEST_F(HardwareShadowWrite, shadowWriteHack_sizeIsCheckedByTheLookup) {
  configure({mac});
  U8 bytes[8] = {};
  EXPECT_ASSERTION(shadow->shadowWriteHack(ChipAddress(0x1000), bytes, 6), 0,
                   "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory(const "
                   "Hardware::ChipAddress&, U32)",
                   "cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0");
  mac->allowsLogicalViewsIs(true);
  EXPECT_ASSERTION(shadow->shadowWriteHack(ChipAddress(0x1000), bytes, 6), 0, writeFunction,
                   "size % cm->entrySize() == 0");
}

// With an observer on the region a write takes the long way.
TEST_F(HardwareShadowWrite, theLongWayAllocatesNothingForAKnownEntry) {
  struct Hits : ChipMemory::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void handleNotification(Zint::ActivityConfig*) override {
      if (attribute() == ChipMemory::Id::writeCacheHits) ++told;
    }
    U32 told = 0;
  };
  Hardware::umbraTrace().levelUpToIs(6);
  mac->skipWriteIfMatchesCacheIs(true);
  const auto hits = Zint::makePtr<Hits>(loop.activity, mac);
  EXPECT_FALSE(write(mac, 3, 7));
  bool skipped = false;
  EXPECT_EQ(Support::allocationsOf([&] { skipped = write(mac, 3, 7); }), 0u);
  EXPECT_TRUE(skipped);
  EXPECT_EQ(hits->told, 1u);
  EXPECT_EQ(Support::allocationsOf([&] { skipped = write(mac, 3, 8); }), 0u) << "another value";
  EXPECT_FALSE(skipped);
  EXPECT_EQ(word(mac->shadow(), 3), 8u);
}

// --- What callbacks may do ----------------------------------------------------------------------

TEST_F(HardwareShadowWrite, accessMethodMayReplaceTheStore) {
  ham = scripted;
  const ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  scripted->onCached = [&] { odd->entriesIs(2); };
  U32 words[] = {1, 2, 3, 4};
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(odd, 0, reinterpret_cast<U8*>(words), 16));
  EXPECT_EQ(odd->shadow()->size(), 8u);
}

TEST_F(HardwareShadowWrite, accessMethodMayDropTheLastReferenceToTheRegion) {
  ham = scripted;
  ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  scripted->onCached = [&] { odd = nullptr; };
  U32 words[] = {1, 2};
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(odd, 0, reinterpret_cast<U8*>(words), 8));
  EXPECT_EQ(scripted->cachedSizes, (std::vector<U32>{4, 4}));
}

TEST_F(HardwareShadowWrite, accessMethodMayDropTheLastReferenceToTheShadow) {
  ham = scripted;
  const ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  shadow->overrideHardwareIs(true);
  scripted->onCached = [&] { shadow = nullptr; };
  EXPECT_TRUE(write(odd, 0, 1));
  EXPECT_EQ(shadow, nullptr);
}

}  // namespace
