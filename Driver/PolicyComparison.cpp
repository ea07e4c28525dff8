#include <Driver/PolicyComparison.h>

#include <Zint/Sizes.h>
#include <algorithm>
#include <bit>
#include <new>
#include <utility>

namespace Driver {
namespace {

// The bytes of a stretch with an image, if its entries are not larger.
constexpr std::size_t stretchBytes = 4096;
// A stretch whose runs cost more gets an image, which costs 0.1 to 0.6 of the comparison more. The
// unit is a run without a mask, compared or left out.
constexpr U32 mostRunsOfStretch = 32;
constexpr U32 costOfMaskedRun = 4;
// What is prepared at once, if runs are short; at least a stretch.
constexpr U64 entriesOfStep = 1024;

bool masksEveryBit(const std::vector<U8>& mask) {
  return std::all_of(mask.begin(), mask.end(), [](U8 byte) { return byte == 0xff; });
}

}  // namespace

// The rule and the mask of an entry, which may only advance.
class Policy::Comparison::Place {
 public:
  Place(const Policy& policy, U64 entry)
      : rules_(policy.rules_, entry),
        masks_(policy.masks_, entry),
        regionMask_(policy.mask_.value.get()) {}
  void entryIs(U64 entry) {
    rules_.entryIs(entry);
    masks_.entryIs(entry);
  }
  // Where the next run begins.
  U64 end() const { return std::min(rules_.end(), masks_.end()); }
  // Null: every bit is compared.
  const Mask* mask() const {
    const Mask* own = masks_.value().value.get();
    const Mask* mask = own != nullptr ? own : regionMask_;
    return mask == nullptr || mask->bits.empty() ? nullptr : mask;
  }
  // Of the comparison of this run by itself.
  U32 cost() const { return mask() == nullptr || !isCompared() ? 1 : costOfMaskedRun; }
  // Whether any bit is.
  bool isCompared() const {
    const Mask* mask = this->mask();
    return Driver::isCompared(rules_.value()) && (mask == nullptr || !masksEveryBit(mask->bits));
  }

