// PID 1 of the guest: a driver of a table behind PCI, on the real path through the kernel. Tells
// what it does in lines of the console, "RIG ..."; ends on the line "end".
//
//   init sysfs|vfio|uio   how the card is reached; uio: the filter table of a network card
//
// What else the host may write to the console: "surprise" takes the power of the card's slot away,
// without a word to the kernel, "power" gives it back, and "rescan" lets the kernel look for cards;
// "memory off" and "memory on" switch the card's memory; "bind" gives the card to VFIO, as the
// system's rules do for one that was plugged in.
//
// The memory card's registers, which the host sees as a file: word 0 the sentinel, word 1 a scratch
// register that a card without power has forgotten, from byte 4,096 on the table.
#include <Driver/ChipAccess.h>
#include <Driver/Governor.h>
#include <Driver/PresentChip.h>
#include <Driver/RemovalWatch.h>
#include <fcntl.h>
#include <platform/bus/PciResource.h>
#include <platform/bus/RegisterHam.h>
#include <platform/bus/UioDevice.h>
#include <platform/bus/VfioDevice.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

namespace {

// A kind of card: its ids, and where its registers are.
struct Kind {
  const char* vendor;
  const char* device;
  U32 sentinelAddress, sentinel, sentinelMask;
  U32 scratchAddress, scratch;
  U32 tableAddress, entries;
};
constexpr Kind memoryCard{"0x1af4", "0x1110", 0, 0x5ca1ab1e, ~0u, 4, 0xcafe, 4096, 16384};
// Its status without the bit of the link; the VLAN type, which is 0 after a reset; the filter
// table.
constexpr Kind networkCard{"0x8086", "0x100e", 8, 0x80080781, ~2u, 0x38, 0x8100, 0x5600, 128};

// What the table holds, as the host knows, too.
U32 valueOf(U32 entry) { return entry * 2654435761u | 1; }

void say(const std::string& line) {
  std::printf("RIG %s\n", line.c_str());
  std::fflush(stdout);
}

std::string lineOf(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

// The folder of the card, once the kernel has found it.
std::string cardOf(const Kind& kind) {
  for (;;) {
    for (const auto& device : std::filesystem::directory_iterator("/sys/bus/pci/devices")) {
      if (lineOf(device.path() / "vendor") == kind.vendor &&
          lineOf(device.path() / "device") == kind.device) {
        return device.path().string();
      }
    }
    usleep(10'000);
  }
}

class Card : public Driver::PresentChip {
 public:
  Card(const Hardware::ChipHam::Ptr& ham, const Kind& kind)
      : PresentChip("card", ham), address_(0, kind.scratchAddress), scratch_(kind.scratch) {}
  bool wasReset() override {
    U32 value = 0;
    chipHam()->doRead(address_, reinterpret_cast<U8*>(&value), 4, 1);
    if (value == scratch_) return false;
    value = scratch_;
    chipHam()->doWrite(address_, reinterpret_cast<U8*>(&value), 4, 1);
    return true;
  }

 private:
  const Hardware::ChipAddress address_;
  const U32 scratch_;
};

// Loads the kernel's modules that the image has, in their order.
void loadModules() {
  std::ifstream order("/modules/order");
  for (std::string name; std::getline(order, name);) {
    const int file = open(("/modules/" + name).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || (syscall(SYS_finit_module, file, "", 0) != 0 && errno != EEXIST)) {
      say("failed: module " + name + ": " + std::strerror(errno));
    }
    close(file);
  }
}

void write(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path);
  out << text << std::flush;
  if (!out) say("failed: " + path.string() + " takes no " + text);
}

// Gives the card to that driver of the kernel; whatever had it before.
void bindTo(const std::string& folder, const std::string& driver) {
  write(folder + "/driver_override", driver);
  write("/sys/bus/pci/drivers_probe", std::filesystem::path(folder).filename().string());
}

// The way to the card's memory.
Platform::RegisterBus::Ptr busOf(const std::string& way, const std::string& folder) {
  if (way == "sysfs") return Platform::pciResourceFactory(Zint::String8(folder), 2);
  if (way == "uio") {
    bindTo(folder, "uio_pci_generic");
    return Platform::uioDeviceFactory("/dev/uio0", 0);
  }
  bindTo(folder, "vfio-pci");
  return Platform::vfioDeviceFactory(Zint::String8(folder), 2, {.isGuarded = true});
}

U32 wordOf(std::span<const U8> bytes) {
  U32 word = 0;
  std::memcpy(&word, bytes.data(), std::min<std::size_t>(bytes.size(), 4));
  return word;
}

class Reporter : public Driver::AuditedShadow::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onFinding(const Driver::Finding& finding) override {
    char line[128];
    std::snprintf(line, sizeof line, "finding %u %08x %08x %s", finding.entry,
                  wordOf(finding.expected), wordOf(finding.actual),
                  stringValue(finding.verdict).c_str());
    say(line);
  }
  void onPatrolState() override {
    const Driver::PatrolState state = notifier()->patrolState();
    if (state == Driver::PatrolState::waiting || state == Driver::PatrolState::reading) return;
    say("state " + std::string(stringValue(state).c_str()) + " " +
        notifier()->patrolReason().c_str());
  }
  void onPass(const Driver::PassResult& pass) override {
    say("pass " + std::string(pass.isComplete ? "complete " : "ended ") +
        std::to_string(pass.entries) + " " + pass.reason.c_str());
  }
};

// The root port of the slot, and its power: bits of the slot control register, which follows the
// beginning of the PCI Express capability.
constexpr U32 capabilities = 0x34, expressCapability = 0x10, slotControl = 0x18;
constexpr U16 powerOff = 0x0700;

void slotPowerIs(bool isOn) {
  const std::filesystem::path port = "/sys/bus/pci/devices/0000:00:01.0/config";
  const int file = open(port.c_str(), O_RDWR | O_CLOEXEC);
  U8 place = 0, id[2] = {};
  for (bool isFound = pread(file, &place, 1, capabilities) == 1; isFound;) {
    isFound = place != 0 && pread(file, id, 2, place) == 2;
    if (!isFound || id[0] == expressCapability) break;
    place = id[1];
  }
  U16 control = 0;
  if (place == 0 || pread(file, &control, 2, place + slotControl) != 2) say("failed: no slot");
  control = static_cast<U16>(isOn ? control & ~powerOff : control | powerOff);
  if (pwrite(file, &control, 2, place + slotControl) != 2) say("failed: the slot has no power");
  close(file);
}

void memoryIs(const std::string& folder, bool isOn) {
  const int file = open((folder + "/config").c_str(), O_RDWR | O_CLOEXEC);
  U16 command = 0;
  if (pread(file, &command, 2, 4) != 2) say("failed: no command register");
  command = static_cast<U16>(isOn ? command | 2 : command & ~2);
  if (pwrite(file, &command, 2, 4) != 2) say("failed: the memory cannot be switched");
  close(file);
}

// Reads the host's words between the turns.
class Listener : public Zint::Clock::NotifieeConst {
 public:
  Listener(const Zint::Ptr<Zint::ActivityConfig>& activity,
           const Zint::Ptr<const Zint::Clock>& clock, std::string folder)
      : NotifieeConst(activity, clock), folder_(std::move(folder)) {}
  void onTime() override {
    char text[64];
    const ssize_t size = read(STDIN_FILENO, text, sizeof text);
    if (size > 0) heard_.append(text, static_cast<std::size_t>(size));
    for (std::size_t end = heard_.find('\n'); end != std::string::npos; end = heard_.find('\n')) {
      obey(heard_.substr(0, end));
      heard_.erase(0, end + 1);
    }
    // The kernel may not have taken the card in yet.
    if (binds_ && std::filesystem::exists(folder_ + "/driver_override")) {
      binds_ = false;
      bindTo(folder_, "vfio-pci");
      say("done bind");
    }
    timeMinIs(Zint::now() + 0.02);
  }

