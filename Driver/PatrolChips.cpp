// What the patrol knows of chips: which holds a region, and which are absent.
#include <Driver/ChipWriteRequest.h>
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolReplay.h>
#include <Driver/PatrolRun.h>
#include <Driver/PatrolWatches.h>
#include <algorithm>
#include <unordered_set>
#include <utility>

namespace Driver {

using Hardware::ChipMemory;
using Hardware::ChipReadRequest;

Patrol::ChipState* Patrol::findState(const ChipMemory& region) const {
  for (std::size_t left = chips_.size(); left > 0; --left) {
    if (left > chips_.size()) continue;  // holds() may take chips away
    const Chip::Ptr chip = chips_[left - 1]->chip;
    if (!chip->holds(region)) continue;
    if (ChipState* state = stateOf(chip); state != nullptr) return state;
  }
  const auto found = defaultChips_.find(region.chipHam().ptr());
  return found == defaultChips_.end() ? nullptr : found->second.get();
}

Patrol::ChipState& Patrol::stateOf(const ChipMemory::Ptr& region) {
  if (ChipState* state = findState(*region); state != nullptr) return *state;
  const Hardware::ChipHam::Ptr& ham = region->chipHam();
  auto state = std::make_unique<ChipState>();
  state->chip = chipFactory(ham == nullptr ? Zint::Name("chip") : ham->name(), ham);
  state->watch = Zint::makePtr<ChipWatch>(shadow_.zintFwkActivity(), *this, state->chip);
  ChipState& made = *(defaultChips_[ham.ptr()] = std::move(state));
  made.chip->patrol_ = this;
  return made;
}

Patrol::ChipState* Patrol::stateOf(const Chip::Ptr& chip) const {
  for (const auto& state : chips_) {
    if (state->chip == chip) return state.get();
  }
  const auto made = defaultChips_.find(chip->chipHam().ptr());
  return made != defaultChips_.end() && made->second->chip == chip ? made->second.get() : nullptr;
}

bool Patrol::isGiven(const ChipState& state) const {
  return std::ranges::any_of(chips_, [&](const auto& given) { return given.get() == &state; });
}

Chip::Ptr Patrol::findChip(const ChipMemory& region) const {
  const ChipState* state = findState(region);
  return state == nullptr ? nullptr : state->chip;
}

Chip::Ptr Patrol::makeChip(const ChipMemory::Ptr& region) { return stateOf(region).chip; }

std::vector<Chip::Ptr> Patrol::chips() const {
  std::vector<Chip::Ptr> chips;
  for (const auto& state : chips_) chips.push_back(state->chip);
  for (const auto& [ham, state] : defaultChips_) chips.push_back(state->chip);
  return chips;
}

void Patrol::chipIs(const Chip::Ptr& chip) {
  for (const auto& state : chips_) {
    if (state->chip == chip) return;
  }
  if (chip->patrol_ != nullptr && chip->patrol_ != this) {
    Zint::throwRangeException(chip->name() + " is a chip of another shadow");
  }
  chips_.reserve(chips_.size() + 1);
  if (chip->patrol_ == this) {  // it was made here: it is asked as a given one from now on
    const auto made = defaultChips_.find(chip->chipHam().ptr());
    chips_.push_back(std::move(made->second));
    defaultChips_.erase(made);
  } else {
    auto state = std::make_unique<ChipState>();
    state->chip = chip;
    state->watch = Zint::makePtr<ChipWatch>(shadow_.zintFwkActivity(), *this, chip);
    chips_.push_back(std::move(state));
    chip->patrol_ = this;
  }
  commands_.advance();
  resume();
}

void Patrol::chipDel(const Chip::Ptr& chip) {
  const std::vector<ChipMemory::Ptr> unrestored = regionsToRestore(chip);
  const auto found = std::find_if(chips_.begin(), chips_.end(),
                                  [&](const auto& state) { return state->chip == chip; });
  if (found == chips_.end()) return;
  const std::unique_ptr<ChipState> state = std::move(*found);
  if (static_cast<std::size_t>(found - chips_.begin()) < checked_) --checked_;
  chips_.erase(found);
  commands_.advance();
  state->chip->patrol_ = nullptr;
  state->watch->forget();
  dropReplay(*state);
  resume();
  for (const ChipMemory::Ptr& region : unrestored) {
    if (shadow_.chipMemory(region->address()) != region) continue;
    const Chip::Ptr heir = stateOf(region).chip;
    if (!heir->isRestoring()) heir->doChipReset();
  }
}

// The regions of a chip whose restoring has not ended.
std::vector<ChipMemory::Ptr> Patrol::regionsToRestore(const Chip::Ptr& chip) const {
  std::vector<ChipMemory::Ptr> regions;
  const ChipState* const state = chip == nullptr ? nullptr : stateOf(chip);
  if (state == nullptr || !isGiven(*state) || !chip->isRestoring()) return regions;
  const Zint::Ptr<ChipWriteRequest> request =
      state->replay == nullptr ? chip->replay() : state->replay->request();
  for (auto reactor = shadow_.chipMemoryIterator(); reactor; ++reactor) {
    const ChipMemory::Ptr region = reactor->chipMemory();
    if (request == nullptr ? chip->holds(*region) : request->holds(region)) {
      regions.push_back(region);
    }
  }
  return regions;
}

// Drops the chips that were made here for access methods that no region has any more, where nobody
// else holds them.
void Patrol::dropChips() {
  removals_ = 0;
  if (defaultChips_.empty()) return;
  std::unordered_set<const Hardware::ChipHam*> used;
  for (auto reactor = shadow_.chipMemoryIterator(); reactor; ++reactor) {
    used.insert(reactor->chipMemory()->chipHam().ptr());
  }
  std::vector<std::unique_ptr<ChipState>> dropped;
  dropped.reserve(defaultChips_.size());
  for (auto made = defaultChips_.begin(); made != defaultChips_.end();) {
    const Chip& chip = *made->second->chip;
    // The patrol's, and its watch's.
    if (used.contains(made->first) || chip.references() > 2 || chip.isRestoring()) {
      ++made;
      continue;
    }
    dropped.push_back(std::move(made->second));
    made = defaultChips_.erase(made);
  }
  if (dropped.empty()) return;
  commands_.advance();
  for (const std::unique_ptr<ChipState>& state : dropped) {
    state->chip->patrol_ = nullptr;
    state->watch->forget();
    dropReplay(*state);
  }
  resume();
}

// --- Absent chips --------------------------------------------------------------------------------

void Patrol::makeAbsent(ChipState& state, const Zint::String8& reason) {
  state.hasRead = state.isAlive = false;
  state.isMissed = true;
  const Chip::Ptr chip = state.chip;
  chip->absentIs(true, reason, time());
  updateState();
}

// Reads an entry of the region. False: none may be read. Throws where the chip does not answer.
bool Patrol::readAnyEntry(const ChipMemory::Ptr& cm) const {
  if (!isUnderAudit(*cm) || !whyNotHeld(*cm).empty()) return false;
  const RegionMarks* marks = this->marks(cm.ptr());
  const U32 entry = marks == nullptr || marks->policy == nullptr
                        ? 0
                        : firstRead(*marks->policy, 0, cm->entries());
  if (entry >= cm->entries()) return false;
  if (marks != nullptr && marks->policy != nullptr && !isRead(marks->policy->rule(entry))) {
    return false;
  }
  std::vector<U8> value(cm->entrySize());
  cm->chipHam()->doRead(cm->entryAddress(entry), value.data(), cm->entrySize(), 1);
  return true;
}

// Throws where the chip does not answer. Nothing is read where no entry of it may be. The region
// that was read last is likely to do: the others are many.
void Patrol::readAnyEntry(const Chip::Ptr& chip) const {
  const Zint::Ptr<ChipReadRequest> request = shadow_.auditReadRequest();
  const ChipState* const state = stateOf(chip);
  if (request == nullptr || state == nullptr) return;
  const ChipMemory::Ptr last = request->chipMemory(state->lastRead);
  if (last != nullptr && findChip(*last) == chip && readAnyEntry(last)) return;
  for (auto member = request->chipMemoryIterator(); member; ++member) {
    const ChipMemory::Ptr cm = member->chipMemory();
    if (cm != last && findChip(*cm) == chip && readAnyEntry(cm)) return;
  }
}

// Asks the chip whether it was reset. True: yes, and nobody has told of it yet. May throw.
bool Patrol::isToldReset(const Chip::Ptr& chip) {
  const U32 resets = chip->resets();
  const bool isReset = chip->wasReset();
  if (chip->resets() != resets) return false;  // it has told by itself
  ChipState* const state = stateOf(chip);
  const bool isKnown = state != nullptr && std::exchange(state->isResetTold, false);
  return isReset && !isKnown;
}

// Tells what the chip has answered, which it does once: whatever has changed meanwhile.
void Patrol::tellReset(const Chip::Ptr& chip) {
  if (ChipState* const state = stateOf(chip); state != nullptr) state->isTelling = true;
  chip->doChipReset();
  if (ChipState* const state = stateOf(chip); state != nullptr) state->isTelling = false;
}

// Asks a chip that its driver has restored, so that it does not tell of that reset later.
void Patrol::dropAnswer(const Chip::Ptr& chip) {
  Zint::String8 error;
  if (!shadow_.overrideHardware()) callGuarded([&] { isToldReset(chip); }, error);
  if (ChipState* const state = stateOf(chip); state != nullptr) state->isResetTold = false;
}

// Looks whether the absent chips whose time has come answer again. Those that are being restored
// are tried by their replay. False: there was none.
bool Patrol::retryAbsent() {
  const Zint::Seconds now = time();
  if (nextTry() > now) return false;
  bool isAnyTried = false;
  for (const Chip::Ptr& chip : chips()) {
    if (!chip->isAbsent() || chip->isRestoring() || now < chip->nextTry()) continue;
    if (isTurnOver()) break;  // the others in the next turn
    isAnyTried = hasWorked_ = true;
    Zint::String8 error = "its sentinel register is wrong";
    bool isPresent = false, isReset = false;
    const Zint::Seconds begin = beginAccess();
    const bool isAnswered = callGuarded(
        [&] {
          readAnyEntry(chip);
          isPresent = chip->isPresent();
          if (isPresent) isReset = isToldReset(chip);
        },
        error);
    noteAccess(begin);
    ChipState* const state = stateOf(chip);
    if (state == nullptr) continue;
    if (!isAnswered || !isPresent) {
      makeAbsent(*state, error);
      continue;
    }
    state->isAlive = true;
    chip->absentIs(false, "", now);
    if (isReset) tellReset(chip);
  }
  if (isAnyTried) updateState();
  return isAnyTried;
}

}  // namespace Driver
