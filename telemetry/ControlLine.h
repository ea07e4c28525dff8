// A line of a client, read into a command. No installed header.
#pragma once

#include <Zint/Types.h>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Telemetry {

// Bounds of a line: beyond them the parser takes longer than a turn may.
constexpr std::size_t longestLine = 1024;  // bytes, without the newline
constexpr U32 deepestLine = 32;            // braces and brackets
constexpr std::size_t longestId = 64;      // bytes

// A value of a line, as a text that the library reads.
struct ControlValue {
  enum Kind { text, number, truth, null };

  Kind kind = null;
  std::string bytes;  // a number as it was written
};

using ControlValues = std::vector<std::pair<std::string, ControlValue>>;

struct ControlLine {
  std::string id;  // JSON; "" for none
  ControlValues members;
  std::optional<ControlValues> arguments;

  // Null when it was not given.
  const ControlValue* find(std::string_view name) const;
};

// Error: why it is no command. `id` is set as soon as it is known.
ControlLine readLine(std::string_view line, std::string& id);

}  // namespace Telemetry
