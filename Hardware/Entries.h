// Many entries at once: bitmaps, with entry i at bit i & 7 of byte i >> 3, and runs of equal
// entries.
#pragma once

#include <Zint/Types.h>
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

inline bool bitmapRangeIsSet(const U8* bitmap, U32 entry, U32 count) {
  while (count > 0) {
    if ((entry & 7) == 0 && count >= 64) {
      U64 bits;
      std::memcpy(&bits, bitmap + (entry >> 3), sizeof bits);
      if (bits != ~U64{0}) return false;
      entry += 64;
      count -= 64;
      continue;
    }
    const BitGroup group(entry, count);
    if ((bitmap[entry >> 3] & group.mask) != group.mask) return false;
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
// as fast as memory; only the block that holds the difference is looked at closely.
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

namespace Detail {

template <class Word>
U32 equalWords(const U8* a, const U8* b, U32 count) {
  U32 equal = 0;
  for (U32 i = 0; i < count; ++i) {
    Word left, right;
    std::memcpy(&left, a + i * sizeof(Word), sizeof(Word));
    std::memcpy(&right, b + i * sizeof(Word), sizeof(Word));
    equal |= U32{left == right} << i;
  }
  return equal;
}

}  // namespace Detail

// Bit i: entry i of a equals entry i of b, for at most 8 entries.
inline U32 equalEntries(const U8* a, const U8* b, U32 entrySize, U32 count) {
  if (entrySize == 4) {
    if (count == 8) return Detail::equalWords<U32>(a, b, 8);  // unrolled
    return Detail::equalWords<U32>(a, b, count);
  }
  if (entrySize == 8) return Detail::equalWords<U64>(a, b, count);
  if (entrySize == 2) return Detail::equalWords<U16>(a, b, count);
  if (entrySize == 1) return Detail::equalWords<U8>(a, b, count);
  U32 equal = 0;
  for (U32 i = 0; i < count; ++i, a += entrySize, b += entrySize) {
    equal |= U32{std::memcmp(a, b, entrySize) == 0} << i;
  }
  return equal;
}

}  // namespace Hardware
