// The patrol's reactions to changes, and the state that people see.
#include <Driver/Patrol.h>

#include <Driver/PatrolReplay.h>
#include <Driver/PatrolRun.h>
#include <Driver/PatrolWatches.h>

#include <Driver/Driver.h>
#include <algorithm>
#include <utility>

namespace Driver {

using Hardware::ChipMemory;
using Hardware::HardwareShadow;

Patrol::Patrol(AuditedShadow& shadow) : shadow_(shadow) {
  self_ = Zint::makePtr<SelfWatch>(shadow.zintFwkActivity(), *this);
  clockIs(shadow.clock());
}

Patrol::~Patrol() {
  self_->forget();
  if (clock_ != nullptr) clock_->forget();
  for (const auto& [region, marks] : marks_) {
    if (marks->watch != nullptr) static_cast<StoreWatch&>(*marks->watch).forget();
    if (marks->policyWatch != nullptr) static_cast<PolicyWatch&>(*marks->policyWatch).forget();
  }
  const auto forget = [this](ChipState& state) {
    state.chip->patrol_ = nullptr;
    state.watch->forget();
    dropReplay(state);
  };
  for (const auto& state : chips_) forget(*state);
  for (const auto& [ham, state] : defaultChips_) forget(*state);
}

// --- What has changed ----------------------------------------------------------------------------

void Patrol::hasNotificationActiveIs(bool active) {
  if (clock_ != nullptr) clock_->hasNotificationActiveIs(active);
}

void Patrol::zombieIs(bool zombie) {
  if (clock_ != nullptr) clock_->zintDoZombieReactors(zombie);
}

void Patrol::activityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) {
  if (clock_ != nullptr) clock_->zintFwkActivityIs(activity);
  self_->zintFwkActivityIs(activity);
}

void Patrol::clockIs(const Zint::Ptr<const Zint::Clock>& clock) {
  Zint::Ptr<SliceClock> made;
  if (clock != nullptr) {
    made = Zint::makePtr<SliceClock>(shadow_.zintFwkActivity(), clock, *this);
  }
  const Zint::Ptr<SliceClock> old = std::exchange(clock_, made);
  if (old != nullptr) old->forget();
  // Times of the old clock mean nothing to the new one.
  nextPass_ = -Zint::never;
  if (isRunning() || isAnyRestoring()) wakeAt(0.0);
  turnStart_ = result_.start = time();
  for (const Chip::Ptr& chip : chips()) {
    if (chip->isAbsent()) chip->nextTry_ = time();
  }
  giveReplaysTheClock();
}

void Patrol::handleAttribute(Zint::AttributeId attribute) {
  const AuditedShadow::Ptr self(&shadow_);
  switch (attribute) {
    case HardwareShadow::Id::state:
      commands_.advance();
      if (shadow_.state() == HardwareShadow::configured()) dropRemoved();
      if (shadow_.state() == HardwareShadow::idle()) reserveMarks();
      if (shadow_.state() == HardwareShadow::auditing()) {
        start();
      } else {
        stop();
      }
      break;
    case HardwareShadow::Id::overrideHardware:
      commands_.advance();
      resume();
      if (isAnyRestoring()) wakeAt(0.0);  // replays wait for the end of it
      updateState();
      break;
    case HardwareShadow::Id::clock:
      clockIs(shadow_.clock());
      break;
    case HardwareShadow::Id::minIntervalBetweenAudits:
      if (nextPass_ != -Zint::never) {
        nextPass_ = result_.start + shadow_.minIntervalBetweenAudits();
        resume();
      }
      break;
    case AuditedShadow::Id::sliceInterval:
      if (isRunning() && isInPass_) wakeAt(turnEnd_ + shadow_.sliceInterval());
      break;
    default:
      break;
  }
}

void Patrol::handlePaused() {
  commands_.advance();
  resume();
  updateState();
}

void Patrol::handleReset(const Chip::Ptr& chip) {
  const AuditedShadow::Ptr self(&shadow_);
  commands_.advance();
  // Armed first: what does not begin here, for want of memory for instance, begins in the next
  // turn.
  wakeAt(0.0);
  bool isFirstAsked = false;
  if (ChipState* state = stateOf(chip); state != nullptr) {
    state->isMissed = true;
    dropReplay(*state);
    state->isResetTold = !std::exchange(state->isTelling, false) && isGiven(*state);
    isFirstAsked = state->isResetTold && chip->restoresItself();
  }
  // The pass is void, but goes on for the other chips: one that is reset again and again does not
  // keep the patrol from them.
  if (isInPass_ && missed_.empty()) missed_ = chip->name() + " was reset";
  if (isFirstAsked) return updateState();
  restore(chip);
}

void Patrol::handleRestored(const Chip::Ptr& chip) {
  const AuditedShadow::Ptr self(&shadow_);
  commands_.advance();
  nextPass_ = -Zint::never;
  resume();
  if (ChipState* state = stateOf(chip); state != nullptr) {
    state->isRestored = true;
    dropReplay(*state);
    if (state->isResetTold) dropAnswer(chip);
  }
  updateState();
}

void Patrol::start() {
  nextPass_ = -Zint::never;
  wakeAt(0.0);
  updateState();
}

