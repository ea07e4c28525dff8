// Every sequence of operations on a small world, library against model.
//
//   UMBRA_SCOPES_DEPTH=5 UMBRA_SCOPES_MERGED_DEPTH=6 scopes-tests --gtest_filter='*Scopes*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "scopes/Explorer.h"

namespace Scopes {
namespace {

U32 number(const char* variable, U32 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<U32>(std::strtoul(text, nullptr, 0));
}

class Scopes : public testing::TestWithParam<U32> {
 protected:
  void explore(U32 depth, Explorer::Merge merge) {
    const Start& start = starts()[GetParam()];
    Explorer explorer(start);
    const std::optional<Difference> difference = explorer.explore(depth, merge);
    const Figures& figures = explorer.figures();
    std::cout << "scopes: " << start.name << ", depth " << depth
              << (merge == Explorer::Merge::states ? " with equal states merged: " : ": ")
              << figures.sequences << " sequences, " << figures.endings
              << " ended by an assertion, " << figures.states << " distinct states, "
              << figures.letters << " operations\n";
    ASSERT_FALSE(difference) << start.name << ": " << text(start.prefix) << " | "
                             << text(difference->word) << "\n"
                             << difference->what;
  }
};

TEST_P(Scopes, everySequenceAgreesWithTheModel) {
  explore(number("UMBRA_SCOPES_DEPTH", 3), Explorer::Merge::none);
}
TEST_P(Scopes, everyStateAgreesWithTheModel) {
  explore(number("UMBRA_SCOPES_MERGED_DEPTH", 3), Explorer::Merge::states);
}

INSTANTIATE_TEST_SUITE_P(Starts, Scopes, testing::Range(0u, static_cast<U32>(starts().size())),
                         [](const testing::TestParamInfo<U32>& start) {
                           return std::string(starts()[start.param].name);
                         });

}  // namespace
}  // namespace Scopes
