// umbra-fleet-driver DIRECTORY NAME REGIONS: a driver over registers in memory, which shows itself
// in the directory and has both control sockets there. What its chips suffer is told by lines of
// standard input:
//
//   damage REGION ENTRY    a bit of the chip flips
//   stick REGION ENTRY     and flips again after each repair, until `free`
//   free
//   pause | resume         the audit
//   absent | present       the chip
//   reset                  the chip forgets all
//
// It prints a line when it runs, and ends with its standard input.
#include <Driver/AlarmBoard.h>
#include <Driver/AlarmWatch.h>
#include <Driver/AuditedShadow.h>
#include <Hardware/GenericChipHam.h>
#include <fcntl.h>
#include <platform/MemoryRegisters.h>
#include <poll.h>
#include <telemetry/ControlSocket.h>
#include <telemetry/Publisher.h>
#include <unistd.h>

#include <iostream>
#include <map>
#include <sstream>

namespace {

constexpr U32 base = 0x10000;        // of the first region
constexpr U32 regionBytes = 0x1000;  // of address space
constexpr U32 largest = 1024;        // entries
constexpr U32 sentinelAddress = 0x8;
constexpr U32 sentinelValue = 0x554d4252;

// Registers that may be gone: then they read as all ones, and writes are lost.
class FleetRegisters : public Platform::MemoryRegisters {
 public:
  using MemoryRegisters::MemoryRegisters;

  void read(U32 address, U32* value) override {
    MemoryRegisters::read(address, value);
    if (isAbsent) *value = ~U32{0};
  }
  void write(U32 address, U32 value) override {
    if (!isAbsent) MemoryRegisters::write(address, value);
  }

  bool isAbsent = false;
};

class FleetDriver {
 public:
  FleetDriver(const std::string& directory, const std::string& name, U32 regions)
      : registers_(new FleetRegisters(0, base + regions * regionBytes)),
        ham_(Hardware::genericChipHamFactory("asic0", registers_)),
        shadow_(Driver::auditedShadowFactory(activity_, clock_)),
        board_(Driver::alarmBoardFactory("alarms", activity_, clock_)) {
    registers_->registerAt(sentinelAddress) = sentinelValue;
    chip_ = Driver::chipFactory("asic0", ham_);
    const auto* bytes = reinterpret_cast<const U8*>(&sentinelValue);
    chip_->sentinelIs(Hardware::ChipAddress(0, sentinelAddress), {bytes, sizeof sentinelValue});
    chip_->retryMaxIs(1);
    shadow_->chipIs(chip_);
    shadow_->minIntervalBetweenAuditsIs(0.5);
    shadow_->verifiesIs(true);
    shadow_->rereadsIs(true);
    for (U32 i = 0; i < regions; ++i) add(i);
    shadow_->stateIs(Hardware::HardwareShadow::configured());
    fill();
    watch_ = Driver::alarmWatchFactory(activity_, shadow_, board_);
    board_->ruleIs(Driver::alarmRuleFactory("often", Driver::AlarmRule::region_, 3, 15, 2));
    Telemetry::PublisherOptions options;
    options.directory = directory;
    publisher_ = Telemetry::publisherFactory(activity_, clock_, Zint::Name(name.c_str()), options);
    publisher_->shadowIs(shadow_);
    publisher_->alarmBoardIs(board_);
    control_ = Telemetry::controlSocketFactory(publisher_, activity_, clock_, true);
    shadow_->stateIs(Hardware::HardwareShadow::auditing());
  }

  // Until the end of standard input.
  void run() {
    fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK);
    std::string pending;
    for (;;) {
      activity_->runUntil(Zint::now() + 0.005);
      for (const auto& [address, value] : stuck_) registers_->registerAt(address) = value;
      char text[4096];
      const ssize_t count = read(STDIN_FILENO, text, sizeof text);
      if (count == 0) return publisher_->doPublish();
      if (count < 0) continue;
      pending.append(text, static_cast<std::size_t>(count));
      for (std::size_t end; (end = pending.find('\n')) != std::string::npos;) {
        obey(pending.substr(0, end));
        pending.erase(0, end + 1);
      }
    }
  }

 private:
  void add(U32 index) {
    // A few large regions, and many small ones.
    const U32 entries = index % 16 == 0 ? largest : 1 + index * 37 % 200;
    const std::string name = "region-" + std::to_string(index);
    auto region = Hardware::chipMemoryFactory(Zint::String8(name.c_str()),
                                              Hardware::ChipAddress(0, base + index * regionBytes),
                                              entries, 4, 4, ham_);
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    shadow_->chipMemoryIs(region);
    regions_.push_back(region);
  }

  // Writes every entry, so that each has a value to defend.
  void fill() {
    for (const auto& region : regions_) {
      for (U32 entry = 0; entry < region->entries(); ++entry) {
        U32 value = 0x1000 + entry * 0x01010101;
        shadow_->shadowWriteU32(
            Hardware::ChipAddress(0, region->address().chipMemoryOffset() + entry * 4), value);
        registers_->registerAt(addressOf(*region, entry)) = value;
      }
    }
  }

  static U32 addressOf(const Hardware::ChipMemory& region, U32 entry) {
    return region.address().chipMemoryOffset() + entry * 4;
  }

  void obey(const std::string& line) {
    std::istringstream in(line);
    std::string word;
    U32 region = 0;
    U32 entry = 0;
    in >> word >> region >> entry;
    if (word == "damage" || word == "stick") {
      const auto& damaged = *regions_.at(region);
      const U32 address = addressOf(damaged, entry % damaged.entries());
      registers_->registerAt(address) ^= 0x10;
      if (word == "stick") stuck_[address] = registers_->registerAt(address);
    } else if (word == "free") {
      stuck_.clear();
    } else if (word == "pause" || word == "resume") {
      shadow_->pausedIs(word == "pause");
    } else if (word == "absent" || word == "present") {
      registers_->isAbsent = word == "absent";
    } else if (word == "reset") {
      for (U32 address = base; address < registers_->size(); address += 4) {
        registers_->registerAt(address) = 0;
      }
      chip_->doChipReset();
    }
  }

  Zint::Ptr<Zint::MonotonicClock> clock_ = Zint::monotonicClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity_ = Zint::activityFactory("main", clock_);
  Zint::Ptr<FleetRegisters> registers_;
  Zint::Ptr<Hardware::GenericChipHam> ham_;
  Driver::AuditedShadow::Ptr shadow_;
  Driver::AlarmBoard::Ptr board_;
  Driver::Chip::Ptr chip_;
  Zint::Ptr<Driver::AlarmWatch> watch_;
  Telemetry::Publisher::Ptr publisher_;
  Telemetry::ControlSocket::Ptr control_;
  std::vector<Hardware::ChipMemory::Ptr> regions_;
  std::map<U32, U32> stuck_;  // addresses and what they hold
};

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 4) {
    std::cerr << "usage: umbra-fleet-driver DIRECTORY NAME REGIONS\n";
    return 2;
  }
  try {
    FleetDriver driver(argv[1], argv[2], static_cast<U32>(std::stoul(argv[3])));
    std::cout << "running" << std::endl;
    driver.run();
  } catch (const std::exception& error) {
    std::cerr << "umbra-fleet-driver: " << error.what() << "\n";
    return 1;
  }
}
