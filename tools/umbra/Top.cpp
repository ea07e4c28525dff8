// umbra top: a driver on a full screen, as it goes on.
#include <langinfo.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <iostream>

// Last: it defines many short names as macros.
#include "tools/umbra/TopScreen.h"
#define NCURSES_NOMACROS
#include <ncurses.h>

namespace Tool {
namespace {

bool isUtf8() { return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

// The terminal is as it was again when this ends, however it ends.
class Terminal {
 public:
  explicit Terminal(bool colour) {
    if (newterm(nullptr, stdout, stdin) == nullptr) {
      throw Failure("this terminal cannot show a full screen (TERM); top --once prints one");
    }
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    set_escdelay(50);
    curs_set(0);
    if (!colour || has_colors() == FALSE) return;
    start_color();
    use_default_colors();
    init_pair(1, COLOR_GREEN, -1);
    init_pair(2, COLOR_YELLOW, -1);
    init_pair(3, COLOR_RED, -1);
    colour_ = true;
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() { endwin(); }

  std::size_t columns() const { return static_cast<std::size_t>(std::max(getmaxx(stdscr), 1)); }
  std::size_t rows() const { return static_cast<std::size_t>(std::max(getmaxy(stdscr), 1)); }

  void draw(const std::vector<Line>& lines) {
    erase();
    for (std::size_t row = 0; row < lines.size() && row < rows(); ++row) {
      ::move(static_cast<int>(row), 0);
      std::size_t used = 0;
      for (const Span& span : lines[row]) {
        if (used >= columns()) break;
        const std::string text = printable(span.text, columns() - used);
        used += columnsOf(text);
        attrset(static_cast<int>(attributesOf(span.style)));
        addstr(text.c_str());
      }
    }
    attrset(A_NORMAL);
    refresh();
  }

  // A key of TopScreen, or -1 after `milliseconds` without one.
  int key(int milliseconds) {
    timeout(milliseconds);
    constexpr std::pair<int, int> keys[] = {{KEY_UP, TopScreen::up},
                                            {KEY_DOWN, TopScreen::down},
                                            {KEY_PPAGE, TopScreen::pageUp},
                                            {KEY_NPAGE, TopScreen::pageDown},
                                            {KEY_HOME, TopScreen::home},
                                            {KEY_END, TopScreen::end},
                                            {KEY_ENTER, TopScreen::enter},
                                            {'\n', TopScreen::enter},
                                            {'\r', TopScreen::enter},
                                            {27, TopScreen::escape},
                                            {KEY_BACKSPACE, TopScreen::backspace},
                                            {127, TopScreen::backspace},
                                            {8, TopScreen::backspace}};
    const int pressed = getch();
    for (const auto& [code, key] : keys) {
      if (code == pressed) return key;
    }
    return pressed > 0xFF ? 0 : pressed;  // another function key, or a new size
  }

 private:
  chtype attributesOf(Style style) const {
    const auto pair = [this](int number) { return colour_ ? COLOR_PAIR(number) : 0; };
    switch (style) {
      case Style::head:
      case Style::chosen:
        return A_REVERSE;
      case Style::bold:
        return A_BOLD;
      case Style::good:
        return static_cast<chtype>(pair(1));
      case Style::warning:
        return static_cast<chtype>(pair(2));
      case Style::bad:
        return static_cast<chtype>(pair(3)) | A_BOLD;
      case Style::faint:
        return A_DIM;
      case Style::plain:
        break;
    }
    return A_NORMAL;
  }

  bool colour_ = false;
};

void nextDriver(TopModel& model, const Settings& settings) {
  std::vector<Found> all = driversIn(settings.directory);
  std::erase_if(all, [](const Found& one) { return one.view == nullptr; });
  if (all.empty()) return;
  std::size_t at = 0;
  while (at < all.size() && all[at].name != model.driver()) ++at;
  model.viewIs(all[(at + 1) % all.size()].view);
}

void showOnce(TopModel& model) {
  const char* const columns = std::getenv("COLUMNS");
  const auto width =
      static_cast<std::size_t>(columns == nullptr ? 0 : std::max(0, std::atoi(columns)));
  TopScreen screen(model, isUtf8());
  const std::size_t rows = model.regions().size() + model.passes().size() + 12;
  std::string text;
  for (const Line& line : screen.lines(width < 20 ? 80 : width, rows, wallClockNow())) {
    std::string shown;
    for (const Span& span : line) shown += span.text;
    shown.erase(shown.find_last_not_of(' ') + 1);
    text += shown + "\n";
  }
  // The last line is that of the keys.
  text.erase(text.rfind('\n', text.size() - 2) + 1);
  text.erase(text.find_last_not_of('\n') + 1);
  write(text + "\n");
}

Exit runTop(const Settings& settings, TopModel& model, double interval) {
  if (isatty(STDOUT_FILENO) == 0 || isatty(STDIN_FILENO) == 0) {
    throw Failure("top needs a terminal; top --once prints one screen", Exit::wrongUsage);
  }
  Terminal terminal(settings.colour);
  TopScreen screen(model, isUtf8());
  const int milliseconds = static_cast<int>(interval * 1000);
  S64 shown = wallClockNow();
  while (true) {
    terminal.draw(screen.lines(terminal.columns(), terminal.rows(), wallClockNow()));
    const S64 since = (wallClockNow() - shown) / 1'000'000;
    const int key =
        terminal.key(static_cast<int>(std::clamp<S64>(milliseconds - since, 1, milliseconds)));
    if (key > 0 && !screen.take(key)) return Exit::done;
    if (screen.takesNextDriver()) nextDriver(model, settings);
    if (key > 0 && wallClockNow() - shown < S64{milliseconds} * 1'000'000) continue;
    model.update();
    shown = wallClockNow();
  }
}

}  // namespace

Runner addTop(CLI::App& app) {
  struct Options {
    double interval = 1;
    bool once = false;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("-i,--interval", options->interval, "seconds between two looks (default 1)")
      ->check(CLI::Range(0.05, 3600.0))
      ->type_name("SECONDS");
  app.add_flag("--once", options->once, "print one screen with all regions, and end");
  return [options](const Settings& settings) {
    TopModel model;
    model.viewIs(theDriver(settings));
    if (settings.json) {
      writeJson(model.json());
      return Exit::done;
    }
    if (!options->once) return runTop(settings, model, options->interval);
    showOnce(model);
    return Exit::done;
  };
}

}  // namespace Tool
