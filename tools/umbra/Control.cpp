#include "tools/umbra/Control.h"

#include <Zint/Strep.h>
#include <Zint/String8.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>

namespace Tool {
namespace {

// More than a driver ever sends as one line.
constexpr std::size_t longestLine = 16 << 20;

using Moment = std::chrono::steady_clock::time_point;

int connected(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw Failure(path + ": too long for a socket");
  std::memcpy(address.sun_path, path.c_str(), path.size());
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) throw Failure(std::string("no socket: ") + std::strerror(errno));
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return descriptor;
  }
  const int error = errno;
  close(descriptor);
  switch (error) {
    case EACCES:
      throw Failure(path + ": permission denied; its owner and its group may connect");
    case ECONNREFUSED:
    case ENOENT:
      throw Failure(path + ": nobody listens; umbra ps says whether the driver still runs");
    case EAGAIN:
      throw Failure(path + ": the driver does not take connections now; it may hang");
    default:
      throw Failure(path + ": " + std::strerror(error));
  }
}

void refuseIfOver(const Telemetry::LiveReader& view) {
  const auto state = view.liveness().state;
  if (state == Telemetry::Liveness::dead || state == Telemetry::Liveness::ended) {
    throw Failure("driver " + view.name() + " is " + nameOf(state) +
                  "; umbra post-mortem shows what it left");
  }
}

std::optional<U64> numberOfEntry(std::string_view text) {
  const int base = text.starts_with("0x") ? 16 : 10;
  if (base == 16) text.remove_prefix(2);
  U64 number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return {};
  return number;
}

void requireEntry(U64 entry, U64 entries) {
  if (entry < entries) return;
  throw Failure("the region has " + std::to_string(entries) + " entries: 0 to " +
                    std::to_string(entries - std::min<U64>(entries, 1)),
                Exit::nothingFound);
}

}  // namespace

Control Control::toLook(const Settings& settings, const Telemetry::LiveReader& view) {
  refuseIfOver(view);
  if (!view.socket().empty()) return {view.socket(), settings.timeout};
  if (!view.adminSocket().empty()) return {view.adminSocket(), settings.timeout};
  throw Failure("driver " + view.name() + " offers no control socket");
}

Control Control::toOperate(const Settings& settings, const Telemetry::LiveReader& view) {
  refuseIfOver(view);
  if (view.adminSocket().empty()) {
    throw Failure("driver " + view.name() +
                  " offers no control socket that operates: it has to ask for one");
  }
  return {view.adminSocket(), settings.timeout};
}

Control Control::toDoMost(const Settings& settings, const Telemetry::LiveReader& view) {
  const std::string admin = view.adminSocket();
  if (!admin.empty() && access(admin.c_str(), R_OK | W_OK) == 0) return {admin, settings.timeout};
  return toLook(settings, view);
}

Control::Control(const std::string& path, double timeout)
    : path_(path), timeout_(timeout), socket_(connected(path)) {
  try {
    greeting_ = line(true).value_or(Json::object());
    if (!greeting_.value("ok", true)) {
      throw Failure(path_ + ": " + greeting_.value("error", std::string("refused")));
    }
    if (greeting_.value("umbra", 0) < 1) throw Failure(path_ + ": no driver's control socket");
  } catch (...) {
    close(socket_);
    throw;
  }
}

Control::Control(Control&& other) noexcept
    : path_(std::move(other.path_)),
      timeout_(other.timeout_),
      socket_(std::exchange(other.socket_, -1)),
      isOpen_(other.isOpen_),
      pending_(std::move(other.pending_)),
      greeting_(std::move(other.greeting_)),
      asked_(other.asked_),
      unasked_(std::move(other.unasked_)) {}

Control::~Control() {
  if (socket_ >= 0) close(socket_);
}

void Control::refuse(const std::string& text) {
  isOpen_ = false;
  throw Failure(text);
}

void Control::refuseTime() {
  refuse("no answer from " + path_ + " within " + durationText(timeout_) +
         "; the driver's loop is busy or hangs (umbra ps; --timeout waits longer)");
}

std::optional<Json> Control::line(bool waits) {
  const Moment end =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<Moment::duration>(std::chrono::duration<double>(timeout_));
  std::size_t searched = 0;
  for (;;) {
    const std::size_t at = pending_.find('\n', searched);
    if (at != std::string::npos) {
      const std::string text = pending_.substr(0, at);
      pending_.erase(0, at + 1);
      Json json = Json::parse(text, nullptr, false);
      if (!json.is_object()) refuse(path_ + ": an answer that is no JSON object");
      return json;
    }
    searched = pending_.size();
    if (searched > longestLine) refuse(path_ + ": an answer without an end");
    char buffer[65536];
    const ssize_t size = recv(socket_, buffer, sizeof buffer, 0);
    if (size > 0) {
      pending_.append(buffer, static_cast<std::size_t>(size));
      continue;
    }
    if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
      refuse("the driver has closed " + path_);
    }
    if (!waits) return {};
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
            .count();
    pollfd wanted{socket_, POLLIN, 0};
    if (left <= 0 || poll(&wanted, 1, static_cast<int>(left)) == 0) refuseTime();
  }
}

void Control::send(const std::string& text) {
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t size = ::send(socket_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (size > 0) {
      sent += static_cast<std::size_t>(size);
      continue;
    }
    if (errno != EAGAIN && errno != EINTR) refuse("the driver has closed " + path_);
    pollfd wanted{socket_, POLLOUT, 0};
    if (poll(&wanted, 1, static_cast<int>(timeout_ * 1000)) == 0) refuseTime();
  }
}

