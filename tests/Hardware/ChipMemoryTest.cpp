#include <Hardware/ChipMemory.h>
#include <Zint/Activity.h>

#include <gmock/gmock.h>

#include <limits>
#include <vector>

#include "support/Death.h"
#include "support/RecordingHam.h"

namespace Hardware {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Which attributes were announced, in order.
class AttributeObserver : public ChipMemory::NotifieeConst {
 public:
  explicit AttributeObserver(const ChipMemory::Ptr& region)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipMemory>(region)) {}
  void handleNotification(Zint::ActivityConfig*) override { told.push_back(attribute()); }
  std::vector<Zint::AttributeId> taken() { return std::exchange(told, {}); }
  std::vector<Zint::AttributeId> told;
};

class ChipMemoryTest : public testing::Test {
 protected:
  ChipMemory::Ptr region(U32 entries, U32 entrySize = 4, U32 stride = 4,
                         const ChipAddress& address = ChipAddress(0x1000)) const {
    return chipMemoryFactory("table", address, entries, entrySize, stride, ham);
  }

  const Zint::Ptr<Support::RecordingHam> ham = Zint::makePtr<Support::RecordingHam>();
};

// --- Construction ------------------------------------------------------------------------------

TEST_F(ChipMemoryTest, construction_storesTheSixValues) {
  const ChipMemory::Ptr table = chipMemoryFactory("mac", ChipAddress(5, 0x1f00), 10, 8, 16, ham);
  EXPECT_EQ(table->name(), "mac");
  EXPECT_EQ(table->address(), ChipAddress(5, 0x1f00));
  EXPECT_EQ(table->entries(), 10u);
  EXPECT_EQ(table->entrySize(), 8u);
  EXPECT_EQ(table->stride(), 16u);
  EXPECT_EQ(table->chipHam(), ham);
  EXPECT_EQ(table->references(), 1u);
}

TEST_F(ChipMemoryTest, construction_setsTheDefaults) {
  const ChipMemory::Ptr table = region(10);
  EXPECT_EQ(table->indirectCmdRegAddr(), 0u);
  EXPECT_FALSE(table->shadowEnabled());
  EXPECT_FALSE(table->auditEnabled());
  EXPECT_EQ(table->mode(), ChipMemory::normal());
  EXPECT_FALSE(table->shadowStoreNeeded());
  EXPECT_FALSE(table->readFromCache());
  EXPECT_FALSE(table->skipWriteIfMatchesCache());
  EXPECT_EQ(table->readCacheHits(), 0u);
  EXPECT_EQ(table->writeCacheHits(), 0u);
  EXPECT_EQ(table->registersFixed(), 0u);
  EXPECT_EQ(table->lastFixTime(), 0.0);
  EXPECT_FALSE(table->allowsLogicalViews());
  EXPECT_EQ(table->fwkHmNext(), nullptr);
}

TEST_F(ChipMemoryTest, construction_makesTheHardwareBufferAlone) {
  const ChipMemory::Ptr table = region(10, 8);
  EXPECT_EQ(table->shadow(), nullptr);
  EXPECT_EQ(table->dirty(), nullptr);
  EXPECT_EQ(table->initialized(), nullptr);
  ASSERT_NE(table->hardware(), nullptr);
  EXPECT_EQ(table->hardware()->size(), 80u);
  EXPECT_THAT(ham->log, IsEmpty());
}

// --- Attributes --------------------------------------------------------------------------------

struct Setter {
  Zint::AttributeId attribute;
  void (*set)(ChipMemory&);
  bool (*isSet)(const ChipMemory&);
};

class ChipMemoryPlainAttribute : public ChipMemoryTest,
                                 public testing::WithParamInterface<Setter> {};

TEST_P(ChipMemoryPlainAttribute, setterStoresAndAnnouncesANewValueOnce) {
  const ChipMemory::Ptr table = region(4);
  const auto observer = Zint::makePtr<AttributeObserver>(table);
  EXPECT_FALSE(GetParam().isSet(*table));
  GetParam().set(*table);
  EXPECT_TRUE(GetParam().isSet(*table));
  EXPECT_THAT(observer->taken(), ElementsAre(GetParam().attribute));
  GetParam().set(*table);
  EXPECT_THAT(observer->taken(), IsEmpty());
  EXPECT_THAT(ham->log, IsEmpty());
}

