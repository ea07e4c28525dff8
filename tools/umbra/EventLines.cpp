#include "tools/umbra/EventLines.h"

#include <Driver/Finding.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>

namespace Tool {
namespace {

using Telemetry::Event;
using Telemetry::EventKind;

constexpr U32 batchSize = 1024;

std::string hexOf(const std::vector<U8>& bytes, U32 entrySize) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const U8 byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return entrySize > bytes.size() && !bytes.empty() ? text + ".." : text;
}

std::string verdictOf(const Event& event) {
  if (event.kind != EventKind::finding) return {};
  return std::string(stringValue(static_cast<Driver::Verdict>(event.verdict)));
}

std::string natureOf(const Event& event) {
  if (event.kind != EventKind::finding || event.nature == 0) return {};
  return std::string(stringValue(static_cast<Driver::Nature>(event.nature)));
}

bool hasEntry(const Event& event) { return event.kind == EventKind::finding; }

std::string detailOf(const Event& event) {
  const std::string number = std::to_string(event.verdict);
  const auto word = [&](std::initializer_list<const char*> words) {
    return event.verdict < words.size() ? std::string(words.begin()[event.verdict]) : number;
  };
  const std::string text = event.textIsCut ? event.text + "~" : event.text;
  const std::string rest = text.empty() ? "" : ": " + text;
  switch (event.kind) {
    case EventKind::finding: {
      const std::string nature = natureOf(event);
      // Behind the verdict: what differs, by name.
      const std::size_t named = text.find("; ");
      return verdictOf(event) + (nature.empty() ? "" : " (" + nature + ")") +
             (named == std::string::npos ? "" : text.substr(named));
    }
    case EventKind::adopted:
      return number + " entries";
    case EventKind::pass:
      return number + " differences" + rest;
    case EventKind::alarm:
      return word({"?", "raised", "acknowledged", "cleared"}) + rest;
    case EventKind::chip:
      return word({"?", "absent", "present", "reset", "restored"}) + rest;
    case EventKind::suppressed:
      return number + " events";
    case EventKind::start:
    case EventKind::end:
      return "process " + number;
    default:
      return text;
  }
}

std::string whoOf(const Event& event) {
  if (event.uid == Telemetry::nobody) return {};
  return "uid " + std::to_string(event.uid) + " pid " + std::to_string(event.pid);
}

std::optional<double> numberOf(std::string_view text) {
  double number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size() || !(number >= 0)) return {};
  return number;
}

std::optional<S64> dateOf(const std::string& text, S64 now) {
  const bool isUtc = text.ends_with('Z');
  const std::time_t seconds = static_cast<std::time_t>(now / 1'000'000'000);
  for (const char* const format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M",
                                   "%Y-%m-%d %H:%M", "%Y-%m-%d", "%H:%M:%S", "%H:%M"}) {
    std::tm time{};
    if (format[1] == 'H') {
      isUtc ? gmtime_r(&seconds, &time) : localtime_r(&seconds, &time);
      time.tm_sec = 0;
    }
    const char* end = strptime(text.c_str(), format, &time);
    if (end == nullptr) continue;
    double fraction = 0;
    if (*end == '.') {
      const char* const digits = end;
      for (++end; *end >= '0' && *end <= '9'; ++end) {
      }
      fraction = std::strtod(std::string(digits, end).c_str(), nullptr);
    }
    if (std::string_view(end) != (isUtc ? "Z" : "")) continue;
    time.tm_isdst = -1;
    const std::time_t moment = isUtc ? timegm(&time) : std::mktime(&time);
    return static_cast<S64>(moment) * 1'000'000'000 + static_cast<S64>(fraction * 1e9);
  }
  return {};
}

}  // namespace

std::vector<std::string> eventClasses() {
  std::vector<std::string> all;
  for (U32 kind = 1; kind <= static_cast<U32>(EventKind::end); ++kind) {
    all.push_back(nameOf(static_cast<EventKind>(kind)));
  }
  for (S32 verdict = 0; verdict <= static_cast<S32>(Driver::Verdict::reset); ++verdict) {
    const std::string name(stringValue(static_cast<Driver::Verdict>(verdict)));
    if (std::find(all.begin(), all.end(), name) == all.end()) all.push_back(name);
  }
  for (const auto nature :
       {Driver::Nature::soft, Driver::Nature::recurring, Driver::Nature::stuck}) {
    all.emplace_back(std::string(stringValue(nature)));
  }
  return all;
}

bool EventFilter::takes(const Event& event) const {
  if (since && event.wallClock < *since) return false;
  if (!region.empty() && event.region != region &&
      !(event.regionIsCut && region.starts_with(event.region))) {
    return false;
  }
  if (classes.empty()) return true;
  return std::any_of(classes.begin(), classes.end(), [&](const std::string& word) {
    return word == nameOf(event.kind) || word == verdictOf(event) || word == natureOf(event);
  });
}

