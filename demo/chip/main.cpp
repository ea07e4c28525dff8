// The chip process: holds the registers in shared memory and damages them at the rate that the
// driver sets, until the driver stops it or has ended.
//
//   umbra-chip FOLDER        FOLDER holds the shared files; the driver makes it and starts this.
#include <signal.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>

#include "demo/chip/Injector.h"
#include "demo/common/SharedMemory.h"
#include "demo/common/SwitchLayout.h"

namespace {

constexpr double tick = 0.002;    // seconds
constexpr double longTick = 0.1;  // after a longer stop, flips are not caught up on

double time() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void run(const char* folder) {
  const Demo::SharedMemory registers(Demo::SharedFolder::registersPath(folder));
  const Demo::SharedMemory controlFile(Demo::SharedFolder::controlPath(folder));
  auto& control = *static_cast<Demo::ControlBlock*>(controlFile.data());
  if (getppid() != control.driver) return;  // the driver has ended already
  auto* const values = static_cast<U32*>(registers.data());
  values[Demo::identityAddress.chipMemoryOffset() / 4] = Demo::identity;
  Demo::Injector injector(values, control.flips, control.seed);
  control.isReady = 1;
  double due = 0;  // flips that should have happened by now and have not
  for (double last = time(); control.isStopped == 0;) {
    const timespec pause{0, static_cast<long>(tick * 1e9)};
    nanosleep(&pause, nullptr);
    const double now = time();
    due += control.flipsPerSecond * std::min(now - last, longTick);
    last = now;
    for (; due >= 1 && control.isStopped == 0; --due) injector.flip();
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::fputs("usage: umbra-chip FOLDER\nIt is started by umbra-driver.\n", stderr);
    return 2;
  }
  // The driver receives these signals too, and decides when this process ends. Without a driver it
  // ends at once.
  for (const int ignored : {SIGINT, SIGTERM, SIGHUP}) signal(ignored, SIG_IGN);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    run(argv[1]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "umbra-chip: %s\n", error.what());
    return 1;
  }
}
