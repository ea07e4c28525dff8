// How entries of a region's shadow reach the chip: copied before the access, and written again when
// a client has changed them during it. For ChipAccess and ChipWriter; no public header includes it.
#pragma once

#include <Driver/AuditedShadow.h>
#include <functional>
#include <span>
#include <utility>
#include <vector>

namespace Driver {

// Entries first to first + second - 1.
using EntryRun = std::pair<U32, U32>;

// One write of a run of entries. It opens and closes their findings: an entry whose value on the
// chip is certain has none afterwards.
class RegionWrite {
 public:
  // A run that does not stay is written this many times.
  static constexpr U32 maxTries = 8;

  RegionWrite(const AuditedShadow::Ptr& shadow, const Hardware::ChipMemory::Ptr& region)
      : shadow_(shadow), cm_(region) {}

  // Masked bits are rewritten as the region's policy says; without this, entries are written whole.
  bool honoursPolicy = false;
  // Whether the run may be written again.
  bool repeats = true;
  // For the trace: who writes.
  const char* writer = "";
  // Asked after each access: whether to write nothing more.
  std::function<bool()> isSuperseded = [] { return false; };
  // Called before and after each access.
  std::function<void(bool begins)> accessing = [](bool) {};

  // Writes the run from the shadow; `given`, where it is not empty, the first time in place of the
  // shadow's bytes. What the access method throws goes on to the caller, and the run has findings.
  // REQUIRES: an access method, and a store that holds the run.
  void write(EntryRun run, std::span<const U8> given = {});

  // --- What write() has found ---
  U32 rewritten = 0;                // entries that were written again
  std::vector<EntryRun> unsettled;  // changed during each access, or one that must not be repeated
  bool hasEnded = false;            // superseded, or the store was replaced by an access

  // Whether the run needs a read before its write: some masked bits are kept. Never so for entries
  // that must not be read: they keep the masked bits of the shadow.
  static bool isReadFirst(const Policy* policy, U32 entry);

 private:
  struct Piece {
    EntryRun run;
    U32 tries;
  };

  void writePiece(const Piece& piece, std::span<const U8> given, std::vector<Piece>& pieces);
  bool readKept(EntryRun run, std::vector<U8>& expected, std::vector<U8>& actual);
  void openFindings(EntryRun run);
  bool isStoreReplaced() const;
  const U8* stored(U32 entry) const;

  const AuditedShadow::Ptr shadow_;
  const Hardware::ChipMemory::Ptr cm_;
  Hal::BufBase::Ptr store_;  // while a piece is written
};

// Whether the region has a store that holds the entries up to `end`.
bool hasStoreFor(const Hardware::ChipMemory& cm, U64 end);

// Counts the writes that clients have had to hold back, in all threads; wraps. A replay has seen
// all of them when the count did not change while it looked.
U32 heldWriteCount();
void heldWriteCountInc();

}  // namespace Driver
