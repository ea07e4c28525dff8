// A shadow that audits by itself: its patrol reads, judges and repairs a slice in one turn, tells
// what it finds, and lives with chips that are absent or were reset.
//
//   auto shadow = Driver::auditedShadowFactory(activity, clock);
//   shadow->chipMemoryIs(table);                               // while unconfigured
//   shadow->policyIs(policy);                                  // for regions that need one
//   shadow->stateIs(HardwareShadow::configured());
//   shadow->stateIs(HardwareShadow::auditing());               // no reader is needed
//
//   class Watch : public Driver::AuditedShadow::NotifieeConst { ... onFinding, onPass ... };
//
// The data path is that of HardwareShadow. What the patrol finds is answered, counted, traced and
// recorded as the audit of HardwareShadow does it, with these differences:
// - A slice is read and judged in one turn, so no state of it survives a turn.
// - The marks "written since the last visit" are cleared after a read, for the entries that are
//   judged then, and kept for the others: a client may write the chip some turns after it has
//   offered the write. (judgeAtOnce: before the read.)
// - registersFixed counts a repair after the write succeeded.
// - An exception of an access method makes its chip absent. Nothing else stops.
//
// Every operation belongs to the activity's thread. Notifiees may change or drop anything.
#pragma once

#include <Driver/Chip.h>
#include <Driver/Finding.h>
#include <Driver/Policy.h>
#include <Hardware/HardwareShadow.h>
#include <memory>

namespace Driver {

class ChipWriter;
class Governor;
class Patrol;

// What the patrol does. `suspended` by itself, `paused` by a person.
enum class PatrolState : S32 { stopped, waiting, reading, paused, suspended, restoring };

class UMBRA_API AuditedShadow : public Hardware::HardwareShadow {
 public:
  using Ptr = Zint::Ptr<AuditedShadow>;
  using ChipMemory = Hardware::ChipMemory;

  struct Id : HardwareShadow::Id {
    enum : Zint::AttributeId {
      maxEntriesPerSlice = lastMember + 1,
      sliceInterval,
      turnBound,
      judgeAtOnce,
      rereads,
      verifies,
      maxRepairsPerTurn,
      maxRepairsPerPass,
      quarantineRepairs,
      quarantineTime,
      quarantineVisits,
      findsResets,
      paused,
      patrolState,
      patrolReason,
      patrolSince,
      nextTry,
      passEntries,
      passEntriesDone,
      passPeriods,
      lastPassTime,
      lastPassAge,
      findings,
      repairs,
      transients,
      quarantined,
      policyIs,
      policy,
      chipIs,
      chip,
      policyText,
      doAudit,
      isQuarantined,
      quarantineDel,
      hasOpenFinding,
      isWritten,
      maxEntriesPerReplaySlice,
      replayInterval,
      governor,
      check,
      finding,       // with a finding, of notifiees alone, as the three below
      pass,          // with the result of one
      allowsRepair,  // with a finding
      turn,          // with what it took
      lastPatrolMember = turn
    };
  };

