// One person's, or one script's, work on a living system.
//
//   Session session(world, std::cout);
//   session.run("set /shadow/minIntervalBetweenAudits 0.25");   // Error when it cannot be done
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "tools/console/Names.h"
#include "tools/console/TraceLines.h"
#include "tools/console/Watches.h"
#include "tools/console/World.h"

namespace Console {

class Session {
 public:
  // `out` takes what the commands print and must outlive this.
  Session(World world, std::ostream& out);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Carries out one line; an empty one is none. Whatever is wrong with it: Error, or what the
  // library raised, before anything has changed.
  void run(const std::string& line);

  // `quit` was given.
  bool isEnded() const { return isEnded_; }
  void end() { isEnded_ = true; }

  // What happens by itself (changes, trace) is told here. At first it goes to `out`; whoever keeps
  // an unfinished line on the screen puts himself in between.
  void tellIs(std::function<void(const std::string& line)> tell) { tell_ = std::move(tell); }

  std::ostream& out() { return out_; }
  const World& world() const { return world_; }
  Names& names() { return names_; }
  const Names& names() const { return names_; }
  Watches& watches() { return watches_; }
  const Watches& watches() const { return watches_; }
  TraceLines& trace() { return trace_; }

 private:
  const World world_;
  std::ostream& out_;
  std::function<void(const std::string&)> tell_;
  bool isEnded_ = false;
  Names names_;
  TraceLines trace_;
  Watches watches_;
};

}  // namespace Console
