// umbra console: a prompt on a running driver.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "tools/umbra/ConsoleSession.h"
#include "tools/umbra/Prompt.h"

namespace Tool {
namespace {

Exit runConsole(const Settings& settings, bool looksOnly, const std::string& command) {
  const ViewPtr view = theDriver(settings);
  Control control =
      looksOnly ? Control::toLook(settings, *view) : Control::toDoMost(settings, *view);
  std::unique_ptr<Prompt> prompt;
  ConsoleSession session(control, settings, [&prompt](const std::string& text) {
    prompt ? prompt->print(text) : write(text + "\n");
  });
  if (!command.empty()) {
    session.run(command);
    return Exit::done;
  }
  // Without SA_RESTART, so that it ends a wait.
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGINT, &action, nullptr);
  prompt = makePrompt({control.descriptor(), [&control] { control.receive(); },
                       [&session](const std::string& line) {
                         auto found = session.completion(line);
                         return Prompt::Completion{found.begin, std::move(found.words)};
                       }});
  const bool isTerminal = isatty(STDIN_FILENO) == 1;
  if (isTerminal && !settings.json) {
    const Json& greeting = control.greeting();
    prompt->print(printable(greeting.value("name", std::string())) + ", process " +
                  textOf(Form::number, greeting.value("pid", Json())) + ", level " +
                  printable(greeting.value("level", std::string())) +
                  "; help lists the commands, quit ends");
  }
  Exit exit = Exit::done;
  std::string line;
  for (U64 number = 1; prompt->next(session.prompt(), line); ++number) {
    try {
      if (!session.run(line)) break;
    } catch (const Failure& failure) {
      if (!control.isOpen()) throw;
      std::fflush(stdout);
      if (!isTerminal) {
        std::cerr << "line " << number << ": ";
        exit = Exit::failed;
      }
      std::cerr << printable(failure.what()) << '\n';
    }
  }
  return exit;
}

}  // namespace

Runner addConsole(CLI::App& app) {
  struct Options {
    bool look = false;
    std::string command;
  };
  const auto options = std::make_shared<Options>();
  app.add_flag("--look", options->look,
               "through the socket that looks, also where more is allowed");
  app.add_option("-c,--command", options->command, "carry out one line, and end")
      ->type_name("LINE");
  return [options](const Settings& settings) {
    return runConsole(settings, options->look, options->command);
  };
}

}  // namespace Tool
