// The longest turns of the loop: one slice of the reader, and the comparison of all that was read.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>

#include "PassStand.h"

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr U32 slice = 1024;

// Registers under audit; the chip and the shadow hold zeroes.
struct TurnStand : PassStand {
  TurnStand(U32 entryCount, const std::function<Zint::Ptr<Fru::HamImpl>()>& makeRegisters)
      : TurnStand(entryCount, makeRegisters()) {}

  Zint::Ptr<Fru::HamImpl> registers;

 private:
  TurnStand(U32 entryCount, const Zint::Ptr<Fru::HamImpl>& chip)
      : PassStand(entryCount, slice,
                  [&chip] { return Hardware::genericChipHamFactory("generic", chip); }),
        registers(chip) {}
};

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// The processor time of the thread; too slow to read for the short turns.
double processorTime() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

struct Turns {
  std::vector<double> slices;  // in seconds
  double last = 0;             // the last slice and the comparison
};

// Runs one pass and takes the time of each turn.
Turns onePass(TurnStand& stand) {
  Turns turns;
  const U32 audits = stand.shadow->audits();
  stand.activity->turn();  // begins the pass
  for (U32 i = 1; i < stand.entries / slice; ++i) {
    const Clock::time_point begin = Clock::now();
    stand.activity->turn();
    turns.slices.push_back(seconds(Clock::now() - begin));
  }
  require(stand.shadow->audits() == audits, "one turn for each slice");
  const double begin = processorTime();
  stand.activity->turn();
  turns.last = processorTime() - begin;
  require(stand.shadow->audits() == audits + 1, "the last turn compares");
  return turns;
}

// The register calls of all slices, timed in the same way.
Turns registerCalls(TurnStand& stand) {
  Turns turns;
  Fru::HamImpl& registers = *stand.registers;
  U8* to = stand.region->hardware()->data();
  for (U32 address = 0; address < 4 * stand.entries;) {
    const Clock::time_point begin = Clock::now();
    for (U32 i = 0; i < slice; ++i, address += 4, to += 4) {
      U32 value;
      registers.read(address, &value);
      std::memcpy(to, &value, 4);
    }
    turns.slices.push_back(seconds(Clock::now() - begin));
  }
  return turns;
}

// The time within which that fraction of the slices ended.
double percentile(std::vector<double> times, double fraction) {
  const auto place =
      times.begin() + static_cast<std::ptrdiff_t>(fraction * static_cast<double>(times.size() - 1));
  std::nth_element(times.begin(), place, times.end());
  return *place;
}

}  // namespace

void registerTurnBenches() {
  auto stand = shared<TurnStand>(64u * 1024 * 1024 / 4, memoryRegisters);
  const std::string comparing = "row18/comparing turn, 64 MiB";
  side(comparing, "ours",
       [stand](benchmark::State& state) {
         for (auto _ : state) state.SetIterationTime(onePass(stand()).last);
       })
      ->UseManualTime()
      ->Iterations(1);
  side(comparing, "memcmp",
       [stand](benchmark::State& state) {
         const Hardware::ChipMemory& region = *stand().region;
         for (auto _ : state) {
           const U8* hardware = region.hardware()->data();
           opaque(hardware);
           registerCalls(stand());  // leaves the caches as a pass would
           const double begin = processorTime();
           int difference =
               std::memcmp(region.shadow()->data(), hardware, 4 * std::size_t{region.entries()});
           opaque(difference);
           state.SetIterationTime(processorTime() - begin);
           require(difference == 0, "the buffers are equal");
         }
       })
      ->UseManualTime()
      ->Iterations(1);

  auto timed = shared<TurnStand>(256u * 1024, [] { return timedRegisters(100); });
  const std::pair<const char*, double> parts[] = {{"half", 0.5}, {"99 %", 0.99}};
  for (const auto& [part, fraction] : parts) {
    const std::string slices =
        std::string("row18/slice of 1,024 registers of 100 ns, ") + part + " within";
    side(slices, "ours",
         [timed, fraction](benchmark::State& state) {
           for (auto _ : state)
             state.SetIterationTime(percentile(onePass(timed()).slices, fraction));
         })
        ->UseManualTime()
        ->Iterations(1);
    side(slices, "register calls",
         [timed, fraction](benchmark::State& state) {
           for (auto _ : state) {
             state.SetIterationTime(percentile(registerCalls(timed()).slices, fraction));
           }
         })
        ->UseManualTime()
        ->Iterations(1);
  }
}

}  // namespace Bench
