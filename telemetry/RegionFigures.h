// What the telemetry counts of one region, chip or shadow: findings by what was done with them, and
// how many there were lately.
//
//   figures.count(finding.verdict, finding.nature, clock->time(), wallClock);
//   figures.findingsIn(60, clock->time());
//
// Totals count up; they are carried over a restart of the driver by seed(). How many there were
// lately is known since the start of the process, to within the width of a bucket: a second in 5
// seconds, 5 seconds in a minute, a minute in an hour. Nothing is allocated before the first
// finding.
#pragma once

#include <Driver/Finding.h>
#include <Zint/Api.h>
#include <array>
#include <memory>
#include <string_view>

namespace Telemetry {

class UMBRA_API RegionFigures {
 public:
  RegionFigures();
  RegionFigures(RegionFigures&&) noexcept;
  RegionFigures& operator=(RegionFigures&&) noexcept;
  ~RegionFigures();

  // `time` of the clock that findingsIn() is asked with, `wallClock` in seconds since 1970.
  void count(Driver::Verdict verdict, Driver::Nature nature, Zint::Seconds time,
             Zint::Seconds wallClock);

  // --- Totals ---
  U64 findings() const { return findings_; }  // all verdicts but adopted and writtenMeanwhile
  U64 repairs() const { return of(Driver::Verdict::repaired); }
  U64 adoptions() const { return of(Driver::Verdict::adopted); }
  U64 writtenMeanwhile() const { return of(Driver::Verdict::writtenMeanwhile); }
  U64 detectOnly() const { return of(Driver::Verdict::detectOnly); }
  U64 deferred() const { return of(Driver::Verdict::deferred); }
  U64 refused() const { return of(Driver::Verdict::refused); }
  U64 transients() const { return of(Driver::Verdict::transient); }
  U64 inQuarantine() const { return of(Driver::Verdict::quarantined); }
  U64 failedRepairs() const { return of(Driver::Verdict::failed); }
  U64 lostByReset() const { return of(Driver::Verdict::reset); }
  U64 softRepairs() const { return of(Driver::Nature::soft); }
  U64 recurringRepairs() const { return of(Driver::Nature::recurring); }
  U64 stuckRepairs() const { return of(Driver::Nature::stuck); }
  // Seconds since 1970; negative infinity before the first finding.
  Zint::Seconds lastFindingTime() const { return lastFindingTime_; }

  // --- Lately, at the time of the last advance() ---
  // So that the numbers below are those of `time`.
  void advance(Zint::Seconds time);
  U64 findingsIn5s() const { return findingsIn(0); }
  U64 findingsIn1m() const { return findingsIn(1); }
  U64 findingsIn1h() const { return findingsIn(2); }

  // Adds what an earlier process counted. False: no total has that name.
  bool seed(std::string_view total, U64 value);
  void seedLastFindingTime(Zint::Seconds time);

 private:
  static constexpr std::size_t verdicts = static_cast<std::size_t>(Driver::Verdict::reset) + 1;
  static constexpr std::size_t natures = static_cast<std::size_t>(Driver::Nature::stuck) + 1;
  struct Lately;

  U64 of(Driver::Verdict verdict) const { return byVerdict_[static_cast<std::size_t>(verdict)]; }
  U64 of(Driver::Nature nature) const { return byNature_[static_cast<std::size_t>(nature)]; }
  U64 findingsIn(U32 window) const;

  U64 findings_ = 0;
  std::array<U64, verdicts> byVerdict_{};
  std::array<U64, natures> byNature_{};
  Zint::Seconds lastFindingTime_ = -Zint::never;
  std::unique_ptr<Lately> lately_;  // null before the first finding
};

// The name under which reflection shows it.
constexpr const char* zintTypeName(const RegionFigures*) { return "Telemetry::RegionFigures"; }

}  // namespace Telemetry
