#include <Driver/Check.h>

#include <Driver/AuditedShadow.h>
#include <Driver/Driver.h>
#include <Driver/Governor.h>
#include <Hardware/GenericChipHam.h>
#include <Zint/Enumeration.h>

#include <typeinfo>
#include <unordered_set>

namespace Driver {
namespace {

using Hardware::ChipMemory;
using Hardware::HardwareShadow;
using Zint::valueToStrep;
using RegionSet = std::unordered_set<const ChipMemory*>;

constexpr const char* complaintNames[] = {
    "overlap",         "replaced",     "wrappingSpan",  "stride",
    "wordSize",        "zeroSize",     "smallBuffer",   "neverRead",
    "neverCompared",   "auditedTwice", "bufferedAudit", "skippedVolatile",
    "overriddenAudit", "zeroInterval", "longSlice",     "unmatchedRun"};
constexpr Zint::Enumeration complaintKinds{"ComplaintKind", "ComplaintKind", complaintNames};

bool needsAudit(const ChipMemory& cm) {
  return cm.auditEnabled() && cm.mode() != ChipMemory::override();
}

// The bytes that a look-up takes for the region's.
U32 spanOf(const ChipMemory& cm) { return static_cast<U32>(U64{cm.stride()} * cm.entries()); }

Zint::String8 placeOf(const ChipMemory& cm) {
  return cm.name() + " at " + cm.address().stringValue();
}

// One check.
class Checker {
 public:
  Checker(const HardwareShadow& shadow, const CheckWith& with)
      : shadow_(shadow), audited_(dynamic_cast<const AuditedShadow*>(&shadow)), with_(with) {}

  std::vector<Complaint::Ptr> result() {
    collectRegions();
    checkShadow();
    for (auto reactor = shadow_.chipMemoryIterator(); reactor; ++reactor) {
      const ChipMemory::Ptr cm = reactor->chipMemory();
      checkLayout(cm);
      checkAudit(cm);
      if (audited_ != nullptr) checkPolicy(cm);
    }
    checkReplaced();
    return std::move(complaints_);
  }

 private:
  void complain(ComplaintKind kind, const Zint::String8& subject, Zint::String8 text,
                const char* remedy) {
    complaints_.push_back(
        Zint::makePtr<Complaint>(kind, subject, std::move(text), Zint::String8(remedy)));
  }

  void collectRegions();
  void checkShadow();
  void checkReader();
  void checkPace(const Governor& governor);
  void checkLayout(const ChipMemory::Ptr& region);
  void checkAddresses(const ChipMemory::Ptr& region);
  void checkAudit(const ChipMemory::Ptr& cm);
  void checkPolicy(const ChipMemory::Ptr& cm);
  void checkReplaced();
  bool isIndexed() const { return shadow_.state() != HardwareShadow::unconfigured(); }
  bool hasUnknownVolatile(const ChipMemory& cm, const Policy& policy) const;

