// The control socket as a socket: who may connect, what lines do that are none, and clients that
// are slow, dead, too many or hostile.
#include <sys/resource.h>
#include <sys/wait.h>

#include <grp.h>
#include <poll.h>

#include "telemetry/ControlTest.h"

#ifdef __SANITIZE_ADDRESS__
#define NEEDS_DESCRIPTORS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NEEDS_DESCRIPTORS
#endif
#endif

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

class ControlSocketTest : public Support::ControlTest {
 protected:
  using ControlTest::ControlTest;

  std::string refusalOfMaking() {
    try {
      made();
    } catch (const Zint::RangeException& refused) {
      return refused.what();
    }
    return "";
  }
  U32 modeOf(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 ? U32{found.st_mode} & 07777 : 0;
  }
};

// --- Names in the file system ---

TEST_F(ControlSocketTest, administersIs_makesAndRemovesTheSocket) {
  EXPECT_EQ(control_->path(), lookPath());
  EXPECT_EQ(control_->administerPath(), adminPath());
  const auto admin = administering();
  const auto client = looking();
  control_->administersIs(false);
  turn();
  EXPECT_EQ(control_->administerPath(), "");
  EXPECT_FALSE(std::filesystem::exists(adminPath()));
  EXPECT_TRUE(admin->hasEnded());
  EXPECT_EQ(refusal(*client, R"({"do":"ping"})"), "");
  control_ = nullptr;
  EXPECT_FALSE(std::filesystem::exists(lookPath()));
}

TEST_F(ControlSocketTest, mode_doesNotDependOnTheUmask) {
  for (const mode_t mask : {022u, 077u, 0u}) {
    control_ = nullptr;
    const mode_t before = umask(mask);
    control_ = made();
    control_->administersIs(true);
    umask(before);
    EXPECT_EQ(modeOf(lookPath()), 0660u);
    EXPECT_EQ(modeOf(adminPath()), 0660u);
  }
}

// A member of the group and another user, tried as such.
TEST_F(ControlSocketTest, anotherUser_isRefused_aMemberOfTheGroupIsNot) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  const auto connectAs = [&](U32 user, U32 group) {
    const pid_t child = fork();
    if (child == 0) {
      const bool isOther = setgroups(0, nullptr) == 0 && setresgid(group, group, group) == 0 &&
                           setresuid(user, user, user) == 0;
      const Support::ControlClient client(lookPath());
      _exit(!isOther ? 9 : client.isConnected() ? 0 : errno == EACCES ? 1 : 2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  };
  for (const mode_t mask : {022u, 077u}) {
    control_ = nullptr;
    options_.group = 4321;
    const mode_t before = umask(mask);
    control_ = made();
    umask(before);
    EXPECT_EQ(connectAs(1234, 4321), 0);
    EXPECT_EQ(connectAs(1234, 1234), 1);
  }
}

TEST_F(ControlSocketTest, aForkedProcess_leavesTheSocketsAndTheirClientsToItsParent) {
  control_->administersIs(true);
  const auto client = looking();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (int i = 0; i < 10; ++i) turn();
    control_ = nullptr;
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::filesystem::exists(lookPath()));
  EXPECT_TRUE(std::filesystem::exists(adminPath()));
  EXPECT_EQ(answer(*client, R"({"do":"ping"})")["ok"], true);
  EXPECT_EQ(answer(*administering(), R"({"do":"ping"})")["ok"], true);
}

TEST_F(ControlSocketTest, aServedSocket_isRefused_aDeadOneIsReplaced) {
  EXPECT_EQ(refusalOfMaking(), lookPath() + ": another driver of this name serves it");
  control_ = nullptr;
  // What a driver leaves that dies: a name at which nobody listens.
  const int dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, lookPath().c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(dead);
  control_ = made();
  looking();
}

TEST_F(ControlSocketTest, whatCannotBeBound_isRefusedWithAText) {
  control_ = nullptr;
  std::ofstream(lookPath()) << "mine";
  EXPECT_EQ(refusalOfMaking(), lookPath() + ": is there, and is no socket");
  std::filesystem::remove(lookPath());
  const std::string folder = options_.directory;
  options_.directory = folder + "/none";
  EXPECT_THAT(refusalOfMaking(), HasSubstr("No such file or directory"));
  options_.directory = folder + "/" + std::string(100, 'd');
  EXPECT_THAT(refusalOfMaking(), HasSubstr("a socket's path has at most 107 bytes"));
  options_.directory = folder;
  for (const char* name : {"", ".", ".hidden", "a/b", "a b"}) {
    EXPECT_THROW(Telemetry::controlSocketFactory(
                     loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock), name, options_),
                 Zint::RangeException);
  }
}

