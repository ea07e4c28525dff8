// What goes wrong on a bus.
#pragma once

#include <Hardware/ChipAddress.h>
#include <Zint/Exception.h>
#include <Zint/String8.h>

namespace Platform {

// An access that failed: the bus said so (no acknowledge, a timeout, a transfer that was too
// short). The message names the bus, what was done, the register address and the system's error.
class UMBRA_API BusError : public Zint::Exception {
 public:
  // `error` is an errno; 0 where the system has none.
  BusError(Zint::String8 bus, U32 address, int error, const char* what);
  ~BusError() override;

  const Zint::String8& bus() const { return bus_; }
  U32 address() const { return address_; }
  int error() const { return error_; }

 private:
  Zint::String8 bus_;
  U32 address_;
  int error_;
};

// The chip does not answer, or another one does. What was read is not to be used.
class UMBRA_API ChipAbsent : public BusError {
 public:
  using BusError::BusError;
  ~ChipAbsent() override;
};

}  // namespace Platform
