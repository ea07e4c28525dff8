// The control socket: one `get` against a server that answers every line with a fixed one, and the
// longest turn with clients that ask for much.
#include <Driver/AuditedShadow.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <telemetry/ControlSocket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Bench.h"

namespace Bench {
namespace {

constexpr const char* question = "{\"do\":\"get\",\"path\":\"/shadow/state\",\"id\":1}\n";

class Folder {
 public:
  Folder() {
    std::string pattern = "/tmp/umbra-benchXXXXXX";
    require(mkdtemp(pattern.data()) != nullptr, "a folder of its own");
    path = pattern;
  }
  ~Folder() { std::filesystem::remove_all(path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string path;
};

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

class Line {
 public:
  explicit Line(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    const sockaddr_un address = addressOf(path);
    require(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "a connection");
  }
  ~Line() { close(socket_); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  bool send(std::string_view text) {
    return ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL) > 0;
  }
  // Whether a line has ended in what has come.
  bool receive() {
    std::array<char, 65536> bytes;
    const ssize_t size = recv(socket_, bytes.data(), bytes.size(), 0);
    return size > 0 && bytes[static_cast<std::size_t>(size) - 1] == '\n';
  }

 private:
  const int socket_;
};

struct NoRegisters : Fru::HamImpl {
  void read(U32, U32* value) override { *value = 0; }
  void write(U32, U32) override {}
};

// A driver whose socket is served by whoever measures it.
struct ControlStand {
  explicit ControlStand(U32 regions) {
    for (U32 i = 0; i < regions; ++i) {
      shadow->chipMemoryIs(Hardware::chipMemoryFactory(
          "region" + std::to_string(i), Hardware::ChipAddress(1, i * 64), 16, 4, 4, ham));
    }
    shadow->stateIs(Hardware::HardwareShadow::configured());
    control->objectIs("shadow", shadow);
    control->descriptor();
  }

  Folder folder;
  const Zint::Ptr<const Zint::Clock> clock = Zint::monotonicClockFactory("clock");
  const Zint::Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("bench", clock);
  const Zint::Ptr<Hardware::GenericChipHam> ham =
      Hardware::genericChipHamFactory("ham", Zint::makePtr<NoRegisters>());
  const Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(activity, clock);
  const Telemetry::ControlSocket::Ptr control =
      Telemetry::controlSocketFactory(activity, clock, "bench", {.directory = folder.path});
};

struct GetStand : ControlStand {
  GetStand() : ControlStand(64), line(folder.path + "/bench.sock") {
    while (!line.receive()) control->serve();
  }
  void ask() {
    line.send(question);
    do control->serve();
    while (!line.receive());
  }
  Line line;
};

// One line in, one line out.
struct FixedServer {
  FixedServer() : listening(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    const sockaddr_un address = addressOf(folder.path + "/fixed.sock");
    require(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                listen(listening, 1) == 0,
            "a server");
    line = std::make_unique<Line>(folder.path + "/fixed.sock");
    client = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK);
  }
  ~FixedServer() {
    close(client);
    close(listening);
  }
  FixedServer(const FixedServer&) = delete;
  FixedServer& operator=(const FixedServer&) = delete;

  void serve() {
    pollfd ready{client, POLLIN, 0};
    if (poll(&ready, 1, 0) != 1) return;
    std::array<char, 4096> bytes;
    const ssize_t size = recv(client, bytes.data(), bytes.size(), 0);
    if (size <= 0 || std::memchr(bytes.data(), '\n', static_cast<std::size_t>(size)) == nullptr)
      return;
    constexpr std::string_view answer = "{\"id\":1,\"ok\":true,\"text\":\"'idle'\"}\n";
    ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
  }
  void ask() {
    line->send(question);
    do serve();
    while (!line->receive());
  }

  Folder folder;
  const int listening;
  int client = -1;
  std::unique_ptr<Line> line;
};

struct Turns {
  double longest = 0;  // microseconds of the processor
  // Microseconds of the clock on the wall: what interrupts the thread counts.
  double wallOf999 = 0, longestWall = 0;
};

// Eight clients, of which four list all regions and four read a value of the last one; one more
// lists them and reads none of its answers.
Turns turnsWithClients() {
  ControlStand stand(10'000);
  const std::string path = stand.folder.path + "/bench.sock";
  std::vector<std::unique_ptr<Line>> lines;
  for (int i = 0; i < 9; ++i) lines.push_back(std::make_unique<Line>(path));
  std::vector<double> walls;
  for (U32 turn = 0; turn < 40'000; ++turn) {
    if (turn % 500 == 0) {
      lines[0]->send("{\"do\":\"list\",\"path\":\"/shadow/chipMemory\"}\n");
      for (std::size_t i = 1; i < lines.size(); ++i) {
        lines[i]->send(i % 2 == 0
                           ? "{\"do\":\"list\",\"path\":\"/shadow/chipMemory\"}\n"
                           : "{\"do\":\"get\",\"path\":\"/shadow/chipMemory/region9999/mode\"}\n");
      }
    }
    const Zint::Seconds begin = Zint::MonotonicClock::systemTime();
    stand.control->serve();
    walls.push_back((Zint::MonotonicClock::systemTime() - begin) * 1e6);
    for (std::size_t i = 1; i < lines.size(); ++i) lines[i]->receive();
  }
  require(stand.control->commands() > 100, "the clients were served");
  std::sort(walls.begin(), walls.end());
  return {stand.control->longestTurn() * 1e6, walls[walls.size() * 999 / 1000], walls.back()};
}

// What interrupts the thread counts as its time: the best of three runs.
const Turns& bestTurns() {
  static const Turns best = [] {
    Turns turns = turnsWithClients();
    for (int run = 1; run < 3; ++run) {
      const Turns other = turnsWithClients();
      if (other.longest < turns.longest) turns = other;
    }
    return turns;
  }();
  return best;
}

}  // namespace

void registerControlBenches() {
  const auto ours = shared<GetStand>();
  side("row33/one get by the socket", "ours", [ours](benchmark::State& state) {
    for (auto _ : state) ours().ask();
  });
  const auto fixed = shared<FixedServer>();
  side("row33/one get by the socket", "one fixed line", [fixed](benchmark::State& state) {
    for (auto _ : state) fixed().ask();
  });
  figure("row33/longest turn, 10,000 regions and 9 clients", "us of the processor",
         [] { return bestTurns().longest; });
  figure("row33/wall clock, 99.9 % of turns with 9 clients", "us",
         [] { return bestTurns().wallOf999; });
  figure("row33/wall clock, longest turn with 9 clients", "us",
         [] { return bestTurns().longestWall; });
}

}  // namespace Bench
