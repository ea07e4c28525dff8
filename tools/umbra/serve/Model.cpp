#include "tools/umbra/serve/Model.h"

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstring>

namespace Serve {

Time wallTime() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

S64 Column::integer(std::span<const U32> row) const {
  const std::size_t at = offset / sizeof(U32);
  if (kind == Kind::text || (offset + bytes) / sizeof(U32) > row.size()) return 0;
  const U64 low = row[at];
  if (bytes < sizeof(U64)) {
    if (kind == Kind::signedNumber) return static_cast<S32>(row[at]);
    return static_cast<S64>(low);
  }
  const U64 bits = low | U64{row[at + 1]} << 32;
  if (kind == Kind::real) return static_cast<S64>(std::bit_cast<double>(bits));
  return static_cast<S64>(bits);
}

double Column::number(std::span<const U32> row) const {
  if (kind == Kind::real && bytes == sizeof(U64) && (offset + bytes) / sizeof(U32) <= row.size()) {
    const std::size_t at = offset / sizeof(U32);
    return std::bit_cast<double>(U64{row[at]} | U64{row[at + 1]} << 32);
  }
  const S64 value = integer(row);
  return kind == Kind::unsignedNumber ? static_cast<double>(static_cast<U64>(value))
                                      : static_cast<double>(value);
}

std::string Column::text(std::span<const U32> row) const {
  if (kind == Kind::text) {
    const auto all = std::as_bytes(row);
    if (std::size_t{offset} + bytes > all.size()) return {};
    std::string value(reinterpret_cast<const char*>(all.data()) + offset, bytes);
    const bool cut = bytes > 0 && value.back() == 1;
    if (cut) value.back() = 0;
    value.resize(std::strlen(value.c_str()));
    if (cut) value += "...";
    return value;
  }
  const S64 value = integer(row);
  if (const auto found = names.find(value); found != names.end()) return found->second;
  if (kind == Kind::boolean) return value != 0 ? "true" : "false";
  if (kind == Kind::real) return std::to_string(number(row));
  return kind == Kind::unsignedNumber ? std::to_string(static_cast<U64>(value))
                                      : std::to_string(value);
}

const Column* Table::find(std::string_view columnName) const {
  const auto found = std::ranges::find(columns, columnName, &Column::name);
  return found == columns.end() ? nullptr : &*found;
}

const char* nameOf(Liveness liveness) {
  switch (liveness) {
    case Liveness::live:
      return "live";
    case Liveness::stalled:
      return "stalled";
    case Liveness::ended:
      return "ended";
    case Liveness::dead:
      return "dead";
  }
  return "";
}

const Table* Driver::table(std::string_view tableName) const {
  for (const auto& each : tables) {
    if (each->name == tableName) return each.get();
  }
  return nullptr;
}

std::string kindName(U32 kind) {
  static constexpr std::array names = {"",          "finding",    "adopted", "pass",   "alarm",
                                       "chip",      "patrol",     "mode",    "policy", "command",
                                       "assertion", "suppressed", "start",   "end"};
  if (kind == 0 || kind >= names.size()) return "kind " + std::to_string(kind);
  return names[kind];
}

const char* natureName(S32 nature) {
  static constexpr std::array names = {"unverified", "soft", "recurring", "stuck"};
  if (nature < 0 || static_cast<std::size_t>(nature) >= names.size()) return "";
  return names[static_cast<std::size_t>(nature)];
}

}  // namespace Serve
