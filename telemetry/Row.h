// A row under a sequence lock, in memory that other processes read: its words, and how they are
// written and read. The protocol is that of docs/formats.md, and the sequence lock that of H.
// Boehm, "Can seqlocks get along with programming language memory models?" (2012).
//
//   RowWriter writer(words);              // while it lives, readers do not take the row
//   writer.number(2, U64{17});
//
//   std::vector<U32> copy(rowWords);
//   if (readRow(words, copy)) ...         // false: torn
//
// One thread of one process writes a row; any number read it.
#pragma once

#include <Zint/Types.h>
#include <Zint/WakeQueue.h>
#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>

// g++ says that the thread sanitizer knows nothing of fences. All accesses are atomic, so it has
// nothing to report wrongly.
#if defined(__SANITIZE_THREAD__) && defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#define TELEMETRY_POPS_DIAGNOSTIC
#endif

namespace Telemetry {

static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(std::atomic<U32>) == 4 && std::atomic<U32>::is_always_lock_free);

using Word = std::atomic<U32>;
constexpr U32 rowAlignment = 64;  // bytes
// How often a reader looks at one row before it says that it is torn.
constexpr U32 rowTries = 16;

// Times as the files hold them.
constexpr S64 neverTime = std::numeric_limits<S64>::max();
inline S64 timeOfSeconds(Zint::Seconds seconds) {
  if (std::isnan(seconds)) return 0;
  if (seconds >= 9.2e9) return neverTime;
  if (seconds <= -9.2e9) return -neverTime - 1;
  return static_cast<S64>(std::floor(seconds * 1e9));
}
inline Zint::Seconds secondsOfTime(S64 time) {
  if (time == neverTime) return Zint::never;
  if (time == -neverTime - 1) return -Zint::never;
  return static_cast<Zint::Seconds>(time) * 1e-9;
}

// Offsets are in words from the beginning of the row; word 0 is the sequence number.
class RowWriter {
 public:
  // A row that a dead writer left odd stays odd, until it is whole.
  explicit RowWriter(Word* row) : row_(row), sequence_(row[0].load(std::memory_order_relaxed) | 1) {
    row_[0].store(sequence_, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
  }
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;
  ~RowWriter() { row_[0].store(sequence_ + 1, std::memory_order_release); }

  void word(U32 at, U32 value) { row_[at].store(value, std::memory_order_relaxed); }
  void number(U32 at, U64 value) {
    word(at, static_cast<U32>(value));
    word(at + 1, static_cast<U32>(value >> 32));
  }
  void time(U32 at, S64 nanoseconds) { number(at, static_cast<U64>(nanoseconds)); }
  // A field of `words` words, filled up with zeros; the last byte is 1 where the text was cut.
  void text(U32 at, U32 words, std::string_view text) {
    const std::size_t room = words * sizeof(U32) - 1;
    const std::size_t length = std::min(text.size(), room);
    for (U32 i = 0; i < words; ++i) {
      U32 value = 0;
      const std::size_t from = i * sizeof(U32);
      if (from < length)
        std::memcpy(&value, text.data() + from, std::min(length - from, sizeof value));
      if (i + 1 == words && text.size() > room) value |= U32{1} << 24;
      word(at + i, value);
    }
  }

 private:
  Word* row_;
  U32 sequence_;
};

// Copies a row, its sequence number included. False when it was never whole while it was looked at:
// `copy` then holds what was there last.
inline bool readRow(const Word* row, std::span<U32> copy) {
  for (U32 tries = 0; tries < rowTries; ++tries) {
    const U32 sequence = row[0].load(std::memory_order_acquire);
    copy[0] = sequence;
    for (std::size_t i = 1; i < copy.size(); ++i) copy[i] = row[i].load(std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_acquire);
    if ((sequence & 1) == 0 && row[0].load(std::memory_order_relaxed) == sequence) return true;
  }
  return false;
}

}  // namespace Telemetry

#ifdef TELEMETRY_POPS_DIAGNOSTIC
#pragma GCC diagnostic pop
#undef TELEMETRY_POPS_DIAGNOSTIC
#endif
