// The rules of the data path and of the audit, entry by entry and nothing else: what a bulk path
// must not be slower than. Every access method is asked by virtual calls.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Hardware/Entries.h>
#include <cstring>

namespace Bench {

// The buffers of one region.
struct LiteralRegion {
  Hardware::ChipHam& ham;
  U8* shadow;
  U8* hardware;
  U8* initialized;
  U8* dirty;
  U32 entrySize;
  U64 hits = 0;
};

// Compares all entries and learns those that are not initialized. Returns the number of entries
// that differ otherwise.
inline U32 literalAudit(LiteralRegion& region, U32 entries) {
  U32 differences = 0;
  for (U32 e = 0; e < entries; ++e) {
    U8* shadow = region.shadow + e * region.entrySize;
    U8* hardware = region.hardware + e * region.entrySize;
    if (region.ham.doCompare(shadow, hardware, region.entrySize)) continue;
    if (Hardware::bitmapBit(region.initialized, e)) {
      ++differences;
    } else if (region.ham.doReadToCache(shadow, hardware, region.entrySize)) {
      Hardware::bitmapBitIs(region.initialized, e);
    }
  }
  return differences;
}

// Writes all entries but those that the shadow holds already. True: the chip need not be written.
inline bool literalWrite(LiteralRegion& region, U32 entries, U8* data) {
  bool unchanged = true;
  for (U32 e = 0; e < entries; ++e) {
    U8* shadow = region.shadow + e * region.entrySize;
    U8* source = data + e * region.entrySize;
    if (Hardware::bitmapBit(region.initialized, e) &&
        std::memcmp(shadow, source, region.entrySize) == 0) {
      ++region.hits;
      continue;
    }
    if (region.ham.doWriteToCache(shadow, source, region.entrySize)) {
      Hardware::bitmapBitIs(region.dirty, e);
      Hardware::bitmapBitIs(region.initialized, e);
    }
    unchanged = false;
  }
  return unchanged;
}

// Reads all entries if each of them is known.
inline bool literalRead(LiteralRegion& region, U32 entries, U8* data) {
  for (U32 e = 0; e < entries; ++e) {
    if (!Hardware::bitmapBit(region.initialized, e)) return false;
  }
  region.hits += entries;
  for (U32 e = 0; e < entries; ++e) {
    const U32 at = e * region.entrySize;
    if (!region.ham.doReadFromCache(data + at, region.shadow + at, region.entrySize)) return false;
  }
  return true;
}

}  // namespace Bench
