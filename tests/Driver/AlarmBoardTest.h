// A board on a manual clock, with regions and an observer: what the tests of alarms share.
#pragma once

#include <Driver/AlarmBoard.h>
#include <Zint/Trace.h>
#include <gtest/gtest.h>
#include <support/ManualLoop.h>
#include <support/RecordingHam.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Support {

class QuietSink : public Zint::TraceSink {
 public:
  QuietSink() : before_(Zint::traceSinkIs(this)) {}
  ~QuietSink() override { Zint::traceSinkIs(before_); }
  void traceLine(const Zint::TraceLine& line) override { lines.emplace_back(line.text); }
  std::vector<std::string> lines;

 private:
  Zint::TraceSink* before_;
};

class BoardObserver : public Driver::AlarmBoard::NotifieeConst {
 public:
  explicit BoardObserver(const Driver::AlarmBoard::Ptr& board)
      : NotifieeConst(nullptr, Zint::Ptr<const Driver::AlarmBoard>(board)) {}
  void onAlarm(Zint::String8 name) override {
    std::string text = name.bytes();
    const Driver::Alarm::Ptr alarm = notifier() == nullptr ? nullptr : notifier()->alarm(name);
    text += alarm == nullptr ? " left" : " " + stringValue(alarm->state()).bytes();
    told.push_back(text);
    if (also) also();
  }
  void onRule(Zint::String8 name) override { told.push_back("rule " + name.bytes()); }
  void onActiveAlarms() override {
    told.push_back("active " + std::to_string(notifier()->activeAlarms()));
  }
  void onKeysDropped() override { told.push_back("dropped"); }
  std::vector<std::string> taken() { return std::exchange(told, {}); }

  std::vector<std::string> told;
  std::function<void()> also;
};

class AlarmBoardTest : public testing::Test {
 protected:
  using Alarm = Driver::Alarm;
  using AlarmBoard = Driver::AlarmBoard;
  using AlarmRule = Driver::AlarmRule;
  using ChipMemory = Hardware::ChipMemory;
  using Texts = std::vector<std::string>;

  ChipMemory::Ptr region(const char* name, U32 address) const {
    return Hardware::chipMemoryFactory(name, Hardware::ChipAddress(1, address), 64, 4, 4, ham);
  }
  AlarmRule::Ptr rule(const char* name, AlarmRule::Scope scope, U32 count, Zint::Seconds within,
                      Zint::Seconds clearAfter = 0) {
    const AlarmRule::Ptr made = Driver::alarmRuleFactory(name, scope, count, within, clearAfter);
    board->ruleIs(made);
    return made;
  }
  // A finding at this time, which is also the clock's.
  void find(U32 entry, Zint::Seconds time, const char* chip = "chip") {
    loop.clock->timeIs(time);
    board->findingIs(mac, entry, chip, time);
  }
  // "raised", or "none" when there is no such alarm.
  std::string state(const char* alarm) const {
    const Alarm::Ptr found = board->alarm(alarm);
    return found == nullptr ? "none" : stringValue(found->state()).bytes();
  }
  template <class Body>
  static std::string refusal(Body body) {
    try {
      body();
    } catch (const Zint::RangeException& exception) {
      return exception.what();
    }
    return "";
  }

  QuietSink trace;
  ManualLoop loop;
  Zint::Ptr<RecordingHam> ham = Zint::makePtr<RecordingHam>();
  ChipMemory::Ptr mac = region("mac", 0x1000);
  ChipMemory::Ptr vlan = region("vlan", 0x2000);
  AlarmBoard::Ptr board = Driver::alarmBoardFactory("alarms", loop.activity, loop.clock);
};

}  // namespace Support
