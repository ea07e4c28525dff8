// Creation and destruction in bulk, the turns that are as long as their work, and what an activity
// costs that has nothing to do.
#include <poll.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <map>

#include "PassStand.h"

namespace Bench {
namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

double processorTime() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// --- Creation and destruction ------------------------------------------------------------------

constexpr U32 many = 10000;

// What one region is by hand: an object, its four buffers and a name.
struct PeerRegion {
  std::string name = "region";
  std::unique_ptr<U8[]> hardware = std::make_unique<U8[]>(1024);
  std::unique_ptr<U8[]> shadow = std::make_unique<U8[]>(1024);
  std::unique_ptr<U8[]> initialized = std::make_unique<U8[]>(33);
  std::unique_ptr<U8[]> dirty = std::make_unique<U8[]>(33);
};

ChipMemory::Ptr madeRegion(U32 i, const Hardware::ChipHam::Ptr& ham) {
  ChipMemory::Ptr region =
      Hardware::chipMemoryFactory("region", ChipAddress(0, i * 4096), 256, 4, 4, ham);
  region->shadowEnabledIs(true);
  return region;
}

void registerRegions() {
  const std::string comparison = "row23/10,000 regions made and destroyed";
  side(comparison, "ours", [](benchmark::State& state) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    for (auto _ : state) {
      std::vector<ChipMemory::Ptr> regions;
      for (U32 i = 0; i < many; ++i) regions.push_back(madeRegion(i, ham));
      opaque(regions);
    }
    partsOfIteration(state, many);
  });
  side(comparison, "objects of six blocks", [](benchmark::State& state) {
    for (auto _ : state) {
      std::vector<std::unique_ptr<PeerRegion>> regions;
      for (U32 i = 0; i < many; ++i) regions.push_back(std::make_unique<PeerRegion>());
      opaque(regions);
    }
    partsOfIteration(state, many);
  });
  side("row23/10,000 shadows made and destroyed", "ours", [](benchmark::State& state) {
    Stand stand;
    for (auto _ : state) {
      std::vector<HardwareShadow::Ptr> shadows;
      for (U32 i = 0; i < many; ++i)
        shadows.push_back(Hardware::hardwareShadowFactory(stand.activity, stand.clock));
      opaque(shadows);
    }
    partsOfIteration(state, many);
  });
  side("row23/a shadow of 10,000 regions destroyed", "ours", [](benchmark::State& state) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    std::vector<ChipMemory::Ptr> regions;
    for (U32 i = 0; i < many; ++i) regions.push_back(madeRegion(i, ham));
    for (auto _ : state) {
      state.PauseTiming();
      auto stand = std::make_unique<Stand>();
      for (const ChipMemory::Ptr& region : regions) stand->shadow->chipMemoryIs(region);
      stand->configured();
      state.ResumeTiming();
      stand.reset();
    }
    partsOfIteration(state, many);
  });
}

// --- The longest turns -------------------------------------------------------------------------

constexpr U32 entriesOfSlice = 65536;

// Many audited regions, or one large one, with a reader. Every handler of a pass is one turn.
struct LongStand : Stand {
  LongStand(U32 regionCount, U32 entries) {
    const Hardware::ChipHam::Ptr ham = plainHam();
    for (U32 i = 0; i < regionCount; ++i) {
      const ChipMemory::Ptr region =
          regionIs(ChipAddress(i / 50000, i % 50000 * 65536), entries, 4, ham);
      region->shadowEnabledIs(true);
      region->auditEnabledIs(true);
      regions.push_back(region);
    }
    configured();
    for (const ChipMemory::Ptr& region : regions) region->doClear();
    for (auto member = shadow->auditReadRequest()->chipMemoryIterator(); member; ++member)
      inPassOrder.push_back(member->chipMemory());
    reader = Hardware::chipReaderFactory(activity, shadow->auditReadRequest(), clock,
                                         entriesOfSlice, 0.0);
    shadow->stateIs(HardwareShadow::auditing());
  }

  struct Turns {
    double start = 0, longestSlice = 0, comparison = 0;
  };
  Turns onePass() {
    Turns turns;
    const U32 audits = shadow->audits();
    double began = processorTime();
    activity->turn();
    turns.start = processorTime() - began;
    while (shadow->audits() == audits) {
      turns.longestSlice = std::max(turns.longestSlice, turns.comparison);
      began = processorTime();
      activity->turn();
      turns.comparison = processorTime() - began;
    }
    return turns;
  }

  std::vector<ChipMemory::Ptr> regions;      // in the order of their addresses, and in memory
  std::vector<ChipMemory::Ptr> inPassOrder;  // in which a pass visits them
  Hardware::ChipReader::Ptr reader;
};

using Regions = std::vector<ChipMemory::Ptr>;
using Bare = std::function<void(const Regions&)>;

