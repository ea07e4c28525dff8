#include "tools/console/Words.h"

#include "tools/console/Library.h"

namespace Console {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// Behind the word that begins at `at`; sets `isClosed` to whether its last quote is.
std::size_t wordEnd(std::string_view line, std::size_t at, bool& isClosed) {
  bool quoted = false;
  for (; at < line.size() && (quoted || !isBlank(line[at])); ++at) {
    if (line[at] == '\'') quoted = !quoted;
    if (quoted && line[at] == '\\' && at + 1 < line.size()) ++at;
  }
  isClosed = !quoted;
  return at;
}

}  // namespace

Words wordsOf(std::string_view line) {
  Words words;
  if (line.starts_with('#')) return words;
  if (line.find('\0') != line.npos) throw Error("a line cannot hold a zero byte");
  for (std::size_t at = 0; at < line.size();) {
    if (isBlank(line[at])) {
      ++at;
      continue;
    }
    bool isClosed = true;
    const std::size_t end = wordEnd(line, at, isClosed);
    words.emplace_back(line.substr(at, end - at));
    if (!isClosed) throw Error("a quote is not closed in " + words.back());
    at = end;
  }
  return words;
}

Typed typed(std::string_view line) {
  Typed result{{}, line.size(), ""};
  for (std::size_t at = 0; at < line.size();) {
    if (isBlank(line[at])) {
      ++at;
      continue;
    }
    bool isClosed = true;
    const std::size_t end = wordEnd(line, at, isClosed);
    const std::string word(line.substr(at, end - at));
    if (end == line.size()) {
      result.begin = at;
      result.word = word;
    } else {
      result.before.push_back(word);
    }
    at = end;
  }
  return result;
}

std::pair<std::string, std::string> argumentOf(const std::string& word) {
  const std::size_t equals = findUnquoted(word, '=');
  if (equals == std::string::npos || equals == 0) {
    throw Error("an argument is given as name=value, not as " + word);
  }
  return {word.substr(0, equals), word.substr(equals + 1)};
}

}  // namespace Console
