// Reads lines and carries them out, to the end or to `quit`.
#pragma once

#include <ostream>

#include "tools/console/Lines.h"
#include "tools/console/Session.h"

namespace Console {

// A script's errors are told as "line N: message", one line each; a person's without the number.
// Returns how many there were.
U32 linesDone(Session& session, Lines& lines, std::ostream& errors, bool isScript);

}  // namespace Console
