// One run of the library beside the model, from two fresh ones on.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "lockstep/Comparison.h"
#include "lockstep/Coverage.h"

namespace Lockstep {

enum class Outcome {
  nothing,   // the step asked for nothing
  done,      // both sides agree
  refused,   // it would have ended the process; both sides are as before it
  ended,     // it ended the process, on both sides alike; the scenario is over
  diverged,  // the sides differ; the scenario is over
};

// How much is compared after each step.
enum class Depth {
  quick,  // answers, logs and what the step was about; everything every now and then
  full,
};

class Scenario {
 public:
  explicit Scenario(Depth depth, Plant plant = Plant::none);

  // Whether a step that ends the process is to be taken, given the way in which it does.
  using Takes = std::function<bool(const Model::Fatal&)>;
  static bool takesNone(const Model::Fatal&) { return false; }
  static bool takesAll(const Model::Fatal&) { return true; }

  // Coverage may be null.
  Outcome run(const Step& step, const Takes& takes, Coverage* coverage = nullptr);
  // Compares everything; false when the sides differ.
  bool compareAll() { return comparison_.compareAll(); }

  // What differs, and after which call.
  const std::string& difference() const { return comparison_.difference(); }
  const std::string& lastCall() const { return lastCall_; }
  // How the last step that ended the process did.
  const Model::Fatal& fatal() const { return fatal_; }

  const Model::System& model() const { return model_; }
  const Answer& expected() const { return expected_; }  // by the last step
  int reader() const { return reader_; }
  Phase phase() const { return phase_; }
  U32 state() const { return static_cast<U32>(model_.shadow(shadow).state); }
  bool isModeRegistered(U32 mode) const;
  // Compared in a turn, as against one that was asked for by hand.
  U32 passesOfTurns() const { return passesOfTurns_; }

 private:
  void adopt();
  void followPass();
  void countCells(Coverage& coverage) const;

  const Depth depth_;
  Model::System model_;
  Model::System before_;  // of the last step
  Subject subject_;
  Comparison comparison_{model_, subject_};
  int reader_ = 0;
  Call call_;
  Answer expected_;
  Answer actual_;
  Model::Fatal fatal_;
  std::string lastCall_;
  U32 steps_ = 0;
  bool requestNew_ = false;  // made by the library in this step: not observed from its start

  // The pass that is being read, as it was first seen, and the last compare.
  U64 passGeneration_ = 0;
  int passCurrent_ = Model::none;
  U32 passEntriesRead_ = 0;
  std::size_t passQueue_ = 0;
  Phase phase_ = Phase::none;
  U32 audits_ = 0;
  U32 passesOfTurns_ = 0;
  int comparedRequest_ = Model::none;
  U64 comparedGeneration_ = 0;
};

}  // namespace Lockstep
