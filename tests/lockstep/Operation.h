// The vocabulary of the lockstep runs: a step is an operation, the region it names and a few
// argument bytes, whose meaning Call.h gives. Eight bytes of a stream are one step, and a step is
// one line of text:
//
//   regionCreate 0 0 3 4 0 0x0f      name, region, arguments; zeros at the end may be left out
//
// Any bytes are a valid step: numbers are taken modulo what there is.
#pragma once

#include <Zint/Types.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace Lockstep {

enum class Operation : U8 {
  // On the region that the step names.
  flag,
  mode,
  entries,
  bufferDrop,
  methodRefusal,
  doClear,
  doClearRange,
  writeback,
  initializedBit,
  write,
  writeByAddress,
  read,
  readByAddress,
  lookup,
  chipAccess,
  poke,
  fix,
  registryAdd,
  registryDel,
  auditEnabled,
  requestMember,
  // On the system; no region is named.
  regionCreate,
  directory,
  registryBulk,
  accessFailure,
  state,
  overrideHardware,
  auditInterval,
  request,
  auditCall,
  reader,
  turn,
  traceLevel,
};
constexpr U32 operations = static_cast<U32>(Operation::traceLevel) + 1;
constexpr bool namesRegion(Operation operation) { return operation < Operation::regionCreate; }
const char* nameOf(Operation operation);

struct Step {
  static constexpr U32 arguments = 6;
  static constexpr U32 bytes = 2 + arguments;

  Operation operation = Operation::turn;
  U8 region = 0;
  std::array<U8, arguments> a{};
  friend bool operator==(const Step&, const Step&) = default;
};
using Steps = std::vector<Step>;

Step stepFromBytes(const U8* bytes);
Steps stepsFromBytes(const U8* bytes, std::size_t size);  // a part of a step at the end is dropped

std::string text(const Step& step);
std::string text(const Steps& steps);  // a line each
// Blank lines and what follows a # are ignored; null for any other text.
std::optional<Steps> stepsFromText(const std::string& text);

}  // namespace Lockstep
