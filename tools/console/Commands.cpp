#include "tools/console/Commands.h"

#include "tools/console/Error.h"
#include "tools/console/Session.h"
#include "tools/console/Show.h"
#include "tools/console/Suggest.h"

namespace Console {
namespace {

constexpr std::size_t any = 64;

}  // namespace

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"ls", "[PATH]", "what stands there: attributes, collections and their members, operations",
       Takes::place, 0, 1, doLs},
      {"cd", "[PATH]",
       "goes there: along attributes that are objects, into collections (members by their key or\n"
       "their name), up with .., to the top with / or without a path",
       Takes::place, 0, 1, doCd},
      {"get", "PATH", "the text of an attribute, an object or a member of a collection",
       Takes::place, 1, 1, doGet},
      {"show", "PATH [FIRST | FIRST..LAST | FIRST+COUNT]",
       "shows a buffer (hardware, shadow, initialized or dirty of a region) as rows of entries, "
       "the\n"
       "first ones unless a range of entries is given",
       Takes::place, 1, 2, doShow},
      {"set", "PATH VALUE",
       "sets an attribute. A value that is ., .. or begins with /, ./ or ../ is a path and stands\n"
       "for what get prints there; strings may be given 'in quotes'",
       Takes::attribute, 2, 2, doSet},
      {"call", "PATH [NAME=VALUE...]",
       "calls an operation and prints its result; values are as in set. Operations of a "
       "collection\n"
       "x are xIs, xDel and xDelAll; those of / make new objects",
       Takes::operation, 1, any, doCall},
      {"let", "NAME = PATH | NAME = call PATH [NAME=VALUE...] | NAME = null",
       "gives an object a name in /, which keeps it alive; null takes the name away",
       Takes::newName, 3, any, doLet},
      {"watch", "[PATH]", "prints each change of an attribute; without a path, what is watched",
       Takes::attribute, 0, 1, doWatch},
      {"unwatch", "[PATH]", "ends that; without a path, for all", Takes::watched, 0, 1, doUnwatch},
      {"types", "", "all registered types", Takes::nothing, 0, 0, doTypes},
      {"describe", "[TYPE]", "a type and its members; without a name, the type of what is here",
       Takes::type, 0, 1, doDescribe},
      {"trace", "LEVEL|off [HANDLE]",
       "shows the library's trace: 0 what happens and what is wrong, up to 9 the finest detail",
       Takes::level, 1, 2, doTrace},
      {"peek", "ADDRESS", "a register of the chip, past the library; ADDRESS in bytes",
       Takes::nothing, 1, 1, doPeek},
      {"poke", "ADDRESS VALUE", "damages a register of the chip behind the library's back",
       Takes::nothing, 2, 2, doPoke},
      {"wait", "SECONDS | N passes",
       "lets the system work. A pass that is under way counts: damage done meanwhile is found by\n"
       "the second one at the latest",
       Takes::nothing, 1, 2, doWait},
      {"help", "[COMMAND]", "this text, or that of one command", Takes::command, 0, 1, doHelp},
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
  throw Error("unknown command " + name + didYouMean(name, known));
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
