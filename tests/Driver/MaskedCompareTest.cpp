// The masked comparison against a loop over the bytes. Images are heap blocks of exactly the bytes
// compared: a sanitizer sees every byte read beyond them.
#include <Driver/MaskedCompare.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "support/Random.h"

namespace {

using Driver::MaskedCompare;

constexpr U32 comparedSizes[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,   10,  11,  12,
                                 13, 14, 15, 16, 24, 32, 48, 64, 100, 257, 5000};

// A copy that begins `misalignment` bytes behind an aligned address and ends with its block.
struct ExactImage {
  ExactImage(const std::vector<U8>& bytes, std::size_t misalignment)
      : block(new U8[misalignment + bytes.size()]), data(block.get() + misalignment) {
    std::copy(bytes.begin(), bytes.end(), data);
  }
  std::unique_ptr<U8[]> block;
  U8* data;
};

std::vector<U8> randomBytes(Support::Random& random, std::size_t count) {
  std::vector<U8> bytes(count);
  for (U8& byte : bytes) byte = random.byte();
  return bytes;
}

// The compared bits of many entries.
std::vector<U8> complementOf(const std::vector<U8>& mask, std::size_t bytes) {
  std::vector<U8> compared(bytes);
  for (std::size_t i = 0; i < bytes; ++i) compared[i] = static_cast<U8>(~mask[i % mask.size()]);
  return compared;
}

TEST(MaskedCompare, findsEveryUnmaskedBitAndNoMaskedOne) {
  Support::Random random(1);
  for (const U32 size : comparedSizes) {
    if (size > 300) continue;
    const std::vector<U8> mask = randomBytes(random, size);
    const MaskedCompare compare(mask);
    const std::size_t bytes = std::size_t{size} * (size < 32 ? 40 : 9);
    const std::vector<U8> values = randomBytes(random, bytes);
    for (const std::size_t misalignment : {0u, 1u, 7u}) {
      const ExactImage a(values, misalignment), b(values, (misalignment * 5) % 16);
      ASSERT_EQ(compare.differentByte(a.data, b.data, bytes), bytes) << size;
      for (std::size_t bit = 0; bit < 8 * bytes; ++bit) {
        const std::size_t byte = bit / 8;
        const U8 flipped = static_cast<U8>(1u << (bit % 8));
        b.data[byte] ^= flipped;
        const bool isMasked = (mask[byte % size] & flipped) != 0;
        ASSERT_EQ(compare.differentByte(a.data, b.data, bytes), isMasked ? bytes : byte)
            << size << " bit " << bit;
        b.data[byte] ^= flipped;
      }
    }
  }
}

TEST(MaskedCompare, isTheSameAtEveryAlignmentAndForEveryNumberOfEntries) {
  Support::Random random(2);
  for (const U32 size : comparedSizes) {
    const std::vector<U8> mask = randomBytes(random, size);
    const MaskedCompare compare(mask);
    for (std::size_t alignments = 0; alignments < 256; ++alignments) {
      if (size > 100 && alignments % 16 != 0) continue;
      const std::size_t bytes = std::size_t{size} * (1 + random.below(size > 300 ? 4 : 70));
      std::vector<U8> values = randomBytes(random, bytes);
      const ExactImage a(values, alignments % 16);
      for (std::size_t i = 0; i < bytes; ++i)
        values[i] ^= static_cast<U8>(random.byte() & mask[i % size]);
      const ExactImage b(values, alignments / 16);
      ASSERT_EQ(compare.differentByte(a.data, b.data, bytes), bytes) << size;
      // In the first and the last byte that can differ.
      for (const bool last : {false, true}) {
        std::size_t at = last ? bytes - 1 : 0;
        while (mask[at % size] == 0xff) at = last ? at - 1 : at + 1;
        b.data[at] ^= static_cast<U8>(~mask[at % size]);
        ASSERT_EQ(compare.differentByte(a.data, b.data, bytes), at) << size;
        b.data[at] ^= static_cast<U8>(~mask[at % size]);
      }
    }
  }
}

TEST(MaskedCompare, findsTheFirstOfManyDifferences) {
  Support::Random random(3);
  for (U32 round = 0; round < 1000; ++round) {
    const U32 size = random.oneOf(comparedSizes);
    const std::vector<U8> mask = randomBytes(random, size);
    const std::size_t bytes = std::size_t{size} * (1 + random.below(20000 / size + 1));
    std::vector<U8> values = randomBytes(random, bytes);
    const ExactImage a(values, random.below(16));
    const U32 differences = random.below(4);
    for (U32 i = 0; i < differences; ++i) {
      values[random.below(static_cast<U32>(bytes))] ^= random.byte();
    }
    const ExactImage b(values, random.below(16));
    std::size_t expected = 0;
    while (expected < bytes &&
           ((a.data[expected] ^ b.data[expected]) & ~mask[expected % size]) == 0) {
      ++expected;
    }
    ASSERT_EQ(MaskedCompare(mask).differentByte(a.data, b.data, bytes), expected) << size;
    const ExactImage compared(complementOf(mask, bytes), random.below(16));
    ASSERT_EQ(Driver::differentByte(a.data, b.data, compared.data, bytes), expected) << size;
  }
}

TEST(MaskedCompare, withoutAMaskEveryBitIsCompared) {
  Support::Random random(4);
  for (const std::size_t bytes :
       {0u, 1u, 15u, 16u, 17u, 63u, 64u, 65u, 200u, 4096u, 4161u, 9999u}) {
    const std::vector<U8> values = randomBytes(random, bytes);
    const ExactImage a(values, random.below(16)), b(values, random.below(16));
    EXPECT_EQ(Driver::differentByte(a.data, b.data, bytes), bytes);
    for (std::size_t at = 0; at < bytes; ++at) {
      b.data[at] ^= static_cast<U8>(1u << (at % 8));
      ASSERT_EQ(Driver::differentByte(a.data, b.data, bytes), at);
      b.data[at] ^= static_cast<U8>(1u << (at % 8));
    }
  }
}

TEST(MaskedCompare, ofNothingFindsNothing) {
  const U8 mask[] = {0};
  EXPECT_EQ(MaskedCompare(mask).differentByte(nullptr, nullptr, 0), 0u);
  EXPECT_EQ(Driver::differentByte(nullptr, nullptr, 0), 0u);
}

}  // namespace
