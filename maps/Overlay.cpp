// The text of an overlay.
#include <maps/Overlay.h>
#include <maps/Xml.h>

#include <fstream>
#include <sstream>

namespace Maps {
namespace {

constexpr std::size_t overlayBytes = 1U << 20;
constexpr std::size_t overlayLines = 10'000;

using OverlayWords = std::vector<std::string>;

OverlayWords overlayWords(std::string_view line) {
  OverlayWords words;
  bool isWord = false;
  for (const char c : line.substr(0, line.find('#'))) {
    const bool isSpace = c == ' ' || c == '\t' || c == '\r';
    if (!isSpace && !isWord) words.emplace_back();
    if (!isSpace) words.back() += c;
    isWord = !isSpace;
  }
  return words;
}

bool readRule(const std::string& word, Driver::Rule& rule) {
  using enum Driver::Rule;
  constexpr std::pair<const char*, Driver::Rule> rules[] = {
      {"repaired", repaired}, {"detectOnly", detectOnly}, {"volatile", volatile_},
      {"noRead", noRead},     {"writeOnly", writeOnly},   {"readOnly", readOnly}};
  for (const auto& [name, value] : rules) {
    if (word == name) {
      rule = value;
      return true;
    }
  }
  return false;
}

bool readRewrite(const std::string& word, Driver::Rewrite& rewrite) {
  if (word == "kept")
    rewrite = Driver::Rewrite::kept;
  else if (word == "zero")
    rewrite = Driver::Rewrite::zero;
  else if (word == "shadow")
    rewrite = Driver::Rewrite::shadow;
  else
    return false;
  return true;
}

Overlay::Line readLine(const OverlayWords& words, U32 number, const std::string& file) {
  using Kind = Overlay::Line::Kind;
  const auto fail = [&](const std::string& text) { throw Error(file, number, text); };
  Overlay::Line line;
  line.number = number;
  line.pattern = words[0];
  if (words.size() < 2) fail("a line is PATTERN RULE [DETAILS]");
  if (line.pattern.find('.') == std::string::npos) {
    fail("'" + line.pattern + "' names no register: BLOCK.REGISTER");
  }
  if (words[1] == "undecided")
    line.kind = Kind::undecided;
  else if (words[1] == "masked")
    line.kind = Kind::masked;
  else if (words[1] == "compared")
    line.kind = Kind::compared;
  else if (!readRule(words[1], line.rule))
    fail("unknown rule '" + words[1] + "'");
  for (std::size_t i = 2; i < words.size(); ++i) {
    const bool isOfRule = line.kind == Kind::rule;
    if (isOfRule && words[i] == "mask" && i + 1 < words.size() && !line.mask) {
      U64 mask = 0;
      if (!Xml::readNumber(words[++i], mask)) fail("no mask of 64 bits: '" + words[i] + "'");
      line.mask = mask;
    } else if (isOfRule && words[i] == "once") {
      line.isOnce = true;
    } else if (!((line.mask || line.kind == Kind::masked) && readRewrite(words[i], line.rewrite))) {
      fail("'" + words[i] + "' is not understood here");
    }
  }
  return line;
}

// "[3..17]" at the pattern's beginning: the range, and what is behind it.
bool readIndexRange(std::string_view& pattern, U64& low, U64& high) {
  const std::size_t end = pattern.find(']');
  if (!pattern.starts_with('[') || end == std::string_view::npos) return false;
  const std::string_view inside = pattern.substr(1, end - 1);
  const std::size_t dots = inside.find("..");
  if (dots == std::string_view::npos || !Xml::readNumber(inside.substr(0, dots), low) ||
      !Xml::readNumber(inside.substr(dots + 2), high)) {
    return false;
  }
  pattern.remove_prefix(end + 1);
  return true;
}

}  // namespace

Overlay parseOverlay(std::string_view text, const std::string& name) {
  if (text.size() > overlayBytes) throw Error(name, 0, "the overlay has more than 1 MiB");
  Overlay overlay{name, {}};
  U32 number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    ++number;
    const OverlayWords words = overlayWords(text.substr(begin, end - begin));
    begin = end + 1;
    if (words.empty()) continue;
    if (overlay.lines.size() >= overlayLines) {
      throw Error(name, number, "the overlay has more than 10000 lines");
    }
    overlay.lines.push_back(readLine(words, number, name));
  }
  return overlay;
}

Overlay readOverlay(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string text;
  char part[4096];
  while (in && text.size() <= overlayBytes) {
    in.read(part, sizeof part);
    text.append(part, static_cast<std::size_t>(in.gcount()));
  }
  if (in.bad() || (text.empty() && !in.eof())) throw Error(path, 0, "cannot be read");
  return parseOverlay(text, path);
}

bool matches(std::string_view pattern, std::string_view name) {
  // Where the last `*` stands, and which part of the name it takes.
  std::string_view afterStar, taken;
  bool hasStar = false;
  while (true) {
    U64 low = 0, high = 0;
    std::string_view rest = pattern;
    if (pattern.starts_with('*')) {
      pattern.remove_prefix(1);
      hasStar = true;
      afterStar = pattern;
      taken = name;
      continue;
    }
    if (readIndexRange(rest, low, high) && name.starts_with('[')) {
      U64 index = 0;
      const std::size_t end = name.find(']');
      if (end != std::string_view::npos && Xml::readNumber(name.substr(1, end - 1), index) &&
          index >= low && index <= high) {
        pattern = rest;
        name.remove_prefix(end + 1);
        continue;
      }
    } else if (!name.empty() && !pattern.empty() &&
               (pattern.front() == '?' || pattern.front() == name.front())) {
      pattern.remove_prefix(1);
      name.remove_prefix(1);
      continue;
    } else if (name.empty() && pattern.empty()) {
      return true;
    }
    if (!hasStar || taken.empty()) return false;
    taken.remove_prefix(1);
    pattern = afterStar;
    name = taken;
  }
}

}  // namespace Maps
