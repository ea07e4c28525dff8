#include <Driver/PolicyComparison.h>

#include <algorithm>
#include <bit>
#include <new>

namespace Driver {
namespace {

// The bytes of a stretch with an image, if its entries are not larger.
constexpr std::size_t stretchBytes = 4096;
// A stretch with more runs gets an image: an image costs half of the comparison more, a run about
// ten nanoseconds.
constexpr U32 mostRunsOfStretch = 64;

bool masksEveryBit(const std::vector<U8>& mask) {
  return std::all_of(mask.begin(), mask.end(), [](U8 byte) { return byte == 0xff; });
}

}  // namespace

Policy::Comparison::Comparison(const Policy& policy)
    : entrySize_(policy.chipMemory()->entrySize()) {
  // A power of 2, so that regular patterns are the same in each stretch.
  const U64 stretch = std::bit_floor(std::max<std::size_t>(stretchBytes / entrySize_, 1));
  const auto endOfRun = [&policy](U64 entry) {
    const U32 at = static_cast<U32>(entry);
    return std::min(policy.rules_.endOf(at), policy.masks_.endOf(at));
  };
  for (U64 at = 0; at < Runs<Rule>::endOfAll;) {
    const U64 end = endOfRun(at);
    const U64 endOfStretch = (at / stretch + 1) * stretch;
    if (at % stretch == 0) {
      U32 runs = 0;
      for (U64 next = at; next < endOfStretch && runs <= mostRunsOfStretch; ++runs) {
        next = endOfRun(next);
      }
      if (runs > mostRunsOfStretch) {
        const U32 first = static_cast<U32>(at), last = static_cast<U32>(endOfStretch - 1);
        pieces_.push_back({first, last, nullptr, imageOf(policy, first, last - first + 1)});
        at = endOfStretch;
        continue;
      }
    }
    // Stops at the stretch in which the run ends, which may have an image.
    const U64 stop = end <= endOfStretch ? end : end / stretch * stretch;
    pieceIs(policy, static_cast<U32>(at), stop);
    at = stop;
  }
}

void Policy::Comparison::pieceIs(const Policy& policy, U32 first, U64 end) {
  if (!isCompared(policy.rule(first))) return;
  const Mask* mask = policy.maskOf(first);
  if (mask != nullptr && masksEveryBit(mask->bits)) return;
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

const U8* Policy::Comparison::imageOf(const Policy& policy, U32 first, U32 entries) {
  Bytes image(entries * entrySize_);
  auto to = image.begin();
  for (U32 i = 0; i < entries; ++i, to += static_cast<std::ptrdiff_t>(entrySize_)) {
    if (!isCompared(policy.rule(first + i))) continue;
    const Mask* mask = policy.maskOf(first + i);
    if (mask == nullptr) {
      std::fill_n(to, entrySize_, U8{0xff});
    } else {
      std::transform(mask->bits.begin(), mask->bits.end(), to,
                     [](U8 bits) { return static_cast<U8>(~bits); });
    }
  }
  return images_.insert(std::move(image)).first->data();
}

U32 Policy::Comparison::differentEntry(const U8* shadow, const U8* hardware, U32 first,
                                       U32 end) const {
  auto piece = std::lower_bound(pieces_.begin(), pieces_.end(), first,
                                [](const Piece& p, U32 entry) { return p.last < entry; });
  for (; piece != pieces_.end() && piece->first < end; ++piece) {
    const U32 from = std::max(first, piece->first);
    const U32 last = std::min(end - 1, piece->last);
    const U8* a = shadow + from * entrySize_;
    const U8* b = hardware + from * entrySize_;
    const std::size_t bytes = (std::size_t{last - from} + 1) * entrySize_;
    std::size_t found;
    if (piece->image != nullptr) {
      found = differentByte(a, b, piece->image + (from - piece->first) * entrySize_, bytes);
    } else if (piece->masked != nullptr) {
      found = piece->masked->differentByte(a, b, bytes);
    } else {
      found = differentByte(a, b, bytes);
    }
    if (found != bytes) return from + static_cast<U32>(U64{found / entrySize_});
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
