// One named region of a chip's address space: `entries` equal entries of `entrySize` bytes,
// `stride` address units apart, and what the software knows of them.
//
//   auto table = chipMemoryFactory("mac", ChipAddress(0, 0x1000), 1024, 4, 4, ham);
//   table->shadowEnabledIs(true);
//   table->auditEnabledIs(true);
//
// Buffers. Entry i of `hardware` (the last image of the chip) and of `shadow` (what the software
// has written or wants written) is the `entrySize` bytes at entrySize * i. The bitmaps
// `initialized` (the shadow's entry holds a value) and `dirty` (written since the audit's pass
// began) hold entry i at bit i & 7 of byte i >> 3.
// - Sizes are 32-bit products and wrap. An operation that would leave a buffer is a fatal assertion
//   that names the region.
// - A bitmap has (entries >> 3) + 1 bytes. Deliberate: clients rely on the spare byte that this
//   gives at multiples of 8 entries.
// - The store is shadow, dirty and initialized. It exists exactly while shadowStoreNeeded(). It is
//   created and zeroed by every change of entries, of shadowEnabled to true and of mode to normal
//   or buffered.
// - hardware exists from the start, except in override mode. Deliberate, because clients keep the
//   buffer: a change of entries does not resize it. Change entries before auditing.
//
// A client may install buffers of its own, of any size. Operations use as much of them as the rules
// above describe.
//
// Change mode, entries and shadowEnabled while the shadow is idle. During an audit pass they create
// an empty store, which then adopts what the reader read before the change.
#pragma once

#include <Hal/Buf.h>
#include <Hardware/ChipAddress.h>
#include <Hardware/ChipHam.h>
#include <Zint/Epoch.h>
#include <Zint/HashMap.h>

namespace Hardware {

struct StoreAccess;

class UMBRA_API ChipMemory : public Zint::PtrInterface, public Zint::HashMapLink<ChipMemory> {
 public:
  using Ptr = Zint::Ptr<ChipMemory>;

  // How writes reach the chip: normal, at once; override, not at all; buffered, kept in the shadow
  // until the region returns to normal.
  enum ChipMemoryMode : S32 { normal_ = 0, override_ = 1, buffered_ = 2 };
  static constexpr ChipMemoryMode normal() { return normal_; }
  static constexpr ChipMemoryMode override() { return override_; }
  static constexpr ChipMemoryMode buffered() { return buffered_; }
  // Unknown numbers and names: the range exception with the type's name.
  static ChipMemoryMode ChipMemoryModeInstance(U32 value);
  static ChipMemoryMode ChipMemoryModeInstance(const Zint::String8& text);

  struct Id {
    enum : Zint::AttributeId {
      name = Zint::firstAttributeId,
      address,
      entrySize,
      stride,
      chipHam,
      indirectCmdRegAddr,
      inRange,
      shadowEnabled,
      auditEnabled,
      handleAuditEnabled,
      mode,
      handleMode,
      shadowStoreNeeded,
      handleShadowStoreNeeded,
      entryIndexFromAddress,
      doClear,
      doClearRange,
      writeback,
      readFromCache,
      skipWriteIfMatchesCache,
      readCacheHits,
      writeCacheHits,
      registersFixed,
      lastFixTime,
      hardware,
      shadow,
      initialized,
      entryInitialized,
      entryInitializedIs,
      entryInitializedDel,
      dirty,
      allowsLogicalViews,
      fwkKey,
      entries
    };
  };

