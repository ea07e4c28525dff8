// What the telemetry costs: rows, events, turns, files, and the data path with it and without.
#include <Driver/AuditedShadow.h>
#include <fcntl.h>
#include <stdlib.h>
#include <telemetry/LiveReader.h>
#include <telemetry/Publisher.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "Bench.h"

namespace Bench {
namespace {

constexpr U32 shownRegions = 10'000;
constexpr U32 shownEntries = 64;

// In memory where there is such a directory, as /run is.
std::string newDirectory() {
  std::string pattern = std::filesystem::exists("/dev/shm") ? "/dev/shm/" : "/tmp/";
  pattern += "umbra-bench-XXXXXX";
  require(::mkdtemp(pattern.data()) != nullptr, "a directory for the telemetry");
  return pattern;
}

struct Published {
  explicit Published(U32 regionCount, bool isPublished = true) : directory(newDirectory()) {
    const auto chip = Zint::makePtr<Hardware::GenericChipHam>("chip", nullptr);
    for (U32 i = 0; i < regionCount; ++i) {
      const auto region = Hardware::chipMemoryFactory(("region" + std::to_string(i)).c_str(),
                                                      Hardware::ChipAddress(U64{i} * 0x1000),
                                                      shownEntries, 4, 4, chip);
      region->shadowEnabledIs(true);
      region->skipWriteIfMatchesCacheIs(true);
      shadow->chipMemoryIs(region);
      regions.push_back(region);
    }
    shadow->stateIs(Hardware::HardwareShadow::configured());
    if (!isPublished) return;
    Telemetry::PublisherOptions options;
    options.directory = directory;
    options.eventRate = 1e12;
    options.eventBurst = 1e12;
    publisher = Telemetry::publisherFactory(activity, clock, "bench", options);
    publisher->shadowIs(shadow);
  }
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;
  ~Published() {
    publisher = nullptr;
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  const std::string directory;
  Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(activity, clock);
  std::vector<Hardware::ChipMemory::Ptr> regions;
  Telemetry::Publisher::Ptr publisher;
};

Body publishing(U32 regionCount) {
  return [stand = shared<Published>(regionCount), regionCount](benchmark::State& state) {
    Published& published = stand();
    published.publisher->doPublish();
    for (auto _ : state) published.publisher->doPublish();
    partsOfIteration(state, regionCount);
  };
}

// The least that can be done: the bytes of as many rows copied from one place to another.
Body copying(U32 regionCount) {
  return [stand = shared<Published>(U32{1}), regionCount](benchmark::State& state) {
    Published& published = stand();
    published.publisher->doPublish();
    const Telemetry::LiveReader view(published.publisher->livePath());
    const std::size_t bytes = std::size_t{view.find("region")->rowBytes} * regionCount;
    const std::vector<U8> from(bytes, 1);
    std::vector<U8> to(bytes);
    for (auto _ : state) {
      std::memcpy(to.data(), from.data(), bytes);
      benchmark::DoNotOptimize(to.data());
      benchmark::ClobberMemory();
    }
    partsOfIteration(state, regionCount);
  };
}

constexpr U32 eventsAtOnce = 1024;

Body recording() {
  return [stand = shared<Published>(U32{1})](benchmark::State& state) {
    Published& published = stand();
    published.publisher->doPublish();
    const U8 value[4] = {1, 2, 3, 4};
    for (auto _ : state) {
      for (U32 i = 0; i < eventsAtOnce; ++i) {
        published.publisher->eventIs({.kind = Telemetry::EventKind::finding,
                                      .entry = i,
                                      .entrySize = 4,
                                      .region = "region0",
                                      .chip = "chip",
                                      .expected = value,
                                      .actual = value,
                                      .text = "repaired"});
      }
    }
    partsOfIteration(state, eventsAtOnce);
  };
}

// What a driver would do instead: a line of text in a file.
Body writingLines() {
  return [](benchmark::State& state) {
    const std::string directory = newDirectory();
    const std::string path = directory + "/log";
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    for (auto _ : state) {
      for (U32 i = 0; i < eventsAtOnce; ++i) {
        const Zint::String8 line =
            Zint::format("%.6f region0 entry %u on chip: expected %s, actual %s: repaired\n", 1.0,
                         i, "x01x02x03x04", "x01x02x03x04");
        require(::write(file, line.c_str(), line.size()) > 0, "a line is written");
      }
      state.PauseTiming();
      require(::ftruncate(file, 0) == 0, "the file is emptied");
      state.ResumeTiming();
    }
    ::close(file);
    std::filesystem::remove_all(directory);
    partsOfIteration(state, eventsAtOnce);
  };
}

Body writeHits(bool isPublished) {
  return [stand = shared<Published>(U32{16}, isPublished)](benchmark::State& state) {
    Published& published = stand();
    if (published.publisher != nullptr) published.publisher->doPublish();
    U32 value = 17;
    U8* data = reinterpret_cast<U8*>(&value);
    for (const auto& region : published.regions) {
      for (U32 entry = 0; entry < shownEntries; ++entry) {
        published.shadow->shadowWriteAndCompareWithCache(region, entry, data, 4);
      }
    }
    U32 hits = 0;
    for (auto _ : state) {
      for (const auto& region : published.regions) {
        for (U32 entry = 0; entry < shownEntries; ++entry) {
          hits += published.shadow->shadowWriteAndCompareWithCache(region, entry, data, 4) ? 1 : 0;
        }
      }
    }
    require(hits != 0, "writes are hits");
    partsOfIteration(state, std::size_t{16} * shownEntries);
  };
}

double cpuMicroseconds() {
  timespec time = {};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return 1e6 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_nsec);
}

// The turns in which the file is made and all rows are published three times. The machine's own
// work is charged to the thread at times: of the processor's time the run with the least counts.
struct Turns {
  std::vector<double> cpu;
  std::vector<double> wall;
};
Turns oneRunOfTelemetry() {
  Turns measured;
  Published published(shownRegions);
  while (published.clock->time() < 4) {
    const double cpu = cpuMicroseconds();
    const Zint::Seconds wall = Zint::MonotonicClock::systemTime();
    published.activity->turn();
    measured.wall.push_back(1e6 * (Zint::MonotonicClock::systemTime() - wall));
    measured.cpu.push_back(cpuMicroseconds() - cpu);
    published.clock->advanceTimeTo(
        std::max(published.activity->wakeTime(), published.clock->time()));
  }
  require(published.publisher->fileBytes() != 0 && published.publisher->notFit() == 0,
          "all regions are published");
  std::sort(measured.cpu.begin(), measured.cpu.end());
  std::sort(measured.wall.begin(), measured.wall.end());
  return measured;
}

const Turns& turnsOfTelemetry() {
  static const Turns turns = [] {
    Turns best = oneRunOfTelemetry();
    for (int i = 0; i < 4; ++i) {
      Turns next = oneRunOfTelemetry();
      if (next.cpu.back() < best.cpu.back()) best = std::move(next);
    }
    return best;
  }();
  return turns;
}

double bytesOfLiveView(U32 regionCount) {
  Published published(regionCount);
  published.publisher->doPublish();
  return published.publisher->fileBytes();
}

}  // namespace

void registerTelemetryBenches() {
  for (const U32 count : {U32{100}, shownRegions}) {
    const std::string name =
        "row32/publishing a row, one of " + std::string(count == 100 ? "100" : "10,000");
    side(name, "ours", publishing(count));
    side(name, "memcpy", copying(count));
  }
  side("row32/recording an event", "ours", recording());
  side("row32/recording an event", "line in a file", writingLines());
  side("row32/write hits with the telemetry", "ours", writeHits(true));
  side("row32/write hits with the telemetry", "without it", writeHits(false));
  figure("row32/longest turn, 10,000 regions", "us of the processor",
         [] { return turnsOfTelemetry().cpu.back(); });
  figure("row32/longest turn, 10,000 regions, by the clock on the wall", "us",
         [] { return turnsOfTelemetry().wall.back(); });
  figure("row32/99.9 % of turns, by the clock on the wall", "us", [] {
    const std::vector<double>& wall = turnsOfTelemetry().wall;
    return wall[wall.size() - 1 - wall.size() / 1000];
  });
  figure("row32/live view of 10,000 regions", "bytes",
         [] { return bytesOfLiveView(shownRegions); });
  figure("row32/live view of 1 region", "bytes", [] { return bytesOfLiveView(1); });
}

}  // namespace Bench
