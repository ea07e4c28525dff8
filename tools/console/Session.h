// The work of one person or one script on a running system.
//
//   Session session(world, std::cout);
//   session.run("set /shadow/minIntervalBetweenAudits 0.25");   // Error when it cannot be done
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "tools/console/Library.h"
#include "tools/console/TraceLines.h"
#include "tools/console/Watches.h"
#include "tools/console/Words.h"
#include "tools/console/World.h"

namespace Console {

class Session {
 public:
  // `out` takes what the commands print and must outlive this.
  Session(World world, std::ostream& out);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Runs one line; an empty one does nothing. A wrong line: Error, or what the library raised,
  // before anything has changed. `COMMAND | SHELL COMMAND` hands the output to a program.
  void run(const std::string& line);

  // `quit` was given.
  bool isEnded() const { return isEnded_; }
  void end() { isEnded_ = true; }

  // Prints what happens without a command: changes and trace. It goes to `out` until an editor of
  // lines, which has an unfinished line on the screen, takes it.
  void printIs(std::function<void(const std::string& line)> print) { print_ = std::move(print); }

  // Where commands print.
  std::ostream& out() { return *out_; }
  const World& world() const { return world_; }
  Names& names() { return names_; }
  const Names& names() const { return names_; }
  Watches& watches() { return watches_; }
  const Watches& watches() const { return watches_; }
  TraceLines& trace() { return trace_; }

 private:
  void runCommand(Words words);

  const World world_;
  std::ostream* out_;
  std::function<void(const std::string&)> print_;
  bool isEnded_ = false;
  Names names_;
  TraceLines trace_;
  Watches watches_;
};

}  // namespace Console
