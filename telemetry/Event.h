// One event of a driver, as it stands in the event log.
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>
#include <string>
#include <vector>

namespace Telemetry {

enum class EventKind : U32 {
  finding = 1,
  adopted,
  pass,
  alarm,
  chip,
  patrol,
  mode,
  policy,
  command,
  assertion,
  suppressed,
  start,
  end
};
// "finding", "adopted", ...; "event 99" for another number.
UMBRA_API std::string nameOf(EventKind kind);

constexpr U32 nobody = ~0u;  // user id and process id of what nobody asked for

struct UMBRA_API Event {
  EventKind kind = EventKind::finding;
  U64 number = 0;
  S64 monotonic = 0;  // nanoseconds, as the following
  S64 wallClock = 0;
  U32 verdict = 0;  // a Driver::Verdict, or by kind
  U32 nature = 0;   // a Driver::Nature
  U32 entry = 0;
  U32 entrySize = 0;  // bytes
  U32 uid = nobody;   // of who asked for it
  U32 pid = nobody;
  std::string region = {};  // its beginning, where it was too long for the record
  bool regionIsCut = false;
  std::string chip = {};
  std::vector<U8> expected = {};  // at most the first 16 bytes
  std::vector<U8> actual = {};
  std::string text = {};  // as the region
  bool textIsCut = false;
};

}  // namespace Telemetry
