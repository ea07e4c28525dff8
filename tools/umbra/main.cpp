// The tool for people and scripts. See --help.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "tools/umbra/Command.h"
#include "tools/umbra/Report.h"

#ifndef UMBRA_VERSION
#error the version comes from the build
#endif

namespace Tool {
namespace {

constexpr char psText[] =
    "A driver is live while its process runs and its heart beats, stalled when it has not for "
    "three "
    "seconds, ended after an end in order, and dead when the process is no more. What dead ones "
    "left "
    "stays until a driver of that name starts again, or --clean removes it.";
constexpr char showText[] =
    "Totals count since the time that the region's row says, also over restarts of the driver. A "
    "row "
    "that is marked torn was being written at every look, or when the driver died.";
constexpr char eventsText[] =
    "A class is a kind of events (finding, alarm, chip ...), what was done with a finding "
    "(repaired, "
    "quarantined ...), or what a repair has shown (soft, recurring, stuck). With --json and "
    "--follow "
    "each line is one event.";
constexpr char postMortemText[] =
    "The files stay after the end of a driver, however it ended: its last state, with the rows "
    "that "
    "were being written marked as torn, its last events, and the assertion that ended it.";

// In the order of --help.
constexpr Command commands[] = {
    {"ps", "list the drivers of this machine: live, stalled, dead or ended", psText, &addPs},
    {"show", "show what a driver's live view holds", showText, &addShow},
    {"events", "show the event log: differences, repairs, alarms, who changed what", eventsText,
     &addEvents},
    {"post-mortem", "show all that a driver left", postMortemText, &addPostMortem},
#ifdef UMBRA_TOOL_SERVE
    {"metrics", "print what a monitoring system scrapes", "", &addMetrics},
    {"serve", "show all drivers on a page and to monitoring systems", "", &addServe},
#endif
    {"words", "print what completes a value", "", &addWords, true},
    {"completion", "print the completion for bash", "", &addCompletion, true},
    {"manual", "print the manual page", "", &addManual, true},
};

// An option of the whole tool that stands behind a subcommand is passed up.
void add(CLI::App& app, const Command& command, Settings& settings, Exit& exit) {
  CLI::App* const subcommand = app.add_subcommand(command.name, command.help);
  subcommand->fallthrough();
  if (command.hidden) subcommand->group("");
  subcommand->footer(command.text);
  Runner run = command.add(*subcommand);
  subcommand->callback([run = std::move(run), &settings, &exit] { exit = run(settings); });
}

void addSettings(CLI::App& app, Settings& settings, std::string& colour, bool& plain) {
  app.add_option("--dir", settings.directory, "where drivers show themselves (default /run/umbra)")
      ->envname("UMBRA_DIR")
      ->type_name("DIR");
  app.add_option("-d,--driver", settings.driver,
                 "the driver, by name or by the path of its live view (default: the only one)")
      ->envname("UMBRA_DRIVER")
      ->type_name("NAME");
  app.add_flag("--json", settings.json, "print JSON");
  app.add_option("--timeout", settings.timeout, "seconds a driver may take to answer (default 2)")
      ->check(CLI::Range(0.001, 86'400.0))
      ->type_name("SECONDS");
  app.add_option("--colour", colour, "auto, always or never (default auto: on a terminal)")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN");
  app.add_flag("--no-pager", plain, "print long listings at once");
}

void settle(Settings& settings, const std::string& colour, bool plain) {
  const bool isTerminal = isatty(STDOUT_FILENO) == 1;
  const char* const noColour = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
  settings.colour = colour == "always" || (colour != "never" && isTerminal && !isDumb &&
                                           (noColour == nullptr || *noColour == '\0'));
  settings.pager = isTerminal && !plain;
}

int run(int argc, char* argv[]) {
  CLI::App app("Shows what a driver's shadow, audit and chips do, from outside of its process.",
               "umbra");
  app.set_version_flag("--version", "umbra " UMBRA_VERSION);
  app.require_subcommand(1);
  Settings settings;
  std::string colour = "auto";
  bool plain = false;
  Exit exit = Exit::done;
  addSettings(app, settings, colour, plain);
  for (const Command& command : commands) add(app, command, settings, exit);
  app.parse_complete_callback([&] { settle(settings, colour, plain); });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(Exit::wrongUsage);
  }
  return static_cast<int>(exit);
}

}  // namespace
}  // namespace Tool

int main(int argc, char* argv[]) {
  std::setlocale(LC_ALL, "");
  std::setlocale(LC_NUMERIC, "C");
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return Tool::run(argc, argv);
  } catch (const Tool::Failure& failure) {
    std::fflush(stdout);
    std::cerr << "umbra: " << Tool::printable(failure.what()) << '\n';
    return static_cast<int>(failure.exit);
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::cerr << "umbra: " << Tool::printable(error.what()) << '\n';
    return static_cast<int>(Tool::Exit::failed);
  }
}
