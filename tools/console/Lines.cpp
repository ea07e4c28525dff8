#include "tools/console/Lines.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace Console {

bool workUntilReadable(Zint::ActivityConfig& activity, int descriptor) {
  for (;;) {
    pollfd polled[] = {{descriptor, POLLIN, 0}, {activity.descriptor(), POLLIN, 0}};
    if (poll(polled, 2, -1) < 0) {
      if (errno == EINTR) return false;
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (polled[1].revents != 0) activity.turn();
    if (polled[0].revents != 0) return true;
  }
}

bool PlainLines::next(const std::string& prompt, std::string& line) {
  if (showsPrompt_) {
    std::fputs(prompt.c_str(), stdout);
    std::fflush(stdout);
  }
  for (;;) {
    const std::size_t end = read_.find('\n');
    if (end != std::string::npos || (isEnd_ && !read_.empty())) {
      line = read_.substr(0, end);
      read_.erase(0, end == std::string::npos ? end : end + 1);
      return true;
    }
    if (isEnd_) return false;
    if (!workUntilReadable(*activity_, descriptor_)) {
      // Ctrl-C: drop what was typed so far.
      line.clear();
      return true;
    }
    std::array<char, 4096> part;
    const ssize_t size = ::read(descriptor_, part.data(), part.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw std::system_error(errno, std::generic_category(), "reading commands");
    if (size == 0) {
      isEnd_ = true;
    } else {
      read_.append(part.data(), static_cast<std::size_t>(size));
    }
  }
}

}  // namespace Console
