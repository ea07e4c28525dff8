// The patrol's reactions to changes, and what it knows of regions and chips.
#include <Driver/Patrol.h>

#include <Driver/PatrolReplay.h>
#include <Driver/PatrolRun.h>

#include <Driver/Driver.h>
#include <algorithm>
#include <utility>

namespace Driver {

using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// Observes the shadow from inside; does not keep it alive.
class Patrol::SelfWatch : public HardwareShadow::NotifieeConst {
 public:
  SelfWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol)
      : NotifieeConst(activity, HardwareShadow::Ptr(&patrol.shadow_)), patrol_(&patrol) {
    isNonReferencingIs(true);
    // Nothing else: what the patrol tells costs nothing while nobody listens.
    Zint::Interest interest = 0;
    for (const Zint::AttributeId id : std::initializer_list<Zint::AttributeId>{
             HardwareShadow::Id::state, HardwareShadow::Id::overrideHardware,
             HardwareShadow::Id::clock, HardwareShadow::Id::minIntervalBetweenAudits,
             HardwareShadow::Id::chipMemory, AuditedShadow::Id::sliceInterval}) {
      interest |= Zint::interestIn(id);
    }
    interestIs(interest);
  }
  void handleNotification(Zint::ActivityConfig*) override {
    if (patrol_ != nullptr) patrol_->handleAttribute(attribute());
  }
  void onChipMemory(const Hardware::ChipAddress& address) override {
    if (patrol_ != nullptr) patrol_->handleRegion(address);
  }
  void forget() { patrol_ = nullptr; }

 private:
  Patrol* patrol_;
};

