// The patrol of an audited shadow: passes, slices, and what is done with an entry that differs.
// Used by AuditedShadow alone.
//
// One turn: doSlice() visits regions until the slice is full; visit() reads a run of entries and
// judges it; judge() decides about one entry. Whatever calls out may change everything: `commands_`
// advances with each change that ends the slice, and is looked at after each call.
#pragma once

#include <Driver/AccessCost.h>
#include <Driver/AuditedShadow.h>
#include <Driver/RegionMarks.h>
#include <Zint/Epoch.h>
#include <functional>
#include <optional>
#include <unordered_map>

namespace Driver {

class ChipWriter;

class Patrol {
 public:
  explicit Patrol(AuditedShadow& shadow);
  ~Patrol();
  Patrol(const Patrol&) = delete;
  Patrol& operator=(const Patrol&) = delete;

  // --- What has changed ---
  void hasNotificationActiveIs(bool active);
  void zombieIs(bool zombie);
  void activityIs(const Zint::Ptr<Zint::ActivityConfig>& activity);
  void handleAttribute(Zint::AttributeId attribute);  // of the shadow
  void handleRegion(const Hardware::ChipAddress& address);
  void handlePaused();
  void handleReset(const Chip::Ptr& chip);
  void handleRestored(const Chip::Ptr& chip);

  void doSlice();
  PassResult doAudit(const Hardware::ChipMemory::Ptr& region, U32 first, U32 count);
  // The repair of the entry that is being judged. False: it is another one.
  bool repairJudged(const Hardware::ChipMemory::Ptr& cm, U32 entry);

  Zint::String8 reason() const;
  Zint::Seconds time() const;  // of the shadow's clock
  Zint::Seconds nextTry() const;
  bool findReplay(const Hardware::ChipMemory::Ptr& cm, Zint::Ptr<ChipWriter>& writer) const;

  // --- Regions and chips ---
  const RegionMarks* marks(const Hardware::ChipMemory* region) const;
  // What is compared, known, marked or open has changed: more entries may tell whether a chip was
  // reset.
  void handleKnown() { ++knownChanges_; }
  RegionMarks& marksOf(const Hardware::ChipMemory::Ptr& region);
  void policyIs(const Hardware::ChipMemory::Ptr& region, const Policy::Ptr& policy);
  bool isWritten(const Hardware::ChipMemory& region, U32 entry) const;
  void quarantineDel(const Hardware::ChipMemory::Ptr& region, U32 entry);
  Zint::String8 policyText(const Hardware::ChipMemory::Ptr& region, U32 entry) const;
  const RegisterNames::Ptr& names() const { return names_; }
  void namesIs(RegisterNames::Ptr names) { names_.swap(names); }
  std::vector<Chip::Ptr> chips() const;
  Chip::Ptr findChip(const Hardware::ChipMemory& region) const;
  Chip::Ptr makeChip(const Hardware::ChipMemory::Ptr& region);
  void chipIs(const Chip::Ptr& chip);
  void chipDel(const Chip::Ptr& chip);

 private:
  class SelfWatch;
  class ChipWatch;
  class StoreWatch;
  class RemovedWatch;
  class PolicyWatch;
  class SliceClock;
  class Replay;

  struct Survey;

  struct ChipState {
    Chip::Ptr chip;
    Zint::Ptr<ChipWatch> watch;
    Zint::Ptr<Replay> replay;  // under way; null while there is none
    bool hasRead = false;      // it answered in this pass, and has not become absent since
    bool isAlive = false;      // it answered since the audit began, and has not become absent since
    bool isMissed = false;     // a region of it was not audited in this pass
    bool isRestored = false;   // after a reset, and not completely audited since
    bool isResetTold = false;  // by others than the chip, which has not been asked since
    bool isTelling = false;    // the chip's own answer is being told
    U32 probedResets = 0;      // concluded since the last pass over all of it
    U64 probedPass = 0;        // the last pass in which a difference asked for it
    std::shared_ptr<Survey> survey;  // of this pass; null before a probe needs it
    AccessCost cost;                 // measured while turns are bounded
    Hardware::ChipAddress lastRead;  // the region that was read last
  };

  // The entries that one access reads and that are judged after it.
  struct Run;
  // The entry that is being judged.
  struct Judgement;
  // The search for entries that tell whether a chip has lost its state.
  struct Probe;
  enum class Visit {
    done,    // all entries of the run are judged
    full,    // the turn is: those before the place are judged
    isVoid,  // the chip did not answer or was reset: nothing is judged
    ended    // what was called has ended the slice
  };

