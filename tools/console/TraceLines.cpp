#include "tools/console/TraceLines.h"

#include <algorithm>
#include <cstring>

namespace Console {

TraceLines::~TraceLines() {
  for (Zint::TraceHandle* handle : on_) handle->levelUpToIs(0);
  Zint::traceSinkIs(before_);
}

void TraceLines::levelIs(Zint::TraceHandle& handle, U32 level) {
  handle.levelUpToIs(level);
  if (std::find(on_.begin(), on_.end(), &handle) == on_.end()) on_.push_back(&handle);
}

void TraceLines::off(Zint::TraceHandle& handle) {
  handle.levelUpToIs(0);
  std::erase(on_, &handle);
}

void TraceLines::traceLine(const Zint::TraceLine& line) {
  const auto isOf = [&](const Zint::TraceHandle* handle) {
    return std::strcmp(line.handle, handle->name()) == 0;
  };
  if (!isOf(&Zint::zintTrace()) && std::none_of(on_.begin(), on_.end(), isOf)) return;
  print_(std::string(line.handle) + " " + std::to_string(line.level) + ": " + line.text);
}

}  // namespace Console
