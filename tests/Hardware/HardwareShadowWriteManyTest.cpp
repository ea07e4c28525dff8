// Writes of many entries, without a trace of single hits: whole groups of entries are compared at
// once.
#include <random>

#include "support/ShadowTest.h"

namespace {

using Support::Entries;
using Support::marked;

struct HardwareShadowWriteMany : Support::ShadowTest {
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

// The many at once against the loop that traces every hit, from the same state.
TEST_F(HardwareShadowWriteMany, leavesWhatTheTracedLoopLeavesAndAnswersTheSame) {
  struct State {
    std::vector<U8> shadow, dirty, initialized;
    U64 hits;
    bool result;
    bool operator==(const State&) const = default;
  };
  constexpr U32 entries = 40;
  std::mt19937 random(11);
  for (int round = 0; round < 3000; ++round) {
    const U32 entrySize = 1 + static_cast<U32>(random() % 8);
    const U32 entry = static_cast<U32>(random() % entries);
    const U32 count = static_cast<U32>(random() % (entries - entry + 1));
    const bool skips = random() % 4 != 0, buffered = random() % 4 == 0;
    const U32 rarity = 1 + static_cast<U32>(random() % 32);  // of what is no hit
    std::vector<U8> bytes(std::size_t{entries} * entrySize), dirty(entries / 8 + 1),
        initialized(entries / 8 + 1);
    for (U8& byte : bytes) byte = static_cast<U8>(random());
    for (U8& byte : dirty) byte = static_cast<U8>(random());
    for (U32 i = 0; i < entries; ++i) {
      if (random() % rarity != 0) Hardware::bitmapBitIs(initialized.data(), i);
    }
    std::vector<U8> data(bytes.begin() + entry * entrySize, bytes.end());
    for (U32 i = 0; i < count; ++i) {
      if (random() % rarity == 0) data[i * entrySize + random() % entrySize] ^= 0x10;
    }
    const auto written = [&](U32 level) {
      Hardware::umbraTrace().levelUpToIs(level);
      const ChipMemory::Ptr table = shadowed("table", 0x4000, entries, entrySize);
      if (buffered) table->modeIs(ChipMemory::buffered());
      table->skipWriteIfMatchesCacheIs(skips);
      std::copy(bytes.begin(), bytes.end(), table->shadow()->data());
      std::copy(dirty.begin(), dirty.end(), table->dirty()->data());
      std::copy(initialized.begin(), initialized.end(), table->initialized()->data());
      const bool result =
          shadow->shadowWriteAndCompareWithCache(table, entry, data.data(), count * entrySize);
      const auto held = [](const Hal::BufBase::Ptr& buffer) {
        return std::vector<U8>(buffer->data(), buffer->data() + buffer->size());
      };
      return State{held(table->shadow()), held(table->dirty()), held(table->initialized()),
                   table->writeCacheHits(), result};
    };
    const State plain = written(0), traced = written(7);
    ASSERT_TRUE(plain == traced) << "round " << round << ": " << count << " entries of "
                                 << entrySize << " bytes from " << entry;
  }
}

}  // namespace
