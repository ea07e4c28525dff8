// umbra-bench: measures the library against what a user would use instead, and against the limits
// of the machine. Takes Google Benchmark's arguments; bench/run makes a table of what it prints.
#include <Zint/Trace.h>

#include "Bench.h"

namespace Bench {
namespace {

// Lines of level 0 are always built; writing them is not measured.
class NoSink : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine& line) override { opaque(line.text); }
};

Hardware::ChipHam::Ptr (*makeHam)() = nullptr;

}  // namespace

Hardware::ChipHam::Ptr programHam() { return makeHam(); }

int run(int count, char** arguments, Hardware::ChipHam::Ptr (*makeProgramHam)());
int run(int count, char** arguments, Hardware::ChipHam::Ptr (*makeProgramHam)()) {
  makeHam = makeProgramHam;
  NoSink sink;
  Zint::traceSinkIs(&sink);
  registerAuditBenches();
  registerIndexBenches();
  registerDataPathBenches();
  registerHamBenches();
  registerRuntimeBenches();
  registerTraceBenches();
  registerConfigureBenches();
  registerMemoryBenches();
  registerTurnBenches();
  registerPassBenches();
  registerLifeBenches();
#ifdef BENCH_DRIVER
  registerPolicyBenches();
  registerGovernorBenches();
  registerPatrolBenches();
#endif
#ifdef BENCH_TELEMETRY
  registerTelemetryBenches();
  registerControlBenches();
#endif

  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::ClearRegisteredBenchmarks();  // and what they were made on, while all else still lives
  benchmark::Shutdown();
  Zint::traceSinkIs(nullptr);
  return 0;
}

}  // namespace Bench