void registerTurn(const std::string& name, const std::function<LongStand&()>& stand,
                  double LongStand::Turns::*turn) {
  side(name, "ours",
       [stand, turn](benchmark::State& state) {
         for (auto _ : state) state.SetIterationTime(stand().onePass().*turn);
       })
      ->UseManualTime()
      ->Iterations(1);
}

void registerBare(const std::string& name, const char* reference,
                  const std::function<LongStand&()>& stand, Regions LongStand::*order,
                  const Bare& bare) {
  side(name, reference,
       [stand, bare, order](benchmark::State& state) {
         for (auto _ : state) {
           stand().onePass();  // leaves the caches as a pass would
           const double began = processorTime();
           bare(stand().*order);
           state.SetIterationTime(processorTime() - began);
         }
       })
      ->UseManualTime()
      ->Iterations(1);
}

constexpr const char* inOrder = "bare loop in the order of a pass";

void clearDirty(const Regions& regions) {
  for (const ChipMemory::Ptr& region : regions)
    std::memset(region->dirty()->data(), 0, region->dirty()->size());
  benchmark::ClobberMemory();
}

// The reader begins with a queue of what it is to read.
void clearDirtyAndQueue(const Regions& regions) {
  clearDirty(regions);
  std::deque<ChipMemory::Ptr> queue;
  for (const ChipMemory::Ptr& region : regions) queue.push_back(region);
  opaque(queue);
}

void compareAll(const Regions& regions) {
  int difference = 0;
  for (const ChipMemory::Ptr& region : regions) {
    difference |= std::memcmp(region->shadow()->data(), region->hardware()->data(),
                              region->hardware()->size());
  }
  opaque(difference);
}

void registerTurnsOf(const std::string& what, U32 regions, U32 entries) {
  auto stand = shared<LongStand>(regions, entries);
  const std::string start = "row24/start turn, " + what;
  const std::string comparing = "row24/comparing turn, " + what;
  registerTurn(start, stand, &LongStand::Turns::start);
  registerBare(start, "bare loop", stand, &LongStand::regions, clearDirty);
  registerTurn(comparing, stand, &LongStand::Turns::comparison);
  registerBare(comparing, "bare loop", stand, &LongStand::regions, compareAll);
  const std::string longest = "row24/longest slice turn, " + what;
  if (regions > 1) {
    registerBare(start, "bare loop and queue in the order of a pass", stand,
                 &LongStand::inPassOrder, clearDirtyAndQueue);
    registerBare(comparing, inOrder, stand, &LongStand::inPassOrder, compareAll);
    const Bare readSlice = [entries](const Regions& order) {
      for (U32 i = 0; i < entriesOfSlice / entries; ++i) {
        ChipMemory& region = *order[i];
        region.chipHam()->doRead(region.address(), region.hardware()->data(), 4, entries);
      }
    };
    registerTurn(longest, stand, &LongStand::Turns::longestSlice);
    registerBare(longest, "bare loop", stand, &LongStand::regions, readSlice);
    registerBare(longest, inOrder, stand, &LongStand::inPassOrder, readSlice);
  } else {  // one call of an access method that does nothing: no reference to be held against
    side(longest, "ours",
         [stand](benchmark::State& state) {
           for (auto _ : state) state.SetIterationTime(stand().onePass().longestSlice);
         })
        ->UseManualTime()
        ->Iterations(1);
  }
}

// Leaving `buffered` is one handler: the whole store is written, and a new one takes its place.
struct BufferedStand {
  explicit BufferedStand(U32 entries)
      : ham(copyingHam(4 * entries)),
        region(Hardware::chipMemoryFactory("region", ChipAddress(), entries, 4, 4, ham)) {
    region->shadowEnabledIs(true);
  }
  std::size_t bytes() const { return std::size_t{4} * region->entries(); }

  Hardware::ChipHam::Ptr ham;
  ChipMemory::Ptr region;
};

void registerLeavingBuffered(const std::string& what, U32 entries) {
  const std::string comparison = "row24/leaving buffered, " + what;
  auto stand = shared<BufferedStand>(entries);
  // Each store has been written before, so that all of its pages are there.
  side(comparison, "ours", [stand](benchmark::State& state) {
    BufferedStand& s = stand();
    for (auto _ : state) {
      state.PauseTiming();
      s.region->modeIs(ChipMemory::buffered());
      std::memset(s.region->shadow()->data(), 1, s.bytes());
      state.ResumeTiming();
      s.region->modeIs(ChipMemory::normal());
    }
  });
  side(comparison, "copy + new store", [stand](benchmark::State& state) {
    BufferedStand& s = stand();
    using Store = std::unique_ptr<void, decltype(&std::free)>;
    Store store(std::calloc(s.bytes(), 1), std::free);
    for (auto _ : state) {
      state.PauseTiming();
      std::memset(store.get(), 1, s.bytes());
      state.ResumeTiming();
      s.ham->doWrite(ChipAddress(), static_cast<U8*>(store.get()), 4, s.region->entries());
      store = Store(std::calloc(s.bytes(), 1), std::free);
      opaque(store);
    }
  });
}

