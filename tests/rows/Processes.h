// Programs of this folder as processes.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <vector>

extern char** environ;

namespace Support {

inline pid_t start(std::string program, std::vector<std::string> words) {
  std::vector<char*> arguments = {program.data()};
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t pid = 0;
  EXPECT_EQ(::posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments.data(), environ), 0);
  return pid;
}

// Waits for its end: its exit status, or less the signal that ended it.
inline int exitOf(pid_t pid) {
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace Support
