// A client's way to one region: each write is offered to the shadow, and what differs is written to
// the chip; each read is served from the cache, or else read from the chip.
//
//   auto ports = chipAccessFactory(shadow, table);   // a region of 4-byte entries
//   ports->write<U32>(7, 0xcafe);
//   U32 value = ports->read<U32>(7);
//   ports->write<U32>(16, std::span<const U32>(values));   // entries 16 and following
//
// Only the entries that differ are written, neighbours in one access. An entry differs when its
// value is not the one that the shadow knows, and always when
// - it has an open finding: it is known or suspected that the chip holds another value,
// - it is volatile,
// - skipWriteIfMatchesCache is off,
// - its chip is being restored.
// A write that the access method refuses by an exception opens findings for the entries that were
// not written, although the shadow holds their new values. The exception goes on to the caller, and
// the next write of the same value reaches the chip. A write that succeeds closes the findings of
// its entries, unless the chip is known to be absent: then it opens findings, because such a chip
// takes no write. An exception is also a hint that the chip is absent: the patrol looks by itself,
// and nothing is done about it here.
//
// Entries that a client has changed during an access of this object are written again after it, so
// that the newest value stays. An entry that is written without a store (shadowEnabled off), or
// read before the shadow is configured, goes to the chip.
//
// Bad entries and sizes are range exceptions, and nothing has changed then. So is the read of a
// writeOnly entry that the cache does not serve: its chip cannot tell it, and is not asked. So is a
// write while the region's store is being exchanged: of a notifiee of that.
#pragma once

#include <Driver/AuditedShadow.h>
#include <span>
#include <type_traits>

namespace Driver {

// What an entry may be read as: bytes that can be copied.
template <class T>
concept EntryValue = std::is_trivially_copyable_v<T> && !std::is_const_v<T>;

class UMBRA_API ChipAccess : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<ChipAccess>;
  using ChipMemory = Hardware::ChipMemory;

  struct Id {
    enum : Zint::AttributeId {
      shadow = Zint::firstAttributeId,
      chipMemory,
      holdsWhileRestoring,
      readMisses,
      writeMisses,
      writesHeld,
      read,
      write,
      lastMember = write
    };
  };

  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipAccess>& access);
    const ChipAccess* notifier() const {
      return static_cast<const ChipAccess*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onReadMisses() {}
    virtual void onWriteMisses() {}
    virtual void onWritesHeld() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipAccess> {
    using NotifieeOf::NotifieeOf;
  };

  // Null: range exceptions.
  ChipAccess(const AuditedShadow::Ptr& shadow, const ChipMemory::Ptr& region);

  const Zint::Type* fwkType() const override;

 protected:
  ~ChipAccess() override;

 public:
  const AuditedShadow::Ptr& shadow() const { return shadow_; }       // constant
  const ChipMemory::Ptr& chipMemory() const { return chipMemory_; }  // constant

  // --- One entry. REQUIRES: T has entrySize bytes ---
  template <EntryValue T>
  T read(U32 entry) const {
    T value;
    requireSize(sizeof(T));
    readBytes(entry, {reinterpret_cast<U8*>(&value), sizeof value});
    return value;
  }
  template <EntryValue T>
  void write(U32 entry, const std::type_identity_t<T>& value) {
    requireSize(sizeof(T));
    writeBytes(entry, {reinterpret_cast<const U8*>(&value), sizeof value});
  }

  // --- Entries from `first` on, one for each value ---
  template <EntryValue T>
  void read(U32 first, std::span<T> values) const {
    requireSize(sizeof(T));
    readBytes(first, {reinterpret_cast<U8*>(values.data()), values.size_bytes()});
  }
  template <EntryValue T>
  void write(U32 first, std::span<const T> values) {
    requireSize(sizeof(T));
    writeBytes(first, {reinterpret_cast<const U8*>(values.data()), values.size_bytes()});
  }

  // --- The same as bytes of whole entries ---
  // `bytes` is unchanged after an exception.
  void readBytes(U32 first, std::span<U8> bytes) const;
  void writeBytes(U32 first, std::span<const U8> bytes);

  // Whether writes are held back while the chip is being restored: they are offered to the shadow
  // alone, and the replay writes them before it ends, also the entries that it had given up. On by
  // default. Writes that no replay would write go to the chip at once: of a chip that does not
  // restore itself, or a shadow without a clock, of a region that its replay does not have, of
  // entries that are never replayed; and those that come when the replay has looked for held writes
  // for the last time: in a notifiee that is told of its end, for instance.
  bool holdsWhileRestoring() const { return holdsWhileRestoring_; }
  void holdsWhileRestoringIs(bool holds);

  // --- Counts of entries; they wrap. Hits are counted by the region. ---
  U64 readMisses() const { return readMisses_; }    // read from the chip
  U64 writeMisses() const { return writeMisses_; }  // written to the chip
  U64 writesHeld() const { return writesHeld_; }    // held back

 private:
  class Copy;
  class Write;

  void requireSize(std::size_t bytes) const;
  U32 requireEntries(U32 first, std::size_t bytes) const;
  bool isServed(U32 entry) const;
  template <class IsKnown>
  void requireReadable(U32 first, U32 count, const IsKnown& isKnown) const;

  const AuditedShadow::Ptr shadow_;
  const ChipMemory::Ptr chipMemory_;
  bool holdsWhileRestoring_ = true;
  mutable U64 readMisses_ = 0;
  U64 writeMisses_ = 0;
  U64 writesHeld_ = 0;
};

UMBRA_API Zint::Ptr<ChipAccess> chipAccessFactory(const AuditedShadow::Ptr& shadow,
                                                  const Hardware::ChipMemory::Ptr& chipMemory);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipAccess*) { return "Driver::ChipAccess"; }

}  // namespace Driver
