// A process that ends with abort(), as every failed assertion does, would take with it what it has
// counted. Here it saves the counts first: those of the library or of the program this is part of.
#include <csignal>

extern "C" void __gcov_dump();

namespace {

void (*before)(int) = SIG_DFL;

void save(int signal) {
  __gcov_dump();
  std::signal(signal, before);
  if (before != SIG_DFL) before(signal);
  // The default action follows: abort() raises the signal once more.
}

const bool installed = [] {
  before = std::signal(SIGABRT, save);
  return true;
}();

}  // namespace

// The linker is given its name, so that it is taken from an archive.
extern "C" int umbraCoverageFlush() { return installed; }
