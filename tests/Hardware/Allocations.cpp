// Under a sanitizer its own hook counts, so that it still sees which operator took and freed a
// block; otherwise the program's own heap operators do.
#include "Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HEAP_IS_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HEAP_IS_SANITIZED
#endif
#endif

namespace {

constinit std::atomic<U64> blocks{0};

}  // namespace

namespace Support {

U64 allocations() { return blocks; }

}  // namespace Support

#ifdef HEAP_IS_SANITIZED

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*taken)(const volatile void* block,
                                                                       std::size_t size),
                                                         void (*freed)(const volatile void* block));

namespace {

[[maybe_unused]] const int hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++blocks; }, [](const volatile void*) {});

}  // namespace

#else

namespace {

void* obtained(std::size_t size) noexcept {
  ++blocks;
  return std::malloc(size == 0 ? 1 : size);
}
void* orThrow(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void* operator new(std::size_t size) { return orThrow(obtained(size)); }
void* operator new[](std::size_t size) { return orThrow(obtained(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return obtained(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return obtained(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

#endif
