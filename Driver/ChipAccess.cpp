#include <Driver/ChipAccess.h>

#include <Driver/ChipWriter.h>
#include <Driver/Driver.h>
#include <Driver/RegionWrite.h>
#include <Zint/Sizes.h>
#include <cstring>

namespace Driver {
namespace {

bool isMarked(const Hal::BufBase::Ptr& bitmap, U32 entry) {
  return bitmap != nullptr && entry >> 3 < bitmap->size() &&
         (bitmap->data()[entry >> 3] >> (entry & 7) & 1) != 0;
}

}  // namespace

// A copy of some bytes; one entry needs no memory.
class ChipAccess::Copy {
 public:
  explicit Copy(std::size_t size) : size_(size) {
    if (size > sizeof few_) many_.resize(size);
  }
  explicit Copy(std::span<const U8> bytes) : Copy(bytes.size()) {
    if (!bytes.empty()) std::memcpy(data(), bytes.data(), bytes.size());
  }
  U8* data() { return many_.empty() ? few_ : many_.data(); }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_;
  U8 few_[64];
  std::vector<U8> many_;
};

Zint::Ptr<ChipAccess> chipAccessFactory(const AuditedShadow::Ptr& shadow,
                                        const Hardware::ChipMemory::Ptr& chipMemory) {
  return Zint::makePtr<ChipAccess>(shadow, chipMemory);
}

ChipAccess::ChipAccess(const AuditedShadow::Ptr& shadow, const ChipMemory::Ptr& region)
    : shadow_(refuseNull(shadow, "null shadow parameter to Driver::ChipAccess not allowed")),
      chipMemory_(refuseNull(region, "null region parameter to Driver::ChipAccess not allowed")) {}

ChipAccess::~ChipAccess() = default;

const Zint::Type* ChipAccess::fwkType() const { return &chipAccessType; }

void ChipAccess::holdsWhileRestoringIs(bool holds) {
  if (Zint::updated(holdsWhileRestoring_, holds)) notify(Id::holdsWhileRestoring);
}

// --- What is refused ---

void ChipAccess::requireSize(std::size_t bytes) const {
  if (bytes == chipMemory_->entrySize()) return;
  Zint::throwRangeException(Zint::format("a value of %zu bytes is no entry of ", bytes) +
                            chipMemory_->name() +
                            Zint::format(", which has %u bytes", chipMemory_->entrySize()));
}

// Returns the number of entries.
U32 ChipAccess::requireEntries(U32 first, std::size_t bytes) const {
  const ChipMemory& cm = *chipMemory_;
  const U32 entrySize = cm.entrySize();
  if (entrySize == 0 || bytes % entrySize != 0) {
    Zint::throwRangeException(Zint::format("%zu bytes are no whole entries of ", bytes) +
                              cm.name() + Zint::format(", which have %u bytes", entrySize));
  }
  const U64 count = bytes / entrySize;
  if (first + count > cm.entries()) {
    const Zint::String8 entries =
        count == 1 ? Zint::format("entry %u is", first)
                   : Zint::format("%ju entries from %u on are", std::uintmax_t{count}, first);
    Zint::throwRangeException(entries + " beyond " + cm.name() +
                              Zint::format(", which has %u", cm.entries()));
  }
  if (cm.chipHam() == nullptr) Zint::throwRangeException(cm.name() + " has no access method");
  if (cm.shadowStoreNeeded() && cm.shadow() != nullptr && !hasStoreFor(cm, first + count)) {
    Zint::throwRangeException("the buffers of " + cm.name() + " do not hold these entries");
  }
  return static_cast<U32>(count);
}

// --- Reading ---

bool ChipAccess::isServed(U32 entry) const {
  const ChipMemory& cm = *chipMemory_;
  return cm.readFromCache() && isMarked(cm.initialized(), entry) &&
         !isMarked(cm.volatileEntries(), entry);
}

// REQUIRES: isKnown(i): whether entry first + i is served from the cache.
template <class IsKnown>
void ChipAccess::requireReadable(U32 first, U32 count, const IsKnown& isKnown) const {
  const Policy::Ptr policy = shadow_->policy(chipMemory_);
  if (policy == nullptr) return;
  for (U32 i = 0; i < count;) {
    const U32 end = policy->ruleEnd(first + i, first + count) - first;
    if (policy->rule(first + i) != Rule::writeOnly) i = end;
    while (i < end && isKnown(i)) ++i;
    if (i == end) continue;
    Zint::throwRangeException(Zint::format("entry %u of ", first + i) + chipMemory_->name() +
                              " is write-only, and its value is not known");
  }
}

void ChipAccess::readBytes(U32 first, std::span<U8> bytes) const {
  const U32 count = requireEntries(first, bytes.size());
  if (count == 0) return;
  // Held is what the access method and notifiees may drop.
  const Zint::Ptr<const ChipAccess> self(this);
  const ChipMemory::Ptr& cm = chipMemory_;
  const U32 entrySize = cm->entrySize();
  Copy values(bytes.size());
  const auto canBeServed = [&] {
    return shadow_->state() != Hardware::HardwareShadow::unconfigured() &&
           (cm->mode() == ChipMemory::override() || hasStoreFor(*cm, U64{first} + count));
  };
  const auto serve = [&](U32 i, U32 entries) {
    return canBeServed() &&
           shadow_->readFromCache(cm, first + i, values.data() + std::size_t{i} * entrySize,
                                  entries * entrySize);
  };
  // A single entry that was not served is not known.
  const auto isKnown = [&](U32 i) { return count > 1 && canBeServed() && isServed(first + i); };
  U64 missed = 0;
  if (!serve(0, count)) {
    requireReadable(first, count, isKnown);
    for (U32 i = 0; i < count;) {
      const bool isRunKnown = isKnown(i);
      U32 end = i + 1;
      while (end < count && isKnown(end) == isRunKnown) ++end;
      if (!isRunKnown || !serve(i, end - i)) {
        cm->chipHam()->doRead(cm->entryAddress(first + i),
                              values.data() + std::size_t{i} * entrySize, entrySize, end - i);
        missed += end - i;
      }
      i = end;
    }
  }
  std::memcpy(bytes.data(), values.data(), bytes.size());
  if (missed == 0) return;
  readMisses_ += missed;
  notify(Id::readMisses);
}

// --- Writing ---

class ChipAccess::Write {
 public:
  Write(ChipAccess& access, U32 first, U32 count, std::span<const U8> bytes)
      : access_(access),
        shadow_(access.shadow_),
        cm_(access.chipMemory_),
        chip_(shadow_->chip(cm_)),
        policy_(shadow_->policy(cm_)),
        entrySize_(cm_->entrySize()),
        first_(first),
        count_(count),
        values_(bytes) {}

