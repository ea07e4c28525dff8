#include <telemetry/ControlText.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <array>
#include <charconv>

namespace Telemetry {
namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";

// The length of the well-formed UTF-8 sequence that the text begins with; 0 when it is none.
std::size_t sequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<U8>(text[i]); };
  const U8 first = byte(0);
  if (first < 0x80) return 1;
  std::size_t length = 0;
  U8 least = 0x80, most = 0xbf;  // of the second byte
  if (first >= 0xc2 && first <= 0xdf) {
    length = 2;
  } else if ((first & 0xf0) == 0xe0) {
    length = 3;
    if (first == 0xe0) least = 0xa0;
    if (first == 0xed) most = 0x9f;
  } else if (first >= 0xf0 && first <= 0xf4) {
    length = 4;
    if (first == 0xf0) least = 0x90;
    if (first == 0xf4) most = 0x8f;
  }
  if (length == 0 || text.size() < length || byte(1) < least || byte(1) > most) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  return length;
}

void appendControl(std::string& out, U8 c) {
  constexpr char digits[] = "0123456789abcdef";
  switch (c) {
    case '\n':
      out += "\\n";
      return;
    case '\t':
      out += "\\t";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      out += "\\u00";
      out += digits[c >> 4];
      out += digits[c & 15];
  }
}

template <class Number>
std::string digitsOf(Number value) {
  std::array<char, 24> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  return {digits.data(), end};
}

// Whether JSON reads the text as a number: digits with a sign, a point and an exponent.
bool isJsonNumber(std::string_view text) {
  std::size_t at = 0;
  const auto digits = [&] {
    const std::size_t begin = at;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
    return at - begin;
  };
  if (at < text.size() && text[at] == '-') ++at;
  const std::size_t first = at;
  const std::size_t whole = digits();
  if (whole == 0 || (whole > 1 && text[first] == '0')) return false;
  if (at < text.size() && text[at] == '.' && (++at, digits() == 0)) return false;
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    if (digits() == 0) return false;
  }
  return at == text.size();
}

}  // namespace

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t at = 0; at < text.size();) {
    const auto c = static_cast<U8>(text[at]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += text[at++];
    } else if (c < 0x20 || c == 0x7f) {
      appendControl(out, c);
      ++at;
    } else if (const std::size_t length = sequenceLength(text.substr(at)); length != 0) {
      out.append(text, at, length);
      at += length;
    } else {
      out += replacement;
      ++at;
    }
  }
  out += '"';
}

std::string& JsonMembers::begin(std::string_view name) {
  if (!isFirst_) *out_ += ',';
  isFirst_ = false;
  *out_ += '"';
  *out_ += name;
  *out_ += "\":";
  return *out_;
}

JsonMembers& JsonMembers::text(std::string_view name, std::string_view value) {
  appendQuoted(begin(name), value);
  return *this;
}
JsonMembers& JsonMembers::number(std::string_view name, U64 value) {
  begin(name) += digitsOf(value);
  return *this;
}
JsonMembers& JsonMembers::number(std::string_view name, S64 value) {
  begin(name) += digitsOf(value);
  return *this;
}
JsonMembers& JsonMembers::flag(std::string_view name, bool value) {
  begin(name) += value ? "true" : "false";
  return *this;
}
JsonMembers& JsonMembers::json(std::string_view name, std::string_view value) {
  begin(name) += value;
  return *this;
}
JsonMembers& JsonMembers::value(const Zint::String8& text_, const Zint::Member* member) {
  text("text", text_.bytes());
  if (const std::string same = jsonOf(text_, member); !same.empty()) json("value", same);
  return *this;
}

std::string jsonOf(const Zint::String8& text, const Zint::Member* member) {
  const std::string& bytes = text.bytes();
  if (bytes == "null" || bytes == "true" || bytes == "false") return bytes;
  if (bytes.starts_with('\'') && bytes.ends_with('\'')) {
    try {
      std::string json;
      appendQuoted(json, Zint::strepToValue<Zint::String8>(text).bytes());
      return json;
    } catch (const Zint::RangeException&) {
      return "";
    }
  }
  const bool isNumber = member == nullptr || member->numberKind != Zint::NumberKind::none;
  return isNumber && isJsonNumber(bytes) ? bytes : "";
}

}  // namespace Telemetry
