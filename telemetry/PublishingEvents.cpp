// What a publisher does when a patrol or an alarm board tells it something.
#include <Zint/Sizes.h>
#include <telemetry/Publishing.h>
#include <telemetry/PublishingWatches.h>
#include <telemetry/Telemetry.h>

#include <algorithm>
#include <utility>

namespace Telemetry {
namespace {

// At the end of slices the shadow's row is published at most so often: seconds.
constexpr Zint::Seconds slicePublication = 0.01;
// A complete pass without a difference is told at most so often.
constexpr Zint::Seconds cleanPassInterval = 60;
constexpr std::size_t dueRowsPerTurn = 32;

template <class T>
U32 wordOf(T number) {
  return static_cast<U32>(number);
}

}  // namespace

// --- The patrol ---

void Publishing::handleFinding(Shadow& shadow, const Driver::Finding& finding) {
  const ChipMemory* cm = finding.chipMemory.ptr();
  Region* region = shadow.adopting;
  if (region == nullptr || region->held.ptr() != cm) {
    const auto known = shadow.known.find(cm);
    region = known == shadow.known.end() ? nullptr : known->second;
    if (region == nullptr) {
      takeRegion(shadow, cm->address());
      const auto taken = shadow.known.find(cm);
      if (taken != shadow.known.end()) region = taken->second;
    }
  }
  const auto isChip = [&](const auto& each) { return each->held.ptr() == finding.chip.ptr(); };
  if (finding.chip != nullptr && std::none_of(shadow.chips.begin(), shadow.chips.end(), isChip)) {
    lookAtChips(shadow);
  }
  const auto chip = std::find_if(shadow.chips.begin(), shadow.chips.end(), isChip);
  const bool isAdopted = finding.verdict == Driver::Verdict::adopted;
  const bool isTold = !isAdopted && finding.verdict != Driver::Verdict::writtenMeanwhile;
  const Times now = isTold ? times() : Times{};
  const auto count = [&](Subject& subject) {
    subject.figures.count(finding.verdict, finding.nature, now.clock, secondsOfTime(now.wallClock));
  };
  count(shadow);
  if (chip != shadow.chips.end()) count(**chip);
  if (region != nullptr) {
    count(*region);
    if (!region->isDue) {
      region->isDue = true;
      shadow.due.push_back(region);
    }
  }
  if (isAdopted && region != nullptr) {
    if (shadow.adopting != region) tellAdopted(shadow);
    shadow.adopting = region;
    ++shadow.adopted;
  }
  if (!isTold) return;
  const std::string_view chipName =
      chip != shadow.chips.end() ? std::string_view((*chip)->name) : std::string_view();
  std::string text = Driver::stringValue(finding.verdict).bytes();
  if (const Zint::String8 named = finding.byName(); !named.empty()) text += "; " + named.bytes();
  events_.add({.kind = EventKind::finding,
               .verdict = wordOf(finding.verdict),
               .nature = wordOf(finding.nature),
               .entry = finding.entry,
               .entrySize = Zint::countOf(finding.expected),
               .region = finding.chipMemory->fwkKey(),
               .chip = chipName,
               .expected = finding.expected,
               .actual = finding.actual,
               .text = text},
              now);
}

void Publishing::tellAdopted(Shadow& shadow) {
  const Region* region = std::exchange(shadow.adopting, nullptr);
  const U32 adopted = std::exchange(shadow.adopted, 0);
  if (region == nullptr || adopted == 0) return;
  events_.add({.kind = EventKind::adopted,
               .verdict = adopted,
               .region = region->name,
               .chip = region->chip},
              times());
}

void Publishing::handlePass(Shadow& shadow, const Driver::PassResult& pass) {
  tellAdopted(shadow);
  const Times now = times();
  const bool isClean = pass.isComplete && pass.differences == 0;
  if (isClean && now.clock < shadow.cleanPassTold + cleanPassInterval) return;
  if (isClean) shadow.cleanPassTold = now.clock;
  events_.add({.kind = EventKind::pass,
               .verdict = static_cast<U32>(std::min<U64>(pass.differences, ~0u)),
               .region = shadow.name,
               .text = pass.reason},
              now);
}

void Publishing::handleTurn(Shadow& shadow, const Driver::TurnResult& turn) {
  const Budget budget(options_.turnBudget);
  const Zint::Seconds time = clock_->time();
  const bool isEdge = turn.isFirst || turn.isLast;
  // The patrol makes the chips that it needs.
  if (isEdge) lookAtChips(shadow);
  if (isEdge || time >= shadow.publishedTime + slicePublication) {
    shadow.publishedTime = time;
    publishFigures(shadow, RowSource::What::numbers);
  }
  // At least one, so that they get on.
  for (std::size_t i = 0; i < dueRowsPerTurn && !shadow.due.empty(); ++i) {
    if (i != 0 && budget.isSpent()) break;
    Region* region = shadow.due.back();
    shadow.due.pop_back();
    region->isDue = false;
    publishFigures(*region, RowSource::What::numbers);
  }
}

void Publishing::handlePatrolState(Shadow& shadow) {
  const Driver::AuditedShadow::Ptr audited = shadow.audited();
  if (audited == nullptr) return;
  const Driver::PatrolState state = audited->patrolState();
  view_.publish(shadow, RowSource::What::allButConstants);
  // Between two slices and between two passes it waits: that is no news.
  if (state == Driver::PatrolState::waiting || state == Driver::PatrolState::reading) {
    if (!shadow.isTroubled) return;
  }
  shadow.isTroubled =
      state != Driver::PatrolState::waiting && state != Driver::PatrolState::reading;
  events_.add({.kind = EventKind::patrol,
               .verdict = wordOf(state),
               .region = shadow.name,
               .text = audited->patrolReason()},
              times());
}

// --- Alarms ---

void Publishing::handleAlarm(Board& board, const Zint::String8& name, bool isTold) {
  const Driver::AlarmBoard::Ptr driverBoard = board.board();
  if (driverBoard == nullptr) return;
  const Driver::Alarm::Ptr there = driverBoard->alarm(name);
  std::unique_ptr<Alarm>& known = board.alarms[name.bytes()];
  if (known != nullptr && known->held.ptr() != there.ptr()) {
    view_.remove(*known);
    known = nullptr;
  }
  if (there == nullptr) {
    board.alarms.erase(name.bytes());
    return;
  }
  if (known == nullptr) {
    known = std::make_unique<Alarm>();
    known->table = TableId::alarm;
    known->name = name.bytes();
    known->type = there->fwkType();
    known->held = there;
    if (!isTold) known->state = there->state();
    view_.add(*known, times().wallClock);
  } else {
    view_.publish(*known, RowSource::What::allButConstants);
  }
  if (known->state == there->state()) return;
  known->state = there->state();
  const U32 what = known->state == Driver::Alarm::raised_         ? 1
                   : known->state == Driver::Alarm::acknowledged_ ? 2
                                                                  : 3;
  events_.add({.kind = EventKind::alarm,
               .verdict = what,
               .region = there->subject(),
               .text = there->rule()->name()},
              times());
}

}  // namespace Telemetry
