#include "tools/console/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace Console {

std::string columnsText(const std::vector<std::string>& texts, std::size_t width,
                        std::size_t lines) {
  std::size_t longest = 0;
  for (const std::string& each : texts) longest = std::max(longest, each.size());
  constexpr std::size_t gap = 2;
  const std::size_t columns = std::max<std::size_t>(1, (width + gap) / (longest + gap));
  const std::size_t needed = (texts.size() + columns - 1) / columns;
  const std::size_t shown = std::min(needed, lines);
  std::string result;
  std::size_t left = texts.size();
  for (std::size_t row = 0; row < shown; ++row) {
    for (std::size_t at = row; at < texts.size(); at += needed, --left) {
      result += texts[at];
      if (at + needed < texts.size()) result += std::string(longest + gap - texts[at].size(), ' ');
    }
    result += "\n";
  }
  if (left != 0) result += "... " + std::to_string(left) + " more\n";
  return result;
}

std::size_t terminalWidth() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 ? 80 : size.ws_col;
}

}  // namespace Console
