#include <Driver/MaskedCompare.h>

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <numeric>
#include <utility>

namespace Driver {
namespace {

constexpr std::size_t vectorSize = sizeof(__m128i);
// Of a difference, so much is searched again for its place. Larger blocks gain nothing.
constexpr std::size_t largestBlock = 4096;
// Up to so many bytes memcmp's beginning and end cost more than they save.
constexpr std::size_t largestShortRun = sizeof(void*) == 8 ? 128 : 512;
// The most vectors of a period that is compared in blocks.
constexpr std::size_t mostVectors = 16;
// As many as there are registers: one that does not fit costs less than another part.
constexpr std::size_t mostAccumulators = sizeof(void*) == 8 ? 16 : 8;

[[gnu::always_inline]] inline __m128i loadVector(const U8* at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

[[gnu::always_inline]] inline bool isZeroVector(__m128i v) {
  return _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())) == 0xffff;
}

[[gnu::always_inline]] inline __m128i maskedDifference(const U8* a, const U8* b,
                                                       const U8* compared) {
  return _mm_and_si128(_mm_xor_si128(loadVector(a), loadVector(b)), loadVector(compared));
}

[[gnu::always_inline]] inline __m128i xorOf(const U8* a, const U8* b) {
  return _mm_xor_si128(loadVector(a), loadVector(b));
}

// Whether some bits differ. REQUIRES: at least one vector. For short runs: no more than the bytes
// asked for is compared, and but one is compared twice.
[[gnu::always_inline]] inline bool shortRunDiffers(const U8* a, const U8* b, std::size_t bytes) {
  __m128i d0 = xorOf(a + bytes - vectorSize, b + bytes - vectorSize);
  __m128i d1 = _mm_setzero_si128(), d2 = d1, d3 = d1;
  for (; bytes >= 4 * vectorSize; bytes -= 4 * vectorSize, a += 64, b += 64) {
    d0 = _mm_or_si128(d0, xorOf(a, b));
    d1 = _mm_or_si128(d1, xorOf(a + 16, b + 16));
    d2 = _mm_or_si128(d2, xorOf(a + 32, b + 32));
    d3 = _mm_or_si128(d3, xorOf(a + 48, b + 48));
  }
  if (bytes >= 2 * vectorSize) {
    d1 = _mm_or_si128(d1, xorOf(a, b));
    d2 = _mm_or_si128(d2, xorOf(a + 16, b + 16));
    a += 32, b += 32, bytes -= 32;
  }
  if (bytes >= vectorSize) d3 = _mm_or_si128(d3, xorOf(a, b));
  return !isZeroVector(_mm_or_si128(_mm_or_si128(d0, d1), _mm_or_si128(d2, d3)));
}

// The vectors i of each period. Unrolled by hand: each has an accumulator, in a register.
template <std::size_t vectors, std::size_t begin, std::size_t... i>
[[gnu::always_inline]] inline bool differ(const U8* a, const U8* b, const U8* compared,
                                          std::size_t periods, std::index_sequence<i...>) {
  constexpr std::size_t period = vectors * vectorSize;
  a += begin * vectorSize;
  b += begin * vectorSize;
  compared += begin * vectorSize;
  __m128i found[] = {(static_cast<void>(i), _mm_setzero_si128())...};
  for (; periods != 0; --periods, a += period, b += period) {
    ((found[i] = _mm_or_si128(found[i], xorOf(a + i * vectorSize, b + i * vectorSize))), ...);
  }
  __m128i all = _mm_setzero_si128();
  ((all = _mm_or_si128(all, _mm_and_si128(found[i], loadVector(compared + i * vectorSize)))), ...);
  return !isZeroVector(all);
}

// A long period goes in several parts through the block, which stays in the cache.
template <std::size_t vectors, std::size_t begin = 0>
bool blockDiffers(const U8* a, const U8* b, const U8* compared, std::size_t periods) {
  constexpr std::size_t parts = (vectors - begin + mostAccumulators - 1) / mostAccumulators;
  constexpr std::size_t part = (vectors - begin + parts - 1) / parts;
  if (differ<vectors, begin>(a, b, compared, periods, std::make_index_sequence<part>())) {
    return true;
  }
  if constexpr (begin + part < vectors) {
    return blockDiffers<vectors, begin + part>(a, b, compared, periods);
  } else {
    return false;
  }
}

template <std::size_t... i>
constexpr auto blockKernelsOf(std::index_sequence<i...>) {
  return std::array{blockDiffers<i + 1>...};
}

// By the number of vectors less 1.
constexpr auto blockKernels = blockKernelsOf(std::make_index_sequence<mostVectors>());

}  // namespace

