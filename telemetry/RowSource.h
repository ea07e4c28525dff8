// What the rows of one table show: columns made from the descriptions of types, and the words of a
// row taken from an object. Used by the live view alone.
//
// Each readable attribute that is a number is a column, and each that is a text of its own (not an
// object, a collection or a buffer). Those of the base types come first. Types of one table share
// the columns that have the same name.
#pragma once

#include <Zint/Type.h>
#include <telemetry/Schema.h>

#include <map>
#include <span>
#include <string>
#include <vector>

namespace Telemetry {

// A number that counts up for as long as the row's `since` says, although the object's own may
// begin anew.
struct Total {
  U64 carried = 0;
  U64 last = 0;  // of the object

  U64 value(U64 now, bool is32Bits) {
    if (now < last) {
      // 32 bits that went round; else it was set back.
      const bool wrapped = is32Bits && last - now > 0x80000000u;
      carried += wrapped ? U64{1} << 32 : last;
    }
    last = now;
    return carried + now;
  }
};

class RowSource {
 public:
  static constexpr U32 textBytes = 64;
  static constexpr U32 stateWord = 1;
  static constexpr U32 firstColumn = 8;  // bytes
  static constexpr U32 none = ~0u;

  // How an attribute fills its column.
  struct Cell {
    const Zint::Member* member;
    U32 column;  // its index
    U32 total;   // its index, or none
  };
  using Cells = std::vector<Cell>;

  enum class What : U8 { all, allButConstants, numbers };

  explicit RowSource(std::string name);

  // Columns for attributes that have none yet. Where the rows are made already the type's further
  // attributes are left out.
  void addType(const Zint::Type& type);
  // The same for a part of its own in each row: an attribute whose name is taken is left out, and
  // its totals count on by themselves.
  void addPart(const Zint::Type& type);
  // A column that the caller fills.
  U32 addColumn(Column column);
  // No more columns.
  void close();

  const Table& table() const { return table_; }
  U32 rowBytes() const { return rowBytes_; }
  U32 totals() const { return totals_; }
  // The table's part of the schema's text.
  std::string json() const { return table_.jsonBegin() + json_ + "]}"; }
  // The index of the total that a column is; none where it is no total, or one of a part.
  U32 totalOf(U32 column) const { return totalOf_[column]; }
  // Throws what an accessor throws.
  void fill(std::span<U32> row, const Zint::Type& type, Zint::ConstObjectAddress object,
            std::span<Total> totals, What what) const;
  static void putNumber(std::span<U32> row, const Column& column, U64 value);
  static void putText(std::span<U32> row, const Column& column, std::string_view text);
  const Column& column(U32 index) const { return table_.columns[index]; }

 private:
  void addMember(Cells& cells, const Zint::Member& member, const Zint::Type& type, bool isPart);

  Table table_;
  std::string json_;  // of the columns: written as they come, not in the turn that needs all
  U32 rowBytes_ = 0;
  U32 bytes_ = firstColumn;
  U32 totals_ = 0;
  bool isClosed_ = false;
  std::vector<U32> totalOf_;                  // by column
  std::map<const Zint::Type*, Cells> cells_;  // those of its base types included
};

}  // namespace Telemetry
