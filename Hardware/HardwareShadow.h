// The shadow: a registry of regions with an address index, the data path, and the audit.
//
//   auto shadow = hardwareShadowFactory(activity, clock);
//   shadow->chipMemoryIs(table);                       // while unconfigured
//   shadow->stateIs(HardwareShadow::configured());     // builds the index, then idle
//   shadow->stateIs(HardwareShadow::auditing());       // passes begin at the next turn
//   if (!shadow->shadowWriteAndCompareWithCache(table, entry, data, size))
//     table->chipHam()->doWrite(table->entryAddress(entry), data, table->entrySize(), entries);
//
// Every operation belongs to the activity's thread. Broken rules are fatal assertions.
#pragma once

#include <Hardware/AddressIndex.h>
#include <Hardware/ChipMemory.h>
#include <Hardware/ChipReadRequest.h>
#include <Zint/Activity.h>
#include <Zint/Epoch.h>
#include <Zint/RbTreeMap.h>
#include <concepts>
#include <vector>

namespace Hardware {

class UMBRA_API HardwareShadow : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<HardwareShadow>;

  enum State : S32 { unconfigured_ = 0, configured_ = 1, idle_ = 2, auditing_ = 3 };
  static constexpr State unconfigured() { return unconfigured_; }
  static constexpr State configured() { return configured_; }
  static constexpr State idle() { return idle_; }
  static constexpr State auditing() { return auditing_; }
  // Unknown numbers and names: the range exception with the type's name.
  static State StateInstance(U32 value);
  static State StateInstance(const Zint::String8& text);

