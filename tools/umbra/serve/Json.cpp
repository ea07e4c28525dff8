#include "tools/umbra/serve/Json.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Serve {
namespace {

Json seconds(double value) {
  if (!std::isfinite(value)) return nullptr;
  return value;
}

// Of a moment of the wall clock; others are of the driver's.
constexpr std::string_view wallClockUnit = "seconds since 1970";

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

std::string dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json milliseconds(Time time) {
  if (time == never || time == -never - 1) return nullptr;
  return time / 1'000'000;
}

bool isMoment(const Column& column) {
  if (column.kind != Kind::time) return false;
  static constexpr std::array durations = {"quarantineTime", "readTime", "writeTime"};
  if (std::ranges::find(durations, column.name) != durations.end()) return false;
  if (column.unit == wallClockUnit) return true;
  static constexpr std::array ends = {"Time", "since", "Since", "nextTry"};
  return std::ranges::any_of(ends, [&](const char* end) { return endsWith(column.name, end); });
}

Time momentOf(const Driver& driver, const Column& column, std::span<const U32> row) {
  const Time time = column.integer(row);
  if (time == never || time == -never - 1) return never;
  return column.unit == wallClockUnit ? time : driver.wall(time);
}

Json valueJson(const Driver& driver, const Column& column, std::span<const U32> row) {
  switch (column.kind) {
    case Kind::boolean:
      return column.integer(row) != 0;
    case Kind::unsignedNumber:
      return static_cast<U64>(column.integer(row));
    case Kind::signedNumber:
      if (!column.names.empty()) return column.text(row);
      return column.integer(row);
    case Kind::real:
      return seconds(column.number(row));
    case Kind::time: {
      if (isMoment(column)) return milliseconds(momentOf(driver, column, row));
      const Time time = column.integer(row);
      return time == never ? Json(nullptr) : seconds(static_cast<double>(time) * 1e-9);
    }
    case Kind::text:
      return column.text(row);
  }
  return nullptr;
}

Json driverJson(const Driver& driver) {
  Json json = {{"name", driver.name},
               {"pid", driver.pid},
               {"bits", driver.pointerBits},
               {"liveness", nameOf(driver.liveness)},
               {"assertion", driver.assertionEnded},
               {"since", milliseconds(driver.since)},
               {"start", milliseconds(driver.start)},
               {"notFit", driver.notFit},
               {"canOperate", !driver.operating.empty()},
               {"canLook", !driver.looking.empty()},
               {"suppressed", driver.suppressed}};
  Json tables = Json::object();
  for (const auto& table : driver.tables) {
    if (table->name == "region") continue;
    Json rows = Json::array();
    for (U32 i = 0; i < table->rows(); ++i) {
      if (table->state(i) == freeRow) continue;
      Json row = {{"row", i}, {"gone", table->state(i) == goneRow}, {"torn", bool{table->torn[i]}}};
      for (const Column& column : table->columns) {
        row[column.name] = valueJson(driver, column, table->row(i));
      }
      rows.push_back(std::move(row));
    }
    tables[table->name] = std::move(rows);
  }
  json["tables"] = std::move(tables);
  return json;
}

Json rowJson(const Driver& driver, const Table& table, U32 row) {
  Json values = Json::array();
  for (const Column& column : table.columns) {
    const char* form = isMoment(column)               ? "moment"
                       : column.kind == Kind::time    ? "duration"
                       : column.kind == Kind::boolean ? "boolean"
                       : column.kind == Kind::text    ? "text"
                       : !column.names.empty()        ? "name"
                                                      : "number";
    values.push_back({{"name", column.name},
                      {"value", valueJson(driver, column, table.row(row))},
                      {"form", form},
                      {"unit", column.unit},
                      {"help", column.help}});
  }
  return {{"row", row},
          {"gone", table.state(row) == goneRow},
          {"torn", bool{table.torn[row]}},
          {"values", std::move(values)}};
}

std::string hexText(std::span<const U8> bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const U8 byte : bytes) {
    if (!text.empty()) text += ' ';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

Json eventJson(const Event& event) {
  Json json = {{"number", event.number},
               {"kind", kindName(event.kind)},
               {"time", milliseconds(event.wall)},
               {"detail", event.verdict},
               {"text", event.text}};
  if (!event.region.empty()) json["region"] = event.region;
  if (!event.chip.empty()) json["chip"] = event.chip;
  if (event.uid != ~U32{0}) {
    json["uid"] = event.uid;
    json["pid"] = event.pid;
  }
  if (event.kind == findingEvent) {
    json["entry"] = event.entry;
    json["entrySize"] = event.entrySize;
    json["nature"] = natureName(event.nature);
    json["expected"] = hexText(event.expected);
    json["actual"] = hexText(event.actual);
  }
  return json;
}

RegionColumns::RegionColumns(const Table& table) : table_(table) {
  std::ranges::transform(columnNames, columns_.begin(),
                         [&](const char* name) { return table.find(name); });
}

Json RegionColumns::json(const Driver& driver, U32 row) const {
  Json values = {row, table_.state(row)};
  for (const Column* column : columns_) {
    values.push_back(column == nullptr ? Json(nullptr)
                                       : valueJson(driver, *column, table_.row(row)));
  }
  return values;
}

Json RegionColumns::names() {
  Json names = {"state"};
  for (const char* name : columnNames) names.push_back(name);
  return names;
}

}  // namespace Serve