  // Every changed attribute reaches handleNotification(); the common ones have a handler each.
  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipMemory>& chipMemory, bool active = true);
    const ChipMemory* notifier() const {
      return static_cast<const ChipMemory*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onEntries() {}
    virtual void onShadowEnabled() {}
    virtual void onAuditEnabled() {}
    virtual void onMode() {}
    virtual void onRegistersFixed() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipMemory> {
    using NotifieeOf::NotifieeOf;
  };

  ChipMemory(Zint::String8 name, const ChipAddress& address, U32 entries, U32 entrySize, U32 stride,
             const Zint::Ptr<ChipHam>& chipHam);

  const Zint::Type* fwkType() const override;

 protected:
  ~ChipMemory() override;

 public:
  // --- Virtual operations, in slot order ---------------------------------------------------------
  virtual void handleShadowStoreNeeded();
  virtual void entriesIs(U32 entries);
  virtual void indirectCmdRegAddrIs(U32 address);
  virtual void shadowEnabledIs(bool enabled);
  virtual void auditEnabledIs(bool enabled);
  virtual void modeIs(ChipMemoryMode mode);
  virtual void shadowStoreNeededIs(bool needed);
  virtual void readFromCacheIs(bool readFromCache);
  virtual void skipWriteIfMatchesCacheIs(bool skip);
  virtual void readCacheHitsInc(const U64& n) const;
  virtual void readCacheHitsIs(const U64& hits) const;
  virtual void writeCacheHitsInc(const U64& n);
  virtual void writeCacheHitsIs(const U64& hits);
  virtual void registersFixedInc(U32 n);
  virtual void registersFixedIs(U32 registersFixed);
  virtual void lastFixTimeIs(Zint::Seconds time);
  virtual void hardwareIs(const Zint::Ptr<Hal::Buf>& buffer);
  virtual void shadowIs(const Zint::Ptr<Hal::BufBase>& buffer);
  virtual void initializedIs(const Zint::Ptr<Hal::BufBase>& buffer);
  virtual void dirtyIs(const Zint::Ptr<Hal::BufBase>& buffer);
  virtual void allowsLogicalViewsIs(bool allows);

  // --- Constant after construction ---------------------------------------------------------------
  Zint::String8 name() const { return name_; }
  const Zint::String8& fwkKey() const { return name_; }
  const ChipAddress& address() const { return address_; }  // of entry 0
  U32 entrySize() const { return entrySize_; }             // bytes
  U32 stride() const { return stride_; }                   // address units from entry to entry
  const Zint::Ptr<ChipHam>& chipHam() const { return chipHam_; }

  // --- Attributes --------------------------------------------------------------------------------
  U32 entries() const { return entries_; }
  // Of the region's indirect command register. The library only reports it.
  U32 indirectCmdRegAddr() const { return indirectCmdRegAddr_; }
  bool shadowEnabled() const { return shadowEnabled_; }
  // REQUIRES when set: mode is not override (fatal assertion; entering override is not checked).
  bool auditEnabled() const { return auditEnabled_; }
  // A change to normal writes the whole shadow to the chip, then creates an empty store.
  ChipMemoryMode mode() const { return mode_; }
  bool shadowStoreNeeded() const { return shadowEnabled_ && mode_ != override(); }
  bool readFromCache() const { return readFromCache_; }
  bool skipWriteIfMatchesCache() const { return skipWriteIfMatchesCache_; }
  U64 readCacheHits() const { return readCacheHits_; }    // entries served
  U64 writeCacheHits() const { return writeCacheHits_; }  // entries skipped
  U32 registersFixed() const { return registersFixed_; }  // by the audit
  Zint::Seconds lastFixTime() const { return lastFixTime_; }
  const Zint::Ptr<Hal::Buf>& hardware() const { return hardware_; }
  const Zint::Ptr<Hal::BufBase>& shadow() const { return shadow_; }
  const Zint::Ptr<Hal::BufBase>& initialized() const { return initialized_; }
  const Zint::Ptr<Hal::BufBase>& dirty() const { return dirty_; }
  // Accepts accesses whose size is no multiple of entrySize.
  bool allowsLogicalViews() const { return allowsLogicalViews_; }

  // --- Addresses ---------------------------------------------------------------------------------
  // address <= addr < address + span, where span = stride * entries wraps in 32 bits.
  bool inRange(const ChipAddress& addr) const {
    const U32 span = stride_ * entries_;
    const U32 offset = address_.chipMemoryOffset();
    if (offset + span < offset) [[unlikely]]
      return inRangeAcross(addr);
    // One comparison of the offsets. Two would often be mispredicted: each is as good as random.
    return addr.chipMemoryId() == address_.chipMemoryId() &&
           addr.chipMemoryOffset() - offset < span;
  }
  // The entry at or below the address, truncated to 32 bits. REQUIRES: inRange(addr).
  U32 entryIndexFromAddress(const ChipAddress& addr) const {
    if (strideShift_ < 32 && addr.chipMemoryId() == address_.chipMemoryId() &&
        addr.chipMemoryOffset() >= address_.chipMemoryOffset()) [[likely]] {
      return (addr.chipMemoryOffset() - address_.chipMemoryOffset()) >> strideShift_;
    }
    return entryIndexByDivision(addr);
  }
  ChipAddress entryAddress(U32 entry) const { return address_.plus(stride_ * entry); }

  // --- The initialized bitmap; in override mode every entry counts as initialized ---

  // REQUIRES: the shadow store, and an index within the bitmap.
  bool entryInitialized(U32 entryIndex) const;
  void entryInitializedIs(U32 entryIndex);
  void entryInitializedDel(U32 entryIndex);

  // --- Clearing; nothing in override mode ---

  // Zeroes the shadow and marks every entry dirty and initialized. Nothing is written to the
  // chip.
  void doClear();
  // The same for the entries from startIndex to endIndex, both included. writeThrough also writes
  // each to the chip. Deliberate, because clients rely on it: endIndex may be `entries`. That entry
  // is marked, and written to the chip as zeros; what of it lies beyond the shadow is not stored.
  void doClearRange(U32 startIndex, U32 endIndex, bool writeThrough);

  // --- Write-back ---

  // Writes the whole shadow to the chip in one access, or only the initialized entries one by one.
  void writeback(bool initializedOnly);

  // --- Entries that change by themselves ---

  // A bitmap, null where there are none (the default): an entry whose bit is set is never served
  // from the cache, nor skipped as a write hit, whatever `initialized` says. Entries beyond its end
  // are not volatile. While there is one, the region's data path is the reference loop.
  const Zint::Ptr<Hal::BufBase>& volatileEntries() const { return volatileEntries_; }
  void volatileEntriesIs(const Zint::Ptr<Hal::BufBase>& bitmap);

  // --- Reactions ---
  void handleAuditEnabled();
  void handleMode();

 private:
  friend struct StoreAccess;

  // The store as the data path uses it: computed when a buffer, the mode or `entries` changes, not
  // at every access. The pointers are null where the buffers are.
  struct StoreView {
    U32 entries = 0;  // for the fast path: storedEntries(), or 0 while some are volatile
    U8* shadow = nullptr;
    U8* initialized = nullptr;
    U8* dirty = nullptr;
  };

  bool inRangeAcross(const ChipAddress& addr) const;
  U32 entryIndexByDivision(const ChipAddress& addr) const;
  Zint::Ptr<Hal::Buf> newStore() const;
  Zint::Ptr<Hal::Buf> newBitmap() const;
  template <class Buffer>
  void bufferIs(Zint::Ptr<Buffer>& held, const Zint::Ptr<Buffer>& buffer, Zint::AttributeId id);
  void updateStoreView();
  U32 storedEntries() const;  // that all three buffers hold; 0 in override mode or without a store

  // In the order of use: what a look-up, a write and a read touch comes first.
  const ChipAddress address_;
  U32 entries_;
  const U32 entrySize_;
  const U32 stride_;
  const U8 strideShift_;  // the stride is 2 to this power; 32 when it is no power of 2
  bool shadowEnabled_ = false;
  bool auditEnabled_ = false;
  bool readFromCache_ = false;
  bool skipWriteIfMatchesCache_ = false;
  bool allowsLogicalViews_ = false;
  bool storeIsDisjoint_ = false;  // no two of the view's buffers have a byte in common
  ChipMemoryMode mode_ = normal_;
  StoreView storeView_;
  Zint::Ptr<ChipHam> chipHam_;  // constant after construction
  mutable U64 readCacheHits_ = 0;
  U64 writeCacheHits_ = 0;
  Zint::Ptr<Hal::BufBase> shadow_;
  Zint::Ptr<Hal::BufBase> initialized_;
  Zint::Ptr<Hal::BufBase> dirty_;
  Zint::Ptr<Hal::Buf> hardware_;
  Zint::Ptr<Hal::BufBase> volatileEntries_;
  U32 indirectCmdRegAddr_ = 0;
  U32 registersFixed_ = 0;
  Zint::Epoch stores_;  // advances with every store that is created or released
  Zint::Seconds lastFixTime_ = 0.0;
  const Zint::String8 name_;
};

UMBRA_API Zint::Ptr<ChipMemory> chipMemoryFactory(Zint::String8 name, const ChipAddress& address,
                                                  U32 entries, U32 entrySize, U32 stride,
                                                  const Zint::Ptr<ChipHam>& chipHam);

// "normal", "override", "buffered"; another number as ChipMemory::ChipMemoryMode(number).
UMBRA_API Zint::String8 stringValue(ChipMemory::ChipMemoryMode mode);
// The name in single quotes.
UMBRA_API Zint::String8 valueToStrep(const ChipMemory::ChipMemoryMode& mode);
UMBRA_API void sequenceToValue(Zint::String8::IteratorConst& pos,
                               const Zint::String8::IteratorConst& end,
                               ChipMemory::ChipMemoryMode& mode);
UMBRA_API std::ostream& operator<<(std::ostream& out, const ChipMemory::ChipMemoryMode& mode);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const ChipMemory*) { return "Hardware::ChipMemory"; }
constexpr const char* zintTypeName(const ChipMemory::ChipMemoryMode*) {
  return "Hardware::ChipMemory::ChipMemoryMode";
}

}  // namespace Hardware
