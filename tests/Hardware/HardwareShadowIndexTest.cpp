// The address index: how it is built, and what findChipMemory makes of it.
#include <map>

#include "Allocations.h"
#include "support/ShadowTest.h"

namespace {

constexpr const char* findFunction =
    "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory(const "
    "Hardware::ChipAddress&, U32)";
constexpr const char* addFunction =
    "void Hardware::AddressIndex::add(const Hardware::ChipMemory::Ptr&)";

class HardwareShadowIndex : public Support::ShadowTest {
 protected:
  // Regions of one entry, `step` apart.
  void manyRegions(U32 count, U64 step) {
    for (U32 i = 0; i < count; ++i) {
      const std::string name = "region" + std::to_string(i);
      shadow->newChipMemory(region(name.c_str(), i * step, 1));
    }
  }
  U64 foundAt(U64 address) {
    const ChipMemory::Ptr cm = found(address);
    return cm == nullptr ? ~U64{0} : cm->address().value();
  }
};

TEST_F(HardwareShadowIndex, emptyIndexAndNoLastRegionGiveNull) {
  EXPECT_EQ(found(0x1000), nullptr);
  shadow->chipMemoryIs(region("mac", 0x1000, 4));
  EXPECT_EQ(found(0x1000), nullptr) << "not built yet";
}

TEST_F(HardwareShadowIndex, addressesInAndAroundTwoRegionsOfOneMemoryId) {
  configure({region("first", 0x100, 4), region("second", 0x200, 4)});
  const std::map<U64, const char*> expected{
      {0x80, ""},  {0xff, ""},        {0x100, "first"},  {0x10f, "first"}, {0x110, ""},
      {0x1ff, ""}, {0x200, "second"}, {0x20f, "second"}, {0x210, ""},      {0xffffffff, ""}};
  for (const auto& [address, name] : expected) {
    shadow->lastChipMemoryIs(nullptr);
    const ChipMemory::Ptr cm = found(address);
    EXPECT_EQ(cm == nullptr ? "" : cm->name(), name) << std::hex << address;
  }
}

TEST_F(HardwareShadowIndex, absentMemoryIdGivesNullBelowBetweenAndAboveTheOthers) {
  configure({region("a", 0x200000000, 0x1000), region("b", 0x400000000, 0x1000)});
  for (const U64 id : {0, 1, 3, 5, -1}) EXPECT_EQ(found(id << 32), nullptr) << id;
}

TEST_F(HardwareShadowIndex, regionThatRunsIntoTheNextMemoryIdIsFoundThereOnlyAsTheLastRegion) {
  configure({region("a", 0x1fffffff0, 4, 0x10)});
  EXPECT_EQ(found(0x200000000, 0x10), nullptr);
  EXPECT_NE(found(0x1fffffff0, 0x10), nullptr);
  EXPECT_NE(found(0x200000000, 0x10), nullptr);
}

// Where regions overlap, the last one answers for each access that it contains, whatever its size.
TEST_F(HardwareShadowIndex, lastRegionIsAskedFirstForAccessesOfEverySize) {
  const ChipMemory::Ptr a = region("a", 0x100, 8, 4), b = region("b", 0x108, 2, 8);
  for (const ChipMemory::Ptr& each : {a, b}) {
    each->shadowEnabledIs(true);
    each->readFromCacheIs(true);
  }
  configure({a, b});
  EXPECT_EQ(found(0x100), a);
  U8 data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  shadow->shadowWriteHack(ChipAddress(0, 0x108), data, 8);
  EXPECT_EQ(shadow->lastChipMemory(), a);
  EXPECT_TRUE(a->entryInitialized(2) && a->entryInitialized(3));
  EXPECT_FALSE(b->entryInitialized(0));
  U8 read[8] = {};
  EXPECT_TRUE(shadow->readFromCacheHack(ChipAddress(0, 0x108), read, 8));
  EXPECT_EQ(shadow->lastChipMemory(), a);
  shadow->lastChipMemoryIs(nullptr);
  shadow->shadowWriteHack(ChipAddress(0, 0x108), data, 8);
  EXPECT_EQ(shadow->lastChipMemory(), b);
}

TEST_F(HardwareShadowIndex, wordsAreComparedUnsigned) {
  configure({region("a", 0x00000000'10000000, 1), region("b", 0x00000000'90000000, 1),
             region("c", 0x80000000'00000000, 1), region("d", 0xffffffff'fffffff0, 1)});
  for (const U64 address :
       {0x10000000ull, 0x90000000ull, 0x8000000000000000ull, 0xfffffffffffffff0ull}) {
    EXPECT_EQ(foundAt(address), address) << std::hex << address;
  }
}

TEST_F(HardwareShadowIndex, lookupAgreesWithAnOrderedMapForEveryShape) {
  for (U32 ids = 1; ids <= 6; ++ids) {
    for (U32 regions = 1; regions <= 9; ++regions) {
      shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
      std::map<U64, ChipMemory::Ptr> reference;
      for (U64 id = 0; id < ids; ++id) {
        for (U64 i = 0; i < regions; ++i) {
          const U64 address = (2 * id + 1) << 32 | (i + 1) << 8;
          reference[address] = region("r", address, 2 + static_cast<U32>(i % 3));
          shadow->chipMemoryIs(reference[address]);
        }
      }
      shadow->stateIs(HardwareShadow::configured());
      for (U64 id = 0; id <= 2 * ids; ++id) {
        for (U64 offset = 0; offset < (U64{regions} + 2) << 8; offset += 4) {
          const U64 address = id << 32 | offset;
          auto place = reference.upper_bound(address);
          ChipMemory::Ptr expected = place == reference.begin() ? nullptr : (--place)->second;
          if (expected && !expected->inRange(ChipAddress(address))) expected = nullptr;
          shadow->lastChipMemoryIs(nullptr);
          ASSERT_EQ(found(address), expected) << ids << " " << regions << " " << address;
        }
      }
    }
  }
}

TEST_F(HardwareShadowIndex, hitSetsTheLastRegionAndAGapLeavesIt) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  configure({mac, region("vlan", 0x2000, 4)});
  EXPECT_EQ(shadow->lastChipMemory(), nullptr);
  found(0x1004);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
  EXPECT_EQ(found(0x1800), nullptr);
  EXPECT_EQ(shadow->lastChipMemory(), mac);
}

