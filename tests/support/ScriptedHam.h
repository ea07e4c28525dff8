// A recording access method whose chip holds one byte everywhere, and whose cache side can be made
// to refuse or to interfere.
#pragma once

#include <cstring>
#include <functional>
#include <vector>

#include "support/RecordingHam.h"

namespace Support {

class ScriptedHam : public RecordingHam {
 public:
  using Ptr = Zint::Ptr<ScriptedHam>;

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    std::memset(buffer, contents, std::size_t{entrySize} * entries);
    RecordingHam::doRead(address, buffer, entrySize, entries);
  }
  bool doCompare(U8* a, U8* b, U32 bytes) const override {
    return callsEverythingEqual || ChipHam::doCompare(a, b, bytes);
  }
  bool doReadToCache(U8* to, U8* from, U32 bytes) const override {
    return cached(bytes) && ChipHam::doReadToCache(to, from, bytes);
  }
  bool doWriteToCache(U8* to, U8* from, U32 bytes) override {
    return cached(bytes) && ChipHam::doWriteToCache(to, from, bytes);
  }
  bool doReadFromCache(U8* to, U8* from, U32 bytes) const override {
    return cached(bytes) && ChipHam::doReadFromCache(to, from, bytes);
  }

  U8 contents = 0;  // of every byte of the chip
  bool callsEverythingEqual = false;
  bool refuses = false;                  // every operation on the cached form
  mutable std::vector<U32> cachedSizes;  // of the operations on the cached form, refused ones too
  std::function<void()> onCached;        // runs in each of them

 private:
  bool cached(U32 bytes) const {
    cachedSizes.push_back(bytes);
    if (onCached) onCached();
    return !refuses;
  }
};

}  // namespace Support
