#include "Model.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Model {

std::string decimal(u64 value) { return std::to_string(value); }

std::string hexadecimal(u64 value) {
  std::string digits;
  do {
    digits.insert(digits.begin(), "0123456789abcdef"[value % 16]);
    value /= 16;
  } while (value != 0);
  return digits;
}

std::string addressText(u64 address) {
  std::string low = hexadecimal(address % 0x100000000ull);
  return "0x" + hexadecimal(address / 0x100000000ull) + ":" + std::string(8 - low.size(), '0') +
         low;
}

std::string modeText(Mode mode) {
  switch (mode) {
    case Mode::normal:
      return "normal";
    case Mode::override_:
      return "override";
    case Mode::buffered:
      return "buffered";
  }
  return "ChipMemory::ChipMemoryMode(" + std::to_string(static_cast<int>(mode)) + ")";
}

std::string stateText(State state) {
  switch (state) {
    case State::unconfigured:
      return "unconfigured";
    case State::configured:
      return "configured";
    case State::idle:
      return "idle";
    case State::auditing:
      return "auditing";
  }
  return "HardwareShadow::State(" + std::to_string(static_cast<int>(state)) + ")";
}

u32 reversedBits(u32 word) {
  u32 reversed = 0;
  for (int bit = 0; bit < 32; bit++) {
    reversed = reversed * 2 + (word >> bit) % 2;
  }
  return reversed;
}

void System::trace(int level, const char* function, int line, std::string text,
                   const char* context) {
  trace_.push_back({level, std::move(text), function, line, context});
}

void System::record(int level, std::vector<u32> values, std::vector<std::string> texts) {
  records_.push_back({level, std::move(values), std::move(texts)});
}

void System::notify(Notification::Kind kind, int owner, u64 key, const std::string& name) {
  if (logNotifications_) notifications_.push_back({kind, owner, key, name});
  if (reaction_ && reaction_->kind == kind) stateIs(0, reaction_->command);
}

// --- Clock.

void System::arm(Alarm& alarm, double due) {
  alarm.due = due;
  alarm.order = ++armings_;
}

Alarm& System::alarmOf(Observer owner) {
  return owner.actor == Actor::shadow ? shadows_.at(owner.handle).alarm
                                      : readers_.at(owner.handle).alarm;
}

int System::runTurn() {
  struct Due {
    double due;
    u64 order;
    Observer owner;
  };
  std::vector<Due> due;
  auto collect = [&](const Alarm& alarm, Observer owner) {
    if (alarm.due != never && alarm.due <= now_) due.push_back({alarm.due, alarm.order, owner});
  };
  for (int i = 0; i < static_cast<int>(shadows_.size()); i++) {
    collect(shadows_[i].alarm, {Actor::shadow, i});
  }
  for (int i = 0; i < static_cast<int>(readers_.size()); i++) {
    collect(readers_[i].alarm, {Actor::reader, i});
  }
  std::sort(due.begin(), due.end(), [](const Due& a, const Due& b) {
    return a.due != b.due ? a.due < b.due : a.order < b.order;
  });
  int fired = 0;
  for (const Due& next : due) {
    Alarm& alarm = alarmOf(next.owner);
    // Disarmed or armed again by an earlier handler of this turn.
    if (alarm.due == never || alarm.order != next.order) continue;
    alarm.due = never;
    fired++;
    runGuarded(next.owner.actor, next.owner.handle, "onTime", [&] {
      if (next.owner.actor == Actor::shadow) {
        doStartAudit(next.owner.handle);
      } else {
        readerHandleTimeout(next.owner.handle);
      }
    });
  }
  return fired;
}

std::vector<double> System::pendingDueTimes() const {
  std::vector<double> times;
  for (const Shadow& shadow : shadows_) {
    if (shadow.alarm.due != never) times.push_back(shadow.alarm.due);
  }
  for (const Reader& reader : readers_) {
    if (reader.alarm.due != never) times.push_back(reader.alarm.due);
  }
  std::sort(times.begin(), times.end());
  return times;
}

double System::nextWakeUp() const {
  double next = never;
  for (const Shadow& shadow : shadows_) next = std::min(next, shadow.alarm.due);
  for (const Reader& reader : readers_) next = std::min(next, reader.alarm.due);
  return next;
}

template <typename Handler>
void System::runGuarded(Actor actor, int handle, const char* name, Handler handler) {
  try {
    handler();
  } catch (const AccessFailed&) {
    guarded_.push_back({actor, handle, name});
  }
}

// --- Notifiees of a request: a reader is notified of the state, a shadow of the status. One that
// was unregistered during the walk is not notified.

void System::notifyObservers(int request, bool status) {
  const std::vector<Observer> snapshot = requests_.at(request).observers;
  for (const Observer& observer : snapshot) {
    const std::vector<Observer>& present = requests_.at(request).observers;
    if (std::find(present.begin(), present.end(), observer) == present.end()) continue;
    if (status && observer.actor == Actor::shadow) {
      runGuarded(observer.actor, observer.handle, "onStatus",
                 [&] { handleAuditReadRequestStatus(observer.handle); });
    } else if (!status && observer.actor == Actor::reader) {
      runGuarded(observer.actor, observer.handle, "onState",
                 [&] { readerHandleReadRequest(observer.handle); });
    }
  }
}

void System::observe(int request, Observer observer) {
  requests_.at(request).observers.push_back(observer);
}

void System::unobserve(int request, Observer observer) {
  std::vector<Observer>& observers = requests_.at(request).observers;
  observers.erase(std::remove(observers.begin(), observers.end(), observer), observers.end());
}

}  // namespace Model