TEST_F(HardwareShadowIndex, aLookupAllocatesNothing) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4), vlan = region("vlan", 0x2000, 4);
  configure({mac, vlan});
  ChipMemory::Ptr inIndex, inLast, missed = mac;
  EXPECT_EQ(Support::allocationsOf([&] { inIndex = found(0x1004); }), 0u);
  EXPECT_EQ(inIndex, mac);
  EXPECT_EQ(Support::allocationsOf([&] { inLast = found(0x1008); }), 0u);
  EXPECT_EQ(inLast, mac);
  EXPECT_EQ(Support::allocationsOf([&] { inIndex = found(0x2000); }), 0u);
  EXPECT_EQ(inIndex, vlan);
  EXPECT_EQ(Support::allocationsOf([&] { missed = found(0x1800); }), 0u);
  EXPECT_EQ(missed, nullptr);
  EXPECT_EQ(Support::allocationsOf([&] { missed = found(0x500001000); }), 0u);
  EXPECT_EQ(missed, nullptr);
  EXPECT_GT(Support::allocationsOf([&] { missed = region("new", 0x3000, 4); }), 0u) << "it counts";
}

TEST_F(HardwareShadowIndex, lastRegionAnswersEvenWhenTheIndexHasBeenCleared) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  configure({mac, region("vlan", 0x2000, 4)});
  found(0x1000);
  shadow->chipMemoryChunkDelAll();
  shadow->chipMemoryChunkArrayDelAll();
  shadow->chipMemoryIdDelAll();
  shadow->nextIndexIs(0);
  EXPECT_EQ(found(0x100c), mac);
  EXPECT_EQ(found(0x2000), nullptr);
}

TEST_F(HardwareShadowIndex, lastRegionIsAskedBeforeTheIndex) {
  configure({region("mac", 0x1000, 4)});
  const ChipMemory::Ptr over = region("over", 0xff0, 64);
  shadow->lastChipMemoryIs(over);
  EXPECT_EQ(found(0x1000), over);
}

TEST_F(HardwareShadowIndex, onlyTheStartOfAnAccessIsLocated) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  configure({mac, region("next", 0x1010, 4)});
  EXPECT_EQ(found(0x100c, 64), mac);
}

