// What a replay will do, before anything is written, and what it could not do.
#pragma once

#include <Hardware/ChipMemory.h>
#include <vector>

namespace Driver {

// Entries that one access writes.
struct ReplayRun {
  Hardware::ChipMemory::Ptr chipMemory;
  U32 first = 0;
  U32 entries = 0;
  U32 group = 0;        // of the request
  bool isOnce = false;  // neither merged nor repeated
  bool isRead = false;  // read before the write, for masked bits that are kept

  friend bool operator==(const ReplayRun&, const ReplayRun&) = default;
};

// Why entries were not, or not for certain, written.
enum class ReplayNote : S32 {
  held,         // the region is buffered
  skipped,      // the region is overridden, or cannot be written
  interrupted,  // the access threw, and is not to be repeated
  unsettled     // a client changed them during each of several accesses
};

struct ReplayRemark {
  Hardware::ChipMemory::Ptr chipMemory;
  ReplayNote note = ReplayNote::held;
  U32 first = 0;
  U32 entries = 0;
  const char* reason = "";  // "buffered", "overridden", "without a store", ...

  // "interrupted: mac entry 17, an exception of the access method"
  UMBRA_API Zint::String8 stringValue() const;
};

struct ReplayPlan {
  std::vector<ReplayRun> runs;        // in the order of writing
  std::vector<ReplayRemark> remarks;  // what is held and skipped
  U64 entries = 0;
  U64 bytes = 0;
  U32 reads = 0;           // accesses that read, besides one write for each run
  U32 slices = 0;          // turns that write
  Zint::Seconds time = 0;  // expected: accesses, delays of groups, intervals between slices

  // For people: a line of totals, then a line for each region.
  UMBRA_API Zint::String8 stringValue() const;
};

// An entry whose value on the chip is not that of the shadow.
struct ChipDifference {
  Hardware::ChipMemory::Ptr chipMemory;
  U32 entry = 0;
  std::vector<U8> expected;  // entrySize bytes, as the shadow holds them
  std::vector<U8> actual;

  // "mac entry 17: expected x00x01, actual x00x00". At most 32 bytes of each.
  UMBRA_API Zint::String8 stringValue() const;
};

// "held", "skipped", "interrupted", "unsettled"; another number as Driver::ReplayNote(number).
UMBRA_API Zint::String8 stringValue(ReplayNote note);
// The texts, a line each.
UMBRA_API Zint::String8 stringValue(const std::vector<ReplayRemark>& remarks);
UMBRA_API Zint::String8 stringValue(const std::vector<ChipDifference>& differences);

}  // namespace Driver