// So is `unconfigured`: the index and the audit's request are emptied.
void registerUnconfigured(U32 regionCount) {
  const std::string comparison =
      "row24/unconfigured, " + std::to_string(regionCount / 1000) + ",000 regions";
  auto stand = shared<LongStand>(regionCount, 16u);
  side(comparison, "ours", [stand](benchmark::State& state) {
    HardwareShadow& shadow = *stand().shadow;
    for (auto _ : state) {
      state.PauseTiming();
      shadow.stateIs(HardwareShadow::unconfigured());  // from auditing, the first time
      shadow.stateIs(HardwareShadow::configured());
      state.ResumeTiming();
      shadow.stateIs(HardwareShadow::unconfigured());
    }
  });
  // The same numbers of counted pointers: a vector for the index, a map for the request, whose
  // order is that of the addresses, or that in which a request is emptied.
  const auto registerEmptied = [&](const char* reference, Regions LongStand::*order) {
    side(comparison, reference, [stand, order](benchmark::State& state) {
      for (auto _ : state) {
        state.PauseTiming();
        Regions index = stand().regions;
        std::map<std::size_t, ChipMemory::Ptr> request;
        std::map<const ChipMemory*, std::size_t> places;
        for (const ChipMemory::Ptr& region : stand().*order)
          places.emplace(region.ptr(), places.size());
        for (const ChipMemory::Ptr& region : index)
          request.emplace(places.at(region.ptr()), region);
        state.ResumeTiming();
        index.clear();
        request.clear();
      }
    });
  };
  registerEmptied("vector and map emptied", &LongStand::regions);
  registerEmptied("vector and map emptied in that order", &LongStand::inPassOrder);
}

// --- Idleness ----------------------------------------------------------------------------------

// Wakes a number of times, a millisecond apart, and then stops its activity.
class Ticker : public Zint::Clock::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onTime() override {
    if (--left == 0) return zintFwkActivity()->stop();
    timeMinIs(Zint::now() + 0.001);
  }
  U32 left = 0;
};

constexpr U32 wakeUps = 300;

// The median of nine runs.
double microsecondsOf(const std::function<void()>& run) {
  std::vector<double> runs;
  for (U32 i = 0; i < 9; ++i) {
    const double began = processorTime();
    run();
    runs.push_back((processorTime() - began) * 1e6 / wakeUps);
  }
  std::nth_element(runs.begin(), runs.begin() + 4, runs.end());
  return runs[4];
}

double microsecondsOfWakeUp() {
  const Zint::Ptr<Zint::Clock> clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const auto ticker = Zint::makePtr<Ticker>(activity, Zint::Ptr<const Zint::Clock>(clock));
  return microsecondsOf([&] {
    ticker->left = wakeUps;
    ticker->timeMinIs(0.0);
    activity->run();
  });
}

// The system calls of a wake-up, and nothing else: the timer is set, and waited for.
double microsecondsOfItsCalls() {
  const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  require(descriptor >= 0, "there is a timer");
  const double microseconds = microsecondsOf([descriptor] {
    for (U32 i = 0; i < wakeUps; ++i) {
      itimerspec timer{};
      clock_gettime(CLOCK_MONOTONIC, &timer.it_value);
      timer.it_value.tv_nsec += 1000000;
      if (timer.it_value.tv_nsec >= 1000000000) {
        timer.it_value.tv_nsec -= 1000000000;
        ++timer.it_value.tv_sec;
      }
      timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &timer, nullptr);
      pollfd poll{descriptor, POLLIN, 0};
      ::poll(&poll, 1, -1);
    }
  });
  close(descriptor);
  return microseconds;
}

}  // namespace

void registerLifeBenches() {
  registerRegions();
  // As much as a 32-bit process holds comfortably.
  if constexpr (sizeof(void*) == 8) {
    registerTurnsOf("1 region of 1 GiB", 1, 1u << 28);
  } else {
    registerTurnsOf("1 region of 256 MiB", 1, 1u << 26);
  }
  registerTurnsOf("100,000 regions", 100000, 16);
  registerLeavingBuffered("1 region of 64 MiB", 1u << 24);
  registerUnconfigured(100000);
  figure("row25/CPU of a wake-up inside run()", "us", microsecondsOfWakeUp);
  figure("row25/CPU of its system calls alone", "us", microsecondsOfItsCalls);
}

}  // namespace Bench