  // --- Patrol.cpp: what has changed ---
  void start();
  void stop();
  void clockIs(const Zint::Ptr<const Zint::Clock>& clock);
  void wakeAt(Zint::Seconds time);
  void tryAgain();  // in the next turn, where no other is due
  void updateState();
  void resume();
  bool isRunning() const;
  bool isAnyRestoring() const;

  // --- PatrolRegions.cpp ---
  void dropMarks(std::vector<std::unique_ptr<RegionMarks>>& dropped);
  void keepMarks(std::unique_ptr<RegionMarks>& marks);
  std::unique_ptr<RegionMarks> takeKeptMarks(const Hardware::ChipMemory* region);
  void dropKeptMarks();
  void applyUnwritten(RegionMarks& marks);
  void reserveMarks();
  void dropRemoved();
  bool isReplaced(const Hardware::ChipMemory& region) const;

  // --- PatrolChips.cpp ---
  void dropChips();
  ChipState* findState(const Hardware::ChipMemory& region) const;
  ChipState& stateOf(const Hardware::ChipMemory::Ptr& region);
  ChipState* stateOf(const Chip::Ptr& chip) const;  // null where it is none of this shadow's
  bool isGiven(const ChipState& state) const;       // not made here
  std::vector<Hardware::ChipMemory::Ptr> regionsToRestore(const Chip::Ptr& chip) const;
  void makeAbsent(ChipState& state, const Zint::String8& reason);
  bool readAnyEntry(const Hardware::ChipMemory::Ptr& cm) const;
  void readAnyEntry(const Chip::Ptr& chip) const;
  bool retryAbsent();
  bool isToldReset(const Chip::Ptr& chip);
  void tellReset(const Chip::Ptr& chip);
  void dropAnswer(const Chip::Ptr& chip);

  // --- PatrolPass.cpp: passes and slices ---
  void beginPass();
  void endPass(const Zint::String8& reason);
  bool slice(const Zint::Epoch::Mark& mark);
  bool checkChips(const Zint::Epoch::Mark& mark);
  void goOnBehind(U32 done);
  void wakeForPass();
  U32 regionsUnderAudit() const;
  void tellTurn(const TurnResult& turn);
  void dropPass();  // without a word
  bool nextRegion();
  void leaveRegion();
  U32 prepare(const Policy& policy, U32 end, const ChipState& chip);
  Visit visit(U32 budget, U32& done);

  // --- The bound of a turn ---
  bool isBounded() const { return shadow_.turnBound() != Zint::never; }
  Zint::Seconds timeLeft() const;  // of the turn; infinity without a bound
  bool isTurnOver() const;
  bool hasTimeFor(const Run& run, U32 accesses) const;
  U32 entriesOfAccess(const ChipState& chip) const;
  // Around accesses of one entry: the time before them, and what each of them took.
  Zint::Seconds beginAccess() const { return isBounded() ? time() : 0; }
  void endAccess(Run& run, Zint::Seconds begin, U32 accesses = 1);
  void noteAccess(Zint::Seconds begin, U32 accesses = 1);  // for the turn alone

  // --- PatrolRestore.cpp: the replay after a reset ---
  Zint::Ptr<ChipWriteRequest> replayRequest(const Chip& chip) const;
  void restore(const Chip::Ptr& chip);
  void tryReplay(const Chip::Ptr& chip);
  void dropReplay(ChipState& state);
  bool isReplayed(const ChipState& state) const;
  void handleReplay(Replay& ended);
  void retryReplays();
  Zint::Seconds nextReplayTry() const;
  void giveReplaysTheClock();

  // --- PatrolJudge.cpp: what is done with a run ---
  // Whoever calls it counts the judged entries.
  Visit audit(const Hardware::ChipMemory::Ptr& cm, U32 first, U32 end, PassResult& result,
              U32& judged);
  Visit readAndJudge(Run& run, U32& judged);
  void takeMarks(Run& run);
  void giveMarksBack(Run& run, U32 from);
  void takeOpenFindings(Run& run);
  void giveOpenFindingsBack(Run& run, U32 from);
  Visit readRun(Run& run);
  Visit judgeRun(Run& run, U32& judged);
  U32 nextDifference(const Run& run, U32 entry) const;
  void learnEqual(Run& run, U32 end);
  Visit judge(Run& run, U32 entry);
  Visit leave(Run& run, U32 entry);
  Visit tellWrittenMeanwhile(Run& run, U32 entry);
  Verdict verdictOf(const Run& run, U32 entry) const;
  Visit readAgain(Run& run, U32 entry, U8* to);
  Finding finding(const Run& run, U32 entry, Verdict verdict, Nature nature) const;
  void tell(const Run& run, U32 entry, Verdict verdict, Nature nature = Nature::unverified);
  void tell(const Finding& told);

