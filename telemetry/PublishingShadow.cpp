// What a publisher shows of shadows, their regions and chips, and of alarms; and the events that
// it writes down.
#include <Zint/Sizes.h>
#include <telemetry/Publishing.h>
#include <telemetry/PublishingWatches.h>
#include <telemetry/Telemetry.h>

#include <algorithm>

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

// --- What is shown ---

bool Publishing::isShown(const Zint::PtrInterface* object) const {
  const auto isIt = [object](const auto& subject) { return subject->weak->notifier() == object; };
  return std::any_of(shadows_.begin(), shadows_.end(), isIt) ||
         std::any_of(objects_.begin(), objects_.end(), isIt) ||
         std::any_of(boards_.begin(), boards_.end(), isIt);
}

std::string Publishing::nameFor(TableId table, const char* word, std::string name) const {
  const auto isTaken = [&](const std::string& wanted) {
    const std::vector<Subject*>& slots = view_.slots(table);
    return std::any_of(slots.begin(), slots.end(), [&](const Subject* subject) {
      return subject != nullptr && subject->name == wanted;
    });
  };
  if (!name.empty()) {
    if (isTaken(name)) Zint::throwRangeException("the name " + name + " is shown already");
    return name;
  }
  name = word;
  for (U32 number = 2; isTaken(name); ++number) name = word + std::to_string(number);
  return name;
}

void Publishing::addShadow(const HardwareShadow::Ptr& hardware, std::string name) {
  if (isShown(hardware.ptr())) return;
  auto made = std::make_unique<Shadow>();
  Shadow& shadow = *made;
  shadow.table = TableId::shadow;
  shadow.name = nameFor(TableId::shadow, "shadow", std::move(name));
  shadow.type = hardware->fwkType();
  shadow.weak = Zint::makePtr<WeakPointer>(activity_, hardware);
  for (auto it = hardware->chipMemoryIterator(); it; ++it) shadow.changed.push_back(it->fwkKey());
  shadows_.push_back(std::move(made));
  view_.add(shadow, times().wallClock);
  if (const Driver::AuditedShadow::Ptr audited = shadow.audited(); audited != nullptr) {
    shadow.watch = Zint::makePtr<AuditedShadowWatch>(this, &shadow, activity_, audited);
  } else {
    shadow.watch = Zint::makePtr<PlainShadowWatch>(this, &shadow, activity_, hardware);
  }
  lookAtChips(shadow);
  wakeAt(0.0);
}

void Publishing::addObject(TableId table, const Zint::Ptr<const Zint::PtrInterface>& object,
                           std::string name) {
  if (isShown(object.ptr())) return;
  auto made = std::make_unique<Subject>();
  Subject& subject = *made;
  subject.table = table;
  const char* word = table == TableId::reader ? "reader" : "governor";
  subject.name = nameFor(table, word, std::move(name));
  subject.type = object->fwkType();
  subject.weak = Zint::makePtr<WeakPointer>(activity_, object);
  objects_.push_back(std::move(made));
  view_.add(subject, times().wallClock);
  wakeAt(0.0);
}

void Publishing::addBoard(const Driver::AlarmBoard::Ptr& driverBoard) {
  if (isShown(driverBoard.ptr())) return;
  Board& board = *boards_.emplace_back(std::make_unique<Board>());
  board.weak = Zint::makePtr<WeakPointer>(activity_, driverBoard);
  board.watch = Zint::makePtr<AlarmBoardWatch>(this, &board, activity_, driverBoard);
  for (const Zint::String8& name : driverBoard->alarmNames()) handleAlarm(board, name, false);
  wakeAt(0.0);
}

void Publishing::dropDestroyed() {
  std::erase_if(shadows_, [this](const std::unique_ptr<Shadow>& shadow) {
    if (shadow->weak->notifier() != nullptr) return false;
    closeWatch(shadow->watch);
    while (!shadow->regions.empty()) dropRegion(*shadow->regions.begin()->second);
    for (const auto& chip : shadow->chips) {
      closeWatch(chip->watch);
      view_.remove(*chip);
    }
    view_.remove(*shadow);
    return true;
  });
  std::erase_if(objects_, [this](const std::unique_ptr<Subject>& subject) {
    if (subject->weak->notifier() != nullptr) return false;
    view_.remove(*subject);
    return true;
  });
  std::erase_if(boards_, [this](const std::unique_ptr<Board>& board) {
    if (board->weak->notifier() != nullptr) return false;
    closeWatch(board->watch);
    for (const auto& [name, alarm] : board->alarms) view_.remove(*alarm);
    return true;
  });
}

// --- Regions ---

bool Publishing::takeRegions(const Budget& budget) {
  // What a region is asked may show a further shadow.
  for (std::size_t i = 0; i < shadows_.size(); ++i) {
    Shadow& shadow = *shadows_[i];
    while (!shadow.changed.empty()) {
      const Hardware::ChipAddress address = shadow.changed.front();
      shadow.changed.pop_front();
      takeRegion(shadow, address);
      if (budget.isSpent()) return true;
    }
  }
  return false;
}

void Publishing::takeRegion(Shadow& shadow, const Hardware::ChipAddress& address) {
  const HardwareShadow::Ptr hardware = shadow.hardware();
  if (hardware == nullptr) return;
  const ChipMemory::Ptr there = hardware->chipMemory(address);
  const auto known = shadow.regions.find(address.value());
  if (known != shadow.regions.end()) {
    if (known->second->held.ptr() == there.ptr()) return;
    dropRegion(*known->second);
  }
  if (there == nullptr) return;
  auto made = std::make_unique<Region>();
  Region& region = *made;
  region.table = TableId::region;
  region.name = there->name().bytes();
  region.shadow = shadow.name;
  region.owner = &shadow;
  region.type = there->fwkType();
  region.held = there;
  region.mode = there->mode();
  if (const Driver::AuditedShadow::Ptr audited = shadow.audited(); audited != nullptr) {
    region.policy = audited->policy(there).ptr();
  }
  shadow.regions[address.value()] = std::move(made);
  shadow.known[there.ptr()] = &region;
  if (lookAtRegion(region)) view_.add(region, times().wallClock);
}

