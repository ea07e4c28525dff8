// The registry of regions and the look-up of an address, also where the index was changed by hand.
#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipMemory;
using Hardware::ChipMemoryChunk;
using Hardware::HardwareShadow;

class LookupRules : public ShadowTest {
 protected:
  const std::string find =
      "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory(const "
      "Hardware::ChipAddress&, U32)";
  const std::string react =
      "void Hardware::HardwareShadow::handleChipMemory(const Hardware::ChipAddress&)";
};

TEST_F(LookupRules, chipMemoryIs_nullIsRefusedWithTheUnmatchedQuote) {
  EXPECT_EQ(
      "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
      "allowed\"",
      exceptionText([&] { shadow->chipMemoryIs(nullptr); }));
  EXPECT_EQ(0u, shadow->chipMemorys());
}

TEST_F(LookupRules, chipMemoryIs_tracesTheRegion) {
  const ChipMemory::Ptr cm = region("mac", 0x200001f00, 10, 4, 16);
  cm->indirectCmdRegAddrIs(0xAB0);
  trace.taken();
  shadow->chipMemoryIs(cm);
  ASSERT_EQ(1u, trace.full.size());
  EXPECT_EQ("handleChipMemory", trace.full[0].function);
  EXPECT_EQ((Lines{{0,
                    "ChipMemory: mac address=0x2:00001f00 entries=10 entrySize=4 stride=16 "
                    "indirectAddress=0xab0"}}),
            trace.taken());
}

TEST_F(LookupRules, chipMemoryIs_sameObjectAgainIsSilent) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4);
  const auto reactor = shadow->chipMemoryIs(cm);
  trace.taken();
  EXPECT_EQ(reactor, shadow->chipMemoryIs(cm));
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(LookupRules, chipMemoryIs_sameObjectAgainPassesInEveryState) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4);
  configure({cm});
  shadow->chipMemoryIs(cm);
  EXPECT_EQ(1u, shadow->chipMemorys());
}

TEST_F(LookupRules, chipMemoryIs_otherObjectAtTheAddressRebindsAndTraces) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4), other = region("other", 0x1000, 4);
  const auto reactor = shadow->chipMemoryIs(cm);
  trace.taken();
  EXPECT_EQ(reactor, shadow->chipMemoryIs(other));
  EXPECT_EQ(1u, shadow->chipMemorys());
  EXPECT_EQ(other, shadow->chipMemory(ChipAddress(0x1000)));
  EXPECT_EQ(1u, trace.taken().size());
}

TEST_F(LookupRules, chipMemoryIs_afterConfigurationIsFatalOnceTheRegistryHasChanged) {
  configure({});
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4);
  EXPECT_ASSERTION(shadow->chipMemoryIs(cm), 0, react,
                   "state_ == unconfigured_ || overrideHardware_");
  EXPECT_EQ("state_ == unconfigured_ || overrideHardware_",
            assertedCondition([&] { shadow->chipMemoryIs(cm); }));
  EXPECT_EQ(1u, shadow->chipMemorys());
}

TEST_F(LookupRules, chipMemoryDel_afterConfigurationIsFatalOnceTheRegistryHasChanged) {
  configure({region("mac", 0x1000, 4)});
  EXPECT_ASSERTION(shadow->chipMemoryDel(ChipAddress(0x1000)), 0, react,
                   "state_ == unconfigured_ || overrideHardware_");
  (void)assertedCondition([&] { shadow->chipMemoryDel(ChipAddress(0x1000)); });
  EXPECT_EQ(0u, shadow->chipMemorys());
}

TEST_F(LookupRules, chipMemoryDel_ofAnUnknownAddressDoesNothingInAnyState) {
  configure({region("mac", 0x1000, 4)});
  const ChipMemory::Ptr last = found(0x1000);
  EXPECT_EQ(nullptr, shadow->chipMemoryDel(ChipAddress(0x1004)));
  EXPECT_EQ(last, shadow->lastChipMemory());
  EXPECT_EQ(Lines{}, trace.taken());
}

