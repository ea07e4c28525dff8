// What the two processes share.
#pragma once

#include <Zint/Types.h>

#include <array>
#include <atomic>

namespace Demo {

// A soft error: the chip process changed one register.
struct Flip {
  U32 address;
  U32 before;
  U32 after;
  U32 sequence;  // 0 for the first; wraps
};

// The flips in their order. One process appends, one takes; neither ever waits for the other.
class FlipLog {
 public:
  static constexpr U32 capacity = 65536;  // a power of 2: the positions wrap

  // For the appending process. Ask before the flip is made: one that cannot be logged must not
  // happen.
  bool isFull() const { return appended() - taken_.load(std::memory_order_acquire) == capacity; }
  U32 appended() const { return appended_.load(std::memory_order_relaxed); }
  // REQUIRES: not full.
  void append(const Flip& flip) {
    const U32 position = appended();
    flips_[position % capacity] = flip;
    appended_.store(position + 1, std::memory_order_release);
  }

  // For the taking process; false when there is none.
  bool take(Flip& flip) {
    const U32 position = taken_.load(std::memory_order_relaxed);
    if (position == appended_.load(std::memory_order_acquire)) return false;
    flip = flips_[position % capacity];
    taken_.store(position + 1, std::memory_order_release);
    return true;
  }

 private:
  std::atomic<U32> appended_{0};
  std::atomic<U32> taken_{0};
  std::array<Flip, capacity> flips_{};
};

// Zero bytes are its initial state.
struct ControlBlock {
  // Set before the chip process starts.
  S32 driver = 0;  // process id
  U32 seed = 0;
  // Set while both run.
  std::atomic<U32> isReady{0};
  std::atomic<U32> isStopped{0};
  std::atomic<U32> flipsPerSecond{0};
  FlipLog flips;
};

static_assert(std::atomic<U32>::is_always_lock_free,
              "processes cannot share a lock of the library");

}  // namespace Demo
