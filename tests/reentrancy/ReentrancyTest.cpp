// Every callback, doing every action: 196 cells. Each one's outcome is the one in the table, the
// state afterwards is what the rules say, and the system goes on working.
#include <gmock/gmock.h>

#include <cstdio>
#include <map>

#include "reentrancy/Cell.h"
#include "reentrancy/Expected.h"

namespace {

using namespace Reentrancy;

class ReentrancyMatrix : public testing::TestWithParam<int> {
 protected:
  static void TearDownTestSuite() {
    std::printf("%-16s %-18s %s\n", "callback", "action", "outcome");
    std::map<std::string, int> kinds;
    for (const auto& [cell, outcome] : outcomes()) {
      std::printf("%-16s %-18s %s\n", callbackNames[cell / actionCount],
                  actionNames[cell % actionCount], outcome.c_str());
      ++kinds[outcome.substr(0, outcome.find(':'))];
    }
    std::printf("%zu of %d cells:", outcomes().size(), callbackCount * actionCount);
    for (const auto& [kind, count] : kinds) std::printf(" %d %s", count, kind.c_str());
    std::printf("\n");
  }
  static std::map<int, std::string>& outcomes() {
    static std::map<int, std::string> all;
    return all;
  }

  const Callback callback = static_cast<Callback>(GetParam() / actionCount);
  const Action action = static_cast<Action>(GetParam() % actionCount);
};

TEST_P(ReentrancyMatrix, cell) {
  const Outcome outcome = outcomeOf(callback, {action}, &action);
  outcomes()[GetParam()] = outcome.text;
  EXPECT_TRUE(outcome.acted) << "the callback was not reached";
  EXPECT_EQ(outcome.text, expectedOutcome(callback, action));
  if (outcome.fatal()) {
    const std::string condition = outcome.text.substr(outcome.text.find(' ') + 1);
    EXPECT_DEATH(runToTheEnd(callback, {action}),
                 testing::HasSubstr("assertion \"" + condition + "\" failed"));
  } else {
    EXPECT_EQ(ActingNotifiee::living, 0);
    EXPECT_EQ(ActingHam::living, 0);
    EXPECT_EQ(ActingShadow::living, 0);
    EXPECT_EQ(ActingReader::living, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Every, ReentrancyMatrix, testing::Range(0, callbackCount* actionCount),
                         [](const testing::TestParamInfo<int>& cell) {
                           return std::string(callbackNames[cell.param / actionCount]) + "_" +
                                  actionNames[cell.param % actionCount];
                         });

}  // namespace
