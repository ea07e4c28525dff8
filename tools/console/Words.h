// A line, cut into words. Blanks end a word, except between single quotes: these belong to the text
// of a string or of an object ('my table'#3) and stay in the word. Inside them a backslash takes
// the next character for what it is. A line whose first character is # says nothing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Console {

using Words = std::vector<std::string>;

// A quote that is not closed: Error.
Words wordsOf(std::string_view line);

// The beginning of a line, as far as it has been typed: its complete words, and where the one under
// the cursor begins (at the end, when there is none). Unclosed quotes are no error here.
struct Typed {
  Words before;
  std::size_t begin;
  std::string word;
};
Typed typed(std::string_view line);

// "name=value"; Error when there is no name or no '='.
std::pair<std::string, std::string> argumentOf(const std::string& word);

}  // namespace Console
