// The control socket: reads, sets and calls a driver's objects by name, for other processes. The
// grammar is that of docs/formats.md.
//
//   auto control = Telemetry::controlSocketFactory(activity, clock, "switch1", {.directory =
//   "/run/umbra"}); control->objectIs("shadow", shadow);                    // "/shadow" in a path
//   control->administersIs(true);                           // also switch1.admin.sock
//
//   $ echo '{"do":"get","path":"/shadow/state"}' | nc -U /run/umbra/switch1.sock
//
// It works in wake-ups of the activity: 20 ms apart while nobody asks for anything, less while
// somebody does, and at most a tenth of the thread's time. Each takes turnBudget at most, plus one
// part of a command; an operation that is called, and an attribute that is set, take as long as
// they take in C++. In a loop of the driver's own: watch descriptor(), and call serve().
//
// Clients that are slow, dead or too many cost memory and time within bounds: `bytesPending` of
// each at most, `clients` of them. Nothing here waits. A process that is forked serves nobody.
#pragma once

#include <Zint/Activity.h>
#include <Zint/Type.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Telemetry {

// How the events of the driver's log are read; none where it has no log.
struct ControlEvents {
  // The number of the newest event; 0 before the first.
  std::function<U64()> newest;
  // Sets the event of that number as a JSON object. False: there is none, or none any more.
  std::function<bool(U64 number, std::string& event)> json;
};

struct ControlOptions {
  std::string directory = "/run/umbra";
  U32 clients = 32;                  // of both sockets together
  U32 bytesPending = 256 * 1024;     // that a client may leave unread
  Zint::Seconds turnBudget = 30e-6;  // after which no further part of a command is begun
  Zint::Seconds readTimeout = 5;     // of a client that leaves its answers unread
  Zint::Seconds idleTimeout = 60;    // of a client that gives way to another one
  std::optional<U32> group = {};     // of the sockets; that of the process where it is none
};

class UMBRA_API ControlSocket : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<ControlSocket>;
  class Server;  // what is behind it

  struct Id {
    enum : Zint::AttributeId {
      path = Zint::firstAttributeId,
      administerPath,
      administers,
      clients,
      commands,
      refusedClients,
      droppedClients,
      refusedLines,
      acceptFailures,
      longestTurn
    };
  };

  // Binds NAME.sock. An old socket that nobody serves is replaced. REQUIRES: a name of 1 to 63
  // letters, digits, '.', '_' and '-', a directory that can be written, a path of at most 107
  // bytes, and no other driver of that name (range exceptions).
  ControlSocket(const Zint::Ptr<Zint::ActivityConfig>& activity,
                const Zint::Ptr<const Zint::Clock>& clock, const std::string& name,
                const ControlOptions& options);

  const Zint::Type* fwkType() const override;

 protected:
  // Closes the connections and removes the sockets.
  ~ControlSocket() override;

 public:
  Zint::String8 path() const;
  Zint::String8 administerPath() const;  // "" where there is none
  // Whether NAME.admin.sock is there. REQUIRES: as the constructor.
  bool administers() const;
  void administersIs(bool administers);

  // --- What "/" holds ---
  // Null removes the name. REQUIRES: a name of letters, digits, '-' and '_' (range exception).
  // It is held while it has the name.
  template <class T>
  void objectIs(const std::string& name, const Zint::Ptr<T>& object) {
    objectIs(name, object, std::is_const_v<T>);
  }
  void objectIs(const std::string& name, const Zint::Ptr<const Zint::PtrInterface>& object,
                bool isConst);
  std::vector<std::string> objects() const;

  // --- What the driver hears and gives ---
  // Called before each change that a client makes, with its credentials and its line. What it
  // throws refuses the command.
  void onCommandIs(std::function<void(U32 uid, U32 pid, const std::string& line)> onCommand);
  void eventsIs(ControlEvents events);

  // --- A loop of the driver's own ---
  // Readable while there is something to do. From the first call on, the activity no longer wakes
  // the socket.
  int descriptor();
  // One bounded turn. Nothing happens from within another one.
  void serve();

  // --- Figures ---
  U32 clients() const;
  U64 commands() const;        // that were begun
  U64 refusedClients() const;  // for which there was no room
  U64 droppedClients() const;  // that left their answers unread
  U64 refusedLines() const;    // too long
  U64 acceptFailures() const;  // the process had no descriptor or memory left
  Zint::Seconds longestTurn() const;

 private:
  const std::shared_ptr<Server> server_;
};

UMBRA_API Zint::Ptr<ControlSocket> controlSocketFactory(
    const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::Ptr<const Zint::Clock>& clock,
    const std::string& name, const ControlOptions& options = {});

class Publisher;

// The socket of a driver that publishes: it has the publisher's name, directory, shadows, readers,
// alarm boards and governors, shows its event log, and writes there who has changed what.
UMBRA_API Zint::Ptr<ControlSocket> controlSocketFactory(
    const Zint::Ptr<Publisher>& publisher, const Zint::Ptr<Zint::ActivityConfig>& activity,
    const Zint::Ptr<const Zint::Clock>& clock, bool administers, ControlOptions options = {});

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ControlSocket*) { return "Telemetry::ControlSocket"; }

}  // namespace Telemetry
