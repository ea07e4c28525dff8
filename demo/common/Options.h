// The command line of the driver.
#pragma once

#include <Zint/Types.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace Demo {

struct Options {
  double seconds = 10;  // 15 for a story
  U32 flipsPerSecond = 50;
  U32 seed = 1;
  double auditInterval = 0.5;
  std::optional<U32> traceLevel;
  std::string traceFile;  // empty for standard error
  bool freezeAudit = false;
  bool story = false;
  bool stay = false;          // until it is interrupted
  std::string publishes;      // directory; empty: nothing is seen from outside
  std::string name = "demo";  // under which it is seen
  bool help = false;
};

// A wrong command line; the message is for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Raises UsageError.
Options parseOptions(int argc, char* const argv[]);
extern const char* const optionsHelp;

}  // namespace Demo
