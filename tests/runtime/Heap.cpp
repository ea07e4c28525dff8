#include "Heap.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace Runtime::Heap {

constinit Watched watched;

namespace {

constinit bool isLimited = false;
constinit U32 blocksLeft = 0;

void* obtain(std::size_t size) noexcept {
  if (isLimited && blocksLeft == 0) return nullptr;
  if (isLimited) --blocksLeft;
  return std::malloc(size == 0 ? 1 : size);
}

void release(void* block) noexcept {
  if (block != nullptr && block == watched.block) {
    const auto* bytes = static_cast<const volatile U8*>(block);
    watched.released = true;
    watched.wasZero = std::all_of(bytes, bytes + watched.bytes, [](U8 byte) { return byte == 0; });
    watched.block = nullptr;
  }
  std::free(block);
}

}  // namespace

Limit::Limit(U32 blocks) {
  blocksLeft = blocks;
  isLimited = true;
}
void Limit::end() { isLimited = false; }

}  // namespace Runtime::Heap

void* operator new(std::size_t size) {
  if (void* block = Runtime::Heap::obtain(size)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Runtime::Heap::obtain(size);
}
void operator delete(void* block) noexcept { Runtime::Heap::release(block); }
void operator delete(void* block, std::size_t) noexcept { Runtime::Heap::release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Runtime::Heap::release(block); }
