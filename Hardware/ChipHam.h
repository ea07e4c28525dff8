// The access method: how a region's bytes reach the chip and the cache.
//
// A derived access method supplies doRead and doWrite, and overrides the cache side where its cache
// layout differs from the hardware's:
//
//   class TcamHam : public Hardware::ChipHam {
//    public:
//     using ChipHam::ChipHam;
//     void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
//     void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
//   };
//
// No operation checks its buffers; a length beyond a buffer is the caller's fault.
#pragma once

#include <Hardware/ChipAddress.h>
#include <Zint/Activity.h>
#include <Zint/Entity.h>

namespace Hardware {

class UMBRA_API ChipHam : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<ChipHam>;
  struct Id : Entity::Id {
    enum : Zint::AttributeId {
      doRead = isNondestructing + 1,
      doWrite,
      doCompare,
      doReadToCache,
      doWriteToCache,
      doReadFromCache,
      byteFromBitStream,
      byteToBitStream,
      bitFromBitStream,
      bitToBitStream,
      copyBits,
      lastMember = copyBits  // ids of derived types follow it
    };
  };

  // Notified when the access method is being destroyed.
  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipHam>& chipHam)
        : Entity::NotifieeConst(activity, chipHam) {}
    const ChipHam* notifier() const {
      return static_cast<const ChipHam*>(Entity::NotifieeConst::notifier());
    }

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipHam> {
    using NotifieeOf::NotifieeOf;
  };

  explicit ChipHam(Zint::Name name) : Entity(std::move(name)) {}

  const Zint::Type* fwkType() const override;

 protected:
  ~ChipHam() override;

 public:
  // --- In slot order -----------------------------------------------------------------------------
  // Reads `entries` entries of `entrySize` bytes from the hardware at `address` into `buffer`.
  // The base cannot: a fatal assertion, as for doWrite.
  virtual void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries);
  virtual void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries);
  // Whether the two byte ranges are equal.
  virtual bool doCompare(U8* a, U8* b, U32 bytes) const;
  // Copies what was read from the hardware into its cached form; false refuses.
  virtual bool doReadToCache(U8* destination, U8* source, U32 bytes) const;
  // Copies what a client writes into its cached form; false refuses.
  virtual bool doWriteToCache(U8* destination, U8* source, U32 bytes);
  // Copies the cached form out to a reader; false refuses.
  virtual bool doReadFromCache(U8* destination, U8* source, U32 bytes) const;

  // --- Bit streams: bit k is bit k mod 8 of byte k / 8 -------------------------------------------
  bool bitFromBitStream(U8* stream, U32 bit) const;
  void bitToBitStream(U8* stream, U32 bit, bool value) const;
  // The 8 bits from `bit` on; the next byte is touched only when they reach into it.
  U8 byteFromBitStream(U8* stream, U32 bit) const;
  void byteToBitStream(U8* stream, U32 bit, U8 value) const;
  // The streams must not overlap; no other bit of the destination changes.
  void copyBits(U8* destination, U32 destinationBit, U8* source, U32 sourceBit, U32 bits) const;
};

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipHam*) { return "Hardware::ChipHam"; }

}  // namespace Hardware
