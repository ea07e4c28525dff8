// How the images of a region are compared under its policy: prepared once for many comparisons, a
// step of entries at a time, and anew after a change. No public header includes this one.
#pragma once

#include <Driver/MaskedCompare.h>
#include <Driver/Policy.h>
#include <map>
#include <set>

namespace Driver {

// Sections of entries that are prepared, in ascending order, none overlapping; each grows at its
// end while what follows it is compared. Both ends of a section are places where a stretch begins.
//
// A section is a list of pieces in ascending order; entries between them are not compared. Where
// runs are long, a piece is a run of entries under one mask. Where they are short, it is a stretch
// of about 4 KiB with an image of all its compared bits: regular patterns share theirs.
class Policy::Comparison {
 public:
  // REQUIRES: entries of at least one byte.
  explicit Comparison(const Policy& policy);

  // As those of Policy. Without memory they throw; what was prepared before still is, or is
  // prepared again.
  U32 differentEntry(const U8* shadow, const U8* hardware, U32 first, U32 end);
  U32 doPrepare(U32 first, U32 end);
  U64 entriesPrepared() const;

 private:
  using Bytes = std::vector<U8>;

  struct Piece {
    U32 first;
    U32 last;
    const MaskedCompare* masked;  // null: every bit is compared
    const U8* image;              // in its place, if not null: the compared bits from `first` on
    std::size_t group;            // its neighbours without either are one
  };
  struct Section {
    U64 end;  // the first entry that is not prepared
    std::vector<Piece> pieces;
    std::vector<ByteRun> runs;           // the bytes of each piece
    std::vector<std::size_t> groupEnds;  // the piece behind each group
  };
  using Sections = std::map<U64, Section>;  // by the first entry

  class Place;

  Sections::iterator sectionOf(U32 entry);
  bool isPrepared(Sections::iterator section, U32 entry) const {
    return section != sections_.end() && section->second.end > entry;
  }
  void prepareStep(U32 entry);
  void extend(Section& section, U64 begin, U64 most);
  void pieceIs(Section& section, const Place& place, U32 first, U64 end);
  void pieceIs(Section& section, Piece piece);
  std::size_t bytesOf(U32 first, U32 last) const;
  const U8* imageOf(Place place, U64 first, U64 end);
  U32 differentEntry(const Section& section, const U8* shadow, const U8* hardware, U32 first,
                     U32 end) const;

  const Policy& policy_;
  const std::size_t entrySize_;
  const U64 stretch_;  // entries
  Sections sections_;
  std::map<Bytes, MaskedCompare> masks_;
  std::set<Bytes> images_;
};

}  // namespace Driver
