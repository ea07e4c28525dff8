// Runs lines up to the end, to `quit`, or until nobody reads the output any more.
#pragma once

#include <ostream>

#include "tools/console/Lines.h"
#include "tools/console/Session.h"

namespace Console {

// Errors are printed, a script's as "line N: message", one line each; a person's without the
// number. Returns the number of errors.
U32 runLines(Session& session, Lines& lines, std::ostream& errors, bool isScript);

}  // namespace Console
