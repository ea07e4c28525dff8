#include <telemetry/RowSource.h>

#include <Hardware/ChipAddress.h>
#include <Zint/Sizes.h>
#include <Zint/Strep.h>
#include <telemetry/Row.h>
#include <telemetry/Telemetry.h>

#include <algorithm>
#include <bit>

namespace Telemetry {
namespace {

// The attributes that count up, by the type that describes them.
struct CountingAttribute {
  std::string_view type;
  std::string_view attribute;
};
constexpr CountingAttribute countingAttributes[] = {
    {"Hardware::ChipMemory", "readCacheHits"},
    {"Hardware::ChipMemory", "writeCacheHits"},
    {"Hardware::ChipMemory", "registersFixed"},
    {"Hardware::HardwareShadow", "audits"},
    {"Driver::AuditedShadow", "findings"},
    {"Driver::AuditedShadow", "repairs"},
    {"Driver::AuditedShadow", "transients"},
    {"Driver::Chip", "absences"},
    {"Driver::Chip", "resets"},
    {"Driver::Chip", "audits"},
};

bool isCounting(const Zint::Type& type, const Zint::Member& member) {
  const bool isFigure = &type == &regionFiguresType &&
                        member.numberKind == Zint::NumberKind::unsignedNumber &&
                        !std::string_view(member.name).starts_with("findingsIn");
  return isFigure || std::any_of(std::begin(countingAttributes), std::end(countingAttributes),
                                 [&](const CountingAttribute& each) {
                                   return each.type == type.name && each.attribute == member.name;
                                 });
}

bool isShown(const Zint::Member& member) {
  if (!member.flags.has(Zint::ZintAttrIntrospectionFlags::readable)) return false;
  if (member.number != nullptr) return true;
  // The key of a collection repeats a name.
  return member.get != nullptr && member.target == nullptr && member.list == nullptr &&
         std::string_view(member.name) != "fwkKey";
}

bool isConstantText(const Zint::Member& member) {
  return member.flags.has(Zint::ZintAttrIntrospectionFlags::constructorParameter);
}

ColumnKind kindOf(const Zint::Member& member) {
  switch (member.numberKind) {
    case Zint::NumberKind::boolean:
      return ColumnKind::boolean;
    case Zint::NumberKind::unsignedNumber:
      return ColumnKind::unsignedNumber;
    case Zint::NumberKind::signedNumber:
      return ColumnKind::signedNumber;
    case Zint::NumberKind::real:
      return std::string_view(member.unit).starts_with("seconds") ? ColumnKind::time
                                                                  : ColumnKind::real;
    case Zint::NumberKind::none:
      break;
  }
  return ColumnKind::text;
}

// For people: a text without quotes, an address as the traces print it.
std::string textOf(const Zint::Member& member, Zint::ConstObjectAddress object) {
  const Zint::String8 text = member.get(object);
  const std::string_view type = member.typeName;
  if (type == "Zint::String8") return Zint::strepToValue<Zint::String8>(text).bytes();
  if (type == "Hardware::ChipAddress") {
    return Zint::strepToValue<Hardware::ChipAddress>(text).stringValue().bytes();
  }
  return text.bytes();
}

std::vector<std::pair<S64, std::string>> namesOfEnumeration(const Zint::Member& member) {
  std::vector<std::pair<S64, std::string>> names;
  const Zint::Type* type = Zint::TypeRegistry::find(member.typeName);
  if (type == nullptr || std::string_view(type->kind) != "enumeration") return names;
  for (const Zint::Member& each : type->members) names.emplace_back(each.value, each.name);
  return names;
}

}  // namespace

RowSource::RowSource(std::string name) { table_.name = std::move(name); }

U32 RowSource::addColumn(Column column) {
  column.offset = bytes_;
  bytes_ += column.bytes;
  if (bytes_ % 8 != 0) bytes_ += 4;  // one of 4 bytes
  totalOf_.push_back(none);
  json_ += (json_.empty() ? "" : ",") + toJson(column);
  table_.columns.push_back(std::move(column));
  return Zint::countOf(table_.columns) - 1;
}

void RowSource::addMember(Cells& cells, const Zint::Member& member, const Zint::Type& type,
                          bool isPart) {
  if (!isShown(member)) return;
  std::string name = member.name;
  const auto columnOfName = [&] {
    return std::find_if(table_.columns.begin(), table_.columns.end(),
                        [&](const Column& each) { return each.name == name; });
  };
  auto there = columnOfName();
  if (there != table_.columns.end() && there->type.empty() && there->unit != member.unit) {
    // What the table's own column says is another thing.
    name.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(name.front())));
    name = "own" + name;
    there = columnOfName();
  }
  U32 index = static_cast<U32>(there - table_.columns.begin());
  const ColumnKind kind = kindOf(member);
  if (there == table_.columns.end()) {
    if (isClosed_) return;
    const bool isNumber = kind != ColumnKind::text;
    index = addColumn({.name = std::move(name),
                       .kind = kind,
                       .bytes = isNumber ? (kind == ColumnKind::boolean ? 4u : 8u) : textBytes,
                       .unit = member.unit,
                       .help = member.help,
                       .type = member.typeName,
                       .isTotal = isCounting(type, member),
                       .names = namesOfEnumeration(member)});
    if (table_.columns[index].isTotal && !isPart) totalOf_[index] = totals_++;
  } else if (isPart || there->kind != kind || there->type.empty()) {
    return;  // another attribute of the same name, or a column that the caller fills
  }
  cells.push_back({&member, index, totalOf_[index]});
}

