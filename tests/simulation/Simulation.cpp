#include "simulation/Simulation.h"

#include <Zint/Assert.h>

#include <exception>

#include "simulation/Driver.h"

namespace Simulation {
namespace {

struct LibraryAsserted {
  std::string condition;
};

// Assertions of the library end the run instead of the process.
class AssertionsCaught {
 public:
  AssertionsCaught()
      : before_(Zint::assertionHookIs([](const Zint::AssertionFailure& failure) {
          throw LibraryAsserted{failure.condition};
        })) {}
  ~AssertionsCaught() { Zint::assertionHookIs(before_); }
  AssertionsCaught(const AssertionsCaught&) = delete;
  AssertionsCaught& operator=(const AssertionsCaught&) = delete;

 private:
  const Zint::AssertionHook before_;
};

void run(Random& random, Journal& journal, Sabotage& sabotage, Outcome& outcome) {
  System system(random, journal, sabotage);
  Driver driver(system, random, journal);
  try {
    const AssertionsCaught caught;
    driver.begin();
    for (U32 round = random.between(12, 20); round > 0 && !journal.isOver(); --round)
      driver.round();
    if (!journal.isOver()) driver.end();
  } catch (const LibraryAsserted& asserted) {
    journal.broken(Rule::paced, "the library asserts " + asserted.condition);
  } catch (const std::exception& exception) {
    journal.broken(Rule::paced, std::string("an exception: ") + exception.what());
  }
  outcome.time = system.now();
  outcome.jumped = system.jumped();
  outcome.passes = system.ledger.passes();
}

}  // namespace

Outcome simulate(U64 seed, const Options& options) {
  Random random(seed);
  Journal journal(options.keptLines, options.echo, options.goesOn);
  Sabotage sabotage = options.sabotage;
  Outcome outcome;
  run(random, journal, sabotage, outcome);
  outcome.hash = journal.hash();
  outcome.counts = journal.counts();
  outcome.failure = journal.failure();
  outcome.broken = journal.broken();
  outcome.lines = journal.lines();
  return outcome;
}

std::string report(U64 seed, const Options& options) {
  Options again = options;
  again.keptLines = 20;
  const Outcome outcome = simulate(seed, again);
  std::string text =
      format("seed %llu: ", static_cast<unsigned long long>(seed)) + outcome.failure + "\n";
  for (const std::string& line : outcome.lines) text += line + "\n";
  return text + "Again, with every event: UMBRA_SIMULATION_SEED=" + std::to_string(seed) +
         " simulation-tests\n";
}

}  // namespace Simulation
