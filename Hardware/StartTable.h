// Where the search of an ascending array begins: the array's range is cut into buckets of one
// width, about two for each number, and the table holds for each bucket the position of the last
// number at or before its end. So a search compares few numbers, whatever the array's size.
//
//   StartTable starts;
//   starts.build(numbers, count);
//   U32 place = starts.lastNotAbove(numbers, count, sought);
//
// Where the numbers crowd in few buckets, a binary search within a bucket remains.
#pragma once

#include <Zint/Types.h>

#include <algorithm>
#include <bit>
#include <vector>

namespace Hardware {

class StartTable {
 public:
  // REQUIRES: `count` ascending numbers, at most 65,536. May throw std::bad_alloc; without a table
  // the whole array is searched.
  void build(const U32* numbers, U32 count) {
    starts_.clear();
    if (count == 0) return;
    first_ = numbers[0];
    const U32 span = numbers[count - 1] - first_;
    // The width is 2 to the power of shift_: the smallest with less than 2 * count buckets.
    shift_ = static_cast<U8>(std::bit_width(span / (2 * count)));
    last_ = span >> shift_;
    starts_.resize(std::size_t{last_} + 2);
    U32 place = 0;
    for (U32 bucket = 0; bucket <= last_; ++bucket) {
      while (place + 1 < count && (numbers[place + 1] - first_) >> shift_ <= bucket) ++place;
      starts_[bucket + 1] = static_cast<U16>(place);
    }
  }
  void clear() { std::vector<U16>().swap(starts_); }

  // The position of the greatest number that is not above `sought`; 0 if all are above it.
  // REQUIRES: `count` (more than 0) ascending numbers, those that the table was built from if there
  // is one.
  [[gnu::always_inline]] U32 lastNotAbove(const U32* numbers, U32 count, U32 sought) const {
    if (starts_.empty()) [[unlikely]]
      return search(numbers, count, sought);
    if (sought < first_) return 0;
    const U16* const start = starts_.data() + std::min((sought - first_) >> shift_, last_);
    const U32 low = start[0];
    const U32 high = start[1];
    if (high - low > 1) [[unlikely]]
      return low + search(numbers + low, high - low + 1, sought);
    // The number at `low` is not above `sought`. A branch: where distances are even, it goes one
    // way, and what the place is used for begins before the number has arrived.
    if (numbers[high] > sought) [[unlikely]]
      return low;
    return high;
  }

 private:
  // `first` ? a : b. Compiles to a conditional move: the branch would be unpredictable.
  static const U32* select(bool first, const U32* a, const U32* b) {
    return __builtin_expect_with_probability(first, 1, 0.5) ? a : b;
  }

  // A binary search without branches to mispredict.
  [[gnu::noinline]] static U32 search(const U32* numbers, U32 count, U32 sought) {
    const U32* base = numbers;
    while (count > 1) {
      const U32 half = count / 2;
      base = select(base[half] <= sought, base + half, base);
      count -= half;
    }
    return static_cast<U32>(base - numbers);
  }

  std::vector<U16> starts_;  // of bucket b: from starts_[b] to starts_[b + 1]; empty without table
  U32 first_ = 0;
  U32 last_ = 0;  // bucket
  U8 shift_ = 0;
};

}  // namespace Hardware
