// The repair of one entry: veto, rewrite, verification, and the quarantine of entries that differ
// again and again.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <algorithm>

namespace Driver {

using Hardware::ChipMemory;

namespace {

// Entries of all regions whose repairs are remembered.
constexpr U32 maxHistories = 4096;

}  // namespace

bool Patrol::repairJudged(const ChipMemory::Ptr& cm, U32 entry) {
  if (judgement_ == nullptr || judgement_->run.cm != cm || judgement_->entry != entry) return false;
  Judgement& judgement = *judgement_;
  judgement_ = nullptr;  // the rest may call the repair of another entry
  if (judgement.verdict == Verdict::repaired) rewrite(judgement);
  return true;
}

// Those that a repair needs at most.
U32 Patrol::accessesOfRepair(const Run& run, U32 entry) const {
  const bool isKept = run.policy != nullptr && run.policy->mask(entry) != nullptr &&
                      run.policy->rewrite(entry) == Rewrite::kept;
  return 1 + (isKept ? 1 : 0) + (shadow_.rereads() ? 1 : 0) + (shadow_.verifies() ? 1 : 0);
}

void Patrol::rewrite(Judgement& judgement) {
  Run& run = judgement.run;
  const U32 entry = judgement.entry;
  const Finding asked = finding(run, entry, Verdict::repaired, Nature::unverified);
  bool isAllowed = true;
  shadow_.notifyEach<AuditedShadow::NotifieeConst>(
      AuditedShadow::Id::allowsRepair,
      [&](AuditedShadow::NotifieeConst& notifiee) { isAllowed &= notifiee.allowsRepair(asked); });
  if (!isAllowed || run.isSuperseded()) {
    judgement.verdict = Verdict::refused;
    return;
  }
  if (run.isMarked(entry)) {
    judgement.verdict = Verdict::writtenMeanwhile;
    return;
  }
  // Those who were asked may have changed the policy, or the mode.
  judgement.verdict = verdictOf(run, entry);
  if (judgement.verdict != Verdict::repaired) return;
  const Zint::Seconds begin = beginAccess();
  U32 accesses = 1;
  std::vector<U8> merged, kept;
  U8* value = run.expected(entry);
  if (run.policy != nullptr && run.policy->mask(entry) != nullptr) {
    merged.resize(run.entrySize);
    kept.resize(run.entrySize);
  }
  bool isPresent = true, isStillWanted = true;
  Verdict now = Verdict::repaired;
  const bool isWritten = callGuarded(
      [&] {
        if (!merged.empty()) {
          if (run.policy->rewrite(entry) == Rewrite::kept) {
            run.ham->doRead(run.cm->entryAddress(entry), kept.data(), run.entrySize, 1);
            accesses = 2;
            if (!run.isSuperseded()) isPresent = run.chip->isPresent();
            isStillWanted = isPresent && !run.isSuperseded() && !run.isMarked(entry);
            if (isStillWanted) now = verdictOf(run, entry);
            isStillWanted = isStillWanted && now == Verdict::repaired;
            if (!isStillWanted) return;
          }
          run.policy->mergeForRewrite(entry, run.expected(entry), kept.data(), merged.data());
          value = merged.data();
        }
        run.ham->doWrite(run.cm->entryAddress(entry), value, run.entrySize, 1);
      },
      judgement.error);
  endAccess(run, begin, accesses);
  if (isWritten && isPresent && !isStillWanted) {
    judgement.verdict = run.isSuperseded()         ? Verdict::refused
                        : now != Verdict::repaired ? now
                                                   : Verdict::writtenMeanwhile;
    return;
  }
  ++repairsOfTurn_;
  if (!isWritten || !isPresent) {
    if (!isPresent) judgement.error = "its sentinel register is wrong";
    judgement.verdict = Verdict::failed;
    return;
  }
  run.cm->registersFixedInc(1);
  run.cm->lastFixTimeIs(time());
  ++run.result.repairs;
  shadow_.repairsInc();
  if (shadow_.verifies() && !run.isSuperseded() && !run.isMarked(entry)) verify(judgement);
  remember(judgement);
}

void Patrol::verify(Judgement& judgement) {
  Run& run = judgement.run;
  std::vector<U8> value(run.entrySize);
  const Zint::Seconds begin = beginAccess();
  const bool isRead = callGuarded(
      [&] {
        run.ham->doRead(run.cm->entryAddress(judgement.entry), value.data(), run.entrySize, 1);
      },
      judgement.error);
  endAccess(run, begin);
  if (!isRead || run.isSuperseded() || run.isMarked(judgement.entry)) return;
  if (run.isEqual(judgement.entry, value.data())) {
    judgement.nature = Nature::soft;
    return;
  }
  // A chip that went away meanwhile is no stuck one.
  bool isPresent = false;
  const Zint::Seconds beginAsking = beginAccess();
  const bool isAnswered = callGuarded([&] { isPresent = run.chip->isPresent(); }, judgement.error);
  noteAccess(beginAsking);
  if (!isAnswered || run.isSuperseded()) return;
  if (isPresent) {
    judgement.nature = Nature::stuck;
  } else {
    judgement.error = "its sentinel register is wrong";
  }
}

// Counts the repair for the quarantine. An entry that was repaired not long ago is recurring.
void Patrol::remember(Judgement& judgement) {
  Run& run = judgement.run;
  const U32 repairs = shadow_.quarantineRepairs();
  if ((repairs == 0 && !shadow_.verifies()) || run.cm->dirty() != run.dirtyBuf) return;
  RegionMarks& marks = marksOf(run.cm);
  const Zint::Seconds now = time();
  if (!marks.repairs.contains(judgement.entry)) {
    if (histories_ >= maxHistories) return;  // as if it were the first repair
    ++histories_;
  }
  RepairHistory& history = marks.repairs[judgement.entry];
  std::erase_if(history.times,
                [&](Zint::Seconds then) { return then + shadow_.quarantineTime() < now; });
  if (!history.times.empty() && judgement.nature == Nature::soft) {
    judgement.nature = Nature::recurring;
  }
  history.times.push_back(now);
  history.lastDifference = now;
  history.cleanVisits = 0;
  if (repairs == 0) {
    history.times.erase(history.times.begin(), history.times.end() - 1);
  } else if (history.times.size() >= repairs && !history.isQuarantined) {
    history.isQuarantined = true;
    shadow_.quarantinedIs(shadow_.quarantined() + 1);
  }
}

// Entries that were equal come nearer to the end of their quarantine; old repairs are forgotten.
void Patrol::countVisits(Run& run, U32 end) {
  const auto found = marks_.find(run.cm.ptr());
  if (found == marks_.end() || found->second->repairs.empty()) return;
  std::vector<U32> visited;
  const auto& remembered = found->second->repairs;
  for (auto at = remembered.lower_bound(run.first); at != remembered.end() && at->first < end;
       ++at) {
    visited.push_back(at->first);
  }
  const Zint::Seconds now = time();
  U32 lifted = 0;
  for (const U32 entry : visited) {
    const bool differs = !run.isEqual(entry, run.actual(entry));
    if (run.isSuperseded()) break;
    auto& repairs = marksOf(run.cm).repairs;
    const auto at = repairs.find(entry);
    if (at == repairs.end()) continue;
    RepairHistory& history = at->second;
    if (!differs) {
      ++history.cleanVisits;
    } else if (history.isQuarantined) {
      history.lastDifference = now;
      history.cleanVisits = 0;
    }
    const bool isOld = history.lastDifference + shadow_.quarantineTime() < now;
    const bool isLifted =
        history.isQuarantined && history.cleanVisits >= shadow_.quarantineVisits();
    if (!isOld && !isLifted) continue;
    lifted += history.isQuarantined ? 1 : 0;
    --histories_;
    repairs.erase(at);
  }
  if (lifted != 0) shadow_.quarantinedIs(shadow_.quarantined() - lifted);
}

}  // namespace Driver
