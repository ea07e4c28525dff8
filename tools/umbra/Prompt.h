// Lines that a person types or a script holds, while other things happen.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Tool {

class Prompt {
 public:
  struct Completion {
    std::size_t begin = 0;
    std::vector<std::string> words;
  };
  // `descriptor` is watched while a line is awaited, and `ready` is called when it can be read.
  struct Around {
    int descriptor = -1;
    std::function<void()> ready;
    std::function<Completion(const std::string&)> complete;
  };

  virtual ~Prompt() = default;
  // False at the end.
  virtual bool next(const std::string& prompt, std::string& line) = 0;
  // Above the line that is being typed.
  virtual void print(const std::string& text) = 0;
};

// With editing, history and completion, where the program was built with a line editor and standard
// input is a terminal.
std::unique_ptr<Prompt> makePrompt(Prompt::Around around);

}  // namespace Tool
