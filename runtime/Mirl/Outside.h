// The records of the process's trace file where other processes can read them, also after its end:
// the memory of its parts becomes that of a file. docs/formats.md says how the file is read.
//
//   Mirl::Outside::fileIs(descriptor);      // begins at `partsAt`; before it the header, which is
//   while (Mirl::Outside::moveOne()) {}     // the caller's, and the formats
//
// A record costs the same as before: it is written to the same place. No record is lost or torn by
// the move. A part that no thread is writing to is moved at once: the calling thread's own, one
// that is free, one whose thread has ended, the one that all share. Any other thread moves its part
// itself, with its next record at that level; until then its records are not in the file. So does a
// thread that claims a part.
//
// What cannot be moved, because the disk is full or there is no memory, stays where it is.
//
// A child of fork() has records of its own, which begin anew and are in no file. One that was made
// by _Fork() or clone() writes into the file of its parent and must not write records. A core dump
// does not hold what is in a file, unless the system is asked for it.
//
// May be used from several threads; fileIs() and moveOne() from one at a time.
#pragma once

#include <Mirl/Mirl.h>
#include <atomic>
#include <span>

namespace Mirl {

class UMBRA_API Outside {
 public:
  // Offsets in the file.
  static constexpr U32 formatsAt = 4096;
  static constexpr U32 formatsBytes = 65536;
  static constexpr U32 partsAt = formatsAt + formatsBytes;
  static constexpr U32 partsPerRing = RingBuf::threadParts + 1;
  static constexpr U32 parts = TraceFile::rings * partsPerRing;
  // What is in front of the first of the entries, which follow each other: number of a descriptor,
  // line, bytes of the format, and the format, filled up to whole words.
  struct Formats {
    static constexpr U32 entriesAt = 64;
    static constexpr U32 formatMax = 4096;  // bytes; a longer one is cut
    std::atomic<U32> used;                  // bytes of entries
    std::atomic<U32> leftOut;               // entries that there was no room for
  };
  // Where things are in a part: bytes from its beginning.
  struct Layout {
    U32 partBytes, begin, end, cleared, bytes;
    U32 starts;  // bytes of records, after which the next record begins at 0 again
    U32 unit;
  };
  static Layout layout();
  // Part p of ring r is part p * rings + r of the file.
  static U64 offsetOf(U32 ring, U32 part);

  // From now on the records belong into this file; those of an earlier one move there, too. The
  // descriptor is copied. Takes the space for the formats. Raises std::system_error when there is
  // none, and nothing has changed then.
  static void fileIs(int descriptor);
  // Moves one more part that has to be and can be moved by the caller, or asks its thread to.
  // False: there was none, and the next call begins from the front.
  static bool moveOne();
  // Parts that are not in the file though they may hold records, as moveOne() has seen last: those
  // of other threads that have written no record since, and what could not be moved.
  static U32 partsLeftOut();
  // How often a part could not be moved, so far.
  static U32 failures();
  // Formats that are not in the file: it had no room for them.
  static U32 formatsLeftOut();

 private:
  friend class MsgDesc;
  friend class RingBuf;

  static void add(const MsgDesc& desc);
  static bool move(RingBuf& ring, RingBuf::Part& part);
  static bool moveNext();
  static bool moveHeld(RingBuf& ring, RingBuf::Part& part);
  static bool bring(int file, U64 offset, RingBuf::Part& part);
  static void leaveFormer(U64 offset);
  static void handleFork();
};

// A record from its bytes, of which there is at least the header; nothing behind them is read. The
// text is "unknown" without a format.
UMBRA_API Record recordFrom(std::span<const U8> bytes, const char* format);

}  // namespace Mirl
