#include <Driver/AlarmWindows.h>

#include <Driver/Driver.h>

#include <algorithm>
#include <unordered_map>

namespace Driver {
namespace {

bool isConcerned(AlarmRule::Scope scope, const Findings& findings) {
  switch (scope) {
    case AlarmRule::entry_:
    case AlarmRule::region_:
      return findings.region != nullptr;
    case AlarmRule::chip_:
      return !findings.chip.empty();
    default:
      return true;
  }
}

AlarmSubject subjectOf(AlarmRule::Scope scope, const Findings& findings) {
  switch (scope) {
    case AlarmRule::entry_:
      return {findings.region->address().value(), findings.entry, {}};
    case AlarmRule::region_:
      return {findings.region->address().value(), 0, {}};
    case AlarmRule::chip_:
      return {0, 0, findings.chip};
    default:
      return {};
  }
}

Zint::String8 subjectText(AlarmRule::Scope scope, const Findings& findings,
                          const Zint::String8& region) {
  switch (scope) {
    case AlarmRule::entry_:
      return region + "/" + Zint::valueToStrep(findings.entry);
    case AlarmRule::region_:
      return region;
    default:
      return scope == AlarmRule::chip_ ? Zint::String8(findings.chip) : Zint::String8();
  }
}

}  // namespace

struct AlarmWindows::SubjectHash {
  std::size_t operator()(const AlarmSubject& subject) const {
    const U64 place = (subject.address + subject.entry * 0xbf58476d1ce4e5b9u) * 0x9e3779b97f4a7c15u;
    return Zint::sizeOf(place >> 32) ^ std::hash<std::string_view>()(subject.chip);
  }
};

// --- Times ---

void FindingTimes::reserve(U32 more) {
  const std::size_t size = times_.size();
  const std::size_t wanted = more > count_ - size ? count_ : size + more;
  if (wanted > times_.capacity())
    times_.reserve(std::min<std::size_t>(std::max(wanted, 2 * size), count_));
}

void FindingTimes::add(Zint::Seconds time) {
  if (times_.size() < count_) {
    times_.push_back(time);
  } else {
    times_[next_] = time;
    next_ = next_ + 1 == count_ ? 0 : next_ + 1;
  }
}

Zint::Seconds FindingTimes::oldestAfter(U32 more, Zint::Seconds time) const {
  if (more >= count_) return time;
  const std::size_t missing = count_ - times_.size();
  if (more < missing) return -Zint::never;
  const std::size_t index = next_ + (more - missing);
  return times_[index < count_ ? index : index - count_];
}

// --- One window ---

struct AlarmWindows::Window {
  Window(Counter& ofRule, const AlarmSubject& findings);

  bool isActive() const { return alarm != nullptr && alarm->isActive(); }
  bool hasClearing() const { return clearing != Clearings::iterator(); }

  Counter* counter;
  const Zint::String8 chip;
  const AlarmSubject subject;  // its chip is `chip`
  FindingTimes times;
  U64 findings = 0;
  Zint::Seconds firstTime = Zint::never;
  Zint::Seconds lastTime = Zint::never;
  U32 inPass = 0;            // findings of the pass under way; for manyAtOnce alone
  bool isMetInPass = false;  // they have met the rule
  Zint::Seconds metUntil = -Zint::never;
  bool isMet = false;  // by the findings that are being counted
  Alarm::Ptr alarm;    // null until the rule is met for the first time
  Order::iterator place;
  Clearings::iterator clearing{};  // while the alarm is active
};

struct AlarmWindows::Counter {
  explicit Counter(AlarmRule::Ptr ofRule) : rule(std::move(ofRule)) {}

