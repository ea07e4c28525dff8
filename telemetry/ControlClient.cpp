#include <telemetry/ControlClient.h>

namespace Telemetry {

void ControlInput::take(std::string_view bytes) {
  bytes_ += bytes;
  if (!hasLine_) findLine();
}

std::optional<std::string> ControlInput::next() {
  std::optional<std::string> line;
  if (!isTooLong_) {
    line = bytes_.substr(0, end_);
    if (line->ends_with('\r')) line->pop_back();
  }
  bytes_.erase(0, end_ + 1);
  end_ = 0;
  hasLine_ = false;
  isTooLong_ = false;
  findLine();
  return line;
}

void ControlInput::findLine() {
  end_ = bytes_.find('\n', end_);
  hasLine_ = end_ != std::string::npos;
  if (hasLine_) {
    if (end_ > longestLine) isTooLong_ = true;
    return;
  }
  if (bytes_.size() > longestLine) {
    isTooLong_ = true;
    bytes_.clear();
  }
  end_ = bytes_.size();
}

}  // namespace Telemetry
