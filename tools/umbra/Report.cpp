#include "tools/umbra/Report.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <ostream>
#include <sstream>

namespace Tool {
namespace {

constexpr long long nanosecondsOfSecond = 1'000'000'000;

bool isNumeric(Form form) {
  return form == Form::number || form == Form::count || form == Form::duration ||
         form == Form::share || form == Form::bytes;
}

std::string withCommas(std::string digits) {
  const std::size_t first = digits.starts_with('-') ? 1 : 0;
  for (std::size_t at = digits.size(); at > first + 3;) {
    at -= 3;
    digits.insert(digits.begin() + static_cast<std::ptrdiff_t>(at), ',');
  }
  return digits;
}

template <typename... Values>
std::string formatted(const char* format, Values... values) {
  char text[96];
  const int size = std::snprintf(text, sizeof text, format, values...);
  return {text, std::min(static_cast<std::size_t>(std::max(size, 0)), sizeof text - 1)};
}

std::string sizeText(double bytes) {
  constexpr const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  std::size_t unit = 0;
  for (; bytes >= 1024 && unit + 1 < std::size(units); ++unit) bytes /= 1024;
  return formatted(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
}

std::string padded(const std::string& text, std::size_t width, bool right) {
  const std::size_t size = columnsOf(text);
  const std::string blanks(width > size ? width - size : 0, ' ');
  return right ? blanks + text : text + blanks;
}

std::string coloured(const std::string& text, std::string_view word) {
  const std::string_view begin = colourOf(word);
  return begin.empty() ? text : std::string(begin) + text + "\033[0m";
}

void removeBlanksAtEnd(std::string& line) { line.erase(line.find_last_not_of(' ') + 1); }

}  // namespace

std::string_view colourOf(std::string_view word) {
  constexpr std::string_view green = "\033[32m", yellow = "\033[33m", red = "\033[31m";
  constexpr std::pair<std::string_view, std::string_view> words[] = {
      {"live", green},          {"present", green}, {"restored", green},   {"repaired", green},
      {"stalled", yellow},      {"paused", yellow}, {"suspended", yellow}, {"restoring", yellow},
      {"acknowledged", yellow}, {"torn", yellow},   {"dead", red},         {"raised", red},
      {"absent", red},          {"reset", red},     {"assertion", red},    {"failed", red},
      {"quarantined", red}};
  for (const auto& [known, colour] : words) {
    if (known == word) return colour;
  }
  return {};
}

std::string durationText(double seconds) {
  if (std::isnan(seconds)) return "-";
  if (std::isinf(seconds) || seconds > 1e9) return "never";
  const double size = std::fabs(seconds);
  if (size == 0) return "0 s";
  if (size < 1e-3) return formatted("%.3g us", seconds * 1e6);
  if (size < 1) return formatted("%.3g ms", seconds * 1e3);
  if (size < 10) return formatted("%.1f s", seconds);
  const long long whole = std::llround(seconds);
  if (whole < 120) return formatted("%lld s", whole);
  if (whole < 7200) return formatted("%lld min %02lld s", whole / 60, whole % 60);
  if (whole < 172'800) return formatted("%lld h %02lld min", whole / 3600, whole / 60 % 60);
  return formatted("%lld d %02lld h", whole / 86'400, whole / 3600 % 24);
}

std::string timeText(long long nanoseconds) {
  if (nanoseconds == 0 || nanoseconds == std::numeric_limits<long long>::max()) return "-";
  const std::time_t seconds = static_cast<std::time_t>(nanoseconds / nanosecondsOfSecond);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) return "-";
  char text[40];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return std::string(text, size) +
         formatted(".%03lld", nanoseconds % nanosecondsOfSecond / 1'000'000);
}

std::string isoTime(long long nanoseconds) {
  const std::time_t seconds = static_cast<std::time_t>(nanoseconds / nanosecondsOfSecond);
  std::tm utc{};
  if (gmtime_r(&seconds, &utc) == nullptr) return {};
  char text[40];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  return std::string(text, size) + formatted(".%09lldZ", nanoseconds % nanosecondsOfSecond);
}

long long wallClockNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Bytes of UTF-8 that go on with a character are no columns.
std::size_t columnsOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  }));
}

std::string printable(std::string_view text, std::size_t columns) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // C1 controls are two bytes in UTF-8.
    const bool isC1 =
        byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (isC1) ++i;
    result += byte < 0x20 || byte == 0x7F || isC1 ? '?' : text[i];
  }
  if (columns == 0 || columnsOf(result) <= columns) return result;
  std::size_t end = 0;
  for (std::size_t shown = 0; end < result.size(); ++end) {
    const bool begins = (static_cast<unsigned char>(result[end]) & 0xC0) != 0x80;
    if (begins && shown++ == columns - 1) break;
  }
  return result.substr(0, end) + "~";
}

