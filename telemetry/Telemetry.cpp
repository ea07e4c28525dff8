// The library's types and their registration. The tables of members are in the ...Type.cpp files.
// Compiled for size.
#include <telemetry/Telemetry.h>

#include <telemetry/ControlSocket.h>
#include <telemetry/Publisher.h>
#include <telemetry/RegionFigures.h>

#include <algorithm>
#include <array>

namespace Telemetry {

// NOLINTNEXTLINE(cert-err58-cpp): initialised as a constant
constinit Zint::TraceHandle telemetryTraceHandle(Zint::TraceHandle::constant, "Telemetry", false);

namespace {

struct TelemetryTypeRow {
  const Zint::Type* type;
  std::string_view name;
};

template <class T>
constexpr TelemetryTypeRow row(const Zint::Type& type) {
  return {&type, Zint::typeNameOf<T>()};
}

// In the order of registration: that of the alphabet.
// clang-format off: a line for each
constexpr TelemetryTypeRow telemetryTypes[] = {
    row<ControlSocket>(controlSocketType),
    row<Publisher>(publisherType),
    row<RegionFigures>(regionFiguresType),
};
// clang-format on

constexpr std::size_t telemetryNamesSize = [] {
  std::size_t size = 0;
  for (const TelemetryTypeRow& row : telemetryTypes) size += row.name.size() + 1;
  return size;
}();

// The names in a section of their own, each terminated by a zero byte, for tools that read the
// file.
[[gnu::section(".zint.type"), gnu::used, gnu::retain]] constexpr auto telemetryTypeNames = [] {
  std::array<char, telemetryNamesSize> names{};
  auto end = names.begin();
  for (const TelemetryTypeRow& row : telemetryTypes)
    end = std::copy(row.name.begin(), row.name.end(), end) + 1;
  return names;
}();

[[gnu::constructor]] void registerTelemetryTypes() {
  telemetryTraceHandle.registerHandle();
  for (const TelemetryTypeRow& row : telemetryTypes) Zint::TypeRegistry::typeIs(*row.type);
}

[[gnu::destructor]] void unregisterTelemetryTypes() {
  for (const TelemetryTypeRow& row : telemetryTypes) Zint::TypeRegistry::typeDel(*row.type);
}

}  // namespace

}  // namespace Telemetry
