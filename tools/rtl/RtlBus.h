// The bus of a switch chip: each register is one access.
#pragma once

#include <platform/bus/RegisterBus.h>

#include "Switch.h"

namespace Rtl {

class RtlBus : public Platform::RegisterBus {
 public:
  using Ptr = Zint::Ptr<RtlBus>;

  // The chip outlives the bus.
  explicit RtlBus(Switch& chip) : chip_(chip) {}

 protected:
  ~RtlBus() override;

 public:
  // A run of other than 4 bytes, or of an odd address, or beyond 64 KiB: a range exception.
  void read(const Platform::RegisterRun& run, U8* bytes) override;
  void write(const Platform::RegisterRun& run, const U8* bytes) override;
  Zint::String8 name() const override { return "rtl"; }

 private:
  Switch& chip_;
};

}  // namespace Rtl
