// The board against a model that keeps every finding and looks at all of them each time.
#include <support/Random.h>

#include <algorithm>
#include <map>

#include "AlarmBoardTest.h"

namespace {

using Driver::AlarmRule;

// One rule and subject.
class ModelAlarm {
 public:
  explicit ModelAlarm(const AlarmRule& rule) : rule_(rule) {}

  // What is due strictly before `time`.
  void clearDue(double time) {
    if (!isActive || isMetInPass()) return;
    if (metUntil() + rule_.clearAfter() < time) {
      isActive = false;
      clearedTime = metUntil() + rule_.clearAfter();
    }
  }
  void findingsAre(U32 count, double time, bool isLost) {
    times_.insert(times_.end(), count, time);
    inPass_ += count;
    if (isLost) lost_.push_back(time);
    if (!isActive && (isMetInPass() || metUntil() >= time)) {
      isActive = true;
      ++raises;
    }
  }
  void passBegins(double time) {
    if (isMetInPass()) endsOfPasses_.push_back(time);
    inPass_ = 0;
  }
  U64 findings() const { return times_.size(); }

  bool isActive = false;
  double clearedTime = Zint::never;
  U32 raises = 0;

 private:
  bool isMetInPass() const {
    return rule_.scope() == AlarmRule::manyAtOnce_ && inPass_ >= rule_.count();
  }
  double metUntil() const {
    double until = -Zint::never;
    for (std::size_t i = 0; i + rule_.count() <= times_.size(); ++i) {
      if (times_[i + rule_.count() - 1] - times_[i] <= rule_.within())
        until = std::max(until, times_[i] + rule_.within());
    }
    if (rule_.scope() == AlarmRule::manyAtOnce_) {
      for (double time : lost_) until = std::max(until, time + rule_.within());
      for (double time : endsOfPasses_) until = std::max(until, time);
    }
    return until;
  }

  const AlarmRule& rule_;
  std::vector<double> times_;
  std::vector<double> lost_;
  std::vector<double> endsOfPasses_;
  U32 inPass_ = 0;
};

class AlarmModel : public Support::AlarmBoardTest {
 protected:
  // Of a grid of quarters, so that findings meet the edges of windows.
  static double quarters(Support::Random& random, U32 most) { return random.below(most) * 0.25; }

  void makeRules(Support::Random& random) {
    constexpr AlarmRule::Scope scopes[] = {AlarmRule::entry_, AlarmRule::region_, AlarmRule::chip_,
                                           AlarmRule::shadow_, AlarmRule::manyAtOnce_};
    U32 number = 0;
    for (const AlarmRule::Scope scope : scopes) {
      for (U32 i = random.below(3); i > 0; --i) {
        const U32 count = random.between(1, 6);
        const double within = quarters(random, 24);
        const double clearAfter = quarters(random, 12);
        rules.push_back(
            rule(("r" + std::to_string(++number)).c_str(), scope, count, within, clearAfter));
      }
    }
  }
  static std::string nameOf(const AlarmRule& rule, const ChipMemory* region, U32 entry,
                            const std::string& chip) {
    const std::string name = rule.name().bytes();
    switch (rule.scope()) {
      case AlarmRule::entry_:
        return region == nullptr
                   ? ""
                   : name + "/" + region->name().bytes() + "/" + std::to_string(entry);
      case AlarmRule::region_:
        return region == nullptr ? "" : name + "/" + region->name().bytes();
      case AlarmRule::chip_:
        return name + "/" + chip;
      default:
        return name;
    }
  }
  void clearModel(double time) {
    for (auto& [name, alarm] : model) alarm.clearDue(time);
  }
  void addToModel(const ChipMemory* region, U32 entry, const std::string& chip, U32 count,
                  double time, bool isLost) {
    for (const AlarmRule::Ptr& rule : rules) {
      const std::string name = nameOf(*rule, region, entry, chip);
      if (name.empty()) continue;
      const bool many = rule->scope() == AlarmRule::manyAtOnce_;
      model.try_emplace(name, *rule).first->second.findingsAre(count, time, isLost && many);
    }
  }
  void expectModel(const std::string& when) {
    U32 active = 0, raised = 0;
    for (const auto& [name, expected] : model) {
      const Alarm::Ptr alarm = board->alarm(name.c_str());
      ASSERT_EQ(alarm != nullptr, expected.raises != 0) << when << " " << name;
      if (alarm == nullptr) continue;
      ++raised;
      active += expected.isActive ? 1 : 0;
      ASSERT_EQ(alarm->isActive(), expected.isActive) << when << " " << name;
      ASSERT_EQ(alarm->raises(), expected.raises) << when << " " << name;
      ASSERT_EQ(alarm->findings(), expected.findings()) << when << " " << name;
      ASSERT_EQ(alarm->clearedTime(), expected.clearedTime) << when << " " << name;
    }
    ASSERT_EQ(board->activeAlarms(), active) << when;
    ASSERT_EQ(board->alarms(), raised) << when;
    ASSERT_EQ(board->keys(), model.size()) << when;
    ASSERT_EQ(board->keysDropped(), 0u);
  }

  std::vector<AlarmRule::Ptr> rules;
  std::map<std::string, ModelAlarm> model;
};

TEST_F(AlarmModel, boardEqualsAModelThatKeepsEveryFinding) {
  U32 raises = 0;
  for (U64 seed = 1; seed <= 150; ++seed) {
    Support::Random random(seed);
    loop = Support::ManualLoop();
    board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
    rules.clear();
    model.clear();
    makeRules(random);
    for (U32 step = 0; step < 150; ++step) {
      const std::string when = "seed " + std::to_string(seed) + " step " + std::to_string(step);
      const double time = loop.clock->time() + (random.oneIn(3) ? quarters(random, 16) : 0);
      const std::string chip = random.oneIn(3) ? "left" : "right";
      const U32 what = random.below(20);
      // The board's wake-up and what it is told clear the same.
      loop.clock->timeIs(time);
      if (random.oneIn(2)) loop.turn();
      if (what == 0) {
        board->doBeginPass(time);
        clearModel(time);
        for (auto& [name, alarm] : model) alarm.passBegins(time);
      } else if (what == 1) {
        const U32 count = random.between(1, 8);
        board->manyAtOnceIs(chip.c_str(), count, time);
        clearModel(time);
        addToModel(nullptr, 0, chip, count, time, true);
      } else if (what < 5) {
        loop.turn();
        clearModel(time);
      } else {
        const ChipMemory::Ptr where = random.oneIn(4) ? vlan : mac;
        const U32 entry = random.below(3);
        board->findingIs(where, entry, chip.c_str(), time);
        clearModel(time);
        addToModel(where.ptr(), entry, chip, 1, time, false);
      }
      if (random.oneIn(8) && board->alarms() != 0) {
        const auto names = board->alarmNames();
        board->doAcknowledge(names[random.below(board->alarms())]);
      }
      expectModel(when);
      if (HasFatalFailure()) return;
    }
    for (const auto& [name, alarm] : model) raises += alarm.raises;
  }
  EXPECT_GT(raises, 3000u);
}

}  // namespace
