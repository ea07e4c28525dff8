// A dense array that grows when it is written beyond its end. A read outside of the stored range
// yields the element type's default (0, null).
#pragma once

#include <Zint/Assert.h>
#include <Zint/Types.h>
#include <string.h>

#include <memory>
#include <utility>
#include <vector>

namespace Zint {

// Zeroes storage before it is freed, in a way that the compiler may not leave out.
template <class V>
struct ZeroingAllocator : std::allocator<V> {
  void deallocate(V* storage, std::size_t elements) {
    explicit_bzero(static_cast<void*>(storage), elements * sizeof(V));
    std::allocator<V>::deallocate(storage, elements);
  }
};

template <class V, class I>
class DynArray {
 public:
  DynArray() = default;
  DynArray(const DynArray&) = delete;
  DynArray& operator=(const DynArray&) = delete;

  U32 size() const { return static_cast<U32>(elements_.size()); }
  const V* data() const { return elements_.data(); }

  V at(I index) const {
    return index < elements_.size() ? elements_[static_cast<std::size_t>(index)] : V();
  }

  // `value` may be an element of this array.
  void atIs(I index, const V& value) {
    const U64 newEntries = U64{index} + 1;
    if (newEntries > elements_.size()) {
      ZINT_ASSERT("Zint/DynArray", newEntries<2147483647);
      V held(value);
      elements_.resize(static_cast<std::size_t>(newEntries));
      elements_[static_cast<std::size_t>(index)] = std::move(held);
      return;
    }
    elements_[static_cast<std::size_t>(index)] = value;
  }

  // Resets the element to the default; removes it when it is the last one.
  void del(I index) {
    if (index >= elements_.size()) return;
    // Released last: its destructor may use this array, or destroy it.
    [[maybe_unused]] const V gone = std::exchange(elements_[static_cast<std::size_t>(index)], V());
    if (index + 1u == elements_.size()) elements_.pop_back();
  }

  // Empty before the elements are destroyed: their destructors may use this array.
  void delAll() {
    DynArray gone;
    gone.swap(*this);
  }

  void swap(DynArray& other) { elements_.swap(other.elements_); }

 private:
  std::vector<V, ZeroingAllocator<V>> elements_;
};

}  // namespace Zint
