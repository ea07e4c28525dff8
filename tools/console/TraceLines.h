// The trace, among the console's other output.
#pragma once

#include <Zint/Trace.h>

#include <functional>
#include <string>
#include <vector>

namespace Console {

// While it lives, prints the lines of the handles that were switched on here, and those of the
// runtime, which report exceptions in handlers. All others are dropped.
class TraceLines : public Zint::TraceSink {
 public:
  using Print = std::function<void(const std::string& line)>;

  explicit TraceLines(Print print) : print_(std::move(print)), before_(Zint::traceSinkIs(this)) {}
  ~TraceLines() override;
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;

  // Prints levels 0 to `level` of the handle from now on.
  void levelIs(Zint::TraceHandle& handle, U32 level);
  void off(Zint::TraceHandle& handle);

  void traceLine(const Zint::TraceLine& line) override;

 private:
  const Print print_;
  std::vector<Zint::TraceHandle*> on_;
  Zint::TraceSink* before_;
};

}  // namespace Console
