// The read path: when the shadow answers, with what, and what it counts.
#include "support/ShadowTest.h"

namespace {

using Support::bufferedMode;
using Support::Lines;
using Support::normalMode;
using Support::overrideMode;
using Support::wordIs;
using Bytes = std::vector<U8>;

constexpr const char* readFunction =
    "bool Hardware::HardwareShadow::readFromCache(const Hardware::ChipMemory::Ptr&, U32, U8*, "
    "U32)";

class HardwareShadowRead : public Support::ShadowTest {
 protected:
  HardwareShadowRead() {
    mac->readFromCacheIs(true);
    configure({mac});
  }

  // Entry i holds the value 0x10 + i; `known` are initialized.
  void filled(const std::vector<U32>& known) {
    for (U32 i = 0; i < mac->entries(); ++i) wordIs(mac->shadow(), i, 0x10 + i);
    for (const U32 i : known) mac->entryInitializedIs(i);
  }
  bool read(U32 entry, U32 size) { return read(mac, entry, size); }
  bool read(const ChipMemory::Ptr& cm, U32 entry, U32 size) {
    data.assign(64, untouched);
    return shadow->readFromCache(cm, entry, data.data(), size);
  }
  U32 dataWord(U32 index) const {
    U32 value;
    std::memcpy(&value, &data[index * 4], 4);
    return value;
  }

  static constexpr U8 untouched = 0xee;
  Bytes data;
  ChipMemory::Ptr mac = shadowed("mac", 0x1000, 20);
};

// --- The decision table -------------------------------------------------------------------------

struct ReadDecision {
  const char* name;
  bool null;
  bool readFromCache;
  bool overrideHardware;
  Hardware::ChipMemory::ChipMemoryMode mode;
  std::vector<U32> known;
  bool result;
  enum { nothing, zeros, shadowBytes } data;  // entries 1 and 2 are read
  U64 hits;
  std::vector<U32> levels;  // of the lines traced
};

std::ostream& operator<<(std::ostream& out, const ReadDecision& row) { return out << row.name; }

class HardwareShadowReadDecision : public HardwareShadowRead,
                                   public testing::WithParamInterface<ReadDecision> {
 protected:
  void isTaken(const std::vector<U32>& lines);
};

void HardwareShadowReadDecision::isTaken(const std::vector<U32>& lines) {
  const ReadDecision& row = GetParam();
  mac->modeIs(row.mode);
  if (row.mode != ChipMemory::override()) filled(row.known);
  mac->readFromCacheIs(row.readFromCache);
  shadow->overrideHardwareIs(row.overrideHardware);
  trace.full.clear();

  EXPECT_EQ(read(row.null ? nullptr : mac, 1, 8), row.result);

  Bytes expected(64, untouched);
  if (row.data == ReadDecision::zeros) std::fill_n(expected.begin(), 8, U8{0});
  if (row.data == ReadDecision::shadowBytes) {
    const Bytes held{0x11, 0, 0, 0, 0x12, 0, 0, 0};
    std::copy(held.begin(), held.end(), expected.begin());
  }
  EXPECT_EQ(data, expected);
  EXPECT_EQ(mac->readCacheHits(), row.hits);
  std::vector<U32> levels;
  for (const auto& line : trace.full) levels.push_back(line.level);
  EXPECT_EQ(levels, lines);
  EXPECT_TRUE(chip->log.empty());
}

TEST_P(HardwareShadowReadDecision, isTaken) { isTaken(GetParam().levels); }

TEST_P(HardwareShadowReadDecision, isTakenAlsoWithoutATrace) {
  Hardware::umbraTrace().levelUpToIs(0);
  isTaken({});
}

INSTANTIATE_TEST_SUITE_P(
    Table, HardwareShadowReadDecision,
    testing::Values(
        ReadDecision{
            "null", true, true, true, normalMode, {1, 2}, false, ReadDecision::nothing, 0, {}},
        ReadDecision{"notPermitted",
                     false,
                     false,
                     false,
                     normalMode,
                     {1, 2},
                     false,
                     ReadDecision::nothing,
                     0,
                     {}},
        ReadDecision{"notPermitted_override",
                     false,
                     false,
                     false,
                     overrideMode,
                     {},
                     false,
                     ReadDecision::nothing,
                     0,
                     {}},
        ReadDecision{
            "override", false, true, false, overrideMode, {}, true, ReadDecision::zeros, 0, {}},
        ReadDecision{"override_overrideHardware",
                     false,
                     false,
                     true,
                     overrideMode,
                     {},
                     true,
                     ReadDecision::zeros,
                     0,
                     {}},
        ReadDecision{"uninitialized",
                     false,
                     true,
                     false,
                     normalMode,
                     {1},
                     false,
                     ReadDecision::nothing,
                     0,
                     {7}},
        ReadDecision{"uninitialized_overrideHardware",
                     false,
                     true,
                     true,
                     normalMode,
                     {1},
                     true,
                     ReadDecision::shadowBytes,
                     2,
                     {4, 7}},
        ReadDecision{"overrideHardwareAlone",
                     false,
                     false,
                     true,
                     normalMode,
                     {},
                     true,
                     ReadDecision::shadowBytes,
                     2,
                     {4, 7}},
        ReadDecision{"initialized",
                     false,
                     true,
                     false,
                     normalMode,
                     {1, 2},
                     true,
                     ReadDecision::shadowBytes,
                     2,
                     {7}},
        ReadDecision{"initialized_buffered",
                     false,
                     true,
                     false,
                     bufferedMode,
                     {1, 2},
                     true,
                     ReadDecision::shadowBytes,
                     2,
                     {7}},
        ReadDecision{"initialized_overrideHardware",
                     false,
                     false,
                     true,
                     normalMode,
                     {1, 2},
                     true,
                     ReadDecision::shadowBytes,
                     2,
                     {7}}),
    [](const auto& row) { return row.param.name; });

TEST_F(HardwareShadowRead, unconfiguredIsFatalWhateverIsRead) {
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_ASSERTION(read(0, 4), 0, readFunction, "state_ != unconfigured()");
  EXPECT_ASSERTION(read(nullptr, 0, 4), 0, readFunction, "state_ != unconfigured()");
}

// --- Rules --------------------------------------------------------------------------------------

TEST_F(HardwareShadowRead, nothingIsServedToNowhere) {
  EXPECT_TRUE(shadow->readFromCache(mac, 20, nullptr, 0));
  Hardware::umbraTrace().levelUpToIs(0);
  EXPECT_TRUE(shadow->readFromCache(mac, 20, nullptr, 0));
  mac->modeIs(ChipMemory::override());
  EXPECT_TRUE(shadow->readFromCache(mac, 20, nullptr, 0));
}

TEST_F(HardwareShadowRead, missNamesTheGroupThatFailed) {
  filled({6, 7, 9});
  trace.full.clear();
  EXPECT_FALSE(read(6, 16));
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].text,
            "Read miss cache mac 2 entries starting at 8 not in cache, will read from hardware");
  EXPECT_EQ(trace.full[0].level, 7u);
  EXPECT_EQ(trace.full[0].source, "Hardware/Umbra");
  EXPECT_EQ(trace.full[0].function, "readFromCache");
  EXPECT_EQ(mac->readCacheHits(), 0u);
}

