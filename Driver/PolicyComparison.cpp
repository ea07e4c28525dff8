#include <Driver/PolicyComparison.h>

#include <Zint/Sizes.h>
#include <algorithm>
#include <bit>
#include <new>

namespace Driver {
namespace {

// The bytes of a stretch with an image, if its entries are not larger.
constexpr std::size_t stretchBytes = 4096;
// A stretch whose runs cost more gets an image, which costs 0.1 to 0.6 of the comparison more. The
// unit is a run without a mask, compared or left out.
constexpr U32 mostRunsOfStretch = 32;
constexpr U32 costOfMaskedRun = 4;

bool masksEveryBit(const std::vector<U8>& mask) {
  return std::all_of(mask.begin(), mask.end(), [](U8 byte) { return byte == 0xff; });
}

}  // namespace

// The rule and the mask of an entry, which may only advance.
class Policy::Comparison::Place {
 public:
  explicit Place(const Policy& policy)
      : rules_(policy.rules_), masks_(policy.masks_), regionMask_(policy.mask_.value.get()) {
    entryIs(0);
  }
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

Policy::Comparison::Comparison(const Policy& policy)
    : entrySize_(policy.chipMemory()->entrySize()) {
  // A power of 2, so that regular patterns are the same in each stretch.
  const U64 stretch = std::bit_floor(std::max<std::size_t>(stretchBytes / entrySize_, 1));
  Place place(policy);
  for (U64 at = 0; at < Runs<Rule>::endOfAll; place.entryIs(at)) {
    const U64 endOfStretch = (at / stretch + 1) * stretch;
    if (at % stretch == 0 && place.end() < endOfStretch) {
      U32 runs = place.cost();
      for (Place ahead = place; ahead.end() < endOfStretch; runs += ahead.cost()) {
        ahead.entryIs(ahead.end());
      }
      if (runs > mostRunsOfStretch) {
        const U32 first = static_cast<U32>(at), last = static_cast<U32>(endOfStretch - 1);
        pieces_.push_back({first, last, nullptr, imageOf(place, at, endOfStretch)});
        at = endOfStretch;
        continue;
      }
    }
    // Stops at the stretch in which the run ends, which may have an image.
    const U64 end = place.end() <= endOfStretch ? place.end() : place.end() / stretch * stretch;
    if (place.isCompared()) pieceIs(place, static_cast<U32>(at), end);
    at = end;
  }
  runs_.reserve(pieces_.size());
  for (const Piece& piece : pieces_) {
    // One that reaches beyond the region may wrap; it is not compared as a whole.
    const U64 entries = U64{piece.last} - piece.first + 1;
    runs_.push_back(
        {Zint::sizeOf(U64{piece.first} * entrySize_), Zint::sizeOf(entries * entrySize_)});
  }
  unmasked_.resize(pieces_.size());
  std::size_t unmasked = 0;
  for (std::size_t i = pieces_.size(); i-- > 0;) {
    unmasked = pieces_[i].masked == nullptr && pieces_[i].image == nullptr ? unmasked + 1 : 0;
    unmasked_[i] = unmasked;
  }
}

void Policy::Comparison::pieceIs(const Place& place, U32 first, U64 end) {
  const Mask* mask = place.mask();
  const MaskedCompare* masked =
      mask == nullptr ? nullptr
                      : &masks_.try_emplace(mask->bits, std::span(mask->bits)).first->second;
  const U32 last = static_cast<U32>(end - 1);
  if (!pieces_.empty()) {
    Piece& before = pieces_.back();
    if (U64{before.last} + 1 == first && before.masked == masked && before.image == nullptr) {
      before.last = last;
      return;
    }
  }
  pieces_.push_back({first, last, masked, nullptr});
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

// The first piece that does not end before the entry.
std::size_t Policy::Comparison::pieceOf(U32 entry) const {
  const auto piece = std::lower_bound(pieces_.begin(), pieces_.end(), entry,
                                      [](const Piece& p, U32 e) { return p.last < e; });
  return static_cast<std::size_t>(piece - pieces_.begin());
}

U32 Policy::Comparison::differentEntry(const U8* shadow, const U8* hardware, U32 first,
                                       U32 end) const {
  const std::size_t endOfWhole = pieceOf(end - 1);  // pieces before it do not reach beyond `end`
  std::size_t i = pieceOf(first);
  while (i < pieces_.size() && pieces_[i].first < end) {
    if (i < endOfWhole && unmasked_[i] > 1 && first <= pieces_[i].first) {
      const std::size_t count = std::min(unmasked_[i], endOfWhole - i);
      const std::size_t equal = differentRun(shadow, hardware, std::span(&runs_[i], count));
      i += equal;
      if (equal == count) continue;
    }
    const Piece& piece = pieces_[i];
    const U32 from = std::max(first, piece.first);
    const U32 last = std::min(end - 1, piece.last);
    const U8* a = shadow + from * entrySize_;
    const U8* b = hardware + from * entrySize_;
    const std::size_t bytes = (std::size_t{last - from} + 1) * entrySize_;
    std::size_t found;
    if (piece.image != nullptr) {
      found = differentByte(a, b, piece.image + (from - piece.first) * entrySize_, bytes);
    } else if (piece.masked != nullptr) {
      found = piece.masked->differentByte(a, b, bytes);
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
  if (comparison_ == nullptr) {
    try {
      comparison_ = std::make_unique<Comparison>(*this);
    } catch (const std::bad_alloc&) {  // later, then
      for (U32 e = first; e < end; ++e) {
        if (!isCompared(rule(e))) continue;
        if (!equals(e, shadow + e * entrySize, hardware + e * entrySize)) return e;
      }
      return end;
    }
  }
  return comparison_->differentEntry(shadow, hardware, first, end);
}

}  // namespace Driver
