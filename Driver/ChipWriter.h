// Writes what clients have written through the shadow back to the chips, a bounded slice at a time,
// and sets the request's status when all of it has been written: after a reset, for instance.
//
//   auto writer = chipWriterFactory(activity, shadow, request, clock, 64, 1024, 0.001);
//   std::cout << writer->plan().stringValue() << "\n";   // what will be written; nothing is yet
//   request->stateIs(Zint::Request::start_);   // 1,024 entries per tick, 64 per access at most
//
// Written are the entries that a client wrote (AuditedShadow::isWritten), in the order of the
// request; those of the rule readOnly never, known ones that nobody wrote only where the request
// includes them. Masked bits are rewritten as the policy says. Neighbours share an access, except
// entries that are `once`. Buffered regions are held, overridden ones skipped: see remarks().
//
// What was written is remembered for the region, the object: one that leaves the shadow and returns
// is written as before, another one at its address is not. Its store must be the same.
//
// Clients may write at any time. Each run is copied before its access; entries that a client has
// changed during it are written again after it. Writes that ChipAccess holds back are written
// before the status is `done`, and before the next group where they are not too many. When clients
// hold back more than slices can write, the rest is written in one turn.
//
// An exception of an access method, or a chip that is absent, ends the writing: the status is
// `failed`, reason() says why, and the entries of the access have open findings. doResume() goes on
// at the beginning of that access, a new start begins anew. An entry that is `once` is not repeated
// then: it is listed as interrupted, and written only where a client writes it anew.
//
// A region that leaves the shadow after the start is not written any more: it is listed as skipped.
// Another one may be at its address.
//
// The clock may be replaced at any time: the writing goes on with the next turn of the new one, a
// pause between groups begins anew.
//
// A slice ends early with the access that reaches the turn bound of the shadow, if it has one, and
// an access writes as many entries as fit into what is left of it.
//
// The start and plan() go through all entries of the request in one turn. The writer does not keep
// the shadow alive.
#pragma once

#include <Driver/AuditedShadow.h>
#include <Driver/ChipWriteRequest.h>
#include <Driver/ReplayPlan.h>
#include <Zint/Activity.h>
#include <Zint/Epoch.h>
#include <concepts>
#include <functional>
#include <memory>
#include <set>
#include <utility>

namespace Driver {

class AccessCost;
class ChipAccess;
class Patrol;
class ReplayRegion;

class UMBRA_API ChipWriter : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<ChipWriter>;
  using ChipMemory = Hardware::ChipMemory;