TEST_F(LookupRules, chipMemoryDel_ofAnyRegionForgetsTheLastOneAlsoUntraced) {
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = region("b", 0x2000, 4);
  configure({a, b});
  shadow->overrideHardwareIs(true);
  EXPECT_EQ(a, found(0x1000));
  EXPECT_EQ(b, shadow->chipMemoryDel(ChipAddress(0x2000)));
  EXPECT_EQ(nullptr, shadow->lastChipMemory());
  EXPECT_EQ((Lines{{0, "ChipMemory with address=0x0:00002000 removed"}}), trace.taken());
}

TEST_F(LookupRules, handleChipMemory_withoutAnAddressIsNeverCalled) {
  EXPECT_ASSERTION(shadow->handleChipMemory(), 0,
                   "void Hardware::HardwareShadow::handleChipMemory()", "false");
}

TEST_F(LookupRules, findChipMemory_emptyIndexAndNoLastRegionIsNull) {
  shadow->chipMemoryIs(region("a", 0x1000, 4));
  EXPECT_EQ(nullptr, found(0x1000));
}

TEST_F(LookupRules, findChipMemory_lastRegionAnswersWhileUnconfigured) {
  const ChipMemory::Ptr cm = region("a", 0x1000, 4);
  shadow->lastChipMemoryIs(cm);
  EXPECT_EQ(cm, found(0x100C));
  EXPECT_EQ(nullptr, found(0x1010));
  EXPECT_EQ(cm, shadow->lastChipMemory());
}

TEST_F(LookupRules, findChipMemory_gapsAndBelowAreNullAndKeepTheLastRegion) {
  const ChipMemory::Ptr a = region("a", 0x500000100, 4), b = region("b", 0x500000200, 4);
  configure({b, a});
  EXPECT_EQ(b, found(0x500000200));
  EXPECT_EQ(nullptr, found(0x5000001FF));
  EXPECT_EQ(nullptr, found(0x500000080));
  EXPECT_EQ(nullptr, found(0x500000210));
  EXPECT_EQ(b, shadow->lastChipMemory());
  EXPECT_EQ(a, found(0x50000010F, 4));
  EXPECT_EQ(a, shadow->lastChipMemory());
}

TEST_F(LookupRules, findChipMemory_anotherMemoryIdIsNull) {
  configure({region("a", 0x400000000, 0x10, 4), region("b", 0x600000000, 0x10, 4)});
  for (U64 id : {0ull, 3ull, 5ull, 7ull, 0xFFFFFFFFull}) EXPECT_EQ(nullptr, found(id << 32)) << id;
  EXPECT_NE(nullptr, found(0x400000000));
}

// The index is by the start's memory id: what lies beyond the boundary is found only as the last.
TEST_F(LookupRules, findChipMemory_partBeyondTheMemoryIdIsFoundAsTheLastRegionOnly) {
  const ChipMemory::Ptr cm = region("a", 0xFFFFFFF8, 4);
  configure({cm});
  EXPECT_EQ(nullptr, found(0x100000000));
  EXPECT_EQ(cm, found(0xFFFFFFF8));
  EXPECT_EQ(cm, found(0x100000004));
}

TEST_F(LookupRules, findChipMemory_overlapGoesToTheGreatestStart) {
  const ChipMemory::Ptr a = region("a", 0x1000, 16), b = region("b", 0x1010, 2);
  configure({a, b});
  EXPECT_EQ(b, found(0x1010));
  EXPECT_EQ(nullptr, found(0x1018));  // in a, but b is the candidate
  EXPECT_EQ(a, found(0x100C));
  EXPECT_EQ(a, found(0x1010));  // the last region comes first
}

TEST_F(LookupRules, findChipMemory_accessIntoTheNextRegionBelongsToTheFirst) {
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = region("b", 0x1010, 4);
  configure({a, b});
  EXPECT_EQ(a, found(0x100C, 0x100));
}

