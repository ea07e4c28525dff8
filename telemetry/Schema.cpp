#include <telemetry/Schema.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

namespace Telemetry {
namespace {

using Json = nlohmann::json;

constexpr std::array<const char*, 6> kindNames = {"boolean", "unsigned", "signed",
                                                  "real",    "time",     "text"};

ColumnKind kindOfName(const std::string& name) {
  const auto found = std::find(kindNames.begin(), kindNames.end(), name);
  if (found == kindNames.end()) Zint::throwRangeException("no kind of column: " + name);
  return static_cast<ColumnKind>(found - kindNames.begin());
}

// In double quotes. Bytes beyond ASCII stay as they are: names and help texts are UTF-8.
void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<U8>(c) < 0x20) {
      out += Zint::format("\\u%04x", U32{static_cast<U8>(c)});
    } else {
      out += c;
    }
  }
  out += '"';
}

void appendText(std::string& out, const char* key, std::string_view text) {
  if (text.empty()) return;
  out += key;
  appendQuoted(out, text);
}

// By hand: a driver writes it in a turn of its loop.
void appendColumn(std::string& out, const Column& column) {
  appendText(out, "{\"name\":", column.name);
  appendText(out, ",\"kind\":", nameOf(column.kind));
  out += ",\"offset\":" + std::to_string(column.offset);
  out += ",\"bytes\":" + std::to_string(column.bytes);
  appendText(out, ",\"unit\":", column.unit);
  appendText(out, ",\"help\":", column.help);
  appendText(out, ",\"type\":", column.type);
  if (column.isTotal) out += ",\"total\":true";
  if (!column.names.empty()) {
    out += ",\"names\":{";
    for (const auto& [number, name] : column.names) {
      if (out.back() != '{') out += ',';
      appendQuoted(out, std::to_string(number));
      out += ':';
      appendQuoted(out, name);
    }
    out += '}';
  }
  out += '}';
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

std::string toJson(const Column& column) {
  std::string json;
  appendColumn(json, column);
  return json;
}

std::string Table::jsonBegin() const {
  std::string json;
  appendText(json, "{\"name\":", name);
  appendText(json, ",\"type\":", type);
  return json + ",\"columns\":[";
}

std::string Schema::toJson() const {
  std::string json = "{\"tables\":[";
  for (const Table& table : tables) {
    if (json.back() != '[') json += ',';
    json += table.jsonBegin();
    for (const Column& column : table.columns) {
      if (json.back() != '[') json += ',';
      appendColumn(json, column);
    }
    json += "]}";
  }
  return json + "]}";
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
