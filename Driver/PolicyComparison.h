// How the images of a region are compared under its policy: prepared once for many comparisons,
// made anew after a change. No public header includes this one.
#pragma once

#include <Driver/MaskedCompare.h>
#include <Driver/Policy.h>
#include <map>
#include <set>

namespace Driver {

// Pieces in ascending order; entries between them are not compared. Where runs are long, a piece is
// a run of entries under one mask. Where they are short, it is a stretch of about 4 KiB with an
// image of all its compared bits: regular patterns share theirs.
class Policy::Comparison {
 public:
  // REQUIRES: entries of at least one byte.
  explicit Comparison(const Policy& policy);

  U32 differentEntry(const U8* shadow, const U8* hardware, U32 first, U32 end) const;

 private:
  using Bytes = std::vector<U8>;

  struct Piece {
    U32 first;
    U32 last;
    const MaskedCompare* masked;  // null: every bit is compared
    const U8* image;              // in its place, if not null: the compared bits from `first` on
  };

  class Place;

  std::size_t pieceOf(U32 entry) const;
  void pieceIs(const Place& place, U32 first, U64 end);
  const U8* imageOf(Place place, U64 first, U64 end);

  const std::size_t entrySize_;
  std::vector<Piece> pieces_;
  std::vector<ByteRun> runs_;          // the bytes of each piece
  std::vector<std::size_t> unmasked_;  // how many from each piece on have neither mask nor image
  std::map<Bytes, MaskedCompare> masks_;
  std::set<Bytes> images_;
};

}  // namespace Driver
