// Where regions may lie in an address space: look-ups, writes, reads and audit passes beside a
// naive reference, for each layout.
#include <gtest/gtest.h>

#include "layouts/Layout.h"

namespace Layouts {
namespace {

constexpr U64 fourGiB = U64{1} << 32;

void checkAll(const std::vector<Place>& places, U32 step = 1) {
  Layout layout(places);
  ASSERT_NO_FATAL_FAILURE(layout.checkLookUps());
  ASSERT_NO_FATAL_FAILURE(layout.checkWritesAndReads());
  ASSERT_NO_FATAL_FAILURE(layout.checkAudit(step));
  ASSERT_NO_FATAL_FAILURE(layout.checkLookUps());
}

// Regions of uneven sizes, with `gap` addresses after each, then at the next multiple of `align`.
std::vector<Place> regionsWith(U64 start, U32 gap, U32 align, U32 count) {
  constexpr U32 entries[] = {1, 2, 7, 8, 9, 31, 33}, sizes[] = {4, 1, 8, 3, 2, 12, 5, 16, 64};
  std::vector<Place> places;
  U64 address = start;
  for (U32 i = 0; i < count; ++i) {
    const U32 size = sizes[i % 9], stride = size + (i % 4 == 3 ? 3 : 0);
    places.push_back({address, entries[i % 7], size, stride});
    address += U64{stride} * entries[i % 7] + gap;
    address = (address + align - 1) / align * align;
  }
  return places;
}

TEST(Layouts, gapsFromNoneTo64KiBBetweenRegions) {
  for (U32 gap : {0u,  1u,   2u,   3u,   4u,    5u,    7u,    8u,    15u,    16u,    63u,
                  64u, 100u, 255u, 256u, 1000u, 4095u, 4096u, 4097u, 16384u, 65535u, 65536u}) {
    SCOPED_TRACE("gap " + std::to_string(gap));
    ASSERT_NO_FATAL_FAILURE(checkAll(regionsWith(0x1000 + gap, gap, 1, 64)));
  }
}

TEST(Layouts, regionsOn4KiBAnd64KiBBoundaries) {
  for (U32 align : {4u, 256u, 4096u, 65536u}) {
    SCOPED_TRACE("aligned to " + std::to_string(align));
    ASSERT_NO_FATAL_FAILURE(checkAll(regionsWith(0, 0, align, 63)));
    ASSERT_NO_FATAL_FAILURE(checkAll(regionsWith(5 * fourGiB, 1, align, 63)));
  }
}

TEST(Layouts, fewRegions) {
  for (U32 count = 1; count <= 9; ++count) {
    SCOPED_TRACE(std::to_string(count) + " regions");
    ASSERT_NO_FATAL_FAILURE(checkAll(regionsWith(0x100, 16, 1, count)));
  }
}

TEST(Layouts, regionsInNeighbouringAndDistantMemories) {
  std::vector<Place> places;
  for (U64 id :
       {U64{0}, U64{1}, U64{2}, U64{7}, U64{0x7fffffff}, U64{0x80000000}, U64{0xffffffff}}) {
    for (U32 offset : {0x10u, 0x100u, 0x7ffffff0u, 0x80000000u, 0xffff0000u}) {
      places.push_back({id << 32 | offset, 3});
    }
  }
  ASSERT_NO_FATAL_FAILURE(checkAll(places));
}

TEST(Layouts, regionsAtTheEndOf4GiB) {
  // Ends one entry before the end, ends at the end, and reaches into the next 4 GiB, where only the
  // last region found answers.
  for (U32 before : {36u, 32u, 16u, 4u}) {
    SCOPED_TRACE("starts " + std::to_string(before) + " before the end");
    ASSERT_NO_FATAL_FAILURE(checkAll({{fourGiB - before, 8}, {2 * fourGiB - 256, 4}}));
    ASSERT_NO_FATAL_FAILURE(
        checkAll({{fourGiB - 128, 4}, {fourGiB - before, 8}, {fourGiB + 32, 4}}));
  }
}

// A region that ends at the last address contains none: its end is 0. Deliberate, as the end is
// computed in 64 bits.
TEST(Layouts, regionsAtTheEndOfTheAddressSpace) {
  const U64 end = 0;
  ASSERT_NO_FATAL_FAILURE(checkAll({{end - 64, 15}}));
  ASSERT_NO_FATAL_FAILURE(checkAll({{end - 64, 16}}));
  ASSERT_NO_FATAL_FAILURE(checkAll({{end - 256, 4}, {end - 64, 16}}));
  ASSERT_NO_FATAL_FAILURE(checkAll({{end - 1, 1, 1}, {end - 2, 1, 1}, {0, 2}}));
}

TEST(Layouts, regionsAtAddress0) {
  ASSERT_NO_FATAL_FAILURE(checkAll({{0, 1, 1}, {1, 1, 1}, {2, 2, 1}}));
  ASSERT_NO_FATAL_FAILURE(checkAll({{0, 64}}));
}

// The later start wins, but for the last region found, which answers as long as it contains the
// address.
TEST(Layouts, overlappingRegionsAreLookedUpByTheirStart) {
  Layout layout({{0x1000, 64},
                 {0x1010, 4},
                 {0x1014, 64},
                 {0x10f0, 8},
                 {0x2000, 1},
                 {0x2001, 16, 1},
                 {0x3000, 100, 4, 8},
                 {0x3004, 100, 4, 8}});
  ASSERT_NO_FATAL_FAILURE(layout.checkLookUps());
}

TEST(Layouts, strideWhoseProductWrapsBoundsTheRegionByWhatIsLeft) {
  Layout layout({{0x1000, 3, 4, 0x80000000}, {0x5000, 5, 4, 0x40000001}});
  ASSERT_NO_FATAL_FAILURE(layout.checkLookUps());
}

TEST(Layouts, all65535RegionsOfOneMemory) {
  std::vector<Place> adjacent, apart;
  for (U32 i = 0; i < 65535; ++i) {
    adjacent.push_back({0x1000 + U64{i} * 4, 1});
    apart.push_back({0x1000 + U64{i} * 5, 1});
  }
  ASSERT_NO_FATAL_FAILURE(Layout(adjacent).checkLookUps());
  ASSERT_NO_FATAL_FAILURE(checkAll(apart, 1009));
}

TEST(Layouts, all65535MemoriesOfOneRegion) {
  std::vector<Place> places;
  for (U32 i = 0; i < 65535; ++i) places.push_back({(U64{i} * 65537) << 32 | i * 4, 1});
  ASSERT_NO_FATAL_FAILURE(checkAll(places, 1009));
}

}  // namespace
}  // namespace Layouts
