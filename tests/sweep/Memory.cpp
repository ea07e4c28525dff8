// The allocator's functions are defined in the program, so that they are found before those of the
// C and C++ libraries. A sanitizer's, where there is one, do the work.
#include "Memory.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
void* __interceptor_malloc(std::size_t size) __attribute__((weak));
void* __interceptor_memalign(std::size_t alignment, std::size_t size) __attribute__((weak));
void __interceptor_free(void* block) __attribute__((weak));
}

namespace Sweep::Memory {
namespace {

// Open addressing: a block is at its own slot or after it, without a gap.
struct Entry {
  void* block;
  U64 number;
};
constexpr std::size_t slots = 1u << 14;
constinit Entry account[slots] = {};
constinit std::size_t live = 0;

constinit bool isCounting = false;
constinit Refusal plan = Refusal::none;
constinit U64 planned = 0;
constinit U64 asked = 0;
constinit bool anyRefused = false;

std::size_t slotOf(const void* block) {
  return (reinterpret_cast<std::uintptr_t>(block) >> 3) * 2654435761u % slots;
}
std::size_t slotAfter(std::size_t slot) { return (slot + 1) % slots; }

void enterBlock(void* block, U64 number) {
  if (live > slots / 2) {
    std::fputs("the account of the sweep's blocks is full\n", stderr);
    std::abort();
  }
  std::size_t slot = slotOf(block);
  while (account[slot].block != nullptr) slot = slotAfter(slot);
  account[slot] = {block, number};
  ++live;
}

void removeBlock(const void* block) {
  std::size_t slot = slotOf(block);
  while (account[slot].block != block) {
    if (account[slot].block == nullptr) return;
    slot = slotAfter(slot);
  }
  account[slot] = {};
  --live;
  // What follows the gap is entered again.
  for (slot = slotAfter(slot); account[slot].block != nullptr; slot = slotAfter(slot)) {
    const Entry moved = account[slot];
    account[slot] = {};
    --live;
    enterBlock(moved.block, moved.number);
  }
}

// Whether the next block is to be refused.
bool refuses() {
  if (!isCounting) return false;
  ++asked;
  const bool refusal = (plan == Refusal::once && asked == planned) ||
                       (plan == Refusal::fromThenOn && asked >= planned);
  anyRefused = anyRefused || refusal;
  return refusal;
}

void* counted(void* block) {
  if (isCounting && block != nullptr) enterBlock(block, asked);
  return block;
}

void* raw(std::size_t size) {
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}
void* rawAligned(std::size_t size, std::size_t alignment) {
  return __interceptor_memalign != nullptr ? __interceptor_memalign(alignment, size)
                                           : __libc_memalign(alignment, size);
}

void* obtained(std::size_t size) noexcept {
  return refuses() ? nullptr : counted(raw(size == 0 ? 1 : size));
}
void* obtained(std::size_t size, std::align_val_t alignment) noexcept {
  return refuses() ? nullptr : counted(rawAligned(size, static_cast<std::size_t>(alignment)));
}
void* orThrow(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void begin(Refusal refusal, U64 number) {
  if (live != 0) std::memset(account, 0, sizeof account);
  live = 0;
  plan = refusal;
  planned = number;
  asked = 0;
  anyRefused = false;
}
void endRefusal() { plan = Refusal::none; }
U64 blocksAsked() { return asked; }
bool refused() { return anyRefused; }
std::size_t blocksLive() { return live; }
U64 firstLive() {
  U64 first = 0;
  for (const Entry& entry : account) {
    if (entry.block != nullptr && (first == 0 || entry.number < first)) first = entry.number;
  }
  return first;
}

Counting::Counting() { isCounting = true; }
Counting::~Counting() { isCounting = false; }

}  // namespace Sweep::Memory

using Sweep::Memory::obtained;
using Sweep::Memory::orThrow;

extern "C" {

void* calloc(std::size_t count, std::size_t size) {
  if (size != 0 && count > SIZE_MAX / size) {
    errno = ENOMEM;
    return nullptr;
  }
  void* block = obtained(count * size);
  asm volatile("" : "+r"(block));  // or the compiler would make a call of calloc out of this
  if (block == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::memset(block, 0, count * size);
}

void free(void* block) {
  if (block == nullptr) return;
  if (Sweep::Memory::live != 0) Sweep::Memory::removeBlock(block);
  __interceptor_free != nullptr ? __interceptor_free(block) : __libc_free(block);
}

}  // extern "C"

void* operator new(std::size_t size) { return orThrow(obtained(size)); }
void* operator new[](std::size_t size) { return orThrow(obtained(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return obtained(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return obtained(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return orThrow(obtained(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return orThrow(obtained(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return obtained(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return obtained(size, alignment);
}

void operator delete(void* block) noexcept { free(block); }
void operator delete[](void* block) noexcept { free(block); }
void operator delete(void* block, std::size_t) noexcept { free(block); }
void operator delete[](void* block, std::size_t) noexcept { free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { free(block); }
void operator delete(void* block, std::align_val_t) noexcept { free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { free(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { free(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  free(block);
}