void Publishing::dropRegion(Region& region) {
  Shadow& shadow = *region.owner;
  if (shadow.adopting == &region) tellAdopted(shadow);
  std::erase(shadow.due, &region);
  view_.remove(region);
  const ChipMemory::Ptr held = region.region();  // destroyed last: that may call back
  shadow.known.erase(held.ptr());
  shadow.regions.erase(held->address().value());
}

// False: the region has left.
bool Publishing::lookAtRegion(Region& region) {
  Shadow& shadow = *region.owner;
  const HardwareShadow::Ptr hardware = shadow.hardware();
  const ChipMemory::Ptr cm = region.region();
  // Some operations of a shadow remove regions without a word.
  if (hardware == nullptr || hardware->chipMemory(cm->address()) != cm) {
    dropRegion(region);
    return false;
  }
  if (region.chipsSeen != shadow.chipsSeen) {
    region.chipsSeen = shadow.chipsSeen;
    const auto holder =
        std::find_if(shadow.chips.begin(), shadow.chips.end(),
                     [&](const auto& chip) { return chip->driverChip()->holds(*cm); });
    std::string chip;
    if (holder != shadow.chips.end()) {
      chip = (*holder)->name;
    } else if (cm->chipHam() != nullptr) {
      chip = cm->chipHam()->name().bytes();
    }
    if (region.chip != chip) {
      region.chip = chip;
      view_.publish(region, RowSource::What::all);
    }
  }
  if (region.mode != cm->mode()) {
    region.mode = cm->mode();
    events_.add({.kind = EventKind::mode,
                 .verdict = wordOf(region.mode),
                 .region = region.name,
                 .chip = region.chip,
                 .text = Hardware::stringValue(region.mode)},
                times());
  }
  if (const Driver::AuditedShadow::Ptr audited = shadow.audited(); audited != nullptr) {
    const Driver::Policy* policy = audited->policy(cm).ptr();
    if (region.policy != policy) {
      const char* text = policy == nullptr          ? "removed"
                         : region.policy == nullptr ? "given"
                                                    : "replaced";
      region.policy = policy;
      events_.add(
          {.kind = EventKind::policy, .region = region.name, .chip = region.chip, .text = text},
          times());
    }
  }
  return true;
}

// --- Chips ---

void Publishing::lookAtChips(Shadow& shadow) {
  const Driver::AuditedShadow::Ptr audited = shadow.audited();
  if (audited == nullptr) return;
  const std::vector<Driver::Chip::Ptr> there = audited->chips();
  const auto holds = [&](const std::unique_ptr<Chip>& subject) {
    return std::any_of(there.begin(), there.end(), [&](const Driver::Chip::Ptr& chip) {
      return chip.ptr() == subject->held.ptr();
    });
  };
  const std::size_t left = std::erase_if(shadow.chips, [&](const std::unique_ptr<Chip>& subject) {
    if (holds(subject)) return false;
    closeWatch(subject->watch);
    view_.remove(*subject);
    return true;
  });
  if (left != 0) ++shadow.chipsSeen;
  for (const Driver::Chip::Ptr& chip : there) {
    const auto isIt = [&](const auto& subject) { return subject->held.ptr() == chip.ptr(); };
    if (std::any_of(shadow.chips.begin(), shadow.chips.end(), isIt)) continue;
    Chip& subject = *shadow.chips.emplace_back(std::make_unique<Chip>());
    subject.table = TableId::chip;
    subject.name = chip->name().bytes();
    subject.shadow = shadow.name;
    subject.type = chip->fwkType();
    subject.held = chip;
    subject.watch = Zint::makePtr<DriverChipWatch>(this, &subject, activity_, chip);
    ++shadow.chipsSeen;
    view_.add(subject, times().wallClock);
    if (chip->isAbsent()) handleChip(subject, Driver::Chip::Id::isAbsent);
  }
}

void Publishing::handleChip(const Chip& subject, Zint::AttributeId attribute) {
  using Id = Driver::Chip::Id;
  const Driver::Chip::Ptr chip = subject.driverChip();
  U32 what = 0;
  if (attribute == Id::isAbsent) what = chip->isAbsent() ? 1 : 2;
  if (attribute == Id::resets) what = 3;
  if (attribute == Id::isRestoring && !chip->isRestoring()) what = 4;
  if (what == 0) return;
  const Zint::String8 reason = chip->reason();
  events_.add({.kind = EventKind::chip,
               .verdict = what,
               .chip = subject.name,
               .text = what == 1 ? std::string_view(reason) : ""},
              times());
  view_.publish(const_cast<Chip&>(subject), RowSource::What::allButConstants);
}

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
  events_.add({.kind = EventKind::finding,
               .verdict = wordOf(finding.verdict),
               .nature = wordOf(finding.nature),
               .entry = finding.entry,
               .entrySize = Zint::countOf(finding.expected),
               .region = finding.chipMemory->fwkKey(),
               .chip = chipName,
               .expected = finding.expected,
               .actual = finding.actual,
               .text = Driver::stringValue(finding.verdict)},
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
  for (std::size_t i = 0; i < dueRowsPerTurn && !shadow.due.empty() && !budget.isSpent(); ++i) {
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
