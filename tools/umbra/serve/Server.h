// The HTTP server: the page, what it asks for, its stream of changes, and the metrics.
//
//   Server server(collector, options);
//   const int port = server.bind();     // text of the error where that fails
//   server.run();                       // until stop()
//
// It only reads, but for one thing that has to be asked for: with options.acknowledges an alarm is
// acknowledged through the driver's socket that operates.
//
//   GET  /                                        the page
//   GET  /metrics                                 text 0.0.4 or OpenMetrics, negotiated unless
//                                                 ?format=text or ?format=openmetrics says which
//   GET  /api/drivers                             all drivers without their regions
//   GET  /api/regions?driver=D                    what the map and the table show of the regions
//   GET  /api/region?driver=D&region=R            all columns of one
//   GET  /api/bytes?driver=D&region=R&first=&count=   expected and actual
//   GET  /api/events?driver=D&before=&region=&kind=&max=   newest first
//   GET  /api/findings?driver=D&from=&to=&steps=  how many there were, for the time line
//   GET  /api/stream                              server-sent events: frames of the collector
//   POST /api/acknowledge?driver=D&alarm=A        with the header X-Umbra: 1
//
// At most maxStreams streams are served at once, each by a thread; further threads answer the other
// requests, so that a scrape never waits for a page.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "tools/umbra/serve/Collector.h"
#include "tools/umbra/serve/Metrics.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace Serve {

class History;

struct ServerOptions {
  std::string address = "127.0.0.1";
  int port = 9469;  // 0: any
  MetricsOptions metrics = {};
  bool acknowledges = false;
};

class Server {
 public:
  static constexpr U32 maxStreams = 64;
  static constexpr U32 otherThreads = 8;

  // `history` may be null; both outlive the server.
  Server(Collector& collector, ServerOptions options, History* history = nullptr);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  // The port; a std::runtime_error where it cannot be had.
  int bind();
  void run();
  // By any other thread; waits until run() ends.
  void stop();

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;

  void addPage();
  void addQuestions();
  void addStream();
  void addAcknowledge();
  bool isKnownHost(const Request& request) const;
  // Null, and an answer is made, where the request names none.
  std::shared_ptr<const Driver> driverOf(const Request& request, Response& response) const;
  void answerMetrics(const Request& request, Response& response);
  void answerRegions(const Request& request, Response& response);
  void answerRegion(const Request& request, Response& response);
  void answerBytes(const Request& request, Response& response);
  void answerEvents(const Request& request, Response& response);
  void answerFindings(const Request& request, Response& response);
  std::vector<Family> ownFamilies() const;

  Collector& collector_;
  const ServerOptions options_;
  History* const history_;
  std::unique_ptr<httplib::Server> http_;
  std::atomic<U32> streams_ = 0;
  std::atomic<U64> streamsRefused_ = 0;
  std::atomic<U64> scrapes_ = 0;
  const Time start_ = wallTime();
  std::atomic<bool> started_ = false;
  std::atomic<bool> ended_ = false;
  std::atomic<bool> stopping_ = false;
};

}  // namespace Serve
