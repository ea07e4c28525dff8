// The server over a connection: its answers, its refusals, and its streams.
#include "tools/umbra/serve/Server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <thread>

#include "MadeUp.h"
#include "tools/umbra/serve/Json.h"

namespace Serve {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;

constexpr Time deadline = 20 * second;

class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    collector_.turn();
    runner_ = std::thread([this] { server_.run(); });
  }
  ~ServerTest() override {
    collector_.stop();
    server_.stop();
    runner_.join();
  }

  httplib::Client client() const { return httplib::Client("127.0.0.1", port_); }
  httplib::Result get(const std::string& path) const {
    httplib::Client to = client();
    for (const Time until = wallTime() + deadline; wallTime() < until;) {
      // The server's thread may not have begun.
      if (auto answer = to.Get(path.c_str())) return answer;
    }
    return {nullptr, httplib::Error::Connection};
  }
  Json json(const std::string& path, int status = 200) const {
    const auto answer = get(path);
    if (!answer) return {};
    EXPECT_EQ(answer->status, status) << path;
    return Json::parse(answer->body);
  }

  MadeUp machine_;
  MadeUpDriver& driver_ = machine_.driverIs("switch1", 20);
  Collector collector_{machine_};
  ServerOptions options_{"127.0.0.1", 0, {}, false};
  Server server_{collector_, options_};
  const int port_ = server_.bind();
  std::thread runner_;
};

// A page: reads a stream in a thread of its own until enough has come or it is dropped.
class Page {
 public:
  Page(int port, std::string expected, std::string lastId = "")
      : expected_(std::move(expected)), thread_([this, port, lastId] {
          httplib::Client client("127.0.0.1", port);
          client.set_read_timeout(20);
          httplib::Headers headers;
          if (!lastId.empty()) headers.emplace("Last-Event-ID", lastId);
          client.Get("/api/stream", headers, [this](const char* bytes, std::size_t count) {
            const std::lock_guard lock(mutex_);
            text_.append(bytes, count);
            if (text_.find(expected_) != std::string::npos) found_ = true;
            return !dropped_;
          });
          ended_ = true;
        }) {}
  ~Page() {
    dropped_ = true;
    thread_.join();
  }

  bool waits() const {
    for (const Time until = wallTime() + deadline; wallTime() < until && !found_ && !ended_;) {
      std::this_thread::yield();
    }
    return found_;
  }
  bool ends() const {
    for (const Time until = wallTime() + deadline; wallTime() < until && !ended_;) {
      std::this_thread::yield();
    }
    return ended_;
  }
  std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 private:
  const std::string expected_;
  mutable std::mutex mutex_;
  std::string text_;
  std::atomic<bool> found_ = false;
  std::atomic<bool> ended_ = false;
  std::atomic<bool> dropped_ = false;
  std::thread thread_;
};

TEST_F(ServerTest, get_ofThePageHasIt) {
  const auto answer = get("/");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_THAT(answer->body, HasSubstr("<title>Umbra</title>"));
  EXPECT_THAT(answer->get_header_value("Content-Security-Policy"), HasSubstr("default-src 'none'"));
  for (const char* path : {"/main.js", "/page.css", "/chart.min.js", "/worker.js"}) {
    EXPECT_EQ(get(path)->status, 200) << path;
  }
}

TEST_F(ServerTest, get_ofAFileThatTheBrowserHasIsNotSentAgain) {
  const std::string tag = get("/main.js")->get_header_value("ETag");
  httplib::Client to = client();
  EXPECT_EQ(to.Get("/main.js", {{"If-None-Match", tag}})->status, 304);
}

TEST_F(ServerTest, get_ofMetricsIsNegotiated) {
  EXPECT_EQ(get("/metrics")->get_header_value("Content-Type"),
            "text/plain; version=0.0.4; charset=utf-8");
  httplib::Client to = client();
  const auto open = to.Get("/metrics", {{"Accept", "application/openmetrics-text;version=1.0.0"}});
  EXPECT_EQ(open->get_header_value("Content-Type"),
            "application/openmetrics-text; version=1.0.0; charset=utf-8");
  EXPECT_THAT(open->body, EndsWith("# EOF\n"));
  EXPECT_THAT(open->body, HasSubstr("umbra_serve_scrapes_total 2\n"));
}

TEST_F(ServerTest, get_ofDriversHasAllButTheirRegions) {
  const Json answer = json("/api/drivers");
  ASSERT_THAT(answer["drivers"], SizeIs(1));
  EXPECT_EQ(answer["drivers"][0]["tables"]["shadow"][0]["patrolState"], "reading");
  EXPECT_FALSE(answer["drivers"][0]["tables"].contains("region"));
}

