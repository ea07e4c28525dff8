// Has a chip lost its state? A difference may be one flipped bit, or the first of thousands after a
// reset. Other entries of the chip tell.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <algorithm>

namespace Driver {

using Hardware::ChipMemory;

namespace {

// Entries whose known value is compared with their reset value in the search for those to read.
constexpr U32 maxInspected = 16384;
// Of them, how many are read, and how many have to be.
constexpr U32 maxProbes = 16;
constexpr U32 minProbes = 4;
// Resets that are concluded in succession, without a pass over the whole chip between them. A chip
// that is wrong after as many replays does not take what they write.
constexpr U32 maxResets = 3;
// Between two looks at the clock.
constexpr U32 inspectedAtOnce = 256;

// Whether a reset leaves the entry with this value.
bool isResetValue(const Policy* policy, U32 entry, const U8* value, U32 entrySize) {
  const U8* reset = policy == nullptr ? nullptr : policy->resetValue(entry);
  if (reset != nullptr) return std::equal(value, value + entrySize, reset);
  return std::all_of(value, value + entrySize, [](U8 byte) { return byte == 0; });
}

// What a buffered region holds is not in the chip yet.
bool canBeProbed(const ChipMemory& cm) {
  return isUnderAudit(cm) && cm.mode() != ChipMemory::buffered() && cm.entrySize() != 0 &&
         whyNotHeld(cm).empty();
}

}  // namespace

bool Patrol::needsProbe(const Run& run) const {
  if (&run.result != &result_ || run.state.probedResets >= maxResets) return false;
  const RegionMarks* marks = this->marks(run.cm.ptr());
  return run.state.probedPass != pass_ || marks == nullptr || marks->probedPass != pass_;
}

struct Patrol::Probe {
  // The entry that differs, as it was then.
  const Chip::Ptr chip;
  const ChipMemory::Ptr cm;
  const U32 entry;
  const std::vector<U8> expected, actual;

