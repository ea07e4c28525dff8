// A region with notifiees: what the data path announces, and that it does so in the order of the
// reference.
#include <Hardware/HardwareShadow.h>

#include <gmock/gmock.h>
#include <support/ManualLoop.h>

#include <cstring>
#include <functional>
#include <vector>

namespace Hardware {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Zint::interestIn;

class Watch : public ChipMemory::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void handleNotification(Zint::ActivityConfig*) override {
    notified.push_back(attribute());
    if (reaction) reaction();
  }

  std::vector<Zint::AttributeId> notified;
  std::function<void()> reaction;
};

class ObservedRegionTest : public testing::Test {
 protected:
  ObservedRegionTest() {
    region->shadowEnabledIs(true);
    region->readFromCacheIs(true);
    region->skipWriteIfMatchesCacheIs(true);
    shadow->chipMemoryIs(region);
    shadow->stateIs(HardwareShadow::configured());
    watch = Zint::makePtr<Watch>(loop.activity, region, true);
  }
  bool write(U32 entry, std::initializer_list<U32> values) {
    std::vector<U32> data(values);
    return shadow->shadowWriteAndCompareWithCache(region, entry, reinterpret_cast<U8*>(data.data()),
                                                  static_cast<U32>(4 * data.size()));
  }
  bool read(U32 entry, U32 count) {
    return shadow->readFromCache(region, entry, reinterpret_cast<U8*>(readWords), 4 * count);
  }

  static constexpr U32 entries = 40;
  Support::ManualLoop loop;
  HardwareShadow::Ptr shadow = hardwareShadowFactory(loop.activity, nullptr);
  ChipMemory::Ptr region =
      chipMemoryFactory("region", ChipAddress(0, 0), entries, 4, 4, Zint::makePtr<ChipHam>("ham"));
  Zint::Ptr<Watch> watch;
  U32 readWords[entries] = {};
};

constexpr Zint::AttributeId readHits = ChipMemory::Id::readCacheHits;
constexpr Zint::AttributeId writeHits = ChipMemory::Id::writeCacheHits;

TEST_F(ObservedRegionTest, writeThatMissesAnnouncesNothing) {
  EXPECT_FALSE(write(0, {1}));
  EXPECT_FALSE(write(1, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_THAT(watch->notified, IsEmpty());
  EXPECT_TRUE(read(0, 12));
  EXPECT_THAT(readWords, testing::Contains(12u));
}

TEST_F(ObservedRegionTest, eachEntryThatIsSkippedIsAnnounced) {
  write(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  EXPECT_TRUE(write(3, {4}));
  EXPECT_THAT(watch->notified, ElementsAre(writeHits));
  EXPECT_FALSE(write(0, {1, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 12}));
  EXPECT_THAT(watch->notified, ElementsAre(writeHits, writeHits, writeHits, writeHits));
  EXPECT_EQ(region->writeCacheHits(), 4u);
}

// At the announcement of a hit, the entries before it are stored and those after it are not.
TEST_F(ObservedRegionTest, hitIsAnnouncedBetweenTheEntriesAroundIt) {
  write(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  U32 seen[10];
  watch->reaction = [&] { std::memcpy(seen, region->shadow()->data(), sizeof seen); };
  EXPECT_FALSE(write(0, {21, 22, 23, 24, 25, 26, 27, 28, 9, 30}));
  EXPECT_THAT(seen, ElementsAre(21, 22, 23, 24, 25, 26, 27, 28, 9, 10));
}

TEST_F(ObservedRegionTest, readIsAnnouncedOnceAndCopiesAfterwards) {
  write(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  watch->reaction = [&] {
    EXPECT_EQ(readWords[0], 0u);
    U32 value = 77;
    std::memcpy(region->shadow()->data() + 8, &value, 4);
  };
  EXPECT_TRUE(read(0, 10));
  EXPECT_THAT(watch->notified, ElementsAre(readHits));
  EXPECT_EQ(readWords[2], 77u);
  EXPECT_EQ(readWords[9], 10u);
  watch->reaction = nullptr;
  watch->notified.clear();
  EXPECT_TRUE(read(1, 1));
  EXPECT_THAT(watch->notified, ElementsAre(readHits));
  EXPECT_FALSE(read(9, 2)) << "one was never written";
  EXPECT_THAT(watch->notified, ElementsAre(readHits));
}

// The region's store is replaced by its notifiee: the read uses the old one.
TEST_F(ObservedRegionTest, readGoesOnWithTheStoreItBeganWith) {
  write(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  watch->reaction = [&] { region->entriesIs(entries + 1); };
  EXPECT_TRUE(read(0, 10));
  EXPECT_EQ(readWords[9], 10u);
  EXPECT_FALSE(read(0, 1)) << "the new store is empty";
}

TEST_F(ObservedRegionTest, aNotifieeOfAnotherAttributeIsNotNotifiedOfAccesses) {
  watch->interestIs(interestIn(ChipMemory::Id::registersFixed));
  write(0, {1, 2, 3});
  EXPECT_TRUE(write(0, {1, 2, 3}));
  EXPECT_TRUE(read(0, 3));
  EXPECT_THAT(watch->notified, IsEmpty());
  EXPECT_EQ(region->readCacheHits(), 3u);
  EXPECT_EQ(region->writeCacheHits(), 3u);
  region->registersFixedIs(1);
  EXPECT_THAT(watch->notified, ElementsAre(ChipMemory::Id::registersFixed));
}

}  // namespace
}  // namespace Hardware
