// The program as a whole, without its line editor: scripts, options, exit status. The chip is a
// process and time is real, so what is waited for is the end of audit passes.
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

struct Outcome {
  int status;  // exit status, -1 when it did not exit
  std::string output;
  std::string errors;
};

// `arguments` may go on with the rest of a shell's line.
Outcome outcome(const std::string& arguments, const std::string& script = "",
                const std::string& shell = "sh") {
  const std::string stem = testing::TempDir() + "console-" +
                           testing::UnitTest::GetInstance()->current_test_info()->name();
  std::ofstream(stem + ".in") << script;
  std::ofstream(stem + ".sh") << "exec <'" << stem << ".in' 2>'" << stem << ".err'\n'"
                              << UMBRA_CONSOLE_PLAIN << "' " << arguments << "\n";
  const std::string command = shell + " '" + stem + ".sh'";
  Outcome outcome{-1, "", ""};
  std::FILE* pipe = popen(command.c_str(), "re");
  if (pipe == nullptr) return outcome;
  std::array<char, 4096> part;
  while (const std::size_t size = std::fread(part.data(), 1, part.size(), pipe)) {
    outcome.output.append(part.data(), size);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  std::ifstream errors(stem + ".err");
  outcome.errors.assign(std::istreambuf_iterator<char>(errors), {});
  std::filesystem::remove(stem + ".in");
  std::filesystem::remove(stem + ".sh");
  std::filesystem::remove(stem + ".err");
  return outcome;
}

TEST(ConsoleProgramTest, aScriptIsCarriedOut_exit0) {
  const Outcome run = outcome("",
                              "set /shadow/minIntervalBetweenAudits 0\n"
                              "poke 0xb0000 7\nwait 2 passes\nget "
                              "/shadow/chipMemory/qos/registersFixed\nquit\nnever reached\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "1\n");
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST(ConsoleProgramTest, errorsGoToStandardErrorWithTheirLine_exit1) {
  const Outcome run = outcome("", "get /shadow/sate\nget /shadow/state\nwatsh x");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "'auditing'\n");
  EXPECT_EQ(run.errors,
            "line 1: /shadow (Driver::AuditedShadow) has no member sate; did you mean "
            "'state'?\n"
            "line 3: unknown command watsh; did you mean 'watch'?\n");
}

TEST(ConsoleProgramTest, aReaderThatEndsEarlyEndsItQuietly_exit0) {
  std::string script;
  for (int i = 0; i < 2000; ++i) script += "ls /shadow\n";
  const Outcome run = outcome("| head -n 1; echo ${PIPESTATUS[0]} #", script, "bash");
  EXPECT_THAT(run.output, testing::MatchesRegex("zintFwkActivity/ [^\n]+\n0\n"));
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST(ConsoleProgramTest, aCommandsOutputCanBeFiltered) {
  const Outcome run = outcome("",
                              "ls /shadow/chipMemory | grep -c 0x\n"
                              "ls /shadow | head -n 1 | cut -c 1-4\n"
                              "show /shadow/chipMemory/mac/shadow 0..65535 | head -n 1\n"
                              "types | no-such-program 2>/dev/null\n"
                              "gte | cat\n"
                              "types |\nquit\n");
  EXPECT_EQ(run.output, "6\nzint\n65536 entries of 8 bytes, 524288 bytes\n");
  EXPECT_EQ(run.errors,
            "line 4: cannot run no-such-program 2>/dev/null \n"
            "line 5: unknown command gte; did you mean 'get'?\n"
            "line 6: usage: COMMAND | SHELL COMMAND\n");
}

TEST(ConsoleProgramTest, theChipDamagesItselfWhenAskedTo) {
  const Outcome run = outcome("--flips-per-second 2000 --seed 3 --traffic",
                              "set /shadow/minIntervalBetweenAudits 0\nwait 3 passes\n"
                              "get /shadow/chipMemory/vlan/registersFixed\n");
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_GT(std::stoi(run.output), 0);
}

TEST(ConsoleProgramTest, help_saysThatThisBuildReadsPlainLines) {
  const Outcome run = outcome("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, AllOf(HasSubstr("--flips-per-second"),
                                HasSubstr("This build reads plain lines: editing, history and "
                                          "completion are in the 64-bit build.\n")));
}

TEST(ConsoleProgramTest, wrongOptionsAreRefused_exit2) {
  const auto refusal = [](const char* arguments) {
    const Outcome run = outcome(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_THAT(run.output, IsEmpty());
    return run.errors;
  };
  EXPECT_EQ(refusal("--speed 4"),
            "umbra-console: unknown or wrongly used option '--speed' (see --help)\n");
  EXPECT_EQ(refusal("--seed"),
            "umbra-console: unknown or wrongly used option '--seed' (see --help)\n");
  EXPECT_EQ(refusal("--seed x"),
            "umbra-console: --seed: 'x' is no number from 0 to 4294967295 (see --help)\n");
  EXPECT_EQ(refusal("--flips-per-second 100001"),
            "umbra-console: --flips-per-second: '100001' is no number from 0 to 100000 (see "
            "--help)\n");
  EXPECT_EQ(refusal("session.txt"),
            "umbra-console: unexpected argument 'session.txt': a script is read from standard "
            "input (see --help)\n");
}

}  // namespace