  const HardwareShadow& shadow_;
  const AuditedShadow* const audited_;  // null: a plain shadow
  const CheckWith& with_;
  bool isAnyAudited_ = false;
  RegionSet registered_;
  std::vector<ChipMemory::Ptr> indexed_;  // in the index of the look-up
  RegionSet isIndexed_;
  RegionSet auditedElsewhere_;
  U64 farthestEnd_ = 0;  // of the regions so far
  ChipMemory::Ptr farthest_;
  std::vector<Complaint::Ptr> complaints_;
};

void Checker::collectRegions() {
  for (auto reactor = shadow_.chipMemoryIterator(); reactor; ++reactor) {
    registered_.insert(reactor->chipMemory().ptr());
    isAnyAudited_ |= needsAudit(*reactor->chipMemory());
  }
  if (isIndexed()) {
    for (U32 i = 0; i < shadow_.nextIndex().value(); ++i) {
      const Hardware::ChipMemoryChunk::Ptr chunk =
          shadow_.chipMemoryChunkArray(Hardware::ChipMemoryArrayIndex(static_cast<U16>(i)));
      for (U32 j = 0; chunk != nullptr && j < chunk->nextIndex().value(); ++j) {
        if (ChipMemory::Ptr cm =
                chunk->chipMemory(Hardware::ChipMemoryArrayIndex(static_cast<U16>(j)))) {
          isIndexed_.insert(cm.ptr());
          indexed_.push_back(std::move(cm));
        }
      }
    }
  }
  for (const auto& other : with_.shadows) {
    if (other == nullptr || other.ptr() == &shadow_) continue;
    for (auto reactor = other->chipMemoryIterator(); reactor; ++reactor) {
      if (needsAudit(*reactor->chipMemory())) auditedElsewhere_.insert(reactor->chipMemory().ptr());
    }
  }
}

// --- The shadow ---

void Checker::checkShadow() {
  if (!isAnyAudited_) return;
  checkReader();
  if (shadow_.overrideHardware() && shadow_.state() == HardwareShadow::auditing()) {
    complain(ComplaintKind::overriddenAudit, "shadow",
             audited_ != nullptr
                 ? "overrideHardware is set while auditing: the patrol is suspended"
                 : "overrideHardware is set while auditing: no pass begins, and nobody is told",
             audited_ != nullptr ? "clear overrideHardware: the patrol goes on by itself"
                                 : "set the state idle first, or clear overrideHardware");
  }
  if (const Governor::Ptr governor = audited_ != nullptr ? audited_->governor() : nullptr;
      governor != nullptr) {
    return checkPace(*governor);
  }
  const Zint::Seconds pause =
      audited_ != nullptr ? audited_->sliceInterval() : shadow_.minIntervalBetweenAudits();
  if (pause <= 0) {
    complain(ComplaintKind::zeroInterval, "shadow",
             audited_ != nullptr ? "sliceInterval is 0: a slice is read in every turn"
                                 : "minIntervalBetweenAudits is 0: one pass follows the other",
             "set an interval above 0");
  }
  const Zint::Seconds cycle = with_.sliceTime + pause;
  if (audited_ != nullptr && with_.sliceTime > with_.share * cycle) {
    complain(ComplaintKind::longSlice, "shadow",
             "a slice takes " + valueToStrep(with_.sliceTime) + " s and the pause after it " +
                 valueToStrep(pause) + " s, which is more than " + valueToStrep(with_.share) +
                 " of the thread's time",
             "make sliceInterval longer");
  }
}

// The intervals are the governor's: one of 0 is right where it is late.
void Checker::checkPace(const Governor& governor) {
  if (governor.holdsShare()) return;
  complain(ComplaintKind::longSlice, "shadow",
           "its turns took " + valueToStrep(governor.achievedShare()) +
               " of the thread's time in the last period, and " + valueToStrep(governor.share()) +
               " is asked",
           "ask its governor for a larger share, or audit less on demand");
}

void Checker::checkReader() {
  const char* text = nullptr;
  const char* remedy = nullptr;
  if (!shadow_.hasNotificationActive()) {
    text = "its reactors were never switched on: no pass begins";
    remedy = "make it with its factory";
  } else if (shadow_.clock() == nullptr) {
    text = "it has no clock: no pass begins by itself";
    remedy = "give it a clock";
  } else if (const auto request = shadow_.auditReadRequest();
             audited_ == nullptr && request != nullptr && request->notifiees() < 2) {
    text = "nobody reads for its audit: the first pass never ends";
    remedy = "make a reader with chipReaderFactory() on its auditReadRequest";
  }
  if (text != nullptr) complain(ComplaintKind::neverRead, "shadow", text, remedy);
}

// --- RegionSet ---

void Checker::checkLayout(const ChipMemory::Ptr& region) {
  const ChipMemory& cm = *region;
  if (cm.entries() == 0 || cm.entrySize() == 0 || cm.stride() == 0) {
    const char* what = cm.entries() == 0 ? "entries" : cm.entrySize() == 0 ? "entrySize" : "stride";
    complain(ComplaintKind::zeroSize, cm.name(), Zint::String8(what) + " is 0",
             "give the region its size, or leave it out");
  }
  checkAddresses(region);
  const Hardware::ChipHam* ham = cm.chipHam().ptr();
  if (ham != nullptr && typeid(*ham) == typeid(Hardware::GenericChipHam)) {
    if (cm.entries() > 1 && cm.stride() != cm.entrySize()) {
      complain(ComplaintKind::stride, cm.name(),
               "entries of " + valueToStrep(cm.entrySize()) + " bytes are " +
                   valueToStrep(cm.stride()) +
                   " apart, but its access method takes them for adjacent: an access to several "
                   "reaches the wrong registers",
               "use an access method for sparse entries");
    }
    if (cm.entrySize() % 4 != 0) {
      complain(ComplaintKind::wordSize, cm.name(),
               "entries of " + valueToStrep(cm.entrySize()) +
                   " bytes are no whole words of 32 bits: the first access ends the process",
               "use an access method for this size");
    }
  }
  const U64 bytes = U64{cm.entrySize()} * cm.entries();
  const Hal::Buf::Ptr& buffer = cm.hardware();
  if (buffer == nullptr ? needsAudit(cm) : bytes > buffer->size()) {
    const U64 size = buffer == nullptr ? 0 : buffer->size();
    complain(ComplaintKind::smallBuffer, cm.name(),
             "its entries take " + valueToStrep(bytes) + " bytes, its hardware buffer has " +
                 valueToStrep(size) + ": to read them ends the process or the pass",
             "set hardware to a buffer of that size whenever entries grows");
  }
}

void Checker::checkAddresses(const ChipMemory::Ptr& region) {
  const ChipMemory& cm = *region;
  const U64 span = U64{cm.stride()} * cm.entries();
  const U64 offset = cm.address().chipMemoryOffset();
  if (offset + span > U64{1} << 32) {
    complain(ComplaintKind::wrappingSpan, cm.name(),
             "its span of " + valueToStrep(span) + " from " + cm.address().stringValue() +
                 " on does not fit into 32 bits: some of its addresses are not found, or taken for "
                 "others'",
             "divide the region, or correct its stride or entries");
  }
  const U64 begin = cm.address().value();
  if (spanOf(cm) == 0) return;
  if (farthest_ != nullptr && begin < farthestEnd_) {
    complain(ComplaintKind::overlap, cm.name(),
             placeOf(cm) + " overlaps " + placeOf(*farthest_) +
                 ": which of them a look-up finds depends on the one before",
             "give the regions addresses of their own, or make them one region");
  }
  // The address space may end before the region does.
  const U64 end = begin + std::min<U64>(spanOf(cm), ~begin);
  if (farthest_ == nullptr || end > farthestEnd_) {
    farthestEnd_ = end;
    farthest_ = region;
  }
}

void Checker::checkAudit(const ChipMemory::Ptr& cm) {
  if (!needsAudit(*cm)) return;
  const auto request = shadow_.auditReadRequest();
  if (isIndexed() && request != nullptr && request->chipMemory(cm->address()) != cm) {
    complain(ComplaintKind::neverRead, cm->name(),
             "its audit was switched on when the shadow was configured already: no pass reads it",
             "call chipMemoryAuditEnabledIs of the shadow while it is idle");
  }
  if (!cm->shadowEnabled()) {
    complain(ComplaintKind::neverCompared, cm->name(),
             "it is read, but it has no shadow to compare with", "set shadowEnabled");
  }
  if (auditedElsewhere_.contains(cm.ptr())) {
    complain(ComplaintKind::auditedTwice, cm->name(),
             "two shadows audit it: each takes the marks of what was written away from the other, "
             "which then repairs what is right",
             "register it in one of them");
  }
  if (cm->mode() == ChipMemory::buffered()) {
    complain(ComplaintKind::bufferedAudit, cm->name(),
             audited_ != nullptr
                 ? "it is buffered: what differs is not repaired"
                 : "it is buffered: the audit writes what is held back to the chip before its time",
             "switch its audit off for that time");
  }
}

// --- Policies ---

void Checker::checkPolicy(const ChipMemory::Ptr& cm) {
  const Policy::Ptr policy = audited_->policy(cm);
  if (policy == nullptr) return;
  if (policy->hasUnmatchedRun()) {
    complain(ComplaintKind::unmatchedRun, cm->name(),
             "its policy speaks of entries that it does not have: " + policy->unmatchedRuns(),
             "correct the run, or the region's entries");
  }
  if ((cm->skipWriteIfMatchesCache() || cm->readFromCache()) && hasUnknownVolatile(*cm, *policy)) {
    complain(ComplaintKind::skippedVolatile, cm->name(),
             "its policy has volatile entries, but the region does not know of them: an old value "
             "is served, and a write that equals it never reaches the chip",
             "set isInForce of the policy after volatileEntries was changed, or clear "
             "skipWriteIfMatchesCache and readFromCache");
  }
}

bool Checker::hasUnknownVolatile(const ChipMemory& cm, const Policy& policy) const {
  const Hal::BufBase* bitmap = cm.volatileEntries().ptr();
  const auto isKnown = [bitmap](U32 entry) {
    return bitmap != nullptr && entry / 8 < bitmap->size() &&
           (bitmap->data()[entry / 8] >> (entry % 8) & 1) != 0;
  };
  for (U32 entry = 0; entry < cm.entries();) {
    const U32 end = policy.ruleEnd(entry, cm.entries());
    if (policy.rule(entry) == Rule::volatile_) {
      for (U32 i = entry; i < end; ++i) {
        if (!isKnown(i)) return true;
      }
    }
    entry = end;
  }
  return false;
}

// --- The registry, the index, and what the driver means to have ---

void Checker::checkReplaced() {
  RegionSet told;
  const auto complainOnce = [&](const ChipMemory& cm, const char* text, const char* remedy) {
    if (told.insert(&cm).second)
      complain(ComplaintKind::replaced, cm.name(), placeOf(cm) + text, remedy);
  };
  for (const ChipMemory::Ptr& cm : with_.regions) {
    if (cm == nullptr || registered_.contains(cm.ptr())) continue;
    if (const ChipMemory::Ptr other = shadow_.chipMemory(cm->address()); other != nullptr) {
      const Zint::String8 text = " gave way to " + other->name() + ", which has its address";
      complainOnce(*cm, text.c_str(), "give one of them another address");
    }
  }
  if (!isIndexed()) return;
  const char* const remedy = "set the state unconfigured and configured again";
  for (const ChipMemory::Ptr& cm : indexed_) {
    if (!registered_.contains(cm.ptr()))
      complainOnce(*cm, " is not registered any more, but look-ups still find it", remedy);
  }
  if (const ChipMemory::Ptr last = shadow_.lastChipMemory();
      last != nullptr && !registered_.contains(last.ptr())) {
    complainOnce(*last, " is not registered, but the next look-up tries it first", remedy);
  }
  for (auto reactor = shadow_.chipMemoryIterator(); reactor; ++reactor) {
    if (!isIndexed_.contains(reactor->chipMemory().ptr()))
      complainOnce(*reactor->chipMemory(), " is registered, but look-ups do not find it", remedy);
  }
}

}  // namespace

std::vector<Complaint::Ptr> check(const Zint::Ptr<const HardwareShadow>& shadow,
                                  const CheckWith& with) {
  return Checker(*refuseNull(shadow, "there is no shadow to check"), with).result();
}

// --- Complaints ---

Complaint::Complaint(ComplaintKind kind, Zint::String8 subject, Zint::String8 text,
                     Zint::String8 remedy)
    : kind_(kind),
      subject_(std::move(subject)),
      text_(std::move(text)),
      remedy_(std::move(remedy)) {}

Complaint::~Complaint() = default;

const Zint::Type* Complaint::fwkType() const { return &complaintType; }

Zint::String8 Complaint::stringValue() const {
  return subject_ + ": " + text_ + ". Remedy: " + remedy_ + ".";
}

Zint::String8 stringValue(ComplaintKind kind) {
  return Zint::enumerationText(complaintKinds, static_cast<S32>(kind));
}

Zint::String8 valueToStrep(const ComplaintKind& kind) {
  return Zint::valueToStrep(stringValue(kind));
}

std::ostream& operator<<(std::ostream& out, const ComplaintKind& kind) {
  return out << stringValue(kind);
}

}  // namespace Driver
