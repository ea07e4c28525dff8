// Whole passes of the patrol against those of the plain audit: the same entries, access method,
// slices and damages. And the turns of a patrol that has a bound, whatever is under audit.
#include <Driver/AuditedShadow.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>

#include "Bench.h"
#include "PassStand.h"

namespace Bench {
namespace {

constexpr U32 patrolledEntries = 1024 * 1024;
constexpr U32 patrolSlice = 4096;

// A chip that is memory, read in one copy.
class MemoryChip : public Hardware::ChipHam {
 public:
  MemoryChip() : ChipHam("memory"), bytes(std::size_t{4} * patrolledEntries) {}
  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    std::memcpy(buffer, bytes.data() + address.chipMemoryOffset(), entrySize * entries);
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    std::memcpy(bytes.data() + address.chipMemoryOffset(), buffer, entrySize * entries);
  }

  std::vector<U8> bytes;
};

struct PlainPass : PassStand {
  PlainPass() : PlainPass(Zint::makePtr<MemoryChip>()) {}

  const Zint::Ptr<MemoryChip> chip;

 private:
  explicit PlainPass(const Zint::Ptr<MemoryChip>& memory)
      : PassStand(patrolledEntries, patrolSlice, [&] { return Hardware::ChipHam::Ptr(memory); }),
        chip(memory) {}
};

struct PatrolPass {
  PatrolPass() {
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    shadow->chipMemoryIs(region);
    shadow->maxEntriesPerSliceIs(patrolSlice);
    shadow->sliceIntervalIs(0);
    shadow->stateIs(Hardware::HardwareShadow::configured());
    region->doClear();
    shadow->stateIs(Hardware::HardwareShadow::auditing());
  }
  void pass() {
    const U32 audits = shadow->audits();
    while (shadow->audits() == audits) activity->turn();
  }

  Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(activity, clock);
  Zint::Ptr<MemoryChip> chip = Zint::makePtr<MemoryChip>();
  Hardware::ChipMemory::Ptr region =
      Hardware::chipMemoryFactory("region", Hardware::ChipAddress(), patrolledEntries, 4, 4, chip);
};

// One pass an iteration; what `prepare` does before it is not measured.
template <class Stand>
Body passes(std::function<Stand&()> stand, std::function<void(Hardware::ChipMemory&, U8*)> prepare,
            U32 repairs) {
  return [stand, prepare, repairs](benchmark::State& state) {
    Stand& s = stand();
    s.pass();
    U32 fixed = s.region->registersFixed();
    for (auto _ : state) {
      state.PauseTiming();
      if (prepare) prepare(*s.region, s.chip->bytes.data());
      fixed += repairs;
      state.ResumeTiming();
      s.pass();
    }
    require(s.region->registersFixed() == fixed, "what differed was repaired");
  };
}

void comparePasses(const std::string& what, std::function<void(Hardware::ChipMemory&, U8*)> prepare,
                   U32 repairs) {
  const std::string comparison = "row31/pass over 1,048,576 entries, " + what;
  const auto patrol = shared<PatrolPass>();
  const auto plain = shared<PlainPass>();
  side(comparison, "ours", passes<PatrolPass>(patrol, prepare, repairs));
  side(comparison, "plain audit", passes<PlainPass>(plain, prepare, repairs));
}

// --- The turns of a patrol with a bound ---

constexpr Zint::Seconds boundOfTurns = 0.001;
constexpr U32 sentinelOfTurns = 0x5a17c401;
constexpr U64 sentinelPlace = U64{1} << 40;

// The processor time of the thread.
double workTime() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Holds one value in all entries but its sentinel, and takes every write. Times its accesses.
class EvenChip : public Hardware::ChipHam {
 public:
  EvenChip() : ChipHam("even") {}
  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    const double begin = workTime();
    if (address.value() == sentinelPlace) {
      std::memcpy(buffer, &sentinelOfTurns, sizeof sentinelOfTurns);
    } else {
      std::memset(buffer, value, std::size_t{entrySize} * entries);
    }
    longest = std::max(longest, workTime() - begin);
  }
  void doWrite(const Hardware::ChipAddress&, U8*, U32, U32) override {}

  U8 value = 0;
  double longest = 0;  // access, seconds
};

struct BoundedTurns {
  double longest = 0;      // parts of the bound and the longest access, in processor time
  double longestWall = 0;  // us
  double wall999 = 0;      // us: 999 of 1,000 turns are no longer
};

