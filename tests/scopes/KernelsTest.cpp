// The kernels that treat many entries at once, for every bit pattern of a small number of entries,
// against references that treat one bit or byte at a time.
#include <Hardware/Entries.h>
#include <Hardware/Umbra.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/ShadowTest.h"

namespace Hardware {
namespace {

U32 entriesTried() {
  const char* text = std::getenv("UMBRA_SCOPES_ENTRIES");
  return text == nullptr ? 16 : static_cast<U32>(std::strtoul(text, nullptr, 0));
}

void storePattern(U8* bitmap, U32 pattern) {
  for (U32 byte = 0; byte < 4; ++byte) bitmap[byte] = static_cast<U8>(pattern >> (8 * byte));
}
U32 loadPattern(const U8* bitmap) {
  return U32{bitmap[0]} | U32{bitmap[1]} << 8 | U32{bitmap[2]} << 16 | U32{bitmap[3]} << 24;
}

// Every pattern and, in it, every range that ends within it.
template <class Check>
void forEachPatternAndRange(Check check) {
  const U32 entries = entriesTried();
  for (U32 pattern = 0; pattern < 1u << entries; ++pattern) {
    for (U32 entry = 0; entry <= entries; ++entry) {
      for (U32 count = 0; count <= entries - entry; ++count) check(pattern, entry, count);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(Kernels, bitmapRangeIsSet_everyPatternAndRange) {
  forEachPatternAndRange([](U32 pattern, U32 entry, U32 count) {
    U8 bitmap[4];
    storePattern(bitmap, pattern);
    bool expected = true;
    for (U32 i = entry; i < entry + count; ++i) expected = expected && (pattern >> i & 1) != 0;
    if (bitmapRangeIsSet(bitmap, entry, count) != expected) {
      ADD_FAILURE() << "pattern " << pattern << " entry " << entry << " count " << count;
    }
  });
}

TEST(Kernels, bitmapRangeIs_setsTheRangeAndNothingElse) {
  forEachPatternAndRange([](U32 pattern, U32 entry, U32 count) {
    U8 bitmap[4];
    storePattern(bitmap, pattern);
    U32 expected = pattern;
    for (U32 i = entry; i < entry + count; ++i) expected |= 1u << i;
    bitmapRangeIs(bitmap, entry, count);
    if (loadPattern(bitmap) != expected) {
      ADD_FAILURE() << "pattern " << pattern << " entry " << entry << " count " << count;
    }
  });
}

TEST(Kernels, bitmapBit_setsClearsAndAsksForOneEntry) {
  const U32 entries = entriesTried();
  for (U32 pattern = 0; pattern < 1u << entries; ++pattern) {
    for (U32 entry = 0; entry < entries; ++entry) {
      U8 bitmap[4];
      storePattern(bitmap, pattern);
      ASSERT_EQ(bitmapBit(bitmap, entry), (pattern >> entry & 1) != 0);
      bitmapBitIs(bitmap, entry);
      ASSERT_EQ(loadPattern(bitmap), pattern | 1u << entry);
      bitmapBitDel(bitmap, entry);
      ASSERT_EQ(loadPattern(bitmap), pattern & ~(1u << entry));
    }
  }
}

TEST(Kernels, BitGroup_namesTheEntriesOfOneByte) {
  for (U32 entry = 0; entry < 24; ++entry) {
    for (U32 left = 1; left <= 24; ++left) {
      U32 count = 0, mask = 0;
      for (U32 i = entry; i < entry + left && i / 8 == entry / 8; ++i) {
        ++count;
        mask |= 1u << i % 8;
      }
      const BitGroup group(entry, left);
      ASSERT_EQ(group.count, count) << entry << " " << left;
      ASSERT_EQ(group.mask, mask) << entry << " " << left;
    }
  }
}

TEST(Kernels, bitsOfByte_everyByte) {
  for (U32 byte = 0; byte < 256; ++byte) {
    U32 bits = 0;
    for (U32 i = 0; i < 8; ++i) bits += byte >> i & 1;
    ASSERT_EQ(bitsOfByte(byte), bits);
  }
}

// The buffers begin at each offset in a word, so that no kernel relies on alignment.
TEST(Kernels, equalEntries_everyPatternOfEightAndEveryDifferingByte) {
  for (U32 entrySize : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 12u, 16u, 20u}) {
    for (U32 count = 0; count <= 8; ++count) {
      for (U32 pattern = 0; pattern < 1u << count; ++pattern) {
        for (U32 byte = 0; byte < std::max(entrySize, 1u); ++byte) {
          const U32 shift = (pattern + byte) % 4;
          std::vector<U8> a(std::size_t{entrySize} * count + 4, 0x80), b = a;
          U32 expected = pattern;
          for (U32 i = 0; i < count; ++i) {
            if ((pattern >> i & 1) == 0 && entrySize > 0) b[shift + i * entrySize + byte] ^= 0x80;
          }
          if (entrySize == 0) expected = (1u << count) - 1;
          ASSERT_EQ(equalEntries(a.data() + shift, b.data() + shift, entrySize, count), expected)
              << "entrySize " << entrySize << " count " << count << " pattern " << pattern
              << " byte " << byte;
        }
      }
    }
  }
}

TEST(Kernels, firstDifference_everyLengthAndPlace) {
  std::vector<U8> a(96, 0x5a), b = a;
  for (std::size_t bytes = 0; bytes <= 90; ++bytes) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
      ASSERT_EQ(firstDifference(a.data() + shift, b.data() + shift, bytes), bytes);
      for (std::size_t at = 0; at < 90; ++at) {
        b[shift + at] ^= 1;
        b[shift + 89] ^= 0x80;
        ASSERT_EQ(firstDifference(a.data() + shift, b.data() + shift, bytes), std::min(at, bytes))
            << bytes << " bytes, " << at;
        b[shift + at] ^= 1;
        b[shift + 89] ^= 0x80;
      }
    }
  }
}

TEST(Kernels, firstDifference_aroundTheEndOfABlock) {
  std::vector<U8> a(3 * 4096 + 64, 0x5a), b = a;
  for (std::size_t block : {4096u, 8192u, 12288u}) {
    for (std::size_t at = block - 20; at < block + 20; ++at) {
      b[at] ^= 4;
      for (std::size_t bytes = block - 24; bytes <= block + 24; ++bytes) {
        ASSERT_EQ(firstDifference(a.data(), b.data(), bytes), std::min(at, bytes));
      }
      b[at] ^= 4;
    }
  }
}

// --- The operations built on them, on a region of twenty entries.

class KernelsOfRegion : public Support::ShadowTest {
 protected:
  static constexpr U32 entries = 20;

