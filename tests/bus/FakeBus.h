// A bus in memory that can lose its chip, fail, and come back with another one.
#pragma once

#include <platform/bus/BusError.h>
#include <platform/bus/RegisterBus.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace BusTest {

class FakeBus : public Platform::RegisterBus {
 public:
  explicit FakeBus(std::size_t size) : bytes(size) {}

  void read(const Platform::RegisterRun& run, U8* to) override {
    reads.push_back(run);
    fail(run.address);
    if (isGone) {
      std::memset(to, answer, std::size_t{run.width} * run.count);
    } else {
      std::memcpy(to, bytes.data() + run.address, std::size_t{run.width} * run.count);
    }
    if (after) after();
  }
  void write(const Platform::RegisterRun& run, const U8* from) override {
    writes.push_back(run);
    fail(run.address);
    if (!isGone) std::memcpy(bytes.data() + run.address, from, std::size_t{run.width} * run.count);
  }
  void reopen() override {
    ++reopened;
    if (!refusal.empty()) Zint::throwRangeException(Zint::String8(refusal));
    if (cannotOpen) throw Platform::ChipAbsent(name(), 0, 2, "cannot be opened");
  }
  Zint::String8 identity() const override { return serial; }
  Zint::String8 name() const override { return "fake"; }

  std::vector<U8> bytes;
  std::vector<Platform::RegisterRun> reads, writes;
  std::function<void()> after;
  Zint::String8 serial = "one";
  std::string refusal;  // of what is opened anew, as a range exception
  U8 answer = 0xff;
  U32 failures = 0;  // the next accesses that fail
  U32 reopened = 0;
  bool isGone = false;
  bool cannotOpen = false;

 protected:
  ~FakeBus() override = default;

 private:
  void fail(U32 address) {
    if (failures == 0) return;
    --failures;
    throw Platform::BusError(name(), address, 110, "the access failed");
  }
};

}  // namespace BusTest
