#include "tools/console/Shell.h"

#include <algorithm>
#include <exception>

namespace Console {

U32 linesDone(Session& session, Lines& lines, std::ostream& errors, bool isScript) {
  U32 failed = 0;
  std::string line;
  for (U32 number = 1; !session.isEnded(); ++number) {
    if (!lines.next(textOf(session.names().here()) + "> ", line)) break;
    try {
      session.run(line);
    } catch (const std::exception& error) {
      ++failed;
      std::string message = error.what();
      std::replace(message.begin(), message.end(), '\n', ' ');
      session.out().flush();
      if (isScript) errors << "line " << number << ": ";
      errors << message << "\n" << std::flush;
    }
    session.out().flush();
  }
  return failed;
}

}  // namespace Console
