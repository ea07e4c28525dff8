#include "simulation/Chip.h"

#include <algorithm>
#include <cstring>

namespace Simulation {
namespace {

bool touches(U32 offset, U32 size, U32 place) { return place >= offset && place - offset < size; }

U8 maskOf(U32 bit) { return static_cast<U8>(1u << bit); }

}  // namespace

bool Chip::holds(U32 offset, U32 size) {
  if (U64{offset} + size <= memory_.size()) return true;
  watcher_.onChipMiss(number_, offset, size);
  return false;
}

void Chip::read(U32 offset, U8* data, U32 size) {
  if (!holds(offset, size)) return;
  std::memcpy(data, memory_.data() + offset, size);
  const bool glitched = glitch_ != none && touches(offset, size, glitch_);
  if (glitched) {
    data[glitch_ - offset] = static_cast<U8>(data[glitch_ - offset] ^ glitchMask_);
    glitch_ = none;
  }
  watcher_.onChipRead(number_, offset, data, size, glitched);
}

void Chip::write(U32 offset, const U8* data, U32 size) {
  if (!holds(offset, size)) return;
  const bool lost = lost_ != none && touches(offset, size, lost_);
  watcher_.onChipWrite(number_, offset, data, size, lost);
  if (lost) {
    lost_ = none;
    return;
  }
  std::memcpy(memory_.data() + offset, data, size);
  for (const Stuck& stuck : stuck_) {
    memory_[stuck.offset] = static_cast<U8>((memory_[stuck.offset] & ~stuck.mask) | stuck.value);
  }
}

void Chip::flip(U32 offset, U32 bit) {
  const U8 mask = maskOf(bit);
  for (const Stuck& stuck : stuck_) {
    if (stuck.offset == offset && stuck.mask == mask) return;
  }
  memory_[offset] = static_cast<U8>(memory_[offset] ^ mask);
}

void Chip::stick(U32 offset, U32 bit) {
  const U8 mask = maskOf(bit);
  flip(offset, bit);
  stuck_.push_back({offset, mask, static_cast<U8>(memory_[offset] & mask)});
}

bool Chip::isStuck(U32 offset, U32 size) const {
  return std::any_of(stuck_.begin(), stuck_.end(),
                     [&](const Stuck& stuck) { return touches(offset, size, stuck.offset); });
}

void Chip::glitchNextRead(U32 offset, U32 bit) {
  glitch_ = offset;
  glitchMask_ = maskOf(bit);
}

void Chip::endFaults() {
  stuck_.clear();
  lost_ = none;
  glitch_ = none;
}

}  // namespace Simulation
