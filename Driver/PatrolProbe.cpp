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
// Whether a reset leaves the entry with this value.
bool isResetValue(const Policy* policy, U32 entry, const U8* value, U32 entrySize) {
  const U8* reset = policy == nullptr ? nullptr : policy->resetValue(entry);
  if (reset != nullptr) return std::equal(value, value + entrySize, reset);
  return std::all_of(value, value + entrySize, [](U8 byte) { return byte == 0; });
}

}  // namespace

bool Patrol::needsProbe(const Run& run) const {
  if (&run.result != &result_) return false;
  const RegionMarks* marks = this->marks(run.cm.ptr());
  return run.state.probedPass != pass_ || marks == nullptr || marks->probedPass != pass_;
}

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
  if (probed == Visit::done) different = nextDifference(run, run.first);
  return probed;
}

// Reads other entries of the chip whose known values are not those after a reset. Done: they hold
// their values, or too few of them were read for a verdict.
Patrol::Visit Patrol::probe(Run& run, U32 entry) {
  run.state.probedPass = pass_;
  marksOf(run.cm).probedPass = pass_;
  U32 inspected = 0, read = 0, wrong = 0;
  std::vector<U8> value;
  Visit outcome = Visit::done;
  // Entries of one region, from `from` on and round. False: the search is over.
  const auto probeRegion = [&](const ChipMemory::Ptr& cm, U32 from, U32 except) {
    if (!isUnderAudit(*cm) || !whyNotAuditable(*cm).empty() || cm->entrySize() == 0) return true;
    if (cm->mode() == ChipMemory::buffered()) return true;  // what is held is not in the chip yet
    const RegionMarks* marks = this->marks(cm.ptr());
    const Policy::Ptr policy = marks == nullptr ? nullptr : marks->policy;
    const U32 size = cm->entrySize(), entries = cm->entries();
    const Hal::BufBase::Ptr shadow = cm->shadow(), known = cm->initialized(), dirty = cm->dirty();
    value.resize(size);
    for (U32 i = 0; i < entries && read < maxProbes; ++i) {
      if (++inspected > maxInspected) return false;
      const U32 e = static_cast<U32>((U64{from} + i) % entries);
      U8* const expected = shadow->data() + std::size_t{e} * size;
      if (e == except || !bitAt(known->data(), e) || bitAt(dirty->data(), e)) continue;
      if (cm == run.cm && (run.marks.at(e) || std::ranges::count(run.open, e) != 0)) continue;
      if (policy != nullptr && !isCompared(policy->rule(e))) continue;
      if (marks != nullptr && marks->open.at(e)) continue;
      if (isResetValue(policy.ptr(), e, expected, size)) continue;
      Zint::String8 error;
      const bool isRead = callGuarded(
          [&] { cm->chipHam()->doRead(cm->entryAddress(e), value.data(), size, 1); }, error);
      if (run.isSuperseded() || cm->shadow() != shadow || cm->dirty() != dirty) {
        outcome = Visit::ended;
        return false;
      }
      if (!isRead) {
        makeAbsent(run.state, error);
        outcome = run.isSuperseded() ? Visit::ended : Visit::isVoid;
        return false;
      }
      if (bitAt(dirty->data(), e)) continue;
      ++read;
      const bool isEqual = policy != nullptr && policy->mask(e) != nullptr
                               ? policy->equals(e, expected, value.data())
                               : cm->chipHam()->doCompare(expected, value.data(), size);
      wrong += isEqual ? 0 : 1;
      if (run.isSuperseded()) {
        outcome = Visit::ended;
        return false;
      }
    }
    return read < maxProbes;
  };
  bool goesOn = probeRegion(run.cm, entry + 1, entry);
  const Zint::Ptr<Hardware::ChipReadRequest> request = request_;
  for (auto member = request->chipMemoryIterator(); member && goesOn; ++member) {
    const ChipMemory::Ptr other = member->chipMemory();
    ++inspected;
    if (other != run.cm && findChip(*other) == run.chip) goesOn = probeRegion(other, 0, ~0u);
    if (inspected > maxInspected) break;
  }
  if (outcome != Visit::done || read < minProbes || 2 * wrong < read) return outcome;
  // A chip that went away meanwhile answers noise, too.
  Zint::String8 error = "its sentinel register is wrong";
  bool isPresent = false;
  const bool isAnswered = callGuarded([&] { isPresent = run.chip->isPresent(); }, error);
  if (run.isSuperseded()) return Visit::ended;
  if (!isAnswered || !isPresent) {
    makeAbsent(run.state, error);
    return run.isSuperseded() ? Visit::ended : Visit::isVoid;
  }
  ++run.result.differences;
  tell(run, entry, Verdict::reset);
  if (!run.isSuperseded()) run.chip->doChipReset();
  return Visit::ended;
}

}  // namespace Driver
