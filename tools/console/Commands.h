// The commands, in one table.
#pragma once

#include <string>
#include <vector>

#include "tools/console/Library.h"
#include "tools/console/Words.h"

namespace Console {

class Session;

// What a command's first argument is: what completion offers.
enum class Takes { nothing, place, attribute, operation, newName, watched, type, command, level };

struct Command {
  const char* name;
  const char* arguments;  // "PATH VALUE"
  const char* help;
  Takes takes;
  std::size_t least;  // number of arguments
  std::size_t most;
  void (*run)(Session& session, const Words& arguments);
};

const std::vector<Command>& commands();
// Error with a near miss.
const Command& commandNamed(const std::string& name);

// Error unless the place is an attribute of the registry.
void requireAttribute(const Place& place);

// What the commands do; one source per group.
void doLs(Session&, const Words&);
void doCd(Session&, const Words&);
void doGet(Session&, const Words&);
void doShow(Session&, const Words&);
void doSet(Session&, const Words&);
void doCall(Session&, const Words&);
void doLet(Session&, const Words&);

void doTypes(Session&, const Words&);
void doDescribe(Session&, const Words&);
void doHelp(Session&, const Words&);
void doQuit(Session&, const Words&);

void doWatch(Session&, const Words&);
void doUnwatch(Session&, const Words&);
void doTrace(Session&, const Words&);
void doPeek(Session&, const Words&);
void doPoke(Session&, const Words&);
void doWait(Session&, const Words&);
void doFindings(Session&, const Words&);
void doFault(Session&, const Words&);
void doCheck(Session&, const Words&);

}  // namespace Console