  class UMBRA_API NotifieeConst : public HardwareShadow::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const AuditedShadow>& shadow);
    const AuditedShadow* notifier() const {
      return static_cast<const AuditedShadow*>(HardwareShadow::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    // After the entry was judged, and repaired where it was.
    virtual void onFinding(const Finding&) {}
    virtual void onPass(const PassResult&) {}
    // Whether the entry may be rewritten; asked before each repair. One that throws has not vetoed.
    virtual bool allowsRepair(const Finding&) { return true; }
    virtual void onPatrolState() {}
    // At the end of each turn, before the next one is armed, and after an audit on demand.
    virtual void onTurn(const TurnResult&) {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, AuditedShadow> {
    using NotifieeOf::NotifieeOf;
  };

  // Use auditedShadowFactory(), or hardwareShadowFactoryOf() for a derived class: only a factory
  // switches the patrol on.
  AuditedShadow(const Zint::Ptr<Zint::ActivityConfig>& activity,
                const Zint::Ptr<const Zint::Clock>& clock);

  void hasNotificationActiveIs(bool active) override;
  const Zint::Type* fwkType() const override;
  // Judges an entry that doAuditEntry() has reported, and rewrites it where that is right. Called
  // by anyone else, it is the repair of HardwareShadow.
  void doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data) override;
  void zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) override;
  void zintDoZombieReactors(bool zombie) override;

 protected:
  ~AuditedShadow() override;

 public:
  // --- Slices and turns ---
  // Entries that a turn reads at most. REQUIRES: above 0 (range exception).
  U32 maxEntriesPerSlice() const { return maxEntriesPerSlice_; }
  void maxEntriesPerSliceIs(U32 entries);
  // Seconds from the end of one slice to the next; `never` ends a pass's turns with the one under
  // way, and patrolReason() says so. REQUIRES: a number (range exceptions, as for all times here).
  Zint::Seconds sliceInterval() const { return sliceInterval_; }
  void sliceIntervalIs(const Zint::Seconds& seconds);
  // How long a turn may take, in seconds of the clock; `never`, the default, is no bound. A bound
  // makes the patrol measure what the accesses of each chip cost, read as many entries at once as
  // fit, and end a turn after the access that reaches it. What one entry needs once it differs is
  // not divided: a re-read, the read of kept bits, the write, the verification.
  Zint::Seconds turnBound() const { return turnBound_; }
  void turnBoundIs(const Zint::Seconds& seconds);
  // The same for the replay of a chip that was reset, which begins at once: entries that a slice
  // writes at most, and seconds from the end of one to the next. REQUIRES: above 0; finite and not
  // negative. The bound of a turn holds for them, too.
  U32 maxEntriesPerReplaySlice() const { return maxEntriesPerReplaySlice_; }
  void maxEntriesPerReplaySliceIs(U32 entries);
  Zint::Seconds replayInterval() const { return replayInterval_; }
  void replayIntervalIs(const Zint::Seconds& seconds);
  // Clears the marks before the read instead of after the judgement: only for clients that write
  // the chip in the turn in which they offer the write.
  bool judgeAtOnce() const { return judgeAtOnce_; }
  void judgeAtOnceIs(bool judgeAtOnce);

  // --- Judgement of a repair ---
  // Reads an entry again before it is repaired: equal now is `transient`, and not repaired.
  bool rereads() const { return rereads_; }
  void rereadsIs(bool rereads);
  // Reads an entry again after it was repaired: soft, recurring or stuck.
  bool verifies() const { return verifies_; }
  void verifiesIs(bool verifies);
  // Repairs of a turn and of a pass; no limit by default. The slice ends at the first, entries are
  // deferred to the next pass at the second.
  U32 maxRepairsPerTurn() const { return maxRepairsPerTurn_; }
  void maxRepairsPerTurnIs(U32 repairs);
  U32 maxRepairsPerPass() const { return maxRepairsPerPass_; }
  void maxRepairsPerPassIs(U32 repairs);
  // An entry that was repaired `quarantineRepairs` times within `quarantineTime` seconds is put in
  // quarantine: it is reported and not rewritten, until it was equal at `quarantineVisits` visits
  // or quarantineDel() is called. 0 repairs, the default: no quarantine.
  U32 quarantineRepairs() const { return quarantineRepairs_; }
  void quarantineRepairsIs(U32 repairs);
  Zint::Seconds quarantineTime() const { return quarantineTime_; }
  void quarantineTimeIs(const Zint::Seconds& seconds);
  U32 quarantineVisits() const { return quarantineVisits_; }
  void quarantineVisitsIs(U32 visits);
  bool isQuarantined(const ChipMemory::Ptr& region, U32 entry) const;
  // Lifts it. Nothing happens where there is none.
  void quarantineDel(const ChipMemory::Ptr& region, U32 entry);
  // Whether the first difference of a pass, on a chip and in a region, is followed by reading up to
  // 16 other entries of the chip whose known values differ from their reset values. Where four or
  // more were read and half of them are wrong, the chip was reset. On by default.
  // They are looked for among 16,384 entries of the region, from the one that differs on, and as
  // many of all regions of the chip, some of each in turn; up to 64 unknown ones in succession
  // count as one. A reset that shows in none of them is not found. When three resets have been
  // found so, without a complete pass over the chip between them, no more are until there was such
  // a pass: differences are judged like any other then.
  bool findsResets() const { return findsResets_; }
  void findsResetsIs(bool findsResets);

  // --- Patrol ---
  bool paused() const { return paused_; }
  // Stops at its place, and goes on there: what was told is not judged again in this pass.
  void pausedIs(bool paused);
  PatrolState patrolState() const { return patrolState_; }
  // Why the patrol does nothing, computed when asked; empty while it does its work.
  Zint::String8 patrolReason() const;
  Zint::Seconds patrolSince() const { return patrolSince_; }
  // When a suspended patrol tries again; `never` otherwise.
  Zint::Seconds nextTry() const;
  // Entries of the pass under way: their number, fixed at its start, and how many are done.
  U64 passEntries() const { return passEntries_; }
  U64 passEntriesDone() const { return passEntriesDone_; }
  // When the last complete pass ended; negative infinity before the first.
  Zint::Seconds lastPassTime() const { return lastPassTime_; }
  // Seconds since then; infinity before the first.
  Zint::Seconds lastPassAge() const;
  // From start to start, the newest last; at most 16.
  const std::vector<Zint::Seconds>& passPeriods() const { return passPeriods_; }
  // Reads and judges entries of a region at once, beside the patrol. The region need not be under
  // audit. As the patrol, it does nothing while overrideHardware is set or the chip is being
  // restored: the result is not complete, and its reason says so. REQUIRES: idle or auditing, a
  // region with a store, and entries within it (range exceptions).
  PassResult doAudit(const ChipMemory::Ptr& region, U32 first, U32 count);

  // That sets the pace, the one that was made last; null where there is none. It is not held.
  Zint::Ptr<Governor> governor() const;

  // --- Counts; they wrap ---
  U64 findings() const { return findings_; }  // all verdicts but adopted and writtenMeanwhile
  U64 repairs() const { return repairs_; }
  U64 transients() const { return transients_; }
  U32 quarantined() const { return quarantined_; }  // entries that are in quarantine

  // --- Policies and chips ---
  // Replaces the policy of its region. Null: a range exception.
  void policyIs(const Zint::Ptr<Policy>& policy);
  void policyDel(const ChipMemory::Ptr& region);
  // Null where there is none.
  Zint::Ptr<Policy> policy(const ChipMemory::Ptr& region) const;
  // What happens to an entry that differs, by which rule, and what keeps the patrol from it now:
  // one line.
  Zint::String8 policyText(const ChipMemory::Ptr& region, U32 entry) const;
  // The names of registers and fields, for findings and whatever shows entries to people. Null, the
  // default: entries have numbers alone.
  RegisterNames::Ptr registerNames() const;
  void registerNamesIs(const RegisterNames::Ptr& names);
  // Nothing happens where it is there. REQUIRES: a chip that no other shadow has (range
  // exceptions).
  void chipIs(const Chip::Ptr& chip);
  // Ends its replay, if one is under way: the chips that hold its regions from then on are told
  // that they were reset.
  void chipDel(const Chip::Ptr& chip);
  // The chip that holds the region, the one that was given last first. Made where there is none.
  Chip::Ptr chip(const ChipMemory::Ptr& region);
  std::vector<Chip::Ptr> chips() const;

  // --- What clients and the replay ask ---
  // Whether a client wrote the entry since the store was made.
  bool isWritten(const ChipMemory::Ptr& region, U32 entry) const;
  // Marks it as written or not, when a store is carried over.
  void writtenIs(const ChipMemory::Ptr& region, U32 entry, bool isWritten);
  // Whether the chip is known or suspected to hold another value than the shadow. The next write of
  // a client is not skipped then.
  bool hasOpenFinding(const ChipMemory::Ptr& region, U32 entry) const;
  void openFindingIs(const ChipMemory::Ptr& region, U32 entry, bool isOpen);

 private:
  friend class ChipAccess;
  friend class Governor;
  friend class Patrol;

  // Whether a replay will write the region while its chip is being restored; `writer` is null
  // where it is still to begin.
  bool findReplay(const ChipMemory::Ptr& region, Zint::Ptr<ChipWriter>& writer) const;

  // --- What the patrol counts and tells ---
  void patrolStateIs(PatrolState state, Zint::Seconds time);
  void passPeriodIs(Zint::Seconds period);
  void passEntriesIs(U64 entries);
  void passEntriesDoneIs(U64 entries);
  void lastPassTimeIs(Zint::Seconds time);
  void findingsInc();
  void repairsInc();
  void transientsInc();
  void quarantinedIs(U32 entries);

  U32 maxEntriesPerSlice_ = 1024;
  U32 maxEntriesPerReplaySlice_ = 1024;
  U32 maxRepairsPerTurn_ = ~0u;
  U32 maxRepairsPerPass_ = ~0u;
  U32 quarantineRepairs_ = 0;
  U32 quarantineVisits_ = 3;
  U32 quarantined_ = 0;
  Zint::Seconds sliceInterval_ = 0.001;
  Zint::Seconds replayInterval_ = 0.001;
  Zint::Seconds turnBound_ = Zint::never;
  Zint::Seconds quarantineTime_ = 60;
  Zint::Seconds patrolSince_ = 0;
  Zint::Seconds lastPassTime_ = -Zint::never;
  PatrolState patrolState_ = PatrolState::stopped;
  bool judgeAtOnce_ = false;
  bool rereads_ = false;
  bool verifies_ = false;
  bool findsResets_ = true;
  bool paused_ = false;
  U64 passEntries_ = 0;
  U64 passEntriesDone_ = 0;
  U64 findings_ = 0;
  U64 repairs_ = 0;
  U64 transients_ = 0;
  std::vector<Zint::Seconds> passPeriods_;
  Governor* governor_ = nullptr;  // takes itself back
  std::unique_ptr<Patrol> patrol_;
};

// Active when it returns. `clock` may be null: then nothing is audited by itself.
UMBRA_API AuditedShadow::Ptr auditedShadowFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                  const Zint::Ptr<const Zint::Clock>& clock);

// "stopped", "waiting", "reading", "paused", "suspended", "restoring"; another number as
// Driver::PatrolState(number).
UMBRA_API Zint::String8 stringValue(PatrolState state);
UMBRA_API std::ostream& operator<<(std::ostream& out, PatrolState state);

UMBRA_API Zint::String8 valueToStrep(const PatrolState& state);

constexpr const char* zintTypeName(const PatrolState*) { return "Driver::PatrolState"; }
constexpr const char* zintTypeName(const AuditedShadow*) { return "Driver::AuditedShadow"; }

}  // namespace Driver
