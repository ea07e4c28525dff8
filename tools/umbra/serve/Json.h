// The values of the model as the page and other programs get them.
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/umbra/serve/Model.h"

namespace Serve {

using Json = nlohmann::ordered_json;

// Whatever the bytes of its texts are.
std::string dump(const Json& json);

// Milliseconds of wall-clock time; null for never.
Json milliseconds(Time time);

// Does the column hold moments, not durations?
bool isMoment(const Column& column);
// A moment in wall-clock time; never where it has not come.
Time momentOf(const Driver& driver, const Column& column, std::span<const U32> row);

// A value: moments in milliseconds of wall-clock time, durations in seconds, never as null.
Json valueJson(const Driver& driver, const Column& column, std::span<const U32> row);

// A driver and the rows of all tables but that of the regions.
Json driverJson(const Driver& driver);
// All columns of one row, with their units and help.
Json rowJson(const Driver& driver, const Table& table, U32 row);
Json eventJson(const Event& event);
// "00 ff 12"
std::string hexText(std::span<const U8> bytes);

// What the page's map and table show of a region; the columns are looked for once.
class RegionColumns {
 public:
  explicit RegionColumns(const Table& table);
  // [row, state, name, ...]: one value for each name.
  Json json(const Driver& driver, U32 row) const;
  // Of the values after the row.
  static Json names();

 private:
  static constexpr std::array columnNames = {
      "name",         "shadow",       "chip",           "address",  "entries",
      "entrySize",    "mode",         "auditEnabled",   "findings", "repairs",
      "findingsIn1m", "findingsIn1h", "lastFindingTime"};
  const Table& table_;
  std::array<const Column*, columnNames.size()> columns_{};
};

}  // namespace Serve
