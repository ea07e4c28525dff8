// The two programs as a user runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Outcome {
  int status;  // exit status, -1 when it did not exit
  std::string output;
  std::string errors;
};

Outcome outcome(const std::string& arguments) {
  const std::string errorFile = testing::TempDir() + "driver-" +
                                testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string command =
      std::string("'") + UMBRA_DRIVER + "' " + arguments + " 2>'" + errorFile + "'";
  Outcome outcome{-1, "", ""};
  std::FILE* pipe = popen(command.c_str(), "re");
  if (pipe == nullptr) return outcome;
  std::array<char, 4096> part;
  while (const std::size_t size = std::fread(part.data(), 1, part.size(), pipe)) {
    outcome.output.append(part.data(), size);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  std::ifstream errors(errorFile);
  outcome.errors.assign(std::istreambuf_iterator<char>(errors), {});
  std::filesystem::remove(errorFile);
  return outcome;
}

TEST(DriverProgramTest, everyErrorIsSettled_exit0) {
  const Outcome run = outcome("--seconds 0.5 --flips-per-second 2000 --audit-interval 0.1");
  EXPECT_EQ(run.status, 0) << run.output << run.errors;
  EXPECT_THAT(run.output, AllOf(HasSubstr("OK: every error is accounted for and none remains"),
                                Not(HasSubstr("entries repaired 0,"))));
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST(DriverProgramTest, story_eachEventIsToldAndAccountedFor_exit0) {
  const Outcome run = outcome("--story --seconds 0.5 --flips-per-second 500");
  EXPECT_EQ(run.status, 0) << run.output << run.errors;
  EXPECT_THAT(
      run.output,
      AllOf(HasSubstr("The patrol is suspended: switch is absent: its sentinel register is "
                      "wrong."),
            HasSubstr("Repaired while it was absent: 0 entries."), HasSubstr("1 finding, a replay"),
            HasSubstr("The alarm often/vlan/100 is raised."),
            HasSubstr("OK: every error is accounted for and none remains")));
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST(DriverProgramTest, withoutATerminalNothingIsRedrawn) {
  const Outcome run = outcome("--seconds 0.1");
  EXPECT_THAT(run.output,
              AllOf(HasSubstr("s  errors and traffic: passes"), Not(HasSubstr("\x1b"))));
}

TEST(DriverProgramTest, frozenAudit_damageStays_exit1) {
  const Outcome run = outcome("--seconds 0.5 --flips-per-second 2000 --freeze-audit");
  EXPECT_EQ(run.status, 1) << run.output << run.errors;
  EXPECT_THAT(run.output,
              AllOf(HasSubstr("entries repaired 0,"), HasSubstr("errors remain on the chip"),
                    HasSubstr("registers differ between chip and shadow"), Not(HasSubstr("OK:"))));
}

TEST(DriverProgramTest, noErrors_exit0) {
  const Outcome run = outcome("--seconds 0.2 --flips-per-second 0");
  EXPECT_EQ(run.status, 0) << run.output << run.errors;
  EXPECT_THAT(run.output, HasSubstr("differences found 0, entries repaired 0,"));
}

TEST(DriverProgramTest, help_exit0) {
  const Outcome run = outcome("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("usage: umbra-driver"));
}

TEST(DriverProgramTest, wrongOption_oneLineAndExit2) {
  const Outcome run = outcome("--bogus");
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_EQ(run.errors,
            "umbra-driver: unknown, ambiguous or wrongly used option '--bogus' (see --help)\n");
}

TEST(DriverProgramTest, trace_goesToStandardErrorOrToTheFile) {
  const Outcome run = outcome("--seconds 0.1 --trace 0");
  EXPECT_THAT(run.errors, HasSubstr("HardwareShadow::handleState( auditing )"));
  EXPECT_THAT(run.output, Not(HasSubstr("handleState")));

  const std::string file = testing::TempDir() + "driver-trace";
  const Outcome toFile = outcome("--seconds 0.1 --trace 9 --trace-file '" + file + "'");
  EXPECT_EQ(toFile.status, 0) << toFile.errors;
  EXPECT_THAT(toFile.errors, IsEmpty());
  std::ifstream in(file);
  const std::string trace(std::istreambuf_iterator<char>(in), {});
  EXPECT_THAT(trace, HasSubstr("HardwareShadow::shadowWrite"));
  std::filesystem::remove(file);
}

TEST(DriverProgramTest, traceFileThatCannotBeOpened_isNamed_exit1) {
  const Outcome run = outcome("--trace 0 --trace-file /nowhere/x");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("/nowhere/x"));
}

}  // namespace
