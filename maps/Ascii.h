// Letters and digits of ASCII, whatever the process's locale says. Not installed.
#pragma once

namespace Maps {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool isLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool isLetterOrDigit(char c) { return isDigit(c) || isUpper(c) || isLower(c); }
constexpr char toLower(char c) { return isUpper(c) ? static_cast<char>(c + ('a' - 'A')) : c; }

}  // namespace Maps
