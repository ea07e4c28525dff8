// What the server asks of a driver's control socket.
#include "tools/umbra/serve/Control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

namespace Serve {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A driver's side of the socket: takes one client, and answers its lines one after the other.
class Listener {
 public:
  explicit Listener(std::vector<std::string> answers) : answers_(std::move(answers)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path.c_str());
    listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~Listener() {
    join();
    close(listener_);
    unlink(path.c_str());
  }

  // The lines that came, once the client is gone.
  const std::vector<std::string>& lines() {
    join();
    return lines_;
  }

  const std::string path =
      std::filesystem::temp_directory_path() / ("serve" + std::to_string(getpid()) + ".sock");

 private:
  void join() {
    if (thread_.joinable()) thread_.join();
  }
  void serve() {
    const int client = accept(listener_, nullptr, nullptr);
    std::string pending;
    say(client, R"({"umbra":1,"name":"switch1"})");
    for (const std::string& answer : answers_) {
      char bytes[1024];
      while (pending.find('\n') == std::string::npos) {
        const ssize_t count = read(client, bytes, sizeof bytes);
        if (count <= 0) break;
        pending.append(bytes, static_cast<std::size_t>(count));
      }
      lines_.push_back(pending.substr(0, pending.find('\n')));
      pending.clear();
      if (answer.empty()) break;
      say(client, answer);
    }
    close(client);
  }
  static void say(int client, const std::string& text) {
    const std::string line = text + "\n";
    EXPECT_EQ(write(client, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }

  const std::vector<std::string> answers_;
  std::vector<std::string> lines_;
  int listener_ = -1;
  std::thread thread_;
};

TEST(Control, entriesOf_areThoseOfAllPartsOfTheAnswer) {
  Listener driver({R"({"ok":true,"more":true,"items":[{"entry":3,"address":"0x0:00000010",)"
                   R"("expected":"x12xab","known":true,"isWritten":true,"policy":"audited",)"
                   R"("name":"mac[3]","fields":"mac[3] valid=1",)"
                   R"("actual":"x12xaa"}]})"
                   "\n"
                   R"({"ok":true,"items":[{"entry":4,"known":false}]})"});
  const Json entries = entriesOf(driver.path, "shadow", "mac", 3, 2);
  EXPECT_THAT(driver.lines(),
              ElementsAre(R"({"do":"dump","path":"/shadow/chipMemory/mac","first":3,"count":2})"));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]["expected"], "12 ab");
  EXPECT_EQ(entries[0]["actual"], "12 aa");
  EXPECT_EQ(entries[0]["known"], "by write");
  EXPECT_EQ(entries[0]["policy"], "audited");
  EXPECT_EQ(entries[0]["name"], "mac[3]");
  EXPECT_EQ(entries[0]["fields"], "mac[3] valid=1");
  EXPECT_FALSE(entries[1].contains("name"));
  EXPECT_EQ(entries[1]["known"], "unknown");
}

TEST(Control, entriesOf_whatTheDriverRefusesIsAnErrorWithItsText) {
  Listener driver({R"({"ok":false,"error":"there is no region mac"})"});
  try {
    entriesOf(driver.path, "shadow", "mac", 0, 1);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), driver.path + ": there is no region mac");
  }
}

TEST(Control, entriesOf_aDriverThatClosesOrTalksNonsenseIsAnError) {
  for (const char* answer : {"", "nonsense", "[]"}) {
    Listener driver({answer});
    EXPECT_THROW(entriesOf(driver.path, "shadow", "mac", 0, 1), std::runtime_error) << answer;
  }
}

TEST(Control, control_withoutADriverSaysWhy) {
  try {
    Control control("/nowhere/switch1.sock");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("/nowhere/switch1.sock: No such file or directory"));
  }
}

TEST(Control, acknowledge_callsTheBoardThatHasTheAlarm) {
  Listener driver({R"({"ok":true,"items":[{"name":"shadow","type":"Driver::AuditedShadow"},)"
                   R"({"name":"alarms","type":"Driver::AlarmBoard"}]})",
                   R"({"ok":true,"items":[{"key":"'often:mac'"}]})",
                   R"({"ok":true,"value":true})"});
  acknowledge(driver.path, "often:mac");
  EXPECT_THAT(
      driver.lines(),
      ElementsAre(
          R"({"do":"list","path":"/"})", R"({"do":"list","path":"/alarms/alarm"})",
          R"({"do":"call","path":"/alarms/doAcknowledge","arguments":{"name":"'often:mac'"}})"));
}

TEST(Control, acknowledge_ofAnAlarmThatIsNotThereSaysSo) {
  Listener driver({R"({"ok":true,"items":[{"name":"alarms","type":"Driver::AlarmBoard"}]})",
                   R"({"ok":true,"items":[]})"});
  try {
    acknowledge(driver.path, "often");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "the driver has no alarm \"often\"");
  }
}

}  // namespace
}  // namespace Serve
