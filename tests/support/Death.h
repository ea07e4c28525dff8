// Fatal assertions, observed from outside the process.
//
// With UMBRA_ASSERTIONS=<file> in the environment, every report that was demanded with its full
// text and seen is appended to that file: tools/check/assertions reads there what the tests prove.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>

namespace Support {

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

// Whether a report names the function. Texts are those of g++, where a template's arguments follow
// in brackets; other compilers write the parameters differently, so there only the name counts.
inline bool isFunction(const std::string& reported, const std::string& expected) {
#ifdef __clang__
  // What stands before the last list of parameters.
  const auto name = [](const std::string& text) {
    std::size_t end = text.rfind(')', text.find(" ["));
    for (int depth = 0; end != std::string::npos && end > 0; --end) {
      if (text[end] == ')') ++depth;
      if (text[end] == '(' && --depth == 0) break;
    }
    const std::size_t begin = text.find_last_of(": ", end);
    return text.substr(begin + 1, end - begin - 1);
  };
  return name(reported) == name(expected);
#else
  return reported == expected || reported.starts_with(expected + " [with ");
#endif
}

// Matches what a process that a fatal assertion ended left on its standard error.
class Assertion {
 public:
  using is_gtest_matcher = void;

  // Line 0 stands for any line. `detail` is the name of the region; "" for any or none.
  Assertion(std::string source, int line, std::string function, std::string condition,
            std::string detail = "")
      : source_(std::move(source)),
        line_(line == 0 ? "" : std::to_string(line)),
        function_(std::move(function)),
        condition_(std::move(condition)),
        detail_(std::move(detail)) {}

  bool MatchAndExplain(const std::string& output, std::ostream*) const {
    std::istringstream lines(output);
    for (std::string text; std::getline(lines, text);) {
      if (matches(text)) return true;
    }
    return false;
  }
  void DescribeTo(std::ostream* out) const {
    *out << source_ << ":" << (line_.empty() ? "any line" : line_) << ": " << function_
         << ": assertion \"" << condition_ << "\" failed" << (detail_.empty() ? "" : ": ")
         << detail_;
  }
  void DescribeNegationTo(std::ostream* out) const { DescribeTo(&(*out << "anything but ")); }

 private:
  // "<source>:<line>: <function>: assertion "<condition>" failed[: <detail>]"
  bool matches(const std::string& text) const {
    const std::string head = source_ + ":", tail = ": assertion \"" + condition_ + "\" failed";
    if (!text.starts_with(head)) return false;
    const std::size_t lineEnd = text.find(": ", head.size());
    const std::size_t functionEnd = text.find(tail, head.size());
    if (lineEnd == std::string::npos || functionEnd == std::string::npos) return false;
    const std::string line = text.substr(head.size(), lineEnd - head.size());
    const std::string function = text.substr(lineEnd + 2, functionEnd - lineEnd - 2);
    const std::string rest = text.substr(functionEnd + tail.size());
    if (!line_.empty() && line != line_) return false;
    if (!isFunction(function, function_)) return false;
    if (!detail_.empty() && rest != ": " + detail_) return false;
    recorded(line, function);
    return true;
  }

  void recorded(const std::string& line, const std::string& function) const {
    const char* path = std::getenv("UMBRA_ASSERTIONS");
    if (path == nullptr) return;
    std::FILE* file = std::fopen(path, "a");
    if (file == nullptr) return;
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    (void)std::fprintf(file, "%s\t%s\t%s\t%s\t%s\t%s.%s\n", source_.c_str(),
                       line_.empty() ? "any" : "quoted", line.c_str(), function.c_str(),
                       condition_.c_str(), test->test_suite_name(), test->name());
    (void)std::fclose(file);
  }

  std::string source_, line_, function_, condition_, detail_;
};

}  // namespace Support

// The statement ends the process with this assertion of the library's classes.
#define EXPECT_ASSERTION(statement, line, function, condition) \
  EXPECT_DEATH(statement, ::Support::Assertion("Hardware/Umbra", line, function, condition))

// The same for one of the library's own assertions, which names the region.
#define EXPECT_ASSERTION_OF(region, statement, function, condition) \
  EXPECT_DEATH(statement, ::Support::Assertion("Hardware/Umbra", 0, function, condition, region))

// The same where only the region matters.
#define EXPECT_REGION_ASSERTION(statement, region) \
  EXPECT_DEATH(statement, "Hardware/Umbra:[0-9]+: .* failed: " region "\n")
