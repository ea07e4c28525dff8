// Without tracing and notifiees, reads and writes take the fast path. It respects derived regions
// and installed buffers as the reference does.
#include "support/ShadowTest.h"

#include <new>

namespace {

struct FastPath : Support::ShadowTest {
  FastPath() { Hardware::umbraTrace().levelUpToIs(0); }

  // A region that is read from its store.
  ChipMemory::Ptr readable(const char* name, U64 address, U32 entries, U32 entrySize = 4,
                           U32 stride = 0) {
    const ChipMemory::Ptr cm = region(name, address, entries, entrySize, stride);
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    return cm;
  }
};

struct CountingInc : Hardware::ChipMemory {
  using ChipMemory::ChipMemory;
  void readCacheHitsInc(const U64& n) const override {
    ++calls;
    ChipMemory::readCacheHitsInc(n);
  }
  mutable U32 calls = 0;
};

struct CountingIs : Hardware::ChipMemory {
  using ChipMemory::ChipMemory;
  void readCacheHitsIs(const U64& hits) const override {
    ++calls;
    ChipMemory::readCacheHitsIs(hits);
  }
  mutable U32 calls = 0;
};

struct SkippedWritesIs : Hardware::ChipMemory {
  using ChipMemory::ChipMemory;
  void writeCacheHitsIs(const U64& hits) override {
    seen.push_back(hits);
    ChipMemory::writeCacheHitsIs(hits);
  }
  std::vector<U64> seen;
};

TEST_F(FastPath, aDerivedSetterOfTheSkippedWritesSeesTheSameWhateverTheTraceLevel) {
  for (const U32 level : {0u, 7u, 9u}) {
    Hardware::umbraTrace().levelUpToIs(level);
    const auto cm = Zint::makePtr<SkippedWritesIs>("cm", ChipAddress(0x1000), 8u, 4u, 4u, ham);
    cm->shadowEnabledIs(true);
    cm->skipWriteIfMatchesCacheIs(true);
    U32 values[3] = {};
    U8* data = reinterpret_cast<U8*>(values);
    shadow->shadowWriteAndCompareWithCache(cm, 0, data, sizeof values);
    EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 0, data, sizeof values));
    EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 0, data, 4));
    EXPECT_EQ(cm->seen, (std::vector<U64>{1, 2, 3, 4})) << level;
  }
}

// A region whose counter drops the last reference to it.
struct DroppedByItsCounter : Hardware::ChipMemory {
  using ChipMemory::ChipMemory;
  void writeCacheHitsInc(const U64& n) override {
    finder->lastChipMemoryIs(nullptr);
    owner = nullptr;
    ChipMemory::writeCacheHitsInc(n);
  }
  Hardware::HardwareShadow* finder = nullptr;
  static inline ChipMemory::Ptr owner;
};

TEST_F(FastPath, aRegionIsHeldWhileItCounts) {
  for (const U32 level : {0u, 9u}) {
    Hardware::umbraTrace().levelUpToIs(level);
    auto cm = Zint::makePtr<DroppedByItsCounter>("cm", ChipAddress(0x1000), 8u, 4u, 4u, ham);
    cm->finder = shadow.ptr();
    cm->shadowEnabledIs(true);
    cm->skipWriteIfMatchesCacheIs(true);
    cm->doClear();
    DroppedByItsCounter::owner = cm;
    shadow->lastChipMemoryIs(cm);
    static_cast<Zint::Ptr<DroppedByItsCounter>&>(cm) = nullptr;
    U32 value = 0;
    EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(shadow->lastChipMemory(), 0,
                                                       reinterpret_cast<U8*>(&value), 4));
  }
}

// Step by step, an entry is copied and marked then: its marks survive in a copy over the bitmap.
TEST_F(FastPath, anEntryIsMarkedAfterItIsCopied) {
  for (const U32 level : {0u, 9u}) {
    Hardware::umbraTrace().levelUpToIs(level);
    const ChipMemory::Ptr cm = shadowed("cm", 0x1000, 8, 1);
    U8* const dirty = cm->dirty()->data();
    shadow->shadowWriteAndCompareWithCache(cm, 3, dirty, 1);
    EXPECT_EQ(cm->shadow()->data()[3], 0) << "the bitmap as it was before the write";
    shadow->shadowWriteAndCompareWithCache(cm, 3, dirty, 1);
    EXPECT_EQ(cm->shadow()->data()[3], 8);
    const U8 initialized = cm->initialized()->data()[0];
    shadow->shadowWriteAndCompareWithCache(cm, 5, cm->initialized()->data(), 1);
    EXPECT_EQ(cm->shadow()->data()[5], initialized);
  }
}