using M = ChipMemory;
INSTANTIATE_TEST_SUITE_P(
    Setters, ChipMemoryPlainAttribute,
    testing::Values(Setter{M::Id::indirectCmdRegAddr, [](M& m) { m.indirectCmdRegAddrIs(0x80); },
                           [](const M& m) { return m.indirectCmdRegAddr() == 0x80; }},
                    Setter{M::Id::readFromCache, [](M& m) { m.readFromCacheIs(true); },
                           [](const M& m) { return m.readFromCache(); }},
                    Setter{M::Id::skipWriteIfMatchesCache,
                           [](M& m) { m.skipWriteIfMatchesCacheIs(true); },
                           [](const M& m) { return m.skipWriteIfMatchesCache(); }},
                    Setter{M::Id::readCacheHits, [](M& m) { m.readCacheHitsIs(U64{1} << 40); },
                           [](const M& m) { return m.readCacheHits() == U64{1} << 40; }},
                    Setter{M::Id::writeCacheHits, [](M& m) { m.writeCacheHitsIs(U64{1} << 40); },
                           [](const M& m) { return m.writeCacheHits() == U64{1} << 40; }},
                    Setter{M::Id::registersFixed, [](M& m) { m.registersFixedIs(9); },
                           [](const M& m) { return m.registersFixed() == 9; }},
                    Setter{M::Id::lastFixTime, [](M& m) { m.lastFixTimeIs(2.5); },
                           [](const M& m) { return m.lastFixTime() == 2.5; }},
                    Setter{M::Id::allowsLogicalViews, [](M& m) { m.allowsLogicalViewsIs(true); },
                           [](const M& m) { return m.allowsLogicalViews(); }}));

TEST_F(ChipMemoryTest, shadowStoreNeededIs_doesNothing) {
  const ChipMemory::Ptr table = region(4);
  const auto observer = Zint::makePtr<AttributeObserver>(table);
  table->shadowStoreNeededIs(true);
  EXPECT_FALSE(table->shadowStoreNeeded());
  EXPECT_EQ(table->shadow(), nullptr);
  EXPECT_THAT(observer->taken(), IsEmpty());
}

// A setter of each buffer, through one type.
struct BufferSetter {
  Zint::AttributeId attribute;
  void (*set)(ChipMemory&, const Hal::Buf::Ptr&);
  bool (*holds)(const ChipMemory&, const Hal::Buf::Ptr&);
};

class ChipMemoryBufferAttribute : public ChipMemoryTest,
                                  public testing::WithParamInterface<BufferSetter> {};

TEST_P(ChipMemoryBufferAttribute, setterReplacesTheReferenceAndIgnoresTheSamePointer) {
  const ChipMemory::Ptr table = region(4);
  const auto observer = Zint::makePtr<AttributeObserver>(table);
  const Hal::Buf::Ptr buffer = Zint::makePtr<Hal::Buf>(16);
  GetParam().set(*table, buffer);
  EXPECT_TRUE(GetParam().holds(*table, buffer));
  EXPECT_EQ(buffer->references(), 2u);
  EXPECT_THAT(observer->taken(), ElementsAre(GetParam().attribute));
  GetParam().set(*table, buffer);
  EXPECT_EQ(buffer->references(), 2u);
  EXPECT_THAT(observer->taken(), IsEmpty());
  GetParam().set(*table, nullptr);
  EXPECT_EQ(buffer->references(), 1u);
  EXPECT_THAT(observer->taken(), ElementsAre(GetParam().attribute));
}

