// The connections of a control socket, and the turns in which they are served. No installed header.
#pragma once

#include <Zint/Activity.h>
#include <Zint/Sizes.h>
#include <telemetry/ControlClient.h>
#include <telemetry/ControlSocket.h>
#include <deque>
#include <list>

namespace Telemetry {

// Wakes the server. It does not keep it alive.
class ControlWake : public Zint::Clock::NotifieeConst {
 public:
  ControlWake(const Zint::Ptr<Zint::ActivityConfig>& activity,
              const Zint::Ptr<const Zint::Clock>& clock,
              std::weak_ptr<ControlSocket::Server> server)
      : NotifieeConst(activity, clock), server_(std::move(server)) {}
  void onTime() override;

 private:
  const std::weak_ptr<ControlSocket::Server> server_;
};

// Invariants:
// 1. A turn begins no further part of a command when its budget is used up. What is left over is
//    gone on with in the next one, beginning with the client that has waited longest.
// 2. A client's input is at most one read and one line, its output at most `bytesPending` and one
//    part of an answer. While more than half of that is unread, its commands rest.
// 3. What ends within a turn (the server, too) is freed after it.
class ControlSocket::Server : public std::enable_shared_from_this<ControlSocket::Server> {
 public:
  Server(const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::Ptr<const Zint::Clock>& clock,
         std::string name, const ControlOptions& options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void beginWaking();
  // Nothing is served after it.
  void end();
  void serve();
  int descriptor();
  bool administers() const { return administering != nullptr; }
  void administersIs(bool isAdministered);
  U32 clients() const { return Zint::countOf(clients_); }

  ControlWorld world;
  std::unique_ptr<ControlListener> looking;
  std::unique_ptr<ControlListener> administering;
  U64 commands = 0;
  U64 refusedClients = 0;
  U64 droppedClients = 0;
  U64 refusedLines = 0;
  U64 acceptFailures = 0;
  Zint::Seconds longestTurn = 0;

 private:
  using Clients = std::list<ControlClient>;

  // What is handed to the system at a time.
  static constexpr std::size_t sendSize = 4096;

  std::string pathOf(const char* ending) const;
  // Whether this process was forked from the one that serves: the epoll descriptor and the
  // connections are shared with that one, and are its own.
  bool isForked() const;
  void listenTo(ControlListener& listener);
  void closeListener(std::unique_ptr<ControlListener>& listener);
  void isAcceptingIs(bool isAccepting);
  // Whether this share of the turn's budget is used up.
  bool isOver(double share) const;
  void turn();
  void handleEvents();
  void accept(const ControlListener& listener, Zint::Level level);
  bool makeRoom();
  void read(ControlClient& client);
  void schedule(ControlClient& client);
  bool isBlocked(const ControlClient& client) const;
  void proceed(ControlClient& client);
  void write(ControlClient& client);
  void look(ControlClient& client);
  void drop(ControlClient& client, bool isCounted);
  void drain();
  void freeGone();
  void updateInterest(ControlClient& client);
  void armNext(Zint::Seconds taken);

  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Zint::Ptr<const Zint::Clock> clock_;
  const ControlOptions options_;
  const pid_t process_;
  Descriptor poll_;   // an epoll descriptor
  Descriptor timer_;  // in it, for a loop of the driver's own
  Zint::Ptr<ControlWake> wake_;
  Clients clients_;
  std::deque<Descriptor> closing_;   // nobody sends to them any more
  std::deque<ControlClient*> busy_;  // in the order of waiting
  ControlClient* served_ = nullptr;  // at present
  U32 turns_ = 0;
  bool isServing_ = false;
  bool isEnded_ = false;
  bool isAccepting_ = true;
  Zint::Seconds acceptAgain_ = 0;
  Zint::Seconds time_ = 0;               // of the turn
  Zint::Seconds began_ = 0;              // the system's time then
  Zint::Seconds active_ = -Zint::never;  // when a client last did something
};

}  // namespace Telemetry
