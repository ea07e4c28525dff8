#include <testkit/Failure.h>

#include <cstdlib>
#include <iostream>
#include <utility>

namespace TestKit {
namespace {

Reporter& currentReporter() {
  static Reporter reporter = throwFailure;
  return reporter;
}

}  // namespace

std::string Report::fullText() const {
  return file.empty() ? text : file + ":" + std::to_string(line) + ": " + text;
}

void throwFailure(const Report& report) {
  if (!report.isUnwinding) throw Failure(report.fullText());
  std::cerr << report.fullText() << "\n";
}

void printAndAbort(const Report& report) {
  std::cerr << report.fullText() << std::endl;
  std::abort();
}

Reporter reporterIs(Reporter reporter) {
  return std::exchange(currentReporter(), reporter ? std::move(reporter) : throwFailure);
}

void report(const Report& report) {
  const Reporter reporter = currentReporter();  // it may set another one
  if (!report.isUnwinding) return reporter(report);
  try {
    reporter(report);
  } catch (...) {  // NOLINT(bugprone-empty-catch): the exception that is under way is the news
  }
}

}  // namespace TestKit
