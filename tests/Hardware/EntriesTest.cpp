// Bitmaps and runs of entries, each operation against the same one bit by bit or byte by byte.
#include <Hardware/Entries.h>

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace Hardware {
namespace {

using Bytes = std::vector<U8>;

constexpr U32 bits = 160;

class EntriesTest : public testing::Test {
 protected:
  Bytes randomBytes(std::size_t size) {
    Bytes bytes(size);
    for (U8& byte : bytes) byte = static_cast<U8>(random());
    return bytes;
  }
  static bool bit(const Bytes& bitmap, U32 entry) {
    return (bitmap[entry / 8] & (1 << entry % 8)) != 0;
  }
  static Bytes withBit(Bytes bitmap, U32 entry, bool set) {
    const U8 mask = static_cast<U8>(1 << entry % 8);
    bitmap[entry / 8] = static_cast<U8>(set ? bitmap[entry / 8] | mask : bitmap[entry / 8] & ~mask);
    return bitmap;
  }

  std::mt19937 random{7};
};

TEST_F(EntriesTest, bitIOfByteIStandsForAnEntryAndTheOthersStay) {
  const Bytes before = randomBytes(bits / 8);
  for (U32 entry = 0; entry < bits; ++entry) {
    EXPECT_EQ(bitmapBit(before.data(), entry), bit(before, entry)) << entry;
    Bytes set = before, deleted = before;
    bitmapBitIs(set.data(), entry);
    bitmapBitDel(deleted.data(), entry);
    EXPECT_EQ(set, withBit(before, entry, true)) << entry;
    EXPECT_EQ(deleted, withBit(before, entry, false)) << entry;
  }
}

TEST_F(EntriesTest, bitGroup_isTheRestOfTheByteOrOfTheRange) {
  for (U32 entry = 0; entry < 24; ++entry) {
    for (U32 left = 1; left <= 20; ++left) {
      U32 count = 0, mask = 0;
      do {
        mask |= 1u << (entry + count) % 8;
        ++count;
      } while (count < left && (entry + count) % 8 != 0);
      const BitGroup group(entry, left);
      EXPECT_EQ(group.count, count) << entry << " " << left;
      EXPECT_EQ(group.mask, mask) << entry << " " << left;
    }
  }
}

TEST_F(EntriesTest, bitmapRangeIs_setsTheRangeAndNothingElse) {
  const Bytes before = randomBytes(bits / 8);
  for (U32 entry = 0; entry <= bits; ++entry) {
    for (U32 count = 0; entry + count <= bits; ++count) {
      Bytes expected = before, actual = before;
      for (U32 i = entry; i < entry + count; ++i) {
        expected[i / 8] = static_cast<U8>(expected[i / 8] | 1 << i % 8);
      }
      bitmapRangeIs(actual.data(), entry, count);
      ASSERT_EQ(actual, expected) << entry << " " << count;
    }
  }
}

// Every range in a bitmap where one bit is missing, and where all outside of the range are.
TEST_F(EntriesTest, bitmapRangeIsSet_holdsExactlyWhereEachBitIs) {
  for (U32 entry = 0; entry <= bits; ++entry) {
    for (U32 count = 0; entry + count <= bits; ++count) {
      Bytes bitmap(bits / 8, 0);
      bitmapRangeIs(bitmap.data(), entry, count);
      ASSERT_TRUE(bitmapRangeIsSet(bitmap.data(), entry, count)) << entry << " " << count;
      for (const U32 hole : {entry, entry + count / 2, entry + count - 1}) {
        if (count == 0) continue;
        const Bytes holed = withBit(bitmap, hole, false);
        ASSERT_FALSE(bitmapRangeIsSet(holed.data(), entry, count)) << entry << " " << count;
      }
    }
  }
  for (U32 hole = 0; hole < bits; ++hole) {
    const Bytes holed = withBit(Bytes(bits / 8, 0xff), hole, false);
    EXPECT_FALSE(bitmapRangeIsSet(holed.data(), 0, bits)) << hole;
  }
}

TEST_F(EntriesTest, firstDifference_isTheFirstOfAllAndTheLengthWhenThereIsNone) {
  for (const std::size_t size : {0, 1, 7, 8, 9, 40, 4095, 4096, 4097, 8192, 9000}) {
    const Bytes a = randomBytes(size);
    EXPECT_EQ(firstDifference(a.data(), a.data(), size), size);
    Bytes beyond = a;
    beyond.push_back(1);
    Bytes other = a;
    other.push_back(2);
    EXPECT_EQ(firstDifference(beyond.data(), other.data(), size), size);
    for (std::size_t at = 0; at < size; at += at % 4096 < 20 || at + 20 > size ? 1 : 97) {
      Bytes b = a;
      b[at] ^= 0x40;
      if (at + 1 < size) b[size - 1] ^= 1;
      ASSERT_EQ(firstDifference(a.data(), b.data(), size), at) << size;
    }
  }
}

TEST_F(EntriesTest, copyBytes_copiesThatManyBytes) {
  const Bytes from = randomBytes(16);
  for (U32 size = 0; size <= 12; ++size) {
    Bytes to(16, 0xee), expected(16, 0xee);
    std::copy_n(from.begin(), size, expected.begin());
    copyBytes(to.data(), from.data(), size);
    EXPECT_EQ(to, expected) << size;
  }
  copyBytes(nullptr, nullptr, 0);
}

TEST_F(EntriesTest, entriesEqual_looksAtEachByteOfTheEntryAndNoOther) {
  for (U32 size = 0; size <= 12; ++size) {
    const Bytes a = randomBytes(16);
    for (U32 at = 0; at < 16; ++at) {
      Bytes b = a;
      b[at] ^= 0x80;
      EXPECT_EQ(entriesEqual(a.data(), b.data(), size), at >= size) << size << " " << at;
    }
  }
}

TEST_F(EntriesTest, equalEntries_hasABitForEachEqualEntry) {
  for (U32 size = 1; size <= 9; ++size) {
    for (U32 count = 1; count <= 8; ++count) {
      const Bytes a = randomBytes(std::size_t{size} * count + 4);
      for (U32 differ = 0; differ < 1u << count; ++differ) {
        for (U32 at = 0; at < size; ++at) {  // the byte of an entry that differs
          Bytes b = a;
          for (U32 i = 0; i < count; ++i) {
            if ((differ >> i & 1) != 0) b[i * size + at] ^= 0x01;
          }
          for (std::size_t i = std::size_t{size} * count; i < b.size(); ++i) b[i] ^= 1;
          ASSERT_EQ(equalEntries(a.data(), b.data(), size, count), ~differ & ((1u << count) - 1))
              << size << " " << count << " " << at;
        }
      }
    }
  }
}

}  // namespace
}  // namespace Hardware
