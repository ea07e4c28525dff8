#include "tools/console/Session.h"

#include <algorithm>
#include <sstream>

#include "tools/console/Commands.h"
#include "tools/console/Library.h"

namespace Console {

Session::Session(World world, std::ostream& out)
    : world_(std::move(world)),
      out_(&out),
      print_([this](const std::string& line) { *out_ << line << "\n"
                                                     << std::flush; }),
      names_(world_.objects),
      trace_([this](const std::string& line) { print_(line); }),
      watches_(world_.activity, [this](const std::string& line) { print_(line); }) {}

void Session::run(const std::string& line) {
  Words words = wordsOf(line);
  const auto bar = std::find(words.begin(), words.end(), "|");
  if (bar == words.end()) return runCommand(std::move(words));
  if (!world_.filter) throw Error("no shell commands are run here");
  std::string shellCommand;
  for (auto word = bar + 1; word != words.end(); ++word) shellCommand += *word + " ";
  if (shellCommand.empty()) throw Error("usage: COMMAND | SHELL COMMAND");
  words.erase(bar, words.end());

  std::ostringstream collected;
  std::ostream* const out = std::exchange(out_, &collected);
  try {
    runCommand(std::move(words));
  } catch (...) {
    out_ = out;
    throw;
  }
  out_ = out;
  out_->flush();
  world_.filter(shellCommand, collected.str());
}

void Session::runCommand(Words words) {
  if (words.empty()) return;
  const Command& command = commandNamed(words[0]);
  words.erase(words.begin());
  if (words.size() < command.least || words.size() > command.most) {
    throw Error(std::string("usage: ") + command.name + (*command.arguments == '\0' ? "" : " ") +
                command.arguments);
  }
  command.run(*this, words);
  watches_.poll();
}

}  // namespace Console
