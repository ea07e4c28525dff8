// How the kit tells that an expectation failed. Without a test framework a failure is thrown as
// TestKit::Failure; #include <testkit/GoogleTest.h> makes it a failure of GoogleTest at the line of
// the expectation. Another framework gets a reporter of its own:
//
//   TestKit::reporterIs([](const TestKit::Report& r) { FAIL_CHECK(r.text); });
#pragma once

#include <Zint/Types.h>

#include <exception>
#include <functional>
#include <string>

namespace TestKit {

struct Report {
  std::string text;  // several lines
  std::string file;  // of the expectation
  int line = 0;
  // An exception is under way: it is what the test is to show. A reporter must not throw now; what
  // it throws nevertheless is dropped.
  bool isUnwinding = false;

  // "FILE:LINE: text"
  std::string fullText() const;
};

class Failure : public std::exception {
 public:
  explicit Failure(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

using Reporter = std::function<void(const Report&)>;

// Throws Failure; while an exception is under way, prints to standard error instead. The default.
void throwFailure(const Report& report);
// For programs without exceptions handlers: prints, and ends the process.
[[noreturn]] void printAndAbort(const Report& report);

// Of the whole process. Returns the one that was in place.
Reporter reporterIs(Reporter reporter);

void report(const Report& report);

}  // namespace TestKit
