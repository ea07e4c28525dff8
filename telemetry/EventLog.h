// Writes the event log: a ring of records in a file that other processes read, and that a driver
// which starts again goes on with.
//
//   log.add({.kind = EventKind::chip, .verdict = 1, .chip = "switch0", .text = "no answer"},
//   times);
//
// Nothing here throws because of the file: what goes wrong is counted, told, and tried again.
// Events that come before there is a file wait, as many as `waitingMax`.
#pragma once

#include <Zint/Clock.h>
#include <telemetry/Event.h>

#include <array>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

namespace Telemetry {

class Budget;
class SharedFile;

// Now, by the clocks that records carry.
struct UMBRA_API Times {
  S64 monotonic = 0;  // nanoseconds, as the following
  S64 wallClock = 0;
  Zint::Seconds clock = 0;  // of the publisher
};

class UMBRA_API EventLog {
 public:
  static constexpr U32 waitingMax = 256;

  struct Settings {
    std::string path;
    std::string name;     // of the driver
    U32 records = 16384;  // in the ring; at least 16
    double rate = 1000;   // events a second that a limiter lets through
    double burst = 2000;  // at once
  };
  using Tell = std::function<void(const std::string& error)>;

  // What an event holds, without a copy.
  struct Data {
    EventKind kind;
    U32 verdict = 0;
    U32 nature = 0;
    U32 entry = 0;
    U32 entrySize = 0;
    U32 uid = nobody;
    U32 pid = nobody;
    std::string_view region = {};
    std::string_view chip = {};
    std::span<const U8> expected = {};
    std::span<const U8> actual = {};
    std::string_view text = {};
  };

  // Reads how far an earlier driver of that name has counted. `tell` is told what goes wrong.
  EventLog(Settings settings, Tell tell);
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;
  ~EventLog();

  // False: the limiter kept it out. Start, end, assertion and what the limiter itself tells pass.
  bool add(const Data& data, const Times& times);
  // Somebody has set an attribute or called an operation.
  bool command(U32 uid, U32 pid, std::string_view line, const Times& times);
  // Tells how many were kept out since the last call, if there were any.
  void tellSuppressed(const Times& times);

  // Makes the file, or goes on with it. False: there is nothing to do.
  bool work(const Budget& budget, const Times& times);
  // Looks whether the file is still there. Where it is not, a new one is made with what it held.
  void check();

  bool isMade() const { return file_ != nullptr; }
  U64 last() const { return last_; }
  U64 suppressed() const { return suppressed_; }

 private:
  static constexpr U32 recordWords = 64;
  using Record = std::array<U32, recordWords>;

  bool isAllowed(const Data& data, const Times& times);
  void write(const Record& record);
  static void writeTo(const SharedFile& file, U32 place, const Record& record);
  bool rescue();
  void writeCounts();
  void begin();
  void writeHeader();
  void putOnline();

  const Settings settings_;
  const Tell tell_;
  std::unique_ptr<SharedFile> file_;  // null before it is made
  std::unique_ptr<SharedFile> making_;
  std::vector<Record> waiting_;
  U64 last_ = 0;
  U64 suppressed_ = 0;
  U64 suppressedTold_ = 0;
  double tokens_;
  Zint::Seconds refilled_ = 0;
  Zint::Seconds retryTime_ = -Zint::never;
  bool isNew_ = true;  // the file that is being made
  bool isLost_ = false;
  U32 rescued_ = 0;  // records of the lost file that the new one has
};

}  // namespace Telemetry
