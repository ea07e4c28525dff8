#include <telemetry/NamesText.h>

#include <Hardware/ChipAddress.h>

#include <algorithm>
#include <cctype>

namespace Telemetry {
namespace {

bool isOfHexDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

// The least number of letters that are to be inserted, removed, replaced or exchanged with their
// neighbour, each letter touched once (optimal string alignment), row by row.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> beforeLast(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::swap(beforeLast, last);
    std::swap(last, row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t wrong = a[i - 1] == b[j - 1] ? 0 : 1;
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + wrong});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
      }
    }
  }
  return row[b.size()];
}

}  // namespace

Error::Error(const std::string& message) : std::runtime_error(message) {}
Error::~Error() = default;

std::string nearest(std::string_view name, const std::vector<std::string>& known) {
  if (name.size() < 2) return "";  // everything is near
  const std::string wanted = lower(name);
  std::string best;
  std::size_t bestDistance = std::max<std::size_t>(1, wanted.size() / 3) + 1;
  for (const std::string& each : known) {
    const std::size_t d = distance(wanted, lower(each));
    if (d < bestDistance) {
      best = each;
      bestDistance = d;
    }
  }
  if (!best.empty()) return best;
  for (const std::string& each : known) {
    if (!lower(each).starts_with(wanted)) continue;
    if (!best.empty()) return "";
    best = each;
  }
  return best;
}

std::string didYouMean(std::string_view name, const std::vector<std::string>& known) {
  const std::string meant = nearest(name, known);
  return meant.empty() ? "" : "; did you mean '" + meant + "'?";
}

std::size_t findUnquoted(std::string_view text, char mark, std::size_t from) {
  bool quoted = false;
  for (std::size_t at = from; at < text.size(); ++at) {
    if (!quoted && text[at] == mark) return at;
    if (text[at] == '\'') quoted = !quoted;
    if (quoted && text[at] == '\\') ++at;
  }
  return std::string_view::npos;
}

std::string addressText(const std::string& text) {
  try {
    return Zint::strepToValue<Hardware::ChipAddress>(text).stringValue().bytes();
  } catch (const Zint::RangeException&) {
    return text;
  }
}

std::string integerText(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (!text.starts_with("0x") || colon == std::string::npos) return text;
  const std::string id = text.substr(2, colon - 2);
  const std::string offset = text.substr(colon + 1);
  if (!isOfHexDigits(id) || !isOfHexDigits(offset) || id.size() > 8 || offset.size() > 8) {
    return text;
  }
  const auto word = [](const std::string& digits) {
    return static_cast<U32>(std::stoull(digits, nullptr, 16));
  };
  return Zint::valueToStrep(Hardware::ChipAddress(word(id), word(offset)).value()).bytes();
}

bool isAddressName(std::string_view name) {
  return name == "addr" || name.ends_with("address") || name.ends_with("Address");
}

std::string keyText(const Zint::ListAccess& list, const std::string& key) {
  return isAddressName(list.keyName) ? addressText(key) : key;
}

}  // namespace Telemetry
