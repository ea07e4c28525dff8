// The allocator's functions are in the program itself, so that they are found before the C
// library's, to which they pass everything on.
#include "Allocations.h"

#include <malloc.h>

#include <cerrno>
#include <cstdlib>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

U64 blocks = 0;
U64 bytes = 0;

U64 sizeOf(void* block) { return malloc_usable_size(block) + sizeof(std::size_t); }

void* taken(void* block) {
  if (block == nullptr) return nullptr;
  ++blocks;
  bytes += sizeOf(block);
  return block;
}

void given(void* block) {
  if (block != nullptr) bytes -= sizeOf(block);
}

}  // namespace

namespace Bench {

U64 allocations() { return blocks; }
U64 bytesInUse() { return bytes; }

}  // namespace Bench

extern "C" {

void* malloc(std::size_t size) { return taken(__libc_malloc(size)); }

void* calloc(std::size_t count, std::size_t size) { return taken(__libc_calloc(count, size)); }

void* realloc(void* block, std::size_t size) {
  given(block);
  void* moved = __libc_realloc(block, size);
  if (moved == nullptr && block != nullptr && size != 0) bytes += sizeOf(block);
  return taken(moved);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return taken(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return taken(__libc_memalign(alignment, size));
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = taken(__libc_memalign(alignment, size));
  return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
  given(block);
  __libc_free(block);
}

}  // extern "C"
