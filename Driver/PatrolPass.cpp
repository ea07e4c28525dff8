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
constexpr U32 largestRunLimit = 1u << 30;

// Is true while it lives.
class Inside {
 public:
  explicit Inside(bool& is) : is_(is) { is_ = true; }
  ~Inside() { is_ = false; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  bool& is_;
};

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
  result_ = {};
  result_.start = start;
  missed_ = Zint::String8();
  next_.emplace(request->chipMemoryIterator());
  request_ = request;
  region_ = nullptr;
  ++pass_;
  isInPass_ = true;
  for (const auto& state : chips_) state->hasRead = state->isMissed = false;
  for (const auto& [ham, state] : defaultChips_) state->hasRead = state->isMissed = false;
  done_ = 0;
  checked_ = 0;
  probe_ = nullptr;
  shadow_.passEntriesIs(shadow_.chipMemoryEntriesUnderAudit());
  if (mark.isSuperseded()) return;
  shadow_.lastAuditStartTimeIs(start);
  if (mark.isSuperseded()) return;
  updateState();
}

// Asks the given chips whether they were reset, each once in a pass. False: the turn is over, or
// what was called has changed the audit.
bool Patrol::checkChips(const Zint::Epoch::Mark& mark) {
  while (checked_ < chips_.size()) {
    if (isTurnOver()) return false;
    hasWorked_ = true;
    ChipState& state = *chips_[checked_++];
    const Chip::Ptr chip = state.chip;
    if (chip->isAbsent() || chip->isRestoring()) continue;
    Zint::String8 error;
    bool isReset = false;
    const Zint::Seconds begin = beginAccess();
    const bool isKnown = callGuarded([&] { isReset = isToldReset(chip); }, error);
    noteAccess(begin);
    if (isReset) tellReset(chip);
    if (mark.isSuperseded()) return false;
    if (!isKnown) makeAbsent(state, error);
    if (mark.isSuperseded()) return false;
  }
  return true;
}

void Patrol::dropPass() {
  isInPass_ = false;
  next_.reset();
  probe_ = nullptr;
  const Zint::Ptr<ChipReadRequest> request = std::exchange(request_, nullptr);
  const ChipMemory::Ptr region = std::exchange(region_, nullptr);
}

