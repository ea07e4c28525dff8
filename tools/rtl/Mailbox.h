// What the simulated chip and its users share: one order at a time, and what the chip has counted.
// The same in 32 and 64 bits, and with the chip in another width than its user.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <ctime>

namespace Rtl {

enum class Order : std::uint32_t { read, write, clocks, flip, probe };

struct Mailbox {
  static constexpr std::uint32_t words = 64 + 1024;  // the registers, and the table behind them

  // Whose turn it is: the user's (0), the chip's (1). A futex.
  std::atomic<std::uint32_t> turn;
  Order order;
  std::uint32_t address;  // in bytes
  std::uint32_t value;    // written or read, or a number of clocks
  alignas(8) std::uint64_t bits;

  // What a probe found.
  alignas(8) std::uint64_t table[1024];
  std::uint32_t registers[64];
  std::uint32_t totals[8];
  // Accesses of each word, by the chip's own count.
  std::uint32_t reads[words];
  std::uint32_t writes[words];
};
static_assert(sizeof(Mailbox) == 24 + 8 * 1024 + 4 * (64 + 8 + 2 * Mailbox::words));
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

// Gives the turn to the other one.
inline void doPass(Mailbox& mailbox, std::uint32_t turn) {
  mailbox.turn.store(turn, std::memory_order_release);
  syscall(SYS_futex, &mailbox.turn, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

// Waits for the turn, at most a second. True: it has come.
inline bool doWait(Mailbox& mailbox, std::uint32_t turn) {
  const std::uint32_t other = 1 - turn;
  const timespec second = {1, 0};
  if (mailbox.turn.load(std::memory_order_acquire) == other) {
    syscall(SYS_futex, &mailbox.turn, FUTEX_WAIT, other, &second, nullptr, 0);
  }
  return mailbox.turn.load(std::memory_order_acquire) == turn;
}

}  // namespace Rtl
