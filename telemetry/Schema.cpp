#include <telemetry/Schema.h>

#include <Zint/Exception.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

namespace Telemetry {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, 6> kindNames = {"boolean", "unsigned", "signed",
                                                  "real",    "time",     "text"};

ColumnKind kindOfName(const std::string& name) {
  const auto found = std::find(kindNames.begin(), kindNames.end(), name);
  if (found == kindNames.end()) Zint::throwRangeException("no kind of column: " + name);
  return static_cast<ColumnKind>(found - kindNames.begin());
}

Json jsonOfColumn(const Column& column) {
  Json json = {{"name", column.name},
               {"kind", nameOf(column.kind)},
               {"offset", column.offset},
               {"bytes", column.bytes}};
  if (!column.unit.empty()) json["unit"] = column.unit;
  if (!column.help.empty()) json["help"] = column.help;
  if (!column.type.empty()) json["type"] = column.type;
  if (column.isTotal) json["total"] = true;
  if (!column.names.empty()) {
    Json& names = json["names"] = Json::object();
    for (const auto& [number, name] : column.names) names[std::to_string(number)] = name;
  }
  return json;
}

Column columnOfJson(const Json& json) {
  Column column;
  column.name = json.at("name").get<std::string>();
  column.kind = kindOfName(json.at("kind").get<std::string>());
  column.offset = json.at("offset").get<U32>();
  column.bytes = json.at("bytes").get<U32>();
  column.unit = json.value("unit", std::string());
  column.help = json.value("help", std::string());
  column.type = json.value("type", std::string());
  column.isTotal = json.value("total", false);
  if (json.contains("names")) {
    for (const auto& [key, name] : json["names"].items()) {
      S64 number = 0;
      const auto end = key.data() + key.size();
      if (std::from_chars(key.data(), end, number).ptr != end) {
        Zint::throwRangeException("no number of an enumeration: " + key);
      }
      column.names.emplace_back(number, name.get<std::string>());
    }
  }
  return column;
}

}  // namespace

const char* nameOf(ColumnKind kind) { return kindNames.at(static_cast<std::size_t>(kind)); }

std::string_view Column::nameOfNumber(S64 number) const {
  for (const auto& [each, text] : names) {
    if (each == number) return text;
  }
  return "";
}

const Column* Table::find(std::string_view columnName) const {
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [&](const Column& each) { return each.name == columnName; });
  return found == columns.end() ? nullptr : &*found;
}

const Table* Schema::find(std::string_view tableName) const {
  const auto found = std::find_if(tables.begin(), tables.end(),
                                  [&](const Table& each) { return each.name == tableName; });
  return found == tables.end() ? nullptr : &*found;
}

std::string Schema::toJson() const {
  Json all = Json::array();
  for (const Table& table : tables) {
    Json columns = Json::array();
    for (const Column& column : table.columns) columns.push_back(jsonOfColumn(column));
    all.push_back({{"name", table.name}, {"type", table.type}, {"columns", std::move(columns)}});
  }
  return Json{{"tables", std::move(all)}}.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Schema Schema::fromJson(std::string_view text) {
  try {
    Schema schema;
    const Json parsed = Json::parse(text);
    for (const Json& each : parsed.at("tables")) {
      Table& table = schema.tables.emplace_back();
      table.name = each.at("name").get<std::string>();
      table.type = each.value("type", std::string());
      for (const Json& column : each.at("columns")) {
        table.columns.push_back(columnOfJson(column));
      }
    }
    return schema;
  } catch (const Json::exception& exception) {
    Zint::throwRangeException(std::string("no schema of a live view: ") + exception.what());
  }
}

}  // namespace Telemetry
