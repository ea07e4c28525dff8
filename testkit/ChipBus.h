// A fake chip behind a bus of the platform library: registers of 8 to 64 bits through
// Platform::RegisterHam, absence and all. Needs Umbra::Platform where it is included.
//
//   auto bus = Zint::makePtr<TestKit::ChipBus>(chip);
//   auto ham = Platform::registerHamFactory("asic", bus, {.width = 2});
//   ham->sentinelIs(0x0, 0x1234);
#pragma once

#include <platform/bus/BusError.h>
#include <platform/bus/RegisterBus.h>
#include <testkit/FakeChip.h>

#include <cerrno>
#include <cstring>

namespace TestKit {

// Registers in the machine's byte order. Where the chip gives no answer: a BusError (ETIMEDOUT).
class ChipBus : public Platform::RegisterBus {
 public:
  explicit ChipBus(FakeChip::Ptr chip) : chip_(std::move(chip)) {}

  void read(const Platform::RegisterRun& run, U8* bytes) override {
    each(run, [&](U32 address, U32 at) {
      const U64 value = chip_->doRead(address, run.width);
      std::memcpy(bytes + at, &value, run.width);
    });
  }
  void write(const Platform::RegisterRun& run, const U8* bytes) override {
    each(run, [&](U32 address, U32 at) {
      U64 value = 0;
      std::memcpy(&value, bytes + at, run.width);
      chip_->doWrite(address, run.width, value);
    });
  }
  void reopen() override { ++reopened_; }
  Zint::String8 identity() const override { return identity_; }
  Zint::String8 name() const override { return "fake " + chip_->name(); }

  // Another one: another chip is at this place from now on.
  void identityIs(Zint::String8 identity) { identity_ = std::move(identity); }
  U32 reopened() const { return reopened_; }

 protected:
  ~ChipBus() override = default;

 private:
  template <class Acts>
  void each(const Platform::RegisterRun& run, Acts acts) {
    const Ptr held(this);
    for (U32 i = 0; i < run.count; ++i) {
      const U32 address = run.address + run.width * i;
      try {
        acts(address, run.width * i);
      } catch (const NoAnswer&) {
        throw Platform::BusError(name(), address, ETIMEDOUT, "the access failed");
      }
    }
  }

  const FakeChip::Ptr chip_;
  Zint::String8 identity_;
  U32 reopened_ = 0;
};

}  // namespace TestKit