void RowSource::addType(const Zint::Type& type) {
  if (cells_.contains(&type)) return;
  if (table_.type.empty()) table_.type = type.name;
  Cells cells;
  if (type.base != nullptr) {
    addType(*type.base);
    cells = cells_[type.base];
  }
  for (const Zint::Member& member : type.members) addMember(cells, member, type, false);
  cells_[&type] = std::move(cells);
}

void RowSource::addPart(const Zint::Type& type) {
  Cells cells;
  for (const Zint::Member& member : type.members) addMember(cells, member, type, true);
  cells_[&type] = std::move(cells);
}

void RowSource::close() {
  isClosed_ = true;
  rowBytes_ = (bytes_ + rowAlignment - 1) / rowAlignment * rowAlignment;
}

void RowSource::putNumber(std::span<U32> row, const Column& column, U64 value) {
  const U32 at = column.offset / 4;
  row[at] = static_cast<U32>(value);
  if (column.bytes == 8) row[at + 1] = static_cast<U32>(value >> 32);
}

void RowSource::putText(std::span<U32> row, const Column& column, std::string_view text) {
  const std::size_t room = column.bytes - 1;
  const std::size_t length = std::min(text.size(), room);
  char* field = reinterpret_cast<char*>(row.data() + column.offset / 4);
  if (length != 0) std::memcpy(field, text.data(), length);
  std::memset(field + length, 0, column.bytes - length);
  if (text.size() > room) field[room] = 1;
}

void RowSource::fill(std::span<U32> row, const Zint::Type& type, Zint::ConstObjectAddress object,
                     std::span<Total> totals, What what) const {
  const auto found = cells_.find(&type);
  if (found == cells_.end()) return;
  for (const Cell& cell : found->second) {
    const Column& column = table_.columns[cell.column];
    const Zint::Member& member = *cell.member;
    if (column.kind == ColumnKind::text) {
      const bool isWanted =
          what == What::all || (what == What::allButConstants && !isConstantText(member));
      if (isWanted) putText(row, column, textOf(member, object));
      continue;
    }
    U64 value = member.number(object);
    if (column.kind == ColumnKind::time) {
      value = static_cast<U64>(timeOfSeconds(std::bit_cast<double>(value)));
    } else if (cell.total < totals.size()) {
      value = totals[cell.total].value(value, column.type == "U32");
    }
    putNumber(row, column, value);
  }
}

}  // namespace Telemetry
