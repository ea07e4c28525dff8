// The chip in RTL: a process of its own behind a mailbox in shared memory.
#pragma once

#include <sys/types.h>

#include "Mailbox.h"
#include "Switch.h"

namespace Rtl {

class RtlSwitch : public Switch {
 public:
  // Starts the program and waits for nothing. Failure: std::system_error.
  explicit RtlSwitch(const std::string& program);
  RtlSwitch(const RtlSwitch&) = delete;
  RtlSwitch& operator=(const RtlSwitch&) = delete;
  ~RtlSwitch() override;

  // A chip whose process has ended, or that does not answer within ten seconds: Platform::BusError.
  U32 read(U32 address) override;
  void write(U32 address, U32 value) override;
  void doClocks(U32 clocks) override;
  void doFlip(U32 address, U64 bits) override;
  State state() override;
  std::string name() const override { return "the chip in RTL"; }

  // Accesses of a word, by the chip's own count.
  U32 readsOf(U32 address) const;
  U32 writesOf(U32 address) const;

 private:
  void order(Order order, U32 address, U32 value, U64 bits);

  Mailbox* mailbox_ = nullptr;
  pid_t process_ = -1;
};

}  // namespace Rtl
