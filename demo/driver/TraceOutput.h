// Where the library's trace goes.
#pragma once

#include <Zint/Trace.h>

#include <cstdio>
#include <string>

#include "demo/common/Options.h"

namespace Demo {

// While it lives, the libraries' lines go to the file or stream that the options name, and nowhere
// without --trace. Lines of the runtime are never dropped: they report exceptions in handlers.
class TraceOutput : public Zint::TraceSink {
 public:
  // A file that cannot be opened: std::system_error.
  explicit TraceOutput(const Options& options);
  ~TraceOutput() override;
  TraceOutput(const TraceOutput&) = delete;
  TraceOutput& operator=(const TraceOutput&) = delete;

  void traceLine(const Zint::TraceLine& line) override;
  // Whether lines may get in between other output on the terminal.
  bool isOnTerminal() const;

 private:
  const bool isOn_;
  std::FILE* file_;
  Zint::TraceSink* before_;
};

}  // namespace Demo
