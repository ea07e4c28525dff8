// What the patrol does with a run of entries: read, ask whether the chip answers, judge each entry
// that differs, repair.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <algorithm>

namespace Driver {

using Hardware::ChipMemory;

namespace {

bool holdsBits(const Hal::BufBase::Ptr& bitmap, U32 entries) {
  return bitmap != nullptr && U64{bitmap->size()} * 8 >= entries;
}
bool holdsEntries(const Hal::BufBase* buffer, const ChipMemory& cm) {
  return buffer != nullptr && U64{cm.entries()} * cm.entrySize() <= buffer->size();
}

}  // namespace

Zint::String8 whyNotHeld(const ChipMemory& cm) {
  const auto text = [&cm](const char* what) { return cm.name() + ": " + what; };
  if (cm.chipHam() == nullptr) return text("it has no access method");
  if (cm.entrySize() == 0 || cm.entries() == 0) return "";
  if (!holdsEntries(cm.hardware().ptr(), cm)) return text("its hardware buffer is too short");
  if (!holdsEntries(cm.shadow().ptr(), cm) || !holdsBits(cm.initialized(), cm.entries()) ||
      !holdsBits(cm.dirty(), cm.entries())) {
    return text("its shadow store is too short");
  }
  return "";
}

// They look at a limited number of runs: a turn must end.
constexpr U32 runsLookedAt = 1024;

U32 firstRead(const Policy& policy, U32 first, U32 end) {
  for (U32 runs = 0; runs < runsLookedAt && first < end && !isRead(policy.rule(first)); ++runs) {
    first = policy.ruleEnd(first, end);
  }
  return first;
}

U32 readEnd(const Policy& policy, U32 first, U32 end) {
  for (U32 runs = 0; runs < runsLookedAt && first < end && isRead(policy.rule(first)); ++runs) {
    first = policy.ruleEnd(first, end);
  }
  return first;
}

// --- A run ---------------------------------------------------------------------------------------

// Reads the entries and judges them. `judged` of them are behind afterwards. An exception of a
// comparison or of a copy into the cache counts as one of an access.
Patrol::Visit Patrol::audit(const ChipMemory::Ptr& cm, U32 first, U32 end, PassResult& result,
                            U32& judged) {
  judged = 0;
  if (cm->entrySize() == 0) {
    judged = end - first;
    return Visit::done;
  }
  Run run(*this, cm, first, end, result);
  Visit visited = Visit::done;
  Zint::String8 error;
  const bool isDone = callGuarded([&] { visited = readAndJudge(run, judged); }, error);
  // What was not judged keeps its marks and its findings.
  giveMarksBack(run, first + judged);
  giveOpenFindingsBack(run, first + judged);
  if (isDone || run.isSuperseded()) return isDone ? visited : Visit::ended;
  makeAbsent(run.state, error);
  return run.isSuperseded() ? Visit::ended : Visit::isVoid;
}

Patrol::Visit Patrol::readAndJudge(Run& run, U32& judged) {
  // Chips were asked whether they hold the region since it was looked at.
  if (run.isSuperseded() || !whyNotHeld(*run.cm).empty()) return Visit::ended;
  const Zint::Seconds begin = beginAccess();
  if (shadow_.judgeAtOnce()) takeMarks(run);
  if (const Visit read = readRun(run); read != Visit::done) return read;
  if (shadow_.judgeAtOnce()) {
    run.marks.forget();  // only what is marked from now on was written meanwhile
  } else {
    takeMarks(run);
  }
  takeOpenFindings(run);
  const Zint::Seconds beginJudging = beginAccess();
  const Visit visited = judgeRun(run, judged);
  const Zint::Seconds endJudging = beginAccess();
  if (run.isSuperseded()) return Visit::ended;
  learnEqual(run, run.first + judged);
  countVisits(run, run.first + judged);
  if (run.isSuperseded()) return Visit::ended;
  if (isBounded()) {
    // What differences cost is not what equal entries will.
    const Zint::Seconds judging = run.differs ? endJudging - beginJudging : 0;
    run.state.cost.add(run.end - run.first, time() - begin - judging);
  }
  return visited;
}

// Clears the marks of the run's entries, and remembers that they were written. Marks that are set
// from now on are those of the next visit.
void Patrol::takeMarks(Run& run) {
  U8* const dirty = run.dirtyBuf->data();
  run.marks.take(dirty, run.first, run.end);
  if (!run.marks.isAnySet()) return run.marks.forget();
  handleKnown();
  EntryBits& written = marksOf(run.cm).written;
  for (U32 e = run.first; e < run.end; ++e) {
    if (!run.marks.at(e)) continue;
    written.atIs(e, true);
    bitIs(dirty, e, false);
  }
}

void Patrol::giveMarksBack(Run& run, U32 from) {
  if (!run.marks.isAnySet()) return;  // the run may be long
  for (U32 e = from; e < run.end; ++e) {
    if (run.marks.at(e)) bitIs(run.dirtyBuf->data(), e, true);
  }
}

// An entry that is equal has no open finding any more; one that differs gets it anew.
void Patrol::takeOpenFindings(Run& run) {
  const RegionMarks* marks = this->marks(run.cm.ptr());
  if (marks == nullptr || marks->open.size() == 0) return;
  EntryBits& open = marksOf(run.cm).open;
  handleKnown();
  for (U32 e = run.first; e < run.end; ++e) {
    if (!open.at(e)) continue;
    run.open.push_back(e);
    open.atIs(e, false);
  }
}

void Patrol::giveOpenFindingsBack(Run& run, U32 from) {
  for (const U32 e : run.open) {
    if (e >= from) marksOf(run.cm).open.atIs(e, true);
  }
}

// Reads the run into the hardware buffer. The chip's sentinel decides whether it counts.
Patrol::Visit Patrol::readRun(Run& run) {
  Zint::String8 error;
  bool isPresent = true, isReset = false;
  const bool wasAbsent = run.chip->isAbsent();
  hasWorked_ = true;
  Zint::Seconds begin = beginAccess();
  const bool isRead = callGuarded(
      [&] {
        run.ham->doRead(run.cm->entryAddress(run.first), run.actual(run.first), run.entrySize,
                        run.end - run.first);
        noteAccess(begin);
        begin = beginAccess();
        if (run.isSuperseded()) return;
        isPresent = run.chip->isPresent();
        if (wasAbsent && isPresent && !run.isSuperseded()) isReset = isToldReset(run.chip);
      },
      error);
  noteAccess(begin);
  if (isReset) {
    if (ChipState* const state = stateOf(run.chip); state != nullptr) state->isAlive = true;
    run.chip->absentIs(false, "", time());
    tellReset(run.chip);
    return Visit::ended;
  }
  if (run.isSuperseded()) return Visit::ended;
  if (!isRead || !isPresent) {
    makeAbsent(run.state, isRead ? "its sentinel register is wrong" : error);
    return run.isSuperseded() ? Visit::ended : Visit::isVoid;
  }
  if (wasAbsent) run.chip->absentIs(false, "", time());
  if (run.isSuperseded()) return Visit::ended;
  const bool wasAlive = std::exchange(run.state.isAlive, true);
  run.state.lastRead = run.cm->address();
  if (&run.result == &result_) run.state.hasRead = true;  // not on demand
  if (!wasAlive) updateState();
  return run.isSuperseded() ? Visit::ended : Visit::done;
}

Patrol::Visit Patrol::judgeRun(Run& run, U32& judged) {
  U32 e = nextDifference(run, run.first);
  if (const Visit probed = probeFirst(run, e); probed != Visit::done) return probed;
  for (; e < run.end; e = nextDifference(run, e + 1)) {
    const Visit visited = judge(run, e);
    judged = e - run.first;
    if (visited != Visit::done) return visited;
    ++judged;
    if (run.isSuperseded()) return Visit::ended;
    if (isTurnOver()) return Visit::full;
  }
  if (run.isSuperseded()) return Visit::ended;
  judged = run.end - run.first;
  return Visit::done;
}

// The first entry from `entry` on that is compared and differs; the run's end if there is none, or
// if a comparison ends the slice.
U32 Patrol::nextDifference(const Run& run, U32 entry) const {
  if (entry >= run.end) return run.end;
  if (run.policy == nullptr || run.policy->isPlain()) {
    // Differences come in runs.
    if (run.comparesBytes &&
        std::memcmp(run.expected(entry), run.actual(entry), run.entrySize) != 0) {
      return entry;
    }
    return shadow_.differentEntry(run.cm, entry, run.end);
  }
  const Policy& policy = *run.policy;
  if (AuditedShadow::comparesBytes(*run.ham)) {
    return policy.differentEntry(run.shadowBuf->data(), run.hardwareBuf->data(), entry, run.end);
  }
  while (entry < run.end && !run.isSuperseded()) {
    const U32 runEnd = policy.ruleEnd(entry, run.end);
    if (!isCompared(policy.rule(entry))) {
      entry = runEnd;
      continue;
    }
    const U32 different = shadow_.differentEntry(run.cm, entry, runEnd);
    if (run.isSuperseded()) break;
    if (different < runEnd &&
        !policy.equals(different, run.expected(different), run.actual(different))) {
      return different;
    }
    entry = different < runEnd ? different + 1 : runEnd;
  }
  return run.end;
}

// Baseline entries become known where they equal the zeroed shadow.
void Patrol::learnEqual(Run& run, U32 end) {
  if (run.policy == nullptr || run.policy->unwritten() != Unwritten::baseline) return;
  for (U32 e = run.first; e < end; ++e) {
    if (run.isKnown(e) || !isCompared(run.policy->rule(e))) continue;
    const bool isEqual = run.isEqual(e, run.actual(e));
    if (run.isSuperseded()) return;
    if (!isEqual) continue;
    bitIs(run.initializedBuf->data(), e, true);
    handleKnown();
  }
}

namespace {

// Says which entry is judged while doAuditEntry() runs, also where that throws.
template <class Judgement>
class Judging {
 public:
  Judging(Judgement*& current, Judgement* judgement)
      : current_(current), outer_(std::exchange(current, judgement)) {}
  ~Judging() { current_ = outer_; }
  Judging(const Judging&) = delete;
  Judging& operator=(const Judging&) = delete;

