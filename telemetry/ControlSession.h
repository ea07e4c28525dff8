// One client's commands, without its connection. No installed header.
//
//   ControlSession session(world, Zint::Level::look, {.uid = 0, .pid = 17});
//   session.lineIs(R"({"do":"get","path":"/shadow/state"})");
//   while (session.isBusy()) session.step(out);       // each step takes a bounded time
#pragma once

#include <telemetry/ControlLine.h>
#include <telemetry/ControlSocket.h>
#include <telemetry/Names.h>
#include <deque>
#include <memory>

namespace Telemetry {

// What all sessions work on.
struct ControlWorld {
  Names names{{}};
  std::string name;
  std::function<void(U32 uid, U32 pid, const std::string& line)> onCommand;
  ControlEvents events;
  U64 operations = 0;  // that take as long as they take: changes, checks and plans
};

// Members of a collection that one part of a command looks at, and the size of a collection that is
// read as a whole.
constexpr U32 membersPerStep = 32;
constexpr U32 mostAsAWhole = 64;

struct ControlPeer {
  U32 uid = 0;
  U32 pid = 0;
};

// Whether a session of one level may use what needs the other one.
constexpr bool isAllowed(Zint::Level session, Zint::Level needed) { return session <= needed; }
const char* levelName(Zint::Level level);

// Builds the lines of one answer.
class ControlAnswer {
 public:
  explicit ControlAnswer(std::string id) : id_(std::move(id)) {}

  // The answer's own members, JSON after JSON, before the list: appended by the caller.
  std::string fields;
  // The next member of the list. A part that has grown large enough is sent.
  void item(std::string_view json, std::string& out);
  void hasItemsIs() { hasItems_ = true; }
  void end(std::string& out) { flush(false, out); }
  void fail(std::string_view why, std::string& out) const;

 private:
  void flush(bool isMore, std::string& out);

  const std::string id_;
  std::string items_;
  bool hasItems_ = false;
};

class ControlSession;

// A command under way.
class ControlTask {
 public:
  virtual ~ControlTask() = default;
  // A bounded part of it. True: it is done. Exceptions end it.
  virtual bool step(ControlAnswer& answer, std::string& out) = 0;
};

// Null where `do` is none. Error where a member of the line is missing or wrong.
std::unique_ptr<ControlTask> taskOf(ControlSession& session, const ControlLine& line);

class ControlSession {
 public:
  static constexpr std::size_t mostWatches = 64;
  static constexpr U32 linesPerSecond = 50;           // of watches and events
  static constexpr Zint::Seconds lookInterval = 0.1;  // between two looks at a watch

  ControlSession(ControlWorld& world, Zint::Level level, const ControlPeer& peer);
  ~ControlSession();
  ControlSession(const ControlSession&) = delete;
  ControlSession& operator=(const ControlSession&) = delete;

  // The line that a client sees first.
  std::string greeting() const;

  // REQUIRES: not busy.
  void lineIs(std::string line);
  bool isBusy() const { return task_ != nullptr || !line_.empty(); }
  // The next part of the command. Appends complete lines.
  void step(std::string& out);
  // A line that was too long to be kept.
  static void refuseLongLine(std::string& out);

  // --- What is told without being asked ---
  bool hasWatches() const { return !watches_.empty() || follows_; }
  // Begins to look at all watches and events.
  void beginLook(Zint::Seconds time);
  // Goes on. False: all have been looked at.
  bool look(std::string& out);

  // --- For tasks ---
  ControlWorld& world() { return world_; }
  Zint::Level level() const { return level_; }
  // REQUIRES: not above its own: Error.
  void levelIs(Zint::Level level);
  // Error unless the session may.
  void require(Zint::Level needed, const std::string& what) const;
  const ControlPeer& peer() const { return peer_; }
  // Tells who has changed what; called before it is done.
  void tellCommand();
  void watch(const std::string& path, const Zint::String8& text, const Zint::Member* member);
  // False when it was not watched.
  bool unwatch(const std::string& path);
  void unwatchAll();
  // From the event after that number on.
  void follow(U64 number);

 private:
  struct Watch;

  bool takeLine();  // of those that a second has
  bool lookAtWatch(Watch& watch, std::string& out);
  bool lookAtEvent(std::string& out);

  ControlWorld& world_;
  Zint::Level level_;
  const ControlPeer peer_;
  std::string line_;     // that was not begun yet
  std::string command_;  // the line of the command under way
  std::unique_ptr<ControlAnswer> answer_;
  std::unique_ptr<ControlTask> task_;

  std::vector<std::unique_ptr<Watch>> watches_;
  std::size_t lookedAt_ = 0;
  bool follows_ = false;
  U64 followed_ = 0;
  Zint::Seconds second_ = -Zint::never;  // when the present second began
  U32 linesLeft_ = linesPerSecond;
};

}  // namespace Telemetry
