// The bytes of a record, and the lock of what threads share.
#pragma once

#include <Zint/Types.h>
#include <atomic>

namespace Mirl {

// A record: its size and its descriptor's id, the time, then the arguments. An argument: a tag (its
// size for a number, textTag for a text, followed by the text's length) and the bytes.
struct Header {
  U32 size;
  U32 id;
  Zint::Seconds time;
};
constexpr U8 textTag = 0;
constexpr U8 leftOutTag = 0xfd;  // after the arguments: more were given
constexpr U8 cutTextTag = 0xfe;  // a text that is the beginning of the one that was given
constexpr U8 endTag = 0xff;      // fills the last unit

// The threads that write records; a key is never used twice.
struct Threads {
  static bool isAlive(U32 key);
  static U32 ownKey();  // 0 for a thread that has no part
};

class SpinHold {
 public:
  explicit SpinHold(std::atomic_flag& flag) : flag_(flag) {
    while (flag_.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~SpinHold() { flag_.clear(std::memory_order_release); }
  SpinHold(const SpinHold&) = delete;
  SpinHold& operator=(const SpinHold&) = delete;

 private:
  std::atomic_flag& flag_;
};

}  // namespace Mirl
