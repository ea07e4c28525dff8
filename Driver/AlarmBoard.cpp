#include <Driver/AlarmBoard.h>

#include <Driver/AlarmWindows.h>
#include <Driver/Driver.h>

#include <cmath>
#include <new>

namespace Driver {
namespace {

const Zint::Ptr<const Zint::Clock>& requireClock(const Zint::Ptr<const Zint::Clock>& clock) {
  return refuseNull(clock, "an alarm board needs a clock");
}

void requireFindingTime(Zint::Seconds time) {
  if (!std::isfinite(time)) Zint::throwRangeException("the time of a finding must be finite");
}

// Throws nothing: those who are to be notified matter more than the line.
void traceState(const Alarm& alarm) {
  try {
    DRIVER_TRACE(0, "alarm " << alarm.name() << " " << alarm.state() << " after "
                             << alarm.findings() << " findings");
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

// Wakes the board when the next alarm is to be cleared.
class AlarmBoard::Wake : public Zint::Clock::NotifieeConst {
 public:
  Wake(AlarmBoard* board, const Zint::Ptr<Zint::ActivityConfig>& activity,
       const Zint::Ptr<const Zint::Clock>& clock)
      : NotifieeConst(activity, clock), board_(board) {}
  void onTime() override {
    if (const AlarmBoard::Ptr board = board_; board != nullptr) board->handleTimeout();
  }
  void boardIs(AlarmBoard* board) { board_ = board; }

 protected:
  ~Wake() override = default;

 private:
  AlarmBoard* board_;  // not a counted reference
};

Zint::Ptr<AlarmBoard> alarmBoardFactory(Zint::Name name,
                                        const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const Zint::Ptr<const Zint::Clock>& clock) {
  return Zint::makePtr<AlarmBoard>(std::move(name), activity, clock);
}

AlarmBoard::AlarmBoard(Zint::Name name, const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const Zint::Ptr<const Zint::Clock>& clock)
    : Entity(std::move(name)),
      activity_(activity),
      clock_(requireClock(clock)),
      windows_(std::make_unique<AlarmWindows>()),
      wake_(Zint::makePtr<Wake>(this, activity_, clock_)) {
  Entity::hasNotificationActiveIs(true);
}

AlarmBoard::~AlarmBoard() { wake_->boardIs(nullptr); }

AlarmBoard::NotifieeConst::~NotifieeConst() = default;

const Zint::Type* AlarmBoard::fwkType() const { return &alarmBoardType; }

void AlarmBoard::hasNotificationActiveIs(bool active) {
  wake_->hasNotificationActiveIs(active);
  Entity::hasNotificationActiveIs(active);
}

// --- Attributes ---

U32 AlarmBoard::maxKeys() const { return windows_->maxKeys(); }

void AlarmBoard::maxKeysIs(U32 maxKeys) {
  if (maxKeys == 0) Zint::throwRangeException("an alarm board needs at least one key");
  if (maxKeys == windows_->maxKeys()) return;
  const Ptr self(this);
  change([&](AlarmChanges& changes) { windows_->maxKeysIs(maxKeys, changes); });
  notify(Id::maxKeys);
}

U32 AlarmBoard::keys() const { return windows_->keys(); }
U64 AlarmBoard::keysDropped() const { return windows_->keysDropped(); }
U32 AlarmBoard::activeAlarms() const { return windows_->activeAlarms(); }

// --- Rules ---

AlarmRule::Ptr AlarmBoard::rule(const Zint::String8& name) const { return windows_->rule(name); }
U32 AlarmBoard::rules() const { return windows_->rules(); }
std::vector<Zint::String8> AlarmBoard::ruleNames() const { return windows_->ruleNames(); }

void AlarmBoard::ruleIs(const AlarmRule::Ptr& rule) {
  if (rule == nullptr) Zint::throwNullParameter("rule", "Driver::AlarmBoard::rule");
  const AlarmRule::Ptr held = rule;
  if (held == windows_->rule(held->name())) return;
  const Ptr self(this);
  change([&](AlarmChanges& changes) { windows_->ruleIs(held, changes); });
  ruleNotify(held->name());
}

AlarmRule::Ptr AlarmBoard::ruleDel(const Zint::String8& name) {
  const Ptr self(this);
  AlarmRule::Ptr removed;
  change([&](AlarmChanges& changes) { removed = windows_->ruleDel(name, changes); });
  if (removed != nullptr) ruleNotify(removed->name());
  return removed;
}

void AlarmBoard::ruleDelAll() {
  const Ptr self(this);
  for (const Zint::String8& name : ruleNames()) ruleDel(name);
}

// --- Alarms ---

Alarm::Ptr AlarmBoard::alarm(const Zint::String8& name) const {
  const auto found = windows_->alarms().find(name);
  return found == windows_->alarms().end() ? nullptr : found->second;
}

U32 AlarmBoard::alarms() const { return Zint::countOf(windows_->alarms()); }

std::vector<Zint::String8> AlarmBoard::alarmNames() const {
  std::vector<Zint::String8> names;
  names.reserve(windows_->alarms().size());
  for (const auto& [name, alarm] : windows_->alarms()) names.push_back(name);
  return names;
}

bool AlarmBoard::doAcknowledge(const Zint::String8& name) {
  const Alarm::Ptr found = alarm(name);
  if (found == nullptr) Zint::throwRangeException("no alarm " + Zint::valueToStrep(name).bytes());
  return found->doAcknowledge();
}

// --- Findings ---

void AlarmBoard::findingIs(const Hardware::ChipMemory::Ptr& region, U32 entry,
                           const Zint::String8& chip, Zint::Seconds time) {
  if (region == nullptr) Zint::throwNullParameter("region", "Driver::AlarmBoard::finding");
  requireFindingTime(time);
  const Ptr self(this);
  const auto count = [&](const Hardware::ChipMemory::Ptr& where, const Zint::String8& which) {
    change([&](AlarmChanges& changes) {
      windows_->count({where.ptr(), entry, which, 1, false}, time, *this, changes);
    });
  };
  if (windows_->clearTime() >= time) return count(region, chip);
  const Hardware::ChipMemory::Ptr heldRegion = region;
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the caller may lose it
  const Zint::String8 heldChip = chip;
  clearDue(time);
  count(heldRegion, heldChip);
}

void AlarmBoard::manyAtOnceIs(const Zint::String8& chip, U32 count, Zint::Seconds time) {
  if (count == 0) Zint::throwRangeException("no differences are not many at once");
  requireFindingTime(time);
  const Ptr self(this);
  const Zint::String8 held = chip;
  clearDue(time);
  change([&](AlarmChanges& changes) {
    windows_->count({nullptr, 0, held, count, true}, time, *this, changes);
  });
}

void AlarmBoard::doBeginPass(Zint::Seconds time) {
  requireFindingTime(time);
  const Ptr self(this);
  clearDue(time);
  windows_->beginPass(time);
  updateWakeUp();
}

// --- Clearing ---

void AlarmBoard::handleTimeout() {
  try {
    clearDue(clock_->time());
  } catch (...) {
    wake_->timeMinIs(0.0);  // another try in the next turn
    throw;
  }
  updateWakeUp();
}

// An alarm whose time is `time` itself stays: a finding of the same time may still meet its rule.
void AlarmBoard::clearDue(Zint::Seconds time) {
  while (windows_->clearTime() < time)
    change([this](AlarmChanges& changes) { windows_->clearFirst(changes); });
}

void AlarmBoard::updateWakeUp() {
  const Zint::Seconds due = windows_->clearTime();
  const Zint::Seconds wanted = std::nextafter(due, Zint::never);
  if (wake_->isArmed() ? wanted != wake_->timeMin() : wanted != Zint::never)
    wake_->timeMinIs(wanted);
}

// --- Announcing. REQUIRES: the caller holds this ---

template <class Change>
void AlarmBoard::change(Change change) {
  AlarmChanges changes;
  const U32 active = windows_->activeAlarms();
  const U64 dropped = windows_->keysDropped();
  change(changes);
  const bool isActive = active != windows_->activeAlarms();
  const bool isDropped = dropped != windows_->keysDropped();
  announce(changes);
  if (isActive) notify(Id::activeAlarms);
  if (isDropped) notify(Id::keysDropped);
  updateWakeUp();  // last: it throws when there is no memory, and the next change tries again
}

void AlarmBoard::announce(const AlarmChanges& changes) {
  for (const AlarmChanges::Change& change : changes.list) {
    const Alarm& alarm = *change.alarm;
    if (change.isState) {
      traceState(alarm);
      alarm.notify(Alarm::Id::state);
    } else if (!change.isLeaving) {
      alarm.notify(Alarm::Id::findings);
    }
    if (change.isState || change.isLeaving) alarmNotify(alarm.name());
  }
}

void AlarmBoard::alarmNotify(const Zint::String8& name) {
  notifyEach<NotifieeConst>(Id::alarm,
                            [&name](NotifieeConst& notifiee) { notifiee.onAlarm(name); });
}

void AlarmBoard::ruleNotify(const Zint::String8& name) {
  notifyEach<NotifieeConst>(Id::rule, [&name](NotifieeConst& notifiee) { notifiee.onRule(name); });
}

// --- Notifiees ---

AlarmBoard::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                         const Zint::Ptr<const AlarmBoard>& board, bool active)
    : Entity::NotifieeConst(activity, board, active) {}

void AlarmBoard::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::activeAlarms:
      return onActiveAlarms();
    case Id::keysDropped:
      return onKeysDropped();
    default:
      return Entity::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Driver
