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

constexpr char psText[] = R"(A driver is live while its process runs and its heart beats,
stalled when it has not beaten for three seconds, ended after an end in order, and dead when the
process is no more. What dead ones left stays until a driver of that name starts again, or --clean
removes it.)";
constexpr char topText[] = R"(Keys: up and down choose a region, Enter looks into it, s sorts by the
next column, r turns the order round, / filters, a shows the alarms, e the events, Tab the next
driver, h all keys, q ends.)";
constexpr char showText[] = R"(Totals count since the time that the region's row says, also over
restarts of the driver. A row that is marked torn was being written at every look, or when the
driver died.)";
constexpr char eventsText[] = R"(A class is a kind of events (finding, alarm, chip ...), what was
done with a finding (repaired, quarantined ...), or what a repair has shown (soft, recurring,
stuck). With --json and --follow each line is one event.)";
constexpr char traceText[] =
    R"(What the library and the driver have recorded in fixed memory, level 0 being the most
important one, from all threads in the order of their times. The file is that memory: what a process
has written until its end is there, however it ended. With --json and --follow each line is one
record.)";
constexpr char dumpText[] =
    R"(RANGE is FIRST, FIRST..LAST or FIRST+COUNT, in decimal or with 0x; the
first 64 entries without one. A value is known by a write or by learning, or unknown. Beside it stands
what the audit read last; with --chip the chip is read now, and what differs is marked. That needs
the socket that operates.)";
constexpr char whyText[] = R"(The rule of the policy, whether it is in quarantine or has an open
finding, and what the event log says of it.)";
constexpr char consoleText[] =
    R"(One command a line: help lists them. Tab completes on a terminal. From
a script, the first line that is refused is told and the next one is carried out; the exit status is
1 then.)";
constexpr char pauseText[] =
    R"(Of all shadows of the driver, unless --shadow names one. It needs the
socket that operates, and is written to the event log with who did it.)";
constexpr char auditText[] =
    R"(Entries are read and judged beside the patrol, in pieces, so that the
driver goes on in between. Without a region all of them are, which are under audit.)";
constexpr char replayText[] =
    R"(A chip is treated as one that was reset: what was written is written to
it again. --plan shows what would be written, and changes nothing.)";
constexpr char postMortemText[] =
    R"(The files stay after the end of a driver, however it ended: its last
state, with the rows that were being written marked as torn, its last events and trace records, and
the assertion that ended it.)";
#ifdef UMBRA_TOOL_MAPS
constexpr char mapText[] =
    R"(import prints what maps hold: registers, regions, what would be audited and what
is undecided. show lists registers with what is done with them and why. propose prints an overlay to
begin with: undecided registers with the reason of each. check prints what is doubtful in maps and
overlays. try runs reset values, bit-bash and access rights on a copy in memory. diff compares two
maps: what would newly be audited or no longer; its exit status is 3 where there is no difference.
header prints constants of C++ for programs that read no map when they run. An overlay that matches
nothing, or is not understood, is an error with file and line.)";
#endif

// In the order of --help.
constexpr Command commands[] = {
    {"ps", "list the drivers of this machine: live, stalled, dead or ended", psText, &addPs},
    {"top", "show a driver on a full screen, as it goes on", topText, &addTop},
    {"show", "show what a driver's live view holds", showText, &addShow},
    {"events", "show the event log: differences, repairs, alarms, who changed what", eventsText,
     &addEvents},
    {"trace", "show the trace records, also those of a process that has died", traceText,
     &addTrace},
    {"dump", "show entries of a region, expected beside actual", dumpText, &addDump},
    {"why", "explain what is done with an entry", whyText, &addWhy},
    {"console", "work on a running driver by name", consoleText, &addConsole},
    {"pause", "pause the audit", pauseText, &addPause},
    {"resume", "let a paused audit go on", pauseText, &addResume},
    {"audit-now", "read and judge entries at once", auditText, &addAuditNow},
    {"replay", "write to a chip what it should hold", replayText, &addReplay},
    {"ack", "acknowledge an alarm", "", &addAck},
    {"post-mortem", "show all that a driver left", postMortemText, &addPostMortem},
#ifdef UMBRA_TOOL_MAPS
    {"map", "look at register maps, and what would be audited by them", mapText, &addMap},
#endif
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
  } catch (const CLI::RequiredError& error) {
    const std::vector<std::string> given = app.remaining();
    if (!app.get_subcommands().empty() || given.empty()) {
      app.exit(error);
      return static_cast<int>(Exit::wrongUsage);
    }
    throw Failure("no command '" + given.front() + "'; umbra --help lists them", Exit::wrongUsage);
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
