// The counted pointer.
//
//   Zint::Ptr<ChipHam> ham = Zint::makePtr<MyHam>("ham0");   // the one reference of a new object
//   Zint::Ptr<const ChipHam> view = ham;                     // read-only
//
// The size of a raw pointer; a copy adds 1 to the count, a move touches no count.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Exception.h>
#include <Zint/PtrInterface.h>
#include <concepts>
#include <cstddef>
#include <ostream>
#include <utility>

namespace Zint {

template <class T>
class Ptr {
 public:
  using Element = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}
  // Shares the object.
  Ptr(T* object) : object_(object) { inc(); }
  Ptr(const Ptr& other) : Ptr(other.object_) {}
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(const Ptr<U>& other) : Ptr(other.ptr()) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() { dec(object_); }

  // The held pointer is exchanged before the old object can be destroyed: its destructor may use
  // this very pointer.
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): the copy comes first
  Ptr& operator=(const Ptr& other) {
    Ptr copy(other);
    swap(copy);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr taken(std::move(other));
    swap(taken);
    return *this;
  }

  // Takes over a reference that is counted already.
  static Ptr adopt(T* object) {
    Ptr ptr;
    ptr.object_ = object;
    return ptr;
  }
  // Hands the reference over to the caller and forgets it.
  T* release() noexcept { return std::exchange(object_, nullptr); }
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  T* ptr() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

  friend bool operator==(const Ptr&, const Ptr&) = default;
  friend bool operator==(const Ptr& left, std::nullptr_t) { return left.object_ == nullptr; }

 private:
  void inc() const {
    if (object_ != nullptr) object_->referencesInc();
  }
  static void dec(T* object) {
    if (object != nullptr) object->referencesDec();
  }

  T* object_ = nullptr;
};

// A pointer that is never null: building one from a null pointer raises the range exception
// "null ValidPtr".
template <class T>
class ValidPtr : public Ptr<T> {
 public:
  template <class U>
  requires std::convertible_to<U*, T*> ValidPtr(Ptr<U> ptr) : Ptr<T>(std::move(ptr)) {
    if (this->ptr() == nullptr) [[unlikely]]
      throwRangeException("null ValidPtr");
  }
  ValidPtr(std::nullptr_t) : ValidPtr(Ptr<T>()) {}
};

// A new object and its first reference; never null.
template <class T, class... Arguments>
ValidPtr<T> makePtr(Arguments&&... arguments) {
  return Ptr<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

// Null when the object is of another type.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& ptr) {
  return Ptr<T>(dynamic_cast<T*>(ptr.ptr()));
}

}  // namespace Zint
