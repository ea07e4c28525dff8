// The base of the tests of what is written to chips: an audited shadow over a chip of bytes whose
// access method copies first, and then lets the test interfere.
#pragma once

#include <Driver/AuditedShadow.h>
#include <Driver/ChipAccess.h>
#include <Driver/ChipWriter.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/ByteChip.h"
#include "support/ShadowTest.h"

namespace Replay {

// The entry size is the stride.
class MemoryHam : public Support::RecordingHam {
 public:
  using Ptr = Zint::Ptr<MemoryHam>;
  using RecordingHam::RecordingHam;

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    RecordingHam::doRead(address, buffer, entrySize, entries);
    chip.read(address.value(), buffer, entrySize * entries);
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    const std::vector<U8> copied(buffer, buffer + std::size_t{entrySize} * entries);
    const U64 to = address.value();
    const Ptr self(this);
    RecordingHam::doWrite(address, buffer, entrySize, entries);
    chip.write(to, copied.data(), entrySize * entries);
    if (scribbles) std::memset(buffer, 0xee, copied.size());
  }

  U32 word(U64 address) {
    U32 value;
    chip.read(address, reinterpret_cast<U8*>(&value), sizeof value);
    return value;
  }
  void wordIs(U64 address, U32 value) {
    chip.write(address, reinterpret_cast<const U8*>(&value), sizeof value);
  }

  Support::ByteChip chip;
  bool scribbles = false;  // into the buffer of a write, as it may
};

using Support::HamAccess;
using Accesses = std::vector<HamAccess>;

inline HamAccess writeOf(U64 address, U32 entries, U32 entrySize = 4) {
  return {HamAccess::write, address, entrySize, entries};
}
inline HamAccess readOf(U64 address, U32 entries, U32 entrySize = 4) {
  return {HamAccess::read, address, entrySize, entries};
}

class ReplayTest : public Support::ShadowTest {
 protected:
  using ChipAccess = Driver::ChipAccess;
  using ChipWriter = Driver::ChipWriter;
  static constexpr auto start = Zint::Request::start_;
  static constexpr auto stop = Zint::Request::stop_;
  static constexpr auto none = Zint::Request::none_;
  static constexpr auto failed = Zint::Request::failed_;
  static constexpr auto done = Zint::Request::done_;

  ReplayTest() { ham = memory; }

  // A region of the audited shadow, cached and skipping, in the request.
  ChipMemory::Ptr table(const char* name, U64 address, U32 entries, U32 entrySize = 4) {
    const ChipMemory::Ptr cm = shadowed(name, address, entries, entrySize);
    cm->readFromCacheIs(true);
    cm->skipWriteIfMatchesCacheIs(true);
    own->chipMemoryIs(cm);
    request->chipMemoryIs(cm);
    return cm;
  }
  void configured() { own->stateIs(HardwareShadow::configured()); }
  void writerIs(U32 perWrite, U32 perSlice, Zint::Seconds interval = 1) {
    writer = Driver::chipWriterFactory(loop.activity, own, request, loop.clock, perWrite, perSlice,
                                       interval);
  }
  // As a client of the plain library: offered, and written where the shadow says so.
  bool clientWrites(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    U8* data = reinterpret_cast<U8*>(&value);
    if (own->shadowWriteAndCompareWithCache(cm, entry, data, 4)) return true;
    cm->chipHam()->doWrite(cm->entryAddress(entry), data, 4, 1);
    return false;
  }
  // The chip forgets everything.
  void resetChip() {
    memory->chip = {};
    memory->log.clear();
  }
  Accesses tick() {
    loop.turnAt(loop.activity->wakeTime() == 0 ? loop.clock->time() : loop.activity->wakeTime());
    return memory->taken();
  }
  // All ticks of the request.
  Accesses run() {
    Accesses all;
    request->stateIs(start);
    for (int i = 0; i < 10000 && loop.activity->wakeTime() != Zint::never; ++i) {
      const Accesses some = tick();
      all.insert(all.end(), some.begin(), some.end());
    }
    return all;
  }
  U32 onChip(const ChipMemory::Ptr& cm, U32 entry) {
    return memory->word(cm->entryAddress(entry).value());
  }
  U32 inShadow(const ChipMemory::Ptr& cm, U32 entry) { return Support::word(cm->shadow(), entry); }
  std::string remarksText() const { return stringValue(writer->remarks()).c_str(); }

  MemoryHam::Ptr memory = Zint::makePtr<MemoryHam>("chip0");
  Driver::AuditedShadow::Ptr own = Driver::auditedShadowFactory(loop.activity, loop.clock);
  Driver::ChipWriteRequest::Ptr request = Driver::chipWriteRequestFactory("replay");
  ChipWriter::Ptr writer;
};

}  // namespace Replay