std::string textOf(Form form, const Json& value) {
  if (value.is_null()) return "-";
  switch (form) {
    case Form::flag:
      if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
      break;
    case Form::count:
      if (value.is_number_integer()) return withCommas(value.dump());
      break;
    case Form::time:
      if (value.is_number_integer()) return timeText(value.get<long long>());
      break;
    case Form::duration:
      if (value.is_number()) return durationText(value.get<double>());
      break;
    case Form::share:
      if (value.is_number()) return formatted("%.1f %%", value.get<double>() * 100);
      break;
    case Form::bytes:
      if (value.is_number()) return sizeText(value.get<double>());
      break;
    case Form::text:
    case Form::state:
    case Form::number:
      break;
  }
  if (value.is_string()) return printable(value.get_ref<const std::string&>());
  return printable(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json jsonOf(Form form, const Json& value) {
  if (form != Form::time || !value.is_number_integer()) return value;
  const auto time = value.get<long long>();
  if (time == 0 || time == std::numeric_limits<long long>::max()) return nullptr;
  return isoTime(time);
}

void Table::row(std::vector<Json> values) {
  values.resize(columns_.size());
  rows_.push_back(std::move(values));
}

Json Table::json() const {
  Json all = Json::array();
  for (const std::vector<Json>& values : rows_) {
    Json object = Json::object();
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      object[columns_[i].key] = jsonOf(columns_[i].form, values[i]);
    }
    all.push_back(std::move(object));
  }
  return all;
}

void Table::print(std::ostream& out, bool colour) const {
  if (rows_.empty()) {
    if (!empty_.empty()) out << empty_ << '\n';
    return;
  }
  std::vector<std::size_t> widths;
  std::vector<std::vector<std::string>> texts;
  for (const Column& column : columns_) widths.push_back(columnsOf(column.title));
  for (const std::vector<Json>& values : rows_) {
    std::vector<std::string>& line = texts.emplace_back();
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      line.push_back(textOf(columns_[i].form, values[i]));
      widths[i] = std::max(widths[i], columnsOf(line.back()));
    }
  }
  std::string head;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    head += padded(columns_[i].title, widths[i], isNumeric(columns_[i].form)) + "  ";
  }
  removeBlanksAtEnd(head);
  out << (colour ? "\033[1m" + head + "\033[0m" : head) << '\n';
  for (const std::vector<std::string>& line : texts) {
    std::string shown;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      std::string cell = padded(line[i], widths[i], isNumeric(columns_[i].form));
      if (colour && columns_[i].form == Form::state) cell = coloured(cell, line[i]);
      shown += cell + "  ";
    }
    removeBlanksAtEnd(shown);
    out << shown << '\n';
  }
}

void Report::facts(std::vector<Fact> facts) { parts_.emplace_back(std::move(facts)); }
Table& Report::table(std::string key, std::vector<Column> columns) {
  parts_.emplace_back(Table(std::move(key), std::move(columns)));
  return std::get<Table>(parts_.back());
}
void Report::value(const char* key, Json value) {
  parts_.emplace_back(Hidden{key, std::move(value)});
}
void Report::line(std::string text) { parts_.emplace_back(std::move(text)); }

Json Report::json() const {
  Json object = Json::object();
  for (const auto& part : parts_) {
    if (const auto* facts = std::get_if<std::vector<Fact>>(&part)) {
      for (const Fact& fact : *facts) object[fact.key] = jsonOf(fact.form, fact.value);
    } else if (const auto* table = std::get_if<Table>(&part)) {
      object[table->key()] = table->json();
    } else if (const auto* hidden = std::get_if<Hidden>(&part)) {
      object[hidden->key] = hidden->value;
    }
  }
  return object;
}

std::string Report::text(bool colour) const {
  std::ostringstream out;
  bool isFirst = true;
  for (const auto& part : parts_) {
    if (std::holds_alternative<Hidden>(part)) continue;
    if (const auto* line = std::get_if<std::string>(&part)) {
      out << *line << '\n';
      isFirst = false;
      continue;
    }
    if (!isFirst) out << '\n';
    isFirst = false;
    if (const auto* table = std::get_if<Table>(&part)) {
      table->print(out, colour);
      continue;
    }
    const auto& facts = std::get<std::vector<Fact>>(part);
    std::size_t width = 0;
    for (const Fact& fact : facts) width = std::max(width, columnsOf(fact.title));
    for (const Fact& fact : facts) {
      const std::string text = textOf(fact.form, fact.value);
      const bool isMarked = colour && fact.form == Form::state;
      out << padded(fact.title, width, false) << "  " << (isMarked ? coloured(text, text) : text)
          << '\n';
    }
  }
  return out.str();
}

void write(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void writeJson(const Json& json) {
  write(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

void Report::print(const Settings& settings) const {
  if (settings.json) return writeJson(json());
  const std::string shown = text(settings.colour);
  winsize size{};
  if (settings.pager && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 &&
      std::count(shown.begin(), shown.end(), '\n') >= size.ws_row) {
    const char* const own = std::getenv("PAGER");
    setenv("LESS", "FRSX", 0);
    const std::string pager = own != nullptr && *own != '\0' ? own : "less";
    // Without a pager on this machine the text is printed as it is.
    if (FILE* const pipe = popen((pager + " 2>/dev/null").c_str(), "w")) {
      std::fwrite(shown.data(), 1, shown.size(), pipe);
      if (pclose(pipe) == 0) return;
    }
  }
  write(shown);
}

}  // namespace Tool