// The address and the data may lie in what the look-up drops.
TEST_F(FastPath, theLastRegionIsHeldDuringTheLookUp) {
  for (const bool isRead : {false, true}) {
    const ChipMemory::Ptr mac = readable("mac", 0x1000, 8);
    ChipMemory::Ptr holder = readable("holder", 0x9000, 1, 64);
    HardwareShadow::Ptr other = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
    other->chipMemoryIs(mac);
    other->stateIs(HardwareShadow::configured());
    write(mac, 1, 0x1234);
    U8* const bytes = holder->shadow()->data();
    auto* address = new (bytes) ChipAddress(0x1004);
    U8* const data = bytes + 16;
    other->lastChipMemoryIs(holder);
    holder = nullptr;  // now the shadow alone holds it
    if (isRead) {
      EXPECT_TRUE(other->readFromCacheHack(*address, data, 4));
    } else {
      other->shadowWriteHack(*address, data, 4);
      EXPECT_EQ(Support::word(mac->shadow(), 1), 0u);
    }
  }
}

TEST_F(FastPath, aRegionThatCountsItsHitsItselfIsAsked) {
  const auto inc = Zint::makePtr<CountingInc>("inc", ChipAddress(0x1000), 8u, 4u, 4u, ham);
  const auto is = Zint::makePtr<CountingIs>("is", ChipAddress(0x2000), 8u, 4u, 4u, ham);
  for (const ChipMemory::Ptr& cm : {ChipMemory::Ptr(inc), ChipMemory::Ptr(is)}) {
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    shadow->chipMemoryIs(cm);
  }
  shadow->stateIs(HardwareShadow::configured());
  for (const ChipMemory::Ptr& cm : {ChipMemory::Ptr(inc), ChipMemory::Ptr(is)}) {
    write(cm, 2, 0x1234);
    U32 value = 0;
    EXPECT_TRUE(shadow->readFromCache(cm, 2, reinterpret_cast<U8*>(&value), 4));
    EXPECT_EQ(value, 0x1234u);
    EXPECT_EQ(cm->readCacheHits(), 1u);
  }
  EXPECT_EQ(inc->calls, 1u);
  EXPECT_EQ(is->calls, 1u);
}

TEST_F(FastPath, marksOfWhatIsInitialisedMustFitAsThoseOfWhatIsDirty) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  configure({mac});
  mac->initializedIs(Zint::makePtr<Hal::Buf>(1u));
  U32 value = 0;
  EXPECT_REGION_ASSERTION(write(mac, 15, value), "mac");
  shadow->stateIs(HardwareShadow::auditing());
  shadow->auditReadRequest()->stateIs(ChipReadRequest::start_);
  EXPECT_REGION_ASSERTION(shadow->auditReadRequest()->statusIs(ChipReadRequest::done_), "mac");
}

// The rules that keep undefined territory from being entered hold on the fast path as on the
// reference.
TEST_F(FastPath, whatDoesNotFitIsFatalAllTheSame) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  mac->readFromCacheIs(true);
  configure({mac});
  U8 bytes[8] = {};
  const auto read = [&](U32 entry, U32 size) {
    return shadow->readFromCache(mac, entry, bytes, size);
  };
  for (U32 e = 0; e < 16; ++e) write(mac, e, e);
  ASSERT_TRUE(read(15, 4));
  EXPECT_EQ(Support::assertedCondition([&] { read(16, 4); }),
            "( entry + numEntries ) <= cm->entries()");
  EXPECT_EQ(Support::assertedCondition([&] { write(mac, 16, 0); }),
            "entry + numEntries <= cm->entries()");
  EXPECT_EQ(Support::assertedCondition([&] { read(0xffffffff, 8); }),
            "( entry + numEntries ) <= cm->entries()")
      << "nor does one that begins at the end of all numbers and ends within";
  EXPECT_EQ(Support::assertedCondition(
                [&] { shadow->shadowWriteAndCompareWithCache(mac, 0xffffffff, bytes, 8); }),
            "entry + numEntries <= cm->entries()");
  const Hal::BufBase::Ptr whole = mac->shadow();
  mac->shadowIs(Zint::makePtr<Hal::Buf>(128u));  // room for more entries than there are
  EXPECT_EQ(Support::assertedCondition([&] { read(16, 4); }),
            "( entry + numEntries ) <= cm->entries()");
  EXPECT_EQ(Support::assertedCondition([&] { write(mac, 16, 0); }),
            "entry + numEntries <= cm->entries()");
  mac->shadowIs(whole);
  EXPECT_TRUE(read(15, 6)) << "part of the entry past the last one";
  mac->shadowIs(Zint::makePtr<Hal::Buf>(60u));
  EXPECT_REGION_ASSERTION(read(15, 4), "mac");
  EXPECT_REGION_ASSERTION(write(mac, 15, 0), "mac");
  EXPECT_TRUE(read(14, 4));
  mac->shadowIs(whole);
  const Hal::BufBase::Ptr marks = mac->initialized();
  mac->initializedIs(Zint::makePtr<Hal::Buf>(1u));
  EXPECT_REGION_ASSERTION(read(15, 4), "mac");
  EXPECT_REGION_ASSERTION(read(8, 4), "mac");
  mac->initializedIs(marks);
  mac->dirtyIs(Zint::makePtr<Hal::Buf>(1u));
  EXPECT_REGION_ASSERTION(write(mac, 8, 0), "mac");
  EXPECT_FALSE(write(mac, 7, 5));
}

