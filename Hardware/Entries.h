// Many entries at once: bitmaps, with entry i at bit i & 7 of byte i >> 3, and runs of equal
// entries.
#pragma once

#include <Zint/Types.h>
#include <emmintrin.h>

#include <algorithm>
#include <cstring>

namespace Hardware {

inline bool bitmapBit(const U8* bitmap, U32 entry) {
  return ((bitmap[entry >> 3] >> (entry & 7)) & 1) != 0;
}
inline void bitmapBitIs(U8* bitmap, U32 entry) {
  bitmap[entry >> 3] = static_cast<U8>(bitmap[entry >> 3] | 1u << (entry & 7));
}
inline void bitmapBitDel(U8* bitmap, U32 entry) {
  bitmap[entry >> 3] = static_cast<U8>(bitmap[entry >> 3] & ~(1u << (entry & 7)));
}

// The entries from `entry` on that share its byte of a bitmap, at most `left` (more than 0) of
// them.
struct BitGroup {
  BitGroup(U32 entry, U32 left)
      : count(std::min(8 - (entry & 7), left)), mask(((1u << count) - 1) << (entry & 7)) {}
  U32 count;
  U32 mask;
};

// The number of bits that are set in a byte. POPCNT is not in the baseline instruction set; without
// it std::popcount is a call.
inline U32 bitsOfByte(U32 byte) {
  constexpr U8 bits[16] = {0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};
  return U32{bits[byte & 15]} + bits[byte >> 4];
}

inline bool bitmapRangeIsSet(const U8* bitmap, U32 entry, U32 count) {
  while (count > 0) {
    const U8* at = bitmap + (entry >> 3);
    if ((entry & 7) == 0 && count >= 8) {
      // Whole bytes: the first is all ones, and each is like the one before.
      const U32 bytes = count >> 3;
      if (*at != 0xff || std::memcmp(at, at + 1, bytes - 1) != 0) return false;
      entry += bytes * 8;
      count -= bytes * 8;
      continue;
    }
    const BitGroup group(entry, count);
    if ((*at & group.mask) != group.mask) return false;
    entry += group.count;
    count -= group.count;
  }
  return true;
}

inline void bitmapRangeIs(U8* bitmap, U32 entry, U32 count) {
  while (count > 0) {
    if ((entry & 7) == 0 && count >= 8) {
      const U32 bytes = count >> 3;
      std::memset(bitmap + (entry >> 3), 0xff, bytes);
      entry += bytes * 8;
      count -= bytes * 8;
      continue;
    }
    const BitGroup group(entry, count);
    bitmap[entry >> 3] = static_cast<U8>(bitmap[entry >> 3] | group.mask);
    entry += group.count;
    count -= group.count;
  }
}

// The index of the first byte that differs, `bytes` when none does. Blocks go to memcmp, which is
// as fast as memory; only the block that holds the difference is compared word by word.
inline std::size_t firstDifference(const U8* a, const U8* b, std::size_t bytes) {
  constexpr std::size_t block = 4096;
  std::size_t at = 0;
  while (at < bytes && std::memcmp(a + at, b + at, std::min(block, bytes - at)) == 0) {
    at += std::min(block, bytes - at);
  }
  if (at == bytes) return bytes;
  for (; bytes - at >= 8; at += 8) {
    U64 left, right;
    std::memcpy(&left, a + at, 8);
    std::memcpy(&right, b + at, 8);
    if (left != right) break;
  }
  while (a[at] == b[at]) ++at;
  return at;
}

// The blocks may overlap. One word, the common case, needs no call. With zero bytes the pointers
// may be null, so memmove must not be called.
inline void copyBytes(U8* to, const U8* from, U32 bytes) {
  if (bytes == sizeof(U32)) {
    U32 word;
    std::memcpy(&word, from, sizeof word);
    std::memcpy(to, &word, sizeof word);
  } else if (bytes != 0) {
    std::memmove(to, from, bytes);
  }
}
// The address of zero bytes may be null, as that of a client's buffer.
inline void fillBytes(U8* to, U8 value, U32 bytes) {
  if (bytes != 0) std::memset(to, value, bytes);
}
inline bool entriesEqual(const U8* a, const U8* b, U32 entrySize) {
  if (entrySize != sizeof(U32)) return std::memcmp(a, b, entrySize) == 0;
  U32 left, right;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return left == right;
}

namespace Detail {

inline __m128i bytes16(const U8* a) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(a)); }

// Eight entries of 1, 2, 4 or 8 bytes: compared side by side, then narrowed to one byte for each.
inline U32 eightEqual1(const U8* a, const U8* b) {
  const __m128i equal = _mm_cmpeq_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)),
                                       _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
  return static_cast<U32>(_mm_movemask_epi8(equal)) & 0xff;
}
inline U32 eightWide(__m128i equal) {
  return static_cast<U32>(_mm_movemask_epi8(_mm_packs_epi16(equal, _mm_setzero_si128())));
}
inline U32 eightEqual2(const U8* a, const U8* b) {
  return eightWide(_mm_cmpeq_epi16(bytes16(a), bytes16(b)));
}
inline U32 eightEqual4(const U8* a, const U8* b) {
  return eightWide(_mm_packs_epi32(_mm_cmpeq_epi32(bytes16(a), bytes16(b)),
                                   _mm_cmpeq_epi32(bytes16(a + 16), bytes16(b + 16))));
}
// Both halves of two entries of 8 bytes.
inline __m128i twoEqual8(const U8* a, const U8* b) {
  const __m128i halves = _mm_cmpeq_epi32(bytes16(a), bytes16(b));
  return _mm_and_si128(halves, _mm_shuffle_epi32(halves, _MM_SHUFFLE(2, 3, 0, 1)));
}
inline U32 eightEqual8(const U8* a, const U8* b) {
  const __m128i low = _mm_packs_epi32(twoEqual8(a, b), twoEqual8(a + 16, b + 16));
  const __m128i high = _mm_packs_epi32(twoEqual8(a + 32, b + 32), twoEqual8(a + 48, b + 48));
  // An entry is now two equal 16-bit lanes: one 32-bit lane of 0 or -1, which is packed once more.
  return eightWide(_mm_packs_epi32(low, high));
}

}  // namespace Detail

// Bit i: entry i of a equals entry i of b, for at most 8 entries.
inline U32 equalEntries(const U8* a, const U8* b, U32 entrySize, U32 count) {
  if (count == 8) {
    if (entrySize == 4) return Detail::eightEqual4(a, b);
    if (entrySize == 8) return Detail::eightEqual8(a, b);
    if (entrySize == 2) return Detail::eightEqual2(a, b);
    if (entrySize == 1) return Detail::eightEqual1(a, b);
  }
  U32 equal = 0;
  for (U32 i = 0; i < count; ++i, a += entrySize, b += entrySize) {
    equal |= U32{entriesEqual(a, b, entrySize)} << i;
  }
  return equal;
}

}  // namespace Hardware
