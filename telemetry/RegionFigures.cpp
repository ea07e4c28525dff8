#include <telemetry/RegionFigures.h>

#include <algorithm>
#include <cmath>

namespace Telemetry {
namespace {

// How long a bucket is, and how many a window has.
struct Window {
  Zint::Seconds width;
  std::size_t buckets;
};
constexpr std::array<Window, 3> windows = {Window{1, 5}, Window{5, 12}, Window{60, 60}};
constexpr std::size_t mostBuckets = 60;

constexpr std::array<std::string_view, 10> verdictTotals = {
    "repairs", "adoptions",  "writtenMeanwhile", "detectOnly",    "deferred",
    "refused", "transients", "inQuarantine",     "failedRepairs", "lostByReset"};
constexpr std::array<std::string_view, 4> natureTotals = {"", "softRepairs", "recurringRepairs",
                                                          "stuckRepairs"};

bool isFindingVerdict(Driver::Verdict verdict) {
  return verdict != Driver::Verdict::adopted && verdict != Driver::Verdict::writtenMeanwhile;
}

}  // namespace

// Rings of buckets: the newest one holds the time of the last advance().
struct RegionFigures::Lately {
  struct Ring {
    std::array<U32, mostBuckets> counts{};
    S64 newest = 0;  // its bucket, counted from the clock's zero
    U64 sum = 0;
  };
  std::array<Ring, windows.size()> rings;

  void advance(Zint::Seconds time) {
    for (std::size_t i = 0; i < windows.size(); ++i) {
      Ring& ring = rings[i];
      const S64 now = static_cast<S64>(std::floor(time / windows[i].width));
      const S64 buckets = static_cast<S64>(windows[i].buckets);
      if (now <= ring.newest) continue;
      const S64 dropped = std::min(now - ring.newest, buckets);
      for (S64 bucket = now - dropped + 1; bucket <= now; ++bucket) {
        U32& count = ring.counts[place(bucket, buckets)];
        ring.sum -= count;
        count = 0;
      }
      ring.newest = now;
    }
  }
  void count() {
    for (std::size_t i = 0; i < windows.size(); ++i) {
      Ring& ring = rings[i];
      U32& count = ring.counts[place(ring.newest, static_cast<S64>(windows[i].buckets))];
      if (count == ~U32{0}) continue;
      ++count;
      ++ring.sum;
    }
  }
  static std::size_t place(S64 bucket, S64 buckets) {
    return static_cast<std::size_t>(((bucket % buckets) + buckets) % buckets);
  }
};

RegionFigures::RegionFigures() = default;
RegionFigures::RegionFigures(RegionFigures&&) noexcept = default;
RegionFigures& RegionFigures::operator=(RegionFigures&&) noexcept = default;
RegionFigures::~RegionFigures() = default;

void RegionFigures::count(Driver::Verdict verdict, Driver::Nature nature, Zint::Seconds time,
                          Zint::Seconds wallClock) {
  const auto ofVerdict = static_cast<std::size_t>(verdict);
  if (ofVerdict < verdicts) ++byVerdict_[ofVerdict];
  if (!isFindingVerdict(verdict)) return;
  const auto ofNature = static_cast<std::size_t>(nature);
  if (ofNature < natures) ++byNature_[ofNature];
  ++findings_;
  lastFindingTime_ = wallClock;
  if (!std::isfinite(time)) return;
  if (lately_ == nullptr) {
    lately_ = std::make_unique<Lately>();
    for (std::size_t i = 0; i < windows.size(); ++i) {
      lately_->rings[i].newest = static_cast<S64>(std::floor(time / windows[i].width));
    }
  }
  lately_->advance(time);
  lately_->count();
}

void RegionFigures::advance(Zint::Seconds time) {
  if (lately_ != nullptr && std::isfinite(time)) lately_->advance(time);
}

U64 RegionFigures::findingsIn(U32 window) const {
  return lately_ == nullptr ? 0 : lately_->rings[window].sum;
}

bool RegionFigures::seed(std::string_view total, U64 value) {
  if (total == "findings") {
    findings_ += value;
    return true;
  }
  for (std::size_t i = 0; i < verdicts; ++i) {
    if (total == verdictTotals[i]) {
      byVerdict_[i] += value;
      return true;
    }
  }
  for (std::size_t i = 1; i < natures; ++i) {
    if (total == natureTotals[i]) {
      byNature_[i] += value;
      return true;
    }
  }
  return false;
}

void RegionFigures::seedLastFindingTime(Zint::Seconds time) {
  lastFindingTime_ = std::max(lastFindingTime_, time);
}

}  // namespace Telemetry
