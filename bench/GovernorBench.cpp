// The governor on buses of known cost: a manual clock that each access moves, so that the figures
// are the same in each run. And one run in real time.
#include <Driver/Governor.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <thread>

#include "Bench.h"

namespace Bench {
namespace {

constexpr Zint::Seconds askedPeriod = 0.5;
constexpr double askedShare = 0.05;
constexpr Zint::Seconds askedBound = 0.001;
constexpr U32 governedEntries = 262144;

// All registers hold 0; an access moves the clock by `callCost` and by `cost` for each entry.
class Bus : public Hardware::ChipHam {
 public:
  Bus(const Zint::Ptr<Zint::ManualClock>& clock, Zint::Seconds callCost, Zint::Seconds cost)
      : ChipHam("bus"), clock_(clock), callCost_(callCost), cost_(cost) {}
  void doRead(const Hardware::ChipAddress&, U8* buffer, U32 entrySize, U32 entries) override {
    std::fill_n(buffer, std::size_t{entrySize} * entries, U8{0});
    spend(entries);
  }
  void doWrite(const Hardware::ChipAddress&, U8*, U32, U32 entries) override { spend(entries); }

 private:
  void spend(U32 entries) { clock_->timeIs(clock_->time() + callCost_ + cost_ * entries); }

  const Zint::Ptr<Zint::ManualClock> clock_;
  const Zint::Seconds callCost_;
  const Zint::Seconds cost_;
};

class Watch : public Driver::AuditedShadow::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onTurn(const Driver::TurnResult& turn) override {
    longest = std::max(longest, turn.duration);
  }

