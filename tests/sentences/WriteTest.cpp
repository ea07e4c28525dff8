// The write path: the order of its steps, and its table of decisions.
#include <numeric>

#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;

class WriteRules : public ShadowTest {
 protected:
  ChipMemory::Ptr on(U32 entries, U32 entrySize = 4) {
    const ChipMemory::Ptr cm = Hardware::chipMemoryFactory("cm", ChipAddress(0x1000), entries,
                                                           entrySize, entrySize, scripted);
    cm->shadowEnabledIs(true);
    trace.taken();
    return cm;
  }
  bool words(const ChipMemory::Ptr& cm, U32 entry, std::vector<U32> values) {
    return shadow->shadowWriteAndCompareWithCache(cm, entry, reinterpret_cast<U8*>(values.data()),
                                                  static_cast<U32>(values.size()) * 4);
  }
  const std::string function =
      "bool Hardware::HardwareShadow::shadowWriteAndCompareWithCache(const "
      "Hardware::ChipMemory::Ptr&, U32, U8*, U32)";
};

TEST_F(WriteRules, nullRegion_isFalseAndSilent) {
  EXPECT_FALSE(words(nullptr, 0, {1}));
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(WriteRules, nullRegion_isFalseUnderOverrideHardwareToo) {
  shadow->overrideHardwareIs(true);
  EXPECT_FALSE(words(nullptr, 0, {1}));
}

TEST_F(WriteRules, overrideMode_isTrueBeforeAnyTraceOrCheck) {
  const ChipMemory::Ptr cm = on(4);
  cm->modeIs(ChipMemory::override());
  EXPECT_TRUE(words(cm, 100, {1}));
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 0, nullptr, 3));
  EXPECT_EQ(Lines{}, trace.taken());
  EXPECT_TRUE(scripted->cachedSizes.empty());
}

TEST_F(WriteRules, trace_numbersAreHexadecimal) {
  const ChipMemory::Ptr cm = on(40);
  words(cm, 0x1C, {1, 2, 3, 4});
  EXPECT_EQ((Lines{{9, "HardwareShadow::shadowWrite cm entry 0x1c size 0x10"}}), trace.taken());
}

TEST_F(WriteRules, trace_comesBeforeTheChecks) {
  const ChipMemory::Ptr cm = on(4);
  EXPECT_EQ("entry + numEntries <= cm->entries()", assertedCondition([&] { words(cm, 4, {1}); }));
  EXPECT_EQ((Lines{{9, "HardwareShadow::shadowWrite cm entry 0x4 size 0x4"}}), trace.taken());
}

TEST_F(WriteRules, checks_buffersInTheirOrderBeforeTheSizes) {
  const ChipMemory::Ptr cm = on(4);
  const Hal::BufBase::Ptr dirty = cm->dirty();
  U8 data[8] = {};
  cm->initializedIs(nullptr);
  EXPECT_ASSERTION(shadow->shadowWriteAndCompareWithCache(cm, 9, data, 3), 0, function,
                   "initializedBuf");
  cm->dirtyIs(nullptr);
  EXPECT_ASSERTION(shadow->shadowWriteAndCompareWithCache(cm, 9, data, 3), 0, function, "dirtyBuf");
  cm->shadowIs(nullptr);
  EXPECT_ASSERTION(shadow->shadowWriteAndCompareWithCache(cm, 9, data, 3), 0, function,
                   "shadowBuf");
}

TEST_F(WriteRules, checks_partialEntryIsFatalAlsoWithLogicalViews) {
  const ChipMemory::Ptr cm = on(4);
  cm->allowsLogicalViewsIs(true);
  U8 data[8] = {};
  EXPECT_ASSERTION(shadow->shadowWriteAndCompareWithCache(cm, 9, data, 6), 0, function,
                   "size % cm->entrySize() == 0");
}

TEST_F(WriteRules, checks_rangeMustEndWithinTheEntries) {
  const ChipMemory::Ptr cm = on(4);
  EXPECT_FALSE(words(cm, 2, {1, 2}));
  EXPECT_ASSERTION(words(cm, 3, {1, 2}), 0, function, "entry + numEntries <= cm->entries()");
  EXPECT_ASSERTION(words(cm, 5, {}), 0, function, "entry + numEntries <= cm->entries()");
}

