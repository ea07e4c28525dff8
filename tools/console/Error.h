// Why a line cannot be run, for the person at the console.
#pragma once

#include <stdexcept>

namespace Console {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Console
