// Writes of many entries, without a trace of single hits: whole groups of entries are compared at
// once.
#include "fakes/ShadowTest.h"

namespace {

using Fakes::Entries;
using Fakes::marked;

struct HardwareShadowWriteMany : Fakes::ShadowTest {
  HardwareShadowWriteMany() { Hardware::umbraTrace().levelUpToIs(0); }
};

TEST_F(HardwareShadowWriteMany, hitsAreFoundEntryByEntryAtAnyEntrySize) {
  for (const U32 entrySize : {1u, 2u, 3u, 4u, 5u, 8u}) {
    SCOPED_TRACE(entrySize);
    constexpr U32 entries = 24;
    const ChipMemory::Ptr table = shadowed("table", 0x4000, entries, entrySize);
    table->skipWriteIfMatchesCacheIs(true);
    std::vector<U8> data(entries * entrySize);
    for (U32 i = 0; i < data.size(); ++i) data[i] = static_cast<U8>(i * 7 + 1);
    const U32 size = static_cast<U32>(data.size());
    shadow->shadowWriteAndCompareWithCache(table, 0, data.data(), size);
    EXPECT_EQ(table->writeCacheHits(), 0u);
    std::memset(table->dirty()->data(), 0, table->dirty()->size());

    data[0] ^= 0x10;                        // first byte of the first entry
    data[3 * entrySize] ^= 0x01;            // first byte of one in the middle
    data[10 * entrySize - 1] ^= 0x80;       // last byte of another
    data[entries * entrySize - 1] ^= 0x02;  // last byte of the last
    EXPECT_FALSE(shadow->shadowWriteAndCompareWithCache(table, 0, data.data(), size));
    EXPECT_EQ(table->writeCacheHits(), entries - 4);
    EXPECT_EQ(marked(table->dirty()), (Entries{0, 3, 9, 23}));
    EXPECT_EQ(std::memcmp(table->shadow()->data(), data.data(), size), 0);
    EXPECT_TRUE(shadow->shadowWriteAndCompareWithCache(table, 0, data.data(), size));
    EXPECT_EQ(table->writeCacheHits(), 2 * entries - 4);
  }
}

// Groups of 64 entries are looked at together, where they begin at a whole byte of the bitmap.
TEST_F(HardwareShadowWriteMany, anEntryThatIsNotInitializedIsNoHitWhereverItStands) {
  constexpr U32 entries = 150;
  const ChipMemory::Ptr table = shadowed("table", 0x4000, entries);
  table->skipWriteIfMatchesCacheIs(true);
  std::vector<U32> data(entries);
  for (U32 i = 0; i < entries; ++i) data[i] = i * 0x01010101u;
  const auto write = [&](U32 from, U32 to) {
    shadow->shadowWriteAndCompareWithCache(table, from, reinterpret_cast<U8*>(&data[from]),
                                           (to - from) * 4);
  };
  write(0, entries);
  for (const auto& [from, to] : {std::pair(0u, entries), {8u, 72u}, {8u, 73u}, {7u, 140u}}) {
    for (U32 i = from; i < to; ++i) {
      SCOPED_TRACE(i);
      std::memset(table->dirty()->data(), 0, table->dirty()->size());
      table->writeCacheHitsIs(0);
      table->entryInitializedDel(i);
      write(from, to);
      ASSERT_EQ(table->writeCacheHits(), to - from - 1);
      ASSERT_EQ(marked(table->dirty()), (Entries{i}));
      ASSERT_TRUE(table->entryInitialized(i));
    }
    table->writeCacheHitsIs(0);
    write(from, to);
    EXPECT_EQ(table->writeCacheHits(), to - from);
  }
  table->entryInitializedDel(7);  // outside of what is written
  table->entryInitializedDel(72);
  table->writeCacheHitsIs(0);
  write(8, 72);
  EXPECT_EQ(table->writeCacheHits(), 64u);
}

}  // namespace