TEST_F(FastPath, aBufferThatIsMissingIsFatalAllTheSame) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  mac->readFromCacheIs(true);
  configure({mac});
  U8 bytes[4] = {};
  const auto conditions = [&] {
    return std::vector<std::string>{
        Support::assertedCondition([&] { shadow->readFromCache(mac, 1, bytes, 4); }),
        Support::assertedCondition([&] { write(mac, 1, 0); })};
  };
  const Hal::BufBase::Ptr store = mac->shadow(), dirty = mac->dirty(), known = mac->initialized();
  mac->dirtyIs(nullptr);
  EXPECT_EQ(conditions(), (std::vector<std::string>{"", "dirtyBuf"}));
  mac->dirtyIs(dirty);
  mac->initializedIs(nullptr);
  EXPECT_EQ(conditions(), (std::vector<std::string>{"initializedBuf", "initializedBuf"}));
  mac->initializedIs(known);
  mac->shadowIs(nullptr);
  EXPECT_EQ(conditions(), (std::vector<std::string>{"shadowBuf", "shadowBuf"}));
  mac->shadowIs(store);
  EXPECT_EQ(conditions(), (std::vector<std::string>{"", ""}));
}

// A store that somebody else has put there is not used.
TEST_F(FastPath, anOverriddenRegionStoresNothingAndReadsAsZeros) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  mac->readFromCacheIs(true);
  configure({mac});
  write(mac, 1, 0x1234);
  const Hal::BufBase::Ptr store = mac->shadow(), dirty = mac->dirty(), known = mac->initialized();
  mac->modeIs(ChipMemory::override());
  mac->shadowIs(store);
  mac->dirtyIs(dirty);
  mac->initializedIs(known);
  EXPECT_TRUE(write(mac, 1, 5));
  EXPECT_EQ(Support::word(store, 1), 0x1234u);
  U8 bytes[4] = {1, 2, 3, 4};
  EXPECT_TRUE(shadow->readFromCache(mac, 1, bytes, 4));
  EXPECT_EQ(std::vector<U8>(bytes, bytes + 4), std::vector<U8>(4));
}

TEST_F(FastPath, entriesOfNoBytesAreFatalAllTheSame) {
  const ChipMemory::Ptr hollow = readable("hollow", 0x8000, 4, 0, 4);
  configure({hollow});
  U8 byte = 0;
  EXPECT_REGION_ASSERTION(shadow->readFromCache(hollow, 0, &byte, 1), "hollow");
  EXPECT_REGION_ASSERTION(shadow->shadowWriteAndCompareWithCache(hollow, 0, &byte, 1), "hollow");
  EXPECT_REGION_ASSERTION(shadow->readFromCache(hollow, 0, &byte, 0), "hollow");
  EXPECT_REGION_ASSERTION(shadow->shadowWriteAndCompareWithCache(hollow, 0, &byte, 0), "hollow");
}

TEST_F(FastPath, anEntryAfterTheLastIsFatalThoughTheBuffersHoldIt) {
  const ChipMemory::Ptr mac = readable("mac", 0x1000, 12);
  configure({mac});
  mac->shadowIs(Zint::makePtr<Hal::Buf>(64u));
  mac->initializedIs(Zint::makePtr<Hal::Buf>(2u));
  mac->initialized()->data()[1] = 0xff;
  U8 bytes[8] = {};
  EXPECT_EQ(Support::assertedCondition([&] { shadow->readFromCache(mac, 12, bytes, 4); }),
            "( entry + numEntries ) <= cm->entries()");
  EXPECT_EQ(Support::assertedCondition([&] { write(mac, 12, 0); }),
            "entry + numEntries <= cm->entries()");
  EXPECT_EQ(Support::assertedCondition([&] { shadow->readFromCache(mac, 11, bytes, 8); }),
            "( entry + numEntries ) <= cm->entries()");
  EXPECT_EQ(Support::assertedCondition(
                [&] { shadow->shadowWriteAndCompareWithCache(mac, 11, bytes, 8); }),
            "entry + numEntries <= cm->entries()");
  mac->shadowIs(Zint::makePtr<Hal::Buf>(47u));  // the last entry lacks its last byte
  EXPECT_REGION_ASSERTION(shadow->readFromCache(mac, 11, bytes, 4), "mac");
  EXPECT_REGION_ASSERTION(write(mac, 11, 0), "mac");
}

