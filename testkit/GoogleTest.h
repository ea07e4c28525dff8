// Included in a test, or in one source of a program of tests: failures of the kit are failures of
// GoogleTest, at the line of the expectation. The test goes on, as after EXPECT_EQ.
#pragma once

#include <gtest/gtest.h>
#include <testkit/Failure.h>

namespace TestKit {

inline void failInGoogleTest(const Report& report) {
  ADD_FAILURE_AT(report.file.c_str(), report.line) << report.text;
}

inline const bool isReportingToGoogleTest = (reporterIs(failInGoogleTest), true);

}  // namespace TestKit
