// A chip that has lost its state is written again before its audit goes on.
#include <Driver/ChipWriteRequest.h>
#include <Driver/ChipWriter.h>
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolReplay.h>
#include <Driver/PatrolRun.h>
#include <algorithm>

namespace Driver {

using Hardware::ChipMemory;

namespace {

constexpr U32 entriesPerReplayAccess = 64;

}  // namespace

// Of all its registered regions, by address, where the driver gave no other order.
ChipWriteRequest::Ptr Patrol::replayRequest(const Chip& chip) const {
  if (chip.replay() != nullptr) return chip.replay();
  const ChipWriteRequest::Ptr request = chipWriteRequestFactory(chip.name() + " replay");
  for (auto reactor = shadow_.chipMemoryIterator(); reactor; ++reactor) {
    const ChipMemory::Ptr region = reactor->chipMemory();
    if (findChip(*region).ptr() == &chip) request->chipMemoryIs(region);
  }
  return request;
}

// Begins the replay where there is none.
void Patrol::restore(const Chip::Ptr& chip) {
  const Zint::Ptr<const Zint::Clock> clock = shadow_.clock();
  if (chip->isRestoring() && chip->restoresItself() && clock != nullptr) {
    const ChipWriteRequest::Ptr request = replayRequest(*chip);
    const ChipWriter::Ptr writer = chipWriterFactory(
        shadow_.zintFwkActivity(), AuditedShadow::Ptr(&shadow_), request, clock,
        entriesPerReplayAccess, shadow_.maxEntriesPerReplaySlice(), shadow_.replayInterval());
    const auto replay = Zint::makePtr<Replay>(*this, chip, request, writer);
    ChipState* const state = stateOf(chip);
    if (state == nullptr || state->replay != nullptr) return replay->forget();
    state->replay = replay;
    request->stateIs(Zint::Request::start_);
  }
  updateState();
}

void Patrol::dropReplay(ChipState& state) {
  const Zint::Ptr<Replay> replay = std::exchange(state.replay, nullptr);
  if (replay != nullptr) replay->forget();
}

// A replay that fails is tried again when the chip is.
void Patrol::handleReplay(Replay& ended) {
  const Zint::Ptr<Replay> replay(&ended);
  const Chip::Ptr chip = replay->chip();
  ChipState* const state = stateOf(chip);
  if (state == nullptr || state->replay != replay) return;
  wakeAt(0.0);  // what throws here is done by the next turn
  if (replay->request()->status() == Zint::Request::done_) {
    if (chip->isAbsent()) chip->absentIs(false, "", time());
    chip->doRestored();
  } else if (replay->writer()->isInterrupted()) {
    if (shadow_.overrideHardware()) {
      replay->isHaltedIs(true);  // the chip may answer as ever
    } else {
      makeAbsent(*state, replay->writer()->reason());
    }
    updateState();
  }
}

// Whether its replay is under way, or begins when the chip has been asked.
bool Patrol::isReplayed(const ChipState& state) const {
  return state.replay != nullptr ||
         (state.isResetTold && state.chip->isRestoring() && state.chip->restoresItself());
}

// When a replay waits for its chip to answer; `never` where none does.
Zint::Seconds Patrol::nextReplayTry() const {
  Zint::Seconds next = Zint::never;
  if (shadow_.overrideHardware()) return next;
  const auto look = [&](const ChipState& state) {
    if (isReplayed(state)) next = std::min(next, state.chip->nextTry());
  };
  for (const auto& state : chips_) look(*state);
  for (const auto& [ham, state] : defaultChips_) look(*state);
  return next;
}

// Begins the replays that have not begun, and goes on with those whose chips may answer again. None
// of them writes, or asks a chip, while overrideHardware is set.
void Patrol::retryReplays() {
  if (!isAnyRestoring() || shadow_.overrideHardware()) return;
  for (const Chip::Ptr& chip : chips()) {
    ChipState* const state = stateOf(chip);
    if (state == nullptr || !chip->isRestoring()) continue;
    const Zint::Ptr<Replay> replay = state->replay;
    if (replay == nullptr && !isReplayed(*state)) {
      restore(chip);
    } else if (replay != nullptr && replay->isHalted()) {
      replay->isHaltedIs(false);
      replay->writer()->doResume();
    } else if (replay != nullptr && !chip->isAbsent() && !replay->isUnderWay()) {
      handleReplay(*replay);
    } else if (chip->isAbsent() ? time() >= chip->nextTry() : replay == nullptr) {
      tryReplay(chip);
    }
  }
}

// Begins the replay, or goes on with it, where the chip answers. One that was reset meanwhile gets
// another one.
void Patrol::tryReplay(const Chip::Ptr& chip) {
  const Zint::Ptr<Replay> replay = stateOf(chip)->replay;
  Zint::String8 error = "its sentinel register is wrong";
  bool isPresent = false, isReset = false;
  const bool isAnswered = callGuarded(
      [&] {
        isPresent = chip->isPresent();
        if (isPresent) isReset = isToldReset(chip);
      },
      error);
  ChipState* const state = stateOf(chip);
  if (state == nullptr) return;
  if (state->replay != replay || !chip->isRestoring()) {
    // All of it is to be written again, unless that has begun meanwhile.
    if (isReset && state->replay == nullptr) tellReset(chip);
    return;
  }
  if (!isAnswered || !isPresent) return makeAbsent(*state, error);
  if (chip->isAbsent()) chip->absentIs(false, "", time());
  if (isReset) return tellReset(chip);
  if (replay == nullptr) return restore(chip);
  replay->writer()->doResume();
}

// The replays under way go on with the shadow's new clock.
void Patrol::giveReplaysTheClock() {
  const Zint::Ptr<const Zint::Clock> clock = shadow_.clock();
  for (const Chip::Ptr& chip : chips()) {
    const ChipState* const state = stateOf(chip);
    if (state == nullptr || state->replay == nullptr) continue;
    const Zint::Ptr<Replay> replay = state->replay;
    replay->writer()->clockIs(clock);
    if (shadow_.clock() != clock) return;  // whoever replaced it has done it
  }
}

// Whether a replay will write the region while its chip is being restored: the one under way, whose
// `writer` is told, or, where that is null, one that is still to begin.
bool Patrol::findReplay(const ChipMemory::Ptr& cm, ChipWriter::Ptr& writer) const {
  const Chip::Ptr chip = findChip(*cm);
  const ChipState* const state = chip == nullptr ? nullptr : stateOf(chip);
  if (state == nullptr || !chip->isRestoring() || !chip->restoresItself()) return false;
  if (shadow_.clock() == nullptr) return false;
  const ChipWriteRequest::Ptr request = chip->replay();
  if (request != nullptr && !request->holds(cm)) return false;
  if (state->replay == nullptr) {
    return request != nullptr || shadow_.chipMemory(cm->address()) == cm;
  }
  writer = state->replay->writer();
  return writer->takesHeldWrites(cm);
}

}  // namespace Driver
