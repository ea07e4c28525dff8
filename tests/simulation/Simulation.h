// One run: a system, its driver and its ledger, all drawn from one seed.
#pragma once

#include <deque>
#include <iosfwd>
#include <string>

#include "simulation/Access.h"
#include "simulation/Journal.h"

namespace Simulation {

struct Options {
  std::ostream* echo = nullptr;  // for every event; null for none
  std::size_t keptLines = 0;     // the last events as text
  Sabotage sabotage{};
  bool goesOn = false;  // after a rule was broken, to show what else is
};

struct Outcome {
  U64 hash = 0;              // over every event in order
  Zint::Seconds time = 0;    // that was simulated
  Zint::Seconds jumped = 0;  // of it, in single jumps of the clock
  U32 passes = 0;
  std::array<U64, eventKinds> counts{};
  std::string failure;  // empty when every rule held
  U32 broken = 0;       // bit n: rule n
  std::deque<std::string> lines;

  bool isBroken(Rule rule) const { return ((broken >> static_cast<U32>(rule)) & 1) != 0; }
};

// The same seed and options give the same outcome, whatever the width and the compiler.
Outcome simulate(U64 seed, const Options& options = {});

// What failed in the run of that seed, with its last events; for a run that failed.
std::string report(U64 seed, const Options& options = {});

}  // namespace Simulation
