// Volatile entries: the data path neither serves them from the cache nor skips a write of them. All
// other entries, and the region without them, answer as ever.
#include "support/ShadowTest.h"

namespace {

struct VolatileEntries : Support::ShadowTest {
  VolatileEntries() {
    shadow->stateIs(HardwareShadow::configured());
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    cm->skipWriteIfMatchesCacheIs(true);
  }
  static Hal::BufBase::Ptr bitmap(std::initializer_list<U8> bytes) {
    const Hal::Buf::Ptr buffer = Hal::bufFactory(static_cast<U32>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), buffer->data());
    return buffer;
  }
  bool write(U32 entry, std::vector<U32> values) {
    return shadow->shadowWriteAndCompareWithCache(cm, entry, reinterpret_cast<U8*>(values.data()),
                                                  static_cast<U32>(4 * values.size()));
  }
  bool read(U32 entry, U32 count) {
    std::vector<U32> values(count);
    return shadow->readFromCache(cm, entry, reinterpret_cast<U8*>(values.data()), 4 * count);
  }

  const ChipMemory::Ptr cm = region("status", 0x9000, 20);
};

TEST_F(VolatileEntries, areNeverServed) {
  cm->volatileEntriesIs(bitmap({0x04, 0x02, 0x00}));
  write(0, std::vector<U32>(20, 7));
  for (U32 e = 0; e < 20; ++e) EXPECT_EQ(read(e, 1), e != 2 && e != 9) << e;
  EXPECT_TRUE(read(0, 2));
  EXPECT_FALSE(read(0, 3));
  EXPECT_TRUE(read(3, 6));
  EXPECT_FALSE(read(3, 7));
  EXPECT_TRUE(read(10, 10));
  EXPECT_EQ(cm->readCacheHits(), 18u + 2 + 6 + 10);
}

TEST_F(VolatileEntries, areNeverSkippedAsWriteHits) {
  cm->volatileEntriesIs(bitmap({0x04, 0x00, 0x00}));
  EXPECT_FALSE(write(1, {5, 5, 5}));
  EXPECT_FALSE(write(2, {5}));
  EXPECT_TRUE(write(1, {5}));
  EXPECT_TRUE(write(3, {5}));
  EXPECT_FALSE(write(1, {5, 5, 5}));
  EXPECT_EQ(cm->writeCacheHits(), 4u);
}

TEST_F(VolatileEntries, alsoAfterDoClear) {
  cm->volatileEntriesIs(bitmap({0x01}));
  cm->doClear();
  EXPECT_FALSE(read(0, 1));
  EXPECT_TRUE(read(1, 1));
  EXPECT_FALSE(write(0, {0}));
  EXPECT_TRUE(write(1, {0}));
}

TEST_F(VolatileEntries, theStoreHoldsWhatIsWrittenToThem) {
  cm->volatileEntriesIs(bitmap({0xff, 0xff, 0xff}));
  write(3, {0x11223344});
  EXPECT_EQ(cm->shadow()->data()[12], 0x44);
  EXPECT_TRUE(cm->entryInitialized(3));
  EXPECT_EQ(cm->dirty()->data()[0], 0x08);
}

TEST_F(VolatileEntries, areAnsweredByOverrideHardware) {
  cm->volatileEntriesIs(bitmap({0xff, 0xff, 0xff}));
  shadow->overrideHardwareIs(true);
  EXPECT_TRUE(read(0, 20));
  EXPECT_TRUE(write(0, {1}));
}

TEST_F(VolatileEntries, entriesBeyondTheBitmapAreNotVolatile) {
  cm->volatileEntriesIs(bitmap({0xff}));
  write(0, std::vector<U32>(20, 7));
  EXPECT_FALSE(read(7, 1));
  EXPECT_TRUE(read(8, 12));
}

TEST_F(VolatileEntries, withoutThemTheRegionAnswersAsBefore) {
  write(0, std::vector<U32>(20, 7));
  cm->volatileEntriesIs(bitmap({0xff, 0xff, 0xff}));
  EXPECT_FALSE(read(0, 20));
  EXPECT_NE(cm->volatileEntries(), nullptr);
  cm->volatileEntriesIs(nullptr);
  EXPECT_TRUE(read(0, 20));
  EXPECT_TRUE(write(0, std::vector<U32>(20, 7)));
}

TEST_F(VolatileEntries, surviveANewStore) {
  cm->volatileEntriesIs(bitmap({0x01}));
  cm->entriesIs(4);
  write(0, {7, 7, 7, 7});
  EXPECT_FALSE(read(0, 1));
  EXPECT_TRUE(read(1, 3));
}

// The reference writes and asserts as it does for a region that takes it for another reason.
TEST_F(VolatileEntries, accessesBeyondTheRegionAreAssertions) {
  cm->volatileEntriesIs(bitmap({0x01}));
  EXPECT_EQ(Support::assertedCondition([this] {
              write(19, {1, 2});
            }),
            "entry + numEntries <= cm->entries()");
}

// The bitmap that is replaced ends with the region already on its new one.
TEST_F(VolatileEntries, aBitmapsDestructorMayUseTheRegion) {
  struct Reading : Hal::Buf {
    explicit Reading(VolatileEntries& t) : Buf(4), test(t) {}
    ~Reading() override { *seen = test.read(0, 20); }
    VolatileEntries& test;
    bool* seen = nullptr;
  };
  write(0, std::vector<U32>(20, 7));
  Zint::Ptr<Reading> reading = Zint::makePtr<Reading>(*this);
  std::fill_n(reading->data(), 4, U8{0xff});
  cm->volatileEntriesIs(reading);
  bool seen = false;
  reading->seen = &seen;
  reading = nullptr;
  cm->volatileEntriesIs(nullptr);
  EXPECT_TRUE(seen);
}

}  // namespace