TEST_F(HardwareShadowIndex, sizeMustBeWholeEntries_indexHit) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  configure({mac});
  EXPECT_ASSERTION(found(0x1000, 6), 0, findFunction,
                   "cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0");
  mac->allowsLogicalViewsIs(true);
  EXPECT_EQ(found(0x1000, 6), mac);
}

TEST_F(HardwareShadowIndex, sizeMustBeWholeEntries_lastRegion) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  shadow->lastChipMemoryIs(mac);
  EXPECT_ASSERTION(
      found(0x1000, 6), 0, findFunction,
      "lastChipMemory_->allowsLogicalViews() || ( size % lastChipMemory_->entrySize() ) == 0");
  mac->allowsLogicalViewsIs(true);
  EXPECT_EQ(found(0x1000, 6), mac);
}

TEST_F(HardwareShadowIndex, sizeIsNotCheckedWhereNoRegionHoldsTheAddress) {
  configure({region("mac", 0x1000, 4)});
  EXPECT_EQ(found(0x2000, 6), nullptr);
  EXPECT_NE(found(0x1000, 0), nullptr);
}

TEST_F(HardwareShadowIndex, missingChunkIsFatal) {
  configure({region("mac", 0x1000, 4)});
  shadow->chipMemoryChunkArrayIs(0, nullptr);
  EXPECT_ASSERTION(found(0x1000), 0, findFunction, "cmc");
  shadow->chipMemoryChunkArrayDelAll();
  EXPECT_ASSERTION(found(0x1000), 0, findFunction, "cmc");
}

TEST_F(HardwareShadowIndex, missingRegionIsFatal) {
  configure({region("mac", 0x1000, 4)});
  shadow->chipMemoryChunkArray(0)->chipMemoryIs(0, nullptr);
  EXPECT_ASSERTION(found(0x1000), 0, findFunction, "cm");
  shadow->chipMemoryChunkArray(0)->chipMemoryDelAll();
  EXPECT_ASSERTION(found(0x1000), 0, findFunction, "cm");
}

TEST_F(HardwareShadowIndex, emptyChunkIsFatal) {
  configure({region("mac", 0x1000, 4)});
  const auto chunk = shadow->chipMemoryChunkArray(0);
  chunk->nextIndexIs(0);
  chunk->offsetDelAll();
  chunk->chipMemoryDelAll();
  EXPECT_ASSERTION(found(0x1000), 0, findFunction, "cm");
}

TEST_F(HardwareShadowIndex, buildingSortsBothLevels) {
  const ChipMemory::Ptr high = region("high", 0x700000300, 1), low = region("low", 0x700000100, 1),
                        other = region("other", 0x200000500, 1);
  configure({high, low, other});
  EXPECT_EQ(shadow->nextIndex(), 2);
  EXPECT_EQ(shadow->chipMemoryChunks(), 2u);
  EXPECT_EQ(shadow->chipMemoryId(0), 2u);
  EXPECT_EQ(shadow->chipMemoryId(1), 7u);
  const auto chunk = shadow->chipMemoryChunkArray(1);
  EXPECT_EQ(chunk, shadow->chipMemoryChunk(7));
  EXPECT_EQ(chunk->fwkKey(), 7u);
  EXPECT_EQ(chunk->nextIndex(), 2);
  EXPECT_EQ(chunk->offset(0), 0x100u);
  EXPECT_EQ(chunk->offset(1), 0x300u);
  EXPECT_EQ(chunk->chipMemory(0), low);
  EXPECT_EQ(chunk->chipMemory(1), high);
  EXPECT_EQ(shadow->auditErrors(), 0u);
}

