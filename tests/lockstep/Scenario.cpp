#include "lockstep/Scenario.h"

#include <Mirl/Mirl.h>

#include <utility>

namespace Lockstep {

using Model::none;

Scenario::Scenario(Depth depth, Plant plant) : depth_(depth), subject_(plant) {
  model_.chipCreate();
  model_.genericMethodCreate("generic", chip);
  model_.sparseMethodCreate("sparse", chip, sparseStride);
  for (const char* name : {"refusing", "comparing", "copying"}) {
    model_.genericMethodCreate(name, chip);
  }
  model_.baseMethodCreate("unreachable");
  for (int method = 0; method < methods; ++method) {
    model_.methodTextIs(method, subject_.methodText(method));
  }
  model_.directoryCreate();
  model_.shadowCreate();
  const auto common = [](auto& side) {
    const int request = side.requestCreate("audit");
    side.auditReadRequestIs(shadow, request);
    return side.readerCreate(request, 8, 0.125);
  };
  reader_ = common(model_);
  common(subject_);
  Mirl::theTraceFile.clear();
}

Outcome Scenario::run(const Step& step, const Takes& takes, Coverage* coverage) {
  resolve(step, model_, reader_, call_);
  if (!call_.possible) return Outcome::nothing;
  before_ = model_;
  requestNew_ = false;
  bool fatal = false;
  try {
    perform(model_, call_, expected_);
    adopt();
  } catch (const Model::Fatal& caught) {
    fatal = true;
    fatal_ = caught;
  }
  if (fatal && !takes(fatal_)) {
    std::swap(model_, before_);
    return Outcome::refused;
  }
  if (coverage != nullptr) countCells(*coverage);
  try {
    perform(subject_, call_, actual_);
    if (!subject_.failure() && requestNew_) {
      const int adopted = subject_.adoptRequest();
      if (adopted != model_.shadow(shadow).request) {
        comparison_.differenceIs("the model has a new request, the library none");
        lastCall_ = text(call_);
        return Outcome::diverged;
      }
      subject_.readerRequestIs(0, adopted);
    }
  } catch (...) {
    // An assertion that was met outside of handlers.
    if (!subject_.failure()) throw;
  }
  if (fatal || subject_.failure()) {
    lastCall_ = text(call_);
    if (!fatal) fatal_ = {};
    return comparison_.compareFatal(fatal_) && fatal ? Outcome::ended : Outcome::diverged;
  }
  if (call_.operation == Operation::reader && call_.variant == 2) {
    reader_ = static_cast<int>(expected_.value);
    actual_.value = expected_.value;  // the subject has one reader at a time
  }
  followPass();
  ++steps_;
  bool equal = comparison_.compareAnswers(expected_, actual_) &&
               comparison_.compareLogs(call_, requestNew_) && comparison_.compareShadow() &&
               comparison_.compareRequest() && comparison_.compareReader(reader_);
  if (equal) {
    if (depth_ == Depth::full || steps_ % 16 == 0) {
      equal = comparison_.compareAll();
    } else if (call_.region != none) {
      equal = comparison_.compareRegion(call_.region);
    }
  }
  if (equal) return Outcome::done;
  lastCall_ = text(call_);
  return Outcome::diverged;
}

// The shadow made itself a request: it is watched, and read, from now on.
void Scenario::adopt() {
  const int request = model_.shadow(shadow).request;
  if (request == none || request == before_.shadow(shadow).request) return;
  requestNew_ = true;
  model_.readerRequestIs(reader_, request);
}

bool Scenario::isModeRegistered(U32 mode) const {
  for (const auto& [address, region] : model_.shadow(shadow).registry) {
    if (static_cast<U32>(model_.region(region).mode) == mode) return true;
  }
  return false;
}

// Called between the two sides: what the model was is still there in before_.
void Scenario::countCells(Coverage& coverage) const {
  Cell cell{call_.operation, 0, static_cast<U32>(before_.shadow(shadow).state), phase()};
  if (namesRegion(call_.operation)) {
    if (call_.region == none) return;
    cell.mode = static_cast<U32>(before_.region(call_.region).mode);
    coverage.count(cell);
    return;
  }
  bool present[modes] = {};
  for (const auto& [address, region] : before_.shadow(shadow).registry) {
    present[static_cast<U32>(before_.region(region).mode)] = true;
  }
  for (cell.mode = 0; cell.mode < modes; ++cell.mode) {
    if (present[cell.mode]) coverage.count(cell);
  }
}

// --- The phase of the pass.

void Scenario::followPass() {
  const Model::Reader& reader = model_.reader(reader_);
  const Model::Shadow& state = model_.shadow(shadow);
  if (state.audits != audits_) {
    audits_ = state.audits;
    passesOfTurns_ += call_.operation == Operation::turn;
    comparedRequest_ = state.request;
    comparedGeneration_ = model_.request(state.request).generation;
  }
  if (reader.current == none) {
    passCurrent_ = none;
    const bool compared = state.request != none && state.request == comparedRequest_ &&
                          model_.request(state.request).generation == comparedGeneration_;
    phase_ = compared ? Phase::compared : Phase::none;
    return;
  }
  const U64 generation = model_.request(reader.request).generation;
  if (passCurrent_ == none || generation != passGeneration_ || reader.queue.size() > passQueue_) {
    passGeneration_ = generation;
    passCurrent_ = reader.current;
    passEntriesRead_ = reader.entriesRead;
    passQueue_ = reader.queue.size();
    phase_ = Phase::reading;
  } else if (reader.current != passCurrent_ || reader.entriesRead != passEntriesRead_ ||
             reader.queue.size() != passQueue_) {
    phase_ = Phase::between;
  }
}

}  // namespace Lockstep
