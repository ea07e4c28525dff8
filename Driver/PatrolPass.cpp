// The patrol's passes and slices: which entries are read next, and what ends a turn.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <algorithm>

namespace Driver {

using Hardware::ChipMemory;
using Hardware::ChipReadRequest;

namespace {

// A turn that is late by more than this many seconds is worth a line.
constexpr Zint::Seconds longDelay = 1;

// Seconds after which the patrol looks again though no chip is due.
constexpr Zint::Seconds longestWait = 60;

}  // namespace

// --- Passes --------------------------------------------------------------------------------------

// A notifiee that ends the pass re-entrantly wins.
void Patrol::beginPass() {
  const Zint::Ptr<ChipReadRequest> request = shadow_.auditReadRequest();
  if (request == nullptr || request->chipMemorys() == 0) return;
  const Zint::Epoch::Mark mark(commands_);
  const Zint::Seconds start = time();
  if (pass_ != 0) shadow_.passPeriodIs(start - result_.start);
  ++pass_;
  isInPass_ = true;
  result_ = {};
  result_.start = start;
  missed_ = Zint::String8();
  request_ = request;
  next_.emplace(request->chipMemoryIterator());
  region_ = nullptr;
  for (const auto& state : chips_) state->hasRead = state->isMissed = false;
  for (const auto& [ham, state] : defaultChips_) state->hasRead = state->isMissed = false;
  done_ = 0;
  shadow_.passEntriesIs(shadow_.chipMemoryEntriesUnderAudit());
  if (mark.isSuperseded()) return;
  shadow_.lastAuditStartTimeIs(start);
  if (mark.isSuperseded()) return;
  updateState();
  for (std::size_t i = 0; i < chips_.size() && !mark.isSuperseded(); ++i) {
    const Chip::Ptr chip = chips_[i]->chip;
    if (chip->isAbsent() || chip->isRestoring()) continue;
    Zint::String8 error;
    bool isReset = false;
    if (!callGuarded([&] { isReset = chip->wasReset(); }, error)) {
      if (!mark.isSuperseded()) makeAbsent(*chips_[i], error);
    } else if (isReset) {
      chip->doChipReset();
    }
  }
}

void Patrol::endPass(const Zint::String8& reason) {
  const Zint::Epoch::Mark mark(commands_);
  const Zint::Seconds end = time();
  isInPass_ = false;
  next_.reset();
  const Zint::Ptr<ChipReadRequest> request = std::exchange(request_, nullptr);
  const ChipMemory::Ptr region = std::exchange(region_, nullptr);
  result_.reason = reason.empty() ? missed_ : reason;
  result_.isComplete = result_.reason.empty();
  result_.duration = end - result_.start;
  const PassResult result = result_;
  if (reason.empty()) {
    for (const Chip::Ptr& chip : chips()) {
      const ChipState* state = stateOf(chip);
      if (state != nullptr && !state->isMissed && state->hasRead) chip->auditsInc();
    }
  }
  if (result.isComplete) {
    shadow_.passEntriesDoneIs(shadow_.passEntries());
    shadow_.lastPassTimeIs(end);
    shadow_.auditsIs(shadow_.audits() + 1);
  }
  shadow_.notifyEach<AuditedShadow::NotifieeConst>(
      AuditedShadow::Id::pass,
      [&](AuditedShadow::NotifieeConst& notifiee) { notifiee.onPass(result); });
  if (!mark.isSuperseded()) updateState();
}

// --- One turn ------------------------------------------------------------------------------------

void Patrol::doSlice() {
  const AuditedShadow::Ptr self(&shadow_);
  retryReplays();
  if (!isRunning()) return wakeAt(nextReplayTry());
  const Zint::Epoch::Mark mark(commands_);
  turnStart_ = time();
  repairsOfTurn_ = 0;
  const Zint::Seconds late = turnStart_ - due_;
  if (late > longDelay) DRIVER_TRACE(0, "nobody drove the loop for " << late << " s");
  // What throws, for want of memory for instance, does not end the patrol.
  wakeAt(turnStart_ + std::max(shadow_.sliceInterval(), 1.0));
  retryAbsent();
  if (mark.isSuperseded()) return;
  if (!isInPass_) {
    if (turnStart_ < nextPass_) return wakeForPass();
    beginPass();
    if (mark.isSuperseded() || !isInPass_) return;
  }
  bool isFull = false;
  for (U32 budget = shadow_.maxEntriesPerSlice(); budget > 0 && !isFull && !isTurnOver();) {
    if (region_ == nullptr && !nextRegion()) {
      result_.longestTurn = std::max(result_.longestTurn, time() - turnStart_);
      endPass("");
      if (mark.isSuperseded()) return;
      nextPass_ = result_.start + shadow_.minIntervalBetweenAudits();
      return wakeForPass();
    }
    U32 done = 0;
    const Visit visited = visit(budget, done);
    if (mark.isSuperseded()) return;
    // A region that has nothing to read costs a little, too.
    budget -= std::min(budget, std::max(done, U32{1}));
    isFull = visited == Visit::full || visited == Visit::ended;
  }
  result_.longestTurn = std::max(result_.longestTurn, time() - turnStart_);
  shadow_.passEntriesDoneIs(std::min(done_, shadow_.passEntries()));
  if (!mark.isSuperseded()) wakeAt(time() + shadow_.sliceInterval());
}

// For the next pass, or before that to look whether an absent chip answers. Without any chip that
// answers there is little else to wake for.
void Patrol::wakeForPass() {
  const bool isWaiting = shadow_.patrolState() == PatrolState::suspended ||
                         shadow_.patrolState() == PatrolState::restoring;
  // A region of a chip that answers may come under audit meanwhile.
  wakeAt(std::min(isWaiting ? time() + longestWait : nextPass_, nextTry()));
}

bool Patrol::isTurnOver() const {
  return shadow_.turnBound() != Zint::never && time() - turnStart_ >= shadow_.turnBound();
}

bool Patrol::nextRegion() {
  if (!*next_) return false;
  region_ = (*next_)->chipMemory();
  ++*next_;
  entry_ = 0;
  return true;
}

void Patrol::leaveRegion() {
  done_ += region_->entries() - std::min(entry_, region_->entries());
  region_ = nullptr;
}

// Reads and judges the next entries of the region, at most `budget`. `done` of them are behind, or
// were read in vain.
Patrol::Visit Patrol::visit(U32 budget, U32& done) {
  const ChipMemory::Ptr cm = region_;
  const Zint::String8 obstacle = whyNotAuditable(*cm);
  if (!obstacle.empty() && missed_.empty()) missed_ = obstacle;
  const RegionMarks* marks = this->marks(cm.ptr());
  const Policy::Ptr policy = marks == nullptr ? nullptr : marks->policy;
  const bool isOfPass = policy == nullptr || pass_ % policy->auditEvery() == 0;
  if (!obstacle.empty() || !isOfPass || !isUnderAudit(*cm) || entry_ >= cm->entries()) {
    leaveRegion();
    return Visit::done;
  }
  ChipState& chip = stateOf(cm);
  const bool isAway = chip.chip->isAbsent() && time() < chip.chip->nextTry();
  if (isAway || chip.chip->isRestoring()) {
    chip.isMissed = true;
    if (missed_.empty()) {
      missed_ = chip.chip->name() + (isAway ? " is absent: " + chip.chip->reason()
                                            : Zint::String8(" is being restored"));
    }
    leaveRegion();
    return Visit::done;
  }
  U32 end = entry_ + std::min(budget, cm->entries() - entry_);
  if (policy != nullptr) {
    if (const U32 readable = firstRead(*policy, entry_, end); readable != entry_) {
      done = readable - entry_;
      entry_ = readable;
      done_ += done;
      return Visit::done;
    }
    end = readEnd(*policy, entry_, end);
  }
  const Zint::Epoch::Mark mark(commands_);
  const Visit visited = audit(cm, entry_, end, result_, done);
  if (mark.isSuperseded()) return Visit::ended;
  const U32 read = end - entry_;
  entry_ += done;
  done_ += done;
  if (visited == Visit::isVoid) {
    done = read;  // for the turn: what failed may have taken longest
    // Its other regions are passed over until the next try.
    if (ChipState* state = findState(*cm); state != nullptr) state->isMissed = true;
    if (missed_.empty()) missed_ = chip.chip->name() + " is absent: " + chip.chip->reason();
    leaveRegion();
  } else if (entry_ >= cm->entries()) {
    leaveRegion();
  }
  return visited;
}

// --- On demand -----------------------------------------------------------------------------------

// Not part of a pass: a chip that does not answer ends it, and nobody asks whether it was reset.
PassResult Patrol::doAudit(const ChipMemory::Ptr& region, U32 first, U32 count) {
  const ChipMemory::Ptr cm = region;
  if (shadow_.state() != Hardware::HardwareShadow::idle() &&
      shadow_.state() != Hardware::HardwareShadow::auditing()) {
    Zint::throwRangeException("doAudit needs a shadow that is idle or auditing");
  }
  if (U64{first} + count > cm->entries()) {
    Zint::throwRangeException("doAudit: entries beyond those of " + cm->name());
  }
  if (!cm->shadowStoreNeeded()) Zint::throwRangeException(cm->name() + " has no shadow store");
  if (const Zint::String8 obstacle = whyNotHeld(*cm); !obstacle.empty()) {
    Zint::throwRangeException(obstacle);
  }
  const Zint::Epoch::Mark mark(commands_);
  PassResult result;
  result.start = time();
  const Chip::Ptr chip = stateOf(cm).chip;
  if (chip->isRestoring()) {
    result.reason = chip->name() + " is being restored";
    return result;
  }
  const Zint::Seconds outer = std::exchange(turnStart_, Zint::never);  // no bound of time
  const U32 outerRepairs = std::exchange(repairsOfTurn_, 0);
  const RegionMarks* marks = this->marks(cm.ptr());
  const Policy::Ptr policy = marks == nullptr ? nullptr : marks->policy;
  Visit visited = Visit::done;
  for (U32 entry = first; entry < first + count && visited == Visit::done;) {
    U32 end = entry + std::min(first + count - entry, shadow_.maxEntriesPerSlice());
    if (policy != nullptr) {
      entry = firstRead(*policy, entry, end);
      if (entry == end) continue;
      end = readEnd(*policy, entry, end);
    }
    U32 judged = 0;
    visited = audit(cm, entry, end, result, judged);
    if (mark.isSuperseded()) visited = Visit::ended;
    entry += judged;
  }
  turnStart_ = outer;
  repairsOfTurn_ = outerRepairs;
  result.isComplete = visited == Visit::done;
  if (visited == Visit::full) result.reason = "maxRepairsPerTurn is reached";
  if (visited == Visit::isVoid) {
    result.reason = chip->name() + " is absent: " + chip->reason();
  }
  if (visited == Visit::ended) result.reason = "a notifiee or an access has changed the audit";
  result.duration = result.longestTurn = time() - result.start;
  return result;
}

// --- Chips ---------------------------------------------------------------------------------------

void Patrol::makeAbsent(ChipState& state, const Zint::String8& reason) {
  state.hasRead = state.isAlive = false;
  state.isMissed = true;
  const Chip::Ptr chip = state.chip;
  chip->absentIs(true, reason, time());
}

// Throws where the chip does not answer. Nothing is read where no entry of it may be.
void Patrol::readAnyEntry(const Chip& chip) const {
  const Zint::Ptr<ChipReadRequest> request = shadow_.auditReadRequest();
  if (request == nullptr) return;
  for (auto member = request->chipMemoryIterator(); member; ++member) {
    const ChipMemory::Ptr cm = member->chipMemory();
    if (findChip(*cm).ptr() != &chip || !isUnderAudit(*cm) || !whyNotHeld(*cm).empty()) continue;
    const RegionMarks* marks = this->marks(cm.ptr());
    const U32 entry = marks == nullptr || marks->policy == nullptr
                          ? 0
                          : firstRead(*marks->policy, 0, cm->entries());
    if (entry >= cm->entries()) continue;
    std::vector<U8> value(cm->entrySize());
    return cm->chipHam()->doRead(cm->entryAddress(entry), value.data(), cm->entrySize(), 1);
  }
}

// Looks whether the absent chips whose time has come answer again. Those that are being restored
// are tried by their replay.
void Patrol::retryAbsent() {
  const Zint::Seconds now = time();
  bool isAnyTried = false;
  for (const Chip::Ptr& chip : chips()) {
    if (!chip->isAbsent() || chip->isRestoring() || now < chip->nextTry()) continue;
    isAnyTried = true;
    Zint::String8 error = "its sentinel register is wrong";
    bool isPresent = false, isReset = false;
    const bool isAnswered = callGuarded(
        [&] {
          readAnyEntry(*chip);
          isPresent = chip->isPresent();
          if (isPresent) isReset = chip->wasReset();
        },
        error);
    ChipState* const state = stateOf(chip);
    if (state == nullptr) continue;
    if (!isAnswered || !isPresent) {
      makeAbsent(*state, error);
      continue;
    }
    state->isAlive = true;
    chip->absentIs(false, "", now);
    if (isReset) chip->doChipReset();
  }
  if (isAnyTried) updateState();
}

}  // namespace Driver