 private:
  void obey(const std::string& order) {
    if (order == "end") return zintFwkActivity()->stop();
    binds_ = binds_ || order == "bind";
    if (order == "bind") return;
    if (order == "surprise") slotPowerIs(false);
    if (order == "power") slotPowerIs(true);
    if (order == "rescan") {
      // The kernel does not notice by itself that a card has gone without a word, and another come.
      if (std::filesystem::exists(folder_)) write(folder_ + "/remove", "1");
      write("/sys/bus/pci/rescan", "1");
    }
    if (order == "memory off") memoryIs(folder_, false);
    if (order == "memory on") memoryIs(folder_, true);
    say("done " + order);
  }

  const std::string folder_;
  std::string heard_;
  bool binds_ = false;
};

void drive(const std::string& way) {
  loadModules();
  const Kind& kind = way == "uio" ? networkCard : memoryCard;
  const std::string folder = cardOf(kind);
  const Platform::RegisterBus::Ptr bus = busOf(way, folder);
  const Platform::RegisterHam::Ptr ham =
      Platform::registerHamFactory("card", bus, {.flushesWrites = true});
  ham->sentinelIs(kind.sentinelAddress, kind.sentinel, kind.sentinelMask);
  say("card " + std::string(bus->name().c_str()) + " at " +
      lineOf(folder + "/resource").substr(0, 18) + ", " + std::to_string(8 * sizeof(void*)) +
      " bits");

  const Zint::Ptr<const Zint::Clock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("rig", clock);
  const auto shadow = Driver::auditedShadowFactory(activity, clock);
  const auto table = Hardware::chipMemoryFactory(
      "table", Hardware::ChipAddress(0, kind.tableAddress), kind.entries, 4, 4, ham);
  table->shadowEnabledIs(true);
  table->readFromCacheIs(true);
  table->skipWriteIfMatchesCacheIs(true);
  table->auditEnabledIs(true);
  shadow->chipMemoryIs(table);
  const auto chip = Zint::makePtr<Card>(ham, kind);
  chip->retryMinIs(0.1);
  chip->retryMaxIs(0.5);
  shadow->chipIs(chip);
  shadow->rereadsIs(true);
  shadow->verifiesIs(true);
  shadow->minIntervalBetweenAuditsIs(0.1);
  const auto governor = Driver::governorFactory(activity, shadow);
  governor->turnBoundIs(0.005);
  governor->shareIs(0.5);
  governor->periodIs(0.5);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  chip->wasReset();

  const auto access = Driver::chipAccessFactory(shadow, table);
  std::vector<U32> values(kind.entries);
  for (U32 e = 0; e < kind.entries; ++e) values[e] = valueOf(e);
  access->write<U32>(0, std::span<const U32>(values));
  say("written");

  const auto reporter = Zint::makePtr<Reporter>(activity, shadow);
  const auto listener = Zint::makePtr<Listener>(activity, clock, folder);
  listener->timeMinIs(0.0);
  Driver::RemovalWatch::Ptr watch;
  if (way == "vfio") watch = Driver::removalWatchFactory(activity, clock, bus);
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  activity->run();
  char line[160];
  std::snprintf(line, sizeof line,
                "ledger passes %u findings %ju repairs %ju absences %u resets %u", shadow->audits(),
                std::uintmax_t{shadow->findings()}, std::uintmax_t{shadow->repairs()},
                chip->absences(), chip->resets());
  say(line);
}

}  // namespace

int main(int count, char** arguments) {
  for (const auto& [type, place] :
       {std::pair{"proc", "/proc"}, std::pair{"sysfs", "/sys"}, std::pair{"devtmpfs", "/dev"}}) {
    mkdir(place, 0755);
    mount(type, place, type, 0, nullptr);
  }
  fcntl(STDIN_FILENO, F_SETFL, fcntl(STDIN_FILENO, F_GETFL) | O_NONBLOCK);
  try {
    drive(count > 1 ? arguments[1] : "sysfs");
  } catch (const std::exception& failure) {
    say(std::string("failed: ") + failure.what());
  }
  sync();
  reboot(RB_POWER_OFF);
}