  void SetUp() override {
    umbraTrace().levelUpToIs(0);
    table->readFromCacheIs(true);
    configure({table});
  }
  static void store(const Hal::BufBase::Ptr& bitmap, U32 pattern) {
    U8 bytes[4];
    storePattern(bytes, pattern);
    std::memcpy(bitmap->data(), bytes, bitmap->size());
  }
  static U32 load(const Hal::BufBase::Ptr& bitmap) {
    U8 bytes[4] = {};
    std::memcpy(bytes, bitmap->data(), bitmap->size());
    return loadPattern(bytes);
  }

  ChipMemory::Ptr table = audited("table", 0x1000, entries);
};

TEST_F(KernelsOfRegion, readFromCache_isServedWhenEveryEntryOfTheRangeIsInitialized) {
  const U32 tried = entriesTried();
  U8 data[entries * 4];
  // The patterns stand at the end of the region, so that its last group is partial.
  const U32 base = entries - tried;
  for (U32 pattern = 0; pattern < 1u << tried; ++pattern) {
    store(table->initialized(), pattern << base);
    const U32 firsts[] = {0, pattern % tried, (pattern >> 3) % tried};
    for (U32 first : firsts) {
      const U32 count = first == 0 ? tried : 1 + (pattern >> 7) % (tried - first);
      bool expected = true;
      for (U32 i = first; i < first + count; ++i) expected = expected && (pattern >> i & 1) != 0;
      ASSERT_EQ(shadow->readFromCache(table, base + first, data, count * 4), expected)
          << "pattern " << pattern << " first " << first << " count " << count;
    }
  }
}

// Three bits for each of five entries that lie over the end of a group: differs from the chip, is
// initialized, was written since the pass began.
TEST_F(KernelsOfRegion, doAuditChips_everyPatternOfDifferenceInitializedAndDirty) {
  constexpr U32 tried = 5;
  for (U32 base : {0u, 5u, 14u, 15u}) {
    for (U32 pattern = 0; pattern < 1u << 3 * tried; pattern += base == 5 ? 1 : 7) {
      const U32 differs = pattern & 31, initialized = pattern >> 5 & 31, dirty = pattern >> 10;
      std::memset(table->shadow()->data(), 0x11, entries * 4);
      std::memset(table->hardware()->data(), 0x11, entries * 4);
      store(table->initialized(), (0xfffff & ~(31u << base)) | initialized << base);
      store(table->dirty(), dirty << base);
      for (U32 i = 0; i < tried; ++i) {
        if (differs >> i & 1) table->hardware()->data()[(base + i) * 4 + i % 4] = 0x12;
      }
      const U32 repaired = table->registersFixed();
      shadow->doAuditChips();
      trace.full.clear();
      chip->log.clear();

      const U32 adopted = differs & ~initialized, fixed = differs & initialized & ~dirty;
      ASSERT_EQ(table->registersFixed() - repaired, bitsOfByte(fixed)) << base << " " << pattern;
      ASSERT_EQ(load(table->initialized()) >> base & 31, initialized | adopted);
      ASSERT_EQ(load(table->dirty()), dirty << base);
      for (U32 i = 0; i < tried; ++i) {
        const U8 held = table->shadow()->data()[(base + i) * 4 + i % 4];
        ASSERT_EQ(held, adopted >> i & 1 ? 0x12 : 0x11) << base << " " << pattern << " " << i;
      }
    }
  }
}

}  // namespace
}  // namespace Hardware
