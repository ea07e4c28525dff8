#include <demo/common/Options.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::HasSubstr;

Demo::Options parsed(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "umbra-driver");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return Demo::parseOptions(static_cast<int>(arguments.size()), pointers.data());
}

std::string refusal(std::vector<std::string> arguments) {
  try {
    parsed(std::move(arguments));
  } catch (const Demo::UsageError& wrong) {
    return wrong.what();
  }
  return "no error";
}

TEST(OptionsTest, defaults) {
  const Demo::Options options = parsed({});
  EXPECT_EQ(options.seconds, 10);
  EXPECT_EQ(options.flipsPerSecond, 50u);
  EXPECT_EQ(options.seed, 1u);
  EXPECT_EQ(options.auditInterval, 0.5);
  EXPECT_FALSE(options.traceLevel);
  EXPECT_FALSE(options.freezeAudit);
  EXPECT_FALSE(options.story);
  EXPECT_FALSE(options.help);
}

TEST(OptionsTest, everyOptionIsRead) {
  const Demo::Options options =
      parsed({"--seconds", "2.5", "--flips-per-second=7", "--seed", "4294967295",
              "--audit-interval", "0", "--trace", "9", "--trace-file", "a b", "--freeze-audit"});
  EXPECT_EQ(options.seconds, 2.5);
  EXPECT_EQ(options.flipsPerSecond, 7u);
  EXPECT_EQ(options.seed, 4294967295u);
  EXPECT_EQ(options.auditInterval, 0.0);
  EXPECT_EQ(options.traceLevel, 9u);
  EXPECT_EQ(options.traceFile, "a b");
  EXPECT_TRUE(options.freezeAudit);
}

TEST(OptionsTest, stayGoesOnWithFewErrorsUnlessOtherOptionsSaySo) {
  const Demo::Options options = parsed({"--stay", "--publish", "x", "--name", "lamp"});
  EXPECT_TRUE(options.stay);
  EXPECT_GT(options.seconds, 86400);
  EXPECT_EQ(options.flipsPerSecond, 2u);
  EXPECT_EQ(options.auditInterval, 2.0);
  EXPECT_EQ(options.publishes, "x");
  EXPECT_EQ(options.name, "lamp");
  EXPECT_EQ(parsed({"--flips-per-second", "9", "--stay"}).flipsPerSecond, 9u);
  EXPECT_EQ(parsed({"--stay", "--audit-interval", "1"}).auditInterval, 1.0);
  EXPECT_EQ(parsed({"--stay", "--seconds", "3"}).seconds, 3);
  EXPECT_EQ(refusal({"--stay", "--story"}), "a story has an end: not with --stay");
  EXPECT_EQ(refusal({"--publish", ""}), "--publish: the directory is empty");
}

TEST(OptionsTest, aStoryLastsLonger) {
  EXPECT_EQ(parsed({"--story"}).seconds, 15);
  EXPECT_TRUE(parsed({"--story"}).story);
  EXPECT_EQ(parsed({"--seconds", "2", "--story"}).seconds, 2);
  EXPECT_EQ(parsed({"--story", "--seconds", "10"}).seconds, 10);
}

TEST(OptionsTest, aStoryNeedsTheAudit) {
  EXPECT_EQ(refusal({"--freeze-audit", "--story"}),
            "--story needs the audit: not with --freeze-audit");
}

TEST(OptionsTest, helpComesBeforeWhateverIsWrongBehindIt) {
  EXPECT_TRUE(parsed({"--help", "--bogus"}).help);
}

TEST(OptionsTest, helpNamesEveryOption) {
  for (const char* option :
       {"--seconds", "--flips-per-second", "--seed", "--audit-interval", "--trace LEVEL",
        "--trace-file", "--freeze-audit", "--story", "--help"}) {
    EXPECT_THAT(Demo::optionsHelp, HasSubstr(option));
  }
}

TEST(OptionsTest, unknownOptionIsNamed) {
  EXPECT_THAT(refusal({"--bogus"}), HasSubstr("'--bogus'"));
  EXPECT_THAT(refusal({"-x"}), HasSubstr("'-x'"));
  EXPECT_THAT(refusal({"--help=3"}), HasSubstr("'--help=3'"));
}

TEST(OptionsTest, ambiguousAbbreviationIsNamed) {
  EXPECT_THAT(refusal({"--se", "3"}), HasSubstr("'--se'"));
}

TEST(OptionsTest, missingValueIsNamed) {
  EXPECT_EQ(refusal({"--seconds"}), "option '--seconds' needs a value");
}

TEST(OptionsTest, textThatIsNoNumberIsNamed) {
  EXPECT_EQ(refusal({"--seconds", "1s"}), "--seconds: '1s' is no number");
  EXPECT_THAT(refusal({"--seed", "-1"}), HasSubstr("--seed: '-1' is no number"));
  EXPECT_THAT(refusal({"--flips-per-second", ""}), HasSubstr("'' is no number"));
  EXPECT_THAT(refusal({"--trace", "all"}), HasSubstr("'all' is no number"));
}

TEST(OptionsTest, numberOutOfBoundsNamesThem) {
  EXPECT_EQ(refusal({"--trace", "10"}), "--trace: 10 is not between 0 and 9");
  EXPECT_EQ(refusal({"--seed", "4294967296"}),
            "--seed: 4294967296 is not between 0 and 4294967295");
  EXPECT_EQ(refusal({"--audit-interval", "-0.5"}),
            "--audit-interval: -0.5 is not between 0 and 86400");
  EXPECT_THAT(refusal({"--seconds", "nan"}), HasSubstr("between 0 and 86400"));
  EXPECT_THAT(refusal({"--seconds", "inf"}), HasSubstr("between 0 and 86400"));
  EXPECT_THAT(refusal({"--seconds", "1e999"}), HasSubstr("between 0 and 86400"));
}

TEST(OptionsTest, argumentThatBelongsToNoOptionIsNamed) {
  EXPECT_EQ(refusal({"5"}), "unexpected argument '5'");
  EXPECT_EQ(refusal({"--seed", "2", "5"}), "unexpected argument '5'");
}

TEST(OptionsTest, traceFileNeedsALevel) {
  EXPECT_EQ(refusal({"--trace-file", "x"}), "--trace-file needs --trace LEVEL");
  EXPECT_EQ(refusal({"--trace", "0", "--trace-file", ""}), "--trace-file: the name is empty");
}

}  // namespace
