#include "tools/console/Shell.h"

#include <Zint/Assert.h>

#include <algorithm>
#include <exception>

namespace Console {
namespace {

// The line that is being run, for the hook of fatal assertions.
class RunningLine {
 public:
  RunningLine(Session& session, std::ostream& errors, bool isScript)
      : session_(session),
        errors_(errors),
        isScript_(isScript),
        outer_(current),
        before_(Zint::assertionHookIs(onAssertion)) {
    current = this;
  }
  ~RunningLine() {
    Zint::assertionHookIs(before_);
    current = outer_;
  }
  RunningLine(const RunningLine&) = delete;
  RunningLine& operator=(const RunningLine&) = delete;

  void report(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    session_.out().flush();
    if (isScript_) errors_ << "line " << number << ": ";
    errors_ << message << "\n" << std::flush;
  }

  U32 number = 0;

 private:
  static void onAssertion(const Zint::AssertionFailure& failure) {
    current->report("breaks a rule of the library, which ends the program");
    if (current->before_ != nullptr) current->before_(failure);
  }

  inline static RunningLine* current = nullptr;

  Session& session_;
  std::ostream& errors_;
  const bool isScript_;
  RunningLine* const outer_;
  const Zint::AssertionHook before_;
};

}  // namespace

U32 runLines(Session& session, Lines& lines, std::ostream& errors, bool isScript) {
  RunningLine running(session, errors, isScript);
  U32 failed = 0;
  std::string line;
  while (!session.isEnded()) {
    ++running.number;
    if (!lines.next(textOf(session.names().here()) + "> ", line)) break;
    try {
      session.run(line);
    } catch (const std::exception& error) {
      ++failed;
      running.report(error.what());
    }
    if (!session.out().flush()) break;  // its reader has ended: ls | head
  }
  return failed;
}

}  // namespace Console
