// The trace, among the console's other output.
#pragma once

#include <Zint/Trace.h>

#include <functional>
#include <string>
#include <vector>

namespace Console {

// While it lives, lines of the handles that were switched on here are told, and so are those of the
// runtime, which speak of exceptions in handlers. All others go nowhere.
class TraceLines : public Zint::TraceSink {
 public:
  using Tell = std::function<void(const std::string& line)>;

  explicit TraceLines(Tell tell) : tell_(std::move(tell)), before_(Zint::traceSinkIs(this)) {}
  ~TraceLines() override;
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;

  // Levels 0 to `level` of the handle are told from now on.
  void levelIs(Zint::TraceHandle& handle, U32 level);
  void off(Zint::TraceHandle& handle);

  void traceLine(const Zint::TraceLine& line) override;

 private:
  const Tell tell_;
  std::vector<Zint::TraceHandle*> on_;
  Zint::TraceSink* before_;
};

}  // namespace Console
