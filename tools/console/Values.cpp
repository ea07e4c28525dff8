#include "tools/console/Values.h"

#include <algorithm>
#include <cctype>

#include "tools/console/Library.h"

namespace Console {
namespace {

constexpr std::size_t digitsPerRow = 32;  // two of them are a byte
constexpr std::size_t rows = 16;
constexpr std::size_t shortDigits = 32;

bool isHexadecimal(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return std::isxdigit(c) != 0; });
}

bool isAddressType(std::string_view typeName) { return typeName == "Hardware::ChipAddress"; }

void printRows(std::ostream& out, std::string_view digits) {
  for (std::size_t at = 0; at < digits.size(); at += digitsPerRow) {
    if (at == rows * digitsPerRow) {
      out << "... " << (digits.size() - at) / 2 << " more bytes\n";
      return;
    }
    const std::string_view row = digits.substr(at, digitsPerRow);
    out << Zint::format("%06zx ", at / 2);
    for (std::size_t i = 0; i < row.size(); i += 2) out << " " << row.substr(i, 2);
    out << "\n";
  }
}

}  // namespace

std::string shortText(std::string_view typeName, const std::string& text) {
  if (isAddressType(typeName)) return addressText(text);
  if (typeName == "Bytes" && text.size() > shortDigits) {
    return text.substr(0, shortDigits) + "... " + std::to_string(text.size() / 2) + " bytes";
  }
  return text;
}

// An operation may answer with a word and bytes: "true 001f80".
void printValue(std::ostream& out, std::string_view typeName, const std::string& text) {
  const std::size_t blank = text.rfind(' ');
  const std::size_t begin = blank == std::string::npos ? 0 : blank + 1;
  const std::string_view digits = std::string_view(text).substr(begin);
  const bool isBytes = typeName.empty() || typeName == "Bytes";
  if (!isBytes || digits.size() <= 2 * digitsPerRow || !isHexadecimal(digits)) {
    out << (isAddressType(typeName) ? addressText(text) : text) << "\n";
    return;
  }
  out << text.substr(0, begin) << digits.size() / 2 << " bytes\n";
  printRows(out, digits);
}

}  // namespace Console