  void write() {
    if (cm_->mode() == ChipMemory::override()) return offer();
    const bool isRestoring = chip_ != nullptr && chip_->isRestoring();
    if (!hasStoreFor(*cm_, U64{first_} + count_)) return writeWithoutStore();
    if (count_ > 1) many_.resize(count_);
    for (U32 i = 0; i < count_; ++i) {
      isDifferentIs(i, isRestoring || differs(i));
      noteEqual(i);
    }
    offer();
    const Hal::BufBase::Ptr store = cm_->shadow();
    if (shadow_->overrideHardware() || cm_->mode() != ChipMemory::normal()) return;
    if (!hasStoreFor(*cm_, U64{first_} + count_)) return;  // whoever replaced it has written
    std::memcpy(offered_.data(), stored(0), values_.size());
    if (isRestoring) hold();
    writeDifferent(store);
  }

 private:
  const U8* value(U32 i) { return values_.data() + std::size_t{i} * entrySize_; }
  const U8* stored(U32 i) const {
    return cm_->shadow()->data() + std::size_t{first_ + i} * entrySize_;
  }
  bool isDifferent(U32 i) const { return many_.empty() ? isDifferent_ : many_[i]; }
  void isDifferentIs(U32 i, bool is) {
    if (many_.empty()) {
      isDifferent_ = is;
    } else {
      many_[i] = is;
    }
  }

  bool differs(U32 i) {
    const U32 entry = first_ + i;
    return !cm_->skipWriteIfMatchesCache() || !isMarked(cm_->initialized(), entry) ||
           isMarked(cm_->volatileEntries(), entry) ||
           std::memcmp(stored(i), value(i), entrySize_) != 0 || shadow_->hasOpenFinding(cm_, entry);
  }

  // An entry that is equal is not marked by the offer, but its client has written it.
  void noteEqual(U32 i) {
    const U32 entry = first_ + i;
    if (!isMarked(cm_->dirty(), entry) && isMarked(cm_->initialized(), entry) &&
        !shadow_->isWritten(cm_, entry)) {
      shadow_->writtenIs(cm_, entry, true);
    }
  }