TEST_F(HardwareShadowIndex, auditErrors_countsEachBreachOfTheOrder) {
  configure({region("a", 0x300000100, 1), region("b", 0x300000200, 1), region("c", 0x500000300, 1),
             region("d", 0x700000400, 1)});
  const auto first = shadow->chipMemoryChunkArray(0), last = shadow->chipMemoryChunkArray(2);
  const auto errors = [&](const std::function<void()>& damage, const std::function<void()>& undo) {
    damage();
    const U32 counted = shadow->auditErrors();
    undo();
    EXPECT_EQ(shadow->auditErrors(), 0u);
    return counted;
  };
  const auto idIs = [&](U16 i, U32 id) { return [=, this] { shadow->chipMemoryIdIs(i, id); }; };
  EXPECT_EQ(errors(idIs(2, 8), idIs(2, 7)), 1u) << "not the chunk's";
  EXPECT_EQ(errors(idIs(0, 2), idIs(0, 3)), 1u) << "not the chunk's, the first";
  EXPECT_EQ(errors(idIs(1, 3), idIs(1, 5)), 2u) << "nor above the one before";
  EXPECT_EQ(errors(idIs(2, 4), idIs(2, 7)), 2u) << "nor above the one before, the last";
  EXPECT_EQ(errors([&] { shadow->chipMemoryChunkArrayIs(2, nullptr); },
                   [&] { shadow->chipMemoryChunkArrayIs(2, last); }),
            1u);

  const auto offsetIs = [&](U16 i, U32 offset) { return [=] { first->offsetIs(i, offset); }; };
  EXPECT_EQ(errors(offsetIs(1, 0x100), offsetIs(1, 0x200)), 1u) << "equal";
  EXPECT_EQ(errors(offsetIs(1, 0x80), offsetIs(1, 0x200)), 1u) << "descending";
  EXPECT_EQ(errors(offsetIs(0, 0), offsetIs(0, 0x100)), 0u) << "only the order is looked at";
  const ChipMemory::Ptr a = first->chipMemory(0), b = first->chipMemory(1);
  EXPECT_EQ(errors([&] { first->chipMemoryIs(0, nullptr); }, [&] { first->chipMemoryIs(0, a); }),
            1u);
  EXPECT_EQ(errors([&] { first->chipMemoryIs(1, nullptr); }, [&] { first->chipMemoryIs(1, b); }),
            1u);
}

TEST_F(HardwareShadowIndex, readsOutsideTheArraysGiveDefaults) {
  configure({region("mac", 0x700000100, 1)});
  EXPECT_EQ(shadow->chipMemoryId(1), 0u);
  EXPECT_EQ(shadow->chipMemoryChunkArray(1), nullptr);
  EXPECT_EQ(shadow->chipMemoryChunkArray(0)->offset(65535), 0u);
  EXPECT_EQ(shadow->chipMemoryChunkArray(0)->chipMemory(1), nullptr);
}

TEST_F(HardwareShadowIndex, unconfiguredClearsTheIndexAndKeepsTheRegistry) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  configure({mac});
  found(0x1000);
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(shadow->nextIndex(), 0);
  EXPECT_EQ(shadow->chipMemoryChunks(), 0u);
  EXPECT_EQ(shadow->chipMemoryIds(), 0u);
  EXPECT_EQ(shadow->chipMemoryChunkArrays(), 0u);
  EXPECT_EQ(shadow->lastChipMemory(), nullptr);
  EXPECT_EQ(found(0x1000), nullptr);
  EXPECT_EQ(shadow->chipMemorys(), 1u);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(found(0x1000), mac);
}

TEST_F(HardwareShadowIndex, configuredOverABuiltIndexClearsItFirst) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4), vlan = region("vlan", 0x2000, 4);
  configure({mac});
  found(0x1000);
  shadow->overrideHardwareIs(true);
  shadow->chipMemoryIs(vlan);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(shadow->nextIndex(), 1);
  EXPECT_EQ(shadow->chipMemoryChunkArray(0)->nextIndex(), 2);
  EXPECT_EQ(shadow->lastChipMemory(), nullptr);
  EXPECT_EQ(found(0x1000), mac);
  EXPECT_EQ(found(0x2000), vlan);
  EXPECT_EQ(shadow->auditErrors(), 0u);
}

// Nothing is left of what was found in the index before.
TEST_F(HardwareShadowIndex, configuredOverAnIndexEmptiedByHandBuildsASmallerOne) {
  manyRegions(40, U64{1} << 32);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(foundAt(U64{39} << 32), U64{39} << 32);
  shadow->chipMemoryChunkDelAll();
  shadow->chipMemoryChunkArrayDelAll();
  shadow->chipMemoryIdDelAll();
  shadow->nextIndexIs(0);
  shadow->lastChipMemoryIs(nullptr);
  shadow->chipMemoryDelAll();
  manyRegions(2, U64{1} << 32);
  shadow->stateIs(HardwareShadow::configured());
  for (const U64 id : {0, 1}) EXPECT_EQ(foundAt(id << 32), id << 32);
  EXPECT_EQ(found(U64{39} << 32), nullptr);
}