TEST_F(LookupRules, findChipMemory_partialEntryIsFatalInTheIndex) {
  configure({region("a", 0x1000, 4)});
  EXPECT_ASSERTION(found(0x1000, 6), 0, find,
                   "cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0");
  EXPECT_NE(nullptr, found(0x1000, 0));
  EXPECT_NE(nullptr, found(0x1000, 8));
}

TEST_F(LookupRules, findChipMemory_partialEntryIsFatalAtTheLastRegion) {
  configure({region("a", 0x1000, 4)});
  (void)found(0x1000);
  EXPECT_ASSERTION(
      found(0x1000, 6), 0, find,
      "lastChipMemory_->allowsLogicalViews() || ( size % lastChipMemory_->entrySize() ) == 0");
}

TEST_F(LookupRules, findChipMemory_failedSizeCheckLeavesTheLastRegion) {
  configure({region("a", 0x1000, 4), region("b", 0x2000, 4)});
  const ChipMemory::Ptr last = found(0x2000);
  (void)assertedCondition([&] { found(0x1000, 3); });
  EXPECT_EQ(last, shadow->lastChipMemory());
}

TEST_F(LookupRules, findChipMemory_logicalViewsAcceptEverySize) {
  const ChipMemory::Ptr cm = region("a", 0x1000, 4);
  cm->allowsLogicalViewsIs(true);
  configure({cm});
  EXPECT_EQ(cm, found(0x1000, 6));
  EXPECT_EQ(cm, found(0x1000, 1));
}

TEST_F(LookupRules, findChipMemory_sizeIsNotCheckedWhereNothingIsFound) {
  configure({region("a", 0x1000, 4)});
  EXPECT_EQ(nullptr, found(0x2000, 3));
}

TEST_F(LookupRules, findChipMemory_regionAddedAfterBuildingIsFoundAsTheLastOnly) {
  configure({region("a", 0x1000, 4)});
  shadow->overrideHardwareIs(true);
  const ChipMemory::Ptr late = region("late", 0x2000, 4);
  shadow->chipMemoryIs(late);
  EXPECT_EQ(nullptr, found(0x2000));
  shadow->lastChipMemoryIs(late);
  EXPECT_EQ(late, found(0x2000));
}

TEST_F(LookupRules, findChipMemory_regionRemovedAfterBuildingStaysInTheIndex) {
  configure({region("a", 0x1000, 4)});
  shadow->overrideHardwareIs(true);
  EXPECT_NE(nullptr, shadow->chipMemoryDel(ChipAddress(0x1000)));
  ASSERT_NE(nullptr, found(0x1000));
  EXPECT_EQ("a", found(0x1000)->name().bytes());
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(nullptr, found(0x1000));
  shadow->stateIs(HardwareShadow::configured());
  EXPECT_EQ(nullptr, found(0x1000));
}

TEST_F(LookupRules, findChipMemory_lastRegionOutlivesTheIndex) {
  const ChipMemory::Ptr cm = region("a", 0x1000, 4);
  configure({cm});
  (void)found(0x1000);
  shadow->chipMemoryChunkDelAll();
  shadow->chipMemoryChunkArrayDelAll();
  shadow->chipMemoryIdDelAll();
  shadow->nextIndexIs(0);
  EXPECT_EQ(cm, found(0x1004));
  shadow->lastChipMemoryIs(nullptr);
  EXPECT_EQ(nullptr, found(0x1004));
}

TEST_F(LookupRules, arrays_beyondTheirEndReadAsTheDefault) {
  configure({region("a", 0x500001000, 4)});
  EXPECT_EQ(5u, shadow->chipMemoryId(0));
  EXPECT_EQ(0u, shadow->chipMemoryId(1));
  EXPECT_EQ(0u, shadow->chipMemoryId(65535));
  EXPECT_EQ(nullptr, shadow->chipMemoryChunkArray(65535));
  const ChipMemoryChunk::Ptr chunk = shadow->chipMemoryChunkArray(0);
  EXPECT_EQ(0x1000u, chunk->offset(0));
  EXPECT_EQ(0u, chunk->offset(1));
  EXPECT_EQ(nullptr, chunk->chipMemory(65535));
}

