// Where nothing is traced and nobody looks, reads and writes take a short way. A region or a buffer
// of its own kind is respected there, too.
#include "fakes/ShadowTest.h"

namespace {

struct PlainPath : Fakes::ShadowTest {
  PlainPath() { Hardware::umbraTrace().levelUpToIs(0); }
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

TEST_F(PlainPath, aRegionThatCountsItsHitsItselfIsAsked) {
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

TEST_F(PlainPath, marksOfWhatIsInitialisedMustFitAsThoseOfWhatIsDirty) {
  const ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  configure({mac});
  mac->initializedIs(Zint::makePtr<Hal::Buf>(1u));
  U32 value = 0;
  EXPECT_REGION_ASSERTION(write(mac, 15, value), "mac");
  shadow->stateIs(HardwareShadow::auditing());
  shadow->auditReadRequest()->stateIs(ChipReadRequest::start_);
  EXPECT_REGION_ASSERTION(shadow->auditReadRequest()->statusIs(ChipReadRequest::done_), "mac");
}

}  // namespace
