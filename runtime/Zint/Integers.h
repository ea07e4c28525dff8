// The fixed-width integers that everything is written in.
#pragma once

#include <Zint/Api.h>
#include <cstddef>
#include <cstdint>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Zint {

// The 32 bits in reverse order: bit 0 becomes bit 31.
constexpr U32 reversedBits(U32 bits) {
  bits = __builtin_bswap32(bits);
  bits = ((bits >> 4) & 0x0f0f0f0fu) | ((bits & 0x0f0f0f0fu) << 4);
  bits = ((bits >> 2) & 0x33333333u) | ((bits & 0x33333333u) << 2);
  return ((bits >> 1) & 0x55555555u) | ((bits & 0x55555555u) << 1);
}

}  // namespace Zint