TEST_F(HardwareShadowRead, firstFailingGroupEndsTheCheck) {
  trace.full.clear();
  EXPECT_FALSE(read(3, 60));
  EXPECT_EQ(trace.taken(), (Lines{{7,
                                   "Read miss cache mac 5 entries starting at 3 not in cache, "
                                   "will read from hardware"}}));
}

TEST_F(HardwareShadowRead, overrideHardwareNamesEachGroupWithUninitializedEntries) {
  filled({8, 9, 10, 11, 12, 13, 14, 15});
  shadow->overrideHardwareIs(true);
  trace.full.clear();
  EXPECT_TRUE(read(6, 48));
  ASSERT_EQ(trace.full.size(), 3u);
  EXPECT_EQ(trace.full[0].context, "<unknown>");
  EXPECT_EQ(trace.full[0].source, "Hardware/Umbra");
  EXPECT_EQ(trace.full[0].function, "readFromCache");
  EXPECT_EQ(trace.full[2].context, "");
  EXPECT_EQ(trace.taken(), (Lines{{4, "mac: accessing uninitialized entry 6"},
                                  {4, "mac: accessing uninitialized entry 16"},
                                  {7, "Read hit cache mac 12 entries starting at 0x6"}}));
  EXPECT_EQ(mac->readCacheHits(), 12u);
}

TEST_F(HardwareShadowRead, hitTracesTheCountAndTheEntryInHexadecimal) {
  filled({10, 11, 12, 13});
  trace.full.clear();
  EXPECT_TRUE(read(10, 16));
  EXPECT_EQ(trace.taken(), (Lines{{7, "Read hit cache mac 4 entries starting at 0xa"}}));
  EXPECT_EQ(mac->readCacheHits(), 4u);
  EXPECT_EQ(dataWord(0), 0x1au);
  EXPECT_EQ(dataWord(3), 0x1du);
}