// Replays go on.
void Patrol::stop() {
  wakeAt(isAnyRestoring() ? 0.0 : Zint::never);
  try {
    if (isInPass_) endPass("the shadow is " + stringValue(shadow_.state()));
  } catch (...) {
    dropPass();
    updateState();
    throw;
  }
  updateState();
}

bool Patrol::isAnyRestoring() const {
  for (const auto& state : chips_) {
    if (state->chip->isRestoring()) return true;
  }
  for (const auto& [ham, state] : defaultChips_) {
    if (state->chip->isRestoring()) return true;
  }
  return false;
}

// A time that is past is the next turn: due now, and armed also where the clock cannot be read.
void Patrol::wakeAt(Zint::Seconds time) {
  if (const Zint::Ptr<SliceClock> clock = clock_; clock != nullptr) clock->timeMinIs(time);
  due_ = std::max(time, this->time());
}

void Patrol::tryAgain() {
  const Zint::Ptr<SliceClock> clock = clock_;
  if (clock != nullptr && !clock->isArmed()) clock->timeMinIs(0.0);
}

// The next turn decides what is due. A pass does not begin before its time.
void Patrol::resume() {
  if (isRunning()) wakeAt(0.0);
}

bool Patrol::isRunning() const {
  return shadow_.state() == HardwareShadow::auditing() && !shadow_.overrideHardware() &&
         !shadow_.paused();
}

Zint::Seconds Patrol::time() const {
  const Zint::Ptr<const Zint::Clock> clock = shadow_.clock();
  return clock == nullptr ? Zint::now() : clock->time();
}

// --- The state that people see -------------------------------------------------------------------

void Patrol::updateState() {
  PatrolState state = PatrolState::waiting;
  bool isAnyAlive = false, isAnyAbsent = false, isAnyRestoring = false;
  const auto look = [&](const ChipState& chip) {
    isAnyAlive |= chip.isAlive && !chip.chip->isAbsent() && !chip.chip->isRestoring();
    isAnyAbsent |= chip.chip->isAbsent();
    isAnyRestoring |= chip.chip->isRestoring();
  };
  for (const auto& chip : chips_) look(*chip);
  for (const auto& [ham, chip] : defaultChips_) look(*chip);
  if (shadow_.state() != HardwareShadow::auditing()) {
    state = isAnyRestoring ? PatrolState::restoring : PatrolState::stopped;
  } else if (shadow_.paused()) {
    state = PatrolState::paused;
  } else if (isAnyRestoring && !isAnyAlive) {
    state = PatrolState::restoring;
  } else if (shadow_.overrideHardware() || (isAnyAbsent && !isAnyAlive)) {
    state = PatrolState::suspended;
  } else if (isInPass_) {
    state = PatrolState::reading;
  }
  shadow_.patrolStateIs(state, time());
}

Zint::String8 Patrol::reason() const {
  if (!shadow_.hasNotificationActive()) {
    return "its reactors were never switched on: make it with auditedShadowFactory()";
  }
  const auto restoring = [this](const ChipState& state) {
    return state.chip->name() + " is being restored" +
           (shadow_.overrideHardware() ? ", but overrideHardware is set" : "");
  };
  for (const auto& state : chips_) {
    if (state->chip->isRestoring()) return restoring(*state);
  }
  for (const auto& [ham, state] : defaultChips_) {
    if (state->chip->isRestoring()) return restoring(*state);
  }
  if (shadow_.state() != HardwareShadow::auditing()) {
    return "the shadow is " + stringValue(shadow_.state());
  }
  if (shadow_.overrideHardware()) return "overrideHardware is set";
  if (shadow_.paused()) return "it is paused";
  if (clock_ == nullptr) return "it has no clock";
  const Zint::Seconds late = time() - due_;
  if (late > 1) {
    return "nobody drives the loop: a turn is due for " + std::to_string(static_cast<U64>(late)) +
           " s";
  }
  const auto absent = [](const ChipState& state) {
    return state.chip->name() + " is absent: " + state.chip->reason();
  };
  for (const auto& state : chips_) {
    if (state->chip->isAbsent()) return absent(*state);
  }
  for (const auto& [ham, state] : defaultChips_) {
    if (state->chip->isAbsent()) return absent(*state);
  }
  const Zint::Ptr<Hardware::ChipReadRequest> request = shadow_.auditReadRequest();
  if (request != nullptr) {
    for (auto member = request->chipMemoryIterator(); member; ++member) {
      if (!isUnderAudit(*member->chipMemory())) continue;
      if (due_ != Zint::never) return "";
      return isInPass_ ? "sliceInterval is infinite" : "minIntervalBetweenAudits is infinite";
    }
  }
  return "no region is under audit";
}

Zint::Seconds Patrol::nextTry() const {
  Zint::Seconds next = Zint::never;
  const auto look = [&](const ChipState& state) {
    // One that its driver restores is not tried until that is done.
    if (state.chip->isRestoring() && !isReplayed(state)) return;
    next = std::min(next, state.chip->nextTry());
  };
  for (const auto& state : chips_) look(*state);
  for (const auto& [ham, state] : defaultChips_) look(*state);
  return next;
}

}  // namespace Driver
