// What all subcommands share: the settings, the exit codes, and how a subcommand is made.
//
//   Runner addPs(CLI::App& app) {                    // options of its own
//     auto clean = std::make_shared<bool>(false);
//     app.add_flag("--clean", *clean, "remove what dead drivers left");
//     return [clean](const Settings& settings) { ...; return Exit::done; };
//   }
//
// and a row in the table of main.cpp. Help, completion and manual page are made from the options.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace Tool {

enum class Exit { done = 0, failed = 1, wrongUsage = 2, nothingFound = 3 };

// The options before and after any subcommand.
struct Settings {
  std::string directory = "/run/umbra";
  std::string driver;  // a name or the path of a live view; empty: the only one
  bool json = false;
  bool colour = false;  // on a terminal, unless NO_COLOR is set
  bool pager = false;   // on a terminal: what is longer than the screen goes through a pager
  double timeout = 2;   // seconds that a driver's socket may take for an answer
};

// Why a subcommand ended: the text says what is wrong and what to do.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, Exit status = Exit::failed)
      : std::runtime_error(text), exit(status) {}
  Exit exit;
};

using Runner = std::function<Exit(const Settings&)>;

struct Command {
  const char* name;
  const char* help;  // half a sentence; begins with a verb or a noun in lower case
  const char* text;  // paragraphs of the manual page, in plain text
  Runner (*add)(CLI::App& app);
  bool hidden = false;  // for other programs: not in help, completion and manual
};

Runner addPs(CLI::App& app);
Runner addTop(CLI::App& app);
Runner addShow(CLI::App& app);
Runner addEvents(CLI::App& app);
Runner addTrace(CLI::App& app);
Runner addDump(CLI::App& app);
Runner addWhy(CLI::App& app);
Runner addConsole(CLI::App& app);
Runner addPause(CLI::App& app);
Runner addResume(CLI::App& app);
Runner addAuditNow(CLI::App& app);
Runner addReplay(CLI::App& app);
Runner addAck(CLI::App& app);
Runner addPostMortem(CLI::App& app);
#ifdef UMBRA_TOOL_MAPS
Runner addMap(CLI::App& app);
#endif
Runner addWords(CLI::App& app);
Runner addCompletion(CLI::App& app);
Runner addManual(CLI::App& app);
#ifdef UMBRA_TOOL_SERVE
Runner addMetrics(CLI::App& app);  // serve/
Runner addServe(CLI::App& app);
#endif

// The shell's completion, and the manual page in roff, of all that `app` offers.
std::string completionText(const CLI::App& app);
std::string manualText(const CLI::App& app);

}  // namespace Tool
