// A driver with a control socket, and clients of it in the same thread: time is moved by hand.
#pragma once

#include <Driver/AlarmBoard.h>
#include <Driver/AuditedShadow.h>
#include <Driver/ChipWriter.h>
#include <Hardware/GenericChipHam.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <telemetry/ControlSocket.h>
#include <testkit/FakeChip.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

#include "support/ManualLoop.h"

namespace Support {

// A folder that is removed at the end.
class Folder {
 public:
  Folder() {
    std::string pattern = testing::TempDir() + "umbraXXXXXX";
    path_ = mkdtemp(pattern.data()) == nullptr ? "" : pattern;
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// One connection. Whoever waits for a line turns the driver's loop meanwhile.
class ControlClient {
 public:
  explicit ControlClient(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    isConnected_ =
        ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~ControlClient() { close(); }
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  bool isConnected() const { return isConnected_; }
  int descriptor() const { return socket_; }
  void close() {
    if (socket_ >= 0) ::close(std::exchange(socket_, -1));
  }
  // Bytes that were taken.
  std::size_t send(std::string_view bytes) {
    const ssize_t size = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
  }
  // What has come so far.
  const std::string& received() {
    char bytes[65536];
    for (ssize_t size; (size = ::recv(socket_, bytes, sizeof bytes, 0)) != -1;) {
      if (size == 0) {
        hasEnded_ = true;
        break;
      }
      received_.append(bytes, static_cast<std::size_t>(size));
    }
    return received_;
  }
  bool hasEnded() {
    received();
    return hasEnded_;
  }
  // "" where no line is complete.
  std::string takeLine() {
    received();
    const std::size_t end = received_.find('\n');
    if (end == std::string::npos) return "";
    const std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
  }

 private:
  int socket_;
  bool isConnected_;
  bool hasEnded_ = false;
  std::string received_;
};

class ControlTest : public testing::Test {
 protected:
  using Json = nlohmann::json;
  using ChipMemory = Hardware::ChipMemory;

  explicit ControlTest(Telemetry::ControlOptions options = {}) : options_(std::move(options)) {
    options_.directory = folder_.path();
    shadow_->chipMemoryIs(mac_);
    shadow_->chipMemoryIs(vlan_);
    mac_->shadowEnabledIs(true);
    mac_->auditEnabledIs(true);
    shadow_->stateIs(Hardware::HardwareShadow::configured());
    control_ = made();
    control_->administersIs(true);
  }
  ~ControlTest() override { control_ = nullptr; }

  Telemetry::ControlSocket::Ptr made() {
    auto control = Telemetry::controlSocketFactory(
        loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock), "switch1", options_);
    control->objectIs("shadow", shadow_);
    control->objectIs("alarms", alarms_);
    control->objectIs("activity", loop_.activity);
    control->objectIs("clock", Zint::Ptr<const Zint::Clock>(loop_.clock));
    return control;
  }

  std::string lookPath() const { return folder_.path() + "/switch1.sock"; }
  std::string adminPath() const { return folder_.path() + "/switch1.admin.sock"; }

  void turn(Zint::Seconds seconds = 0.02) { loop_.turnAt(loop_.clock->time() + seconds); }
  // "" after many turns without one.
  std::string nextLine(ControlClient& client) {
    for (int i = 0; i < 20'000; ++i) {
      if (std::string line = client.takeLine(); !line.empty()) return line;
      turn(0.001);
    }
    return "";
  }
  Json answer(ControlClient& client, const std::string& line) {
    client.send(line + "\n");
    return Json::parse(nextLine(client));
  }
  // All parts of an answer as one, the greeting passed over.
  Json all(ControlClient& client, const std::string& line) {
    Json whole = answer(client, line);
    Json part = whole;
    while (part.value("more", false)) {
      part = Json::parse(nextLine(client));
      for (const Json& item : part["items"]) whole["items"].push_back(item);
      if (!part["ok"].get<bool>()) return part;
    }
    whole.erase("more");
    return whole;
  }
  std::string refusal(ControlClient& client, const std::string& line) {
    const Json given = answer(client, line);
    return given["ok"].get<bool>() ? "" : given["error"].get<std::string>();
  }

  // Connected, the greeting read.
  std::unique_ptr<ControlClient> looking() { return greeted(lookPath()); }
  std::unique_ptr<ControlClient> administering() { return greeted(adminPath()); }
  std::unique_ptr<ControlClient> greeted(const std::string& path) {
    auto client = std::make_unique<ControlClient>(path);
    EXPECT_TRUE(client->isConnected());
    EXPECT_THAT(nextLine(*client), testing::HasSubstr("\"umbra\":1"));
    return client;
  }

  Folder folder_;
  Telemetry::ControlOptions options_;
  ManualLoop loop_;
  const TestKit::FakeChip::Ptr registers_ =
      TestKit::fakeChipFactory("switch1", TestKit::Unnamed::plain);
  const Zint::Ptr<Hardware::GenericChipHam> ham_ =
      Hardware::genericChipHamFactory("ham", registers_);
  const ChipMemory::Ptr mac_ =
      Hardware::chipMemoryFactory("mac", Hardware::ChipAddress(1, 0x1000), 16, 4, 4, ham_);
  const ChipMemory::Ptr vlan_ =
      Hardware::chipMemoryFactory("vlan", Hardware::ChipAddress(1, 0x2000), 8, 8, 8, ham_);
  const Driver::AuditedShadow::Ptr shadow_ =
      Driver::auditedShadowFactory(loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock));
  const Driver::AlarmBoard::Ptr alarms_ = Driver::alarmBoardFactory(
      "alarms", loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock));
  Telemetry::ControlSocket::Ptr control_;
};

}  // namespace Support