  struct Id {
    enum : Zint::AttributeId {
      zintFwkActivity = Zint::firstAttributeId,
      state,
      overrideHardware,
      removeOverrideOnlyChipMem,
      clock,
      minIntervalBetweenAudits,
      chipMemory,
      lastChipMemory,
      findChipMemory,
      shadowWriteAndCompareWithCache,
      shadowWriteHack,
      readFromCacheHack,
      shadowWriteU32,
      readFromCacheU32,
      audits,
      auditReadRequest,
      chipMemoryChunk,
      nextIndex,
      chipMemoryId,
      chipMemoryChunkArray,
      handleState,
      lastAuditStartTime,
      handleChipMemory,
      handleAuditReadRequestStatus,
      doFixBadRegister,
      chipMemoryAuditEnabledIs,
      chipMemoryEntriesUnderAudit,
      hasNotificationActiveIs,
      zintDoZombieReactors,
      lastMember = zintDoZombieReactors  // the ids of a derived class begin after it
    };
  };

  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const HardwareShadow>& shadow);
    const HardwareShadow* notifier() const {
      return static_cast<const HardwareShadow*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onState() {}  // called before the shadow acts on the state
    virtual void onOverrideHardware() {}
    virtual void onMinIntervalBetweenAudits() {}
    virtual void onChipMemory(const ChipAddress&) {}  // registered, re-bound or removed
    virtual void onAudits() {}
    virtual void onLastAuditStartTime() {}
    virtual void onChipMemoryEntriesUnderAudit() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, HardwareShadow> {
    using NotifieeOf::NotifieeOf;
  };

  // Binds one registered region; owned by the registry. It is not notified of anything.
  class UMBRA_API ZintChipMemory : public ChipMemory::NotifieeConst {
   public:
    ZintChipMemory(HardwareShadow* shadow, const ChipMemory::Ptr& chipMemory);
    const ChipAddress& fwkKey() const { return fwkKey_; }
    const ChipMemory::Ptr& chipMemory() const { return chipMemory_; }
    void chipMemoryIs(const ChipMemory::Ptr& chipMemory);

   protected:
    ~ZintChipMemory() override;

   private:
    const ChipAddress fwkKey_;
    ChipMemory::Ptr chipMemory_;
  };
  using ChipMemoryIteratorConst = Zint::RbTreeMap<ZintChipMemory, ChipAddress>::Iterator;

  // Starts each audit pass.
  class UMBRA_API ZintClock : public Zint::Clock::NotifieeConst {
   public:
    ZintClock(HardwareShadow* shadow, const Zint::Ptr<const Zint::Clock>& clock);
    void onTime() override;
    void hardwareShadowIs(HardwareShadow* shadow) { shadow_ = shadow; }

   protected:
    ~ZintClock() override;

   private:
    HardwareShadow* shadow_;  // not a counted reference
  };

  // Continues the pass when the hardware has been read.
  class UMBRA_API ZintAuditReadRequest : public ChipReadRequest::NotifieeConst {
   public:
    ZintAuditReadRequest(HardwareShadow* shadow, const ChipReadRequest::Ptr& request);
    void onStatus() override;
    void hardwareShadowIs(HardwareShadow* shadow) { shadow_ = shadow; }
    const ChipReadRequest::Ptr& request() const { return request_; }

   protected:
    ~ZintAuditReadRequest() override;

   private:
    HardwareShadow* shadow_;  // not a counted reference
    ChipReadRequest::Ptr request_;
  };

  // Its reactors are switched off: use hardwareShadowFactory(), or hardwareShadowFactoryOf() for a
  // derived class. An object made by Zint::makePtr alone never audits.
  HardwareShadow(const Zint::Ptr<Zint::ActivityConfig>& activity,
                 const Zint::Ptr<const Zint::Clock>& clock);

  // Switches the two reactors on or off, the request's first.
  void hasNotificationActiveIs(bool active) override;
  U32 auditErrors() const override;
  const Zint::Type* fwkType() const override;

 protected:
  ~HardwareShadow() override;

 public:
  // --- Virtual operations, in slot order ---------------------------------------------------------
  // Rewrites one entry of the chip from `data` (entrySize bytes) and counts the repair. The buffers
  // and bitmaps are not changed. Null: a range exception.
  virtual void doFixBadRegister(const ChipMemory::Ptr& chipMemory, U32 entry, U8* data);
  virtual void zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity);
  // (Un)marks this and its reactors as being deleted.
  virtual void zintDoZombieReactors(bool zombie);

  // --- Control ---
  const Zint::Ptr<Zint::ActivityConfig>& zintFwkActivity() const { return zintFwkActivity_; }
  State state() const { return state_; }
  // Stores the value, notifies, then acts on it. configured continues to idle by itself; auditing
  // returns to idle if there is nothing to audit. A state that a notifiee sets re-entrantly is
  // stored at once and acted on when the action under way has finished, in the order of the calls.
  void stateIs(State state);
  // Acts on the state that was set last, or on the one whose action is under way.
  void handleState();
  // While true, no audit pass begins, no write needs the chip, and every read is served.
  bool overrideHardware() const { return overrideHardware_; }
  void overrideHardwareIs(bool overrideHardware);
  // From the start of one pass to the start of the next; used when the next one is scheduled.
  // REQUIRES: a number, as for lastAuditStartTime (range exceptions).
  Zint::Seconds minIntervalBetweenAudits() const { return minIntervalBetweenAudits_; }
  void minIntervalBetweenAuditsIs(const Zint::Seconds& interval);

  Zint::Ptr<const Zint::Clock> clock() const;
  void clockIs(const Zint::Ptr<const Zint::Clock>& clock);
  void newClock(const Zint::Ptr<const Zint::Clock>& clock);
  void clockDel();
  ChipReadRequest::Ptr auditReadRequest() const;
  void auditReadRequestIs(const ChipReadRequest::Ptr& request);
  void newAuditReadRequest(const ChipReadRequest::Ptr& request);
  void auditReadRequestDel();

  // --- Registry: one region per start address, in ascending order ---
  ChipMemory::Ptr chipMemory(const ChipAddress& address) const;
  U32 chipMemorys() const { return chipMemory_.size(); }
  ChipMemoryIteratorConst chipMemoryIterator() const { return chipMemory_.iterator(); }
  // Registers a region; it replaces another one at its address. Null: a range exception.
  // REQUIRES: unconfigured, or overrideHardware (fatal assertion, as for chipMemoryDel). A region
  // added to a built index is not in it, one removed stays in it (deliberate).
  Zint::Ptr<ZintChipMemory> chipMemoryIs(const ChipMemory::Ptr& cm);
  Zint::Ptr<ZintChipMemory> newChipMemory(const ChipMemory::Ptr& cm);
  // Returns the removed region, null when there was none.
  ChipMemory::Ptr chipMemoryDel(const ChipAddress& address);
  void chipMemoryNotify(const ChipAddress& address);
  void handleChipMemory(const ChipAddress& address);
  void handleChipMemory();  // never called
  // Remove in bulk, in any state, without any reaction.
  void chipMemoryDelAll();
  void removeOverrideOnlyChipMem();

  // --- Address index ---

  // The region that contains `address`, null if none does: the last region found, or else a search
  // of the index. Allocates nothing. `size` (bytes) must be a multiple of the region's entrySize
  // unless it allowsLogicalViews; where the access ends is not checked.
  ChipMemory::Ptr findChipMemory(const ChipAddress& address, U32 size) {
    if (isInLast(address, size)) return lastChipMemory_;
    return ChipMemory::Ptr::adopt(findInIndex(address, size));
  }
  const ChipMemory::Ptr& lastChipMemory() const { return lastChipMemory_; }
  void lastChipMemoryIs(const ChipMemory::Ptr& cm);

  // The parts of the index, see AddressIndex. Each accessor changes its own part alone.
  ChipMemoryChunk::Ptr chipMemoryChunk(U32 key) const { return index_.chipMemoryChunk(key); }
  U32 chipMemoryChunks() const { return index_.chipMemoryChunks(); }
  auto chipMemoryChunkIterator() const { return index_.chipMemoryChunkIterator(); }
  ChipMemoryChunk::Ptr chipMemoryChunkIs(U32 key) { return index_.chipMemoryChunkIs(key); }
  ChipMemoryChunk::Ptr newChipMemoryChunk(U32 key) { return index_.newChipMemoryChunk(key); }
  ChipMemoryChunk::Ptr chipMemoryChunkDel(U32 key) { return index_.chipMemoryChunkDel(key); }
  void chipMemoryChunkDelAll();
  ChipMemoryArrayIndex nextIndex() const { return index_.nextIndex(); }
  void nextIndexIs(ChipMemoryArrayIndex nextIndex);
  U32 chipMemoryId(ChipMemoryArrayIndex index) const { return index_.chipMemoryId(index); }
  U32 chipMemoryIds() const { return index_.chipMemoryIds(); }
  void chipMemoryIdIs(ChipMemoryArrayIndex index, U32 id) { index_.chipMemoryIdIs(index, id); }
  void chipMemoryIdDel(ChipMemoryArrayIndex index) { index_.chipMemoryIdDel(index); }
  void chipMemoryIdDelAll() { index_.chipMemoryIdDelAll(); }
  ChipMemoryChunk::Ptr chipMemoryChunkArray(ChipMemoryArrayIndex index) const {
    return index_.chipMemoryChunkArray(index);
  }
  U32 chipMemoryChunkArrays() const { return index_.chipMemoryChunkArrays(); }
  void chipMemoryChunkArrayIs(ChipMemoryArrayIndex index, const ChipMemoryChunk::Ptr& chunk) {
    index_.chipMemoryChunkArrayIs(index, chunk);
  }
  void chipMemoryChunkArrayDel(ChipMemoryArrayIndex index) {
    index_.chipMemoryChunkArrayDel(index);
  }
  void chipMemoryChunkArrayDelAll() { index_.chipMemoryChunkArrayDelAll(); }

  // --- Data path ---

  // Stores `size` bytes as entries from `entry` on. True: the chip need not be written; false:
  // the caller writes it.
  bool shadowWriteAndCompareWithCache(const ChipMemory::Ptr& cm, U32 entry, U8* data, U32 size);
  // The same by address, for callers who do not write the chip; an unknown address is ignored.
  void shadowWriteHack(const ChipAddress& address, U8* data, U32 size);
  void shadowWriteU32(const ChipAddress& address, U32 value);
  // True: `data` holds the `size` bytes; false: it is untouched (unless the access method refused
  // midway) and the caller reads the chip.
  // REQUIRES: not unconfigured.
  bool readFromCache(const ChipMemory::Ptr& cm, U32 entry, U8* data, U32 size);
  bool readFromCacheHack(const ChipAddress& address, U8* data, U32 size);
  U32 readFromCacheU32(const ChipAddress& address);  // 0 if it is not known

  // --- Audit ---
  // Completed passes.
  U32 audits() const { return audits_; }
  void auditsIs(U32 audits);
  Zint::Seconds lastAuditStartTime() const { return lastAuditStartTime_; }
  void lastAuditStartTimeIs(const Zint::Seconds& time);
  // The sum of `entries` over the regions in the audit's read request.
  U32 chipMemoryEntriesUnderAudit() const { return chipMemoryEntriesUnderAudit_; }
  void chipMemoryEntriesUnderAuditIs(U32 entries);
  // Switches the audit of one region. Null: a range exception. REQUIRES: idle.
  void chipMemoryAuditEnabledIs(const ChipMemory::Ptr& chipMemory, bool auditEnabled);
  void doStartAudit();
  void handleAuditReadRequestStatus();
  void doAuditChips();

 protected:
  // --- For a derived shadow that audits by itself ---
  // While it does, the base begins no pass and compares nothing.
  bool auditsItself() const { return auditsItself_; }
  void auditsItselfIs(bool auditsItself) { auditsItself_ = auditsItself; }
  // The first entry from `first` on and before `end` whose image in the hardware buffer differs
  // from the shadow, as doCompare of the access method judges it; `end` if there is none, or if
  // doCompare sets the state or replaces the shadow buffer. Whatever the mode and flags of the
  // region are. REQUIRES: a region (range exception), its access method, and buffers that hold
  // `end` entries (fatal assertion).
  U32 differentEntry(const ChipMemory::Ptr& cm, U32 first, U32 end) const;
  // Whether differentEntry() compares bytes: doCompare of the access method is not overridden.
  static bool comparesBytes(const ChipHam& ham);
  // Does with an entry that differs what doAuditChips() does: one that was never written is
  // adopted, one that was written since the pass began is left, any other is reported and repaired
  // by doFixBadRegister().
  // REQUIRES: as above, for this entry.
  void doAuditEntry(const ChipMemory::Ptr& cm, U32 entry);

 private:
  // findChipMemory() without the last region. The region is counted once for the caller, who adopts
  // it: a raw pointer stays in a register where findChipMemory() is inlined.
  ChipMemory* findInIndex(const ChipAddress& address, U32 size);
  // Whether findChipMemory() answers with the last region.
  bool isInLast(const ChipAddress& address, U32 size) const {
    if (lastChipMemory_ == nullptr || !lastChipMemory_->inRange(address)) return false;
    if (size != lastChipMemory_->entrySize()) [[unlikely]]
      checkSizeForLast(size);
    return true;
  }
  // The same as findChipMemory() for one entry of `size` bytes, but it calls nothing and counts no
  // reference. Null where findChipMemory() has to be asked.
  ChipMemory* findForEntry(const ChipAddress& address, U32 size) {
    ChipMemory* last = lastChipMemory_.ptr();
    if (last == nullptr || !last->inRange(address)) return findOtherForEntry(address, size);
    return size == last->entrySize() ? last : nullptr;
  }
  ChipMemory* findOtherForEntry(const ChipAddress& address, U32 size);
  // Asserts that `size`, which is not entrySize, is whole entries of the last region.
  void checkSizeForLast(U32 size) const;
  // The state whose action is under way; otherwise the state.
  State stateInAction() const { return isActing_ ? commands_.front() : state_; }
  void buildIndexAndEnrol(ChipReadRequest& request);
  U32 enrolAuditedRegions(ChipReadRequest& request, bool isAnyAudited) const;
  void emptyAuditReadRequest();
  void clearIndex();
  void wakeClockAt(const Zint::Seconds& time);

  // Destroyed from the last to the first.
  Zint::Ptr<Zint::ActivityConfig> zintFwkActivity_;
  State state_ = unconfigured_;
  bool overrideHardware_ = false;
  bool auditsItself_ = false;
  Zint::Ptr<ZintClock> clock_;
  Zint::RbTreeMap<ZintChipMemory, ChipAddress> chipMemory_;
  ChipMemory::Ptr lastChipMemory_;
  Zint::Ptr<ZintAuditReadRequest> auditReadRequest_;
  AddressIndex index_;
  Zint::Seconds minIntervalBetweenAudits_ = 0.0;
  Zint::Seconds lastAuditStartTime_ = 0.0;
  U32 audits_ = 0;
  U32 chipMemoryEntriesUnderAudit_ = 0;
  Zint::Epoch stateChanges_;
  Zint::Epoch enrolments_;       // advances when all regions enter or leave the audit's request
  std::vector<State> commands_;  // the states that were set and have not been acted on to the end
  bool isActing_ = false;        // on the first of the commands
};

