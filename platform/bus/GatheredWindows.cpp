#include <platform/bus/GatheredWindows.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace Platform {

void GatheredWindows::rangeIs(U32 begin, U32 end, U32 bytes, Zint::Seconds maxAge) {
  if (begin >= end || begin % width_ != 0 || end % width_ != 0 || bytes == 0 ||
      bytes % width_ != 0 || !(maxAge > 0)) {
    Zint::throwRangeException(
        Zint::format("windows of %u bytes from 0x%x to 0x%x, of registers of %u bytes", bytes,
                     begin, end, width_));
  }
  const auto next = ranges_.lower_bound(begin);
  if ((next != ranges_.end() && next->first < end) ||
      (next != ranges_.begin() && std::prev(next)->second.end > begin)) {
    Zint::throwRangeException(
        Zint::format("the range from 0x%x to 0x%x overlaps another one", begin, end));
  }
  // Longer than any program runs is as good as for ever.
  const double longest = 1e9;
  ranges_[begin] = {end, bytes,
                    std::chrono::duration_cast<Clock::duration>(
                        std::chrono::duration<double>(std::min(maxAge, longest)))};
}

const GatheredWindows::Range* GatheredWindows::rangeOf(U32 address) const {
  const auto above = ranges_.upper_bound(address);
  if (above == ranges_.begin()) return nullptr;
  const Range& range = std::prev(above)->second;
  return address < range.end ? &range : nullptr;
}

std::optional<GatheredWindows::Piece> GatheredWindows::pieceOf(const RegisterRun& run) const {
  const Range* range = rangeOf(run.address);
  if (range == nullptr) return std::nullopt;
  const U32 rangeBegin = std::prev(ranges_.upper_bound(run.address))->first;
  if ((run.address - rangeBegin) % width_ != 0) return std::nullopt;
  const U32 block = run.address / range->bytes * range->bytes;
  const U32 begin = std::max(block, rangeBegin);
  const U32 end = static_cast<U32>(std::min(U64{block} + range->bytes, U64{range->end}));
  const U32 count = std::min(run.count, (end - run.address) / width_);
  return Piece{{run.address, width_, count}, {begin, width_, (end - begin) / width_}};
}

bool GatheredWindows::take(const Piece& piece, U8* bytes, Clock::time_point now) {
  const auto place = windows_.find(piece.window.address);
  if (place == windows_.end()) return false;
  Window& window = place->second;
  const U32 first = (piece.wanted.address - piece.window.address) / width_;
  const auto begin = window.isTaken.begin() + static_cast<std::ptrdiff_t>(first);
  const auto end = begin + static_cast<std::ptrdiff_t>(piece.wanted.count);
  if (now - window.read > window.maxAge || std::find(begin, end, true) != end) return false;
  std::fill(begin, end, true);
  std::memcpy(bytes, window.bytes.data() + std::size_t{first} * width_,
              std::size_t{piece.wanted.count} * width_);
  return true;
}

void GatheredWindows::windowIs(const Piece& piece, std::vector<U8> bytes, Clock::time_point now) {
  ++changes_;
  std::vector<bool> isTaken(piece.window.count);
  const U32 first = (piece.wanted.address - piece.window.address) / width_;
  std::fill_n(isTaken.begin() + static_cast<std::ptrdiff_t>(first), piece.wanted.count, true);
  windows_[piece.window.address] = {std::move(bytes), std::move(isTaken), now,
                                    rangeOf(piece.window.address)->maxAge};
}

void GatheredWindows::dropAll() {
  ++changes_;
  windows_.clear();
}

void GatheredWindows::drop(const RegisterRun& run) {
  ++changes_;
  const U64 end = U64{run.address} + U64{run.width} * run.count;
  auto window = windows_.upper_bound(run.address);
  if (window != windows_.begin()) --window;
  while (window != windows_.end() && window->first < end) {
    const auto overlapping = window++;
    if (overlapping->first + overlapping->second.bytes.size() > run.address) {
      windows_.erase(overlapping);
    }
  }
}

}  // namespace Platform