TEST_F(HardwareShadowIndex, chunkHoldsUpTo65535Regions) {
  manyRegions(65535, 4);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(shadow->chipMemoryChunkArray(0)->nextIndex(), 65535);
  for (const U64 i : {0, 1, 32766, 32767, 32768, 65534}) EXPECT_EQ(foundAt(4 * i), 4 * i);
  EXPECT_EQ(found(U64{4} * 65535), nullptr);
}

TEST_F(HardwareShadowIndex, region65536OfAChunkIsFatalAndNamed) {
  manyRegions(65536, 4);
  EXPECT_ASSERTION_OF("region65535", shadow->stateIs(HardwareShadow::configured()), addFunction,
                      "index != 65535");
}

TEST_F(HardwareShadowIndex, indexHoldsUpTo65535Chunks) {
  manyRegions(65535, U64{1} << 32);
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(shadow->nextIndex(), 65535);
  for (const U64 i : {0, 1, 32766, 32767, 32768, 65534}) EXPECT_EQ(foundAt(i << 32), i << 32);
  EXPECT_EQ(found(U64{65535} << 32), nullptr);
}

TEST_F(HardwareShadowIndex, chunk65536IsFatalAndItsRegionNamed) {
  manyRegions(65536, U64{1} << 32);
  EXPECT_ASSERTION_OF("region65535", shadow->stateIs(HardwareShadow::configured()), addFunction,
                      "nextIndex_ != 65535");
}

// --- Changed by hand: array elements beyond the end read as 0 or null ----------------------------

TEST_F(HardwareShadowIndex, nextIndexBeyondTheIds_readsTheMissingOnesAsZero) {
  const ChipMemory::Ptr mac = region("mac", 0x7'0000'1000, 4);
  configure({mac});
  shadow->nextIndexIs(2);
  EXPECT_EQ(found(0x7'0000'1004), mac) << "the first probe";
  shadow->lastChipMemoryIs(nullptr);
  shadow->nextIndexIs(3);
  EXPECT_EQ(found(0x7'0000'1004), nullptr) << "the first probe reads 0, which is below 7";
  EXPECT_ASSERTION(found(0x1004), 0, findFunction, "cmc");
}

TEST_F(HardwareShadowIndex, nextIndexOfAChunkBeyondItsOffsets_readsTheMissingOnesAsZero) {
  const ChipMemory::Ptr low = region("low", 0x100, 4), high = region("high", 0x200, 4);
  configure({low, high});
  const auto chunk = shadow->chipMemoryChunkArray(0);
  chunk->nextIndexIs(3);
  EXPECT_ASSERTION(found(0x204), 0, findFunction, "cm");
  EXPECT_EQ(found(0x104), low) << "no probe reads beyond the end";
  shadow->lastChipMemoryIs(nullptr);
  EXPECT_EQ(found(0x80), nullptr);
}

TEST_F(HardwareShadowIndex, regionWithoutItsOffset_isFoundAtOffsetZero) {
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  configure({mac});
  shadow->chipMemoryChunkArray(0)->offsetDelAll();
  EXPECT_EQ(found(0x1004), mac);
}

// A second index of the registry's regions, made by hand.
TEST_F(HardwareShadowIndex, anIndexMadeByHandIsSearched) {
  const ChipMemory::Ptr low = region("low", 0x2'0000'0100, 4), high = region("h", 0x7'0000'0100, 4);
  for (const ChipMemory::Ptr& cm : {low, high}) {
    const auto chunk = shadow->chipMemoryChunkIs(cm->address().chipMemoryId());
    chunk->offsetIs(0, 0x100);
    chunk->chipMemoryIs(0, cm);
    chunk->nextIndexIs(1);
    shadow->chipMemoryIdIs(shadow->nextIndex(), cm->address().chipMemoryId());
    shadow->chipMemoryChunkArrayIs(shadow->nextIndex(), chunk);
    shadow->nextIndexIs(static_cast<U16>(shadow->nextIndex() + 1));
  }
  EXPECT_EQ(found(0x2'0000'0104), low);
  EXPECT_EQ(found(0x7'0000'0104), high);
  EXPECT_EQ(found(0x3'0000'0104), nullptr);
  EXPECT_EQ(shadow->auditErrors(), 0u);
}

