// Reads the records of Mirl that a driver has written, while it runs or after it has died.
//
//   TraceReader trace("/run/umbra/switch1.trace");
//   TraceReader::Position position;                    // from the beginning
//   for (const TraceRecord& record : trace.read(position).records) print(record.text);
//   ... trace.read(position) ...                       // what has come since
//
// It never waits, and maps nothing. Not for two threads at once.
#pragma once

#include <Zint/Api.h>
#include <Zint/WakeQueue.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Telemetry {

class ReadFile;

struct TraceRecord {
  U32 level = 0;
  U32 line = 0;            // of the statement; 0 where its format is not known
  Zint::Seconds time = 0;  // of the driver's clock
  std::string text;        // the format with its arguments
};

class UMBRA_API TraceReader {
 public:
  static constexpr U32 majorVersion = 1;

  // The numbers of the records to go on with, one for each part of the file.
  struct Position {
    std::vector<U64> next;
  };
  struct Look {
    std::vector<TraceRecord> records;  // in the order of their times
    U64 overwritten = 0;               // records since the position that are there no more
    U32 tornParts = 0;                 // that could not be read: always written, or not sound
  };

  // REQUIRES: a file of records of a version that this can read (range exception).
  explicit TraceReader(const std::string& path);
  TraceReader(TraceReader&&) noexcept;
  TraceReader& operator=(TraceReader&&) noexcept;
  ~TraceReader();

  const std::string& path() const;
  const std::string& name() const { return name_; }  // of the driver
  U32 pid() const { return pid_; }
  U32 levels() const { return levels_; }
  // 1 running, 2 ended in order, 3 ended by an assertion; of a process that is no more, 1 means
  // that it died.
  U32 state() const;
  // Whether there is another file of that name, or none: then open the name again.
  bool isReplaced() const;
  // Parts that may hold records which are not in the file, and formats that are not.
  U32 partsLeftOut() const;
  U32 formatsLeftOut() const;
  // Nanoseconds of wall-clock time for the time of a record.
  S64 wallClockOf(Zint::Seconds time) const;

  // What has come since the position, of these levels (a bit for each); moves it on.
  Look read(Position& position, U32 levelMask = ~U32{0}) const;

 private:
  struct Format {
    U32 line;
    std::string text;
  };
  struct Part;

  std::vector<U32> row() const;
  void readFormats() const;
  bool readPart(U32 part, Part& look) const;
  bool isSound(Part& look) const;

  std::unique_ptr<ReadFile> file_;
  std::string name_;
  U32 pid_ = 0;
  U32 formats_ = 0, formatsBytes_ = 0, firstEntry_ = 0;
  U32 parts_ = 0, levels_ = 0, partsPerLevel_ = 0;
  U32 partBytes_ = 0, begin_ = 0, end_ = 0, cleared_ = 0, records_ = 0, starts_ = 0, unit_ = 0;
  // Those that were there at the last look; they never change.
  mutable std::map<U32, Format> known_;
  mutable U32 knownBytes_ = 0;
};

}  // namespace Telemetry
