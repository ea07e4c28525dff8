// What the server knows of the drivers of a machine: plain values, as their live views and event
// logs held them at one moment. docs/formats.md says what each number means.
//
// Rows stay as words, because ten thousand of them are looked at several times a second and few are
// shown; a column reads its value out of them.
#pragma once

#include <Zint/Types.h>

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Serve {

// Nanoseconds. never: has not happened, or will not.
using Time = S64;
constexpr Time never = INT64_MAX;
constexpr Time second = 1'000'000'000;

// Of the wall clock.
Time wallTime();

enum class Kind { boolean, unsignedNumber, signedNumber, real, time, text };

struct Column {
  std::string name;
  Kind kind = Kind::unsignedNumber;
  U32 offset = 0;  // bytes from the beginning of the row
  U32 bytes = 0;
  std::string unit;
  std::string help;
  bool total = false;                     // counts up since the row's `since`
  std::map<S64, std::string> names = {};  // of an enumeration

  bool isNumber() const { return kind != Kind::text; }
  // What the words of a row hold here. A time is in nanoseconds.
  S64 integer(std::span<const U32> row) const;
  double number(std::span<const U32> row) const;
  // Of a text its bytes, of an enumeration its name or number, of anything else the number.
  std::string text(std::span<const U32> row) const;
};

enum RowState : U32 { freeRow = 0, usedRow = 1, goneRow = 2 };

struct Table {
  std::string name;
  std::vector<Column> columns = {};
  U32 rowWords = 0;
  std::vector<U32> words = {};  // all rows, one after the other
  std::vector<bool> torn = {};  // a bit for each row

  U32 rows() const { return rowWords == 0 ? 0 : static_cast<U32>(words.size() / rowWords); }
  std::span<const U32> row(U32 index) const {
    return std::span(words).subspan(std::size_t{index} * rowWords, rowWords);
  }
  U32 state(U32 index) const { return words[std::size_t{index} * rowWords + 1]; }
  // Null if there is none.
  const Column* find(std::string_view columnName) const;
};

enum class Liveness { live, stalled, ended, dead };
const char* nameOf(Liveness liveness);

struct Driver {
  std::string name;
  U32 pid = 0;
  U32 pointerBits = 0;
  Liveness liveness = Liveness::live;
  bool assertionEnded = false;
  Time since = 0;  // the liveness; wall clock, as all times here
  Time start = 0;
  Time heartbeat = 0;
  Time clockOffset = 0;  // wall-clock time less the time of rows and events
  U64 heartbeats = 0;
  U32 notFit = 0;       // objects that found no row
  std::string looking;  // path of the socket, empty where there is none
  std::string operating;
  std::vector<std::shared_ptr<const Table>> tables;
  bool hasLog = false;
  U64 events = 0;  // number of the newest
  U64 suppressed = 0;

  // Null if there is none.
  const Table* table(std::string_view tableName) const;
  // Of a time in a row; never stays never.
  Time wall(Time time) const { return time == never ? never : time + clockOffset; }
};

// A record of the event log.
struct Event {
  U64 number = 0;
  U32 kind = 0;
  Time time = 0;  // monotonic
  Time wall = 0;
  S32 verdict = 0;
  S32 nature = 0;
  U32 entry = 0;
  U32 entrySize = 0;
  U32 uid = ~U32{0};
  U32 pid = 0;
  std::string region;
  std::string chip;
  std::vector<U8> expected;  // at most 16 bytes
  std::vector<U8> actual;
  std::string text;
};

enum EventKind : U32 {
  findingEvent = 1,
  adoptedEvent,
  passEvent,
  alarmEvent,
  chipEvent,
  patrolEvent,
  modeEvent,
  policyEvent,
  commandEvent,
  assertionEvent,
  suppressedEvent,
  startEvent,
  endEvent
};
// "finding"; another number as "kind 17".
std::string kindName(U32 kind);
// "soft"; of another number nothing.
const char* natureName(S32 nature);

using Drivers = std::vector<std::shared_ptr<const Driver>>;

// Where the drivers are seen. Used by one thread.
class Source {
 public:
  virtual ~Source() = default;
  // Those that there are now, in the order of their names.
  virtual Drivers drivers() = 0;
  // The events of a driver from `from` on that can still be read, oldest first, at most `max`.
  virtual std::vector<Event> events(const std::string& driver, U64 from, U32 max) = 0;
};

}  // namespace Serve
