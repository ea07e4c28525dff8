#include "RefusedMemory.h"

#include <cstdlib>

namespace {

constexpr U64 noRefusal = ~U64{0};

constinit U64 untilRefusal = noRefusal;
constinit bool hasRefused = false;

void* grantedBlock(std::size_t size) noexcept {
  if (untilRefusal != noRefusal && untilRefusal-- == 0) {
    hasRefused = true;
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}
void* grantedOrThrow(std::size_t size) {
  void* block = grantedBlock(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

namespace Support {

void memoryRefusedAfter(U64 granted) {
  hasRefused = false;
  untilRefusal = granted;
}

bool memoryWasRefused() {
  untilRefusal = noRefusal;
  return hasRefused;
}

}  // namespace Support

void* operator new(std::size_t size) { return grantedOrThrow(size); }
void* operator new[](std::size_t size) { return grantedOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return grantedBlock(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return grantedBlock(size);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