TEST_F(LookupRules, findChipMemory_countAboveTheIdsReadsZeros) {
  const ChipMemory::Ptr cm = region("a", 0x500001000, 4);
  configure({cm});
  shadow->nextIndexIs(2);  // 5, 0: the middle is 5
  EXPECT_EQ(cm, found(0x500001000));
  shadow->lastChipMemoryIs(nullptr);
  EXPECT_EQ(nullptr, found(0));
  shadow->nextIndexIs(3);  // 5, 0, 0: the middle is 0
  EXPECT_EQ(nullptr, found(0x500001000));
  shadow->nextIndexIs(65535);
  EXPECT_EQ(nullptr, found(0x500001000));
}

TEST_F(LookupRules, findChipMemory_zeroBeyondTheIdsHasNoChunk) {
  configure({region("a", 0x500001000, 4)});
  shadow->nextIndexIs(3);
  EXPECT_ASSERTION(found(0), 0, find, "cmc");
}

TEST_F(LookupRules, findChipMemory_removedChunkSlotIsFatal) {
  configure({region("a", 0x500001000, 4)});
  shadow->chipMemoryChunkArrayDelAll();
  EXPECT_EQ(nullptr, found(0x400001000));
  EXPECT_ASSERTION(found(0x500001000), 0, find, "cmc");
}

TEST_F(LookupRules, findChipMemory_nextIndexZeroIsNullWhateverTheArraysHold) {
  configure({region("a", 0x500001000, 4)});
  shadow->nextIndexIs(0);
  EXPECT_EQ(nullptr, found(0x500001000));
}

TEST_F(LookupRules, findChipMemory_chunkOfCountZeroStillShowsItsFirstRegion) {
  const ChipMemory::Ptr cm = region("a", 0x500001000, 4);
  configure({cm});
  shadow->chipMemoryChunkArray(0)->nextIndexIs(0);
  EXPECT_EQ(nullptr, found(0x500000FFF));
  EXPECT_EQ(cm, found(0x500001004));
}

TEST_F(LookupRules, findChipMemory_countAboveTheOffsetsEndsAtANullRegion) {
  configure({region("a", 0x500001000, 4)});
  shadow->chipMemoryChunkArray(0)->nextIndexIs(3);
  EXPECT_ASSERTION(found(0x500001000), 0, find, "cm");
  EXPECT_ASSERTION(found(0x500000000), 0, find, "cm");
}

TEST_F(LookupRules, findChipMemory_countOfTwoOverOneOffset) {
  configure({region("a", 0x500001000, 4)});
  shadow->chipMemoryChunkArray(0)->nextIndexIs(2);
  // 0x1000, 0: an address below the first goes to the left and stops there.
  EXPECT_EQ(nullptr, found(0x500000FFF));
  EXPECT_ASSERTION(found(0x500001000), 0, find, "cm");
}

TEST_F(LookupRules, findChipMemory_emptyChunkIsFatal) {
  shadow->chipMemoryIdIs(0, 7);
  shadow->chipMemoryChunkArrayIs(0, shadow->chipMemoryChunkIs(7));
  shadow->nextIndexIs(1);
  EXPECT_ASSERTION(found(0x700000000), 0, find, "cm");
}

TEST_F(LookupRules, findChipMemory_indexBuiltByHandAnswersWhileUnconfigured) {
  const ChipMemory::Ptr cm = region("a", 0x700000100, 4);
  const ChipMemoryChunk::Ptr chunk = shadow->chipMemoryChunkIs(7);
  chunk->offsetIs(0, 0x100);
  chunk->chipMemoryIs(0, cm);
  chunk->nextIndexIs(1);
  shadow->chipMemoryIdIs(0, 7);
  shadow->chipMemoryChunkArrayIs(0, chunk);
  shadow->nextIndexIs(1);
  EXPECT_EQ(cm, found(0x700000104));
  EXPECT_EQ(cm, shadow->lastChipMemory());
}