INSTANTIATE_TEST_SUITE_P(
    Setters, ChipMemoryBufferAttribute,
    testing::Values(
        BufferSetter{M::Id::hardware, [](M& m, const Hal::Buf::Ptr& b) { m.hardwareIs(b); },
                     [](const M& m, const Hal::Buf::Ptr& b) { return m.hardware() == b; }},
        BufferSetter{
            M::Id::shadow, [](M& m, const Hal::Buf::Ptr& b) { m.shadowIs(b); },
            [](const M& m, const Hal::Buf::Ptr& b) { return m.shadow().ptr() == b.ptr(); }},
        BufferSetter{
            M::Id::initialized, [](M& m, const Hal::Buf::Ptr& b) { m.initializedIs(b); },
            [](const M& m, const Hal::Buf::Ptr& b) { return m.initialized().ptr() == b.ptr(); }},
        BufferSetter{
            M::Id::dirty, [](M& m, const Hal::Buf::Ptr& b) { m.dirtyIs(b); },
            [](const M& m, const Hal::Buf::Ptr& b) { return m.dirty().ptr() == b.ptr(); }}));

// Hears of the common attributes by name.
class NamedObserver : public ChipMemory::NotifieeConst {
 public:
  explicit NamedObserver(const ChipMemory::Ptr& region)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipMemory>(region)) {}
  void onEntries() override { told += "entries "; }
  void onShadowEnabled() override { told += "shadowEnabled "; }
  void onAuditEnabled() override { told += "auditEnabled "; }
  void onMode() override { told += "mode "; }
  void onRegistersFixed() override { told += "registersFixed "; }
  std::string told;
};

TEST_F(ChipMemoryTest, notifiee_hearsOfTheCommonAttributesByName) {
  const ChipMemory::Ptr table = region(4);
  const auto observer = Zint::makePtr<NamedObserver>(table);
  table->entriesIs(5);
  table->shadowEnabledIs(true);
  table->auditEnabledIs(true);
  table->modeIs(ChipMemory::buffered());
  table->registersFixedInc(1);
  EXPECT_EQ(observer->told, "entries shadowEnabled auditEnabled mode registersFixed ");
}

// --- Counters ----------------------------------------------------------------------------------

TEST_F(ChipMemoryTest, cacheHits_addUpTo64BitsAndWrap) {
  const ChipMemory::Ptr table = region(4);
  const ChipMemory& constant = *table;
  constant.readCacheHitsInc(3);
  constant.readCacheHitsInc(U64{1} << 33);
  EXPECT_EQ(table->readCacheHits(), (U64{1} << 33) + 3);
  constant.readCacheHitsIs(std::numeric_limits<U64>::max());
  constant.readCacheHitsInc(2);
  EXPECT_EQ(table->readCacheHits(), 1u);
  table->writeCacheHitsInc(U64{1} << 33);
  EXPECT_EQ(table->writeCacheHits(), U64{1} << 33);
  table->writeCacheHitsIs(std::numeric_limits<U64>::max());
  table->writeCacheHitsInc(3);
  EXPECT_EQ(table->writeCacheHits(), 2u);
}

TEST_F(ChipMemoryTest, registersFixed_addsAndWraps) {
  const ChipMemory::Ptr table = region(4);
  table->registersFixedInc(5);
  EXPECT_EQ(table->registersFixed(), 5u);
  table->registersFixedInc(0xffffffff);
  EXPECT_EQ(table->registersFixed(), 4u);
}

TEST_F(ChipMemoryTest, inc_ofZeroAnnouncesNothing) {
  const ChipMemory::Ptr table = region(4);
  const auto observer = Zint::makePtr<AttributeObserver>(table);
  table->registersFixedInc(0);
  table->readCacheHitsInc(0);
  table->writeCacheHitsInc(0);
  EXPECT_THAT(observer->taken(), IsEmpty());
}

// --- Buffer sizes ------------------------------------------------------------------------------

struct Sizes {
  U32 entries, entrySize, bytes, bitmapBytes;
};

class ChipMemorySizes : public ChipMemoryTest, public testing::WithParamInterface<Sizes> {};

TEST_P(ChipMemorySizes, storesAre32BitProductsAndBitmapsHaveASpareBit) {
  const Sizes& sizes = GetParam();
  const ChipMemory::Ptr table = region(sizes.entries, sizes.entrySize);
  table->shadowEnabledIs(true);
  EXPECT_EQ(table->hardware()->size(), sizes.bytes);
  EXPECT_EQ(table->shadow()->size(), sizes.bytes);
  EXPECT_EQ(table->dirty()->size(), sizes.bitmapBytes);
  EXPECT_EQ(table->initialized()->size(), sizes.bitmapBytes);
}

