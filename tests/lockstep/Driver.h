// Makes the operations. A stream of bytes is one source of them; the other is a generator that
// steers each scenario to the situations that were met least so far.
#pragma once

#include <map>
#include <memory>
#include <ostream>
#include <string>

#include "lockstep/Coverage.h"
#include "lockstep/Scenario.h"
#include "support/Random.h"

namespace Lockstep {

using Support::Random;

// A difference between the two sides, with the steps that led to it.
struct Divergence {
  Steps steps;
  std::string difference;
  std::string lastCall;
};
std::string report(const Divergence& divergence);

class Driver {
 public:
  explicit Driver(U64 seed, Plant plant = Plant::none);

  // Runs at least that many steps; null when the sides agreed in all of them.
  std::optional<Divergence> run(U64 steps);
  // Decodes the bytes into steps and runs them, one scenario after the other.
  static std::optional<Divergence> runBytes(const U8* bytes, std::size_t size);

  const Coverage& coverage() const { return coverage_; }
  // How often each assertion ended a scenario.
  const std::map<std::string, U32>& endings() const { return endings_; }
  U64 scenarios() const { return scenarios_; }
  // How often what matters has happened, by its name.
  const std::map<std::string, U64>& happened() const { return happened_; }

 private:
  struct Goal {
    U32 state = 0;
    Phase phase = Phase::none;
  };

  std::optional<Divergence> runScenario(U64 lastStep);
  std::optional<Divergence> runSteps(U64 lastStep);
  Outcome take(const Step& step);
  bool takes(const Model::Fatal& fatal);

  void chooseGoal();
  bool atGoal() const;
  Step towardsGoal();
  Step towardsReading();
  Step emptiest();
  Step randomStep();
  Step liveStep();
  std::optional<Step> preparation(const Cell& cell);

  Step makeStep(Operation operation, U32 region = 0, std::initializer_list<U32> arguments = {});
  int regionIn(U32 mode);
  const Model::Shadow& shadowState() const { return scenario_->model().shadow(shadow); }
  bool isRequestEmpty() const;
  U32 waiting() const;

  Random random_;
  const Plant plant_;
  Coverage coverage_;
  std::map<std::string, U32> endings_;
  U32 ended_ = 0;
  std::map<std::string, U64> happened_;
  U64 scenarios_ = 0;

  // The scenario under way.
  std::unique_ptr<Scenario> scenario_;
  Steps steps_;
  bool live_ = false;  // the audit runs and is used, instead of situations being looked for
  Goal goal_;
  U32 patience_ = 0;                    // steps left for the goal
  U32 stuck_ = 0;                       // steps without effect in a row
  U8 refused_[operations][modes] = {};  // of late
};

// The shortest steps found that still end in a difference, with their arguments simplified.
Divergence shrink(const Divergence& divergence, Plant plant = Plant::none);

// Runs the steps with everything compared after each one. Steps that would end the process are left
// out, but for the last.
std::optional<Divergence> replay(const Steps& steps, Plant plant = Plant::none);

}  // namespace Lockstep
