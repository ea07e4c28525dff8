#include "lockstep/Driver.h"

#include <algorithm>
#include <limits>

namespace Lockstep {
namespace {

using Model::none;

constexpr U32 stepsOfScenario = 400;
constexpr U32 patienceOfGoal = 60;
// One step in so many ends its scenario by an assertion.
constexpr U32 stepsPerEnding = 200;

}  // namespace

std::string report(const Divergence& divergence) {
  return divergence.difference + "\nafter " + divergence.lastCall + "\nin the steps\n" +
         text(divergence.steps);
}

Driver::Driver(U64 seed, Plant plant) : random_(seed), plant_(plant) {}

std::optional<Divergence> Driver::run(U64 steps) {
  const U64 last = coverage_.steps() + steps;
  while (coverage_.steps() < last) {
    if (auto divergence = runScenario(last)) return divergence;
  }
  return std::nullopt;
}

std::optional<Divergence> Driver::runBytes(const U8* bytes, std::size_t size) {
  auto scenario = std::make_unique<Scenario>(Depth::full);
  Steps steps;
  for (const Step& step : stepsFromBytes(bytes, size)) {
    steps.push_back(step);
    const Outcome outcome = scenario->run(step, Scenario::takesAll);
    if (outcome == Outcome::diverged) {
      return Divergence{steps, scenario->difference(), scenario->lastCall()};
    }
    if (outcome == Outcome::ended) {
      scenario = nullptr;
      scenario = std::make_unique<Scenario>(Depth::full);
      steps.clear();
    }
  }
  return std::nullopt;
}

std::optional<Divergence> Driver::runScenario(U64 lastStep) {
  auto divergence = runSteps(lastStep);
  const Model::System& model = scenario_->model();
  for (int region = 0; region < model.regions(); ++region) {
    happened_["entries repaired"] += model.region(region).registersFixed;
    happened_["entries served by the cache"] += model.region(region).readCacheHits;
    happened_["entries not written again"] += model.region(region).writeCacheHits;
  }
  happened_["passes compared"] += scenario_->passesOfTurns();
  happened_["exceptions in handlers"] += model.guarded().size();
  scenario_ = nullptr;
  return divergence;
}

std::optional<Divergence> Driver::runSteps(U64 lastStep) {
  scenario_ = std::make_unique<Scenario>(Depth::quick, plant_);
  ++scenarios_;
  steps_.clear();
  patience_ = 0;
  stuck_ = 0;
  live_ = random_.oneIn(6);
  std::fill(&refused_[0][0], &refused_[0][0] + operations * modes, U8{0});
  const auto diverged = [&] {
    return Divergence{steps_, scenario_->difference(), scenario_->lastCall()};
  };
  // The regions of the scenario, then the way through the situations.
  const U32 regions = 5 + random_.below(3);
  for (U32 i = 0; i < regions + stepsOfScenario && coverage_.steps() < lastStep; ++i) {
    Step step;
    if (i < regions) {
      step = randomStep();
      step.operation = Operation::regionCreate;
      step.a[0] = static_cast<U8>(random_.below(random_.oneIn(10) ? 256 : 240));
      step.a[3] = static_cast<U8>(random_.below(random_.oneIn(6) ? 256 : 240));
      // Mostly with a shadow, and registered; each mode in turn.
      step.a[4] = static_cast<U8>((step.a[4] & ~16u) | (random_.oneIn(8) ? 0u : 1u));
      step.a[5] = static_cast<U8>(random_.oneIn(8) ? step.a[5] : i % 3);
    } else if (i == regions) {
      // A trace that is on takes other ways through the library than one that is off.
      step = makeStep(Operation::traceLevel, 0, {random_.below(10)});
    } else if (live_) {
      step = liveStep();
    } else if (patience_ == 0) {
      chooseGoal();
      step = atGoal() ? emptiest() : towardsGoal();
    } else if (random_.oneIn(8)) {
      step = randomStep();
    } else {
      step = atGoal() ? emptiest() : towardsGoal();
    }
    if (patience_ > 0) --patience_;
    switch (take(step)) {
      case Outcome::diverged:
        return diverged();
      case Outcome::ended:
        return std::nullopt;
      case Outcome::done:
        stuck_ = 0;
        break;
      default:
        if (++stuck_ == 20)
          return scenario_->compareAll() ? std::nullopt : std::optional(diverged());
    }
  }
  if (!scenario_->compareAll()) return diverged();
  return std::nullopt;
}

Outcome Driver::take(const Step& step) {
  steps_.push_back(step);
  const Outcome outcome = scenario_->run(
      step, [this](const Model::Fatal& fatal) { return takes(fatal); }, &coverage_);
  if (outcome == Outcome::nothing || outcome == Outcome::refused) {
    steps_.pop_back();
  } else {
    coverage_.countStep();
    if (!scenario_->expected().error.empty()) ++happened_["exceptions to the caller"];
  }
  return outcome;
}

// The rarer ways to end come first.
bool Driver::takes(const Model::Fatal& fatal) {
  if (U64{ended_} * stepsPerEnding > coverage_.steps()) return false;
  U32& count = endings_[fatal.condition + " in " + fatal.function];
  if (U64{count} * endings_.size() > U64{4} * ended_ + 20) return false;
  ++count;
  ++ended_;
  return true;
}

Step Driver::makeStep(Operation operation, U32 region, std::initializer_list<U32> arguments) {
  Step step;
  step.operation = operation;
  step.region = static_cast<U8>(region);
  std::size_t i = 0;
  for (U32 argument : arguments) step.a[i++] = static_cast<U8>(argument);
  return step;
}

Step Driver::randomStep() {
  const U64 bits = random_.next();
  Step step;
  step.operation = static_cast<Operation>(random_.below(operations));
  step.region = static_cast<U8>(bits);
  for (U32 i = 0; i < Step::arguments; ++i) step.a[i] = static_cast<U8>(bits >> (8 * i + 8));
  return step;
}

// Passes that run on their own while the regions are used and damaged.
Step Driver::liveStep() {
  goal_ = {States::auditing, Phase::reading};
  if (stuck_ > 3)
    return makeStep(Operation::state, 0, {random_.oneIn(2) ? States::unconfigured : States::idle});
  if (scenario_->state() != States::auditing) return towardsGoal();
  if (shadowState().overrideHardware) return makeStep(Operation::overrideHardware, 0, {0});
  if (shadowState().alarm.due == Model::never && scenario_->phase() != Phase::reading &&
      scenario_->phase() != Phase::between) {
    return makeStep(Operation::state, 0, {States::idle});
  }
  Step step = randomStep();
  constexpr Operation usual[] = {
      Operation::write, Operation::writeByAddress, Operation::write, Operation::read,
      Operation::poke,  Operation::readByAddress,  Operation::poke,  Operation::chipAccess};
  const U32 choice = random_.below(20);
  if (choice < 9) return makeStep(Operation::turn, 0, {1});
  if (choice < 18) step.operation = usual[random_.below(std::size(usual))];
  return step;
}

// The state and phase whose cells are emptiest on the whole.
void Driver::chooseGoal() {
  U64 least = std::numeric_limits<U64>::max();
  const U64 enough = coverage_.steps() / 1500 + 10;
  for (U32 state : {States::unconfigured, States::idle, States::auditing}) {
    for (U32 phase = 0; phase < phases; ++phase) {
      U64 sum = random_.below(100);
      for (U32 operation = 0; operation < operations; ++operation) {
        for (U32 mode = 0; mode < modes; ++mode) {
          const Cell cell{static_cast<Operation>(operation), mode, state,
                          static_cast<Phase>(phase)};
          const bool out = Coverage::excluded(cell) != nullptr;
          sum += out ? enough : std::min<U64>(enough, coverage_.counted(cell));
        }
      }
      if (sum < least) {
        least = sum;
        goal_ = {state, static_cast<Phase>(phase)};
      }
    }
  }
  patience_ = patienceOfGoal;
}

bool Driver::atGoal() const {
  return scenario_->state() == goal_.state && scenario_->phase() == goal_.phase;
}

bool Driver::isRequestEmpty() const {
  const int request = shadowState().request;
  return request == none || scenario_->model().request(request).members.empty();
}

int Driver::regionIn(U32 mode) {
  const Model::System& model = scenario_->model();
  const int count = model.regions();
  int found = none;
  U32 seen = 0;
  for (int region = 0; region < count; ++region) {
    if (static_cast<U32>(model.region(region).mode) != mode) continue;
    if (random_.oneIn(++seen)) found = region;
  }
  return found;
}

// The entries that the pass has yet to read.
U32 Driver::waiting() const {
  const Model::System& model = scenario_->model();
  const Model::Reader& reader = model.reader(scenario_->reader());
  if (reader.current == none) return 0;
  U32 entries = model.region(reader.current).entries - reader.entriesRead;
  for (int region : reader.queue) entries += model.region(region).entries;
  return entries;
}

Step Driver::towardsGoal() {
  const U32 state = scenario_->state();
  if (state == States::configured) return makeStep(Operation::state, 0, {States::unconfigured});
  if (state != goal_.state) {
    if (goal_.state == States::unconfigured)
      return makeStep(Operation::state, 0, {States::unconfigured});
    if (state == States::unconfigured) {
      if (!isRequestEmpty()) return makeStep(Operation::requestMember, 0, {230});
      return makeStep(Operation::state, 0, {States::configured});
    }
    if (goal_.state == States::idle) return makeStep(Operation::state, 0, {States::idle});
    if (isRequestEmpty()) return towardsReading();
    return makeStep(Operation::state, 0, {States::auditing});
  }
  const Phase phase = scenario_->phase();
  switch (goal_.phase) {
    case Phase::none:
      return makeStep(Operation::request, 0, {1});
    case Phase::reading:
      return towardsReading();
    case Phase::between: {
      if (phase != Phase::reading) return towardsReading();
      const U32 limit = scenario_->model().reader(scenario_->reader()).maxEntriesPerRead;
      if (limit == 0 || limit >= waiting()) {
        if (waiting() < 2) return towardsReading();
        return makeStep(Operation::reader, 0, {0, 0});  // one entry at a time
      }
      return random_.oneIn(3) ? makeStep(Operation::auditCall, 0, {3})
                              : makeStep(Operation::turn, 0, {1});
    }
    default:
      if (goal_.state != States::auditing || random_.oneIn(6)) {
        // By hand; what is being read is given up first.
        return phase == Phase::none ? makeStep(Operation::auditCall, 0, {4})
                                    : makeStep(Operation::request, 0, {1});
      }
      if (phase == Phase::none) return towardsReading();
      if (random_.oneIn(4)) return makeStep(Operation::reader, 0, {0, 6});
      return makeStep(Operation::turn, 0, {1});
  }
}

// A pass is to begin: of its own in the state auditing, else by hand.
Step Driver::towardsReading() {
  const Model::System& model = scenario_->model();
  if (scenario_->phase() == Phase::between && random_.oneIn(2)) {
    return makeStep(Operation::request, 0, {1});
  }
  if (isRequestEmpty() || random_.oneIn(4)) {
    const int region = regionIn(random_.oneIn(3) ? 2 : 0);
    if (region == none)
      return makeStep(Operation::mode, random_.below(12), {random_.oneIn(2) ? 2u : 0u});
    const Model::Region& joining = model.region(region);
    if (scenario_->state() == States::idle && !joining.auditEnabled) {
      return makeStep(Operation::auditEnabled, static_cast<U32>(region), {1});
    }
    return makeStep(Operation::requestMember, static_cast<U32>(region), {1});
  }
  if (scenario_->state() == States::auditing && random_.oneIn(2)) {
    if (shadowState().overrideHardware) return makeStep(Operation::overrideHardware, 0, {0});
    if (shadowState().alarm.due != Model::never) return makeStep(Operation::turn, 0, {1});
    return makeStep(Operation::auditCall, 0, {0});
  }
  return makeStep(Operation::request, 0, {0});
}

// What has to come before a step in that cell, if anything.
std::optional<Step> Driver::preparation(const Cell& cell) {
  const bool locked = scenario_->state() != States::unconfigured && !shadowState().overrideHardware;
  if (locked &&
      (cell.operation == Operation::registryAdd || cell.operation == Operation::registryDel)) {
    return makeStep(Operation::overrideHardware, 0, {1});
  }
  return std::nullopt;
}

// A step into the emptiest cell of the present state and phase.
Step Driver::emptiest() {
  Cell best{Operation::turn, 0, scenario_->state(), scenario_->phase()};
  U64 least = std::numeric_limits<U64>::max();
  bool standsBy[modes];
  bool exists[modes];
  for (U32 mode = 0; mode < modes; ++mode) {
    standsBy[mode] = scenario_->isModeRegistered(mode);
    exists[mode] = regionIn(mode) != none;
  }
  Cell cell = best;
  for (U32 operation = 0; operation < operations; ++operation) {
    cell.operation = static_cast<Operation>(operation);
    if (cell.operation == Operation::regionCreate && scenario_->model().regions() >= maxRegions) {
      continue;
    }
    for (cell.mode = 0; cell.mode < modes; ++cell.mode) {
      if (!(namesRegion(cell.operation) ? exists : standsBy)[cell.mode]) continue;
      if (Coverage::excluded(cell) != nullptr) continue;
      // One that is refused time and again has to wait.
      const U64 weight = coverage_.counted(cell) + U64{refused_[operation][cell.mode]} * 40;
      if (weight < least || (weight == least && random_.oneIn(2))) {
        least = weight;
        best = cell;
      }
    }
  }
  U8& refused = refused_[static_cast<U32>(best.operation)][best.mode];
  if (refused < 255) ++refused;
  for (U32 mode = 0; mode < modes; ++mode) {
    if (!exists[mode] && random_.oneIn(6)) {
      return makeStep(Operation::mode, random_.below(12), {mode});
    }
    if (!standsBy[mode] && exists[mode] && random_.oneIn(6)) {
      if (auto first = preparation(Cell{Operation::registryAdd, mode, 0, Phase::none})) {
        return *first;
      }
      return makeStep(Operation::registryAdd, static_cast<U32>(regionIn(mode)));
    }
  }
  if (auto first = preparation(best)) return *first;
  Step step = randomStep();
  step.operation = best.operation;
  if (namesRegion(best.operation)) {
    const int region = regionIn(best.mode);
    step.region = static_cast<U8>(region);
    // A region that lacks its shadow serves few operations: give it one now and then.
    const Model::Region& named = scenario_->model().region(region);
    if (best.mode != 1 && !(named.shadow && named.dirty && named.initialized) && random_.oneIn(3)) {
      return makeStep(Operation::flag, static_cast<U32>(region),
                      {0, named.shadowEnabled ? 0u : 1u});
    }
  }
  return step;
}

}  // namespace Lockstep
