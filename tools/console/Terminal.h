// Texts for a terminal of limited width.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Console {

// Texts in columns, downwards, each line at most `width` characters unless a single text is longer.
// At most `lines` lines; what does not fit is counted in one more line.
std::string columnsText(const std::vector<std::string>& texts, std::size_t width,
                        std::size_t lines);

// Where on a terminal a line is edited that is longer than the terminal is wide. Rows count from 0.
struct EditedLine {
  std::size_t prompt;  // lengths in characters
  std::size_t cursor;
  std::size_t text;
  std::size_t width;  // of the terminal

  std::size_t cursorRow() const { return (prompt + cursor) / width; }
  std::size_t lastRow() const { return (prompt + text) / width; }
};

// The width of the terminal on standard output; 80 where it is not known.
std::size_t terminalWidth();

}  // namespace Console
