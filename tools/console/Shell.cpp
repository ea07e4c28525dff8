#include "tools/console/Shell.h"

#include <Zint/Assert.h>

#include <algorithm>
#include <exception>

namespace Console {
namespace {

// The line that is being carried out, for the hook of broken rules, which end the process.
class UnderWay {
 public:
  UnderWay(Session& session, std::ostream& errors, bool isScript)
      : session_(session),
        errors_(errors),
        isScript_(isScript),
        outer_(current),
        before_(Zint::assertionHookIs(ruleBroken)) {
    current = this;
  }
  ~UnderWay() {
    Zint::assertionHookIs(before_);
    current = outer_;
  }
  UnderWay(const UnderWay&) = delete;
  UnderWay& operator=(const UnderWay&) = delete;

  void failed(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    session_.out().flush();
    if (isScript_) errors_ << "line " << number << ": ";
    errors_ << message << "\n" << std::flush;
  }

  U32 number = 0;

 private:
  static void ruleBroken(const Zint::AssertionFailure& failure) {
    current->failed("breaks a rule of the library, which ends the program");
    if (current->before_ != nullptr) current->before_(failure);
  }

  inline static UnderWay* current = nullptr;

  Session& session_;
  std::ostream& errors_;
  const bool isScript_;
  UnderWay* const outer_;
  const Zint::AssertionHook before_;
};

}  // namespace

U32 linesDone(Session& session, Lines& lines, std::ostream& errors, bool isScript) {
  UnderWay underWay(session, errors, isScript);
  U32 failed = 0;
  std::string line;
  while (!session.isEnded()) {
    ++underWay.number;
    if (!lines.next(textOf(session.names().here()) + "> ", line)) break;
    try {
      session.run(line);
    } catch (const std::exception& error) {
      ++failed;
      underWay.failed(error.what());
    }
    session.out().flush();
  }
  return failed;
}

}  // namespace Console