TEST_F(ControlSocketTest, aNameThatAnotherSocketHasTaken_staysAtTheEnd) {
  std::filesystem::remove(lookPath());
  const auto other = made();
  control_ = nullptr;
  EXPECT_TRUE(std::filesystem::exists(lookPath()));
}

// --- Lines ---

TEST_F(ControlSocketTest, whatIsNoCommand_isRefusedAndTheNextLineAnswered) {
  const auto client = looking();
  const std::string deep =
      "{\"do\":\"get\",\"path\":" + std::string(33, '[') + std::string(33, ']') + "}";
  const std::pair<std::string, const char*> lines[] = {
      {"hello", "no JSON at byte"},
      {"{", "no JSON at byte"},
      {"[]", "a line has no arrays"},
      {"7", "a line is an object"},
      {"{}", "do must be a text"},
      {"{\"do\":7}", "do must be a text"},
      {"{\"do\":\"ping\",\"do\":\"ping\"}", "a line has do twice"},
      {"{\"do\":\"ping\",\"id\":{}}", "only arguments is an object"},
      {"{\"do\":\"ping\",\"id\":true}", "an id is a number or a text"},
      {"{\"do\":\"call\",\"path\":\"/shadow/x\",\"arguments\":[1]}", "a line has no arrays"},
      {"{\"do\":\"call\",\"path\":\"/shadow/x\",\"arguments\":1}", "arguments is an object"},
      {"{\"do\":\"call\",\"path\":\"/shadow/x\",\"arguments\":{\"a\":1,\"a\":2}}",
       "a line has a twice"},
      {"{\"do\":\"call\",\"path\":\"/shadow/x\",\"arguments\":{\"a\":{}}}",
       "only arguments is an object"},
      {"{\"do\":\"call\",\"path\":\"/\"}", "/ is no operation"},
      {"{\"do\":\"get\",\"path\":\"\xff\"}", "no JSON at byte"},
      {"{\"do\":\"dump\",\"path\":\"/shadow\",\"first\":1e400}", "no JSON at byte"},
      {"{\"do\":\"dump\",\"path\":\"/shadow\",\"first\":-1}", "first must be a whole number"},
      {"{\"do\":\"dump\",\"path\":\"/shadow\",\"first\":18446744073709551616}",
       "first must be a whole number"},
      {deep, "at most 32 levels deep"},
      {"{\"do\":\"get\",\"path\":\"" + std::string(1'024, 'x') + "\"}", "at most 1024 bytes long"},
  };
  for (const auto& [line, text] : lines)
    EXPECT_THAT(refusal(*client, line), HasSubstr(text)) << line;
  EXPECT_EQ(refusal(*client, "{\"do\":\"ping\"}\r"), "");
  EXPECT_EQ(control_->refusedLines(), 1u);
}

TEST_F(ControlSocketTest, aLineOfTheGreatestLength_isAnswered) {
  const auto client = looking();
  std::string line = "{\"do\":\"ping\"}";
  line.insert(1, 1'024 - line.size(), ' ');
  EXPECT_EQ(refusal(*client, line), "");
}

TEST_F(ControlSocketTest, aLineThatComesByteByByte_isAnswered) {
  const auto client = looking();
  for (const char c : std::string("{\"do\":\"ping\",\"id\":1}\n")) {
    client->send({&c, 1});
    turn();
  }
  EXPECT_EQ(nextLine(*client), R"({"id":1,"ok":true})");
}

TEST_F(ControlSocketTest, manyLinesAtOnce_areAnsweredInTheirOrder) {
  const auto client = looking();
  std::string lines;
  for (int i = 0; i < 500; ++i) lines += "{\"do\":\"ping\",\"id\":" + std::to_string(i) + "}\n";
  std::size_t sent = 0;
  for (int i = 0; i < 500; ++i) {
    if (sent < lines.size()) sent += client->send(std::string_view(lines).substr(sent));
    EXPECT_EQ(Json::parse(nextLine(*client))["id"], i);
  }
}

TEST_F(ControlSocketTest, badTextOfTheDriver_isReplaced) {
  shadow_->stateIs(Hardware::HardwareShadow::unconfigured());
  shadow_->chipMemoryIs(
      Hardware::chipMemoryFactory("a\xff\x01z", Hardware::ChipAddress(1, 0x3000), 1, 4, 4, ham_));
  const auto client = looking();
  const Json region =
      answer(*client, R"({"do":"get","path":"/shadow/chipMemory/0x1:00003000/name"})");
  EXPECT_THAT(region["value"].get<std::string>(), HasSubstr("a"));
}

// Skipped to its end in a bounded room: 64 MiB here, 1 GB in the attacks.
TEST_F(ControlSocketTest, aLongLine_isSkippedToItsEnd) {
  const auto client = looking();
  const std::string block(1u << 16, 'x');
  std::size_t left = std::size_t{64} << 20;
  while (left != 0) {
    const std::size_t sent =
        client->send(std::string_view(block).substr(0, std::min(left, block.size())));
    left -= sent;
    if (sent == 0) turn(0.001);
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  while (client->send("\n{\"do\":\"ping\",\"id\":1}\n") == 0) turn(0.001);
  EXPECT_THAT(nextLine(*client), HasSubstr("at most 1024 bytes long"));
  EXPECT_EQ(nextLine(*client), R"({"id":1,"ok":true})");
}

// --- Clients ---

class FewClientsTest : public ControlSocketTest {
 protected:
  FewClientsTest() : ControlSocketTest({.clients = 2}) {}
};

TEST_F(FewClientsTest, theNextClient_isToldWhyAndClosed) {
  const auto first = looking();
  const auto second = administering();
  Support::ControlClient third(lookPath());
  EXPECT_THAT(nextLine(third), HasSubstr("2 clients are connected already"));
  EXPECT_TRUE(third.hasEnded());
  EXPECT_EQ(control_->refusedClients(), 1u);
  EXPECT_EQ(control_->clients(), 2u);
  first->close();
  turn();
  looking();
}

TEST_F(FewClientsTest, anIdleClient_givesWayToAnotherOne) {
  const auto idle = looking();
  const auto watching = looking();
  EXPECT_EQ(refusal(*watching, R"({"do":"watch","path":"/shadow/audits"})"), "");
  turn(61);
  const auto third = looking();
  EXPECT_THAT(idle->takeLine(), HasSubstr("another client needs the place of this idle one"));
  EXPECT_TRUE(idle->hasEnded());
  EXPECT_FALSE(watching->hasEnded());
}

TEST_F(ControlSocketTest, aThousandClients_areToldOrServed) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur < 2'100) GTEST_SKIP() << "too few descriptors";
  std::vector<std::unique_ptr<Support::ControlClient>> clients;
  U32 refused = 0;
  for (int i = 0; i < 1'000; ++i) {
    clients.push_back(std::make_unique<Support::ControlClient>(lookPath()));
    if (!clients.back()->isConnected()) {
      turn(0.001);  // the queue of the system is full
      clients.back() = std::make_unique<Support::ControlClient>(lookPath());
    }
    const std::string first = nextLine(*clients.back());
    refused += first.find("32 clients are connected already") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(refused, 1'000u - 32);
  EXPECT_EQ(refusal(*clients[7], R"({"do":"ping"})"), "");
}

// A client that does not read is asked for no more, keeps no memory beyond the limit, and is
// dropped.
TEST_F(ControlSocketTest, aClientThatNeverReads_isDroppedAndCounted) {
  const auto deaf = looking();
  const auto other = looking();
  const std::string lines = [] {
    std::string all;
    for (int i = 0; i < 40; ++i) all += "{\"do\":\"describe\",\"path\":\"/shadow\"}\n";
    return all;
  }();
  for (int i = 0; i < 3'000 && control_->droppedClients() == 0; ++i) {
    deaf->send(lines);
    turn(0.01);
    if (i % 100 == 0) {
      EXPECT_EQ(refusal(*other, R"({"do":"ping"})"), "");
    }
  }
  EXPECT_EQ(control_->droppedClients(), 1u);
  EXPECT_EQ(control_->clients(), 1u);
  EXPECT_EQ(refusal(*other, R"({"do":"ping"})"), "");
}

TEST_F(ControlSocketTest, aClientThatDisconnectsWithinAnAnswer_isForgotten) {
  for (std::size_t taken = 1; taken < 4'000; taken += 97) {
    const auto client = looking();
    client->send("{\"do\":\"describe\",\"path\":\"/shadow\"}\n");
    for (int i = 0; client->received().size() < taken && i < 1'000; ++i) turn(0.0005);
    client->close();
  }
  for (int i = 0; i < 10; ++i) turn();
  EXPECT_EQ(control_->clients(), 0u);
  EXPECT_EQ(control_->droppedClients(), 0u);
}

TEST_F(ControlSocketTest, whatAClientSentBeforeItEnded_isCarriedOut) {
  const auto admin = administering();
  admin->send("{\"do\":\"set\",\"path\":\"/shadow/paused\",\"value\":true}\n");
  shutdown(admin->descriptor(), SHUT_WR);
  EXPECT_THAT(nextLine(*admin), HasSubstr("\"ok\":true"));
  EXPECT_TRUE(shadow_->paused());
  for (int i = 0; i < 10; ++i) turn();
  EXPECT_EQ(control_->clients(), 0u);
}

// Without descriptors the socket rests for a second: the loop does not spin.
TEST_F(ControlSocketTest, withoutDescriptors_itIsNotPolledForASecond) {
#ifdef NEEDS_DESCRIPTORS
  GTEST_SKIP() << "the sanitizer needs descriptors itself, to look at memory";
#endif
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  Support::ControlClient waiting(lookPath());
  const int highest = dup(0);
  ::close(highest);
  const rlimit none{static_cast<rlim_t>(highest), limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  for (int i = 0; i < 40; ++i) turn(0.02);
  EXPECT_EQ(control_->acceptFailures(), 1u);
  for (int i = 0; i < 40; ++i) turn(0.02);
  EXPECT_EQ(control_->acceptFailures(), 2u);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_THAT(nextLine(waiting), HasSubstr("\"umbra\":1"));
}

// --- Loops and ends ---

TEST_F(ControlSocketTest, aLoopOfTheDriversOwn_isToldWhenThereIsSomethingToDo) {
  pollfd poll{control_->descriptor(), POLLIN, 0};
  EXPECT_EQ(::poll(&poll, 1, 0), 0);
  Support::ControlClient client(lookPath());
  EXPECT_EQ(::poll(&poll, 1, 1000), 1);
  std::string lines;
  client.send("{\"do\":\"describe\",\"path\":\"/shadow\"}\n");
  for (int i = 0; i < 1'000 && lines.find("isWritten") == std::string::npos; ++i) {
    ASSERT_EQ(::poll(&poll, 1, 1000), 1);
    control_->serve();
    lines = client.received();
  }
  for (int i = 0; i < 20 && ::poll(&poll, 1, 0) == 1; ++i) control_->serve();
  EXPECT_EQ(::poll(&poll, 1, 0), 0);
}

TEST_F(ControlSocketTest, anOperationThatDropsTheSocket_endsItAfterTheTurn) {
  control_->onCommandIs([&](U32, U32, const std::string&) {
    control_->serve();  // nothing happens from within a turn
    control_ = nullptr;
  });
  const auto admin = administering();
  admin->send("{\"do\":\"set\",\"path\":\"/shadow/paused\",\"value\":true}\n");
  for (int i = 0; i < 10; ++i) turn();
  EXPECT_TRUE(shadow_->paused());
  EXPECT_TRUE(admin->hasEnded());
  EXPECT_FALSE(std::filesystem::exists(lookPath()));
}

TEST_F(ControlSocketTest, itsFiguresAreAttributes) {
  control_->objectIs("control", control_);
  const auto client = looking();
  EXPECT_EQ(answer(*client, R"({"do":"get","path":"/control/clients"})")["value"], 1);
  EXPECT_EQ(answer(*client, R"({"do":"get","path":"/control/path"})")["value"], lookPath());
  control_->objectIs("control", Zint::Ptr<Telemetry::ControlSocket>());
  EXPECT_THROW(control_->objectIs("no/name", shadow_), Zint::RangeException);
}

}  // namespace
