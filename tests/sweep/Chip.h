// A chip of registers whose accesses can be made to throw, and two access methods on it.
#pragma once

#include <Fru/HamImpl.h>
#include <Hardware/ChipHam.h>
#include <Zint/Exception.h>
#include <Zint/Ptr.h>

#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace Sweep {

// What a failing access throws.
enum class Thrown { nothing, range, memory, number };

// Allocates nothing, so that memory cannot fail in an access.
class Chip : public Fru::HamImpl {
 public:
  using Ptr = Zint::Ptr<Chip>;
  static constexpr U32 registers = 512;

  void read(U32 address, U32* value) override {
    countAccess();
    *value = word(address);
  }
  void write(U32 address, U32 value) override {
    countAccess();
    word(address) = value;
  }

  // Counts one access, and throws before it has any effect when it is the one that is to fail.
  void countAccess() {
    if (++accesses != failing) return;
    failed = true;
    switch (thrown) {
      case Thrown::nothing:
        return;
      case Thrown::range:
        throw Zint::RangeException("bus");  // short: needs no memory of its own
      case Thrown::memory:
        throw std::bad_alloc();
      case Thrown::number:
        throw 42;  // NOLINT(hicpp-exception-baseclass): anything may come out of a driver
    }
  }
  U32& word(U32 address) { return words.at(address / 4); }

  std::array<U32, registers> words{};  // change them here to damage the chip unseen
  U32 accesses = 0;
  U32 failing = 0;  // the number of the access that fails, from 1 on; 0 for none
  Thrown thrown = Thrown::nothing;
  bool failed = false;
};

// A derived access method: the chip lacks the top bit of every byte, and the cached form does too.
// Each operation on the cached form counts as an access, and may fail as one.
class SevenBitHam : public Hardware::ChipHam {
 public:
  SevenBitHam(Zint::Name name, Chip::Ptr chip) : ChipHam(std::move(name)), chip_(std::move(chip)) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    for (U32 at = 0; at < entrySize * entries; at += 4) {
      U32 value = 0;
      chip_->read(address.chipMemoryOffset() + at, &value);
      value &= 0x7f7f7f7f;
      std::memcpy(buffer + at, &value, 4);
    }
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    for (U32 at = 0; at < entrySize * entries; at += 4) {
      U32 value = 0;
      std::memcpy(&value, buffer + at, 4);
      chip_->write(address.chipMemoryOffset() + at, value & 0x7f7f7f7f);
    }
  }
  bool doCompare(U8* a, U8* b, U32 bytes) const override {
    chip_->countAccess();
    for (U32 i = 0; i < bytes; ++i) {
      if (((a[i] ^ b[i]) & 0x7f) != 0) return false;
    }
    return true;
  }
  bool doReadToCache(U8* to, U8* from, U32 bytes) const override {
    return copyBytes(to, from, bytes);
  }
  bool doWriteToCache(U8* to, U8* from, U32 bytes) override { return copyBytes(to, from, bytes); }
  bool doReadFromCache(U8* to, U8* from, U32 bytes) const override {
    return copyBytes(to, from, bytes);
  }

 private:
  bool copyBytes(U8* to, const U8* from, U32 bytes) const {
    chip_->countAccess();
    for (U32 i = 0; i < bytes; ++i) to[i] = from[i] & 0x7f;
    return true;
  }

  Chip::Ptr chip_;
};

}  // namespace Sweep