INSTANTIATE_TEST_SUITE_P(Entries, ChipMemorySizes,
                         testing::Values(Sizes{0, 4, 0, 1}, Sizes{1, 4, 4, 1}, Sizes{7, 4, 28, 1},
                                         Sizes{8, 4, 32, 2}, Sizes{9, 3, 27, 2},
                                         Sizes{15, 4, 60, 2}, Sizes{16, 4, 64, 3},
                                         Sizes{17, 1, 17, 3}, Sizes{5, 0, 0, 1},
                                         Sizes{0x10000, 0x10000, 0, 0x2001},
                                         Sizes{0x10000, 0x10001, 0x10000, 0x2001}));

TEST_F(ChipMemoryTest, buffers_areZeroFilledBufs) {
  const ChipMemory::Ptr table = region(100, 12);
  table->shadowEnabledIs(true);
  const Hal::BufBase::Ptr buffers[] = {table->hardware(), table->shadow(), table->dirty(),
                                       table->initialized()};
  for (const auto& buffer : buffers) {
    EXPECT_NE(Zint::ptrCast<Hal::Buf>(buffer), nullptr);
    EXPECT_EQ(std::vector<U8>(buffer->data(), buffer->data() + buffer->size()),
              std::vector<U8>(buffer->size(), 0));
  }
}

TEST_F(ChipMemoryTest, hardware_keepsItsSizeAfterEntriesChanged) {
  const ChipMemory::Ptr table = region(10);
  table->shadowEnabledIs(true);
  const Hal::Buf::Ptr before = table->hardware();
  table->entriesIs(20);
  table->auditEnabledIs(true);
  EXPECT_EQ(table->hardware(), before);
  EXPECT_EQ(table->hardware()->size(), 40u);
  EXPECT_EQ(table->shadow()->size(), 80u);
}

// --- Addresses ---------------------------------------------------------------------------------

TEST_F(ChipMemoryTest, inRange_fromTheBaseToTheLastUnitOfTheSpan) {
  const ChipMemory::Ptr table = region(4, 4, 4, ChipAddress(0x1000));
  EXPECT_TRUE(table->inRange(ChipAddress(0x1000)));
  EXPECT_TRUE(table->inRange(ChipAddress(0x100F)));
  EXPECT_FALSE(table->inRange(ChipAddress(0x1010)));
  EXPECT_FALSE(table->inRange(ChipAddress(0x0FFF)));
  EXPECT_FALSE(table->inRange(ChipAddress(1, 0x1000)));
}

TEST_F(ChipMemoryTest, inRange_carriesIntoTheHighWord) {
  const ChipMemory::Ptr table = region(2, 4, 0x10, ChipAddress(0xFFFFFFF0));
  EXPECT_TRUE(table->inRange(ChipAddress(0x100000000)));
  EXPECT_TRUE(table->inRange(ChipAddress(0x10000000F)));
  EXPECT_FALSE(table->inRange(ChipAddress(0x100000010)));
  EXPECT_FALSE(table->inRange(ChipAddress(0)));
}

TEST_F(ChipMemoryTest, inRange_ofNoEntriesOrNoStrideIsNowhere) {
  EXPECT_FALSE(region(0)->inRange(ChipAddress(0x1000)));
  EXPECT_FALSE(region(4, 4, 0)->inRange(ChipAddress(0x1000)));
}

TEST_F(ChipMemoryTest, inRange_spanWrapsIn32Bits) {
  const ChipMemory::Ptr none = region(0x10000, 1, 0x10000);
  EXPECT_FALSE(none->inRange(none->address()));
  const ChipMemory::Ptr some = region(0x10001, 1, 0x10000);
  EXPECT_TRUE(some->inRange(some->address().plus(0xffff)));
  EXPECT_FALSE(some->inRange(some->address().plus(0x10000)));
}

