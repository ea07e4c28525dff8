// Has a chip lost its state? A difference may be one flipped bit, or the first of thousands after a
// reset. Other entries of the chip tell.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <algorithm>
#include <cstring>

namespace Driver {

using Hardware::ChipMemory;

namespace {

// Entries whose known value is compared with their reset value in the search for those to read, in
// the region that differs and in all of the chip; up to 64 unknown ones in succession count as one.
constexpr U32 maxInspected = 16384;
// Of a region, before others are looked at: a large one leaves some for them.
constexpr U32 inspectedOfRegion = 16;
// Of them, how many are read, and how many have to be.
constexpr U32 maxProbes = 16;
constexpr U32 minProbes = 4;
// Resets that are concluded in succession, without a pass over the whole chip between them. A chip
// that is wrong after as many replays does not take what they write.
constexpr U32 maxResets = 3;
// Between two looks at the clock.
constexpr U32 inspectedAtOnce = 64;

// Whether a reset leaves the entry with this value.
bool isResetValue(const Policy* policy, U32 entry, const U8* value, U32 entrySize) {
  const U8* reset = policy == nullptr ? nullptr : policy->resetValue(entry);
  if (reset != nullptr) return std::equal(value, value + entrySize, reset);
  return std::all_of(value, value + entrySize, [](U8 byte) { return byte == 0; });
}

// How many entries can be passed over from this one on, because they are unknown; else 1.
U32 stepAt(const ChipMemory& cm, U32 entry) {
  const U8* const known = cm.initialized()->data() + entry / 8;
  const U32 left = cm.entries() - entry;
  U64 bits = 0;
  if (entry % 64 == 0 && left >= 64) {
    std::memcpy(&bits, known, sizeof bits);
    if (bits == 0) return 64;
  }
  return entry % 8 == 0 && left >= 8 && *known == 0 ? 8 : 1;
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

// Entries of a chip whose known values are not those after a reset, found in one walk over the
// regions of the request, some of each, and in rounds over what they have left. The probes of a
// pass share them while nothing changes what is known.
struct Patrol::Survey {
  struct Entry {
    ChipMemory::Ptr cm;
    U32 entry;
  };

  const Zint::Epoch::Mark mark;
  const U64 knownChanges;
  Hardware::ChipReadRequest::ChipMemoryIteratorConst members;
  std::vector<Entry> found;
  std::vector<ChipMemory::Ptr> passedOver;  // regions of the chip that could not be probed then
  ChipMemory::Ptr region = {};              // whose entries are inspected; null between two
  U32 entry = 0;                            // the next one of it
  U32 left = 0;                             // to be inspected before others are
  std::vector<Entry> rest = {};             // the first of each region that was left for later
  std::size_t nextRest = 0;
  U32 inspected = 0;
};

struct Patrol::Probe {
  // The entry that differs, as it was then.
  const Chip::Ptr chip;
  const ChipMemory::Ptr cm;
  const U32 entry;
  const std::vector<U8> expected, actual;

  U32 read = 0;
  U32 wrong = 0;
  U64 walked = 0;     // entries of the same region, from the next one on and round
  U32 inspected = 0;  // of them
  U32 surveyed = 0;   // found in the survey, and read or left out
  std::vector<std::pair<const ChipMemory*, U32>> taken =
      {};  // of the survey: another one may find them
};

// Probes for the first entry that differs and proves something: nothing of the run has been
// learned, told or written yet. `different` is the first that differs, before and after.
Patrol::Visit Patrol::probeFirst(Run& run, U32& different) {
  if (!shadow_.findsResets() || run.cm->mode() == ChipMemory::buffered() || !needsProbe(run)) {
    return Visit::done;
  }
  U32 entry = different;
  for (U32 passed = 1; entry < run.end; ++passed) {
    const U32 proven = run.nextProven(entry);
    if (proven == entry) break;
    if (passed % inspectedAtOnce == 0 && isTurnOver()) return Visit::full;  // a shorter run, then
    entry = nextDifference(run, proven);
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
  return goOnProbing(&run);
}

// `run`: the one that is being judged, null at the begin of a turn.
Patrol::Visit Patrol::goOnProbing(const Run* run) {
  const std::shared_ptr<Probe> probe = probe_;  // what is called may end the pass
  const Zint::Epoch::Mark mark(commands_);
  if (isReplaced(*probe->cm)) {
    probe_ = nullptr;
    return Visit::done;
  }
  while (probe->read < maxProbes) {
    ChipMemory::Ptr cm;
    U32 entry = 0;
    const Visit found = findProbed(*probe, run, cm, entry);
    if (mark.isSuperseded()) return Visit::ended;
    if (found == Visit::full) return found;
    if (found == Visit::ended) break;
    const Visit visited = readProbed(*probe, cm, entry);
    if (mark.isSuperseded()) return Visit::ended;
    if (visited != Visit::done) return visited;
  }
  probe_ = nullptr;
  if (probe->read < minProbes || 2 * probe->wrong < probe->read) return Visit::done;
  // A chip that went away meanwhile answers noise, too.
  Zint::String8 error = "its sentinel register is wrong";
  bool isPresent = false;
  const Zint::Seconds begin = beginAccess();
  const bool isAnswered = callGuarded([&] { isPresent = probe->chip->isPresent(); }, error);
  noteAccess(begin);
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

// The next entry that is to be read: of the same region first, then of the chip's others. Ended:
// there is none. Full: the turn is.
Patrol::Visit Patrol::findProbed(Probe& probe, const Run* run, ChipMemory::Ptr& cm, U32& entry) {
  cm = probe.cm;
  const U32 entries = canBeProbed(*cm) ? cm->entries() : 0;
  while (probe.walked < entries && probe.inspected < maxInspected) {
    entry = static_cast<U32>((probe.entry + 1 + probe.walked) % entries);
    const U32 step = stepAt(*cm, entry);
    const bool isFound = step == 1 && entry != probe.entry && isProbed(probe.chip, *cm, entry, run);
    if ((isFound || probe.inspected % inspectedAtOnce == 0) && isTurnOver()) return Visit::full;
    hasWorked_ = true;
    ++probe.inspected;
    probe.walked += step;
    if (isFound) return Visit::done;
  }
  const Zint::Epoch::Mark mark(commands_);
  const std::shared_ptr<Survey> held = surveyOf(probe);  // what is called may end the pass
  if (held == nullptr) return Visit::ended;
  for (Survey& survey = *held;;) {
    if (probe.surveyed < survey.found.size()) {
      if (isTurnOver()) return Visit::full;
      hasWorked_ = true;
      const Survey::Entry& found = survey.found[probe.surveyed++];
      cm = found.cm;
      entry = found.entry;
      // What was found in an earlier turn may have changed.
      const std::pair<const ChipMemory*, U32> place(cm.ptr(), entry);
      if (cm == probe.cm || isReplaced(*cm) || !canBeProbed(*cm) || entry >= cm->entries() ||
          std::ranges::count(probe.taken, place) != 0 || !isProbed(probe.chip, *cm, entry, run)) {
        continue;
      }
      probe.taken.push_back(place);
      return Visit::done;
    }
    if (survey.inspected % inspectedAtOnce == 0 && isTurnOver()) return Visit::full;
    hasWorked_ = true;
    if (!goOnSurveying(survey, probe.chip) || mark.isSuperseded()) return Visit::ended;
  }
}

// Null: the chip is none of this shadow's any more.
std::shared_ptr<Patrol::Survey> Patrol::surveyOf(Probe& probe) {
  ChipState* const state = stateOf(probe.chip);
  if (state == nullptr) return nullptr;
  const Survey* const old = state->survey.get();
  if (old == nullptr || old->mark.isSuperseded() || old->knownChanges != knownChanges_ ||
      std::ranges::any_of(old->passedOver, [](const auto& cm) { return canBeProbed(*cm); })) {
    state->survey.reset(new Survey{.mark = Zint::Epoch::Mark(commands_),
                                   .knownChanges = knownChanges_,
                                   .members = request_->chipMemoryIterator(),
                                   .found = {},
                                   .passedOver = {}});
    probe.surveyed = 0;
  }
  return state->survey;
}

// Inspects one entry, or takes one region. False: the survey is at its end.
bool Patrol::goOnSurveying(Survey& survey, const Chip::Ptr& chip) const {
  if (survey.inspected == maxInspected) return false;
  ++survey.inspected;
  if (survey.region == nullptr || !canBeProbed(*survey.region) ||
      survey.entry >= survey.region->entries() || survey.left == 0) {
    const bool isLeft = survey.region != nullptr && survey.left == 0;
    if (isLeft) survey.rest.push_back({survey.region, survey.entry});
    survey.region = nullptr;
    survey.left = inspectedOfRegion;
    if (!survey.members) {
      if (survey.nextRest == survey.rest.size()) return false;
      const Survey::Entry next = survey.rest[survey.nextRest++];
      survey.region = next.cm;
      survey.entry = next.entry;
      return true;
    }
    const ChipMemory::Ptr member = survey.members->chipMemory();
    ++survey.members;
    survey.entry = 0;
    survey.region = findChip(*member) == chip ? member : nullptr;
    if (survey.region != nullptr && !canBeProbed(*member)) survey.passedOver.push_back(member);
    return true;
  }
  const U32 entry = survey.entry;
  const U32 step = stepAt(*survey.region, entry);
  survey.entry += step;
  --survey.left;
  if (step == 1 && isProbed(chip, *survey.region, entry, nullptr)) {
    survey.found.push_back({survey.region, entry});
  }
  return true;
}

// Whether the entry's known value is to be compared with the chip's.
bool Patrol::isProbed(const Chip::Ptr& chip, const ChipMemory& cm, U32 entry,
                      const Run* run) const {
  if (!bitAt(cm.initialized()->data(), entry) || bitAt(cm.dirty()->data(), entry)) return false;
  if (run != nullptr && run->cm.ptr() == &cm && run->wasMarked(entry)) return false;
  const RegionMarks* marks = this->marks(&cm);
  const Policy* policy = marks == nullptr ? nullptr : marks->policy.ptr();
  if (policy != nullptr && !isCompared(policy->rule(entry))) return false;
  if (marks != nullptr && marks->open.at(entry)) return false;
  // What the replay has not written, the reset has left so.
  const ChipState* const state = stateOf(chip);
  if (state != nullptr && state->isRestored && !isWritten(cm, entry)) return false;
  const U32 size = cm.entrySize();
  return !isResetValue(policy, entry, cm.shadow()->data() + std::size_t{entry} * size, size);
}

Patrol::Visit Patrol::readProbed(Probe& probe, const ChipMemory::Ptr& cm, U32 entry) {
  const Zint::Epoch::Mark mark(commands_);
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
  noteAccess(begin);
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
