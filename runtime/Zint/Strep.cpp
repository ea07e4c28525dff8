#include <Zint/Strep.h>

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <memory>

namespace Zint {
namespace {

[[noreturn, gnu::cold]] void refuse(const char* what, const String8::IteratorConst& pos,
                                    const String8::IteratorConst& end) {
  String8 message(what);
  message += " expected at \"";
  message += std::string_view(std::to_address(pos), static_cast<std::size_t>(end - pos));
  message += "\"";
  throwRangeException(message);
}

template <class T>
String8 printChars(T value) {
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return String8(std::string_view(text, static_cast<std::size_t>(result.ptr - text)));
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n'; }

bool consume(String8::IteratorConst& pos, const String8::IteratorConst& end,
             std::string_view word) {
  if (static_cast<std::size_t>(end - pos) < word.size()) return false;
  if (std::string_view(std::to_address(pos), word.size()) != word) return false;
  pos += static_cast<std::ptrdiff_t>(word.size());
  return true;
}

}  // namespace

String8 valueToStrep(U64 value) { return printChars(value); }
String8 valueToStrep(S64 value) { return printChars(value); }
String8 valueToStrep(double value) { return printChars(value); }
String8 valueToStrep(bool value) { return value ? "true" : "false"; }

String8 valueToStrep(const String8& value) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text = "'";
  for (char c : value) {
    const U8 byte = static_cast<U8>(c);
    if (c == '\'' || c == '\\') {
      text += '\\';
      text += c;
    } else if (byte < 0x20 || byte == 0x7f) {
      text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    } else {
      text += c;
    }
  }
  return text + "'";
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end, S64& value) {
  auto p = pos;
  const bool negative = p != end && *p == '-';
  if (negative) ++p;
  const bool hexadecimal = end - p > 2 && p[0] == '0' && p[1] == 'x' && hexDigit(p[2]) >= 0;
  if (hexadecimal) p += 2;
  const char* first = std::to_address(p);
  U64 magnitude = 0;
  const auto result = std::from_chars(first, first + (end - p), magnitude, hexadecimal ? 16 : 10);
  const U64 most = negative ? U64{1} << 63 : ~U64{0};
  if (result.ec == std::errc::invalid_argument) refuse("an integer", pos, end);
  if (result.ec == std::errc::result_out_of_range || magnitude > most) {
    refuse("an integer of 64 bits", pos, end);
  }
  pos = p + (result.ptr - first);
  value = static_cast<S64>(negative ? -magnitude : magnitude);
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                     double& value) {
  const char* first = std::to_address(pos);
  double read = 0;
  const auto result = std::from_chars(first, first + (end - pos), read);
  if (result.ec != std::errc() || std::isnan(read)) refuse("a number", pos, end);
  pos += result.ptr - first;
  value = read;
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end, bool& value) {
  if (consume(pos, end, "true") || consume(pos, end, "1")) {
    value = true;
  } else if (consume(pos, end, "false") || consume(pos, end, "0")) {
    value = false;
  } else {
    refuse("true or false", pos, end);
  }
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                     String8& value) {
  std::string read;
  auto p = pos;
  if (p == end) refuse("a string", pos, end);
  if (*p != '\'') {
    while (p != end && !isSpace(*p)) read += *p++;
    if (read.empty()) refuse("a string", pos, end);
  } else {
    for (++p; p != end && *p != '\''; ++p) {
      if (*p != '\\') {
        read += *p;
      } else if (end - p > 3 && p[1] == 'x' && hexDigit(p[2]) >= 0 && hexDigit(p[3]) >= 0) {
        read += static_cast<char>(hexDigit(p[2]) * 16 + hexDigit(p[3]));
        p += 3;
      } else if (end - p > 1) {
        read += *++p;
      } else {
        refuse("a closed string", pos, end);
      }
    }
    if (p == end) refuse("a closed string", pos, end);
    ++p;
  }
  pos = p;
  value = read;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks the arguments against the pattern
String8 format(const char* pattern, ...) {
  va_list arguments;
  va_list again;
  va_start(arguments, pattern);
  va_copy(again, arguments);
  const int size = std::vsnprintf(nullptr, 0, pattern, arguments);
  std::string text(static_cast<std::size_t>(size), '\0');
  (void)std::vsnprintf(text.data(), text.size() + 1, pattern, again);
  va_end(again);
  va_end(arguments);
  return text;
}

String8 escapeNuls(const String8& text) {
  std::string escaped;
  for (char c : text) {
    if (c == '\0') {
      escaped += "\\x00";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

void refuseJunk(const String8& text, const String8::IteratorConst& pos, const String8& what) {
  if (pos == text.end()) return;
  throwRangeException(
      format("junk at column %lld deserializing ", static_cast<long long>(pos - text.begin())) +
      what);
}

}  // namespace Zint