void Control::ask(Json request, const std::function<void(const Json&)>& take) {
  const U64 id = ++asked_;
  request["id"] = id;
  send(request.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
  for (;;) {
    const Json answer = *line(true);
    if (!answer.contains("ok")) {
      if (unasked_) unasked_(answer);
      continue;
    }
    // A line that could not be read has no id; it is about this request, for there is no other.
    if (answer.contains("id") && answer["id"] != id) continue;
    if (!answer["ok"].is_boolean() || !answer["ok"].get<bool>()) {
      throw Failure(answer.value("error", std::string("refused without a reason")));
    }
    take(answer);
    if (!answer.value("more", false)) return;
  }
}

Json Control::ask(Json request) {
  Json all;
  ask(std::move(request), [&all](const Json& part) {
    if (all.is_null()) {
      all = part;
      return;
    }
    for (const auto& [key, value] : part.items()) {
      if (value.is_array() && all.contains(key) && all[key].is_array()) {
        all[key].insert(all[key].end(), value.begin(), value.end());
      } else {
        all[key] = value;
      }
    }
  });
  all.erase("id");
  all.erase("ok");
  all.erase("more");
  return all;
}

std::optional<Json> Control::askIfAllowed(const Json& request) {
  try {
    return ask(request);
  } catch (const Failure&) {
    return {};
  }
}

void Control::receive() {
  while (const std::optional<Json> one = line(false)) {
    if (unasked_) unasked_(*one);
  }
}

std::string quoted(const std::string& name) {
  const bool isPlain = !name.empty() && name.find_first_not_of(
                                            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                            "0123456789-_.") == std::string::npos;
  return isPlain && name != "." && name != ".." ? name
                                                : Zint::valueToStrep(Zint::String8(name)).bytes();
}

std::vector<std::string> objectsOf(Control& control, const std::string& type) {
  std::vector<std::string> paths;
  const Json all = control.ask({{"do", "list"}, {"path", "/"}});
  for (const Json& item : all.value("items", Json::array())) {
    if (item.value("type", std::string()) == type) {
      paths.push_back("/" + item.value("name", std::string()));
    }
  }
  return paths;
}

std::string regionPath(Control& control, const std::string& region) {
  if (region.starts_with('/')) return region;
  std::vector<std::string> found;
  for (const char* const type : {"Driver::AuditedShadow", "Hardware::HardwareShadow"}) {
    for (const std::string& shadow : objectsOf(control, type)) {
      const std::string path = shadow + "/chipMemory/" + quoted(region);
      if (control.askIfAllowed({{"do", "get"}, {"path", path + "/entrySize"}})) {
        found.push_back(path);
      }
    }
  }
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    throw Failure("no region '" + region + "'; umbra show lists the regions", Exit::nothingFound);
  }
  throw Failure("several shadows have a region '" + region + "': " + found[0] + ", " + found[1],
                Exit::wrongUsage);
}

std::string nameOfPath(const std::string& path) {
  const std::size_t quote = path.ends_with('\'') ? path.find("/'") : std::string::npos;
  if (quote == std::string::npos) return path.substr(path.rfind('/') + 1);
  try {
    return Zint::strepToValue<Zint::String8>(Zint::String8(path.substr(quote + 1))).bytes();
  } catch (const std::exception&) {
    return path.substr(quote + 1);
  }
}

std::string shadowOfPath(const std::string& region) {
  return region.substr(0, region.find("/chipMemory/"));
}

U64 entriesOf(Control& control, const std::string& region) {
  const Json answer = control.ask({{"do", "get"}, {"path", region + "/entries"}});
  const Json value = answer.value("value", Json());
  if (value.is_number_unsigned()) return value.get<U64>();
  return numberOfEntry(answer.value("text", std::string())).value_or(0);
}

std::string knownBy(const Json& item) {
  if (item.value("known", Json()) != true) return "unknown";
  const Json isWritten = item.value("isWritten", Json());
  if (!isWritten.is_boolean()) return "yes";
  return isWritten.get<bool>() ? "write" : "learning";
}

std::pair<U64, U64> rangeOf(const std::string& text, U64 entries) {
  const auto refuse = [&] {
    throw Failure("'" + text + "' is no range: FIRST, FIRST..LAST or FIRST+COUNT",
                  Exit::wrongUsage);
  };
  const std::size_t dots = text.find("..");
  const std::size_t plus = text.find('+');
  const std::size_t end = std::min({dots, plus, text.size()});
  const std::optional<U64> first = numberOfEntry(std::string_view(text).substr(0, end));
  std::optional<U64> count = 1;
  if (dots != std::string::npos) {
    const std::optional<U64> last = numberOfEntry(std::string_view(text).substr(dots + 2));
    if (!first || !last || *last < *first) refuse();
    count = *last - *first + 1;
  } else if (plus != std::string::npos) {
    count = numberOfEntry(std::string_view(text).substr(plus + 1));
  }
  if (!first || !count || *count == 0) refuse();
  requireEntry(*first, entries);
  return {*first, std::min(*count, entries - *first)};
}

U64 entryOf(const std::string& text, U64 entries) {
  const std::optional<U64> entry = numberOfEntry(text);
  if (!entry) throw Failure("'" + text + "' is no entry: a number, or 0x...", Exit::wrongUsage);
  requireEntry(*entry, entries);
  return *entry;
}

}  // namespace Tool