 private:
  Judgement*& current_;
  Judgement* const outer_;
};

}  // namespace

// --- One entry -----------------------------------------------------------------------------------

// Done: the entry is behind, also where what it was told to has ended the slice.
Patrol::Visit Patrol::judge(Run& run, U32 entry) {
  if (run.isSuperseded()) return Visit::ended;
  run.differs = true;
  if (!run.isKnown(entry)) {
    shadow_.doAuditEntry(run.cm, entry);
    ++run.result.adopted;
    handleKnown();
    tell(run, entry, Verdict::adopted);
    return Visit::done;
  }
  if (run.isMarked(entry)) return leave(run, entry);

  Verdict verdict = verdictOf(run, entry);
  if (verdict == Verdict::repaired && repairsOfTurn_ >= shadow_.maxRepairsPerTurn()) {
    return Visit::full;
  }
  if (verdict == Verdict::repaired && !hasTimeFor(run, accessesOfRepair(run, entry))) {
    return Visit::full;
  }
  if (verdict == Verdict::repaired && shadow_.rereads()) {
    std::vector<U8> again(run.entrySize);
    if (const Visit read = readAgain(run, entry, again.data()); read != Visit::done) return read;
    if (run.isMarked(entry)) return leave(run, entry);
    if (run.isEqual(entry, again.data())) {
      if (run.isSuperseded()) return Visit::ended;
      shadow_.transientsInc();
      ++run.result.differences;
      tell(run, entry, Verdict::transient);
      return Visit::done;
    }
    if (run.isSuperseded()) return Visit::ended;
    std::copy(again.begin(), again.end(), run.actual(entry));
    // The policy may have changed during the access.
    if (run.policy != nullptr && !isCompared(run.policy->rule(entry))) return Visit::done;
    verdict = verdictOf(run, entry);
  }
  if (run.isSuperseded()) return Visit::ended;
  Judgement judgement{run, entry, verdict};
  {
    const Judging judging(judgement_, &judgement);
    shadow_.doAuditEntry(run.cm, entry);
  }
  if (judgement.verdict == Verdict::writtenMeanwhile) return tellWrittenMeanwhile(run, entry);
  ++run.result.differences;
  const bool isOpen = judgement.verdict != Verdict::repaired || judgement.nature == Nature::stuck ||
                      !judgement.error.empty();
  if (isOpen && run.cm->dirty() == run.dirtyBuf) marksOf(run.cm).open.atIs(entry, true);
  tell(run, entry, judgement.verdict, judgement.nature);
  if (judgement.error.empty()) return Visit::done;
  if (ChipState* state = stateOf(run.chip); state != nullptr) makeAbsent(*state, judgement.error);
  return run.isSuperseded() ? Visit::ended : Visit::isVoid;
}

// The entry was written since the last visit: the difference proves nothing.
Patrol::Visit Patrol::leave(Run& run, U32 entry) {
  U8* const dirty = run.dirtyBuf->data();
  const bool isMarkedNow = bitAt(dirty, entry);
  bitIs(dirty, entry, true);
  shadow_.doAuditEntry(run.cm, entry);
  if (!isMarkedNow) bitIs(dirty, entry, false);
  return tellWrittenMeanwhile(run, entry);
}

// Nor does it prove that a finding is closed: the write of the chip may have failed.
Patrol::Visit Patrol::tellWrittenMeanwhile(Run& run, U32 entry) {
  if (std::ranges::binary_search(run.open, entry) && run.cm->dirty() == run.dirtyBuf) {
    marksOf(run.cm).open.atIs(entry, true);
  }
  tell(run, entry, Verdict::writtenMeanwhile);
  return Visit::done;
}

Verdict Patrol::verdictOf(const Run& run, U32 entry) const {
  if (run.policy != nullptr) {
    if (!isRewritten(run.policy->rule(entry))) return Verdict::detectOnly;
    if (run.policy->unwritten() == Unwritten::defaults && !isWritten(*run.cm, entry)) {
      return Verdict::detectOnly;
    }
  }
  if (run.cm->mode() == ChipMemory::buffered()) return Verdict::deferred;
  const RegionMarks* marks = this->marks(run.cm.ptr());
  if (marks != nullptr) {
    const auto history = marks->repairs.find(entry);
    if (history != marks->repairs.end() && history->second.isQuarantined) {
      return Verdict::quarantined;
    }
  }
  return run.result.repairs >= shadow_.maxRepairsPerPass() ? Verdict::deferred : Verdict::repaired;
}

// Reads one entry. Not done: the chip did not answer, or the slice has ended.
Patrol::Visit Patrol::readAgain(Run& run, U32 entry, U8* to) {
  Zint::String8 error = "its sentinel register is wrong";
  bool isPresent = true;
  const Zint::Seconds begin = beginAccess();
  const bool isRead = callGuarded(
      [&] {
        run.ham->doRead(run.cm->entryAddress(entry), to, run.entrySize, 1);
        if (!run.isSuperseded()) isPresent = run.chip->isPresent();
      },
      error);
  endAccess(run, begin);
  if (run.isSuperseded()) return Visit::ended;
  if (isRead && isPresent) return Visit::done;
  makeAbsent(run.state, error);
  return run.isSuperseded() ? Visit::ended : Visit::isVoid;
}

// --- Telling -------------------------------------------------------------------------------------

Finding Patrol::finding(const Run& run, U32 entry, Verdict verdict, Nature nature) const {
  return {.chip = run.chip,
          .chipMemory = run.cm,
          .entry = entry,
          .expected = {run.expected(entry), run.entrySize},
          .actual = {run.actual(entry), run.entrySize},
          .verdict = verdict,
          .nature = nature,
          .time = time(),
          .policy = run.policy,
          .names = names_};
}

void Patrol::tell(const Run& run, U32 entry, Verdict verdict, Nature nature) {
  if (verdict != Verdict::adopted && verdict != Verdict::writtenMeanwhile) shadow_.findingsInc();
  if (!shadow_.isObserved(AuditedShadow::Id::finding)) return;
  tell(finding(run, entry, verdict, nature));
}

void Patrol::tell(const Finding& told) {
  shadow_.notifyEach<AuditedShadow::NotifieeConst>(
      AuditedShadow::Id::finding,
      [&](AuditedShadow::NotifieeConst& notifiee) { notifiee.onFinding(told); });
}

}  // namespace Driver
