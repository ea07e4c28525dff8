// Events as values and as lines, and which of them are wanted.
#pragma once

#include <deque>
#include <optional>

#include "tools/umbra/Drivers.h"

namespace Tool {

struct EventFilter {
  std::optional<S64> since;          // wall clock, nanoseconds
  std::string region;                // empty: all
  std::vector<std::string> classes;  // kinds, verdicts or natures; empty: all

  bool takes(const Telemetry::Event& event) const;
};

// Every word that `--class` takes.
std::vector<std::string> eventClasses();
// "10m", "2h", "1.5d", "30" seconds ago; "2026-03-01 12:00:00" or "12:00" local time; ISO 8601 in
// UTC with a Z. Failure (wrong usage) for another text.
S64 momentOf(const std::string& text, S64 now);

std::vector<Column> eventColumns();
std::vector<Json> eventValues(const Telemetry::Event& event);
// One line of a terminal; `colour`: with escape sequences.
std::string eventLine(const Telemetry::Event& event, bool colour);
Json eventJson(const Telemetry::Event& event);

// The newest events that the filter takes, at most `most`, oldest first. Adds up what was lost.
struct Events {
  std::vector<Telemetry::Event> events;
  U64 overwritten = 0;
  U64 torn = 0;
};
Events newestEvents(const Telemetry::EventReader& log, const EventFilter& filter, std::size_t most);

// The newest events of a log that is looked at again and again: each event is read once.
class EventTail {
 public:
  // Of one region unless that is empty; oldest first, at most `most`. A range exception where there
  // is no log that can be read.
  const std::deque<Telemetry::Event>& look(const std::string& path, const std::string& region,
                                           std::size_t most);

 private:
  std::unique_ptr<Telemetry::EventReader> log_;
  EventFilter filter_;
  std::size_t most_ = 0;
  U64 next_ = 0;
  std::deque<Telemetry::Event> events_;
};

}  // namespace Tool