TEST_F(FastPath, entriesOfNoBytesAreAuditedAsEqual) {
  const ChipMemory::Ptr hollow =
      Hardware::chipMemoryFactory("hollow", ChipAddress(0x8000), 4, 0, 4, ham);
  hollow->shadowEnabledIs(true);
  hollow->auditEnabledIs(true);
  configure({hollow});
  hollow->entryInitializedIs(1);
  shadow->stateIs(HardwareShadow::auditing());
  shadow->auditReadRequest()->stateIs(ChipReadRequest::start_);
  shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
  EXPECT_EQ(shadow->audits(), 1u);
  EXPECT_EQ(hollow->registersFixed(), 0u);
  EXPECT_EQ(Support::marked(hollow->initialized()), std::vector<U32>{1});
}

TEST_F(FastPath, aPartOfAnEntryIsReadWithoutBeingCounted) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  mac->readFromCacheIs(true);
  configure({mac});
  write(mac, 3, 0x04030201);
  write(mac, 4, 0x08070605);
  U8 bytes[8] = {};
  EXPECT_TRUE(shadow->readFromCache(mac, 3, bytes, 6));
  EXPECT_EQ(std::vector<U8>(bytes, bytes + 8), (std::vector<U8>{1, 2, 3, 4, 5, 6, 0, 0}));
  EXPECT_EQ(mac->readCacheHits(), 1u);
  EXPECT_TRUE(shadow->readFromCache(mac, 3, bytes, 8));
  EXPECT_EQ(mac->readCacheHits(), 3u);
  EXPECT_FALSE(shadow->readFromCache(mac, 4, bytes, 8)) << "entry 5 is not known";
}

struct CountingWrites : Hardware::ChipMemory {
  using ChipMemory::ChipMemory;
  void writeCacheHitsInc(const U64& n) override {
    ++calls;
    ChipMemory::writeCacheHitsInc(n);
  }
  U32 calls = 0;
};

// Later entries see what earlier ones have changed, at every trace level.
TEST_F(FastPath, whatIsCopiedFromTheStoreToItselfGoesEntryByEntry) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 8);
  mac->readFromCacheIs(true);
  configure({mac});
  U8* const store = mac->shadow()->data();
  for (const int level : {0, 9}) {
    Hardware::umbraTrace().levelUpToIs(level);
    for (U32 e = 0; e < 8; ++e) write(mac, e, e + 1);
    shadow->shadowWriteAndCompareWithCache(mac, 1, store, 12);
    for (U32 e = 0; e < 4; ++e) EXPECT_EQ(Support::word(mac->shadow(), e), 1u) << level;
    EXPECT_TRUE(shadow->readFromCache(mac, 3, store + 16, 16));
    for (U32 e = 3; e < 8; ++e) EXPECT_EQ(Support::word(mac->shadow(), e), 1u) << level;
  }
}

TEST_F(FastPath, aRegionThatCountsItsSkippedWritesItselfIsAskedForEach) {
  const auto cm = Zint::makePtr<CountingWrites>("cm", ChipAddress(0x1000), 8u, 4u, 4u, ham);
  cm->shadowEnabledIs(true);
  cm->skipWriteIfMatchesCacheIs(true);
  configure({cm});
  U8 bytes[32] = {};
  EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(cm, 0, bytes, sizeof bytes));
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(cm, 0, bytes, sizeof bytes));
  EXPECT_EQ(cm->calls, 8u);
  EXPECT_EQ(cm->writeCacheHits(), 8u);
}

