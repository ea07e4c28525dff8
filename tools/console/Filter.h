// `COMMAND | SHELL COMMAND`: a command's output as the input of a program.
#pragma once

#include <string>

namespace Console {

// Runs the shell command and waits for its end; its output is this process's standard output, which
// must have been flushed. Nothing else runs until then. A program that reads only a part (head) is
// no error. One that cannot be run: Error.
void runFilter(const std::string& shellCommand, const std::string& input);

}  // namespace Console
