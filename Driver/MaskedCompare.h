// Compares two images of entries under a mask: the bits that are set in it may differ.
//
//   const MaskedCompare compare(mask);                       // of one entry
//   compare.differentByte(shadow, hardware, 1024 * 4);       // of 1,024 entries of 4 bytes
//
// The mask is repeated until it fills whole vectors. What differs is collected for each vector of
// this period over many periods, and masked once for all of them: the inner loop loads nothing but
// the two images.
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>
#include <cstddef>
#include <span>
#include <vector>

namespace Driver {

// The index of the first byte of which a bit that is set in `compared` differs, `bytes` if there is
// none. Nothing beyond `bytes` is read.
UMBRA_API std::size_t differentByte(const U8* a, const U8* b, const U8* compared,
                                    std::size_t bytes);
// The same for all bits.
UMBRA_API std::size_t differentByte(const U8* a, const U8* b, std::size_t bytes);

// Some bytes of two images.
struct ByteRun {
  std::size_t first;
  std::size_t bytes;
};

// The number of the first run in which a bit differs, the number of runs if there is none.
UMBRA_API std::size_t differentRun(const U8* a, const U8* b, std::span<const ByteRun> runs);

class UMBRA_API MaskedCompare {
 public:
  // REQUIRES: at least one byte.
  explicit MaskedCompare(std::span<const U8> mask);

  // The index of the first byte whose unmasked bits differ, `bytes` if there is none. The images
  // begin where the mask does. Nothing beyond `bytes` is read.
  std::size_t differentByte(const U8* a, const U8* b, std::size_t bytes) const;

 private:
  using BlockDiffers = bool (*)(const U8* a, const U8* b, const U8* compared, std::size_t periods);

  std::vector<U8> compared_;             // the mask's complement, for one period
  BlockDiffers blockDiffers_ = nullptr;  // null for a period of too many vectors
};

}  // namespace Driver
