#include "demo/common/Options.h"

#include <getopt.h>

#include <charconv>
#include <cmath>
#include <string_view>

namespace Demo {
namespace {

enum Option : int {
  seconds = 1,
  flips,
  seed,
  interval,
  trace,
  traceFile,
  freeze,
  story,
  stay,
  publish,
  name,
  help
};

constexpr option longOptions[] = {
    {"seconds", required_argument, nullptr, seconds},
    {"flips-per-second", required_argument, nullptr, flips},
    {"seed", required_argument, nullptr, seed},
    {"audit-interval", required_argument, nullptr, interval},
    {"trace", required_argument, nullptr, trace},
    {"trace-file", required_argument, nullptr, traceFile},
    {"freeze-audit", no_argument, nullptr, freeze},
    {"story", no_argument, nullptr, story},
    {"stay", no_argument, nullptr, stay},
    {"publish", required_argument, nullptr, publish},
    {"name", required_argument, nullptr, name},
    {"help", no_argument, nullptr, help},
    {nullptr, 0, nullptr, 0},
};

// The whole text as a number within the bounds.
template <class T>
T number(const char* name, std::string_view text, T least, T most) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc::invalid_argument || end != text.data() + text.size()) {
    throw UsageError(std::string("--") + name + ": '" + std::string(text) + "' is no number" +
                     (std::is_integral_v<T> ? " without sign and fraction" : ""));
  }
  if (error != std::errc() || !(value >= least && value <= most)) {
    std::string bounds = std::to_string(most);
    if constexpr (std::is_floating_point_v<T>) bounds = std::to_string(std::lround(most));
    throw UsageError(std::string("--") + name + ": " + std::string(text) + " is not between " +
                     (least == T{} ? "0" : std::to_string(least)) + " and " + bounds);
  }
  return value;
}

}  // namespace

const char* const optionsHelp =
    R"(usage: umbra-driver [option...]

Brings up a small switch whose chip is another process that damages its own registers, and lets the
library find and repair the damage while traffic goes on. Ends with an account of every error.

  --story                 a story instead: soft errors, then the chip is absent, is reset, and has a
                          stuck bit; each is said as it happens and accounted for at the end
  --seconds N             how long traffic and errors go on (default 10; a story 15; Ctrl-C ends
                          them earlier)
  --flips-per-second N    errors that the chip makes (default 50; 0 for none)
  --seed N                of the random errors and of the traffic (default 1)
  --audit-interval N      seconds from the start of one audit pass to the next (default 0.5)
  --stay                  goes on until Ctrl-C, with two errors per second and a pass every two
                          seconds unless other options say so
  --publish DIR           shows itself to other processes in that directory (umbra ps --dir DIR)
  --name NAME             as that driver (default demo)
  --trace LEVEL           write the libraries' trace up to that level, 0 to 9, to standard error
  --trace-file FILE       write it to that file instead
  --freeze-audit          switch the audit off once the switch is up: the damage stays and the
                          account shows it, with exit status 1
  --help                  this text

Exit status: 0 every error is accounted for, none remains, and nothing was repaired that was not
damaged; 1 otherwise; 2 wrong options.
)";

Options parseOptions(int argc, char* const argv[]) {
  Options options;
  optind = 0;  // start afresh, also when the options of another command line were read before
  opterr = 0;
  constexpr double day = 86400;
  bool hasSeconds = false, hasFlips = false, hasInterval = false;
  for (int chosen; (chosen = getopt_long(argc, argv, "+:", longOptions, nullptr)) != -1;) {
    switch (chosen) {
      case seconds:
        options.seconds = number("seconds", optarg, 0.0, day);
        hasSeconds = true;
        break;
      case flips:
        options.flipsPerSecond = number<U32>("flips-per-second", optarg, 0, 100'000);
        hasFlips = true;
        break;
      case seed:
        options.seed = number<U32>("seed", optarg, 0, ~U32{0});
        break;
      case interval:
        options.auditInterval = number("audit-interval", optarg, 0.0, day);
        hasInterval = true;
        break;
      case trace:
        options.traceLevel = number<U32>("trace", optarg, 0, 9);
        break;
      case traceFile:
        options.traceFile = optarg;
        if (options.traceFile.empty()) throw UsageError("--trace-file: the name is empty");
        break;
      case freeze:
        options.freezeAudit = true;
        break;
      case story:
        options.story = true;
        break;
      case stay:
        options.stay = true;
        break;
      case publish:
        options.publishes = optarg;
        if (options.publishes.empty()) throw UsageError("--publish: the directory is empty");
        break;
      case name:
        options.name = optarg;
        break;
      case help:
        options.help = true;
        return options;
      case ':':
        throw UsageError(std::string("option '") + argv[optind - 1] + "' needs a value");
      default:
        throw UsageError(std::string("unknown, ambiguous or wrongly used option '") +
                         argv[optind - 1] + "'");
    }
  }
  if (optind < argc) throw UsageError(std::string("unexpected argument '") + argv[optind] + "'");
  if (options.story && options.freezeAudit) {
    throw UsageError("--story needs the audit: not with --freeze-audit");
  }
  if (options.story && options.stay) throw UsageError("a story has an end: not with --stay");
  if (options.story && !hasSeconds) options.seconds = 15;
  if (options.stay) {
    if (!hasSeconds) options.seconds = 100 * day;
    if (!hasFlips) options.flipsPerSecond = 2;
    if (!hasInterval) options.auditInterval = 2;
  }
  if (!options.traceFile.empty() && !options.traceLevel) {
    throw UsageError("--trace-file needs --trace LEVEL");
  }
  return options;
}

}  // namespace Demo
