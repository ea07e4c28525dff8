// Keeps the records of Mirl in a file that other processes read, also after this one has died.
//
//   TraceLog log({.path = "/run/umbra/switch1.trace", .name = "switch1"}, tell, times);
//
// The rings of a process are one: the first log has them. A further one, while that lives, is
// another name of the same file, or has none where that cannot be. When the log is destroyed the
// records stay in the file until the process ends, or until the next log.
//
// What an earlier process of that name has left is kept as PATH.old, unless it ended in order.
// Nothing here throws because of the file: what goes wrong is counted, told, and tried again.
#pragma once

#include <sys/types.h>
#include <telemetry/EventLog.h>
#include <functional>
#include <memory>
#include <string>

namespace Telemetry {

class UMBRA_API TraceLog {
 public:
  struct Settings {
    std::string path;
    std::string name;  // of the driver
  };
  using Tell = std::function<void(const std::string& error)>;
  enum class State : U8 { running = 1, ended = 2, failed = 3 };  // as in the live view

  // Makes the file and moves what is there at once: some milliseconds, before the driver's loop.
  TraceLog(Settings settings, Tell tell, const Times& times);
  TraceLog(const TraceLog&) = delete;
  TraceLog& operator=(const TraceLog&) = delete;
  ~TraceLog();

  // Makes the file again, or moves parts; in pieces. False: there is nothing to do.
  bool work(const Budget& budget, const Times& times);
  // Once a second: looks whether the file is still there, and whether there is something to move.
  void check(const Times& times);
  // The last one: records that come later are in the file, too.
  void end(const Times& times);
  // An assertion ends the process. Nothing but stores.
  void markFailed() noexcept;

  bool isMade() const { return file_ != nullptr; }

 private:
  bool makePiece(const Times& times);
  void putOnline(const Times& times);
  bool becomeOther();
  void keepOld() const;
  void writeHeader(SharedFile& file, const Times& times) const;
  void writeRow(SharedFile& file, State state, const Times& times) const;

  const Settings settings_;
  const Tell tell_;
  const pid_t pid_;                   // a child of fork() leaves the file alone
  std::unique_ptr<SharedFile> file_;  // null before it is made, and for a further log
  std::unique_ptr<SharedFile> making_;
  Zint::Seconds retryTime_ = -Zint::never;
  Zint::Seconds toldTime_ = -Zint::never;
  U32 failuresTold_ = 0;
  bool isMoving_ = false;  // there may be parts to move
  bool isLost_ = false;    // somebody has removed the file
  bool isOther_ = false;   // another name of the file of a log that lives
};

}  // namespace Telemetry
