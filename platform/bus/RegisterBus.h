// The registers of one chip, as a bus reaches them. RegisterHam makes an access method of it.
//
//   class MailboxBus : public Platform::RegisterBus {
//     void read(const Platform::RegisterRun& run, U8* bytes) override { ... }   // one transfer
//     void write(const Platform::RegisterRun& run, const U8* bytes) override { ... }
//     Zint::String8 name() const override { return "mailbox 0"; }
//   };
#pragma once

#include <Zint/Ptr.h>
#include <Zint/PtrInterface.h>
#include <Zint/String8.h>
#include <Zint/Types.h>

namespace Platform {

// Registers that lie side by side: `count` of `width` bytes (1, 2, 4 or 8), the first at byte
// address `address`.
struct RegisterRun {
  U32 address;
  U32 width;
  U32 count;
  friend bool operator==(const RegisterRun&, const RegisterRun&) = default;
};

class UMBRA_API RegisterBus : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<RegisterBus>;

 protected:
  ~RegisterBus() override;

 public:
  // Read and write all registers of a run, in ascending order, each once and with its own width:
  // run.width * run.count bytes, in the order in which the bus has them. A bus that moves many
  // registers in one transfer does so. A failure: BusError; the registers before it may have been
  // accessed. A run that the bus cannot reach: a range exception, before any access.
  virtual void read(const RegisterRun& run, U8* bytes) = 0;
  virtual void write(const RegisterRun& run, const U8* bytes) = 0;

  // Makes the way to the chip anew, after an absence: what was mapped or opened before may lead to
  // another chip, or nowhere. Failure: BusError. The base: nothing.
  virtual void reopen();
  // What tells this chip from another one at the same place (ids that the bus knows without an
  // access to its registers); empty where the bus knows none. May throw BusError.
  virtual Zint::String8 identity() const;
  // For messages: "pci 0000:03:00.0 resource 0".
  virtual Zint::String8 name() const = 0;

 private:
  friend class RegisterHam;

  U32 openings_ = 0;  // by an access method: the others over this bus then check the chip, too
};

}  // namespace Platform
