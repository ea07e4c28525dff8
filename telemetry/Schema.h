// What the rows of the live view hold: tables, and the columns of their rows.
//
//   const Schema schema = Schema::fromJson(text);
//   const Column* column = schema.find("region")->find("registersFixed");
//
// A writer makes it from the descriptions of types; it stands in the file as JSON
// (docs/formats.md).
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Telemetry {

enum class ColumnKind : U32 {
  boolean,         // 4 bytes
  unsignedNumber,  // 8 bytes, as the following four
  signedNumber,    // of an enumeration its number
  real,            // the bits of a double
  time,            // nanoseconds
  text             // a field of fixed size, filled up with zeros
};
// "boolean", "unsigned", "signed", "real", "time", "text".
UMBRA_API const char* nameOf(ColumnKind kind);

struct UMBRA_API Column {
  std::string name;
  ColumnKind kind = ColumnKind::unsignedNumber;
  U32 offset = 0;  // bytes from the beginning of the row
  U32 bytes = 8;
  std::string unit;      // "seconds"; "" for a plain number or a text
  std::string help;      // half a sentence for people
  std::string type;      // of the attribute, "U32"
  bool isTotal = false;  // counts up for as long as the row's `since` says
  std::vector<std::pair<S64, std::string>> names = {};  // of an enumeration

  // The name of a number of an enumeration; "" if there is none.
  std::string_view nameOfNumber(S64 number) const;
};

// The column's part of the schema's text.
UMBRA_API std::string toJson(const Column& column);

struct UMBRA_API Table {
  // Up to its first column; "]}" ends it.
  std::string jsonBegin() const;

  std::string name;  // "region"
  std::string type;  // "Hardware::ChipMemory": of the objects that the rows show
  std::vector<Column> columns = {};
  // Where the rows are in the file; not part of the schema's text.
  U32 firstRow = 0;  // offset
  U32 rowBytes = 0;
  U32 rows = 0;

  const Column* find(std::string_view columnName) const;  // null if there is none
};

struct UMBRA_API Schema {
  std::vector<Table> tables = {};

  const Table* find(std::string_view tableName) const;  // null if there is none
  std::string toJson() const;
  // A text that is no schema: a range exception. What it has beyond a schema is passed over.
  static Schema fromJson(std::string_view text);
};

}  // namespace Telemetry