  Zint::Seconds longest = 0;
};

struct Governed {
  double shareMissed = 0;   // parts of the share that was asked for
  double periodMissed = 0;  // parts of the period that was announced
  double longestTurn = 0;   // parts of the bound and one access
};

// Four passes; the first one learns.
Governed govern(Zint::Seconds callCost, Zint::Seconds cost) {
  const auto clock = Zint::manualClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const auto shadow = Driver::auditedShadowFactory(activity, clock);
  const auto region =
      Hardware::chipMemoryFactory("region", Hardware::ChipAddress(), governedEntries, 4, 4,
                                  Zint::makePtr<Bus>(clock, callCost, cost));
  region->shadowEnabledIs(true);
  region->auditEnabledIs(true);
  shadow->chipMemoryIs(region);
  const auto governor = Driver::governorFactory(activity, shadow);
  governor->periodIs(askedPeriod);
  governor->shareIs(askedShare);
  governor->turnBoundIs(askedBound);
  const auto watch = Zint::makePtr<Watch>(activity, shadow);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  shadow->stateIs(Hardware::HardwareShadow::auditing());

  // Runs up to the start of the pass of that number, from 1 on.
  const auto startPass = [&](U32 pass) {
    while (shadow->passPeriods().size() + 1 < pass) {
      clock->advanceTimeTo(activity->wakeTime());
      activity->turn();
    }
  };
  Governed worst;
  for (U32 pass = 2; pass < 6; ++pass) {
    startPass(pass);
    const Zint::Seconds announced = governor->announcedPeriod();
    startPass(pass + 1);
    const Zint::Seconds period = shadow->passPeriods().back();
    worst.periodMissed = std::max(worst.periodMissed, std::abs(period / announced - 1));
    const double share = governor->achievedShare() / askedShare;
    // Where the period is what counts, there is only too much.
    const bool isShareUsed = announced > askedPeriod * 1.001;
    worst.shareMissed = std::max(worst.shareMissed, isShareUsed ? std::abs(share - 1) : share - 1);
  }
  require(shadow->audits() >= 5, "passes are complete");
  worst.longestTurn = watch->longest / (askedBound + callCost + cost);
  return worst;
}

// --- In real time ---

constexpr U32 realEntries = 50000;
constexpr Zint::Seconds realCost = 1e-6;  // of an access
constexpr Zint::Seconds realTime = 10;

// All registers hold 0; an access of an entry keeps the thread busy for 1 us.
class BusyBus : public Hardware::ChipHam {
 public:
  BusyBus() : ChipHam("busy") {}
  void doRead(const Hardware::ChipAddress&, U8* buffer, U32 entrySize, U32 entries) override {
    std::fill_n(buffer, std::size_t{entrySize} * entries, U8{0});
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(entries);
    while (std::chrono::steady_clock::now() < end) {
    }
  }
  void doWrite(const Hardware::ChipAddress&, U8*, U32, U32) override {}
};

// Ten seconds after the first three passes.
Governed governInRealTime() {
  const auto clock = Zint::monotonicClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const auto shadow = Driver::auditedShadowFactory(activity, clock);
  const auto region = Hardware::chipMemoryFactory("region", Hardware::ChipAddress(), realEntries, 4,
                                                  4, Zint::makePtr<BusyBus>());
  region->shadowEnabledIs(true);
  region->auditEnabledIs(true);
  shadow->chipMemoryIs(region);
  const auto governor = Driver::governorFactory(activity, shadow);
  governor->periodIs(askedPeriod);
  governor->shareIs(askedShare);
  governor->turnBoundIs(askedBound);
  const auto watch = Zint::makePtr<Watch>(activity, shadow);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  const auto turn = [&] {
    const Zint::Seconds wait = activity->wakeTime() - clock->timeRead();
    if (wait > 0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
    activity->turn();
  };
  while (shadow->audits() < 3) turn();
  watch->longest = 0;
  Governed worst;
  U32 audits = shadow->audits();
  Zint::Seconds announced = governor->announcedPeriod();
  for (const Zint::Seconds end = clock->timeRead() + realTime; clock->timeRead() < end;) {
    const std::size_t periods = shadow->passPeriods().size();
    const Zint::Seconds last = periods == 0 ? 0 : shadow->passPeriods().back();
    turn();
    if (shadow->passPeriods().size() != periods || shadow->passPeriods().back() != last) {
      const Zint::Seconds period = shadow->passPeriods().back();
      worst.periodMissed = std::max(worst.periodMissed, std::abs(period / announced - 1));
      announced = governor->announcedPeriod();
    }
    if (shadow->audits() == audits) continue;
    audits = shadow->audits();
    worst.shareMissed =
        std::max(worst.shareMissed, std::abs(governor->achievedShare() / askedShare - 1));
  }
  require(shadow->audits() > 6, "passes are complete");
  worst.longestTurn = watch->longest / (askedBound + realCost);
  return worst;
}

void measureInRealTime() {
  auto held = std::make_shared<std::unique_ptr<Governed>>();
  const auto governed = [held]() -> const Governed& {
    if (*held == nullptr) *held = std::make_unique<Governed>(governInRealTime());
    return **held;
  };
  const std::string run = "row30/ten seconds at 1 us an access, ";
  figure(run + "share", "of the wish missed", [governed] { return governed().shareMissed; });
  figure(run + "start to start", "of the announced missed",
         [governed] { return governed().periodMissed; });
  figure(run + "longest turn by the wall clock", "of the bound and an access",
         [governed] { return governed().longestTurn; });
}

}  // namespace

void registerGovernorBenches() {
  measureInRealTime();
  for (const double microseconds : {0.1, 1.0, 5.0, 50.0, 200.0}) {
    for (const double ofCall : {0.0, 75.0}) {
      std::string bus = Zint::format("%g us an access", microseconds).bytes();
      if (ofCall != 0) bus += Zint::format(" and %g us a call", ofCall).bytes();
      // One run for the three figures.
      auto held = std::make_shared<std::unique_ptr<Governed>>();
      const auto governed = [held, microseconds, ofCall]() -> const Governed& {
        if (*held == nullptr) {
          *held = std::make_unique<Governed>(govern(ofCall * 1e-6, microseconds * 1e-6));
        }
        return **held;
      };
      figure("row30/share, " + bus, "of the wish missed",
             [governed] { return governed().shareMissed; });
      figure("row30/start to start, " + bus, "of the announced missed",
             [governed] { return governed().periodMissed; });
      figure("row30/longest turn, " + bus, "of the bound and an access",
             [governed] { return governed().longestTurn; });
    }
  }
}

}  // namespace Bench
