// What a line can go on with at the cursor.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Console {

class Session;

struct Completion {
  std::size_t begin;                    // of what the candidates replace; it ends at the cursor
  std::vector<std::string> candidates;  // in order; one that ends a word ends with a blank

  // What all candidates begin with.
  std::string common() const;
};

// `line` is the text before the cursor. Nothing changes, and nothing is raised.
Completion completion(const Session& session, std::string_view line);

}  // namespace Console
