// Fatal assertions, observed from outside the process.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace Fakes {

// What a fatal assertion reports, as a regular expression. Line 0 stands for any line.
inline std::string assertionPattern(const std::string& source, int line,
                                    const std::string& function, const std::string& condition) {
  const auto literal = [](const std::string& text) {
    std::string pattern;
    for (char c : text) {
      if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) pattern += '\\';
      pattern += c;
    }
    return pattern;
  };
  return literal(source) + ":" + (line == 0 ? "[0-9]+" : std::to_string(line)) + ": " +
         literal(function) + ": assertion \"" + literal(condition) + "\" failed";
}

}  // namespace Fakes

// The statement ends the process with this assertion of the library's classes.
#define EXPECT_ASSERTION(statement, line, function, condition) \
  EXPECT_DEATH(statement, ::Fakes::assertionPattern("Hardware/Umbra", line, function, condition))

// The statement ends the process with one of the library's own assertions, which names the region.
#define EXPECT_REGION_ASSERTION(statement, region) \
  EXPECT_DEATH(statement, "Hardware/Umbra:[0-9]+: .* failed: " region "\n")