// The look-up by probes, from what the accessors show. "cmc", "cm" or the name of the region.
std::string foundByProbes(const Hardware::HardwareShadow& shadow,
                          const Hardware::ChipAddress& address) {
  if (shadow.nextIndex() == 0) return "";
  U16 mid = 0;
  for (S32 lo = 0, hi = shadow.nextIndex() - 1;;) {
    mid = static_cast<U16>((lo + hi) / 2);
    const U32 id = shadow.chipMemoryId(mid);
    if (id == address.chipMemoryId()) break;
    (id > address.chipMemoryId() ? hi : lo) = id > address.chipMemoryId() ? mid - 1 : mid + 1;
    if (hi < lo) return "";
  }
  const auto chunk = shadow.chipMemoryChunkArray(mid);
  if (chunk == nullptr) return "cmc";
  mid = 0;
  for (S32 lo = 0, hi = chunk->nextIndex() - 1; hi >= lo;) {
    mid = static_cast<U16>((lo + hi) / 2);
    const bool isBelow = address.chipMemoryOffset() < chunk->offset(mid);
    (isBelow ? hi : lo) = isBelow ? mid - 1 : mid + 1;
  }
  if (chunk->offset(mid) > address.chipMemoryOffset()) {
    if (mid == 0) return "";
    --mid;
  }
  const auto cm = chunk->chipMemory(mid);
  if (cm == nullptr) return "cm";
  return cm->inRange(address) ? std::string(cm->name().c_str()) : "";
}

TEST_F(HardwareShadowIndex, lookupsInAnIndexChangedByHandFollowTheProbes) {
  std::vector<ChipMemory::Ptr> regions;
  for (U64 id = 0; id < 5; ++id) {
    for (U64 i = 0; i < 4; ++i) {
      const std::string name = std::to_string(id) + "." + std::to_string(i);
      regions.push_back(region(name.c_str(), id << 32 | i << 6, 4));
    }
  }
  U32 random = 1;
  const auto next = [&random](U32 below) {
    random = random * 1664525u + 1013904223u;
    return static_cast<U16>((random >> 16) % below);
  };
  U32 answered = 0, asserted = 0;
  for (int round = 0; round < 400; ++round) {
    shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
    configure(regions);
    for (U32 change = 1 + next(3); change > 0; --change) {
      const auto chunk = shadow->chipMemoryChunk(next(5));
      switch (next(10)) {
        case 0:
          shadow->chipMemoryIdDel(next(6));
          break;
        case 1:
          shadow->chipMemoryIdIs(next(7), next(6));
          break;
        case 2:
          shadow->chipMemoryChunkArrayDel(next(6));
          break;
        case 3:
          shadow->chipMemoryChunkArrayIs(next(6), chunk);
          break;
        case 4:
          shadow->nextIndexIs(next(9));
          break;
        case 5:
          chunk->offsetDel(next(5));
          break;
        case 6:
          chunk->offsetIs(next(6), next(0x100));
          break;
        case 7:
          chunk->chipMemoryDel(next(5));
          break;
        case 8:
          chunk->chipMemoryIs(next(6), regions[next(20)]);
          break;
        default:
          chunk->nextIndexIs(next(8));
          break;
      }
    }
    for (U64 id = 0; id < 6; ++id) {
      for (U64 offset = 0; offset < 0x120; offset += 8) {
        const ChipAddress address(id << 32 | offset);
        shadow->lastChipMemoryIs(nullptr);
        ChipMemory::Ptr cm;
        std::string answer =
            Support::assertedCondition([&] { cm = shadow->findChipMemory(address, 4); });
        (answer.empty() ? answered : asserted) += 1;
        if (cm != nullptr) answer = cm->name().c_str();
        ASSERT_EQ(answer, foundByProbes(*shadow, address)) << round << " " << address.value();
      }
    }
  }
  EXPECT_GT(answered, 10000u);
  EXPECT_GT(asserted, 100u);
}

