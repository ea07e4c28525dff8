#include <telemetry/ControlServer.h>

#include <cxxabi.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <system_error>

namespace Telemetry {
namespace {

constexpr Zint::Seconds acceptPause = 1;  // when the process has no descriptor or memory left
// Between two turns: while something is under way, just after, for a second after, and otherwise.
constexpr Zint::Seconds busyInterval = 100e-6;
constexpr Zint::Seconds recentInterval = 250e-6, recentTime = 0.02;
constexpr Zint::Seconds activeInterval = 1e-3, activeTime = 1;
constexpr Zint::Seconds idleInterval = 20e-3;
// A turn is followed by a rest that many times as long.
constexpr double restShare = 9;

Zint::Seconds threadTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<Zint::Seconds>(time.tv_sec) + static_cast<Zint::Seconds>(time.tv_nsec) * 1e-9;
}

void watchDescriptor(int poll, int operation, int descriptor, U32 events, void* tag) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = tag;
  if (epoll_ctl(poll, operation, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
}

}  // namespace

ControlSocket::Server::Server(const Zint::Ptr<Zint::ActivityConfig>& activity,
                              const Zint::Ptr<const Zint::Clock>& clock, std::string name,
                              const ControlOptions& options)
    : activity_(activity),
      clock_(clock),
      options_(options),
      process_(::getpid()),
      poll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!poll_) throw std::system_error(errno, std::generic_category(), "epoll_create1");
  world.name = std::move(name);
  looking = std::make_unique<ControlListener>(pathOf(".sock"), options_.group);
  listenTo(*looking);
}

ControlSocket::Server::~Server() = default;

void ControlSocket::Server::beginWaking() {
  wake_ = Zint::makePtr<ControlWake>(activity_, clock_, weak_from_this());
  wake_->timeMinIs(0.0);
}

void ControlSocket::Server::end() {
  isEnded_ = true;
  if (wake_ != nullptr) wake_->hasNotificationActiveIs(false);
  closeListener(looking);
  closeListener(administering);
  for (ControlClient& client : clients_) drop(client, false);
  if (!isServing_) freeGone();
}

std::string ControlSocket::Server::pathOf(const char* ending) const {
  return options_.directory + "/" + world.name + ending;
}

void ControlSocket::Server::listenTo(ControlListener& listener) {
  watchDescriptor(poll_.number(), EPOLL_CTL_ADD, listener.descriptor(), isAccepting_ ? EPOLLIN : 0u,
                  &listener);
}

bool ControlSocket::Server::isForked() const { return ::getpid() != process_; }

void ControlSocket::Server::closeListener(std::unique_ptr<ControlListener>& listener) {
  if (listener == nullptr) return;
  if (!isForked()) epoll_ctl(poll_.number(), EPOLL_CTL_DEL, listener->descriptor(), nullptr);
  listener.reset();
}

void ControlSocket::Server::administersIs(bool isAdministered) {
  if (isAdministered == administers()) return;
  if (!isAdministered) {
    closeListener(administering);
    for (ControlClient& client : clients_) {
      if (isAllowed(client.session.level(), Zint::Level::operate)) drop(client, false);
    }
    if (!isServing_) freeGone();
    return;
  }
  auto listener = std::make_unique<ControlListener>(pathOf(".admin.sock"), options_.group);
  listenTo(*listener);
  administering = std::move(listener);
}

// --- Turns ---

bool ControlSocket::Server::isOver(double share) const {
  return Zint::MonotonicClock::systemTime() - began_ >= share * options_.turnBudget;
}

void ControlSocket::Server::serve() {
  if (isServing_ || isEnded_ || isForked()) return;
  isServing_ = true;
  time_ = clock_->time();
  began_ = Zint::MonotonicClock::systemTime();
  const U64 operations = world.operations;
  const Zint::Seconds cpu = threadTime();
  served_ = nullptr;
  try {
    turn();
  } catch (abi::__forced_unwind&) {
    isServing_ = false;
    throw;
  } catch (...) {
    // No memory, most likely: who needed it pays.
    if (served_ != nullptr) drop(*served_, true);
  }
  freeGone();
  isServing_ = false;
  if (world.operations == operations) longestTurn = std::max(longestTurn, threadTime() - cpu);
  if (isEnded_) return;
  armNext(Zint::MonotonicClock::systemTime() - began_);
}

void ControlSocket::Server::turn() {
  if (!isAccepting_ && time_ >= acceptAgain_) isAcceptingIs(true);
  handleEvents();
  while (!busy_.empty() && !isEnded_ && !isOver(1)) {
    ControlClient& client = *busy_.front();
    busy_.pop_front();
    client.isBusy = false;
    if (!client.isGone) proceed(client);
  }
  for (ControlClient& client : clients_) {
    if (isEnded_) return;
    if (client.isGone) continue;
    served_ = &client;
    look(client);
    const bool isLate = client.pending() != 0 && time_ - client.lastRead > options_.readTimeout;
    if (isLate || client.pending() > options_.bytesPending) {
      drop(client, true);
      continue;
    }
    updateInterest(client);
  }
  while (!closing_.empty() && !isOver(1)) drain();
}