  // --- PatrolRepair.cpp: the repair of one entry, and what is remembered of it ---
  U32 accessesOfRepair(const Run& run, U32 entry) const;
  void rewrite(Judgement& judgement);
  void verify(Judgement& judgement);
  void remember(Judgement& judgement);
  void countVisits(Run& run, U32 end);

  // --- PatrolProbe.cpp: has the chip lost its state? ---
  bool needsProbe(const Run& run) const;
  Visit probeFirst(Run& run, U32& different);
  Visit probe(Run& run, U32 entry);
  Visit goOnProbing(const Run* run);
  Visit findProbed(Probe& probe, const Run* run, Hardware::ChipMemory::Ptr& cm, U32& entry);
  std::shared_ptr<Survey> surveyOf(Probe& probe);
  bool goOnSurveying(Survey& survey, const Chip::Ptr& chip) const;
  bool isProbed(const Chip::Ptr& chip, const Hardware::ChipMemory& cm, U32 entry,
                const Run* run) const;
  Visit readProbed(Probe& probe, const Hardware::ChipMemory::Ptr& cm, U32 entry);

  AuditedShadow& shadow_;
  RegisterNames::Ptr names_;  // null for none
  Zint::Ptr<SelfWatch> self_;
  Zint::Ptr<SliceClock> clock_;
  Zint::Epoch commands_;
  std::unordered_map<const Hardware::ChipMemory*, std::unique_ptr<RegionMarks>> marks_;
  std::unordered_multimap<U64, const Hardware::ChipMemory*> marksAt_;  // the same, by address
  // Of regions that have left and still exist: known by identity, not held. Without repairs.
  struct KeptMarks {
    Zint::Ptr<RemovedWatch> watch;
    std::unique_ptr<RegionMarks> marks;
  };
  std::unordered_map<const Hardware::ChipMemory*, KeptMarks> keptMarks_;
  std::size_t mostKeptMarks_ = 0;  // when they were looked through last, and some more
  U32 removals_ = 0;               // of regions, since the chips were looked through
  std::vector<std::unique_ptr<ChipState>> chips_;  // given ones; the last is asked first
  // Made here, for access methods that have none.
  std::unordered_map<const Hardware::ChipHam*, std::unique_ptr<ChipState>> defaultChips_;

  // --- The pass under way ---
  bool isInPass_ = false;
  U64 pass_ = 0;  // its number, from 1 on
  PassResult result_;
  Zint::Ptr<Hardware::ChipReadRequest> request_;  // held: the iterator walks it
  std::optional<Hardware::ChipReadRequest::ChipMemoryIteratorConst> next_;
  Hardware::ChipMemory::Ptr region_;       // that is being read; null between two
  U32 entry_ = 0;                          // the next one of it
  U64 done_ = 0;                           // entries behind
  std::size_t checked_ = 0;                // given chips that were asked whether they were reset
  U64 knownChanges_ = 0;                   // handleKnown() so far
  std::shared_ptr<Probe> probe_;           // under way, over turns where they are bounded
  U32 runLimit_ = ~0u;                     // entries of an access, after a turn that left some
  Zint::String8 missed_;                   // why the pass is not complete; empty while it is
  Zint::Seconds nextPass_ = -Zint::never;  // none begins before

  // --- The turn under way ---
  Zint::Seconds turnStart_ = 0;
  Zint::Seconds due_ = Zint::never;  // the next turn, or the one under way
  Zint::Seconds turnEnd_ = 0;        // of the last one
  bool isInTurn_ = false;
  bool isFirstRun_ = true;  // of the turn
  bool hasWorked_ = false;  // the turn has done something: it may end
  U32 repairsOfTurn_ = 0;
  Zint::Seconds accessTime_ = 0;     // of the turn's accesses
  Zint::Seconds longestAccess_ = 0;  // of them
  Judgement* judgement_ = nullptr;   // on the stack of judge()

  U32 histories_ = 0;  // entries of all regions whose repairs are remembered
};

}  // namespace Driver
