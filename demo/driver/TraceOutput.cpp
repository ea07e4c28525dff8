#include "demo/driver/TraceOutput.h"

#include <Zint/Clock.h>
#include <Zint/Trace.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace Demo {
namespace {

constexpr const char* libraryHandles[] = {"Umbra", "Driver"};

bool isOfLibrary(const Zint::TraceLine& line) {
  return std::ranges::any_of(libraryHandles,
                             [&](const char* name) { return std::strcmp(line.handle, name) == 0; });
}

void libraryLevelsAre(U32 level) {
  for (const char* name : libraryHandles) Zint::TraceHandle::find(name)->levelUpToIs(level);
}

}  // namespace

TraceOutput::TraceOutput(const Options& options)
    : isOn_(options.traceLevel.has_value()), file_(stderr) {
  if (!options.traceFile.empty()) {
    file_ = std::fopen(options.traceFile.c_str(), "we");
    if (file_ == nullptr) {
      throw std::system_error(errno, std::generic_category(), "open " + options.traceFile);
    }
  }
  if (isOn_) libraryLevelsAre(*options.traceLevel);
  before_ = Zint::traceSinkIs(this);
}

TraceOutput::~TraceOutput() {
  Zint::traceSinkIs(before_);
  libraryLevelsAre(0);
  if (file_ != stderr) std::fclose(file_);
}

void TraceOutput::traceLine(const Zint::TraceLine& line) {
  if (isOfLibrary(line) && !isOn_) return;
  std::fprintf(file_, "%.6f %s %u %s:%d %s\n", Zint::now(), line.handle, line.level, line.source,
               line.line, line.text);
}

bool TraceOutput::isOnTerminal() const { return isOn_ && isatty(fileno(file_)) != 0; }

}  // namespace Demo