class Patrol::ChipWatch : public Chip::NotifieeConst {
 public:
  ChipWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol, const Chip::Ptr& chip)
      : NotifieeConst(activity, chip), patrol_(&patrol) {}
  void onResets() override {
    if (patrol_ != nullptr) patrol_->handleReset(Chip::Ptr(const_cast<Chip*>(notifier())));
  }
  void onRestoring() override {
    if (patrol_ == nullptr || notifier()->isRestoring()) return;
    patrol_->handleRestored(Chip::Ptr(const_cast<Chip*>(notifier())));
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

// A store was made anew: the last of its three buffers is there.
class Patrol::StoreWatch : public ChipMemory::NotifieeConst {
 public:
  StoreWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol,
             const ChipMemory::Ptr& region)
      : NotifieeConst(activity, region), patrol_(&patrol) {
    isNonReferencingIs(true);
    interestIs(Zint::interestIn(ChipMemory::Id::initialized));
  }
  void handleNotification(Zint::ActivityConfig*) override {
    if (patrol_ == nullptr || notifier() == nullptr) return;
    const auto marks = patrol_->marks_.find(notifier());
    if (marks != patrol_->marks_.end()) patrol_->applyUnwritten(*marks->second);
    patrol_->handleKnown();
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

// What an entry is before anybody wrote it has changed, or whether it is compared.
class Patrol::PolicyWatch : public Policy::NotifieeConst {
 public:
  PolicyWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, Patrol& patrol,
              const Policy::Ptr& policy)
      : NotifieeConst(activity, policy), patrol_(&patrol) {
    isNonReferencingIs(true);
    interestIs(Zint::interestIn(Policy::Id::unwritten) | Zint::interestIn(Policy::Id::resetValue) |
               Zint::interestIn(Policy::Id::rule));
  }
  void handleNotification(Zint::ActivityConfig*) override {
    if (patrol_ == nullptr || notifier() == nullptr) return;
    const auto marks = patrol_->marks_.find(notifier()->chipMemory().ptr());
    if (marks != patrol_->marks_.end()) patrol_->applyUnwritten(*marks->second);
    patrol_->handleKnown();
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

class Patrol::SliceClock : public Zint::Clock::NotifieeConst {
 public:
  SliceClock(const Zint::Ptr<Zint::ActivityConfig>& activity,
             const Zint::Ptr<const Zint::Clock>& clock, Patrol& patrol)
      : NotifieeConst(activity, clock, patrol.shadow_.hasNotificationActive()), patrol_(&patrol) {}
  void onTime() override {
    if (patrol_ == nullptr) return;
    const AuditedShadow::Ptr shadow(&patrol_->shadow_);
    patrol_->doSlice();
  }
  void forget() {
    patrol_ = nullptr;
    timeMinIs(Zint::never);
    isRegisteredNotifieeIs(false);
  }

 private:
  Patrol* patrol_;
};

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

// A region was registered, or its place is free.
void Patrol::handleRegion(const Hardware::ChipAddress& address) {
  const ChipMemory::Ptr there = shadow_.chipMemory(address);
  std::vector<std::unique_ptr<RegionMarks>> dropped;  // their regions' destructors may call back
  const auto marksThere = marksAt_.equal_range(address.value());
  for (auto at = marksThere.first; at != marksThere.second;) {
    const auto marks = marks_.find(at->second);
    if (marks->second->region != there && marks->second->policy == nullptr) {
      dropped.push_back(std::move(marks->second));
      marks_.erase(marks);
      at = marksAt_.erase(at);
    } else {
      ++at;
    }
  }
  forget(dropped);
}

// So that no slice has to rehash them.
void Patrol::reserveMarks() {
  marks_.reserve(regionsUnderAudit());
  marksAt_.reserve(regionsUnderAudit());
}

// Bulk removals are not notified of.
void Patrol::dropRemoved() {
  std::vector<std::unique_ptr<RegionMarks>> dropped;
  for (auto at = marksAt_.begin(); at != marksAt_.end();) {
    const auto marks = marks_.find(at->second);
    const ChipMemory::Ptr& region = marks->second->region;
    if (marks->second->policy == nullptr && shadow_.chipMemory(region->address()) != region) {
      dropped.push_back(std::move(marks->second));
      marks_.erase(marks);
      at = marksAt_.erase(at);
    } else {
      ++at;
    }
  }
  forget(dropped);
}

void Patrol::forget(std::vector<std::unique_ptr<RegionMarks>>& dropped) {
  U32 quarantined = 0;
  for (const std::unique_ptr<RegionMarks>& marks : dropped) {
    for (const auto& [entry, history] : marks->repairs) {
      --histories_;
      quarantined += history.isQuarantined ? 1 : 0;
    }
  }
  if (quarantined != 0) shadow_.quarantinedIs(shadow_.quarantined() - quarantined);
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
  if (ChipState* state = stateOf(chip); state != nullptr) {
    state->isMissed = true;
    dropReplay(*state);
  }
  // The pass is void, but goes on for the other chips: one that is reset again and again does not
  // keep the patrol from them.
  if (isInPass_ && missed_.empty()) missed_ = chip->name() + " was reset";
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
  for (const auto& state : chips_) {
    if (state->chip->isRestoring()) return state->chip->name() + " is being restored";
  }
  for (const auto& [ham, state] : defaultChips_) {
    if (state->chip->isRestoring()) return state->chip->name() + " is being restored";
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
      if (isUnderAudit(*member->chipMemory())) return "";
    }
  }
  return "no region is under audit";
}

Zint::Seconds Patrol::nextTry() const {
  Zint::Seconds next = Zint::never;
  const auto look = [&next](const ChipState& state) {
    // One that its driver restores is not tried until that is done.
    if (state.chip->isRestoring() && state.replay == nullptr) return;
    next = std::min(next, state.chip->nextTry());
  };
  for (const auto& state : chips_) look(*state);
  for (const auto& [ham, state] : defaultChips_) look(*state);
  return next;
}

// --- Regions -------------------------------------------------------------------------------------

const RegionMarks* Patrol::marks(const ChipMemory* region) const {
  const auto found = marks_.find(region);
  return found == marks_.end() ? nullptr : found->second.get();
}

RegionMarks& Patrol::marksOf(const ChipMemory::Ptr& region) {
  std::unique_ptr<RegionMarks>& marks = marks_[region.ptr()];
  if (marks == nullptr) {
    try {
      auto made = std::make_unique<RegionMarks>();
      made->region = region;
      marksAt_.emplace(region->address().value(), region.ptr());
      marks = std::move(made);
    } catch (...) {
      marks_.erase(region.ptr());
      throw;
    }
  }
  if (marks->store != region->dirty()) {
    marks->store = region->dirty();
    marks->written.clear();
    marks->assumed.clear();
    marks->open.clear();
  }
  return *marks;
}

void Patrol::policyIs(const ChipMemory::Ptr& region, const Policy::Ptr& policy) {
  const AuditedShadow::Ptr self(&shadow_);
  commands_.advance();
  RegionMarks& marks = marksOf(region);
  const Policy::Ptr old = std::exchange(marks.policy, policy);
  const Zint::Ptr<Zint::NotifieeConst> watch = std::exchange(marks.watch, nullptr);
  const Zint::Ptr<Zint::NotifieeConst> policyWatch = std::exchange(marks.policyWatch, nullptr);
  if (watch != nullptr) static_cast<StoreWatch&>(*watch).forget();
  if (policyWatch != nullptr) static_cast<PolicyWatch&>(*policyWatch).forget();
  if (old != nullptr && old != policy) old->isInForceIs(false);
  if (policy != nullptr) {
    marks.watch = Zint::makePtr<StoreWatch>(shadow_.zintFwkActivity(), *this, region);
    marks.policyWatch = Zint::makePtr<PolicyWatch>(shadow_.zintFwkActivity(), *this, policy);
    applyUnwritten(marks);
    policy->isInForceIs(true);
  }
  resume();
}

// Gives entries that nobody wrote the value that the policy says they have.
void Patrol::applyUnwritten(RegionMarks& marks) {
  if (marks.policy == nullptr) return;
  const ChipMemory& region = *marks.region;
  marksOf(marks.region);  // forgets what belongs to an old store
  const Unwritten unwritten = marks.policy->unwritten();
  const bool isAssumed = unwritten == Unwritten::zero || unwritten == Unwritten::defaults;
  if (!isAssumed && marks.assumed.size() == 0) return;
  const Hal::BufBase::Ptr shadow = region.shadow();
  if (shadow == nullptr || region.initialized() == nullptr || region.entrySize() == 0) return;
  const U32 stored = std::min(region.entries(), shadow->size() / region.entrySize());
  const U32 entries =
      static_cast<U32>(std::min(U64{stored}, U64{region.initialized()->size()} * 8));
  for (U32 e = 0; e < entries; ++e) {
    if (marks.assumed.at(e)) {
      marks.assumed.atIs(e, false);
      if (isWritten(region, e)) continue;
      std::fill_n(shadow->data() + std::size_t{e} * region.entrySize(), region.entrySize(), U8{0});
      marks.region->entryInitializedDel(e);
    }
    if (!isAssumed || region.entryInitialized(e) || !isCompared(marks.policy->rule(e))) continue;
    marks.assumed.atIs(e, true);
    if (unwritten == Unwritten::defaults) {
      if (const U8* value = marks.policy->resetValue(e); value != nullptr) {
        std::copy_n(value, region.entrySize(),
                    shadow->data() + std::size_t{e} * region.entrySize());
      }
    }
    marks.region->entryInitializedIs(e);
  }
}

bool Patrol::isWritten(const ChipMemory& region, U32 entry) const {
  const Hal::BufBase::Ptr dirty = region.dirty();
  if (dirty == nullptr) return false;
  if (U64{dirty->size()} * 8 > entry && (dirty->data()[entry >> 3] >> (entry & 7) & 1) != 0) {
    return true;
  }
  const RegionMarks* marks = this->marks(&region);
  return marks != nullptr && marks->store == dirty && marks->written.at(entry);
}

void Patrol::quarantineDel(const ChipMemory::Ptr& region, U32 entry) {
  const auto marks = marks_.find(region.ptr());
  if (marks == marks_.end()) return;
  const auto history = marks->second->repairs.find(entry);
  if (history == marks->second->repairs.end()) return;
  const bool isLifted = history->second.isQuarantined;
  marks->second->repairs.erase(history);
  --histories_;
  if (isLifted) shadow_.quarantinedIs(shadow_.quarantined() - 1);
}

Zint::String8 Patrol::policyText(const ChipMemory::Ptr& region, U32 entry) const {
  const auto text = [&](const char* what) { return region->name() + ": " + what; };
  if (entry >= region->entries()) return text("no such entry");
  if (shadow_.chipMemory(region->address()) != region) return text("not registered");
  if (!region->shadowEnabled()) return text("not audited: shadowEnabled is off");
  if (region->mode() == ChipMemory::override()) return text("not audited: mode override");
  if (!region->auditEnabled()) return text("not audited: auditEnabled is off");
  const RegionMarks* marks = this->marks(region.ptr());
  Zint::String8 answer = marks == nullptr || marks->policy == nullptr
                             ? Zint::String8("repaired (no policy)")
                             : marks->policy->text(entry);
  if (region->mode() == ChipMemory::buffered()) answer += "; deferred: mode buffered";
  if (marks != nullptr) {
    const auto history = marks->repairs.find(entry);
    if (history != marks->repairs.end() && history->second.isQuarantined) {
      answer += "; in quarantine";
    }
  }
  if (shadow_.state() != HardwareShadow::auditing()) {
    answer += "; the shadow is " + stringValue(shadow_.state()).bytes();
  }
  return answer;
}

// --- Chips ---------------------------------------------------------------------------------------

Patrol::ChipState* Patrol::findState(const ChipMemory& region) const {
  for (std::size_t i = chips_.size(); i-- > 0;) {
    if (i >= chips_.size()) continue;  // holds() may take chips away
    const Chip::Ptr chip = chips_[i]->chip;
    if (!chip->holds(region)) continue;
    if (ChipState* state = stateOf(chip); state != nullptr) return state;
  }
  const auto found = defaultChips_.find(region.chipHam().ptr());
  return found == defaultChips_.end() ? nullptr : found->second.get();
}

Patrol::ChipState& Patrol::stateOf(const ChipMemory::Ptr& region) {
  if (ChipState* state = findState(*region); state != nullptr) return *state;
  const Hardware::ChipHam::Ptr& ham = region->chipHam();
  auto state = std::make_unique<ChipState>();
  state->chip = chipFactory(ham == nullptr ? Zint::Name("chip") : ham->name(), ham);
  state->watch = Zint::makePtr<ChipWatch>(shadow_.zintFwkActivity(), *this, state->chip);
  return *(defaultChips_[ham.ptr()] = std::move(state));
}

Patrol::ChipState* Patrol::stateOf(const Chip::Ptr& chip) const {
  for (const auto& state : chips_) {
    if (state->chip == chip) return state.get();
  }
  const auto made = defaultChips_.find(chip->chipHam().ptr());
  return made != defaultChips_.end() && made->second->chip == chip ? made->second.get() : nullptr;
}

Chip::Ptr Patrol::findChip(const ChipMemory& region) const {
  const ChipState* state = findState(region);
  return state == nullptr ? nullptr : state->chip;
}

Chip::Ptr Patrol::makeChip(const ChipMemory::Ptr& region) { return stateOf(region).chip; }

std::vector<Chip::Ptr> Patrol::chips() const {
  std::vector<Chip::Ptr> chips;
  for (const auto& state : chips_) chips.push_back(state->chip);
  for (const auto& [ham, state] : defaultChips_) chips.push_back(state->chip);
  return chips;
}

void Patrol::chipIs(const Chip::Ptr& chip) {
  for (const auto& state : chips_) {
    if (state->chip == chip) return;
  }
  auto state = std::make_unique<ChipState>();
  state->chip = chip;
  state->watch = Zint::makePtr<ChipWatch>(shadow_.zintFwkActivity(), *this, chip);
  commands_.advance();
  chips_.push_back(std::move(state));
  resume();
}

void Patrol::chipDel(const Chip::Ptr& chip) {
  const auto found = std::find_if(chips_.begin(), chips_.end(),
                                  [&](const auto& state) { return state->chip == chip; });
  if (found == chips_.end()) return;
  const std::unique_ptr<ChipState> state = std::move(*found);
  if (static_cast<std::size_t>(found - chips_.begin()) < checked_) --checked_;
  chips_.erase(found);
  commands_.advance();
  state->watch->forget();
  dropReplay(*state);
  resume();
}

}  // namespace Driver