  AlarmRule::Ptr rule;
  std::unordered_map<AlarmSubject, std::unique_ptr<Window>, SubjectHash> windows;
  Window* counting = nullptr;  // the one that the findings under way are counted in
};

AlarmWindows::Window::Window(Counter& ofRule, const AlarmSubject& of)
    : counter(&ofRule),
      chip(of.chip),
      subject{of.address, of.entry, chip},
      times(ofRule.rule->count()) {}

AlarmWindows::AlarmWindows() = default;

AlarmWindows::~AlarmWindows() {
  for (const auto& [name, alarm] : alarms_) {
    if (alarm->isActive()) alarm->clear(latest_);
    alarm->parentIs(nullptr, 0);
  }
}

AlarmWindows::Order& AlarmWindows::orderOf(const Window& window) {
  return window.isActive() ? active_ : quiet_;
}

// --- Rules ---

AlarmRule::Ptr AlarmWindows::rule(const Zint::String8& name) const {
  const auto found = counters_.find(name);
  return found == counters_.end() ? nullptr : found->second->rule;
}

std::vector<Zint::String8> AlarmWindows::ruleNames() const {
  std::vector<Zint::String8> names;
  for (const auto& [name, counter] : counters_) names.push_back(name);
  return names;
}

void AlarmWindows::ruleIs(const AlarmRule::Ptr& rule, AlarmChanges& changes) {
  auto made = std::make_unique<Counter>(rule);
  std::unique_ptr<Counter>& held = counters_[rule->name()];
  if (held != nullptr) removeAll(*held, changes);
  held = std::move(made);
}

AlarmRule::Ptr AlarmWindows::ruleDel(const Zint::String8& name, AlarmChanges& changes) {
  const auto found = counters_.find(name);
  if (found == counters_.end()) return nullptr;
  removeAll(*found->second, changes);
  AlarmRule::Ptr rule = found->second->rule;
  counters_.erase(found);
  return rule;
}

void AlarmWindows::removeAll(Counter& counter, AlarmChanges& changes) {
  changes.list.reserve(changes.list.size() + counter.windows.size());
  while (!counter.windows.empty()) remove(*counter.windows.begin()->second, changes);
}

// --- Counting: first everything that may fail, then the rest ---

void AlarmWindows::count(const Findings& findings, Zint::Seconds toldTime, AlarmBoard& board,
                         AlarmChanges& changes) {
  const Zint::Seconds time = std::max(toldTime, latest_);
  std::size_t expected = changes.list.size();
  try {
    for (const auto& [name, counter] : counters_) {
      prepare(*counter, findings, time, board);
      if (counter->counting != nullptr &&
          (counter->counting->isMet || counter->counting->isActive()))
        ++expected;
    }
    if (keys() > maxKeys_) expected += keys() - maxKeys_;
    changes.list.reserve(expected);
  } catch (...) {
    undoPreparation();
    throw;
  }
  latest_ = time;
  for (const auto& [name, counter] : counters_) {
    if (Window* window = std::exchange(counter->counting, nullptr))
      add(*window, findings, time, changes);
  }
  while (keys() > maxKeys_) dropOldest(changes);
}

void AlarmWindows::prepare(Counter& counter, const Findings& findings, Zint::Seconds time,
                           AlarmBoard& board) {
  const AlarmRule& rule = *counter.rule;
  if (!isConcerned(rule.scope(), findings)) return;
  const AlarmSubject subject = subjectOf(rule.scope(), findings);
  const auto found = counter.windows.find(subject);
  if (found == counter.windows.end()) {
    auto made = std::make_unique<Window>(counter, subject);
    made->place = quiet_.insert(quiet_.end(), made.get());
    counter.counting = made.get();
    try {
      counter.windows.emplace(made->subject, std::move(made));
    } catch (...) {
      quiet_.pop_back();
      counter.counting = nullptr;
      throw;
    }
  } else {
    counter.counting = found->second.get();
  }
  Window& window = *counter.counting;
  window.times.reserve(findings.count);
  const U32 inPass = window.inPass + std::min(findings.count, ~window.inPass);
  const bool isMetInPass = rule.scope() == AlarmRule::manyAtOnce_ && inPass >= rule.count();
  const bool isLost = rule.scope() == AlarmRule::manyAtOnce_ && findings.isLostChip;
  window.isMet = isMetInPass || isLost ||
                 time - window.times.oldestAfter(findings.count, time) <= rule.within();
  if (!window.isMet) return;
  if (window.alarm == nullptr) makeAlarm(window, findings, board);
  if (!window.hasClearing()) {
    window.clearing = clearings_.emplace(std::pair(Zint::never, clearingsMade_), &window).first;
    ++clearingsMade_;
  }
}

void AlarmWindows::makeAlarm(Window& window, const Findings& findings, AlarmBoard& board) {
  const AlarmRule::Ptr& rule = window.counter->rule;
  Zint::String8 region = findings.region == nullptr ? "" : findings.region->name();
  if (findings.region != nullptr && region.empty())
    region = findings.region->address().stringValue();
  const Zint::String8 subject = subjectText(rule->scope(), findings, region);
  Alarm::Ptr made = Zint::makePtr<Alarm>(freeName(rule->name(), subject, findings), rule, subject);
  made->parentIs(&board, AlarmBoard::Id::alarm);
  alarms_.emplace(made->name(), made);
  window.alarm = std::move(made);
}

// Of two subjects with the same text, the second alarm's name has the region's address, or a
// number.
Zint::Name AlarmWindows::freeName(const Zint::String8& rule, const Zint::String8& subject,
                                  const Findings& findings) const {
  Zint::Name name = subject.empty() ? rule : rule + "/" + subject;
  if (!alarms_.contains(name)) return name;
  if (findings.region != nullptr) name += "@" + findings.region->address().stringValue();
  const Zint::Name beginning = name;
  for (U32 i = 2; alarms_.contains(name); ++i) name = beginning + "#" + Zint::valueToStrep(i);
  return name;
}

void AlarmWindows::undoPreparation() {
  AlarmChanges none;
  for (const auto& [name, counter] : counters_) {
    Window* window = std::exchange(counter->counting, nullptr);
    if (window == nullptr) continue;
    if (window->hasClearing() && !window->isActive()) {
      clearings_.erase(std::exchange(window->clearing, {}));
    }
    if (window->alarm != nullptr && window->alarm->raises() == 0) {
      alarms_.erase(window->alarm->name());
      window->alarm = nullptr;
    }
    if (window->findings == 0) remove(*window, none);
  }
}

void AlarmWindows::add(Window& window, const Findings& findings, Zint::Seconds time,
                       AlarmChanges& changes) {
  const AlarmRule& rule = *window.counter->rule;
  const bool wasActive = window.isActive();
  Order& before = orderOf(window);
  for (U32 i = std::min(findings.count, rule.count()); i > 0; --i) window.times.add(time);
  if (window.findings == 0) window.firstTime = time;
  window.findings += findings.count;
  window.lastTime = time;
  window.inPass += std::min(findings.count, ~window.inPass);
  if (rule.scope() == AlarmRule::manyAtOnce_) {
    if (window.inPass >= rule.count()) window.isMetInPass = true;
    if (findings.isLostChip) window.metUntil = time + rule.within();
  }
  if (const Zint::Seconds oldest = window.times.oldestAfter(0, time);
      time - oldest <= rule.within())
    window.metUntil = std::max({window.metUntil, oldest + rule.within(), time});
  if (window.alarm != nullptr) {
    window.alarm->count(window.findings, window.firstTime, window.lastTime);
    if (window.isMet && !wasActive) window.alarm->raise(time);
    if (window.isMet) updateClearing(window);
    if (window.isActive()) changes.list.push_back({window.alarm, !wasActive, false});
  }
  Order& after = orderOf(window);
  after.splice(after.end(), before, window.place);
}

// --- Clearing ---

void AlarmWindows::updateClearing(Window& window) {
  const Zint::Seconds time =
      window.isMetInPass ? Zint::never : window.metUntil + window.counter->rule->clearAfter();
  auto node = clearings_.extract(window.clearing);
  node.key().first = time;
  window.clearing = clearings_.insert(std::move(node)).position;
}

void AlarmWindows::clearFirst(AlarmChanges& changes) {
  Window& window = *clearings_.begin()->second;
  changes.list.push_back({window.alarm, true, false});
  window.alarm->clear(clearTime());
  clearings_.erase(std::exchange(window.clearing, {}));
  quiet_.splice(quiet_.end(), active_, window.place);
}

void AlarmWindows::beginPass(Zint::Seconds time) {
  latest_ = std::max(latest_, time);
  for (const auto& [name, counter] : counters_) {
    if (counter->rule->scope() != AlarmRule::manyAtOnce_) continue;
    for (const auto& [subject, window] : counter->windows) {
      window->inPass = 0;
      if (!std::exchange(window->isMetInPass, false)) continue;
      window->metUntil = std::max(window->metUntil, latest_);
      updateClearing(*window);
    }
  }
}

// --- The bound ---

void AlarmWindows::maxKeysIs(U32 maxKeys, AlarmChanges& changes) {
  if (keys() > maxKeys) changes.list.reserve(changes.list.size() + (keys() - maxKeys));
  maxKeys_ = maxKeys;
  while (keys() > maxKeys_) dropOldest(changes);
}

void AlarmWindows::dropOldest(AlarmChanges& changes) {
  Window& window = *(quiet_.empty() ? active_ : quiet_).front();
  if (window.isActive() || latest_ - window.lastTime <= window.counter->rule->within())
    ++keysDropped_;
  remove(window, changes);
}

// REQUIRES: room in `changes` if there is an alarm.
void AlarmWindows::remove(Window& window, AlarmChanges& changes) {
  orderOf(window).erase(window.place);
  if (window.alarm != nullptr) {
    const bool wasActive = window.isActive();
    if (wasActive) {
      window.alarm->clear(latest_);
      clearings_.erase(window.clearing);
    }
    window.alarm->parentIs(nullptr, 0);
    alarms_.erase(window.alarm->name());
    changes.list.push_back({std::move(window.alarm), wasActive, true});
  }
  auto& windows = window.counter->windows;
  windows.erase(windows.find(window.subject));
}

}  // namespace Driver
