// A device model of an emulator that others wrote, without a guest: its registers are reached
// through the emulator's test protocol. Skipped where there is no qemu-system-x86_64 (./dev setup
// rig).
#include <Driver/AuditedShadow.h>
#include <Driver/ChipAccess.h>
#include <Driver/PresentChip.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/bus/RegisterHam.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#include "support/ManualLoop.h"

namespace {

using Hardware::ChipAddress;
using Platform::RegisterRun;

constexpr U32 filterTable = 0x5600, filterWords = 128, status = 8, vlanType = 0x38;

// The emulator, stopped before its first instruction, with one network card in slot 5.
class Emulator {
 public:
  Emulator()
      : path_(testing::TempDir() + "device-model-" + std::to_string(getpid()) + ".socket"),
        child_(fork()) {
    if (child_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const std::string test = "unix:" + path_ + ",server=on,wait=off";
      execlp("qemu-system-x86_64", "qemu-system-x86_64", "-accel", "tcg", "-S", "-M", "q35", "-m",
             "16", "-nodefaults", "-display", "none", "-qtest", test.c_str(), "-qtest-log", "none",
             "-device", "e1000,bus=pcie.0,addr=5", nullptr);
      _exit(127);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    for (int tries = 0; tries < 1000 && !isConnected_; ++tries) {
      socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      isConnected_ =
          connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
      if (isConnected_) break;
      close(socket_);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!isConnected_) return;
    input_ = fdopen(socket_, "r");
    configIs(0x10, cardBegin);
    configIs(0x04, 0x6);  // memory and bus mastering on
  }
  ~Emulator() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    if (input_ != nullptr) fclose(input_);
    std::filesystem::remove(path_);
  }

  bool isConnected() const { return isConnected_; }
  U32 read(U32 address) { return ask(Zint::format("readl 0x%x", cardBegin + address)); }
  void write(U32 address, U32 value) {
    ask(Zint::format("writel 0x%x 0x%x", cardBegin + address, value));
  }
  void configIs(U32 address, U32 value) {
    ask(Zint::format("outl 0xcf8 0x%x", 0x80000000u | 5u << 11 | address));
    ask(Zint::format("outl 0xcfc 0x%x", value));
  }

 private:
  static constexpr U32 cardBegin = 0xfe000000;

  U32 ask(const Zint::String8& question) {
    const std::string line = question.bytes() + "\n";
    EXPECT_EQ(send(socket_, line.data(), line.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(line.size()));
    char answer[128];
    for (;;) {
      if (fgets(answer, sizeof answer, input_) == nullptr) {
        throw Platform::BusError("emulator", 0, 0, "does not answer");
      }
      if (std::strncmp(answer, "OK", 2) == 0) break;
    }
    return static_cast<U32>(std::strtoull(answer + 2, nullptr, 0));
  }

  const std::string path_;
  const pid_t child_;
  int socket_ = -1;
  FILE* input_ = nullptr;
  bool isConnected_ = false;
};

class ModelBus : public Platform::RegisterBus {
 public:
  explicit ModelBus(Emulator& emulator) : emulator_(emulator) {}
  void read(const RegisterRun& run, U8* bytes) override {
    for (U32 i = 0; i < run.count; ++i) {
      const U32 value = emulator_.read(run.address + 4 * i);
      std::memcpy(bytes + 4 * std::size_t{i}, &value, 4);
    }
  }
  void write(const RegisterRun& run, const U8* bytes) override {
    for (U32 i = 0; i < run.count; ++i) {
      U32 value;
      std::memcpy(&value, bytes + 4 * std::size_t{i}, 4);
      emulator_.write(run.address + 4 * i, value);
    }
  }
  Zint::String8 name() const override { return "network card"; }

