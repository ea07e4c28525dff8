// A driver's control socket: JSON lines, as docs/formats.md has them.
//
//   Control control = Control::toLook(settings, *theDriver(settings));
//   const Json state = control.ask({{"do", "get"}, {"path", "/shadow/state"}});
#pragma once

#include <functional>
#include <optional>

#include "tools/umbra/Drivers.h"

namespace Tool {

class Control {
 public:
  // The socket that looks, or else the other one. Failure says what to do.
  static Control toLook(const Settings& settings, const Telemetry::LiveReader& view);
  // The socket that operates and administers.
  static Control toOperate(const Settings& settings, const Telemetry::LiveReader& view);
  // The one that may do most.
  static Control toDoMost(const Settings& settings, const Telemetry::LiveReader& view);

  Control(Control&& other) noexcept;
  Control& operator=(Control&&) = delete;
  ~Control();

  const Json& greeting() const { return greeting_; }
  int descriptor() const { return socket_; }
  // False once the driver has closed it, or an answer is missing: what follows cannot be
  // understood.
  bool isOpen() const { return isOpen_; }

  // The answer, its parts joined: `items` holds those of all parts. One that is an error is a
  // Failure with its text; so is an answer that does not come in time.
  Json ask(Json request);
  // As `ask`, but each part is given to `take` as it comes.
  void ask(Json request, const std::function<void(const Json&)>& take);
  // The answer, or nothing when it is an error.
  std::optional<Json> askIfAllowed(const Json& request);

  // What comes without a question: watches and events.
  void unaskedIs(std::function<void(const Json&)> take) { unasked_ = std::move(take); }
  // Takes what has come. Failure at the end of the connection.
  void receive();

 private:
  Control(const std::string& path, double timeout);
  std::optional<Json> line(bool waits);
  void send(const std::string& text);
  [[noreturn]] void refuseTime();
  [[noreturn]] void refuse(const std::string& text);

  std::string path_;
  double timeout_;
  int socket_ = -1;
  bool isOpen_ = true;
  std::string pending_;
  Json greeting_;
  U64 asked_ = 0;
  std::function<void(const Json&)> unasked_;
};

// A name as it is written in a path: in quotes where it has other characters than letters, digits,
// '-', '_' and '.'.
std::string quoted(const std::string& name);
// The objects of "/" of that type, as paths.
std::vector<std::string> objectsOf(Control& control, const std::string& type);
// "/shadow/chipMemory/vlan" of a region's name, or the path itself. Failure (nothing found).
std::string regionPath(Control& control, const std::string& region);
// The last part of a path, without its quotes.
std::string nameOfPath(const std::string& path);
// The shadow of a region's path.
std::string shadowOfPath(const std::string& region);
U64 entriesOf(Control& control, const std::string& region);

// How the value of an entry of a `dump` is known: "write", "learning" or "unknown"; "yes" where the
// shadow does not tell the first two apart.
std::string knownBy(const Json& item);

// "FIRST", "FIRST..LAST" or "FIRST+COUNT" of `entries` entries: first and count. Failure (wrong
// usage, nothing found).
std::pair<U64, U64> rangeOf(const std::string& text, U64 entries);
// One entry of them: the same failures.
U64 entryOf(const std::string& text, U64 entries);

}  // namespace Tool