S64 momentOf(const std::string& text, S64 now) {
  constexpr std::pair<char, double> units[] = {
      {'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86'400}, {'w', 604'800}};
  const std::string_view all = text;
  std::optional<double> ago = numberOf(all);
  for (const auto& [letter, seconds] : units) {
    if (!all.empty() && all.back() == letter) {
      ago = numberOf(all.substr(0, all.size() - 1));
      if (ago) *ago *= seconds;
    }
  }
  if (ago && *ago < 9e9) return now - static_cast<S64>(*ago * 1e9);
  if (const std::optional<S64> date = dateOf(text, now)) return *date;
  throw Failure(
      "'" + text + "' is no time: 10m, 2h, 12:30, '2026-03-01 12:00' or 2026-03-01T12:00:00Z",
      Exit::wrongUsage);
}

std::vector<Column> eventColumns() {
  return {{"number", "NUMBER", Form::number},
          {"time", "TIME", Form::time},
          {"kind", "KIND", Form::state},
          {"region", "REGION"},
          {"entry", "ENTRY", Form::number},
          {"chip", "CHIP"},
          {"expected", "EXPECTED"},
          {"actual", "ACTUAL"},
          {"detail", "WHAT"},
          {"verdict", "VERDICT"},
          {"nature", "NATURE"},
          {"text", "TEXT"},
          {"uid", "UID", Form::number},
          {"pid", "PID", Form::number}};
}

std::vector<Json> eventValues(const Event& event) {
  const auto orNull = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
  const bool isAsked = event.uid != Telemetry::nobody;
  return {event.number,
          event.wallClock,
          nameOf(event.kind),
          orNull(event.region),
          hasEntry(event) ? Json(event.entry) : Json(),
          orNull(event.chip),
          orNull(hexOf(event.expected, event.entrySize)),
          orNull(hexOf(event.actual, event.entrySize)),
          orNull(detailOf(event)),
          orNull(verdictOf(event)),
          orNull(natureOf(event)),
          orNull(event.text),
          isAsked ? Json(event.uid) : Json(),
          isAsked ? Json(event.pid) : Json()};
}

Json eventJson(const Event& event) {
  const std::vector<Column> columns = eventColumns();
  const std::vector<Json> values = eventValues(event);
  Json object = Json::object();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    object[columns[i].key] = jsonOf(columns[i].form, values[i]);
  }
  return object;
}

std::string eventLine(const Event& event, bool colour) {
  const auto marked = [&](const std::string& text, std::string_view word) {
    const std::string_view begin = colour ? colourOf(word) : std::string_view();
    return begin.empty() ? text : std::string(begin) + text + "\033[0m";
  };
  std::string kind = nameOf(event.kind);
  kind.resize(std::max<std::size_t>(kind.size(), 10), ' ');
  std::string line = timeText(event.wallClock) + "  " + marked(kind, nameOf(event.kind));
  if (!event.region.empty()) {
    line += "  " + printable(event.region) + (event.regionIsCut ? "~" : "");
  } else if (hasEntry(event)) {
    line += "  ''";
  }
  if (hasEntry(event)) line += "[" + std::to_string(event.entry) + "]";
  if (event.region.empty() && !hasEntry(event) && !event.chip.empty())
    line += "  " + printable(event.chip);
  const std::string detail = printable(detailOf(event));
  if (!detail.empty()) line += "  " + marked(detail, detail.substr(0, detail.find_first_of(" :")));
  if (!event.expected.empty() || !event.actual.empty()) {
    line += "  expected " + hexOf(event.expected, event.entrySize) + " actual " +
            hexOf(event.actual, event.entrySize);
  }
  const std::string who = whoOf(event);
  return who.empty() ? line : line + "  (" + who + ")";
}

Events newestEvents(const Telemetry::EventReader& log, const EventFilter& filter,
                    std::size_t most) {
  std::deque<Event> kept;
  Events found;
  U64 next = log.first();
  const U64 last = log.last();
  while (next != 0 && next <= last) {
    Telemetry::EventReader::Batch batch = log.read(next, batchSize);
    // What is overwritten while it is read was there at the beginning.
    found.overwritten += batch.overwritten;
    found.torn += batch.missing;
    for (Event& event : batch.events) {
      if (!filter.takes(event)) continue;
      kept.push_back(std::move(event));
      if (kept.size() > most) kept.pop_front();
    }
    if (batch.next <= next) break;
    next = batch.next;
  }
  if (log.first() > 1) found.overwritten = log.first() - 1;
  found.events.assign(std::make_move_iterator(kept.begin()), std::make_move_iterator(kept.end()));
  return found;
}

const std::deque<Event>& EventTail::look(const std::string& path, const std::string& region,
                                         std::size_t most) {
  if (log_ == nullptr || log_->path() != path || log_->isReplaced() || filter_.region != region ||
      most_ != most || log_->last() + 1 < next_) {
    log_ = nullptr;
    events_.clear();
    log_ = std::make_unique<Telemetry::EventReader>(path);
    filter_.region = region;
    most_ = most;
    next_ = log_->first();
  }
  for (U64 before = 0; before != next_;) {
    before = next_;
    Telemetry::EventReader::Batch batch = log_->read(next_, batchSize);
    next_ = batch.next;
    for (Event& event : batch.events) {
      if (!filter_.takes(event)) continue;
      events_.push_back(std::move(event));
      if (events_.size() > most) events_.pop_front();
    }
  }
  return events_;
}

}  // namespace Tool