// To close a connection frees what it has sent and nobody has read: in pieces.
void ControlSocket::Server::drain() {
  std::array<char, 4096> bytes;
  const ssize_t size =
      recv(closing_.front().number(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_TRUNC);
  if (size <= 0) closing_.pop_front();
}

void ControlSocket::Server::handleEvents() {
  std::array<epoll_event, 64> events;
  const int found = epoll_wait(poll_.number(), events.data(), static_cast<int>(events.size()), 0);
  if (found <= 0) return;
  const auto count = static_cast<U32>(found);
  ++turns_;
  for (U32 i = 0; i < count && !isEnded_; ++i) {
    // Reading leaves half of the turn to what was read.
    if (i != 0 && isOver(0.5)) return;
    const epoll_event& event = events[(i + turns_) % count];
    if (event.data.ptr == nullptr) {
      U64 expirations = 0;
      [[maybe_unused]] const auto size = ::read(timer_.number(), &expirations, sizeof expirations);
    } else if (event.data.ptr == looking.get()) {
      accept(*looking, Zint::Level::look);
    } else if (event.data.ptr == administering.get()) {
      accept(*administering, Zint::Level::administer);
    } else {
      auto& client = *static_cast<ControlClient*>(event.data.ptr);
      served_ = &client;
      active_ = time_;
      if (client.isGone) continue;
      if ((event.events & EPOLLOUT) != 0) write(client);
      if ((event.events & EPOLLIN) != 0) {
        read(client);
      } else if ((event.events & (EPOLLHUP | EPOLLERR)) != 0) {
        drop(client, false);
      }
    }
  }
}

// --- New clients ---

void ControlSocket::Server::isAcceptingIs(bool isAccepting) {
  isAccepting_ = isAccepting;
  for (ControlListener* listener : {looking.get(), administering.get()}) {
    if (listener == nullptr) continue;
    watchDescriptor(poll_.number(), EPOLL_CTL_MOD, listener->descriptor(),
                    isAccepting ? EPOLLIN : 0u, listener);
  }
}

void ControlSocket::Server::accept(const ControlListener& listener, Zint::Level level) {
  Descriptor socket(accept4(listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket) {
    const bool isShort = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (!isShort) return;  // it has gone already
    ++acceptFailures;
    acceptAgain_ = time_ + acceptPause;
    isAcceptingIs(false);
    return;
  }
  active_ = time_;
  ucred peer{};
  socklen_t size = sizeof peer;
  const bool isKnown = getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
  if (!isKnown || !makeRoom()) {
    ++refusedClients;
    const std::string text = "{\"ok\":false,\"error\":\"" + std::to_string(options_.clients) +
                             " clients are connected already: try again later\"}\n";
    ::send(socket.number(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return;
  }
  clients_.emplace_back(world, level, ControlPeer{peer.uid, static_cast<U32>(peer.pid)},
                        std::move(socket));
  ControlClient& client = clients_.back();
  client.lastRead = client.lastCommand = time_;
  served_ = &client;
  watchDescriptor(poll_.number(), EPOLL_CTL_ADD, client.socket.number(), EPOLLIN, &client);
  client.interest = EPOLLIN;
  client.output = client.session.greeting();
  write(client);
}

// When all places are taken, the client that has asked for nothing for the longest time gives way.
bool ControlSocket::Server::makeRoom() {
  U32 present = 0;
  ControlClient* oldest = nullptr;
  for (ControlClient& client : clients_) {
    if (client.isGone) continue;
    ++present;
    if (client.session.isBusy() || client.session.hasWatches()) continue;
    if (oldest == nullptr || client.lastCommand < oldest->lastCommand) oldest = &client;
  }
  if (present < options_.clients) return true;
  if (oldest == nullptr || time_ - oldest->lastCommand <= options_.idleTimeout) return false;
  oldest->output +=
      "{\"ok\":false,\"error\":\"another client needs the place of this idle one\"}\n";
  write(*oldest);
  drop(*oldest, false);
  return true;
}

// --- One client ---

void ControlSocket::Server::read(ControlClient& client) {
  std::array<char, 4096> bytes;
  const ssize_t size = recv(client.socket.number(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (size < 0) {
    if (errno != EAGAIN && errno != EINTR) drop(client, false);
    return;
  }
  if (size == 0) {
    client.hasEnded = true;
    if (!client.session.isBusy() && !client.input.hasLine()) drop(client, false);
    return;
  }
  client.input.take({bytes.data(), static_cast<std::size_t>(size)});
  schedule(client);
}

void ControlSocket::Server::schedule(ControlClient& client) {
  if (client.isBusy || client.isGone || isBlocked(client)) return;
  if (!client.session.isBusy() && !client.input.hasLine()) return;
  client.isBusy = true;
  busy_.push_back(&client);
}

// A client that leaves its answers unread is asked for no more of them.
bool ControlSocket::Server::isBlocked(const ControlClient& client) const {
  return client.pending() > options_.bytesPending / 2;
}

// One part of a command.
void ControlSocket::Server::proceed(ControlClient& client) {
  served_ = &client;
  if (!client.session.isBusy()) {
    client.lastCommand = time_;
    if (std::optional<std::string> line = client.input.next()) {
      ++commands;
      client.session.lineIs(std::move(*line));
    } else {
      ++refusedLines;
      ControlSession::refuseLongLine(client.output);
    }
  }
  if (client.session.isBusy()) client.session.step(client.output);
  if (client.isGone) return;
  if (!client.session.isBusy() || client.pending() > sendSize) write(client);
  if (client.isGone) return;
  schedule(client);
  const bool isDone = !client.isBusy && !client.session.isBusy();
  if (isDone && client.hasEnded && !client.input.hasLine()) drop(client, false);
}

void ControlSocket::Server::write(ControlClient& client) {
  if (client.pending() == 0) return;
  const ssize_t size = ::send(client.socket.number(), client.output.data() + client.sent,
                              std::min(client.pending(), sendSize), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (size < 0) {
    if (errno != EAGAIN && errno != EINTR) drop(client, false);
    return;
  }
  client.sent += static_cast<std::size_t>(size);
  client.lastRead = time_;
  if (client.pending() == 0) {
    client.output.clear();
    client.sent = 0;
  } else if (client.sent >= client.output.size() / 2) {
    client.output.erase(0, client.sent);
    client.sent = 0;
  }
  schedule(client);
}

void ControlSocket::Server::look(ControlClient& client) {
  if (!client.session.hasWatches() || isBlocked(client)) return;
  if (!client.isLooking) {
    if (time_ < client.lookDue) return;
    client.session.beginLook(time_);
    client.isLooking = true;
  }
  const bool wasEmpty = client.pending() == 0;
  while (!isOver(1)) {
    if (client.session.look(client.output)) continue;
    client.isLooking = false;
    client.lookDue = time_ + ControlSession::lookInterval;
    break;
  }
  if (wasEmpty) client.lastRead = time_;
  write(client);
}

void ControlSocket::Server::drop(ControlClient& client, bool isCounted) {
  if (client.isGone) return;
  client.isGone = true;
  // A process that was forked meanwhile has the descriptor, too.
  if (!isForked()) {
    epoll_ctl(poll_.number(), EPOLL_CTL_DEL, client.socket.number(), nullptr);
    shutdown(client.socket.number(), SHUT_RDWR);
  }
  closing_.push_back(std::move(client.socket));
  if (isCounted) ++droppedClients;
}

void ControlSocket::Server::freeGone() {
  std::erase_if(busy_, [](const ControlClient* client) { return client->isGone; });
  Clients gone;  // freed last: what their commands held may call back
  for (auto client = clients_.begin(); client != clients_.end();) {
    const auto each = client++;
    if (each->isGone) gone.splice(gone.end(), clients_, each);
  }
}

void ControlSocket::Server::updateInterest(ControlClient& client) {
  const bool reads =
      !client.hasEnded && !client.session.isBusy() && !client.input.hasLine() && !isBlocked(client);
  const U32 interest = (reads ? U32{EPOLLIN} : 0u) | (client.pending() != 0 ? U32{EPOLLOUT} : 0u);
  if (interest == client.interest) return;
  watchDescriptor(poll_.number(), EPOLL_CTL_MOD, client.socket.number(), interest, &client);
  client.interest = interest;
}

// --- The next turn ---

int ControlSocket::Server::descriptor() {
  if (!timer_) {
    Descriptor made(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!made) throw std::system_error(errno, std::generic_category(), "timerfd_create");
    watchDescriptor(poll_.number(), EPOLL_CTL_ADD, made.number(), EPOLLIN, nullptr);
    timer_ = std::move(made);
    wake_->timeMinIs(Zint::never);
    armNext(0);
  }
  return poll_.number();
}

void ControlSocket::Server::armNext(Zint::Seconds taken) {
  const Zint::Seconds rest = restShare * std::min(taken, 2 * options_.turnBudget);
  Zint::Seconds delay = Zint::never;
  if (!busy_.empty() || !closing_.empty()) delay = busyInterval;
  if (!isAccepting_) delay = std::min(delay, acceptAgain_ - time_);
  for (const ControlClient& client : clients_) {
    if (client.isLooking) delay = std::min(delay, busyInterval);
    if (client.session.hasWatches()) delay = std::min(delay, client.lookDue - time_);
    if (client.pending() != 0) delay = std::min(delay, options_.readTimeout);
  }
  if (!timer_) {
    const Zint::Seconds since = time_ - active_;
    const Zint::Seconds poll = since < recentTime   ? recentInterval
                               : since < activeTime ? activeInterval
                                                    : idleInterval;
    wake_->timeMinIs(time_ + std::max({std::min(delay, poll), rest, busyInterval}));
    return;
  }
  itimerspec timer{};
  if (delay != Zint::never) {
    const Zint::Seconds time = std::max({delay, rest, busyInterval});
    timer.it_value.tv_sec = static_cast<time_t>(time);
    timer.it_value.tv_nsec = std::lround((time - std::floor(time)) * 999'999'999);
  }
  timerfd_settime(timer_.number(), 0, &timer, nullptr);
}

}  // namespace Telemetry