TEST_F(WriteRules, checks_sumThatWrapsDoesNotReachAnyByte) {
  const ChipMemory::Ptr cm = on(4);
  EXPECT_ASSERTION(words(cm, 0xFFFFFFFF, {1}), 0, function, "entry + numEntries <= cm->entries()");
}

TEST_F(WriteRules, checks_nothingIsWrittenBeforeThem) {
  const ChipMemory::Ptr cm = on(4);
  (void)assertedCondition([&] { words(cm, 3, {1, 2}); });
  EXPECT_EQ(Entries{}, marked(cm->shadow()));
  EXPECT_EQ(Entries{}, marked(cm->dirty()));
}

TEST_F(WriteRules, noEntries_isTrueInEveryModeThatHasAStore) {
  const ChipMemory::Ptr cm = on(4);
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 4, nullptr, 0));
  EXPECT_EQ((Lines{{9, "HardwareShadow::shadowWrite cm entry 0x4 size 0x0"}}), trace.taken());
  EXPECT_EQ(Entries{}, marked(cm->dirty()));
}

TEST_F(WriteRules, normalMode_missStoresMarksAndIsFalse) {
  const ChipMemory::Ptr cm = on(4);
  EXPECT_FALSE(words(cm, 1, {7, 8}));
  EXPECT_EQ((Entries{1, 2}), marked(cm->dirty()));
  EXPECT_EQ((Entries{1, 2}), marked(cm->initialized()));
  EXPECT_EQ(8u, word(cm->shadow(), 2));
  EXPECT_EQ((std::vector<U32>{4, 4}), scripted->cachedSizes);
  EXPECT_TRUE(scripted->log.empty());
}

TEST_F(WriteRules, normalMode_missIsTrueUnderOverrideHardwareAndStoredAllTheSame) {
  const ChipMemory::Ptr cm = on(4);
  shadow->overrideHardwareIs(true);
  EXPECT_TRUE(words(cm, 1, {7}));
  EXPECT_EQ((Entries{1}), marked(cm->dirty()));
}

TEST_F(WriteRules, bufferedMode_missStoresMarksAndIsTrue) {
  const ChipMemory::Ptr cm = on(4);
  cm->modeIs(ChipMemory::buffered());
  EXPECT_TRUE(words(cm, 1, {7}));
  EXPECT_EQ((Entries{1}), marked(cm->dirty()));
  EXPECT_EQ(0u, cm->writeCacheHits());
}

TEST_F(WriteRules, hit_countsTracesAndMarksNothing) {
  const ChipMemory::Ptr cm = on(40);
  cm->skipWriteIfMatchesCacheIs(true);
  words(cm, 30, {7, 8});
  std::memset(cm->dirty()->data(), 0, cm->dirty()->size());
  trace.taken();
  scripted->cachedSizes.clear();
  EXPECT_TRUE(words(cm, 30, {7, 8}));
  EXPECT_EQ(2u, cm->writeCacheHits());
  EXPECT_EQ(Entries{}, marked(cm->dirty()));
  EXPECT_TRUE(scripted->cachedSizes.empty());
  EXPECT_EQ((Lines{{9, "HardwareShadow::shadowWrite cm entry 0x1e size 0x8"},
                   {7, "Write hit cache cm entry 0x1e"},
                   {7, "Write hit cache cm entry 0x1f"}}),
            trace.taken());
}

TEST_F(WriteRules, hit_needsTheFlag) {
  const ChipMemory::Ptr cm = on(4);
  words(cm, 0, {7});
  EXPECT_FALSE(words(cm, 0, {7}));
  EXPECT_EQ(0u, cm->writeCacheHits());
}

TEST_F(WriteRules, hit_needsAnInitializedEntry) {
  const ChipMemory::Ptr cm = on(4);
  cm->skipWriteIfMatchesCacheIs(true);
  EXPECT_FALSE(words(cm, 0, {0}));
  EXPECT_EQ((Entries{0}), marked(cm->initialized()));
  EXPECT_TRUE(words(cm, 0, {0}));
}