std::size_t differentByte(const U8* a, const U8* b, const U8* compared, std::size_t bytes) {
  std::size_t at = 0;
  for (; bytes - at >= 4 * vectorSize; at += 4 * vectorSize) {
    const __m128i d0 = maskedDifference(a + at, b + at, compared + at);
    const __m128i d1 = maskedDifference(a + at + 16, b + at + 16, compared + at + 16);
    const __m128i d2 = maskedDifference(a + at + 32, b + at + 32, compared + at + 32);
    const __m128i d3 = maskedDifference(a + at + 48, b + at + 48, compared + at + 48);
    if (!isZeroVector(_mm_or_si128(_mm_or_si128(d0, d1), _mm_or_si128(d2, d3)))) break;
  }
  for (; bytes - at >= vectorSize; at += vectorSize) {
    const int equal = _mm_movemask_epi8(
        _mm_cmpeq_epi8(maskedDifference(a + at, b + at, compared + at), _mm_setzero_si128()));
    if (equal != 0xffff) return at + static_cast<U32>(std::countr_one(static_cast<U32>(equal)));
  }
  while (at < bytes && ((a[at] ^ b[at]) & compared[at]) == 0) ++at;
  return at;
}

std::size_t differentByte(const U8* a, const U8* b, std::size_t bytes) {
  std::size_t at = 0;
  // memcmp stops early, but does not tell where.
  while (at < bytes) {
    const std::size_t block = std::min(largestBlock, bytes - at);
    if (std::memcmp(a + at, b + at, block) != 0) break;
    at += block;
  }
  for (; bytes - at >= vectorSize; at += vectorSize) {
    const int equal = _mm_movemask_epi8(_mm_cmpeq_epi8(loadVector(a + at), loadVector(b + at)));
    if (equal != 0xffff) return at + static_cast<U32>(std::countr_one(static_cast<U32>(equal)));
  }
  while (at < bytes && a[at] == b[at]) ++at;
  return at;
}

std::size_t differentRun(const U8* a, const U8* b, std::span<const ByteRun> runs) {
  std::size_t i = 0;
  for (; i < runs.size(); ++i) {
    const auto [first, bytes] = runs[i];
    if (bytes < vectorSize || bytes > largestShortRun) {
      if (std::memcmp(a + first, b + first, bytes) != 0) break;
    } else if (shortRunDiffers(a + first, b + first, bytes)) {
      break;
    }
  }
  return i;
}

MaskedCompare::MaskedCompare(std::span<const U8> mask) {
  std::size_t period = std::lcm(mask.size(), vectorSize);
  if (period > largestBlock) {
    period = mask.size();
  } else {
    // Short periods are repeated: more accumulators do not wait for each other.
    while (period <= 3 * vectorSize) period *= 2;
    if (period <= mostVectors * vectorSize) blockDiffers_ = blockKernels[period / vectorSize - 1];
  }
  compared_.resize(period);
  for (std::size_t i = 0; i < period; ++i) compared_[i] = static_cast<U8>(~mask[i % mask.size()]);
}

std::size_t MaskedCompare::differentByte(const U8* a, const U8* b, std::size_t bytes) const {
  const std::size_t period = compared_.size();
  std::size_t at = 0;
  if (blockDiffers_ != nullptr) {
    // A difference may be near, so the first blocks are short.
    const std::size_t most = largestBlock / period;
    for (std::size_t periods = 1;; periods = std::min(2 * periods, most)) {
      periods = std::min(periods, (bytes - at) / period);
      if (periods == 0 || blockDiffers_(a + at, b + at, compared_.data(), periods)) break;
      at += periods * period;
    }
  }
  while (at < bytes) {
    const std::size_t part = std::min(period, bytes - at);
    const std::size_t found = Driver::differentByte(a + at, b + at, compared_.data(), part);
    at += found;
    if (found < part) break;
  }
  return at;
}

}  // namespace Driver