TEST_F(HardwareShadowRead, isServedExactlyWhenNoEntryOfTheRangeIsUnknown) {
  Hardware::umbraTrace().levelUpToIs(0);
  for (U32 hole = 0; hole < 20; ++hole) {
    filled({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19});
    mac->entryInitializedDel(hole);
    for (U32 from = 0; from < 20; ++from) {
      for (U32 count = 0; count <= std::min(16u, 20 - from); ++count) {
        const bool holed = from <= hole && hole < from + count;
        ASSERT_EQ(read(from, 4 * count), !holed) << hole << " " << from << " " << count;
        ASSERT_EQ(mac->readCacheHits(), holed ? 0 : count);
        mac->readCacheHitsIs(0);
        if (!holed && count > 0) {
          ASSERT_EQ(dataWord(count - 1), 0x10 + from + count - 1);
        }
      }
    }
  }
}

TEST_F(HardwareShadowRead, anObserverIsToldOncePerReadWithOrWithoutATrace) {
  struct Watch : ChipMemory::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void handleNotification(Zint::ActivityConfig*) override { told.push_back(attribute()); }
    std::vector<Zint::AttributeId> told;
  };
  filled({3, 4, 5});
  const auto watch = Zint::makePtr<Watch>(loop.activity, mac);
  for (const U32 level : {0u, 9u}) {
    Hardware::umbraTrace().levelUpToIs(level);
    watch->told.clear();
    EXPECT_TRUE(read(3, 12));
    EXPECT_EQ(watch->told, (std::vector<Zint::AttributeId>{ChipMemory::Id::readCacheHits}));
  }
}

TEST_F(HardwareShadowRead, hitsAreTracedFromLevel7On) {
  filled({3});
  Hardware::umbraTrace().levelUpToIs(6);
  trace.full.clear();
  EXPECT_TRUE(read(3, 4));
  EXPECT_TRUE(trace.full.empty());
  Hardware::umbraTrace().levelUpToIs(7);
  EXPECT_TRUE(read(3, 4));
  EXPECT_EQ(trace.taken(), (Lines{{7, "Read hit cache mac 1 entries starting at 0x3"}}));
}

TEST_F(HardwareShadowRead, noEntryIsAHitOfNothing) {
  trace.full.clear();
  EXPECT_TRUE(read(20, 0));
  EXPECT_EQ(trace.taken(), (Lines{{7, "Read hit cache mac 0 entries starting at 0x14"}}));
  EXPECT_EQ(data, Bytes(64, untouched));
  EXPECT_EQ(mac->readCacheHits(), 0u);
}

TEST_F(HardwareShadowRead, overrideRegionOfAnySizeReadsAsZeros) {
  mac->modeIs(ChipMemory::override());
  trace.full.clear();
  EXPECT_TRUE(read(1000, 7));
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 8), (Bytes{0, 0, 0, 0, 0, 0, 0, untouched}));
  EXPECT_TRUE(trace.full.empty());
  EXPECT_EQ(mac->readCacheHits(), 0u);
}

TEST_F(HardwareShadowRead, missingBuffersAreFatalInTheirOrder) {
  const Hal::BufBase::Ptr store = mac->shadow();
  mac->shadowIs(nullptr);
  mac->initializedIs(nullptr);
  EXPECT_ASSERTION(read(0, 4), 0, readFunction, "shadowBuf");
  mac->shadowIs(store);
  EXPECT_ASSERTION(read(0, 4), 0, readFunction, "initializedBuf");
  mac->readFromCacheIs(false);
  EXPECT_FALSE(read(0, 4));
}

TEST_F(HardwareShadowRead, dirtyBufferIsNotNeeded) {
  filled({0});
  mac->dirtyIs(nullptr);
  EXPECT_TRUE(read(0, 4));
}

TEST_F(HardwareShadowRead, rangePastTheEntriesIsFatal) {
  constexpr const char* rule = "( entry + numEntries ) <= cm->entries()";
  EXPECT_FALSE(read(19, 4));
  EXPECT_ASSERTION(read(20, 4), 0, readFunction, rule);
  EXPECT_ASSERTION(read(19, 8), 0, readFunction, rule);
  EXPECT_ASSERTION(read(21, 0), 0, readFunction, rule);
}

TEST_F(HardwareShadowRead, rangeCheckDoesNotWrap) {
  constexpr const char* rule = "( entry + numEntries ) <= cm->entries()";
  EXPECT_ASSERTION(read(0xffffffff, 4), 0, readFunction, rule);
  EXPECT_ASSERTION(read(0xfffffff8, 64), 0, readFunction, rule);
}

// --- Partial entries ----------------------------------------------------------------------------

TEST_F(HardwareShadowRead, partialEntryIsServedWhateverTheRegionAllows) {
  for (const bool logicalViews : {false, true}) {
    mac->allowsLogicalViewsIs(logicalViews);
    filled({0});
    EXPECT_TRUE(read(0, 6)) << "entry 1 is not asked about";
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 7), (Bytes{0x10, 0, 0, 0, 0x11, 0, untouched}));
  }
  EXPECT_EQ(mac->readCacheHits(), 2u);
}

