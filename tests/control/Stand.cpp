// A driver for tests from outside: the demonstration's switch, a shadow with as many regions as are
// asked for, and a control socket that administers. It ends at SIGTERM and prints its figures.
//
//   umbra-control-stand DIRECTORY [REGIONS]
#include <Hardware/GenericChipHam.h>
#include <demo/common/SharedMemory.h>
#include <sys/resource.h>
#include <telemetry/ControlSocket.h>
#include <telemetry/Publisher.h>
#include <tools/console/OpenSwitch.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

Zint::ActivityConfig* running = nullptr;

void handleSignal(int) {
  if (running != nullptr) running->stop();
}

class NoRegisters : public Fru::HamImpl {
 public:
  void read(U32, U32* value) override { *value = 0; }
  void write(U32, U32) override {}
};

int run(const std::string& directory, U32 regions) {
  const Zint::Ptr<const Zint::Clock> clock = Zint::monotonicClockFactory("clock");
  const Zint::Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("stand", clock);
  Demo::Ledger ledger(Demo::registerFileSize);
  Demo::SharedFolder folder;
  const Demo::SharedMemory chip(folder.registersPath(), Demo::registerFileSize);
  static_cast<U32*>(chip.data())[Demo::identityAddress.chipMemoryOffset() / 4] = Demo::identity;
  Console::OpenSwitch opened(activity, clock,
                             Platform::mappedRegistersFactory(folder.registersPath()), ledger);

  const auto many = Driver::auditedShadowFactory(activity, clock);
  const auto ham = Hardware::genericChipHamFactory("none", Zint::makePtr<NoRegisters>());
  for (U32 i = 0; i < regions; ++i) {
    many->chipMemoryIs(Hardware::chipMemoryFactory(
        "region" + std::to_string(i), Hardware::ChipAddress(9, i * 64), 16, 4, 4, ham));
  }
  many->stateIs(Hardware::HardwareShadow::configured());

  const auto publisher =
      Telemetry::publisherFactory(activity, clock, "stand", {.directory = directory});
  publisher->shadowIs(opened.theSwitch().shadow(), "shadow");
  publisher->shadowIs(many, "many");
  publisher->alarmBoardIs(opened.theSwitch().alarms());
  const auto control = Telemetry::controlSocketFactory(publisher, activity, clock, true);
  for (const auto& [name, object] : opened.world().objects) {
    control->objectIs(name, object.object, object.isConst);
  }

  running = activity.ptr();
  std::signal(SIGTERM, handleSignal);
  activity->run();
  running = nullptr;

  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf(
      "{\"longestTurn\": %.9f, \"commands\": %ju, \"droppedClients\": %ju, "
      "\"refusedClients\": %ju, \"refusedLines\": %ju, \"kilobytes\": %ld}\n",
      control->longestTurn(), std::uintmax_t{control->commands()},
      std::uintmax_t{control->droppedClients()}, std::uintmax_t{control->refusedClients()},
      std::uintmax_t{control->refusedLines()}, usage.ru_maxrss);
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: umbra-control-stand DIRECTORY [REGIONS]\n");
    return 2;
  }
  try {
    return run(argv[1], argc > 2 ? static_cast<U32>(std::atoi(argv[2])) : 0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "umbra-control-stand: %s\n", error.what());
    return 1;
  }
}
