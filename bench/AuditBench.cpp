// The comparison at the end of an audit pass.
#include <cstring>
#include <numeric>
#include <set>

#include "Bench.h"
#include "Literal.h"

namespace Bench {
namespace {

constexpr U32 mebi = 1024 * 1024;

void audited(RegionStand& stand) {
  const U32 audits = stand.shadow->audits();
  stand.shadow->doAuditChips();
  require(stand.shadow->audits() == audits + 1, "a pass was counted");
}

LiteralRegion literal(RegionStand& stand) {
  return {*stand.ham,        stand.shadowBytes(), stand.hardwareBytes(), stand.initializedBits(),
          stand.dirtyBits(), stand.entrySize};
}

template <class Source>
Body pass(Source stand) {
  return [stand](benchmark::State& state) {
    RegionStand& s = stand();
    for (auto _ : state) audited(s);
    require(s.region->registersFixed() == 0, "equal regions need no repair");
  };
}

template <class Source>
Body memcmpOfAll(Source stand) {
  return [stand](benchmark::State& state) {
    RegionStand& s = stand();
    const U8* shadow = s.shadowBytes();
    const U8* hardware = s.hardwareBytes();
    for (auto _ : state) {
      opaque(shadow);
      int difference = std::memcmp(shadow, hardware, s.bytes);
      opaque(difference);
      require(difference == 0, "the buffers are equal");
    }
  };
}

// One virtual doCompare for each entry.
template <class Source>
Body bareCompareLoop(Source stand) {
  return [stand](benchmark::State& state) {
    RegionStand& s = stand();
    const Hardware::ChipHam& ham = *s.ham;
    for (auto _ : state) {
      U8* shadow = s.shadowBytes();
      U8* hardware = s.hardwareBytes();
      bool equal = true;
      for (U32 e = 0; e < s.entries; ++e, shadow += s.entrySize, hardware += s.entrySize) {
        equal &= ham.doCompare(shadow, hardware, s.entrySize);
      }
      opaque(equal);
      require(equal, "the buffers are equal");
    }
  };
}

template <class Source>
Body literalPass(Source stand) {
  return [stand](benchmark::State& state) {
    RegionStand& s = stand();
    LiteralRegion region = literal(s);
    for (auto _ : state) {
      U32 differences = literalAudit(region, s.entries);
      opaque(differences);
      require(differences == 0, "the buffers are equal");
    }
  };
}

// A region of 1 MiB with entries that a pass will learn: they differ and are not initialized.
struct LearningStand : RegionStand {
  LearningStand(double fraction, const Hardware::ChipHam::Ptr& accessMethod)
      : RegionStand(mebi / 4, 4, accessMethod) {
    std::vector<U32> all = shuffled(entries);
    all.resize(static_cast<std::size_t>(fraction * entries + 0.5));
    std::set<U32> sorted(all.begin(), all.end());
    unknown.assign(sorted.begin(), sorted.end());
  }
  void unlearn() {
    for (const U32 e : unknown) {
      shadowBytes()[4 * e] = static_cast<U8>(~hardwareBytes()[4 * e]);
      Hardware::bitmapBitDel(initializedBits(), e);
    }
  }
  bool hasLearned() const {
    if (std::memcmp(shadowBytes(), hardwareBytes(), bytes) != 0) return false;
    for (const U32 e : unknown) {
      if (!region->entryInitialized(e)) return false;
    }
    return true;
  }

  std::vector<U32> unknown;  // ascending
};

void registerLearning(const std::string& comparison, double fraction,
                      const Hardware::ChipHam::Ptr& ham) {
  auto stand = shared<LearningStand>(fraction, ham);
  side(comparison, "ours", [stand](benchmark::State& state) {
    LearningStand& s = stand();
    for (auto _ : state) {
      state.PauseTiming();
      s.unlearn();
      state.ResumeTiming();
      audited(s);
    }
    require(s.hasLearned(), "the pass has learned all entries");
  });
  side(comparison, "bare loop", [stand](benchmark::State& state) {
    LearningStand& s = stand();
    LiteralRegion region = literal(s);
    for (auto _ : state) {
      state.PauseTiming();
      s.unlearn();
      state.ResumeTiming();
      U32 differences = literalAudit(region, s.entries);
      opaque(differences);
    }
    require(s.hasLearned(), "the loop has learned all entries");
  });
}

}  // namespace

void registerAuditBenches() {
  for (const U32 size : {1u, 16u, 64u}) {
    const std::string megabytes = std::to_string(size) + " MiB";
    auto plain = shared<RegionStand>(size * mebi / 4, 4u, plainHam());
    const std::string row1 = "row01/comparison of " + megabytes;
    side(row1, "ours", pass(plain));
    side(row1, "memcmp", memcmpOfAll(plain));

    auto comparing = shared<RegionStand>(size * mebi / 4, 4u, comparingHam());
    const std::string row2 = "row02/comparison with own doCompare, " + megabytes;
    side(row2, "ours", pass(comparing));
    side(row2, "bare loop", bareCompareLoop(comparing));
  }

  registerLearning("row03/learning 0.01 %", 0.0001, plainHam());
  registerLearning("row03/learning 1 %", 0.01, plainHam());
  registerLearning("row03/learning 100 %", 1, plainHam());
  registerLearning("row03/learning 1 %, own doCompare", 0.01, comparingHam());

  for (const U32 entrySize : {1u, 2u, 3u, 4u, 8u, 12u, 16u, 64u}) {
    auto stand = shared<RegionStand>(mebi / entrySize, entrySize, plainHam());
    const std::string row = "sizes/comparison, " + std::to_string(entrySize) + "-byte entries";
    side(row, "ours", pass(stand));
    side(row, "literal loop", literalPass(stand));
  }

  for (U32 entries = 16; entries <= mebi; entries *= 4) {
    auto stand = shared<RegionStand>(entries, 4u, plainHam());
    const std::string point = "curve/entries-audit/" + std::to_string(entries);
    side(point, "ours", pass(stand));
    side(point, "memcmp", memcmpOfAll(stand));
    side(point, "literal loop", literalPass(stand));
  }
  for (const double percent : {0.001, 0.01, 0.1, 1.0, 10.0, 100.0}) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", percent);
    registerLearning(std::string("curve/changed-audit/") + text, percent / 100, plainHam());
  }
}

}  // namespace Bench