TEST_F(WriteRules, hit_firstThenMissIsFalse) {
  const ChipMemory::Ptr cm = on(4);
  cm->skipWriteIfMatchesCacheIs(true);
  words(cm, 0, {7});
  EXPECT_FALSE(words(cm, 0, {7, 8}));
  EXPECT_EQ(1u, cm->writeCacheHits());
}

TEST_F(WriteRules, hit_afterAMissDoesNotChangeTheResult) {
  const ChipMemory::Ptr cm = on(4);
  cm->skipWriteIfMatchesCacheIs(true);
  words(cm, 1, {8});
  EXPECT_FALSE(words(cm, 0, {7, 8}));
  EXPECT_EQ(1u, cm->writeCacheHits());
}

TEST_F(WriteRules, hit_differenceInTheLastByteIsAMiss) {
  const ChipMemory::Ptr cm = on(2, 13);
  cm->skipWriteIfMatchesCacheIs(true);
  U8 data[13] = {};
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(cm, 1, data, 13));
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 1, data, 13));
  data[12] = 1;
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(cm, 1, data, 13));
}

TEST_F(WriteRules, refusal_isNotMarkedAndTheResultFollowsTheMode) {
  const ChipMemory::Ptr cm = on(4);
  scripted->refuses = true;
  EXPECT_FALSE(words(cm, 0, {7}));
  cm->modeIs(ChipMemory::buffered());
  EXPECT_TRUE(words(cm, 0, {7}));
  EXPECT_EQ(Entries{}, marked(cm->dirty()));
  EXPECT_EQ(Entries{}, marked(cm->initialized()));
}

TEST_F(WriteRules, mode_isReadAfterTheAccessMethodHasStored) {
  const ChipMemory::Ptr cm = on(4);
  cm->shadowEnabledIs(false);  // buffers of the client's own, which no mode replaces in the region
  const Hal::BufBase::Ptr shadowBuf = Zint::makePtr<Hal::Buf>(16u),
                          dirty = Zint::makePtr<Hal::Buf>(1u),
                          initialized = Zint::makePtr<Hal::Buf>(1u);
  const auto install = [&] {
    cm->shadowIs(shadowBuf);
    cm->dirtyIs(dirty);
    cm->initializedIs(initialized);
  };
  install();
  scripted->onCached = [&] {
    cm->modeIs(ChipMemory::buffered());
    install();
  };
  EXPECT_TRUE(words(cm, 0, {7}));
  EXPECT_EQ((Entries{0}), marked(dirty));
  scripted->onCached = [&] {
    cm->modeIs(ChipMemory::normal());
    install();
  };
  EXPECT_FALSE(words(cm, 0, {7}));
}

TEST_F(WriteRules, shadowEnabled_isNotConsulted) {
  const ChipMemory::Ptr cm = on(4);
  cm->shadowEnabledIs(false);
  const Hal::BufBase::Ptr shadowBuf = Zint::makePtr<Hal::Buf>(16u),
                          bits = Zint::makePtr<Hal::Buf>(1u), known = Zint::makePtr<Hal::Buf>(1u);
  cm->shadowIs(shadowBuf);
  cm->dirtyIs(bits);
  cm->initializedIs(known);
  EXPECT_FALSE(words(cm, 3, {7}));
  EXPECT_EQ(7u, word(shadowBuf, 3));
  EXPECT_EQ((Entries{3}), marked(bits));
}

TEST_F(WriteRules, byAddress_unknownIsIgnored) {
  shadow->shadowWriteU32(ChipAddress(0x9999), 1);
  shadow->shadowWriteHack(ChipAddress(0x9999), nullptr, 3);
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(WriteRules, byAddress_writesTheEntryAtOrBelow) {
  const ChipMemory::Ptr cm = on(4);
  configure({cm});
  shadow->shadowWriteU32(ChipAddress(0x100A), 0x77);
  EXPECT_EQ(0x77u, word(cm->shadow(), 2));
  EXPECT_EQ((Entries{2}), marked(cm->dirty()));
}

}  // namespace