 private:
  Runs<Rule>::Cursor rules_;
  Runs<Shared<Mask>>::Cursor masks_;
  const Mask* regionMask_;
};

// A power of 2, so that regular patterns are the same in each stretch.
Policy::Comparison::Comparison(const Policy& policy)
    : policy_(policy),
      entrySize_(policy.chipMemory()->entrySize()),
      stretch_(std::bit_floor(std::max<std::size_t>(stretchBytes / entrySize_, 1))) {}

// --- Preparation ---------------------------------------------------------------------------------

// The last section that does not begin behind the entry.
Policy::Comparison::Sections::iterator Policy::Comparison::sectionOf(U32 entry) {
  const auto behind = sections_.upper_bound(entry);
  return behind == sections_.begin() ? sections_.end() : std::prev(behind);
}

U32 Policy::Comparison::doPrepare(U32 first, U32 end) {
  for (bool hasPrepared = false; first < end;) {
    const auto section = sectionOf(first);
    if (isPrepared(section, first)) {
      first = atMost(section->second.end, end);
      continue;
    }
    if (std::exchange(hasPrepared, true)) break;
    prepareStep(first);
  }
  return first;
}

U64 Policy::Comparison::entriesPrepared() const {
  U64 entries = 0;
  for (const auto& [first, section] : sections_) entries += section.end - first;
  return entries;
}

// Prepares the entry, which is not, and some that follow it.
void Policy::Comparison::prepareStep(U32 entry) {
  const U64 begin = entry / stretch_ * stretch_;
  auto section = sectionOf(entry);
  if (section == sections_.end() || section->second.end != begin) {
    section =
        sections_.emplace_hint(sections_.upper_bound(begin), begin, Section{begin, {}, {}, {}});
  }
  const auto next = std::next(section);
  try {
    extend(section->second, begin, next == sections_.end() ? Runs<Rule>::endOfAll : next->first);
  } catch (...) {
    sections_.erase(section);  // a piece may be there in part
    throw;
  }
}

// From the section's end on, for a step, or for one long run; up to `most`.
void Policy::Comparison::extend(Section& section, U64 begin, U64 most) {
  const U64 endOfStep = std::min(begin + std::max(stretch_, entriesOfStep), most);
  U64 at = begin;
  for (Place place(policy_, at); at < endOfStep; place.entryIs(at)) {
    const U64 endOfStretch = (at / stretch_ + 1) * stretch_;
    if (at % stretch_ == 0 && place.end() < endOfStretch) {
      U32 runs = place.cost();
      for (Place ahead = place; ahead.end() < endOfStretch; runs += ahead.cost()) {
        ahead.entryIs(ahead.end());
      }
      if (runs > mostRunsOfStretch) {
        const U32 first = static_cast<U32>(at), last = static_cast<U32>(endOfStretch - 1);
        pieceIs(section, {first, last, nullptr, imageOf(place, at, endOfStretch), 0});
        at = endOfStretch;
        continue;
      }
    }
    // Stops at the stretch in which the run ends, which may have an image.
    const U64 endOfRun = std::min(place.end(), most);
    const U64 end = endOfRun <= endOfStretch ? endOfRun : endOfRun / stretch_ * stretch_;
    if (place.isCompared()) pieceIs(section, place, static_cast<U32>(at), end);
    at = end;
  }
  section.end = at;
}

void Policy::Comparison::pieceIs(Section& section, const Place& place, U32 first, U64 end) {
  const Mask* mask = place.mask();
  const MaskedCompare* masked =
      mask == nullptr ? nullptr
                      : &masks_.try_emplace(mask->bits, std::span(mask->bits)).first->second;
  const U32 last = static_cast<U32>(end - 1);
  if (!section.pieces.empty()) {
    Piece& before = section.pieces.back();
    if (U64{before.last} + 1 == first && before.masked == masked && before.image == nullptr) {
      before.last = last;
      section.runs.back().bytes = bytesOf(before.first, last);
      return;
    }
  }
  pieceIs(section, {first, last, masked, nullptr, 0});
}

// Of a piece that reaches beyond the region they may wrap; it is not compared as a whole.
std::size_t Policy::Comparison::bytesOf(U32 first, U32 last) const {
  return Zint::sizeOf((U64{last} - first + 1) * entrySize_);
}

void Policy::Comparison::pieceIs(Section& section, Piece piece) {
  const auto isGrouped = [](const Piece& p) { return p.masked == nullptr && p.image == nullptr; };
  std::vector<Piece>& pieces = section.pieces;
  if (isGrouped(piece)) {
    if (pieces.empty() || !isGrouped(pieces.back())) section.groupEnds.push_back(pieces.size());
    piece.group = section.groupEnds.size() - 1;
    section.groupEnds.back() = pieces.size() + 1;
  }
  section.runs.push_back(
      {Zint::sizeOf(U64{piece.first} * entrySize_), bytesOf(piece.first, piece.last)});
  pieces.push_back(piece);
}

const U8* Policy::Comparison::imageOf(Place place, U64 first, U64 end) {
  Bytes image;
  image.reserve(static_cast<U32>(end - first) * entrySize_);
  for (; first < end; ++first) {
    place.entryIs(first);
    const Mask* mask = place.mask();
    if (mask == nullptr || !place.isCompared()) {
      image.insert(image.end(), entrySize_, place.isCompared() ? 0xff : 0);
    } else {
      for (const U8 bits : mask->bits) image.push_back(static_cast<U8>(~bits));
    }
  }
  return images_.insert(std::move(image)).first->data();
}

// --- Comparison ----------------------------------------------------------------------------------

U32 Policy::Comparison::differentEntry(const U8* shadow, const U8* hardware, U32 first, U32 end) {
  for (U32 prepared = first; prepared < end;) prepared = doPrepare(prepared, end);
  while (first < end) {
    const Section& section = sectionOf(first)->second;
    const U32 endHere = atMost(section.end, end);
    const U32 found = differentEntry(section, shadow, hardware, first, endHere);
    if (found < endHere) return found;
    first = endHere;
  }
  return end;
}

U32 Policy::Comparison::differentEntry(const Section& section, const U8* shadow, const U8* hardware,
                                       U32 first, U32 end) const {
  const std::vector<Piece>& pieces = section.pieces;
  // The first piece that does not end before the entry.
  const auto pieceOf = [&pieces](U32 entry) {
    const auto piece = std::lower_bound(pieces.begin(), pieces.end(), entry,
                                        [](const Piece& p, U32 e) { return p.last < e; });
    return static_cast<std::size_t>(piece - pieces.begin());
  };
  const std::size_t endOfWhole = pieceOf(end - 1);  // pieces before it do not reach beyond `end`
  std::size_t i = pieceOf(first);
  while (i < pieces.size() && pieces[i].first < end) {
    const Piece& piece = pieces[i];
    const bool isPlain = piece.masked == nullptr && piece.image == nullptr;
    if (isPlain && i < endOfWhole && first <= piece.first) {
      const std::size_t count = std::min(section.groupEnds[piece.group], endOfWhole) - i;
      const std::size_t equal = differentRun(shadow, hardware, std::span(&section.runs[i], count));
      i += equal;
      if (equal == count) continue;
    }
    const Piece& differing = pieces[i];
    const U32 from = std::max(first, differing.first);
    const U32 last = std::min(end - 1, differing.last);
    const U8* a = shadow + from * entrySize_;
    const U8* b = hardware + from * entrySize_;
    const std::size_t bytes = (std::size_t{last - from} + 1) * entrySize_;
    std::size_t found;
    if (differing.image != nullptr) {
      found = differentByte(a, b, differing.image + (from - differing.first) * entrySize_, bytes);
    } else if (differing.masked != nullptr) {
      found = differing.masked->differentByte(a, b, bytes);
    } else {
      found = differentByte(a, b, bytes);
    }
    if (found != bytes) return from + static_cast<U32>(U64{found / entrySize_});
    ++i;
  }
  return end;
}

U32 Policy::differentEntry(const U8* shadow, const U8* hardware, U32 first, U32 end) const {
  const std::size_t entrySize = chipMemory_->entrySize();
  if (entrySize == 0 || first >= end) return end;
  if (isPlain()) {
    const std::size_t bytes = std::size_t{end - first} * entrySize;
    const std::size_t found =
        differentByte(shadow + first * entrySize, hardware + first * entrySize, bytes);
    return found == bytes ? end : first + static_cast<U32>(U64{found / entrySize});
  }
  try {
    if (comparison_ == nullptr) comparison_ = std::make_unique<Comparison>(*this);
    return comparison_->differentEntry(shadow, hardware, first, end);
  } catch (const std::bad_alloc&) {  // prepared later, then
    for (U32 e = first; e < end; ++e) {
      if (!isCompared(rule(e))) continue;
      if (!equals(e, shadow + e * entrySize, hardware + e * entrySize)) return e;
    }
    return end;
  }
}

U32 Policy::doPrepare(U32 first, U32 end) const {
  if (chipMemory_->entrySize() == 0 || isPlain()) return std::max(first, end);
  try {
    if (comparison_ == nullptr) comparison_ = std::make_unique<Comparison>(*this);
    return comparison_->doPrepare(first, end);
  } catch (const std::bad_alloc&) {  // differentEntry() does without
    return std::max(first, end);
  }
}

U64 Policy::entriesPrepared() const {
  return comparison_ == nullptr ? 0 : comparison_->entriesPrepared();
}

}  // namespace Driver