TEST_F(ChipMemoryTest, entryIndexFromAddress_isTheWideDifferenceCutTo32BitsWhereverTheAddressLies) {
  const ChipMemory::Ptr table = region(4, 4, 4, ChipAddress(2, 0x1000));
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(3, 0x1000)), 0x40000000u);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(3, 0x0ffc)), 0x3fffffffu);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(2, 0xfffffffc)), 0x3ffffbffu);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(7, 0x1004)), 0x40000001u);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(2, 0x0ffc)), 0xffffffffu);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(1, 0x1000)), 0xc0000000u);
}

TEST_F(ChipMemoryTest, entryIndexFromAddress_isTheEntryAtOrBelow) {
  const ChipMemory::Ptr table = region(4, 4, 4, ChipAddress(0x1000));
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(0x1000)), 0u);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(0x1003)), 0u);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(0x1006)), 1u);
  EXPECT_EQ(table->entryIndexFromAddress(ChipAddress(0x100F)), 3u);
}

TEST_F(ChipMemoryTest, entryIndexFromAddress_dividesTheUnsigned64BitDifferenceAndTruncates) {
  EXPECT_EQ(
      region(2, 4, 0x10, ChipAddress(0xFFFFFFF0))->entryIndexFromAddress(ChipAddress(0x100000000)),
      1u);
  const ChipMemory::Ptr bytes = region(4, 1, 1, ChipAddress(0x1000));
  EXPECT_EQ(bytes->entryIndexFromAddress(ChipAddress(3, 0x1005)), 5u);
  EXPECT_EQ(bytes->entryIndexFromAddress(ChipAddress(0xFFF)), 0xffffffffu);
  EXPECT_EQ(region(4, 4, 4)->entryIndexFromAddress(ChipAddress(0xFFF)), 0xffffffffu);
}

TEST_F(ChipMemoryTest, entryIndexFromAddress_withoutStrideIsFatal) {
  const ChipMemory::Ptr table = region(4, 4, 0);
  EXPECT_REGION_ASSERTION(table->entryIndexFromAddress(ChipAddress(0x1000)), "table");
}

TEST_F(ChipMemoryTest, entryAddress_addsA32BitProductToThe64BitBase) {
  EXPECT_EQ(region(8, 4, 0x10)->entryAddress(3), ChipAddress(0x1030));
  EXPECT_EQ(region(2, 4, 0x10, ChipAddress(7, 0xFFFFFFF0))->entryAddress(1), ChipAddress(8, 0));
  EXPECT_EQ(region(0x10001, 1, 0x10000)->entryAddress(0x10000), ChipAddress(0x1000));
}

// --- The end -----------------------------------------------------------------------------------

// Notes its own end.
class MortalBuf : public Hal::Buf {
 public:
  MortalBuf(std::string name, std::vector<std::string>& ends)
      : Buf(64), name_(std::move(name)), ends_(ends) {}

 protected:
  ~MortalBuf() override { ends_.push_back(name_); }

 private:
  std::string name_;
  std::vector<std::string>& ends_;
};

class MortalHam : public Support::RecordingHam {
 public:
  explicit MortalHam(std::vector<std::string>& ends) : ends_(ends) {}

 protected:
  ~MortalHam() override { ends_.push_back("chipHam"); }

 private:
  std::vector<std::string>& ends_;
};

TEST_F(ChipMemoryTest, destruction_releasesTheBuffersAndThenTheAccessMethod) {
  std::vector<std::string> ends;
  ChipMemory::Ptr table =
      chipMemoryFactory("t", ChipAddress(), 4, 4, 4, Zint::makePtr<MortalHam>(ends));
  table->hardwareIs(Zint::makePtr<MortalBuf>("hardware", ends));
  table->shadowIs(Zint::makePtr<MortalBuf>("shadow", ends));
  table->initializedIs(Zint::makePtr<MortalBuf>("initialized", ends));
  table->dirtyIs(Zint::makePtr<MortalBuf>("dirty", ends));
  table = nullptr;
  EXPECT_THAT(ends, ElementsAre("dirty", "initialized", "shadow", "hardware", "chipHam"));
}

}  // namespace
}  // namespace Hardware
