// The drivers of a directory, the one that a subcommand works on, and the rows of its live view as
// values.
#pragma once

#include <telemetry/EventReader.h>
#include <telemetry/LiveReader.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/umbra/Report.h"

namespace Tool {

using ViewPtr = std::shared_ptr<Telemetry::LiveReader>;

struct Found {
  std::string name;
  std::filesystem::path path;  // of the live view
  ViewPtr view;                // null: it cannot be read
  std::string error;           // why not
  Telemetry::Liveness liveness = {};
};

// All of them, sorted by name. A directory that is not there holds none.
std::vector<Found> driversIn(const std::string& directory);

// The live view that the settings name, or the only one. Failure says what there is.
ViewPtr theDriver(const Settings& settings);
// NAME.events beside NAME.live.
std::filesystem::path eventsOf(const std::filesystem::path& live);

// Nanoseconds of wall-clock time for a moment of a row; null for never and for before everything.
// Rows hold moments of the monotonic clock, and some of the wall clock; the heartbeat has both.
Json wallClockOf(S64 time, const Telemetry::Heartbeat& beat);
// Whether a column in seconds is a moment; the others are lengths of time.
bool isMoment(const std::string& column);

// The rows of one table that show an object. The view must outlive it.
class Rows {
 public:
  // Empty where the view has no such table. `gone`: also those of objects that are no more.
  Rows(const Telemetry::LiveReader& view, std::string_view table, bool gone = false);

  std::size_t size() const { return rows_.size(); }
  const Telemetry::Table* table() const { return table_; }
  const Telemetry::Row& row(std::size_t at) const { return rows_[at]; }
  bool isTorn(std::size_t at) const { return rows_[at].isTorn(); }

  // Null where the table has no such column.
  Json value(std::size_t at, std::string_view column) const;
  Json value(std::size_t at, const Telemetry::Column& column) const;
  std::string text(std::size_t at, std::string_view column) const;
  double number(std::size_t at, std::string_view column, double otherwise = 0) const;
  // Whether the column has that text, or its beginning where it was cut.
  bool holds(std::size_t at, std::string_view column, std::string_view sought) const;
  // The row whose column has that text; size() when there is none.
  std::size_t find(std::string_view column, std::string_view text) const;

 private:
  const Telemetry::Table* table_;
  Telemetry::Heartbeat beat_;
  std::vector<Telemetry::Row> rows_;
};

// How the value of a column is written.
Form formOf(const Telemetry::Column& column);

// One line: how the driver is, for how long.
std::string livenessText(const Telemetry::Liveness& liveness);

// The address of an entry as the traces print it; empty for a text that is no address.
std::string addressOf(const std::string& address, U64 entry, U64 stride);

}  // namespace Tool