 private:
  Emulator& emulator_;
};

bool isEmulatorInstalled() {
  return std::system("command -v qemu-system-x86_64 >/dev/null 2>&1") == 0;
}

U32 wordOf(U32 entry) { return entry * 2654435761u | 1; }

struct DeviceModel : testing::Test {
  void SetUp() override {
    if (!isEmulatorInstalled()) GTEST_SKIP() << "no qemu-system-x86_64: ./dev setup rig";
    emulator = std::make_unique<Emulator>();
    ASSERT_TRUE(emulator->isConnected());
    const U32 known = emulator->read(status);
    ASSERT_NE(known, 0u);
    ASSERT_NE(known, ~0u);
    ham = Platform::registerHamFactory("card", Zint::makePtr<ModelBus>(*emulator),
                                       {.flushesWrites = true});
    ham->sentinelIs(status, known);
    region =
        Hardware::chipMemoryFactory("filter", ChipAddress(0, filterTable), filterWords, 4, 4, ham);
    region->shadowEnabledIs(true);
    region->readFromCacheIs(true);
    region->skipWriteIfMatchesCacheIs(true);
    region->auditEnabledIs(true);
    shadow = Driver::auditedShadowFactory(loop.activity, loop.clock);
    shadow->chipMemoryIs(region);
    chip = Driver::presentChipFactory("card", ham);
    chip->retryMinIs(1);
    chip->retryMaxIs(1);
    shadow->chipIs(chip);
    shadow->verifiesIs(true);
    shadow->minIntervalBetweenAuditsIs(10);
    shadow->stateIs(Hardware::HardwareShadow::configured());
    const auto access = Driver::chipAccessFactory(shadow, region);
    for (U32 e = 0; e < filterWords; ++e) access->write<U32>(e, wordOf(e));
    shadow->stateIs(Hardware::HardwareShadow::auditing());
    passEnds();
  }
  void passEnds() {
    const U32 audits = shadow->audits();
    for (int turns = 0; shadow->audits() == audits && turns < 1000; ++turns)
      loop.turnAt(loop.clock->time() + 1);
    EXPECT_EQ(shadow->audits(), audits + 1);
  }
  bool isWhole() {
    for (U32 e = 0; e < filterWords; ++e) {
      if (emulator->read(filterTable + 4 * e) != wordOf(e)) return false;
    }
    return true;
  }

  Support::ManualLoop loop;
  std::unique_ptr<Emulator> emulator;
  Platform::RegisterHam::Ptr ham;
  Hardware::ChipMemory::Ptr region;
  Driver::AuditedShadow::Ptr shadow;
  Driver::Chip::Ptr chip;
};

TEST_F(DeviceModel, damageInItsTableIsFoundAndRepaired) {
  EXPECT_TRUE(isWhole());
  for (const U32 e : {3u, 64u, 127u})
    emulator->write(filterTable + 4 * e, wordOf(e) ^ 1u << (e % 32));
  passEnds();
  EXPECT_EQ(shadow->findings(), 3u);
  EXPECT_EQ(shadow->repairs(), 3u);
  EXPECT_TRUE(isWhole());
}

TEST_F(DeviceModel, memoryThatIsOffIsAnAbsenceAndNothingIsAdopted) {
  emulator->configIs(0x04, 0);  // the model answers 0, or all-ones
  for (int turns = 0; !chip->isAbsent() && turns < 100; ++turns)
    loop.turnAt(loop.clock->time() + 1);
  EXPECT_TRUE(chip->isAbsent());
  EXPECT_EQ(shadow->findings(), 0u);
  emulator->configIs(0x04, 0x6);
  passEnds();
  EXPECT_FALSE(chip->isAbsent());
  EXPECT_EQ(shadow->findings(), 0u);
  EXPECT_TRUE(isWhole());
}

TEST_F(DeviceModel, anUnchangedTableIsReadAndNeverWritten) {
  emulator->write(vlanType, 0x8100);  // a register beside the table
  passEnds();
  EXPECT_EQ(shadow->repairs(), 0u);
  EXPECT_EQ(emulator->read(vlanType), 0x8100u);
}

}  // namespace
