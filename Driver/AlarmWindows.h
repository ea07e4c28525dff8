// What an alarm board has counted: a window for each rule and subject. Not installed.
//
// Nothing here calls out. What the board is to announce is collected as changes, which also keep
// the alarms that leave.
#pragma once

#include <Driver/AlarmBoard.h>
#include <Zint/Sizes.h>

#include <list>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace Driver {

struct AlarmChanges {
  struct Change {
    Alarm::Ptr alarm;
    bool isState = false;  // it has another state; if not, and it stays, another finding
    bool isLeaving = false;
  };
  std::vector<Change> list;
};

// The times of the last `count` findings.
class FindingTimes {
 public:
  explicit FindingTimes(U32 count) : count_(count) {}

  // Makes room for so many more.
  void reserve(U32 more);
  // REQUIRES: room for it.
  void add(Zint::Seconds time);
  // The time of the oldest one after so many more at `time`; -infinity while they are fewer than
  // `count`.
  Zint::Seconds oldestAfter(U32 more, Zint::Seconds time) const;

 private:
  U32 count_;
  U32 next_ = 0;  // the oldest, once there are `count`
  std::vector<Zint::Seconds> times_;
};

// What a rule counts for. Equal for equal subjects; the parts that a scope does not need are empty.
struct AlarmSubject {
  U64 address = 0;
  U32 entry = 0;
  std::string_view chip;

  friend bool operator==(const AlarmSubject&, const AlarmSubject&) = default;
};

// Findings of one time: of an entry, or of a chip alone.
struct Findings {
  const Hardware::ChipMemory* region;  // null: the entry is not known
  U32 entry;
  std::string_view chip;
  U32 count;
  bool isLostChip;
};

class AlarmWindows {
 public:
  AlarmWindows();
  // The alarms that others hold are cleared.
  ~AlarmWindows();
  AlarmWindows(const AlarmWindows&) = delete;
  AlarmWindows& operator=(const AlarmWindows&) = delete;

  U32 maxKeys() const { return maxKeys_; }
  void maxKeysIs(U32 maxKeys, AlarmChanges& changes);
  U32 keys() const { return Zint::countOf(quiet_) + Zint::countOf(active_); }
  U64 keysDropped() const { return keysDropped_; }
  U32 activeAlarms() const { return Zint::countOf(active_); }

  // Null when there is none.
  AlarmRule::Ptr rule(const Zint::String8& name) const;
  std::vector<Zint::String8> ruleNames() const;
  U32 rules() const { return Zint::countOf(counters_); }
  void ruleIs(const AlarmRule::Ptr& rule, AlarmChanges& changes);
  AlarmRule::Ptr ruleDel(const Zint::String8& name, AlarmChanges& changes);
  const std::map<Zint::String8, Alarm::Ptr>& alarms() const { return alarms_; }

  // Counts them in the windows of every rule; all or, when memory runs out, none. New alarms become
  // members of `board`.
  void count(const Findings& findings, Zint::Seconds time, AlarmBoard& board,
             AlarmChanges& changes);
  void beginPass(Zint::Seconds time);

  // The time after which the next alarm is to be cleared; infinity when there is none.
  Zint::Seconds clearTime() const {
    return clearings_.empty() ? Zint::never : clearings_.begin()->first.first;
  }
  // Clears the alarm whose time comes first. REQUIRES: an active alarm.
  void clearFirst(AlarmChanges& changes);

 private:
  struct SubjectHash;
  struct Window;
  struct Counter;  // a rule and its windows
  using Order = std::list<Window*>;
  // The number makes the order that of the raises where times are equal.
  using Clearings = std::map<std::pair<Zint::Seconds, U64>, Window*>;

  void prepare(Counter& counter, const Findings& findings, Zint::Seconds time, AlarmBoard& board);
  void makeAlarm(Window& window, const Findings& findings, AlarmBoard& board);
  Zint::Name freeName(const Zint::String8& rule, const Zint::String8& subject,
                      const Findings& findings) const;
  void undoPreparation();
  void add(Window& window, const Findings& findings, Zint::Seconds time, AlarmChanges& changes);
  void updateClearing(Window& window);
  void removeAll(Counter& counter, AlarmChanges& changes);
  void remove(Window& window, AlarmChanges& changes);
  void dropOldest(AlarmChanges& changes);
  Order& orderOf(const Window& window);

  U32 maxKeys_ = 4096;
  U64 keysDropped_ = 0;
  U64 clearingsMade_ = 0;
  Zint::Seconds latest_ = -Zint::never;
  std::map<Zint::String8, std::unique_ptr<Counter>> counters_;
  // The windows without and with an active alarm, the one without a finding for the longest time
  // first.
  Order quiet_;
  Order active_;
  Clearings clearings_;  // of the windows with an active alarm
  std::map<Zint::String8, Alarm::Ptr> alarms_;
};

}  // namespace Driver