  void offer() {
    shadow_->shadowWriteAndCompareWithCache(cm_, first_, values_.data(), Zint::countOf(values_));
  }

  void writeWithoutStore() {
    if (shadow_->overrideHardware()) return;
    if (cm_->shadowStoreNeeded()) {
      Zint::throwRangeException("the store of " + cm_->name() + " is being exchanged");
    }
    access_.writeMisses_ += count_;
    cm_->chipHam()->doWrite(cm_->entryAddress(first_), values_.data(), entrySize_, count_);
    access_.notify(Id::writeMisses);
  }

  // Entries that the replay will write are left to it.
  void hold() {
    ChipWriter::Ptr replay;
    if (!access_.holdsWhileRestoring_ || !shadow_->findReplay(cm_, replay)) return;
    U32 held = 0;
    for (U32 i = 0; i < count_; ++i) {
      if (policy_ != nullptr && policy_->rule(first_ + i) == Rule::readOnly) continue;
      isDifferentIs(i, false);
      shadow_->openFindingIs(cm_, first_ + i, true);
      if (replay != nullptr) replay->heldWriteIs(*cm_, first_ + i);
      ++held;
    }
    if (held == 0) return;
    heldWriteCountInc();
    access_.writesHeld_ += held;
    access_.notify(Id::writesHeld);
  }

  // Whether nobody has changed the entry since it was offered.
  bool isNewest(const Hal::BufBase::Ptr& store, U32 i) {
    return cm_->shadow() == store &&
           std::memcmp(stored(i), offered_.data() + std::size_t{i} * entrySize_, entrySize_) == 0;
  }

  // A client that changes an entry during an access of an earlier run writes it itself.
  void writeDifferent(const Hal::BufBase::Ptr& store) {
    U64 written = 0;
    U32 i = 0;
    const auto isLeft = [&](U32 k) { return isDifferent(k) && isNewest(store, k); };
    try {
      while (cm_->shadow() == store) {
        while (i < count_ && !isLeft(i)) ++i;
        if (i == count_) break;
        U32 end = i + 1;
        while (end < count_ && isLeft(end)) ++end;
        written += end - i;
        RegionWrite write(shadow_, cm_);
        write.writer = "ChipAccess";
        const std::size_t at = std::size_t{i} * entrySize_;
        write.write({first_ + i, end - i},
                    {values_.data() + at, std::size_t{end - i} * entrySize_});
        if (chip_ != nullptr && chip_->isAbsent() && cm_->shadow() == store) openFindings(i, end);
        i = end;
      }
    } catch (...) {
      openFindings(i, count_);
      count(written);
      throw;
    }
    count(written);
  }

  // Of those from `i` on that were to be written.
  void openFindings(U32 i, U32 end) {
    for (; i < end; ++i) {
      if (isDifferent(i)) shadow_->openFindingIs(cm_, first_ + i, true);
    }
  }

  void count(U64 written) {
    if (written == 0) return;
    access_.writeMisses_ += written;
    access_.notify(Id::writeMisses);
  }

  // Held by the caller, as everything that is reached through them.
  ChipAccess& access_;
  const AuditedShadow::Ptr& shadow_;
  const ChipMemory::Ptr& cm_;
  const Chip::Ptr chip_;
  const Policy::Ptr policy_;
  const U32 entrySize_;
  const U32 first_;
  const U32 count_;
  Copy values_;
  Copy offered_{values_.size()};
  bool isDifferent_ = false;
  std::vector<bool> many_;  // the same for more than one entry
};

void ChipAccess::writeBytes(U32 first, std::span<const U8> bytes) {
  const U32 count = requireEntries(first, bytes.size());
  if (count == 0) return;
  const Ptr self(this);
  Write(*this, first, count, bytes).write();
}

// --- Notifiees ---

ChipAccess::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                         const Zint::Ptr<const ChipAccess>& access)
    : Zint::NotifieeConst(activity, access) {}

ChipAccess::NotifieeConst::~NotifieeConst() = default;

void ChipAccess::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::readMisses:
      return onReadMisses();
    case Id::writeMisses:
      return onWriteMisses();
    case Id::writesHeld:
      return onWritesHeld();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Driver
