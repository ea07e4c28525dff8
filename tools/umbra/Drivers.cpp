#include "tools/umbra/Drivers.h"

#include <Hardware/ChipAddress.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace Tool {
namespace {

using Telemetry::ColumnKind;
using Telemetry::Heartbeat;
using Telemetry::Liveness;
using Telemetry::LiveReader;

constexpr S64 never = std::numeric_limits<S64>::max();
constexpr S64 beforeEverything = std::numeric_limits<S64>::min();
// In nanoseconds since 1970; no machine has run for that long.
constexpr S64 year2001 = 1'000'000'000'000'000'000;

std::string listOf(const std::vector<Found>& drivers) {
  std::string all;
  for (const Found& driver : drivers) all += (all.empty() ? "" : ", ") + driver.name;
  return all;
}

bool isRunning(const Found& driver) {
  return driver.view != nullptr &&
         (driver.liveness.state == Liveness::live || driver.liveness.state == Liveness::stalled);
}

Found foundAt(const std::filesystem::path& path) {
  Found found{path.stem().string(), path, nullptr, {}};
  try {
    found.view = std::make_shared<LiveReader>(path.string());
    found.liveness = found.view->liveness();
  } catch (const std::exception& error) {
    found.error = error.what();
  }
  return found;
}

ViewPtr viewOf(const Found& found) {
  if (found.view == nullptr) throw Failure(found.path.string() + ": " + found.error);
  return found.view;
}

}  // namespace

std::vector<Found> driversIn(const std::string& directory) {
  std::vector<Found> all;
  std::error_code error;
  for (std::filesystem::directory_iterator at(directory, error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().extension() == ".live") all.push_back(foundAt(at->path()));
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    throw Failure(directory + ": " + error.message());
  }
  std::sort(all.begin(), all.end(), [](const Found& a, const Found& b) { return a.name < b.name; });
  return all;
}

ViewPtr theDriver(const Settings& settings) {
  const std::string& wanted = settings.driver;
  if (wanted.find('/') != std::string::npos || wanted.ends_with(".live")) {
    if (!std::filesystem::exists(wanted)) {
      throw Failure(wanted + ": no such live view", Exit::nothingFound);
    }
    return viewOf(foundAt(wanted));
  }
  const std::vector<Found> all = driversIn(settings.directory);
  if (all.empty()) {
    throw Failure("no driver in " + settings.directory +
                      "; --dir names the directory where drivers show themselves",
                  Exit::nothingFound);
  }
  if (!wanted.empty()) {
    for (const Found& driver : all) {
      if (driver.name == wanted) return viewOf(driver);
    }
    throw Failure(
        "no driver '" + wanted + "' in " + settings.directory + "; there is " + listOf(all),
        Exit::nothingFound);
  }
  if (all.size() == 1) return viewOf(all.front());
  if (std::count_if(all.begin(), all.end(), isRunning) == 1) {
    return viewOf(*std::find_if(all.begin(), all.end(), isRunning));
  }
  throw Failure("which driver? --driver takes one of " + listOf(all), Exit::wrongUsage);
}

std::filesystem::path eventsOf(const std::filesystem::path& live) {
  return std::filesystem::path(live).replace_extension(".events");
}

Json wallClockOf(S64 time, const Heartbeat& beat) {
  if (time == never || time == beforeEverything) return nullptr;
  return time >= year2001 ? time : time + (beat.wallClock - beat.monotonic);
}

bool isMoment(const std::string& column) {
  if (column == "quarantineTime") return false;
  return column == "since" || column == "nextTry" || column.ends_with("Since") ||
         column.ends_with("Time");
}

Form formOf(const Telemetry::Column& column) {
  switch (column.kind) {
    case ColumnKind::boolean:
      return Form::flag;
    case ColumnKind::time:
      return isMoment(column.name) ? Form::time : Form::duration;
    case ColumnKind::unsignedNumber:
      return Form::count;
    case ColumnKind::signedNumber:
    case ColumnKind::real:
    case ColumnKind::text:
      break;
  }
  return column.kind == ColumnKind::text || !column.names.empty() ? Form::state : Form::number;
}

Rows::Rows(const LiveReader& view, std::string_view table, bool gone)
    : table_(view.find(table)), beat_(view.heartbeat()) {
  if (table_ == nullptr) return;
  for (Telemetry::Row& row : view.rows(*table_)) {
    if (row.isUsed() || (gone && row.state() == Telemetry::Row::gone_)) {
      rows_.push_back(std::move(row));
    }
  }
}

Json Rows::value(std::size_t at, std::string_view column) const {
  const Telemetry::Column* const found = table_ == nullptr ? nullptr : table_->find(column);
  return found == nullptr ? Json() : value(at, *found);
}

Json Rows::value(std::size_t at, const Telemetry::Column& column) const {
  const Telemetry::Row& row = rows_[at];
  switch (column.kind) {
    case ColumnKind::boolean:
      return row.isTrue(column);
    case ColumnKind::unsignedNumber:
      return row.number(column);
    case ColumnKind::signedNumber: {
      const S64 number = row.signedNumber(column);
      const std::string_view name = column.nameOfNumber(number);
      return name.empty() ? Json(number) : Json(std::string(name));
    }
    case ColumnKind::real: {
      const double real = row.real(column);
      return std::isfinite(real) ? Json(real) : Json();
    }
    case ColumnKind::time: {
      const S64 time = row.time(column);
      if (isMoment(column.name)) return wallClockOf(time, beat_);
      if (time == never || time == beforeEverything) return nullptr;
      return static_cast<double>(time) / 1e9;
    }
    case ColumnKind::text: {
      bool isCut = false;
      std::string text = row.text(column, &isCut);
      return isCut ? text + "~" : std::move(text);
    }
  }
  return nullptr;
}

std::string Rows::text(std::size_t at, std::string_view column) const {
  const Json found = value(at, column);
  return found.is_string() ? found.get<std::string>() : found.is_null() ? "" : found.dump();
}

double Rows::number(std::size_t at, std::string_view column, double otherwise) const {
  const Json found = value(at, column);
  if (found.is_boolean()) return found.get<bool>() ? 1 : 0;
  return found.is_number() ? found.get<double>() : otherwise;
}

bool Rows::holds(std::size_t at, std::string_view column, std::string_view sought) const {
  if (text(at, column) == sought) return true;
  const Telemetry::Column* const found = table_->find(column);
  if (found == nullptr || found->kind != ColumnKind::text) return false;
  bool isCut = false;
  const std::string begin = rows_[at].text(*found, &isCut);
  return isCut && sought.starts_with(begin);
}

std::size_t Rows::find(std::string_view column, std::string_view text) const {
  std::size_t at = 0;
  while (at < rows_.size() && !holds(at, column, text)) ++at;
  return at;
}

std::string livenessText(const Liveness& liveness) {
  std::string text = nameOf(liveness.state);
  if (liveness.state == Liveness::live) return text;
  if (liveness.sinceAgo > 0) {
    text += " for " + durationText(static_cast<double>(liveness.sinceAgo) * 1e-9);
  }
  if (!liveness.reason.empty()) text += " (" + liveness.reason + ")";
  return text;
}

std::string addressOf(const std::string& address, U64 entry, U64 stride) {
  char* end = nullptr;
  U64 value = std::strtoull(address.c_str(), &end, 0);
  if (end == address.c_str()) return {};
  if (*end == ':') value = value << 32 | std::strtoull(end + 1, nullptr, 16);
  return std::string(Hardware::ChipAddress(value + entry * stride).stringValue());
}

}  // namespace Tool
