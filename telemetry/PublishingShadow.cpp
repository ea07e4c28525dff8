// What a publisher shows of shadows, their regions and chips.
#include <telemetry/Publishing.h>
#include <telemetry/PublishingWatches.h>
#include <telemetry/Telemetry.h>

#include <algorithm>
#include <utility>

namespace Telemetry {
// --- What is shown ---

bool Publishing::isShown(const Zint::PtrInterface* object) const {
  const auto isIt = [object](const auto& subject) { return subject->weak->notifier() == object; };
  return std::any_of(shadows_.begin(), shadows_.end(), isIt) ||
         std::any_of(objects_.begin(), objects_.end(), isIt) ||
         std::any_of(boards_.begin(), boards_.end(), isIt);
}

std::string Publishing::nameFor(TableId table, const char* word, std::string name) const {
  const auto isTaken = [&](const std::string& wanted) {
    const std::deque<Subject*>& slots = view_.slots(table);
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

// What a destroyed object showed leaves in pieces. True: there is more.
bool Publishing::dropDestroyed(const Budget& budget) {
  for (std::size_t i = 0; i < shadows_.size(); ++i) {
    Shadow& shadow = *shadows_[i];
    if (shadow.weak->notifier() != nullptr) continue;
    closeWatch(shadow.watch);
    while (!shadow.regions.empty()) {
      dropRegion(*shadow.regions.begin()->second);
      if (budget.isSpent()) return true;
    }
    for (const auto& chip : shadow.chips) {
      closeWatch(chip->watch);
      view_.remove(*chip);
    }
    view_.remove(shadow);
    shadows_.erase(shadows_.begin() + static_cast<std::ptrdiff_t>(i--));
  }
  std::erase_if(objects_, [this](const std::unique_ptr<Subject>& subject) {
    if (subject->weak->notifier() != nullptr) return false;
    view_.remove(*subject);
    return true;
  });
  for (std::size_t i = 0; i < boards_.size(); ++i) {
    Board& board = *boards_[i];
    if (board.weak->notifier() != nullptr) continue;
    closeWatch(board.watch);
    while (!board.alarms.empty()) {
      view_.remove(*board.alarms.begin()->second);
      board.alarms.erase(board.alarms.begin());
      if (budget.isSpent()) return true;
    }
    boards_.erase(boards_.begin() + static_cast<std::ptrdiff_t>(i--));
  }
  return false;
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
    watchPolicy(region, audited->policy(there));
  }
  shadow.regions[address.value()] = std::move(made);
  shadow.known[there.ptr()] = &region;
  if (lookAtRegion(region)) view_.add(region, times().wallClock);
}

void Publishing::dropRegion(Region& region) {
  Shadow& shadow = *region.owner;
  if (shadow.adopting == &region) tellAdopted(shadow);
  std::erase(shadow.due, &region);
  closeWatch(region.policyWatch);
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
                 .verdict = static_cast<U32>(region.mode),
                 .region = region.name,
                 .chip = region.chip,
                 .text = Hardware::stringValue(region.mode)},
                times());
  }
  lookAtPolicy(region, cm);
  return true;
}

void Publishing::watchPolicy(Region& region, const Driver::Policy::Ptr& policy) {
  closeWatch(region.policyWatch);
  region.policy = policy.ptr();
  region.policyWatch = nullptr;
  if (policy != nullptr) {
    region.policyWatch = Zint::makePtr<PolicyWatch>(this, &region, activity_, policy);
  }
}

void Publishing::lookAtPolicy(Region& region, const ChipMemory::Ptr& cm) {
  const Driver::AuditedShadow::Ptr audited = region.owner->audited();
  if (audited == nullptr) return;
  const Driver::Policy::Ptr policy = audited->policy(cm);
  std::string text = std::exchange(region.policyChanges, {});
  if (region.policy != policy.ptr()) {
    text = policy == nullptr ? "removed" : region.policy == nullptr ? "given" : "replaced";
    watchPolicy(region, policy);
  }
  if (text.empty()) return;
  events_.add({.kind = EventKind::policy, .region = region.name, .chip = region.chip, .text = text},
              times());
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

}  // namespace Telemetry
