#include "tools/umbra/serve/Server.h"

#include <httplib.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tools/umbra/serve/Assets.h"
#include "tools/umbra/serve/Control.h"
#include "tools/umbra/serve/History.h"
#include "tools/umbra/serve/Json.h"

namespace Serve {
namespace {

constexpr const char* jsonType = "application/json";

void answer(httplib::Response& response, const Json& json) {
  response.set_header("Cache-Control", "no-store");
  response.set_content(dump(json), jsonType);
}

void refuse(httplib::Response& response, int status, const std::string& why) {
  response.status = status;
  answer(response, {{"error", why}});
}

// A parameter that is a number; `otherwise` where it is missing or none.
U64 numberOf(const httplib::Request& request, const char* name, U64 otherwise) {
  const std::string text = request.get_param_value(name);
  U64 value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return text.empty() || error != std::errc() || end != text.data() + text.size() ? otherwise
                                                                                  : value;
}

// "127.0.0.1:9469" without its port.
std::string_view hostOf(std::string_view header) {
  if (header.starts_with('[')) return header.substr(0, header.find(']') + 1);
  return header.substr(0, header.find(':'));
}

bool isLoopback(std::string_view host) {
  return host == "localhost" || host == "[::1]" || host == "::1" || host.starts_with("127.");
}

// The row of a region; -1 if there is none.
S64 rowOf(const Driver& driver, const std::string& region) {
  const Table* table = driver.table("region");
  const Column* name = table == nullptr ? nullptr : table->find("name");
  if (name == nullptr) return -1;
  for (U32 i = 0; i < table->rows(); ++i) {
    if (table->state(i) != freeRow && name->text(table->row(i)) == region) return i;
  }
  return -1;
}

// The name of a region's shadow.
std::string shadowOf(const Driver& driver, const std::string& region) {
  const S64 row = rowOf(driver, region);
  const Column* shadow = row < 0 ? nullptr : driver.table("region")->find("shadow");
  if (shadow == nullptr) throw std::runtime_error("there is no region \"" + region + "\"");
  return shadow->text(driver.table("region")->row(static_cast<U32>(row)));
}

// The number of the frame and of the run that a client was last told: "epoch-frame".
struct StreamPlace {
  U64 epoch = 0;
  U64 frame = 0;
};
StreamPlace placeOf(const std::string& id) {
  StreamPlace place;
  const char* const end = id.data() + id.size();
  const auto [dash, error] = std::from_chars(id.data(), end, place.epoch);
  if (error != std::errc() || dash == end || *dash != '-') return {};
  if (std::from_chars(dash + 1, end, place.frame).ec != std::errc()) return {};
  return place;
}

}  // namespace

Server::Server(Collector& collector, ServerOptions options, History* history)
    : collector_(collector),
      options_(std::move(options)),
      history_(history),
      http_(std::make_unique<httplib::Server>()) {
  http_->new_task_queue = [] { return new httplib::ThreadPool(maxStreams + otherThreads); };
  // Without SO_REUSEPORT: a second server on the same port is an error.
  http_->set_socket_options([](int socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  http_->set_keep_alive_timeout(2);
  http_->set_read_timeout(3);
  http_->set_write_timeout(5);
  http_->set_payload_max_length(4096);
  http_->set_tcp_nodelay(true);
  http_->set_default_headers(
      {{"X-Content-Type-Options", "nosniff"},
       {"Referrer-Policy", "no-referrer"},
       {"Content-Security-Policy",
        "default-src 'none'; script-src 'self'; worker-src 'self'; style-src 'self'; "
        "img-src 'self' data:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
        "frame-ancestors 'none'"}});
  // A page of another site may not reach this server under a name of its own.
  http_->set_pre_routing_handler([this](const Request& request, Response& response) {
    if (isKnownHost(request)) return httplib::Server::HandlerResponse::Unhandled;
    refuse(response, 403, "this server answers to the names of the loopback address");
    return httplib::Server::HandlerResponse::Handled;
  });
  http_->set_exception_handler([](const Request&, Response& response, std::exception_ptr error) {
    std::string why = "unknown";
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& exception) {
      why = exception.what();
    } catch (...) {
    }
    refuse(response, 500, why);
  });
  addPage();
  addQuestions();
  addStream();
  addAcknowledge();
}

Server::~Server() { stop(); }

int Server::bind() {
  const int port =
      options_.port == 0
          ? http_->bind_to_any_port(options_.address)
          : (http_->bind_to_port(options_.address, options_.port) ? options_.port : -1);
  if (port < 0) {
    throw std::runtime_error(options_.address + ":" + std::to_string(options_.port) +
                             " cannot be had: in use, or no address of this machine");
  }
  return port;
}

void Server::run() {
  started_ = true;
  if (!stopping_) http_->listen_after_bind();
  ended_ = true;
}

void Server::stop() {
  stopping_ = true;
  // A stop before the library has begun to listen would be lost.
  while (started_ && !ended_) {
    http_->stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool Server::isKnownHost(const Request& request) const {
  if (!isLoopback(options_.address)) return true;
  const std::string host = request.get_header_value("Host");
  return host.empty() || isLoopback(hostOf(host));
}

void Server::addPage() {
  for (const Asset& asset : assets()) {
    const auto handler = [&asset](const Request& request, Response& response) {
      response.set_header("Cache-Control", "no-cache");
      response.set_header("ETag", std::string(asset.tag));
      if (request.get_header_value("If-None-Match") == asset.tag) {
        response.status = 304;
        return;
      }
      response.set_content(asset.bytes.data(), asset.bytes.size(), std::string(asset.type).c_str());
    };
    std::string pattern;
    for (const char letter : asset.path) pattern += letter == '.' ? "\\." : std::string(1, letter);
    http_->Get(pattern, handler);
    if (asset.path == "/index.html") http_->Get("/", handler);
  }
}

std::shared_ptr<const Driver> Server::driverOf(const Request& request, Response& response) const {
  const std::string name = request.get_param_value("driver");
  auto driver = collector_.view().driver(name);
  if (driver == nullptr) refuse(response, 404, "there is no driver \"" + name + "\"");
  return driver;
}

void Server::addQuestions() {
  http_->Get("/metrics", [this](const Request& request, Response& response) {
    answerMetrics(request, response);
  });
  http_->Get("/api/drivers", [this](const Request&, Response& response) {
    const View view = collector_.view();
    Json drivers = Json::array();
    for (const auto& driver : view.drivers) drivers.push_back(driverJson(*driver));
    answer(response, {{"epoch", collector_.epoch()},
                      {"frame", view.frame},
                      {"time", milliseconds(view.time)},
                      {"acknowledges", options_.acknowledges},
                      {"history", history_ != nullptr},
                      {"regionColumns", RegionColumns::names()},
                      {"drivers", std::move(drivers)}});
  });
  http_->Get("/api/regions", [this](const Request& request, Response& response) {
    answerRegions(request, response);
  });
  http_->Get("/api/region", [this](const Request& request, Response& response) {
    answerRegion(request, response);
  });
  http_->Get("/api/bytes", [this](const Request& request, Response& response) {
    answerBytes(request, response);
  });
  http_->Get("/api/events", [this](const Request& request, Response& response) {
    answerEvents(request, response);
  });
  http_->Get("/api/findings", [this](const Request& request, Response& response) {
    answerFindings(request, response);
  });
}

void Server::answerMetrics(const Request& request, Response& response) {
  ++scrapes_;
  const std::string wanted = request.get_param_value("format");
  const MetricsFormat format = wanted == "text" ? MetricsFormat::text004
                               : wanted == "openmetrics"
                                   ? MetricsFormat::openMetrics
                                   : formatFor(request.get_header_value("Accept"));
  std::vector<Family> families = metricFamilies(collector_.view().drivers, options_.metrics);
  for (Family& family : ownFamilies()) families.push_back(std::move(family));
  response.set_content(metricsText(families, format), contentType(format));
}

void Server::answerRegions(const Request& request, Response& response) {
  const View view = collector_.view();
  const auto driver = driverOf(request, response);
  if (driver == nullptr) return;
  Json rows = Json::array();
  if (const Table* table = driver->table("region")) {
    const RegionColumns columns(*table);
    for (U32 i = 0; i < table->rows(); ++i) {
      if (table->state(i) != freeRow) rows.push_back(columns.json(*driver, i));
    }
  }
  answer(response, {{"frame", view.frame}, {"rows", std::move(rows)}});
}

void Server::answerRegion(const Request& request, Response& response) {
  const auto driver = driverOf(request, response);
  if (driver == nullptr) return;
  const std::string name = request.get_param_value("region");
  const S64 row = rowOf(*driver, name);
  if (row >= 0) {
    answer(response, rowJson(*driver, *driver->table("region"), static_cast<U32>(row)));
    return;
  }
  refuse(response, 404, "there is no region \"" + name + "\"");
}

void Server::answerBytes(const Request& request, Response& response) {
  const auto driver = driverOf(request, response);
  if (driver == nullptr) return;
  const std::string region = request.get_param_value("region");
  const U32 first = static_cast<U32>(std::min<U64>(numberOf(request, "first", 0), ~U32{0}));
  const U32 count = static_cast<U32>(std::clamp<U64>(numberOf(request, "count", 64), 1, 256));
  // What the findings of the region said, the newest of each entry; a dead driver leaves no more.
  EventFilter filter;
  filter.region = region;
  filter.kind = findingEvent;
  filter.max = 1000;
  Json findings = Json::object();
  for (const Event& event : collector_.events(driver->name, filter)) {
    if (event.entry < first || event.entry - first >= count) continue;
    const std::string key = std::to_string(event.entry);
    if (!findings.contains(key)) findings[key] = eventJson(event);
  }
  Json answered = {{"region", region}, {"first", first}, {"findings", std::move(findings)}};
  if (driver->liveness == Liveness::live && !driver->looking.empty()) {
    try {
      answered["entries"] =
          entriesOf(driver->looking, shadowOf(*driver, region), region, first, count);
    } catch (const std::exception& error) {
      answered["why"] = error.what();
    }
  } else {
    answered["why"] = driver->looking.empty()
                          ? "the driver has no control socket"
                          : std::string("the driver is ") + nameOf(driver->liveness);
  }
  answer(response, answered);
}

void Server::answerEvents(const Request& request, Response& response) {
  const std::string driver = request.get_param_value("driver");
  EventFilter filter;
  filter.since = numberOf(request, "since", 0);
  filter.before = numberOf(request, "before", 0);
  filter.region = request.get_param_value("region");
  filter.max = static_cast<U32>(std::clamp<U64>(numberOf(request, "max", 200), 1, 5000));
  const std::string kind = request.get_param_value("kind");
  for (U32 each = findingEvent; each <= endEvent; ++each) {
    if (kindName(each) == kind) filter.kind = each;
  }
  if (!kind.empty() && filter.kind == 0) {
    refuse(response, 400, "there is no kind of event \"" + kind + "\"");
    return;
  }
  std::vector<Event> events = collector_.events(driver, filter);
  // Older ones are in the history.
  if (history_ != nullptr && events.size() < filter.max) {
    EventFilter older = filter;
    if (!events.empty()) older.before = events.back().number;
    older.max = filter.max - static_cast<U32>(events.size());
    for (Event& event : history_->events(driver, older)) events.push_back(std::move(event));
  }
  Json list = Json::array();
  for (const Event& event : events) list.push_back(eventJson(event));
  answer(response, {{"events", std::move(list)}});
}

void Server::answerFindings(const Request& request, Response& response) {
  const std::string driver = request.get_param_value("driver");
  const Time to =
      static_cast<Time>(numberOf(request, "to", static_cast<U64>(wallTime() / 1'000'000)));
  const Time from = static_cast<Time>(numberOf(request, "from", static_cast<U64>(to - 3'600'000)));
  const std::size_t steps = std::clamp<U64>(numberOf(request, "steps", 60), 1, 1000);
  if (from >= to) {
    refuse(response, 400, "\"from\" has to be before \"to\"");
    return;
  }
  std::vector<U64> counts(steps);
  if (history_ != nullptr) {
    counts = history_->findings(driver, from * 1'000'000, to * 1'000'000, steps);
  } else {
    EventFilter filter;
    filter.kind = findingEvent;
    filter.max = ~U32{0};
    for (const Event& event : collector_.events(driver, filter)) {
      const Time time = event.wall / 1'000'000;
      if (time < from || time >= to) continue;
      ++counts[static_cast<std::size_t>((time - from) * static_cast<Time>(steps) / (to - from))];
    }
  }
  answer(response, {{"from", from}, {"to", to}, {"counts", counts}});
}

void Server::addStream() {
  http_->Get("/api/stream", [this](const Request& request, Response& response) {
    response.set_header("Cache-Control", "no-store");
    if (streams_.fetch_add(1) >= maxStreams) {
      --streams_;
      ++streamsRefused_;
      // A browser would never come back after an error.
      const Json why = {{"error", "there are already " + std::to_string(maxStreams) +
                                      " pages with a stream; trying again in 30 s"}};
      response.set_content("retry: 30000\nevent: refused\ndata: " + dump(why) + "\n\n",
                           "text/event-stream");
      return;
    }
    const StreamPlace place = placeOf(request.get_header_value("Last-Event-ID"));
    const bool goesOn = place.epoch == collector_.epoch();
    auto frame = std::make_shared<U64>(goesOn ? place.frame : collector_.view().frame);
    auto isFirst = std::make_shared<bool>(true);
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, frame, isFirst, goesOn](std::size_t, httplib::DataSink& sink) {
          const auto told = [this](const char* event, U64 number, const std::string& data) {
            return "id: " + std::to_string(collector_.epoch()) + "-" + std::to_string(number) +
                   "\nevent: " + event + "\ndata: " + data + "\n\n";
          };
          std::string text;
          if (*isFirst) {
            *isFirst = false;
            text = "retry: 500\n" + told(goesOn ? "again" : "hello", *frame,
                                         dump({{"epoch", collector_.epoch()}, {"frame", *frame}}));
          } else {
            const auto frames = collector_.framesAfter(*frame, 5 * second);
            if (!frames.has_value()) {
              *frame = collector_.view().frame;
              text =
                  told("hello", *frame, dump({{"epoch", collector_.epoch()}, {"frame", *frame}}));
            } else if (frames->empty()) {
              text = ": alive\n\n";
            } else {
              for (const std::string& each : *frames) text += told("frame", ++*frame, each);
            }
          }
          if (stopping_ || collector_.isStopped()) return false;
          return sink.write(text.data(), text.size());
        },
        [this](bool) { --streams_; });
  });
}

void Server::addAcknowledge() {
  http_->Post("/api/acknowledge", [this](const Request& request, Response& response) {
    if (!options_.acknowledges) {
      refuse(response, 403, "this server was started without --acknowledge");
      return;
    }
    // No form of another site can send this header.
    if (request.get_header_value("X-Umbra") != "1") {
      refuse(response, 403, "the header X-Umbra is missing");
      return;
    }
    const auto driver = driverOf(request, response);
    if (driver == nullptr) return;
    if (driver->operating.empty()) {
      refuse(response, 409, "the driver has no socket that operates");
      return;
    }
    try {
      acknowledge(driver->operating, request.get_param_value("alarm"));
      answer(response, {{"ok", true}});
    } catch (const std::exception& error) {
      refuse(response, 502, error.what());
    }
  });
}

std::vector<Family> Server::ownFamilies() const {
  std::vector<Family> families;
  const auto add = [&](const char* name, MetricType type, const char* unit, const char* help,
                       std::string value) {
    families.push_back({name, type, unit, help, {{"", std::move(value), start_}}});
  };
  families.push_back({"umbra_serve_build",
                      MetricType::info,
                      "",
                      "the server's version",
                      {{label("version", UMBRA_VERSION), "1"}}});
  add("umbra_serve_streams", MetricType::gauge, "", "pages that are told of changes",
      numberText(U64{streams_}));
  add("umbra_serve_streams_refused", MetricType::counter, "", "pages that came beyond the limit",
      numberText(streamsRefused_.load()));
  add("umbra_serve_scrapes", MetricType::counter, "", "requests of these metrics",
      numberText(scrapes_.load()));
  add("umbra_serve_missed_events", MetricType::counter, "events",
      "events that were overwritten before this server read them",
      numberText(collector_.eventsMissed()));
  add("umbra_serve_longest_turn_seconds", MetricType::gauge, "seconds",
      "longest look at all drivers so far", numberText(collector_.longestTurn()));
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  add("umbra_serve_peak_memory_bytes", MetricType::gauge, "bytes", "most memory used so far",
      numberText(static_cast<U64>(usage.ru_maxrss) * 1024));
  if (history_ != nullptr) {
    const History::Figures figures = history_->figures();
    add("umbra_serve_history_events", MetricType::counter, "events", "events kept in the history",
        numberText(figures.events));
    add("umbra_serve_history_dropped_events", MetricType::counter, "events",
        "events that the history could not keep", numberText(figures.dropped));
    add("umbra_serve_history_size_bytes", MetricType::gauge, "bytes", "size of the history",
        numberText(figures.bytes));
    add("umbra_serve_history_errors", MetricType::counter, "errors",
        "commits of the history that failed", numberText(figures.errors));
  }
  return families;
}

}  // namespace Serve
