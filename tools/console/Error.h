// What a person at the console is told when a line cannot be carried out.
#pragma once

#include <stdexcept>

namespace Console {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Console
