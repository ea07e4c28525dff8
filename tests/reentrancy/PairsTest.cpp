// Two actions in one callback. By default those pairs that take something away first; with
// UMBRA_REENTRANCY_PAIRS=1 in the environment all pairs and all triples, in every callback.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "reentrancy/Cell.h"

namespace {

using namespace Reentrancy;

bool everyPair() { return std::getenv("UMBRA_REENTRANCY_PAIRS") != nullptr; }

bool takesAway(Action action) {
  return action == Action::DestroySelf || action == Action::DestroyNotifier ||
         action == Action::DestroyOwner || action == Action::DeleteAll;
}

// The ends that these actions can bring about, all of them the client's doing.
bool isKnownEnd(const std::string& outcome) {
  static const std::set<std::string> known = {
      // Those of the table.
      "fatal: state_ == unconfigured_ || overrideHardware_",
      "fatal: (currentChipMemory_->mode() != ChipMemory::override())",
      "fatal: currentChipMemory_",
      "fatal: auditReadRequest()",
      // A write to entry 5 of a region that was cut down to 4.
      "fatal: entry + numEntries <= cm->entries()",
      // A region that was cut down to what had been read of it.
      "fatal: readChunkSizeInEntries",
      // A region that the client put into the audit's request, before it set configured.
      "fatal: auditReadRequest()->chipMemorys() == 0",
  };
  return known.contains(outcome);
}

class ReentrancyPairs : public testing::TestWithParam<int> {
 protected:
  void expectWorking(const Actions& several) {
    std::string text = name(callback);
    for (Action action : several) text += " " + name(action);
    SCOPED_TRACE(text);
    const Outcome outcome = outcomeOf(callback, several, nullptr);
    ++outcomes[outcome.text];
    EXPECT_TRUE(outcome.acted);
    if (outcome.fatal()) {
      EXPECT_TRUE(isKnownEnd(outcome.text)) << outcome.text;
    } else {
      EXPECT_EQ(
          ActingNotifiee::living + ActingHam::living + ActingShadow::living + ActingReader::living,
          0);
    }
  }
  void TearDown() override {
    for (const auto& [outcome, count] : outcomes) std::printf("%6d %s\n", count, outcome.c_str());
  }

  const Callback callback = static_cast<Callback>(GetParam());
  std::map<std::string, int> outcomes;
};

TEST_P(ReentrancyPairs, leaveTheSystemWorking) {
  for (int i = 0; i < actionCount; ++i) {
    const auto first = static_cast<Action>(i);
    if (!everyPair() && !takesAway(first)) continue;
    for (int j = 0; j < actionCount; ++j) {
      const auto second = static_cast<Action>(j);
      expectWorking({first, second});
      for (int k = 0; k < actionCount && everyPair(); ++k) {
        expectWorking({first, second, static_cast<Action>(k)});
      }
    }
    if (everyPair()) {
      std::printf("%s: %d of %d first actions\n", name(callback).c_str(), i + 1, actionCount);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Every, ReentrancyPairs, testing::Range(0, callbackCount),
                         [](const testing::TestParamInfo<int>& cell) {
                           return std::string(callbackNames[cell.param]);
                         });

}  // namespace