// No access method and no room are needed for what is not copied.
TEST_F(FastPath, noBytesAndWritesThatAreSkippedNeedNoAccessMethod) {
  const ChipMemory::Ptr bare =
      Hardware::chipMemoryFactory("bare", ChipAddress(0x1000), 16, 4, 4, nullptr);
  bare->shadowEnabledIs(true);
  configure({bare});
  U8 bytes[4] = {};
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(bare, 3, bytes, 0));
  EXPECT_REGION_ASSERTION(write(bare, 3, 0), "bare");
  bare->skipWriteIfMatchesCacheIs(true);
  bare->entryInitializedIs(3);
  EXPECT_TRUE(write(bare, 3, 0));
  EXPECT_REGION_ASSERTION(write(bare, 3, 1), "bare");
  bare->shadowIs(Zint::makePtr<Hal::Buf>(8u));
  EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(bare, 5, bytes, 0));
}

TEST_F(FastPath, aMissCountsNoHits) {
  const auto cm = Zint::makePtr<CountingWrites>("cm", ChipAddress(0x1000), 8u, 4u, 4u, ham);
  cm->shadowEnabledIs(true);
  cm->skipWriteIfMatchesCacheIs(true);
  configure({cm});
  EXPECT_FALSE(write(cm, 2, 5));
  EXPECT_EQ(cm->calls, 0u);
  EXPECT_TRUE(write(cm, 2, 5));
  EXPECT_EQ(cm->calls, 1u);
  EXPECT_EQ(cm->writeCacheHits(), 1u);
}

// The region found last takes an access without a look-up, but none that is not its own.
struct LastRegion : FastPath {
  bool known(const ChipAddress& address, U32 size = 4) {
    U8 bytes[8] = {};
    return shadow->readFromCacheHack(address, bytes, size);
  }
};

TEST_F(LastRegion, takesNothingBeforeOrAfterIt) {
  const ChipMemory::Ptr mac = readable("mac", 0x1000, 16);
  const ChipMemory::Ptr other = readable("other", 0x1'00001000, 16);
  configure({mac, other});
  for (U32 e = 0; e < 16; ++e) shadow->shadowWriteU32(ChipAddress(0x1000 + 4 * e), e);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
  EXPECT_TRUE(known(ChipAddress(0x1000)));
  EXPECT_TRUE(known(ChipAddress(0x103c)));
  EXPECT_FALSE(known(ChipAddress(0x1040)));
  EXPECT_FALSE(known(ChipAddress(0xffc)));
  EXPECT_FALSE(known(ChipAddress(2, 0x1000)));
  EXPECT_FALSE(known(ChipAddress(1, 0x1000)));
  EXPECT_EQ(shadow->lastChipMemory(), other);
  shadow->shadowWriteU32(ChipAddress(0x1004), 0x55);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
  shadow->shadowWriteU32(ChipAddress(1, 0x1004), 0x66);
  EXPECT_EQ(Support::word(mac->shadow(), 1), 0x55u);
  EXPECT_EQ(Support::word(other->shadow(), 1), 0x66u);
}

TEST_F(LastRegion, mayLieAcrossTheEndOfTheOffsets) {
  const ChipMemory::Ptr edge = readable("edge", 0xfffffff0, 16);
  configure({edge});
  for (U32 e = 0; e < 16; ++e) write(edge, e, e);
  shadow->lastChipMemoryIs(edge);
  EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(0, 0xfffffffc)), 3u);
  EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(1, 4)), 5u);
  EXPECT_FALSE(known(ChipAddress(0, 4))) << "as far from its beginning, were 2^32 nothing";
  EXPECT_FALSE(known(ChipAddress(1, 0x30)));
}

TEST_F(LastRegion, endsWhereItsSpanOf32BitsEnds) {
  const ChipMemory::Ptr wide = readable("wide", 0, 0x10001, 1, 0x10000);
  configure({wide});
  U8 bytes[3] = {1, 2, 3};
  shadow->shadowWriteAndCompareWithCache(wide, 0, bytes, 3);
  shadow->lastChipMemoryIs(wide);
  EXPECT_TRUE(known(ChipAddress(0xffff), 1));
  EXPECT_FALSE(known(ChipAddress(0x10000), 1));
  EXPECT_FALSE(known(ChipAddress(0x20000), 1));
}

TEST_F(LastRegion, mayHaveAStrideThatIsNoPowerOfTwo) {
  const ChipMemory::Ptr odd = readable("odd", 0x100, 8, 4, 12);
  configure({odd});
  for (U32 e = 0; e < 8; ++e) shadow->shadowWriteU32(ChipAddress(0x100 + 12 * e), 0x70 + e);
  EXPECT_EQ(shadow->lastChipMemory(), odd);
  for (U32 e = 0; e < 8; ++e) {
    EXPECT_EQ(Support::word(odd->shadow(), e), 0x70 + e);
    EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(0x104 + 12 * e)), 0x70 + e);
  }
}

}  // namespace
