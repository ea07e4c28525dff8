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
    makeAbsent(*state, replay->writer()->reason());
    updateState();
  }
}

// When a replay waits for its chip to answer; `never` where none does.
Zint::Seconds Patrol::nextReplayTry() const {
  Zint::Seconds next = Zint::never;
  const auto look = [&next](const ChipState& state) {
    if (state.replay != nullptr) next = std::min(next, state.chip->nextTry());
  };
  for (const auto& state : chips_) look(*state);
  for (const auto& [ham, state] : defaultChips_) look(*state);
  return next;
}

// Begins the replays that have not begun, and goes on with those whose chips may answer again.
void Patrol::retryReplays() {
  if (!isAnyRestoring()) return;
  const Zint::Seconds now = time();
  for (const Chip::Ptr& chip : chips()) {
    ChipState* const state = stateOf(chip);
    if (state == nullptr || !chip->isRestoring()) continue;
    if (state->replay == nullptr) {
      restore(chip);
      continue;
    }
    const Zint::Ptr<Replay> replay = state->replay;
    if (!chip->isAbsent() && !replay->isUnderWay()) {
      handleReplay(*replay);
      continue;
    }
    if (!chip->isAbsent() || now < chip->nextTry()) continue;
    Zint::String8 error = "its sentinel register is wrong";
    bool isPresent = false, isReset = false;
    const bool isAnswered = callGuarded(
        [&] {
          isPresent = chip->isPresent();
          if (isPresent) isReset = chip->wasReset();
        },
        error);
    ChipState* const after = stateOf(chip);
    if (after == nullptr) continue;
    const bool isOther = after->replay != replay;
    if (!isOther && (!isAnswered || !isPresent)) {
      makeAbsent(*after, error);
      continue;
    }
    if (!isOther) chip->absentIs(false, "", now);
    // All of it is to be written again, unless that has begun meanwhile.
    if (isReset && (!isOther || after->replay == nullptr)) {
      chip->doChipReset();
    } else if (!isOther) {
      replay->writer()->doResume();
    }
  }
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