TEST_F(LookupRules, findChipMemory_idChangedByHandLeadsToTheRegionsOwnRange) {
  const ChipMemory::Ptr cm = region("a", 0x500001000, 4);
  configure({cm});
  shadow->chipMemoryIdIs(0, 7);
  EXPECT_EQ(nullptr, found(0x500001000));
  EXPECT_EQ(nullptr, found(0x700001000));
}

TEST_F(LookupRules, findChipMemory_offsetsOutOfOrderAreSearchedAsTheyAre) {
  const ChipMemory::Ptr a = region("a", 0x500000100, 4), b = region("b", 0x500000200, 4);
  configure({a, b});
  const ChipMemoryChunk::Ptr chunk = shadow->chipMemoryChunkArray(0);
  chunk->offsetIs(0, 0x200);  // 0x200, 0x200, regions a, b
  EXPECT_EQ(nullptr, found(0x500000100));
  EXPECT_EQ(b, found(0x500000200));
  chunk->chipMemoryIs(1, nullptr);
  shadow->lastChipMemoryIs(nullptr);
  EXPECT_ASSERTION(found(0x500000200), 0, find, "cm");
}

TEST_F(LookupRules, building_bothLevelsAscend) {
  configure({region("d", 0x900000300, 1), region("a", 0x100000200, 1), region("c", 0x100000300, 1),
             region("b", 0x900000100, 1)});
  ASSERT_EQ(2u, shadow->nextIndex());
  EXPECT_EQ(1u, shadow->chipMemoryId(0));
  EXPECT_EQ(9u, shadow->chipMemoryId(1));
  const ChipMemoryChunk::Ptr chunk = shadow->chipMemoryChunkArray(1);
  EXPECT_EQ(chunk, shadow->chipMemoryChunk(9));
  EXPECT_EQ(9u, chunk->fwkKey());
  EXPECT_EQ(2u, chunk->nextIndex());
  EXPECT_EQ(0x100u, chunk->offset(0));
  EXPECT_EQ("d", chunk->chipMemory(1)->name().bytes());
}

TEST_F(LookupRules, accessors_touchTheirOwnArrayAlone) {
  configure({region("a", 0x500001000, 4)});
  shadow->chipMemoryIdDelAll();
  EXPECT_EQ(1u, shadow->nextIndex());
  EXPECT_EQ(1u, shadow->chipMemoryChunks());
  EXPECT_NE(nullptr, shadow->chipMemoryChunkArray(0));
  shadow->chipMemoryChunkDel(5);
  EXPECT_EQ(0u, shadow->chipMemoryChunks());
  EXPECT_NE(nullptr, shadow->chipMemoryChunkArray(0));
}

TEST_F(LookupRules, removeOverrideOnlyChipMem_runsNoReaction) {
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = region("b", 0x2000, 4),
                        c = region("c", 0x3000, 4);
  a->modeIs(ChipMemory::override());
  b->modeIs(ChipMemory::buffered());
  configure({a, b, c});
  (void)found(0x1000);
  shadow->removeOverrideOnlyChipMem();
  EXPECT_EQ(2u, shadow->chipMemorys());
  EXPECT_EQ(nullptr, shadow->chipMemory(ChipAddress(0x1000)));
  EXPECT_EQ(a, shadow->lastChipMemory());
  (void)found(0x2000);
  EXPECT_EQ(a, found(0x1000));
  EXPECT_EQ(Lines{}, trace.taken());
  shadow->stateIs(HardwareShadow::unconfigured());
  EXPECT_EQ(nullptr, found(0x1000));
}

}  // namespace
