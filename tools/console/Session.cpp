#include "tools/console/Session.h"

#include "tools/console/Commands.h"
#include "tools/console/Error.h"
#include "tools/console/Suggest.h"

namespace Console {

Session::Session(World world, std::ostream& out)
    : world_(std::move(world)),
      out_(out),
      tell_([this](const std::string& line) { out_ << line << "\n"
                                                   << std::flush; }),
      names_(world_.objects),
      trace_([this](const std::string& line) { tell_(line); }),
      watches_(world_.activity, [this](const std::string& line) { tell_(line); }) {}

void Session::run(const std::string& line) {
  Words words = wordsOf(line);
  if (words.empty()) return;
  const Command& command = commandNamed(words[0]);
  words.erase(words.begin());
  if (words.size() < command.least || words.size() > command.most) {
    throw Error(std::string("usage: ") + command.name + " " + command.arguments);
  }
  command.run(*this, words);
  watches_.looked();
}

}  // namespace Console