  U32 inspected = 0;
  U32 read = 0;
  U32 wrong = 0;
  // The region whose entries are inspected: those from `from` on and round, `behind` of them so
  // far. Null between two regions. Its own region comes first, then those of the request.
  ChipMemory::Ptr region = {};
  U32 from = 0;
  U32 behind = 0;
  std::optional<Hardware::ChipReadRequest::ChipMemoryIteratorConst> others = {};
};

// Probes for the first entry that differs and proves something: nothing of the run has been
// learned, told or written yet. `different` is the first that differs, before and after.
Patrol::Visit Patrol::probeFirst(Run& run, U32& different) {
  if (!shadow_.findsResets() || run.cm->mode() == ChipMemory::buffered() || !needsProbe(run)) {
    return Visit::done;
  }
  U32 entry = different;
  while (entry < run.end && (!run.isKnown(entry) || run.isMarked(entry))) {
    entry = nextDifference(run, entry + 1);
  }
  if (run.isSuperseded()) return Visit::ended;
  if (entry == run.end) return Visit::done;
  const Visit probed = probe(run, entry);
  if (run.isSuperseded()) return Visit::ended;
  if (probed == Visit::done) different = nextDifference(run, run.first);
  return probed;
}

// Reads other entries of the chip whose known values are not those after a reset. Done: they hold
// their values, or too few of them were read for a verdict. Full: the search goes on next turn.
Patrol::Visit Patrol::probe(Run& run, U32 entry) {
  run.state.probedPass = pass_;
  marksOf(run.cm).probedPass = pass_;
  const U8 *const expected = run.expected(entry), *const actual = run.actual(entry);
  probe_ = std::shared_ptr<Probe>(new Probe{.chip = run.chip,
                                            .cm = run.cm,
                                            .entry = entry,
                                            .expected = {expected, expected + run.entrySize},
                                            .actual = {actual, actual + run.entrySize}});
  probe_->region = run.cm;
  probe_->from = entry + 1;
  return goOnProbing(&run);
}

// `run`: the one that is being judged, null at the begin of a turn.
Patrol::Visit Patrol::goOnProbing(const Run* run) {
  const std::shared_ptr<Probe> probe = probe_;  // what is called may end the pass
  const Zint::Epoch::Mark mark(commands_);
  if (probe->region != nullptr && !canBeProbed(*probe->region))
    probe->region = nullptr;  // since the last turn
  while (probe->read < maxProbes && probe->inspected < maxInspected) {
    if (probe->region == nullptr) {
      if (probe->inspected % inspectedAtOnce == 0 && isTurnOver()) return Visit::full;
      const bool isAny = nextProbedRegion(*probe);
      if (mark.isSuperseded()) return Visit::ended;
      if (!isAny) break;
      continue;
    }
    if (!canBeProbed(*probe->region)) {  // an access may have dropped its store
      probe->region = nullptr;
      continue;
    }
    const U32 entries = probe->region->entries();
    if (probe->behind >= entries) {
      probe->region = nullptr;
      continue;
    }
    const U32 entry = static_cast<U32>((U64{probe->from} + probe->behind) % entries);
    const bool isRead = isProbed(*probe, entry, run);
    if ((isRead || probe->inspected % inspectedAtOnce == 0) && isTurnOver()) return Visit::full;
    hasWorked_ = true;
    ++probe->behind;
    ++probe->inspected;
    if (!isRead) continue;
    const Visit visited = readProbed(*probe, entry);
    if (mark.isSuperseded()) return Visit::ended;
    if (visited != Visit::done) return visited;
  }
  probe_ = nullptr;
  if (probe->read < minProbes || 2 * probe->wrong < probe->read) return Visit::done;
  // A chip that went away meanwhile answers noise, too.
  Zint::String8 error = "its sentinel register is wrong";
  bool isPresent = false;
  const bool isAnswered = callGuarded([&] { isPresent = probe->chip->isPresent(); }, error);
  if (mark.isSuperseded()) return Visit::ended;
  if (!isAnswered || !isPresent) {
    if (ChipState* const state = stateOf(probe->chip); state != nullptr) makeAbsent(*state, error);
    return mark.isSuperseded() ? Visit::ended : Visit::isVoid;
  }
  ++result_.differences;
  shadow_.findingsInc();
  tell({.chip = probe->chip,
        .chipMemory = probe->cm,
        .entry = probe->entry,
        .expected = probe->expected,
        .actual = probe->actual,
        .verdict = Verdict::reset,
        .time = time()});
  if (mark.isSuperseded()) return Visit::ended;
  if (ChipState* const state = stateOf(probe->chip); state != nullptr) ++state->probedResets;
  probe->chip->doChipReset();
  return Visit::ended;
}

// Takes the next one of the request, if it belongs to the chip. False: there is no next one.
bool Patrol::nextProbedRegion(Probe& probe) const {
  if (!probe.others) probe.others.emplace(request_->chipMemoryIterator());
  auto& member = *probe.others;
  if (!member) return false;
  ++probe.inspected;
  const ChipMemory::Ptr other = member->chipMemory();
  ++member;
  if (other == probe.cm || findChip(*other) != probe.chip || !canBeProbed(*other)) return true;
  probe.region = other;
  probe.from = probe.behind = 0;
  return true;
}

// Whether the entry's known value is to be compared with the chip's.
bool Patrol::isProbed(const Probe& probe, U32 entry, const Run* run) const {
  const ChipMemory& cm = *probe.region;
  if (probe.region == probe.cm && entry == probe.entry) return false;
  if (!bitAt(cm.initialized()->data(), entry) || bitAt(cm.dirty()->data(), entry)) return false;
  if (run != nullptr && probe.region == run->cm && run->wasMarked(entry)) return false;
  const RegionMarks* marks = this->marks(&cm);
  const Policy* policy = marks == nullptr ? nullptr : marks->policy.ptr();
  if (policy != nullptr && !isCompared(policy->rule(entry))) return false;
  if (marks != nullptr && marks->open.at(entry)) return false;
  // What the replay has not written, the reset has left so.
  const ChipState* const state = stateOf(probe.chip);
  if (state != nullptr && state->isRestored && !isWritten(cm, entry)) return false;
  const U32 size = cm.entrySize();
  return !isResetValue(policy, entry, cm.shadow()->data() + std::size_t{entry} * size, size);
}

Patrol::Visit Patrol::readProbed(Probe& probe, U32 entry) {
  const Zint::Epoch::Mark mark(commands_);
  const ChipMemory::Ptr cm = probe.region;
  const Hardware::ChipHam::Ptr ham = cm->chipHam();
  const Hal::BufBase::Ptr shadow = cm->shadow(), dirty = cm->dirty();
  const RegionMarks* marks = this->marks(cm.ptr());
  const Policy::Ptr policy = marks == nullptr ? nullptr : marks->policy;
  const U32 size = cm->entrySize();
  std::vector<U8> value(size);
  Zint::String8 error;
  const Zint::Seconds begin = beginAccess();
  const bool isRead =
      callGuarded([&] { ham->doRead(cm->entryAddress(entry), value.data(), size, 1); }, error);
  if (mark.isSuperseded() || cm->shadow() != shadow || cm->dirty() != dirty) {
    if (!mark.isSuperseded()) probe_ = nullptr;
    return Visit::ended;
  }
  ChipState* const state = stateOf(probe.chip);
  if (state == nullptr) return Visit::ended;
  if (isBounded()) state->cost.add(1, time() - begin);
  if (!isRead) {
    probe_ = nullptr;
    makeAbsent(*state, error);
    return mark.isSuperseded() ? Visit::ended : Visit::isVoid;
  }
  if (bitAt(dirty->data(), entry)) return Visit::done;
  ++probe.read;
  U8* const expected = shadow->data() + std::size_t{entry} * size;
  const bool isEqual = policy != nullptr && policy->mask(entry) != nullptr
                           ? policy->equals(entry, expected, value.data())
                           : ham->doCompare(expected, value.data(), size);
  probe.wrong += isEqual ? 0 : 1;
  return mark.isSuperseded() ? Visit::ended : Visit::done;
}

}  // namespace Driver
