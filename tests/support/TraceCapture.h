// Collects the trace while it lives, with chosen levels of the handle "Umbra" switched on.
#pragma once

#include <Hardware/Umbra.h>
#include <Zint/Trace.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace Support {

struct Line {
  U32 level;
  std::string text;
  friend bool operator==(const Line&, const Line&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const Line& line) {
  return out << line.level << ": " << line.text;
}

class TraceCapture : public Zint::TraceSink {
 public:
  // Everything that was said of a line.
  struct Full {
    std::string handle, text, context, source, function;
    U32 level;
    int line;
  };

  explicit TraceCapture(U32 upToLevel = 9) : before_(Zint::traceSinkIs(this)) {
    Hardware::umbraTrace().levelUpToIs(upToLevel);
  }
  ~TraceCapture() override {
    Hardware::umbraTrace().levelUpToIs(0);
    Zint::traceSinkIs(before_);
  }

  void traceLine(const Zint::TraceLine& line) override {
    full.push_back(
        {line.handle, line.text, line.context, line.source, line.function, line.level, line.line});
  }

  // The lines of the handle "Umbra" since the last call.
  std::vector<Line> taken() {
    std::vector<Line> lines;
    for (const Full& line : std::exchange(full, {})) {
      if (line.handle == "Umbra") lines.push_back({line.level, line.text});
    }
    return lines;
  }

  std::vector<Full> full;

 private:
  Zint::TraceSink* before_;
};

}  // namespace Support