TEST_F(ServerTest, get_ofARegionHasItsColumnsWithUnitAndHelp) {
  const Json answer = json("/api/region?driver=switch1&region=region-00003");
  EXPECT_EQ(answer["row"], 3);
  EXPECT_EQ(answer["values"][0]["value"], "region-00003");
  EXPECT_EQ(answer["values"][5]["unit"], "bytes");
}

TEST_F(ServerTest, get_ofWhatIsNotThereSaysSo) {
  EXPECT_EQ(json("/api/region?driver=switch1&region=none", 404)["error"],
            "there is no region \"none\"");
  EXPECT_EQ(json("/api/regions?driver=none", 404)["error"], "there is no driver \"none\"");
  EXPECT_EQ(json("/api/events?driver=switch1&kind=none", 400)["error"],
            "there is no kind of event \"none\"");
  EXPECT_EQ(get("/none")->status, 404);
}

TEST_F(ServerTest, get_ofBytesWithoutASocketHasWhatTheLogSays) {
  driver_.find(3, 17);
  collector_.turn();
  const Json answer = json("/api/bytes?driver=switch1&region=region-00003&first=0&count=64");
  EXPECT_EQ(answer["why"], "the driver has no control socket");
  EXPECT_EQ(answer["findings"]["17"]["expected"], "12 34 56 78");
  EXPECT_EQ(answer["findings"]["17"]["actual"], "12 34 56 79");
}

TEST_F(ServerTest, get_underAnotherNameOfTheMachineIsRefused) {
  get("/");
  httplib::Client to = client();
  const auto answer = to.Get("/api/drivers", {{"Host", "evil.example:9469"}});
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 403);
  for (const char* host : {"localhost:1", "127.0.0.1", "[::1]:80"}) {
    EXPECT_EQ(to.Get("/api/drivers", {{"Host", host}})->status, 200) << host;
  }
}

TEST_F(ServerTest, post_toAcknowledgeIsRefusedUnlessTheServerMay) {
  get("/");
  httplib::Client to = client();
  const auto answer = to.Post("/api/acknowledge?driver=switch1&alarm=a");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 403);
  EXPECT_EQ(Json::parse(answer->body)["error"], "this server was started without --acknowledge");
}

TEST_F(ServerTest, stream_tellsWhatChanges) {
  Page page(port_, "\"entry\":17");
  Page hello(port_, "event: hello");
  ASSERT_TRUE(hello.waits());
  driver_.find(3, 17);
  collector_.turn();
  EXPECT_TRUE(page.waits()) << page.text();
  EXPECT_THAT(page.text(), HasSubstr("retry: 500\n"));
}

TEST_F(ServerTest, stream_goesOnWhereAPageWas) {
  driver_.find(3, 17);
  collector_.turn();
  const std::string place = std::to_string(collector_.epoch()) + "-1";
  Page page(port_, "\"entry\":17", place);
  EXPECT_TRUE(page.waits()) << page.text();
  EXPECT_THAT(page.text(), HasSubstr("event: again"));
}

TEST_F(ServerTest, stream_ofAPlaceOfAnotherRunBeginsAnew) {
  Page page(port_, "event: hello", "17-1");
  EXPECT_TRUE(page.waits()) << page.text();
}

TEST_F(ServerTest, stream_beyondTheLimitEndsWithAReasonAndTheOthersAreServed) {
  std::vector<std::unique_ptr<Page>> pages;
  // One after the other: a server's queue of those that are not accepted yet is short.
  for (U32 i = 1; i <= Server::maxStreams; ++i) {
    pages.push_back(std::make_unique<Page>(port_, "\"entry\":17"));
    const std::string count = "umbra_serve_streams " + std::to_string(i) + "\n";
    bool isServed = false;
    for (const Time until = wallTime() + deadline; !isServed && wallTime() < until;) {
      isServed = get("/metrics")->body.find(count) != std::string::npos;
    }
    ASSERT_TRUE(isServed) << count;
  }
  Page last(port_, "event: refused");
  EXPECT_TRUE(last.waits()) << last.text();
  EXPECT_TRUE(last.ends());
  EXPECT_THAT(last.text(), HasSubstr("retry: 30000\n"));
  EXPECT_EQ(get("/api/drivers")->status, 200);
  driver_.find(3, 17);
  collector_.turn();
  for (const auto& page : pages) EXPECT_TRUE(page->waits()) << page->text();
  for (const auto& page : pages) page->waits();
  driver_.find(3, 18);  // so that each sees that it was dropped
  pages[0].reset();
  collector_.stop();
}

TEST_F(ServerTest, bind_toAPortThatIsUsedFails) {
  ServerOptions options;
  options.port = port_;
  Server second(collector_, options);
  try {
    second.bind();
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("cannot be had"));
  }
}

}  // namespace
}  // namespace Serve
