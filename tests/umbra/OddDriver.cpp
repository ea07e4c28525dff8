// umbra-odd-driver DIRECTORY: a driver whose regions have names that need quotes, over registers in
// memory. Each region has 8 entries of 4 bytes. It damages entry 0 of every region where its
// standard input has a line, and ends with its standard input.
#include <Driver/AlarmBoard.h>
#include <Driver/AlarmWatch.h>
#include <Driver/AuditedShadow.h>
#include <Driver/Policy.h>
#include <Hardware/GenericChipHam.h>
#include <fcntl.h>
#include <platform/MemoryRegisters.h>
#include <telemetry/ControlSocket.h>
#include <telemetry/Publisher.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace {

constexpr U32 entries = 8;
constexpr U32 damageBits = 0xbad;

const std::array<std::string, 7> oddNames = {"mac",       "mac \"x\"/y",        "it's", " ", "",
                                             "new\nline", std::string(255, 'a')};

int runOddDriver(const char* directory) {
  const auto clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("main", clock);
  const auto registers = Platform::memoryRegistersFactory(0, 4096);
  const auto ham = Hardware::genericChipHamFactory("chip0", registers);
  const auto shadow = Driver::auditedShadowFactory(activity, clock);
  shadow->minIntervalBetweenAuditsIs(0.05);
  U32 address = 0;
  for (const std::string& name : oddNames) {
    const auto region = Hardware::chipMemoryFactory(
        Zint::String8(name), Hardware::ChipAddress(0, address), entries, 4, 4, ham);
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    const auto policy = Driver::policyFactory(region);
    policy->unwrittenIs(Driver::Unwritten::baseline);
    shadow->chipMemoryIs(region);
    shadow->policyIs(policy);
    address += entries * 4;
  }
  shadow->stateIs(Hardware::HardwareShadow::configured());
  const auto board = Driver::alarmBoardFactory("alarms", activity, clock);
  const auto watch = Driver::alarmWatchFactory(activity, shadow, board);
  board->ruleIs(Driver::alarmRuleFactory("often", Driver::AlarmRule::entry_, 1, 60, 600));
  const auto publisher =
      Telemetry::publisherFactory(activity, clock, "odd", {.directory = directory});
  publisher->shadowIs(shadow);
  publisher->alarmBoardIs(board);
  const auto control = Telemetry::controlSocketFactory(publisher, activity, clock, true);
  shadow->stateIs(Hardware::HardwareShadow::auditing());

  fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK);
  for (char text = '\0';;) {
    activity->runUntil(Zint::now() + 0.005);
    const ssize_t size = read(STDIN_FILENO, &text, 1);
    if (size == 0) return 0;
    if (size != 1 || text != '\n') continue;
    for (U32 at = 0; at < address; at += entries * 4) registers->registerAt(at) ^= damageBits;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::fputs("usage: umbra-odd-driver DIRECTORY\n", stderr);
    return 2;
  }
  try {
    return runOddDriver(argv[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "umbra-odd-driver: %s\n", error.what());
    return 1;
  }
}
