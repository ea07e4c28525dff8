// The console. See --help.
#include <getopt.h>
#include <unistd.h>

#include <charconv>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

#include "demo/common/ChipWatch.h"
#include "demo/common/Traffic.h"
#include "demo/driver/Interrupts.h"
#include "tools/console/Filter.h"
#include "tools/console/Library.h"
#include "tools/console/OpenSwitch.h"
#include "tools/console/Shell.h"
#ifdef UMBRA_LINE_EDITOR
#include "tools/console/LineEditor.h"
#endif

namespace {

constexpr char help[] =
    R"(usage: umbra-console [option...] [< SCRIPT]

Opens the demonstration's switch, whose chip is another process, and lets you work on the running
system by name while it audits: type `help` there. A script's errors go to standard error, each as
`line N: message`.

  --flips-per-second N    errors that the chip makes by itself (default 0)
  --seed N                of these errors and of the traffic (default 1)
  --traffic               clients write and read the tables all the time
  --help                  this text

Exit status: 0 no line was wrong; 1 otherwise; 2 wrong options.
)"
#ifdef UMBRA_LINE_EDITOR
    "On a terminal: Tab completes, arrow keys edit and recall, Ctrl-C gives up a line or a wait,\n"
    "Ctrl-D ends.\n";
#else
    "This build reads plain lines: editing, history and completion are in the 64-bit build.\n";
#endif

struct Options {
  U32 flipsPerSecond = 0;
  U32 seed = 1;
  bool traffic = false;
  bool help = false;
};

U32 number(const char* option, const char* text, U32 most) {
  U32 value = 0;
  const char* const end = text + std::strlen(text);
  const auto read = std::from_chars(text, end, value);
  if (read.ec != std::errc() || read.ptr != end || value > most) {
    throw Console::Error(std::string("--") + option + ": '" + text + "' is no number from 0 to " +
                         std::to_string(most));
  }
  return value;
}

Options optionsOf(int argc, char* argv[]) {
  enum { flips = 1, seed, traffic, helpWanted };
  constexpr option known[] = {{"flips-per-second", required_argument, nullptr, flips},
                              {"seed", required_argument, nullptr, seed},
                              {"traffic", no_argument, nullptr, traffic},
                              {"help", no_argument, nullptr, helpWanted},
                              {nullptr, 0, nullptr, 0}};
  Options options;
  opterr = 0;
  for (int chosen; (chosen = getopt_long(argc, argv, "+:h", known, nullptr)) != -1;) {
    switch (chosen) {
      case flips:
        options.flipsPerSecond = number("flips-per-second", optarg, 100'000);
        break;
      case seed:
        options.seed = number("seed", optarg, ~U32{0});
        break;
      case traffic:
        options.traffic = true;
        break;
      case 'h':
      case helpWanted:
        options.help = true;
        return options;
      default:
        throw Console::Error(std::string("unknown or wrongly used option '") + argv[optind - 1] +
                             "'");
    }
  }
  if (optind < argc) {
    throw Console::Error(std::string("unexpected argument '") + argv[optind] +
                         "': a script is read from standard input");
  }
  return options;
}

// Returns the number of wrong lines.
U32 runSession(Console::Session& session, const Zint::Ptr<Zint::ActivityConfig>& activity) {
  if (isatty(STDIN_FILENO) == 0) {
    Console::PlainLines lines(STDIN_FILENO, activity, false);
    return runLines(session, lines, std::cerr, true);
  }
  const Demo::Interrupts interrupts(*activity);
  std::cout << "The demonstration's switch is up and audited. `help` lists the commands.\n";
#ifdef UMBRA_LINE_EDITOR
  if (isatty(STDOUT_FILENO) != 0) {
    Console::LineEditor lines(session);
    runLines(session, lines, std::cerr, false);
    return 0;
  }
#endif
  Console::PlainLines lines(STDIN_FILENO, activity, true);
  runLines(session, lines, std::cerr, false);
  return 0;
}

int run(const Options& options) {
  const auto clock = Zint::Ptr<const Zint::Clock>(Zint::monotonicClockFactory("clock"));
  const Zint::Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("console", clock);
  Demo::Ledger ledger(Demo::registerFileSize);
  Demo::ChipProcess chip(options.seed);
  Console::OpenSwitch opened(
      activity, clock, Platform::mappedRegistersFactory(chip.folder().registersPath()), ledger);
  chip.folderDel();
  const auto chipWatch = Zint::makePtr<Demo::ChipWatch>(activity, clock, chip, ledger);
  const auto traffic =
      Zint::makePtr<Demo::Traffic>(activity, clock, opened.theSwitch(), options.seed);
  chip.control().flipsPerSecond = options.flipsPerSecond;
  traffic->trafficIs(options.traffic);

  Console::World world = opened.world();
  world.filter = Console::runFilter;
  Console::Session session(world, std::cout);
  const U32 failed = runSession(session, activity);
  traffic->trafficIs(false);
  chipWatch->endChip();
  return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char* argv[]) {
  std::setlocale(LC_CTYPE, "");
  std::signal(SIGPIPE, SIG_IGN);  // a reader that ends early ends the session, quietly
  Options options;
  try {
    options = optionsOf(argc, argv);
  } catch (const Console::Error& wrong) {
    std::fprintf(stderr, "umbra-console: %s (see --help)\n", wrong.what());
    return 2;
  }
  if (options.help) {
    std::fputs(help, stdout);
    return 0;
  }
  try {
    return run(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "umbra-console: %s\n", error.what());
    return 1;
  }
}
