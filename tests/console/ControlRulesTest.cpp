// The rules of the library through the control socket: what the console refuses is refused there,
// too.
#include <sys/socket.h>
#include <telemetry/ControlSocket.h>

#include <nlohmann/json.hpp>

#include "console/Breaks.h"
#include "console/SessionTest.h"
#include "telemetry/ControlTest.h"

namespace {

using Json = nlohmann::json;

// A line of the console as one of the socket.
Json controlLine(const std::string& line) {
  Console::Words words = Console::wordsOf(line);
  Json json;
  if (words[0] == "let") {
    json["as"] = words[1];
    words.erase(words.begin(), words.begin() + 3);
  }
  json["do"] = words[0];
  json["path"] = words[1];
  if (words[0] == "set") {
    json["value"] = words[2];
    return json;
  }
  json["arguments"] = Json::object();
  for (std::size_t i = 2; i < words.size(); ++i) {
    const auto [name, value] = Console::argumentOf(words[i]);
    json["arguments"][name] = value;
  }
  return json;
}

class ControlledSession : public Support::SessionTest,
                          public testing::WithParamInterface<Breaks::Break> {
 protected:
  explicit ControlledSession(Audit audit) : SessionTest(audit) {
    for (const auto& [name, object] : world().objects) {
      control_->objectIs(name, object.object, object.isConst);
    }
    control_->descriptor();  // its turns are those of this test
    control_->administersIs(true);
    client_ = std::make_unique<Support::ControlClient>(control_->administerPath().bytes());
    answer();
  }

  Json answer() {
    for (int i = 0; i < 10'000; ++i) {
      control_->serve();
      if (const std::string line = client_->takeLine(); !line.empty()) return Json::parse(line);
    }
    return {};
  }
  // What is refused, "" for nothing.
  std::string refused(const std::string& line) {
    if (line.starts_with("wait")) {
      session_.run(line);
      return "";
    }
    client_->send(controlLine(line).dump() + "\n");
    const Json given = answer();
    return given["ok"].get<bool>() ? "" : given["error"].get<std::string>();
  }

  void expectRefusal(const char* shown) {
    for (const char* line : GetParam().before) ASSERT_EQ(refused(line), "") << line;
    const std::string before = outputOf("ls /shadow") + outputOf(shown);
    const std::string why = refused(GetParam().line);
    EXPECT_THAT(why, testing::StartsWith("refused: "));
    EXPECT_THAT(why, testing::HasSubstr(GetParam().rule));
    EXPECT_EQ(outputOf("ls /shadow") + outputOf(shown), before);
    for (const char* line : GetParam().after) EXPECT_EQ(refused(line), "") << line;
    session_.run("wait 0.7");
  }

  Support::Folder sockets_;
  const Telemetry::ControlSocket::Ptr control_ =
      Telemetry::controlSocketFactory(loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock),
                                      "rules", {.directory = sockets_.path()});
  std::unique_ptr<Support::ControlClient> client_;
};

class ControlRulesTest : public ControlledSession {
 protected:
  ControlRulesTest() : ControlledSession(withReader) {}
};
TEST_P(ControlRulesTest, aBrokenRuleIsRefused_andNothingChanges) { expectRefusal("ls /reader"); }

class ControlPatrolRulesTest : public ControlledSession {
 protected:
  ControlPatrolRulesTest() : ControlledSession(withPatrol) {}
};
TEST_P(ControlPatrolRulesTest, aBrokenRuleIsRefused_andNothingChanges) {
  expectRefusal("ls /chip");
}

constexpr auto controlRuleName = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(Rules, ControlRulesTest, testing::ValuesIn(Breaks::breaks),
                         controlRuleName);
INSTANTIATE_TEST_SUITE_P(Rules, ControlPatrolRulesTest, testing::ValuesIn(Breaks::patrolBreaks),
                         controlRuleName);

}  // namespace
