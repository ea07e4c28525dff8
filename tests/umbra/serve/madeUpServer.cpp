// umbra-serve-made-up: the server over drivers that are made up, told by lines of standard input.
// For tests in a browser, and to work on the page.
//
//   umbra-serve-made-up PORT REGIONS [HISTORY]
//
//   find REGION ENTRY           an entry of that row differs and is repaired
//   change COUNT EVERY TIMES    COUNT regions change every so many milliseconds
//   pass DONE ENTRIES           progress of the pass
//   alarm ROW SUBJECT STATE
//   die | live                  the driver
//   end                         the program
#include <unistd.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <sstream>
#include <thread>

#include "MadeUp.h"
#include "tools/umbra/serve/Run.h"

using namespace Serve;

namespace {

std::atomic<bool> ended = false;

void change(MadeUp& machine, MadeUpDriver& driver, U32 count, int every, int times) {
  U32 next = 0;
  for (int i = 0; i < times && !ended; ++i) {
    {
      const std::lock_guard lock(machine.mutex());
      for (U32 each = 0; each < count; ++each) {
        driver.find((next++ * 7919) % (driver.regions().rows() - 8), each);
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(every));
  }
}

void obey(MadeUp& machine, MadeUpDriver& driver, const std::string& line) {
  std::istringstream in(line);
  std::string word;
  in >> word;
  if (word == "change") {
    U32 count = 0;
    int every = 0, times = 0;
    in >> count >> every >> times;
    change(machine, driver, count, every, times);
    return;
  }
  const std::lock_guard lock(machine.mutex());
  if (word == "find") {
    U32 region = 0, entry = 0;
    in >> region >> entry;
    driver.find(region, entry);
  } else if (word == "pass") {
    U64 done = 0, entries = 0;
    in >> done >> entries;
    driver.passIs(done, entries);
  } else if (word == "alarm") {
    U32 row = 0, state = 0;
    std::string subject;
    in >> row >> subject >> state;
    driver.alarmIs(row, subject, state);
  } else if (word == "die") {
    driver.header().liveness = Liveness::dead;
    driver.header().since = wallTime();
  } else if (word == "live") {
    driver.header().liveness = Liveness::live;
    driver.header().since = wallTime();
    driver.header().pid += 1;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  MadeUp machine;
  MadeUpDriver& driver =
      machine.driverIs("switch1", argc > 2 ? static_cast<U32>(std::stoul(argv[2])) : 1000);
  driver.passIs(300, 1000);
  std::thread commands([&] {
    for (std::string line; std::getline(std::cin, line) && line != "end";)
      obey(machine, driver, line);
    ended = true;
    kill(getpid(), SIGTERM);
  });
  RunOptions options;
  options.server.port = argc > 1 ? std::stoi(argv[1]) : 0;
  if (argc > 3) options.history = argv[3];
  options.server.acknowledges = true;
  try {
    run(machine, options, [](const std::string& address) { std::cout << address << std::endl; });
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    _exit(1);
  }
  ended = true;
  commands.detach();
  _exit(0);
}
