// Reads the event log of a driver, while it runs or after it has died.
//
//   EventReader log("/run/umbra/switch1.events");
//   U64 next = log.last() + 1;                       // follow: what comes from now on
//   const EventReader::Batch batch = log.read(next, 100);
//   next = batch.next;
//
// It never waits, and maps nothing. Not for two threads at once.
#pragma once

#include <Zint/Api.h>
#include <telemetry/Event.h>
#include <memory>

namespace Telemetry {

class ReadFile;

class UMBRA_API EventReader {
 public:
  static constexpr U32 majorVersion = 1;

  struct Batch {
    std::vector<Event> events;  // in the order of their numbers
    U64 next = 1;               // the number to go on with
    U64 overwritten = 0;        // events in between that the ring no longer has
    // Events that are not there: their writer died in them, or somebody has removed their file.
    U64 missing = 0;
  };

  // REQUIRES: an event log of a version that this can read (range exception).
  explicit EventReader(const std::string& path);
  EventReader(EventReader&&) noexcept;
  EventReader& operator=(EventReader&&) noexcept;
  ~EventReader();

  const std::string& path() const;
  const std::string& name() const { return name_; }  // of the driver
  U32 records() const { return records_; }           // in the ring
  U32 pid() const;                                   // of the last writer
  // Whether there is another file of that name, or none: then open the name again.
  bool isReplaced() const;

  U64 last() const;        // the number of the newest event, 0 for none
  U64 first() const;       // the number of the oldest one that the ring may still have
  U64 suppressed() const;  // events that a limiter kept out, so far
  // At most `max` events from number `from` on; fewer at the end, or where some were lost.
  Batch read(U64 from, U32 max) const;

 private:
  U64 count(U32 word) const;

  std::unique_ptr<ReadFile> file_;
  std::string name_;
  U32 records_ = 0;
};

}  // namespace Telemetry
