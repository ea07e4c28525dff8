#include "tools/console/Commands.h"

#include "tools/console/Library.h"
#include "tools/console/Session.h"
#include "tools/console/Show.h"

namespace Console {
namespace {

constexpr std::size_t any = 64;

// What other programs call the same.
constexpr std::pair<const char*, const char*> otherNames[] = {
    {"?", "help"},        {"man", "help"},   {"exit", "quit"}, {"bye", "quit"},
    {"q", "quit"},        {"dir", "ls"},     {"print", "get"}, {"cat", "get"},
    {"read", "get"},      {"write", "set"},  {"dump", "show"}, {"hexdump", "show"},
    {"monitor", "watch"}, {"sleep", "wait"},
};

}  // namespace

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"ls", "[PATH]",
       "lists an object's attributes, collections and operations, or a collection's members",
       Takes::place, 0, 1, doLs},
      {"cd", "[PATH]",
       "changes the place that paths begin at: along attributes that are objects, into "
       "collections\n"
       "(members by their key or their name), up with .., to / without a path",
       Takes::place, 0, 1, doCd},
      {"get", "PATH", "the text of an attribute, an object or a member of a collection",
       Takes::place, 1, 1, doGet},
      {"show", "PATH [FIRST | FIRST..LAST | FIRST+COUNT]",
       "shows a buffer (hardware, shadow, initialized or dirty of a region) as rows of entries, "
       "the\n"
       "first ones unless a range of entries is given",
       Takes::place, 1, 2, doShow},
      {"set", "PATH VALUE",
       "sets an attribute. A value that is ., .. or begins with /, ./ or ../ is a path and means\n"
       "the value there; strings may be given 'in quotes'",
       Takes::attribute, 2, 2, doSet},
      {"call", "PATH [NAME=VALUE...]",
       "calls an operation and prints its result; values are as in set. Operations of a "
       "collection\n"
       "x are xIs, xDel and xDelAll; those of / make new objects",
       Takes::operation, 1, any, doCall},
      {"let", "NAME = PATH | NAME = call PATH [NAME=VALUE...] | NAME = null",
       "gives an object a name in /, which keeps it alive; null removes the name", Takes::newName,
       3, any, doLet},
      {"watch", "[PATH]", "prints each change of an attribute; without a path, what is watched",
       Takes::attribute, 0, 1, doWatch},
      {"unwatch", "[PATH]", "ends a watch; without a path, all of them", Takes::watched, 0, 1,
       doUnwatch},
      {"types", "", "all registered types", Takes::nothing, 0, 0, doTypes},
      {"describe", "[TYPE]", "a type and its members; without a name, the type of what is here",
       Takes::type, 0, 1, doDescribe},
      {"trace", "LEVEL|off [HANDLE]",
       "shows the library's trace: 0 what happens and what is wrong, up to 9 the finest detail",
       Takes::level, 1, 2, doTrace},
      {"peek", "ADDRESS", "reads a register of the chip, past the library; ADDRESS in bytes",
       Takes::nothing, 1, 1, doPeek},
      {"poke", "ADDRESS VALUE", "damages a register of the chip without the library's knowledge",
       Takes::nothing, 2, 2, doPoke},
      {"fault", "absent | present | reset | stuck ADDRESS BITS | free",
       "what befalls the chip: it does not answer, and does again; it forgets everything; bits of "
       "a\n"
       "register read 0 whatever is written, and are free again",
       Takes::nothing, 1, 3, doFault},
      {"wait", "SECONDS | N passes",
       "lets the system run. A running pass counts, so damage done during it is found by the "
       "second\n"
       "one at the latest",
       Takes::nothing, 1, 2, doWait},
      {"check", "", "what will go wrong as shadow and regions are set up, each with its remedy",
       Takes::nothing, 0, 0, doCheck},
      {"findings", "[N]",
       "the last N (10) things that the patrol has found, the newest last, and what it did",
       Takes::nothing, 0, 1, doFindings},
      {"help", "[COMMAND]",
       "explains all commands, or one. COMMAND | SHELL COMMAND filters a command's output: ls | "
       "head",
       Takes::command, 0, 1, doHelp},
      {"quit", "", "ends the session", Takes::nothing, 0, 0, doQuit},
  };
  return table;
}

const Command& commandNamed(const std::string& name) {
  std::vector<std::string> known;
  for (const Command& command : commands()) {
    if (name == command.name) return command;
    known.emplace_back(command.name);
  }
  std::string hint;
  for (const auto& [other, meant] : otherNames) {
    if (name == other) hint = std::string("; did you mean '") + meant + "'?";
  }
  if (hint.empty()) hint = didYouMean(name, known);
  if (hint.empty() && name.find('/') != std::string::npos) hint = "; to read it: get " + name;
  if (hint.empty()) hint = "; help lists the commands";
  throw Error("unknown command " + name + hint);
}

void doHelp(Session& session, const Words& arguments) {
  const auto shown = [&](const Command& command) {
    std::string text = command.help;
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
      text.replace(at, 1, "\n      ");
      at += 7;
    }
    session.out() << "  " << command.name << (*command.arguments == '\0' ? "" : " ")
                  << command.arguments << "\n      " << text << "\n";
  };
  if (!arguments.empty()) return shown(commandNamed(arguments[0]));
  for (const Command& command : commands()) shown(command);
}

void doQuit(Session& session, const Words&) { session.end(); }

void doTypes(Session& session, const Words&) {
  std::vector<std::vector<std::string>> rows;
  for (const Zint::Type* type : Zint::TypeRegistry::types())
    rows.push_back({type->name, type->kind});
  session.out() << table(rows, "");
}

void doDescribe(Session& session, const Words& arguments) {
  if (!arguments.empty()) {
    session.out() << description(typeNamed(arguments[0]));
    return;
  }
  const Place place = session.names().at(session.names().here());
  if (place.kind == Place::root) throw Error("no object here: name a type, or cd to an object");
  session.out() << description(place.view().type());
}

}  // namespace Console
