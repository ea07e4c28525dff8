#include "demo/driver/Status.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace Demo {

Status::Status(const Zint::Ptr<Zint::ActivityConfig>& activity,
               const Zint::Ptr<const Zint::Clock>& clock, bool isPicture, Source source)
    : NotifieeConst(activity, clock), isPicture_(isPicture), source_(std::move(source)) {
  timeMinIs(0.0);
}

bool Status::isPicturePossible() {
  if (isatty(STDOUT_FILENO) == 0) return false;
  constexpr int rows = 16;
  constexpr int columns = 80;
  winsize size{};
  // A terminal that does not know its size is taken for a usual one.
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return true;
  return size.ws_row >= rows && size.ws_col >= columns;
}

void Status::onTime() {
  show();
  timeMinIs(Zint::now() + (isPicture_ ? 0.1 : 1.0));
}

void Status::showLast() {
  timeMinIs(Zint::never);
  show();
}

void Status::show() {
  std::string text;
  if (isPicture_) {
    if (drawn_ != 0) text = "\x1b[" + std::to_string(drawn_) + "A\r";
    const std::vector<std::string> lines = statusPicture(source_());
    for (const std::string& line : lines) text += line + "\x1b[K\n";
    drawn_ = lines.size();
  } else {
    text = statusLine(source_()) + "\n";
  }
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace Demo
