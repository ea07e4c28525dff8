#include <Driver/Chip.h>

#include <Driver/ChipWriteRequest.h>
#include <Driver/Driver.h>
#include <Zint/Sizes.h>
#include <algorithm>
#include <cmath>
#include <new>

namespace Driver {
namespace {

constexpr U32 maxDoublings = 64;

// A wait that is no number, or no time, would never end or never begin.
void requireWait(Zint::Seconds seconds, const char* message) {
  if (!(seconds > 0)) Zint::throwRangeException(message);
}

// Throws nothing: those who are to be notified matter more than the line.
void traceChip(const Chip& chip, const char* what, const Zint::String8& why) {
  try {
    DRIVER_TRACE(0, chip.name() << what << why);
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

Chip::Chip(Zint::Name name, const Hardware::ChipHam::Ptr& ham)
    : Entity(std::move(name)), chipHam_(ham) {}

Chip::~Chip() = default;

Zint::Ptr<Chip> chipFactory(Zint::Name name, const Hardware::ChipHam::Ptr& ham) {
  return Zint::makePtr<Chip>(std::move(name), ham);
}

const Zint::Type* Chip::fwkType() const { return &chipType; }

bool Chip::holds(const Hardware::ChipMemory& region) const { return region.chipHam() == chipHam_; }

bool Chip::isPresent() {
  if (sentinelValue_.empty()) return true;
  const Ptr self(this);
  const Hardware::ChipHam::Ptr ham = chipHam_;
  const std::vector<U8> expected = sentinelValue_, mask = sentinelMask_;
  std::vector<U8> read(expected.size());
  ham->doRead(sentinel_, read.data(), Zint::countOf(read), 1);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const U8 counts = mask.empty() ? U8{0xff} : mask[i];
    if (((read[i] ^ expected[i]) & counts) != 0) return false;
  }
  return true;
}

bool Chip::wasReset() { return false; }

void Chip::sentinelIs(const Hardware::ChipAddress& address, std::span<const U8> value,
                      std::span<const U8> mask) {
  if (!value.empty() && chipHam_ == nullptr) {
    Zint::throwRangeException("a sentinel needs the chip's access method");
  }
  if (!mask.empty() && mask.size() != value.size()) {
    Zint::throwRangeException("the mask of a sentinel must be as long as its value");
  }
  std::vector<U8> newValue(value.begin(), value.end());
  std::vector<U8> newMask(mask.begin(), mask.end());
  sentinel_ = address;
  sentinelValue_.swap(newValue);
  sentinelMask_.swap(newMask);
}

void Chip::retryMinIs(const Zint::Seconds& seconds) {
  requireWait(seconds, "retryMin must be above 0");
  if (Zint::updated(retryMin_, seconds)) notify(Id::retryMin);
}

void Chip::retryMaxIs(const Zint::Seconds& seconds) {
  requireWait(seconds, "retryMax must be above 0");
  if (Zint::updated(retryMax_, seconds)) notify(Id::retryMax);
}

// Every try that fails doubles the wait, and so does every absence until all of the chip was
// audited: a chip that answers in between, but not everywhere, does not begin anew.
void Chip::absentIs(bool isAbsent, const Zint::String8& reason, Zint::Seconds time) {
  const Ptr self(this);
  Zint::String8 kept = reason;  // first: without memory nothing changes
  const bool isNew = Zint::updated(isAbsent_, isAbsent);
  reason_ = std::move(kept);
  if (isNew) {
    since_ = time;
    tries_ = 0;
    if (isAbsent) {
      ++absences_;
      relapses_ = std::min(relapses_ + 1, maxDoublings);
    }
  } else if (isAbsent) {
    ++tries_;
  }
  const U32 doublings = std::min(tries_, maxDoublings) + (relapses_ == 0 ? 0 : relapses_ - 1);
  const double wait = retryMin_ * std::exp2(doublings);
  nextTry_ = isAbsent ? time + std::min(wait, std::max(retryMin_, retryMax_)) : Zint::never;
  if (isNew) {
    traceChip(*this, isAbsent ? ": absent: " : ": present again", reason_);
    notify(Id::isAbsent);
  }
}

void Chip::doChipReset() {
  const Ptr self(this);
  traceChip(*this, ": reset", "");
  ++resets_;
  restoringIs(true);
  notify(Id::resets);
}

void Chip::doRestored() { restoringIs(false); }

void Chip::restoringIs(bool isRestoring) {
  if (Zint::updated(isRestoring_, isRestoring)) notify(Id::isRestoring);
}

void Chip::restoresItselfIs(bool restoresItself) {
  if (Zint::updated(restoresItself_, restoresItself)) notify(Id::restoresItself);
}

void Chip::replayIs(const Zint::Ptr<ChipWriteRequest>& request) {
  const Ptr self(this);
  if (Zint::updated(replay_, request)) notify(Id::replay);
}

void Chip::auditsInc() {
  relapses_ = 0;
  ++audits_;
  notify(Id::audits);
}

void Chip::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::isAbsent:
      return onAbsent();
    case Id::isRestoring:
      return onRestoring();
    case Id::resets:
      return onResets();
    default:
      return Entity::NotifieeConst::handleNotification(activity);
  }
}

Chip::NotifieeConst::~NotifieeConst() = default;

}  // namespace Driver