  struct Id {
    enum : Zint::AttributeId {
      zintFwkActivity = Zint::firstAttributeId,
      shadow,
      request,
      clock,
      maxEntriesPerWrite,
      maxEntriesPerSlice,
      writeInterval,
      accessCost,
      verifies,
      currentChipMemory,
      entriesToWrite,
      entriesWritten,
      entriesRewritten,
      isInterrupted,
      reason,
      remarks,
      differences,
      plan,
      doDiff,
      doWrite,
      doResume,
      doLeaveBuffered,
      handleWriteRequest,
      hasNotificationActiveIs,
      zintDoZombieReactors,
      lastMember = zintDoZombieReactors
    };
  };

  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipWriter>& writer);
    const ChipWriter* notifier() const {
      return static_cast<const ChipWriter*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onCurrentChipMemory() {}
    virtual void onEntriesWritten() {}
    virtual void onIsInterrupted() {}
    virtual void onRemarks() {}      // one was added
    virtual void onDifferences() {}  // one was added

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipWriter> {
    using NotifieeOf::NotifieeOf;
  };

  // Starts and stops the writing.
  class UMBRA_API ZintRequest : public ChipWriteRequest::NotifieeConst {
   public:
    ZintRequest(ChipWriter* writer, const ChipWriteRequest::Ptr& request);
    void onState() override;
    void chipWriterIs(ChipWriter* writer) { writer_ = writer; }
    const ChipWriteRequest::Ptr& request() const { return request_; }
    void requestIs(const ChipWriteRequest::Ptr& request);

   protected:
    ~ZintRequest() override;

   private:
    ChipWriter* writer_;  // not a counted reference
    ChipWriteRequest::Ptr request_;
  };

  // Wakes the writer for each slice.
  class UMBRA_API ZintClock : public Zint::Clock::NotifieeConst {
   public:
    ZintClock(ChipWriter* writer, const Zint::Ptr<const Zint::Clock>& clock);
    void onTime() override;
    void chipWriterIs(ChipWriter* writer) { writer_ = writer; }

   protected:
    ~ZintClock() override;

   private:
    ChipWriter* writer_;  // not a counted reference
  };

  // Its reactors are switched off: use chipWriterFactory(), or chipWriterFactoryOf() for a derived
  // class. REQUIRES: numbers above 0, and an interval that is finite and not negative (range
  // exceptions, also where they are set).
  ChipWriter(const Zint::Ptr<Zint::ActivityConfig>& activity, const AuditedShadow::Ptr& shadow,
             const ChipWriteRequest::Ptr& request, const Zint::Ptr<const Zint::Clock>& clock,
             U32 maxEntriesPerWrite, U32 maxEntriesPerSlice, const Zint::Seconds& writeInterval);

  // Switches the two reactors on or off, the request's first.
  void hasNotificationActiveIs(bool active) override;
  const Zint::Type* fwkType() const override;

 protected:
  ~ChipWriter() override;

 public:
  // --- Virtual operations, in slot order ---------------------------------------------------------
  // Writes one slice: at most maxEntriesPerSlice entries. Nothing happens where none is due.
  virtual void doWrite();
  virtual void zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity);
  // (Un)marks this and its reactors as being deleted.
  virtual void zintDoZombieReactors(bool zombie);

  // --- Attributes --------------------------------------------------------------------------------
  const Zint::Ptr<Zint::ActivityConfig>& zintFwkActivity() const { return zintFwkActivity_; }
  // Null once it is destroyed.
  AuditedShadow::Ptr shadow() const;
  void shadowIs(const AuditedShadow::Ptr& shadow);
  // Replacing a request that is bound already acts on the new one at once, as for a ChipReader. A
  // clock needs an activity (range exception).
  ChipWriteRequest::Ptr request() const;
  void requestIs(const ChipWriteRequest::Ptr& request);
  Zint::Ptr<const Zint::Clock> clock() const;
  void clockIs(const Zint::Ptr<const Zint::Clock>& clock);
  U32 maxEntriesPerWrite() const { return maxEntriesPerWrite_; }
  void maxEntriesPerWriteIs(U32 entries);
  U32 maxEntriesPerSlice() const { return maxEntriesPerSlice_; }
  void maxEntriesPerSliceIs(U32 entries);
  // Seconds from the end of one slice to the next.
  Zint::Seconds writeInterval() const { return writeInterval_; }
  void writeIntervalIs(const Zint::Seconds& seconds);
  // Seconds of one access, for plan(): what was set, else the mean of the accesses so far, else 0.
  // 0 takes back what was set. REQUIRES: finite, not negative (range exception).
  Zint::Seconds accessCost() const;
  void accessCostIs(const Zint::Seconds& seconds);
  // Whether what was written is read back before the status is `done`; differences() lists what
  // does not hold. Entries that are not compared are not read.
  bool verifies() const { return verifies_; }
  void verifiesIs(bool verifies);

  // --- Progress ----------------------------------------------------------------------------------
  // The region being written or verified; null when none is.
  const ChipMemory::Ptr& currentChipMemory() const { return currentChipMemory_; }
  U64 entriesToWrite() const { return entriesToWrite_; }      // fixed at the start
  U64 entriesWritten() const { return entriesWritten_; }      // of them; never more
  U64 entriesRewritten() const { return entriesRewritten_; }  // because clients wrote meanwhile
  // Whether the writing has failed and may be resumed.
  bool isInterrupted() const { return isInterrupted_; }
  const Zint::String8& reason() const { return reason_; }  // empty unless it has failed
  // What was not, or not for certain, written since the start.
  const std::vector<ReplayRemark>& remarks() const { return remarks_; }
  // What the verifying pass has found: the first 1,024.
  const std::vector<ChipDifference>& differences() const { return differences_; }

  // --- Before and after --------------------------------------------------------------------------
  // What a start would write now. Writes and reads nothing.
  ReplayPlan plan() const;
  // Reads from the chips, in one turn, all entries of the request whose value is known, and lists
  // those that differ under their masks. Buffered regions are compared, too. Left out: overridden
  // regions, entries that are not compared, and those that a client writes meanwhile.
  // What an access method throws goes on to the caller; an absent chip: a range exception.
  std::vector<ChipDifference> doDiff() const;

  // --- Operations --------------------------------------------------------------------------------
  // Goes on after a failure. Nothing happens otherwise.
  void doResume();
  // Lets a buffered region return to normal: what clients wrote in the buffered period is written,
  // and nothing else; the store is kept. (ChipMemory::modeIs writes the whole store and drops it.)
  // In one turn, so that no write is lost: its cost is that of all accesses. False: the region
  // stays buffered, because a client has changed it again and again, or its mode. What an access
  // method throws goes on to the caller; the region stays buffered then, and the next call begins
  // anew, also with entries that are once.
  // REQUIRES: a buffered region with a store and an access method, and a chip that is not absent
  // (range exceptions).
  bool doLeaveBuffered(const ChipMemory::Ptr& region);

  // --- Reactions ---------------------------------------------------------------------------------
  void handleWriteRequest();
  void handleTimeout();

 private:
  friend class ChipAccess;
  friend class Patrol;
  class ZintShadow;
  using EntryRun = std::pair<U32, U32>;  // the first entry, and how many
  struct Job {
    ChipMemory::Ptr region;
    U32 group;
    bool isOfShadow;  // at the start
  };
  // What a pass over the jobs of a group, or over all, writes or reads. `again` and `last`: what
  // was held back.
  enum class Phase { write, again, verify, last };
  // Where a pass over some of the jobs is.
  struct Place {
    Phase phase = Phase::write;
    std::size_t job = 0;
    std::size_t end = 0;  // of the jobs of this pass
    std::size_t begin = 0;
    U32 entry = 0;
    U32 group = 0;
    bool hasFound = false;     // anything in this pass
    U32 passes = 0;            // of `again` and `last`
    U32 heldWrites = 0;        // before the pass
    bool isUnbounded = false;  // the rest in one turn
  };

  void newRequest(const ChipWriteRequest::Ptr& request);
  void requestDel();
  void newClock(const Zint::Ptr<const Zint::Clock>& clock);
  void clockDel();
  void wakeAt(const Zint::Seconds& time);
  void wakeAfter(Zint::Seconds seconds);
  void start(const ChipWriteRequest& request);
  void stop();
  void fail(const Zint::String8& reason);
  void finish();

  // --- Writes that clients hold back ---
  // Whether those of the region will be written before the end.
  bool takesHeldWrites(const ChipMemory::Ptr& region) const;
  // One was held back: it is written also where the entry was given up.
  void heldWriteIs(const ChipMemory& region, U32 entry);

  // ChipWriterReplay.cpp
  void writeSlice(const AuditedShadow::Ptr& shadow);
  bool isChipPresent(const AuditedShadow::Ptr& shadow, const ReplayRegion& region);
  EntryRun findRun(const ReplayRegion& region, U32 limit, U64& visits) const;
  void sliceEndIs(const AuditedShadow& shadow);
  Zint::Seconds timeOfSlice() const;  // of the clock; 0 while the slice has no bound
  U32 entriesOfAccess(U32 left) const;
  std::function<void(bool)> accessTimer();
  void requireTaken(AuditedShadow& shadow, const ChipMemory::Ptr& cm, EntryRun run);
  void writeRun(const AuditedShadow::Ptr& shadow, const ReplayRegion& region, EntryRun run);
  void countWritten(U32 entries);
  void verifyRun(AuditedShadow& shadow, const ReplayRegion& region, EntryRun run);
  void nextJob();
  void passIs(Phase phase);
  void groupIs(U32 group);
  bool nextPass(AuditedShadow& shadow);
  void reportUnsettled(AuditedShadow& shadow);

  // ChipWriterChecks.cpp
  bool leaveOrRemark(const AuditedShadow::Ptr& shadow, const ReplayRegion& region, U32& left);
  bool writeBuffered(const AuditedShadow::Ptr& shadow, const ReplayRegion& region,
                     const Zint::Epoch::Mark& command, U32& written);
  static bool leaveBuffered(const AuditedShadow::Ptr& shadow, const ChipMemory::Ptr& cm);

  void remarkAdd(const ReplayRemark& remark);
  void currentChipMemoryIs(const ChipMemory::Ptr& region);
  void entriesWrittenIs(U64 entries);

  // Destroyed from the last to the first.
  Zint::Ptr<Zint::ActivityConfig> zintFwkActivity_;
  Zint::Ptr<ZintShadow> shadow_;
  Zint::Ptr<ZintRequest> request_;
  Zint::Ptr<ZintClock> clock_;
  U32 maxEntriesPerWrite_;
  U32 maxEntriesPerSlice_;
  Zint::Seconds writeInterval_;
  Zint::Seconds accessCost_ = 0;
  Zint::Seconds accessTime_ = 0;  // of all accesses so far
  U64 accesses_ = 0;
  bool verifies_ = false;
  bool verifiesThis_ = false;  // the replay under way
  bool isStarted_ = false;
  bool isPlanned_ = false;  // false: there was no memory for the start; another try begins anew
  bool isInterrupted_ = false;
  bool includesAdopted_ = false;
  bool leavesBuffered_ = false;
  bool looksForHeld_ = false;     // again, before the end
  bool hasHeldAccessed_ = false;  // a write of accessedEntry_, since its access began
  Zint::Seconds pause_ = 0;       // before the next slice
  Zint::Seconds sliceEnd_ = Zint::never;
  const std::unique_ptr<AccessCost> cost_;  // measured while slices have a bound
  std::vector<Job> jobs_;
  std::vector<Zint::Seconds> delays_;  // of the groups
  Place place_;
  ChipMemory::Ptr currentChipMemory_;
  U32 accessedEntry_ = 0;  // the first of the last access
  U64 entriesToWrite_ = 0;
  U64 entriesWritten_ = 0;
  U64 entriesRewritten_ = 0;
  Zint::String8 reason_;
  std::vector<ReplayRemark> remarks_;
  std::vector<ChipDifference> differences_;
  std::set<std::pair<const ChipMemory*, U32>> leftOut_;  // entries that are not written any more
  Zint::Epoch commands_;                                 // advanced by every start, stop and resume
};

// `shadow`, `request` and `clock` may be null. A clock needs an activity (range exception). Neither
// handler runs here.
UMBRA_API Zint::Ptr<ChipWriter> chipWriterFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                  const AuditedShadow::Ptr& shadow,
                                                  const ChipWriteRequest::Ptr& request,
                                                  const Zint::Ptr<const Zint::Clock>& clock,
                                                  U32 maxEntriesPerWrite, U32 maxEntriesPerSlice,
                                                  const Zint::Seconds& writeInterval);

// The same for a class derived from ChipWriter, made from the arguments of its constructor.
template <std::derived_from<ChipWriter> Writer, class... Arguments>
Zint::Ptr<Writer> chipWriterFactoryOf(Arguments&&... arguments) {
  Zint::Ptr<Writer> writer = Zint::makePtr<Writer>(std::forward<Arguments>(arguments)...);
  writer->hasNotificationActiveIs(true);
  return writer;
}

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipWriter*) { return "Driver::ChipWriter"; }

}  // namespace Driver