// `clock` may be null: then no audit pass starts by itself. A clock needs an activity (range
// exception).
UMBRA_API HardwareShadow::Ptr hardwareShadowFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                    const Zint::Ptr<const Zint::Clock>& clock);

// The same for a class derived from HardwareShadow, made from the arguments of its constructor.
template <std::derived_from<HardwareShadow> Shadow, class... Arguments>
Zint::Ptr<Shadow> hardwareShadowFactoryOf(Arguments&&... arguments) {
  Zint::Ptr<Shadow> shadow = Zint::makePtr<Shadow>(std::forward<Arguments>(arguments)...);
  shadow->hasNotificationActiveIs(true);
  return shadow;
}

// "unconfigured", "configured", "idle", "auditing"; another number as
// HardwareShadow::State(number).
UMBRA_API Zint::String8 stringValue(HardwareShadow::State state);
// The name in single quotes.
UMBRA_API Zint::String8 valueToStrep(const HardwareShadow::State& state);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end,
                               HardwareShadow::State& state);
UMBRA_API std::ostream& operator<<(std::ostream& out, const HardwareShadow::State& state);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const HardwareShadow*) { return "Hardware::HardwareShadow"; }
constexpr const char* zintTypeName(const HardwareShadow::State*) {
  return "Hardware::HardwareShadow::State";
}

}  // namespace Hardware
