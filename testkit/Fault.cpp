// Faults: those that last, and those that happen at once.
#include <testkit/Fault.h>

#include <testkit/FaultState.h>

#include <algorithm>

namespace TestKit {

Fault& Fault::operator=(Fault&& other) noexcept {
  if (this == &other) return *this;
  end();
  state_ = std::move(other.state_);
  return *this;
}

void Fault::end() {
  if (state_) state_->isOver = true;
}

U64 Fault::hits() const { return state_ ? state_->hits : 0; }

// ---- what an access meets -----------------------------------------------------------------------

FakeChip::FaultsMet FakeChip::meetFaults(Cell& cell, Kind kind) {
  using Type = FaultState::Type;
  FaultsMet met;
  if (faults_.empty()) return met;
  std::erase_if(faults_, [](const auto& fault) { return fault->isOver; });
  const auto faults = faults_;  // moving the clock may call out
  for (const auto& each : faults) {
    FaultState& fault = *each;
    if (!cell.isIn(fault.target)) continue;
    const bool isRead = kind == Kind::read;
    switch (fault.type) {
      case Type::stuck:
        continue;  // settle() knows
      case Type::absent:
        met.isLost = true;
        if (fault.absence == Absence::error) met.fails = true;
        met.answer = fault.absence == Absence::allOnes ? allBits : 0;
        break;
      case Type::lost:
        if (isRead || !happens(fault.chance)) continue;
        met.isLost = true;
        break;
      case Type::failing:
        if (!happens(fault.chance)) continue;
        met.fails = true;
        break;
      case Type::flipping:
        if (!isRead || !happens(fault.chance)) continue;
        flipBit(cell, fault.bit);
        break;
      case Type::slow:
        clock_->timeIs(clock_->time() + fault.seconds);
        break;
      case Type::reset:
        if (fault.accesses == 0 || --fault.accesses != 0) continue;
        resetNow();
        break;
    }
    ++fault.hits;
  }
  return met;
}

// What the register holds once its stuck bits have been considered.
void FakeChip::settle(Cell& cell, U64 value) {
  for (const auto& fault : faults_) {
    if (fault->type != FaultState::Type::stuck || fault->isOver || !cell.isIn(fault->target))
      continue;
    const U64 stuck = (value & ~fault->bits) | (fault->value & fault->bits);
    if (stuck != value) ++fault->hits;
    value = stuck;
  }
  cell.value = value & (cell.shape->width >= 8 ? allBits : (U64{1} << (8 * cell.shape->width)) - 1);
}

// ---- chance -------------------------------------------------------------------------------------

void FakeChip::seedIs(U64 seed) {
  seed_ = seed;
  random_.seed(seed);
}

bool FakeChip::happens(double chance) {
  if (chance >= 1) return true;
  return static_cast<double>(random_() >> 11) * 0x1p-53 < chance;
}

U32 FakeChip::flipBit(Cell& cell, std::optional<U32> bit) {
  const U32 flipped = bit ? *bit : static_cast<U32>(random_() % (U64{cell.shape->width} * 8));
  settle(cell, cell.value ^ (U64{1} << flipped));
  return flipped;
}

// ---- made ---------------------------------------------------------------------------------------

std::string FakeChip::flip(std::string_view name, std::optional<U32> bit) {
  const Target which = target(name);
  requireBit(which, bit);
  const auto cells = cellsOf(which);
  if (cells.empty()) refuse("no register to flip");
  Cell& cell = *cells[static_cast<U32>(random_() % cells.size())];
  return cellName(cell) + " bit " + std::to_string(flipBit(cell, bit));
}

void FakeChip::resetNow() {
  for (auto& [address, cell] : cells_) {
    cell.written = 0;
    settle(cell, cell.shape->resetValue);
  }
}

void FakeChip::requireBit(const Target& which, std::optional<U32> bit) const {
  if (!bit) return;
  for (const Cell* cell : cellsOf(which)) {
    if (*bit >= cell->shape->width * 8) {
      refuse(cellName(*cell) + " has no bit " + std::to_string(*bit));
    }
  }
}

Fault FakeChip::faultIs(const FaultState& state) {
  std::erase_if(faults_, [](const auto& fault) { return fault->isOver; });
  return Fault(faults_.emplace_back(std::make_shared<FaultState>(state)));
}

Fault FakeChip::absent(Absence absence) {
  return faultIs({.type = FaultState::Type::absent, .absence = absence});
}

Fault FakeChip::stuckAt(std::string_view name, U64 bits, U64 value) {
  const Target which = target(name);
  Fault fault =
      faultIs({.type = FaultState::Type::stuck, .target = which, .bits = bits, .value = value});
  for (Cell* cell : cellsOf(which)) settle(*cell, cell->value);
  faults_.back()->hits = 0;
  return fault;
}

Fault FakeChip::lostWrite(std::string_view name, double chance) {
  return faultIs({.type = FaultState::Type::lost, .target = target(name), .chance = chance});
}

Fault FakeChip::failing(std::string_view name, double chance) {
  return faultIs({.type = FaultState::Type::failing, .target = target(name), .chance = chance});
}

Fault FakeChip::flipping(std::string_view name, double chance, std::optional<U32> bit) {
  const Target which = target(name);
  requireBit(which, bit);
  return faultIs(
      {.type = FaultState::Type::flipping, .target = which, .chance = chance, .bit = bit});
}

Fault FakeChip::slow(Zint::Seconds perAccess) {
  if (!clock_) refuse("slow() needs a clock");
  if (!(perAccess >= 0)) refuse("an access takes no negative time");
  return faultIs({.type = FaultState::Type::slow, .seconds = perAccess});
}

Fault FakeChip::resetAfter(U64 accesses) {
  if (accesses == 0) refuse("the next access is the first one");
  return faultIs({.type = FaultState::Type::reset, .accesses = accesses});
}

}  // namespace TestKit