TEST_F(HardwareShadowRead, partialEntryPastTheLastReadsAsZeros) {
  filled({19});
  EXPECT_TRUE(read(19, 6));
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 7), (Bytes{0x23, 0, 0, 0, 0, 0, untouched}));
  EXPECT_TRUE(read(20, 3));
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 4), (Bytes{0, 0, 0, untouched}));
  EXPECT_EQ(mac->shadow()->size(), 80u);
}

TEST_F(HardwareShadowRead, partialEntryPastTheLastReadsWhatALongerStoreHolds) {
  filled({19});
  const Hal::BufBase::Ptr longer = Zint::makePtr<Hal::Buf>(82u);
  std::memset(longer->data(), 0x77, 82);
  mac->shadowIs(longer);
  EXPECT_TRUE(read(19, 7));
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 8),
            (Bytes{0x77, 0x77, 0x77, 0x77, 0x77, 0x77, 0, untouched}));
}

TEST_F(HardwareShadowRead, partOfALargeEntryPastTheLastReadsAsZeros) {
  const ChipMemory::Ptr large = shadowed("large", 0x7000, 1, 4096);
  large->doClear();
  large->readFromCacheIs(true);
  Bytes bytes(3001, untouched);
  EXPECT_TRUE(shadow->readFromCache(large, 1, bytes.data(), 3000));
  EXPECT_EQ(Bytes(bytes.begin(), bytes.end() - 1), Bytes(3000));
  EXPECT_EQ(bytes.back(), untouched);
}

TEST_F(HardwareShadowRead, storeSmallerThanTheEntriesIsFatalAndNamesTheRegion) {
  filled({0, 1, 2});
  mac->shadowIs(Zint::makePtr<Hal::Buf>(8u));
  EXPECT_TRUE(read(1, 4));
  EXPECT_REGION_ASSERTION(read(2, 4), "mac");
  EXPECT_REGION_ASSERTION(read(1, 6), "mac");
}

// --- The access method --------------------------------------------------------------------------

TEST_F(HardwareShadowRead, eachEntryIsCopiedByTheAccessMethod) {
  ham = scripted;
  const ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  odd->allowsLogicalViewsIs(true);
  shadow->overrideHardwareIs(true);
  EXPECT_TRUE(read(odd, 0, 10));
  EXPECT_EQ(scripted->cachedSizes, (std::vector<U32>{4, 4, 2}));
}

TEST_F(HardwareShadowRead, refusalEndsTheReadWithFalse) {
  ham = scripted;
  const ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  shadow->overrideHardwareIs(true);
  scripted->refuses = true;
  EXPECT_FALSE(read(odd, 0, 12));
  EXPECT_EQ(scripted->cachedSizes, (std::vector<U32>{4}));
  EXPECT_EQ(data, Bytes(64, untouched));
}

TEST_F(HardwareShadowRead, accessMethodMayReplaceTheStoreAndDropRegionAndShadow) {
  ham = scripted;
  ChipMemory::Ptr odd = shadowed("odd", 0x5000, 4);
  shadow->overrideHardwareIs(true);
  wordIs(odd->shadow(), 1, 0x77);
  scripted->onCached = [&] {
    if (odd == nullptr) return;
    odd->entriesIs(1);
    odd = nullptr;
    shadow = nullptr;
  };
  EXPECT_TRUE(read(odd, 0, 8));
  EXPECT_EQ(dataWord(1), 0x77u);
}

// --- By address ---------------------------------------------------------------------------------

TEST_F(HardwareShadowRead, readFromCacheHack_readsTheEntryAtTheAddress) {
  filled({2, 3});
  U32 words[2];
  EXPECT_TRUE(shadow->readFromCacheHack(ChipAddress(0x1008), reinterpret_cast<U8*>(words), 8));
  EXPECT_EQ(words[0], 0x12u);
  EXPECT_EQ(words[1], 0x13u);
}

TEST_F(HardwareShadowRead, addressInNoRegionIsFalseAndReadsAsZero) {
  U8 byte = untouched;
  EXPECT_FALSE(shadow->readFromCacheHack(ChipAddress(0x9000), &byte, 1));
  EXPECT_EQ(byte, untouched);
  EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(0x9000)), 0u);
}

TEST_F(HardwareShadowRead, readFromCacheU32_isTheValueOrZeroOnAMiss) {
  filled({4});
  EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(0x1010)), 0x14u);
  EXPECT_EQ(shadow->readFromCacheU32(ChipAddress(0x1014)), 0u);
}

}  // namespace
