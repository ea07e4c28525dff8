#include "tools/console/Filter.h"

#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include "tools/console/Library.h"

namespace Console {
namespace {

// While it lives, SIGPIPE does what is given.
class PipeSignal {
 public:
  explicit PipeSignal(void (*handler)(int)) : before_(std::signal(SIGPIPE, handler)) {}
  ~PipeSignal() { std::signal(SIGPIPE, before_); }
  PipeSignal(const PipeSignal&) = delete;
  PipeSignal& operator=(const PipeSignal&) = delete;

 private:
  void (*const before_)(int);
};

// The program keeps the default: it ends quietly when its own reader has ended.
std::FILE* start(const std::string& shellCommand) {
  const PipeSignal byDefault(SIG_DFL);
  return popen(shellCommand.c_str(), "we");
}

}  // namespace

void runFilter(const std::string& shellCommand, const std::string& input) {
  std::FILE* pipe = start(shellCommand);
  if (pipe == nullptr) throw std::system_error(errno, std::generic_category(), "popen");
  const PipeSignal ignored(SIG_IGN);
  (void)std::fwrite(input.data(), 1, input.size(), pipe);
  const int status = pclose(pipe);
  if (!WIFEXITED(status) || WEXITSTATUS(status) == 127) throw Error("cannot run " + shellCommand);
}

}  // namespace Console
