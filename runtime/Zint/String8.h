// A string of bytes. Also the name of an entity.
#pragma once

#include <Zint/Types.h>
#include <compare>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Zint {

class String8 {
 public:
  using IteratorConst = std::string::const_iterator;

  String8() = default;
  String8(const char* text) : bytes_(text) {}
  String8(std::string bytes) : bytes_(std::move(bytes)) {}
  explicit String8(std::string_view bytes) : bytes_(bytes) {}

  const char* c_str() const { return bytes_.c_str(); }
  std::size_t size() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }
  IteratorConst begin() const { return bytes_.begin(); }
  IteratorConst end() const { return bytes_.end(); }
  const std::string& bytes() const { return bytes_; }
  operator std::string_view() const { return bytes_; }

  String8& operator+=(std::string_view more) {
    bytes_ += more;
    return *this;
  }
  friend String8 operator+(String8 left, std::string_view right) {
    left += right;
    return left;
  }
  friend bool operator==(const String8&, const String8&) = default;
  friend auto operator<=>(const String8&, const String8&) = default;
  friend std::ostream& operator<<(std::ostream& out, const String8& text) {
    return out << text.bytes_;
  }

  // FNV-1a over the bytes.
  U32 hash() const {
    U32 hash = 2166136261u;
    for (char byte : bytes_) hash = (hash ^ static_cast<U8>(byte)) * 16777619u;
    return hash;
  }

 private:
  std::string bytes_;
};

using Name = String8;

}  // namespace Zint

template <>
struct std::hash<Zint::String8> {
  std::size_t operator()(const Zint::String8& text) const { return text.hash(); }
};
