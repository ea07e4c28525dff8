// Numbers that depend on a seed alone: the same with every compiler and in both widths.
//
// Draw one number per statement: the order in which arguments and operands are evaluated is the
// compiler's.
#pragma once

#include <Zint/Types.h>

#include <cstddef>

namespace Support {

class Random {
 public:
  explicit Random(U64 seed) : state_(seed) {}

  // splitmix64: a counter, scrambled by two multiplications.
  U64 next() {
    state_ += 0x9e3779b97f4a7c15u;
    U64 z = state_;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }

  // In [0, n), for n > 0; the slight bias does not matter here.
  U32 below(U32 n) { return static_cast<U32>(((next() >> 32) * n) >> 32); }
  // In [low, high].
  U32 between(U32 low, U32 high) { return low + below(high - low + 1); }
  bool oneIn(U32 n) { return below(n) == 0; }
  bool chance(U32 percent) { return below(100) < percent; }
  U8 byte() { return static_cast<U8>(next() >> 56); }
  // Whole milliseconds, in seconds.
  Zint::Seconds seconds(U32 lowMilliseconds, U32 highMilliseconds) {
    return between(lowMilliseconds, highMilliseconds) / 1000.0;
  }

  template <class T, std::size_t n>
  const T& oneOf(const T (&choices)[n]) {
    return choices[below(static_cast<U32>(n))];
  }

 private:
  U64 state_;
};

}  // namespace Support
