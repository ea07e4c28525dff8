// A driver's control socket, as the server uses it: JSON lines (docs/formats.md).
#pragma once

#include <string>

#include "tools/umbra/serve/Json.h"

namespace Serve {

// One connection. Whatever goes wrong, or takes longer than two seconds, is a std::runtime_error
// that says so.
class Control {
 public:
  explicit Control(const std::string& path);
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;
  ~Control();

  // The answer to one request, with the "items" of all its parts; an answer that is an error is a
  // std::runtime_error with its text.
  Json ask(const Json& request);

 private:
  std::string line();

  std::string path_;
  int socket_ = -1;
  std::string pending_;
};

// What the driver expects in entries of a region, and what its chip held when it was last read: an
// array of {"entry", "address", "expected", "actual", "known", "policy"}, bytes as "12 34".
Json entriesOf(const std::string& socket, const std::string& shadow, const std::string& region,
               U32 first, U32 count);

// The driver's alarm of that name.
void acknowledge(const std::string& socket, const std::string& alarm);

}  // namespace Serve
