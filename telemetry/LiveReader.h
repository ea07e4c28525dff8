// Reads the live view of a driver, of either pointer width, while it runs, hangs, or after it has
// died.
//
//   LiveReader view("/run/umbra/switch1.live");
//   if (view.liveness().state == Liveness::live) ...
//   const Table* regions = view.find("region");
//   for (const Row& row : view.rows(*regions))
//     if (row.isUsed()) std::cout << row.text(*regions->find("name")) << "\n";
//
// It never waits. It reads what it looks at by system calls and maps nothing, so a file that is cut
// short is no danger. Not for two threads at once.
#pragma once

#include <Zint/Api.h>
#include <telemetry/Schema.h>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Telemetry {

class ReadFile;

// A copy of one row.
class UMBRA_API Row {
 public:
  enum State : U32 { free_ = 0, used_ = 1, gone_ = 2 };

  explicit Row(std::vector<U32> words, bool isTorn) : words_(std::move(words)), isTorn_(isTorn) {}

  State state() const { return static_cast<State>(words_[1]); }
  bool isUsed() const { return state() == used_; }
  // It was written at every look, or its writer died in it: some values may be newer than others.
  bool isTorn() const { return isTorn_; }

  // The value of a column of its table.
  bool isTrue(const Column& column) const { return words_[column.offset / 4] != 0; }
  U64 number(const Column& column) const;
  S64 signedNumber(const Column& column) const { return static_cast<S64>(number(column)); }
  double real(const Column& column) const;
  // Nanoseconds; the largest number: never, the smallest: before everything.
  S64 time(const Column& column) const { return static_cast<S64>(number(column)); }
  // Of a text column.
  std::string text(const Column& column, bool* isCut = nullptr) const;
  // Of any column, for people: "true", "17", "buffered", "never", seconds.
  std::string shown(const Column& column) const;

  std::span<const U32> words() const { return words_; }

 private:
  std::vector<U32> words_;
  bool isTorn_;
};

struct UMBRA_API Heartbeat {
  enum State : U32 { running = 1, ended = 2, failed = 3 };  // failed: by an assertion
  U32 state = 0;
  S64 monotonic = 0;  // nanoseconds, as the following
  S64 wallClock = 0;
  U64 count = 0;
  U32 notFit = 0;       // objects that found no row
  U32 pointerBits = 0;  // of the process
  bool isTorn = false;
};

struct UMBRA_API Liveness {
  enum State : U32 { live, stalled, dead, ended };
  State state = dead;
  S64 since = 0;       // wall clock, nanoseconds: of the last heartbeat
  S64 sinceAgo = 0;    // nanoseconds since then; 0 where it cannot be known
  std::string reason;  // "the process is no more"
};
// "live", "stalled", "dead", "ended".
UMBRA_API const char* nameOf(Liveness::State state);

// What the machine says of processes and times; replaced by tests.
class UMBRA_API Machine {
 public:
  virtual ~Machine();
  virtual S64 monotonic() const;
  virtual S64 wallClock() const;
  virtual std::string bootId() const;  // 16 bytes; empty where it is not known
  // Ticks since the boot; 0 when there is no such process.
  virtual U64 startOfProcess(U32 pid) const;
};

class UMBRA_API LiveReader {
 public:
  static constexpr U32 majorVersion = 1;
  static constexpr S64 stalledAfter = 3'000'000'000;  // nanoseconds without a heartbeat

  // REQUIRES: a live view of a version that this can read (range exception).
  explicit LiveReader(const std::string& path);
  LiveReader(LiveReader&&) noexcept;
  LiveReader& operator=(LiveReader&&) noexcept;
  ~LiveReader();

  const std::string& path() const;
  const std::string& name() const { return name_; }  // of the driver
  U32 minorVersion() const { return minorVersion_; }
  U32 pid() const { return pid_; }
  S64 startTime() const { return startTime_; }  // wall clock
  // Empty where there is none.
  std::string socket() const;       // that looks
  std::string adminSocket() const;  // that operates and administers

  // Whether the driver has made another file of that name, or somebody has removed it: then open
  // the name again.
  bool isReplaced() const;
  Heartbeat heartbeat() const;
  Liveness liveness() const;
  Liveness liveness(const Machine& machine) const;

  const Schema& schema() const { return schema_; }
  const std::vector<Table>& tables() const { return schema_.tables; }
  const Table* find(std::string_view table) const { return schema_.find(table); }
  // REQUIRES: a row of the table (range exception).
  Row row(const Table& table, U32 index) const;
  // All of them, in few system calls; free ones too.
  std::vector<Row> rows(const Table& table) const { return rows(table, 0, table.rows); }
  std::vector<Row> rows(const Table& table, U32 first, U32 count) const;

 private:
  std::unique_ptr<ReadFile> file_;
  Schema schema_;
  std::string name_;
  U32 minorVersion_ = 0;
  U32 pid_ = 0;
  S64 startTime_ = 0;
  U64 processStart_ = 0;
  std::string bootId_;
};

}  // namespace Telemetry
