// Lines of clients of the control socket, on a running system. Each is answered with a complete
// JSON object. A line that is refused changes nothing, and none of a client that only looks does.
#include <sys/socket.h>
#include <sys/un.h>
#include <telemetry/ControlSocket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "fuzz/Fuzz.h"
#include "fuzz/LivingSystem.h"

namespace {

using nlohmann::json;

class Connection {
 public:
  explicit Connection(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      Fuzz::failed("no connection to " + path);
    }
  }
  ~Connection() { close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void send(std::string_view bytes) { ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  std::string receive() {
    char bytes[65536];
    const ssize_t size = recv(socket_, bytes, sizeof bytes, 0);
    return size <= 0 ? "" : std::string(bytes, static_cast<std::size_t>(size));
  }

 private:
  const int socket_;
};

class Talking {
 public:
  Talking(const std::string& folder, bool administers)
      : control_(Telemetry::controlSocketFactory(
            system_.activity(), Zint::Ptr<const Zint::Clock>(system_.activity()->clock()), "fuzzed",
            {.directory = folder})) {
    constexpr const char* names[] = {"shadow", "mac", "route", "request", "reader", "directory"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
      control_->objectIs(names[i], system_.objects()[i]);
    }
    control_->administersIs(true);
    control_->descriptor();  // it is served here alone
    client_.emplace(folder + (administers ? "/fuzzed.admin.sock" : "/fuzzed.sock"));
    isLooking_ = !administers;
    answers();
  }

  // The line in pieces of that many bytes.
  void line(const std::string& text, std::size_t piece) {
    if (isLarge(text)) return;
    story_.add(text);
    const std::string before = system_.state();
    for (std::size_t at = 0; at < text.size(); at += piece) {
      client_->send(std::string_view(text).substr(at, piece));
      control_->serve();
    }
    client_->send("\n");
    bool isRefused = false, hasAsserted = false;
    for (const json& answer : answers()) {
      if (answer.value("ok", true)) continue;
      isRefused = true;
      const std::string error = answer["error"];
      hasAsserted |= error == "an exception of a type of its own";
      if (error.empty()) Fuzz::failed(story_.lines() + "refused without a message");
      // A name in use may have changed the number of entries.
      hasAsserted |= error.find("in use") != std::string::npos;
    }
    if ((isRefused || isLooking_) && !hasAsserted) {
      Fuzz::same("state after it", before, system_.state(), story_);
    }
  }

 private:
  // What comes in as many turns as it takes, whole lines of JSON.
  std::vector<json> answers() {
    std::string text;
    for (U32 rests = 0; rests < 20; ++rests) {
      control_->serve();
      for (std::string more; !(more = client_->receive()).empty(); text += more) rests = 0;
    }
    std::vector<json> answers;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find('\n', at);
      if (end == std::string::npos) Fuzz::failed(story_.lines() + "a line without an end");
      answers.push_back(json::parse(text.substr(at, end - at), nullptr, false));
      if (!answers.back().is_object()) {
        Fuzz::failed(story_.lines() + "no object: " + text.substr(at, end - at));
      }
      at = end + 1;
    }
    return answers;
  }

  // Whether an operation might need more memory than a run should.
  static bool isLarge(const std::string& line) {
    std::size_t digits = 0;
    for (const char c : line) {
      digits = c >= '0' && c <= '9' ? digits + 1 : 0;
      if (digits > 4) return line.find("ntr") != line.npos || line.find("ize") != line.npos;
    }
    return false;
  }

  Fuzz::Story story_;
  Fuzz::LivingSystem system_;
  bool isLooking_ = false;
  Telemetry::ControlSocket::Ptr control_;
  std::optional<Connection> client_;
};

// One for the process.
const std::string& folderOfSockets() {
  static const struct Folder {
    Folder() {
      std::string pattern = std::filesystem::temp_directory_path().string() + "/umbra-fuzzXXXXXX";
      path = mkdtemp(pattern.data()) == nullptr ? "" : pattern;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
  } folder;
  return folder.path;
}

// The first byte chooses the socket and the size of the pieces.
void run(const U8* bytes, std::size_t size) {
  if (size == 0) return;
  Fuzz::Quiet quiet;
  Talking talking(folderOfSockets(), (bytes[0] & 1) != 0);
  std::istringstream lines(std::string(bytes + 1, bytes + size));
  const std::size_t piece = (bytes[0] & 2) != 0 ? 7 : 2048;
  for (std::string line; std::getline(lines, line);) talking.line(line, piece);
}

}  // namespace

FUZZ_TARGET("control", run)
