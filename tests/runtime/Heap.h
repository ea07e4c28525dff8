// The heap of this program: refuses blocks, and looks at one when it is released.
#pragma once

#include <Zint/Types.h>

#include <cstddef>

namespace Runtime::Heap {

// While it lives, `blocks` more are given; then std::bad_alloc. One at a time.
class Limit {
 public:
  explicit Limit(U32 blocks);
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() { end(); }
  void end();
};

// The block whose release is watched, its size in bytes, and what was seen then.
struct Watched {
  const void* block = nullptr;
  std::size_t bytes = 0;
  bool released = false;
  bool wasZero = false;
};
extern Watched watched;

}  // namespace Runtime::Heap