TEST_F(HardwareShadowIndex, aChunkThatSaysItIsEmptyIsLookedAtFromItsBeginning) {
  const ChipMemory::Ptr low = region("low", 0x100, 4);
  const ChipMemory::Ptr first = region("first", 0x1'0000'0100, 4);
  const ChipMemory::Ptr second = region("second", 0x1'0000'0200, 4);
  configure({low, first, second});
  shadow->chipMemoryChunk(1)->nextIndexIs(0);
  EXPECT_EQ(found(0x1'0000'0104), first);
  shadow->lastChipMemoryIs(nullptr);
  shadow->chipMemoryChunk(1)->chipMemoryDelAll();
  EXPECT_EQ(found(0x1'0000'0080), nullptr) << "below the first offset, which is still there";
}

// --- Removals by key touch no other part of the index -------------------------------------------

class HardwareShadowIndexRemoval : public HardwareShadowIndex {
 protected:
  HardwareShadowIndexRemoval() { configure({low, high}); }

  ChipMemory::Ptr low = region("low", 0x200000100, 4), high = region("high", 0x700000100, 4);
};

TEST_F(HardwareShadowIndexRemoval, chipMemoryChunkDel_leavesTheArraysAndTheLookup) {
  const auto chunk = shadow->chipMemoryChunk(7);
  EXPECT_EQ(shadow->chipMemoryChunkDel(7), chunk);
  EXPECT_EQ(shadow->chipMemoryChunk(7), nullptr);
  EXPECT_EQ(shadow->chipMemoryChunks(), 1u);
  EXPECT_EQ(shadow->chipMemoryChunkArrays(), 2u);
  EXPECT_EQ(shadow->chipMemoryChunkArray(1), chunk);
  EXPECT_EQ(shadow->chipMemoryIds(), 2u);
  EXPECT_EQ(shadow->chipMemoryId(1), 7u);
  EXPECT_EQ(shadow->nextIndex(), 2);
  EXPECT_EQ(chunk->nextIndex(), 1);
  EXPECT_EQ(found(0x700000104), high);
}

TEST_F(HardwareShadowIndexRemoval, chipMemoryIdDel_leavesTheChunksAndTheCount) {
  const auto chunk = shadow->chipMemoryChunk(7);
  shadow->chipMemoryIdDel(1);
  EXPECT_EQ(shadow->chipMemoryIds(), 1u);
  EXPECT_EQ(shadow->chipMemoryChunkArrays(), 2u);
  EXPECT_EQ(shadow->chipMemoryChunkArray(1), chunk);
  EXPECT_EQ(shadow->chipMemoryChunk(7), chunk);
  EXPECT_EQ(shadow->nextIndex(), 2);
}

TEST_F(HardwareShadowIndexRemoval, chipMemoryChunkArrayDel_leavesTheIdsTheChunksAndTheCount) {
  const auto chunk = shadow->chipMemoryChunk(7);
  shadow->chipMemoryChunkArrayDel(1);
  EXPECT_EQ(shadow->chipMemoryChunkArrays(), 1u);
  EXPECT_EQ(shadow->chipMemoryIds(), 2u);
  EXPECT_EQ(shadow->chipMemoryId(1), 7u);
  EXPECT_EQ(shadow->chipMemoryChunk(7), chunk);
  EXPECT_EQ(shadow->nextIndex(), 2);
}

TEST_F(HardwareShadowIndexRemoval, offsetDel_leavesTheRegionsAndTheCountOfItsChunk) {
  const auto chunk = shadow->chipMemoryChunk(7);
  chunk->offsetDel(0);
  EXPECT_EQ(chunk->offsets(), 0u);
  EXPECT_EQ(chunk->chipMemorys(), 1u);
  EXPECT_EQ(chunk->chipMemory(0), high);
  EXPECT_EQ(chunk->nextIndex(), 1);
}

TEST_F(HardwareShadowIndexRemoval, chipMemoryDel_leavesTheOffsetsAndTheCountOfItsChunk) {
  const auto chunk = shadow->chipMemoryChunk(7);
  chunk->chipMemoryDel(0);
  EXPECT_EQ(chunk->chipMemorys(), 0u);
  EXPECT_EQ(chunk->offsets(), 1u);
  EXPECT_EQ(chunk->offset(0), 0x100u);
  EXPECT_EQ(chunk->nextIndex(), 1);
}

}  // namespace