void Patrol::endPass(const Zint::String8& reason) {
  const Zint::Epoch::Mark mark(commands_);
  const Zint::Seconds end = time();
  isInPass_ = false;
  // They hold regions, whose destructors may call back.
  const std::shared_ptr<Probe> probe = std::exchange(probe_, nullptr);
  std::vector<std::shared_ptr<Survey>> surveys;
  for (const auto& state : chips_) surveys.push_back(std::exchange(state->survey, nullptr));
  for (const auto& [ham, state] : defaultChips_) {
    surveys.push_back(std::exchange(state->survey, nullptr));
  }
  next_.reset();
  const Zint::Ptr<ChipReadRequest> request = std::exchange(request_, nullptr);
  const ChipMemory::Ptr region = std::exchange(region_, nullptr);
  result_.reason = reason.empty() ? missed_ : reason;
  result_.isComplete = result_.reason.empty();
  result_.duration = end - result_.start;
  const PassResult result = result_;
  if (reason.empty()) {
    for (const Chip::Ptr& chip : chips()) {
      ChipState* const state = stateOf(chip);
      if (state == nullptr || state->isMissed || !state->hasRead) continue;
      state->isRestored = false;
      state->probedResets = 0;
      chip->auditsInc();
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
  try {
    turnStart_ = time();
    const Zint::Seconds late = turnStart_ - due_;
    // What throws, for want of memory for instance, does not end the patrol.
    wakeAt(turnStart_ + std::max(shadow_.sliceInterval(), 1.0));
    if (late > longDelay && isRunning()) {
      DRIVER_TRACE(0, "nobody drove the loop for " << late << " s");
    }
  } catch (...) {
    tryAgain();
    throw;
  }
  retryReplays();
  if (!isRunning()) return wakeAt(nextReplayTry());
  const Zint::Epoch::Mark mark(commands_);
  TurnResult turn{.start = turnStart_, .isFirst = !isInPass_};
  repairsOfTurn_ = 0;
  accessTime_ = longestAccess_ = 0;
  isFirstRun_ = true;
  hasWorked_ = false;
  const U64 begin = isInPass_ ? done_ : 0;
  bool hasTried = false;
  {
    const Inside inside(isInTurn_);
    hasTried = retryAbsent();
    if (!mark.isSuperseded() && !isInPass_ && turn.start >= nextPass_) beginPass();
    turn.isFirst = turn.isFirst && isInPass_;
    turn.isOutsidePass = !isInPass_;
    if (!mark.isSuperseded() && isInPass_) turn.isLast = slice(mark);
  }
  turn.duration = time() - turn.start;
  turn.accessTime = accessTime_;
  turn.longestAccess = longestAccess_;
  if (turn.isOutsidePass) {
    if (hasTried) tellTurn(turn);
    if (!mark.isSuperseded() && turn.start < nextPass_) wakeForPass();
    return;
  }
  turn.entries = done_ - begin;
  if (!mark.isSuperseded()) result_.longestTurn = std::max(result_.longestTurn, turn.duration);
  tellTurn(turn);
  if (mark.isSuperseded()) return;
  if (turn.isLast) {
    endPass("");
    if (mark.isSuperseded()) return;
    nextPass_ = result_.start + shadow_.minIntervalBetweenAudits();
    return wakeForPass();
  }
  shadow_.passEntriesDoneIs(std::min(done_, shadow_.passEntries()));
  if (mark.isSuperseded()) return;
  turnEnd_ = time();
  wakeAt(turnEnd_ + shadow_.sliceInterval());
}

// The work of one turn. True: the pass is at its end.
bool Patrol::slice(const Zint::Epoch::Mark& mark) {
  if (!checkChips(mark)) return false;
  if (probe_ != nullptr && goOnProbing(nullptr) != Visit::done) return false;
  if (mark.isSuperseded()) return false;
  bool isFull = false;
  for (U32 budget = shadow_.maxEntriesPerSlice(); budget > 0 && !isFull && !isTurnOver();) {
    if (region_ == nullptr && !nextRegion()) return true;
    U32 done = 0;
    const Visit visited = visit(budget, done);
    hasWorked_ = true;
    if (mark.isSuperseded()) return false;
    // A region that has nothing to read costs a little, too.
    budget -= std::min(budget, std::max(done, U32{1}));
    isFull = visited == Visit::full || visited == Visit::ended;
  }
  return region_ == nullptr && !*next_;
}

// For the next pass, or before that to look whether an absent chip answers. Without any chip that
// answers there is little else to wake for.
void Patrol::wakeForPass() {
  const bool isWaiting = shadow_.patrolState() == PatrolState::suspended ||
                         shadow_.patrolState() == PatrolState::restoring;
  // A region of a chip that answers may come under audit meanwhile.
  wakeAt(std::min(isWaiting ? time() + longestWait : nextPass_, nextTry()));
}

void Patrol::tellTurn(const TurnResult& turn) {
  shadow_.notifyEach<AuditedShadow::NotifieeConst>(
      AuditedShadow::Id::turn,
      [&](AuditedShadow::NotifieeConst& notifiee) { notifiee.onTurn(turn); });
}

U32 Patrol::regionsUnderAudit() const {
  const Zint::Ptr<ChipReadRequest> request = shadow_.auditReadRequest();
  return request == nullptr ? 0 : request->chipMemorys();
}

// --- The bound of a turn -------------------------------------------------------------------------

Zint::Seconds Patrol::timeLeft() const {
  return isBounded() ? shadow_.turnBound() - (time() - turnStart_) : Zint::never;
}

bool Patrol::isTurnOver() const { return hasWorked_ && timeLeft() <= 0; }

// Whether so many accesses of one entry end within one access after the bound. What a turn cannot
// put off, because it began with this entry alone, is done.
bool Patrol::hasTimeFor(const Run& run, U32 accesses) const {
  if (!isBounded() || (isFirstRun_ && run.end - run.first == 1)) return true;
  return run.state.cost.single() * (accesses - 1) <= timeLeft();
}

// How many entries of the chip the next access may read. 0: it would end after the bound.
U32 Patrol::entriesOfAccess(const ChipState& chip) const {
  if (!isBounded()) return ~0u;
  const Zint::Seconds left = timeLeft();
  if (!isFirstRun_ && left < chip.cost.single()) return 0;
  return std::min(runLimit_, chip.cost.entriesWithin(left));
}

void Patrol::endAccess(Run& run, Zint::Seconds begin, U32 accesses) {
  noteAccess(begin, accesses);
  if (isBounded() && !run.isSuperseded()) run.state.cost.add(1, (time() - begin) / accesses);
}

void Patrol::noteAccess(Zint::Seconds begin, U32 accesses) {
  if (!isBounded()) return;
  const Zint::Seconds taken = std::max(time() - begin, 0.0);
  accessTime_ += taken;
  longestAccess_ = std::max(longestAccess_, taken / accesses);
}

// --- Regions -------------------------------------------------------------------------------------

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

void Patrol::goOnBehind(U32 done) {
  entry_ += done;
  done_ += done;
  result_.entries += done;
}

// Prepares the comparison of the next entries under the policy, up to `end` or as far as the turn
// has time for it and for an access. Returns where it ended.
U32 Patrol::prepare(const Policy& policy, U32 end, const ChipState& chip) {
  U32 prepared = policy.doPrepare(entry_, end);
  while (prepared < end && timeLeft() > chip.cost.single()) {
    prepared = policy.doPrepare(prepared, end);
  }
  return prepared;
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
  if (!obstacle.empty() || !isOfPass || !isUnderAudit(*cm) || isReplaced(*cm) ||
      entry_ >= cm->entries()) {
    leaveRegion();
    return Visit::done;
  }
  const Zint::Epoch::Mark mark(commands_);
  ChipState& chip = stateOf(cm);
  if (mark.isSuperseded()) return Visit::ended;
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
  U32 most = entriesOfAccess(chip);
  if (most == 0) return Visit::full;
  U32 end = entry_ + std::min({budget, most, cm->entries() - entry_});
  if (policy != nullptr && isBounded() && AuditedShadow::comparesBytes(*cm->chipHam())) {
    end = prepare(*policy, end, chip);
    most = entriesOfAccess(chip);  // in the time that is left
    if (most == 0) return Visit::full;
    end = entry_ + std::min(most, end - entry_);
  }
  if (policy != nullptr) {
    // What is not read costs no more than a region that has nothing to read.
    if (const U32 readable = firstRead(*policy, entry_, cm->entries()); readable != entry_) {
      done_ += readable - entry_;
      entry_ = readable;
      return Visit::done;
    }
    end = readEnd(*policy, entry_, end);
  }
  const Chip::Ptr held = chip.chip;
  const U64 pass = pass_;
  const U32 first = entry_;
  const Visit visited = audit(cm, first, end, result_, done);
  isFirstRun_ = false;
  if (mark.isSuperseded()) {
    // What was told is behind, whatever has ended the slice: it is not told again.
    if (isInPass_ && pass_ == pass && region_ == cm && entry_ == first) {
      goOnBehind(done);
    }
    return Visit::ended;
  }
  const U32 read = end - first;
  if (isBounded()) {
    // What a turn had to leave is read again: the next accesses read less.
    const U32 limit = std::min(runLimit_, largestRunLimit);
    runLimit_ = visited == Visit::full ? std::max(done / 2, U32{1}) : 2 * limit;
  }
  goOnBehind(done);
  if (visited == Visit::isVoid) {
    done = read;  // for the turn: what failed may have taken longest
    // Its other regions are passed over until the next try.
    if (ChipState* state = stateOf(held); state != nullptr) state->isMissed = true;
    if (missed_.empty()) missed_ = held->name() + " is absent: " + held->reason();
    leaveRegion();
  } else if (entry_ >= cm->entries()) {
    leaveRegion();
  }
  return visited;
}

}  // namespace Driver
