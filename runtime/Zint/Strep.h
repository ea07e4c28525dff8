// Text forms ("streps") of values, and back.
//
//   valueToStrep(U64{16})                 16
//   valueToStrep(String8("it's"))         'it\'s'
//   sequenceToValue(pos, end, value)      reads one value and leaves pos after it
//   strepToValue<U64>("16")               reads the whole text; anything left over is refused
#pragma once

#include <Zint/Exception.h>
#include <Zint/String8.h>
#include <Zint/Types.h>
#include <concepts>

namespace Zint {

UMBRA_API String8 valueToStrep(U64 value);
UMBRA_API String8 valueToStrep(S64 value);
UMBRA_API String8 valueToStrep(double value);  // the shortest text that reads back as the same
UMBRA_API String8 valueToStrep(bool value);    // true or false
// In single quotes; a quote or a backslash inside is escaped with a backslash, a byte that cannot
// be printed is written \xNN.
UMBRA_API String8 valueToStrep(const String8& value);

template <std::integral T>
requires(!std::same_as<T, bool> && !std::same_as<T, U64> && !std::same_as<T, S64>) String8
    valueToStrep(T value) {
  if constexpr (std::is_signed_v<T>) {
    return valueToStrep(S64{value});
  } else {
    return valueToStrep(U64{value});
  }
}

// Each reads one value from `pos`, which is left after its last character. Text that is no such
// value raises a range exception that quotes it, and leaves `pos` and `value` as they were.

// A number from -2^63 to 2^64-1 (two's complement above 2^63-1), decimal or 0x and hexadecimal.
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               S64& value);
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               double& value);
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               bool& value);
// A quoted string, or a bare word up to the next space.
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               String8& value);

// The value of a hexadecimal digit of either case, -1 for any other character.
constexpr int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The text that printf would write, of any length.
[[gnu::format(printf, 1, 2)]] UMBRA_API String8 format(const char* pattern, ...);

// The text with every NUL written \x00, for readers of C strings.
String8 escapeNuls(const String8& text);

// The range exception "junk at column N deserializing WHAT" unless `pos` is the end of the text.
UMBRA_API void refuseJunk(const String8& text, const String8::IteratorConst& pos,
                          const String8& what);

// An integer of fewer bits; a number that it cannot hold raises a range exception.
template <std::integral T>
requires(!std::same_as<T, bool> &&
         !std::same_as<T, S64>) void sequenceToValue(String8::IteratorConst& pos,
                                                     const String8::IteratorConst& end, T& value) {
  auto p = pos;
  S64 read = 0;
  sequenceToValue(p, end, read);
  const auto narrow = static_cast<T>(read);
  // A number from 2^63 on is read as its two's complement: U64 holds it, a signed type does not.
  const bool wrapped = read < 0 && *pos != '-';
  const bool held = std::is_signed_v<T> ? !wrapped : read >= 0 || wrapped;
  if (static_cast<S64>(narrow) != read || !held) {
    throwRangeException(format("%s is out of range", std::string(pos, p).c_str()));
  }
  pos = p;
  value = narrow;
}

// What the message about junk names: the whole text for the library's value types and enumerations,
// the type elsewhere; for a pointer the type of the object.
template <class T>
String8 junkName(const String8& text) {
  if constexpr (std::same_as<T, bool>)
    return "bool";
  else if constexpr (std::floating_point<T>)
    return "double";
  else if constexpr (std::integral<T>)
    return format("%c%u", std::is_signed_v<T> ? 'S' : 'U', U32{8 * sizeof(T)});
  else if constexpr (std::same_as<T, String8>)
    return "String8";
  else if constexpr (requires { zintTypeName(static_cast<const typename T::Element*>(nullptr)); })
    return zintTypeName(static_cast<const typename T::Element*>(nullptr));
  else if constexpr (requires { typename T::Element; })
    return "Zint::PtrInterface";
  else
    return text;
}

// The value of the whole text; anything left over is refused.
template <class T>
T strepToValue(const String8& text, const T* = nullptr) {
  auto pos = text.begin();
  T value{};
  sequenceToValue(pos, text.end(), value);
  refuseJunk(text, pos, junkName<T>(text));
  return value;
}

}  // namespace Zint
