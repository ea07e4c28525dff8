// Every call out does what user code may do: the layer stays sound, and goes on or says why not.
#include <Zint/Assert.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "callouts/Actions.h"
#include "callouts/Scenario.h"
#include "support/Random.h"

namespace {

using namespace CallOuts;

struct Interfered {
  std::string wrong;
  U64 calls = 0;
  bool hasActed = false;
};

std::string firstAssertion;
void recordAssertion(const Zint::AssertionFailure& failure) {
  if (firstAssertion.empty()) {
    firstAssertion = std::string(failure.condition) + " in " + failure.function;
  }
  throw std::runtime_error("an assertion");
}

// A step, a turn or a check may be refused, or meet what an action has thrown.
template <class Body>
std::string attempted(Body body) {
  try {
    body();
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (int) {
    return "42";
  }
  return "";
}

Interfered interfere(U64 call, const std::vector<const Action*>& several) {
  Interfered interfered;
  firstAssertion.clear();
  const Zint::AssertionHook before = Zint::assertionHookIs(recordAssertion);
  {
    World w;
    std::string place;
    bool isEnded = false;  // the client has broken a rule of the shadow's states
    w.calls.actionIs(call, [&] {
      for (const Action* action : several) action->perform(w);
    });
    const auto wrong = [&](const std::string& what) {
      if (interfered.wrong.empty() && !what.empty()) interfered.wrong = what;
    };
    for (const Step& step : steps()) {
      attempted([&] { step.run(w); });
      if (place.empty() && w.calls.hasActed()) {
        place = std::string(step.name) + ", " + w.calls.place();
      }
      if (const std::string rule = w.broken(); !rule.empty()) {
        wrong(std::string(step.name) + ": " + rule);
      }
      if (!firstAssertion.empty()) {
        // A region that comes too late; a state that needs a configuration, or one that has none
        // yet.
        isEnded = firstAssertion.starts_with("state_ == unconfigured_ || overrideHardware_") ||
                  firstAssertion.starts_with("auditReadRequest()");
        if (!isEnded) wrong("fatal: " + firstAssertion);
      }
      if (isEnded || !interfered.wrong.empty()) break;
    }
    interfered.calls = w.calls.made();
    interfered.hasActed = w.calls.hasActed();
    w.calls.isCounting = false;
    if (!isEnded && interfered.wrong.empty()) {
      std::string text;
      wrong(attempted([&] { text = w.patrolsByItself(); }));
      wrong(text);
      wrong(attempted([&] { w.repairSetUp(); }));
      wrong(attempted([&] { text = w.differs(false); }));
      wrong(text);
      wrong(w.broken());
      if (!firstAssertion.empty()) wrong("fatal: " + firstAssertion);
    }
    if (!interfered.wrong.empty()) interfered.wrong = place + ": " + interfered.wrong;
  }
  Zint::assertionHookIs(before);
  return interfered;
}

U64 numberOf(const char* variable, U64 otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

class Interference : public testing::TestWithParam<int> {};

// By default every 97th call, another one for each action; UMBRA_CALLOUTS_STRIDE=1: every one.
TEST_P(Interference, leavesAllSound) {
  const Action& action = actions()[static_cast<std::size_t>(GetParam())];
  const U64 stride = numberOf("UMBRA_CALLOUTS_STRIDE", 97);
  const U64 calls = interfere(0, {}).calls;
  U32 defects = 0, met = 0;
  for (U64 call = 1 + static_cast<U64>(GetParam()) * 13 % stride; call <= calls; call += stride) {
    const Interfered result = interfere(call, {&action});
    met += result.hasActed;
    if (result.wrong.empty()) continue;
    ADD_FAILURE() << action.name << " at call " << call << " (" << result.wrong << ")";
    if (++defects == 4) break;
  }
  EXPECT_GT(met, 0u);
}

INSTANTIATE_TEST_SUITE_P(Every, Interference, testing::Range(0, static_cast<int>(actions().size())),
                         [](const testing::TestParamInfo<int>& action) {
                           std::string name;
                           for (const char* c =
                                    actions()[static_cast<std::size_t>(action.param)].name;
                                *c != '\0'; ++c) {
                             name += std::isalnum(static_cast<unsigned char>(*c)) != 0 ? *c : '_';
                           }
                           return name;
                         });

// One cell, for a closer look: UMBRA_CALLOUTS_CELL="<call> <action> <action>...", by number.
TEST(InterferenceCell, leavesAllSound) {
  const char* text = std::getenv("UMBRA_CALLOUTS_CELL");
  if (text == nullptr) GTEST_SKIP() << "no cell is asked for";
  std::istringstream cell(text);
  U64 call = 0;
  std::vector<const Action*> several;
  cell >> call;
  for (std::size_t action = 0; cell >> action;) several.push_back(&actions()[action]);
  EXPECT_EQ(interfere(call, several).wrong, "");
}

// Two actions in one call, at random.
TEST(InterferencePairs, leaveAllSound) {
  const U64 calls = interfere(0, {}).calls;
  const U64 pairs = numberOf("UMBRA_CALLOUTS_PAIRS", 300);
  const U64 seed = numberOf("UMBRA_CALLOUTS_SEED", 1);
  U32 defects = 0;
  for (U64 i = 0; i < pairs; ++i) {
    Support::Random random(seed * 1000003 + i);
    const auto any = [&] { return &actions()[random.below(static_cast<U32>(actions().size()))]; };
    const Action *first = any(), *second = any();
    const U64 call = 1 + random.below(static_cast<U32>(calls));
    const Interfered result = interfere(call, {first, second});
    if (result.wrong.empty()) continue;
    ADD_FAILURE() << first->name << ", " << second->name << " at call " << call << " ("
                  << result.wrong << "), UMBRA_CALLOUTS_CELL='" << call << " "
                  << first - actions().data() << " " << second - actions().data() << "'";
    if (++defects == 12) break;
  }
}

}  // namespace
