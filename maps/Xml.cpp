// XML as the importers see it.
#include <maps/Xml.h>

#include <algorithm>
#include <cstring>

namespace Maps {
namespace {

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The digit's value; 99 for anything else.
U32 xmlDigit(char c) {
  if (c >= '0' && c <= '9') return static_cast<U32>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<U32>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<U32>(c - 'A') + 10;
  return 99;
}

// "12k": the power of two, and the text without the letter. 0 where there is none.
U32 xmlScale(std::string_view& text) {
  if (text.empty()) return 0;
  constexpr std::string_view letters = "kmgt";
  const char last = static_cast<char>(text.back() | 0x20);
  const std::size_t at = letters.find(last);
  if (at == std::string_view::npos) return 0;
  text.remove_suffix(1);
  return 10 * (static_cast<U32>(at) + 1);
}

}  // namespace

Xml::Xml(std::string_view text, std::string file) : file_(std::move(file)) {
  if (text.size() > Limits::fileBytes) throw Error(file_, 0, "the file has more than 64 MiB");
  lines_.push_back(0);
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\n') lines_.push_back(at + 1);
  }
  const pugi::xml_parse_result result =
      document_.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_auto);
  if (!result) {
    const auto offset = static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0));
    const auto line = std::upper_bound(lines_.begin(), lines_.end(), offset) - lines_.begin();
    throw Error(file_, static_cast<U32>(line), std::string("no XML: ") + result.description());
  }
  checkDepth();
}

void Xml::checkDepth() const {
  U32 depth = 1;
  for (Node node = root(); node;) {
    if (depth > Limits::depth) {
      fail(node, "elements are nested deeper than " + std::to_string(Limits::depth));
    }
    if (node.first_child()) {
      node = node.first_child();
      ++depth;
      continue;
    }
    while (node && !node.next_sibling()) {
      node = node.parent();
      if (depth == 1 || node == root()) return;
      --depth;
    }
    node = node.next_sibling();
  }
}

U32 Xml::lineOf(Node node) const {
  const std::ptrdiff_t offset = node.offset_debug();
  if (offset < 0) return 0;
  const auto line =
      std::upper_bound(lines_.begin(), lines_.end(), static_cast<std::size_t>(offset));
  return static_cast<U32>(line - lines_.begin());
}

void Xml::fail(Node at, const std::string& text) const { throw Error(file_, lineOf(at), text); }

std::string_view Xml::nameOf(Node node) {
  const std::string_view name = node.name();
  const std::size_t colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

Xml::Node Xml::child(Node node, std::string_view name) {
  for (Node child = node.first_child(); child; child = child.next_sibling()) {
    if (is(child, name)) return child;
  }
  return {};
}

std::string Xml::textOf(Node node) {
  std::string text;
  for (Node part = node.first_child(); part; part = part.next_sibling()) {
    if (part.type() != pugi::node_pcdata && part.type() != pugi::node_cdata) continue;
    for (const char* c = part.value(); *c != '\0'; ++c) {
      if (!isXmlSpace(*c)) {
        text += *c;
      } else if (!text.empty() && text.back() != ' ') {
        text += ' ';
      }
    }
  }
  if (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

bool Xml::readNumber(std::string_view text, U64& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  U32 base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.starts_with('#')) {
    base = 2;
    text.remove_prefix(1);
  } else if (text.starts_with("0b") || text.starts_with("0B")) {
    base = 2;
    text.remove_prefix(2);
  }
  const U32 scale = xmlScale(text);
  if (text.empty()) return false;
  value = 0;
  for (const char c : text) {
    // Of a binary number: a bit that may be either.
    const U32 digit = base == 2 && (c == 'x' || c == 'X') ? 0 : xmlDigit(c);
    if (digit >= base || value > (~U64{0} - digit) / base) return false;
    value = value * base + digit;
  }
  if (value > (~U64{0} >> scale)) return false;
  value <<= scale;
  return true;
}

U64 Xml::number(Node node) const {
  const std::string text = textOf(node);
  U64 value = 0;
  if (!readNumber(text, value)) {
    fail(node,
         std::string(nameOf(node)) + " is no number of 64 bits: '" + text.substr(0, 40) + "'");
  }
  return value;
}

U32 Xml::number32(Node node, const char* what) const {
  const U64 value = number(node);
  if (value > ~U32{0}) fail(node, std::string(what) + " has more than 32 bits");
  return static_cast<U32>(value);
}

}  // namespace Maps