// A shadow has at most 65,535 regions of one memory id.
Hardware::ChipAddress placeOfRegion(U32 number, U32 entries) {
  constexpr U32 ofOneId = 50000;
  return {number / ofOneId, 4 * entries * (number % ofOneId)};
}

// Two passes of a patrol with a bound and a sentinel over `regions` regions of `entries` entries;
// the first one learns what accesses cost. `differ`: all entries do, in the second one.
BoundedTurns boundedTurns(U32 regions, U32 entries, bool differ) {
  const auto clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const auto shadow = Driver::auditedShadowFactory(activity, clock);
  const auto even = Zint::makePtr<EvenChip>();
  const auto chip = Driver::chipFactory("chip", even);
  chip->sentinelIs(Hardware::ChipAddress(sentinelPlace),
                   {reinterpret_cast<const U8*>(&sentinelOfTurns), sizeof sentinelOfTurns});
  shadow->chipIs(chip);
  std::vector<Hardware::ChipMemory::Ptr> all;
  for (U32 i = 0; i < regions; ++i) {
    all.push_back(
        Hardware::chipMemoryFactory("region", placeOfRegion(i, entries), entries, 4, 4, even));
    all.back()->shadowEnabledIs(true);
    all.back()->auditEnabledIs(true);
    shadow->chipMemoryIs(all.back());
  }
  shadow->findsResetsIs(false);
  shadow->turnBoundIs(boundOfTurns);
  shadow->maxEntriesPerSliceIs(1u << 30);
  shadow->sliceIntervalIs(0);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  for (const auto& region : all) region->doClear();
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  while (shadow->audits() == 0) activity->turn();
  const U64 repairs = shadow->repairs();
  if (differ) even->value = 1;
  even->longest = 0;
  double longest = 0;
  std::vector<double> walls;
  while (shadow->audits() == 1) {
    const auto begin = std::chrono::steady_clock::now();
    const double beginWork = workTime();
    activity->turn();
    longest = std::max(longest, workTime() - beginWork);
    walls.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() * 1e6);
  }
  require(shadow->repairs() - repairs == (differ ? U64{regions} * entries : 0),
          "what differed was repaired");
  require(chip->absences() == 0, "the sentinel was there");
  std::sort(walls.begin(), walls.end());
  return {.longest = longest / (boundOfTurns + even->longest),
          .longestWall = walls.back(),
          .wall999 = walls[(walls.size() - 1) * 999 / 1000]};
}

void measureTurns(const std::string& what, U32 regions, U32 entries, bool differ) {
  // One run for the three figures.
  auto held = std::make_shared<std::unique_ptr<BoundedTurns>>();
  const auto turns = [=]() -> const BoundedTurns& {
    if (*held == nullptr) {
      *held = std::make_unique<BoundedTurns>(boundedTurns(regions, entries, differ));
    }
    return **held;
  };
  figure("row34/longest turn of a bounded patrol, " + what, "of the bound and an access",
         [turns] { return turns().longest; });
  figure("row34/wall clock, 999 of 1,000 turns, " + what, "us",
         [turns] { return turns().wall999; });
  figure("row34/wall clock, longest turn, " + what, "us", [turns] { return turns().longestWall; });
}

}  // namespace

void registerPatrolBenches() {
  constexpr U32 large = sizeof(void*) == 4 ? 64u << 20 : 256u << 20;  // entries
  measureTurns(sizeof(void*) == 4 ? "256 MiB" : "1 GiB", 1, large, false);
  measureTurns("100,000 regions", 100000, 16, false);
  measureTurns("1,048,576 differences", 1, 1u << 20, true);
  comparePasses("equal", nullptr, 0);
  comparePasses(
      "1 % differ",
      [](Hardware::ChipMemory&, U8* chip) {
        for (U32 e = 0; e < patrolledEntries; e += 100) chip[std::size_t{4} * e] ^= 1;
      },
      (patrolledEntries + 99) / 100);
  comparePasses(
      "all learned",
      [](Hardware::ChipMemory& region, U8* chip) {
        std::memset(region.initialized()->data(), 0, region.initialized()->size());
        std::memset(region.shadow()->data(), 0, region.shadow()->size());
        std::memset(chip, 1, std::size_t{4} * patrolledEntries);
      },
      0);
}

}  // namespace Bench
