#include "tools/umbra/serve/Control.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Serve {
namespace {

constexpr int timeout = 2000;  // milliseconds

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw std::runtime_error(path + ": " + why);
}

// "x12x34" or "1234" as "12 34".
std::string spacedBytes(const std::string& digits) {
  std::string text;
  int inByte = 0;
  for (const char digit : digits) {
    if (!std::isxdigit(static_cast<unsigned char>(digit))) continue;
    if (inByte++ == 2) {
      text += ' ';
      inByte = 1;
    }
    text += digit;
  }
  return text;
}

}  // namespace

Control::Control(const std::string& path) : path_(path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) fail(path, "the path is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval limit{timeout / 1000, 0};
  setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (socket_ < 0 ||
      connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address)) {
    const std::string why = std::strerror(errno);
    if (socket_ >= 0) close(socket_);
    fail(path, why);
  }
  // What the driver says first: who it is.
  try {
    line();
  } catch (...) {
    close(socket_);
    throw;
  }
}

Control::~Control() { close(socket_); }

std::string Control::line() {
  for (;;) {
    if (const auto end = pending_.find('\n'); end != std::string::npos) {
      std::string text = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return text;
    }
    pollfd waited{socket_, POLLIN, 0};
    const int ready = poll(&waited, 1, timeout);
    if (ready == 0) fail(path_, "the driver did not answer within 2 s");
    char bytes[4096];
    const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
    if (count <= 0)
      fail(path_, count == 0 ? "the driver closed the connection" : std::strerror(errno));
    pending_.append(bytes, static_cast<std::size_t>(count));
  }
}

Json Control::ask(const Json& request) {
  const std::string text = dump(request) + "\n";
  if (send(socket_, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
    fail(path_, std::strerror(errno));
  }
  // An answer may come in parts, which have a piece of its list each.
  Json items = Json::array();
  for (;;) {
    Json answer = Json::parse(line(), nullptr, false);
    if (answer.is_discarded() || !answer.is_object()) fail(path_, "the answer is no JSON");
    if (!answer.value("ok", false)) fail(path_, answer.value("error", "refused without a reason"));
    if (answer.contains("items")) {
      for (Json& item : answer["items"]) items.push_back(std::move(item));
    }
    if (answer.value("more", false)) continue;
    answer["items"] = std::move(items);
    return answer;
  }
}

Json entriesOf(const std::string& socket, const std::string& shadow, const std::string& region,
               U32 first, U32 count) {
  Control control(socket);
  const Json answer = control.ask({{"do", "dump"},
                                   {"path", "/" + shadow + "/chipMemory/" + region},
                                   {"first", first},
                                   {"count", count}});
  Json entries = Json::array();
  for (const Json& item : answer["items"]) {
    Json& entry = entries.emplace_back();
    entry["entry"] = item.value("entry", 0u);
    entry["address"] = item.value("address", "");
    entry["expected"] = spacedBytes(item.value("expected", ""));
    entry["actual"] = spacedBytes(item.value("actual", ""));
    entry["known"] = !item.value("known", false)     ? "unknown"
                     : item.value("isWritten", true) ? "by write"
                                                     : "by learning";
    entry["policy"] = item.value("policy", "");
    // Where the driver has given names: of the register, and its fields with their values.
    if (item.contains("name")) entry["name"] = item["name"];
    if (item.contains("fields")) entry["fields"] = item["fields"];
  }
  return entries;
}

void acknowledge(const std::string& socket, const std::string& alarm) {
  Control control(socket);
  const Json root = control.ask({{"do", "list"}, {"path", "/"}});
  for (const Json& item : root["items"]) {
    if (item.value("type", "") != "Driver::AlarmBoard") continue;
    const std::string board = "/" + item.value("name", "");
    const Json alarms = control.ask({{"do", "list"}, {"path", board + "/alarm"}});
    for (const Json& each : alarms["items"]) {
      // A key is a text as the library writes it, with quotes.
      const std::string key = each.value("key", "");
      if (key != alarm && key != "'" + alarm + "'") continue;
      control.ask(
          {{"do", "call"}, {"path", board + "/doAcknowledge"}, {"arguments", {{"name", key}}}});
      return;
    }
  }
  throw std::runtime_error("the driver has no alarm \"" + alarm + "\"");
}

}  // namespace Serve
