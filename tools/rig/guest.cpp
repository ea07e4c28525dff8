// PID 1 of the guest: a driver of a table behind PCI, on the real path through the kernel. Tells
// what it does in lines of the console, "RIG ..."; ends on the line "end".
//
// The card's memory, which the host sees as a file: word 0 the sentinel, word 1 a scratch register
// that a card without power has forgotten, from byte 4,096 on the table.
#include <Driver/ChipAccess.h>
#include <Driver/Governor.h>
#include <Driver/PresentChip.h>
#include <fcntl.h>
#include <platform/bus/PciResource.h>
#include <platform/bus/RegisterHam.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <unistd.h>

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

constexpr U32 sentinel = 0x5ca1ab1e;
constexpr U32 scratchAddress = 4, scratchValue = 0xcafe;
constexpr U32 tableAddress = 4096, entries = 16384;

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
std::string card() {
  for (;;) {
    for (const auto& device : std::filesystem::directory_iterator("/sys/bus/pci/devices")) {
      if (lineOf(device.path() / "vendor") == "0x1af4" &&
          lineOf(device.path() / "device") == "0x1110") {
        return device.path().string();
      }
    }
    usleep(10'000);
  }
}

class Card : public Driver::PresentChip {
 public:
  using PresentChip::PresentChip;
  bool wasReset() override {
    U32 value = 0;
    chipHam()->doRead(Hardware::ChipAddress(0, scratchAddress), reinterpret_cast<U8*>(&value), 4,
                      1);
    if (value == scratchValue) return false;
    value = scratchValue;
    chipHam()->doWrite(Hardware::ChipAddress(0, scratchAddress), reinterpret_cast<U8*>(&value), 4,
                       1);
    return true;
  }
};

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

// Reads the host's words between the turns.
class Listener : public Zint::Clock::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onTime() override {
    char text[64];
    const ssize_t size = read(STDIN_FILENO, text, sizeof text);
    if (size > 0) heard_.append(text, static_cast<std::size_t>(size));
    if (heard_.find("end") != std::string::npos) return zintFwkActivity()->stop();
    timeMinIs(Zint::now() + 0.02);
  }

 private:
  std::string heard_;
};

void drive() {
  const std::string folder = card();
  const auto bus = Platform::pciResourceFactory(Zint::String8(folder), 2);
  const Platform::RegisterHam::Ptr ham =
      Platform::registerHamFactory("card", bus, {.flushesWrites = true});
  ham->sentinelIs(0, sentinel);
  say("card " + folder + " " + std::to_string(bus->size()) + " bytes, " +
      std::to_string(8 * sizeof(void*)) + " bits");

  const Zint::Ptr<const Zint::Clock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("rig", clock);
  const auto shadow = Driver::auditedShadowFactory(activity, clock);
  const auto table = Hardware::chipMemoryFactory("table", Hardware::ChipAddress(0, tableAddress),
                                                 entries, 4, 4, ham);
  table->shadowEnabledIs(true);
  table->readFromCacheIs(true);
  table->skipWriteIfMatchesCacheIs(true);
  table->auditEnabledIs(true);
  shadow->chipMemoryIs(table);
  const auto chip = Zint::makePtr<Card>("card", ham);
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
  std::vector<U32> values(entries);
  for (U32 e = 0; e < entries; ++e) values[e] = valueOf(e);
  access->write<U32>(0, std::span<const U32>(values));
  say("written");

  const auto reporter = Zint::makePtr<Reporter>(activity, shadow);
  const auto listener = Zint::makePtr<Listener>(activity, clock);
  listener->timeMinIs(0.0);
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

int main() {
  for (const auto& [type, place] :
       {std::pair{"proc", "/proc"}, std::pair{"sysfs", "/sys"}, std::pair{"devtmpfs", "/dev"}}) {
    mkdir(place, 0755);
    mount(type, place, type, 0, nullptr);
  }
  fcntl(STDIN_FILENO, F_SETFL, fcntl(STDIN_FILENO, F_GETFL) | O_NONBLOCK);
  try {
    drive();
  } catch (const std::exception& failure) {
    say(std::string("failed: ") + failure.what());
  }
  sync();
  reboot(RB_POWER_OFF);
}
