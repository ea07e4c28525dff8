#include "demo/common/ChipProcess.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace Demo {
namespace {

constexpr int patience = 5000;  // milliseconds that the chip process may take to start or to end

void pause() {
  const timespec millisecond{0, 1'000'000};
  nanosleep(&millisecond, nullptr);
}

}  // namespace

std::string ChipProcess::besideThisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe").replace_filename("umbra-chip").string();
}

ChipProcess::ChipProcess(U32 seed, std::string program)
    : registers_(folder_.registersPath(), registerFileSize),
      control_(folder_.controlPath(), sizeof(ControlBlock)) {
  control().driver = getpid();
  control().seed = seed;
  std::string folder = folder_.path();
  char* const arguments[] = {program.data(), folder.data(), nullptr};
  const int error = posix_spawn(&id_, program.c_str(), nullptr, nullptr, arguments, environ);
  if (error != 0) {
    isEnded_ = true;
    throw std::system_error(error, std::generic_category(), "starting " + program);
  }
  for (int waited = 0; control().isReady == 0; ++waited) {
    if (waited == patience || !isRunning()) {
      end();
      throw std::runtime_error("the chip process " + program + " did not start");
    }
    pause();
  }
}

bool ChipProcess::isRunning() {
  int status = 0;
  if (!isEnded_ && waitpid(id_, &status, WNOHANG) == id_) reap(status);
  return !isEnded_;
}

bool ChipProcess::end() {
  // A process that ended without a stop was not in order.
  if (!isRunning()) return isOrderly_;
  control().isStopped = 1;
  for (int waited = 0; isRunning(); ++waited) {
    if (waited == patience) {
      kill(id_, SIGKILL);
      int status = 0;
      while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
      }
      reap(status);
      break;
    }
    pause();
  }
  return isOrderly_;
}

void ChipProcess::reap(int status) {
  isEnded_ = true;
  isOrderly_ = control().isStopped != 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace Demo
