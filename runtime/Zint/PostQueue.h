// What an activity and its posters share: the functions that wait for the activity's thread, and
// what wakes it.
//
// A ring of cells, for any number of senders and one taker. A sender claims the position at the
// tail, moves its function into that position's cell and then publishes the cell. The taker goes
// from the head to the first cell that is not published. A cell's `position` is
//   p             free, or claimed and not yet published, for position p
//   p + 1         published: the function of position p is there
//   p + capacity  the function of position p was taken: free for the next round
// Positions have 64 bits and do not wrap.
//
// Waking: `pending` in `waking_` means that the taker has something to look for. It is set after a
// cell was published and cleared before the cells are read, so nothing published is overlooked.
// Whoever sets it makes the descriptor readable. The activity may set the same timer for a later
// time just then: it looks at isPending() again behind that.
#pragma once

#include <Zint/Poster.h>
#include <atomic>
#include <memory>

namespace Zint {

class PostQueue {
 public:
  // `descriptor` is a timer of the system's, which end() closes. `capacity` is rounded up to a
  // power of two, at least 2.
  PostQueue(U32 capacity, int descriptor);
  PostQueue(const PostQueue&) = delete;
  PostQueue& operator=(const PostQueue&) = delete;

  // --- For any thread ---
  bool post(std::function<void()>&& function);
  bool isOpen() const { return (tail_ & closed) == 0; }

  // --- For the activity's thread ---
  bool isPending() const { return (waking_ & pending) != 0; }
  // Whether a sender has set the timer since the last call.
  bool takeTimer();
  // Positions claimed, and functions taken, since the beginning.
  U64 claimed() const { return tail_ / claim; }
  U64 taken() const { return head_; }
  // Runs what was posted before the call, up to `functionsPerTurn`, and returns how many that were.
  // What a function throws is traced.
  U32 run();
  // Refuses what is posted from now on, destroys what is left and closes the descriptor. A sender
  // that is just setting the timer closes it instead.
  void end();

 private:
  class Run;

  struct Cell {
    std::atomic<U64> position;
    std::function<void()> function;
  };

  // Of tail_.
  static constexpr U64 closed = 1;  // to senders
  static constexpr U64 claim = 2;   // for each position
  // Of waking_.
  static constexpr U32 pending = 1;
  static constexpr U32 ended = 2;
  static constexpr U32 waker = 4;  // for each sender that is setting the timer
  // Of a claimed cell whose sender has to take its function back.
  static constexpr U64 abandoned = ~U64{0};

  Cell& cell(U64 at) { return cells_.get()[at & mask_]; }
  // Whether the function at the head is there.
  bool isNextThere() { return cell(head_).position == head_ + 1; }
  std::function<void()> take();
  void wake();

  const U32 mask_;
  const std::unique_ptr<Cell[]> cells_;
  const int descriptor_;
  U64 head_ = 0;  // the activity's thread alone
  // A cache line for what senders change.
  alignas(64) std::atomic<U64> tail_{0};
  std::atomic<U32> waking_{0};
  std::atomic<bool> isTimerTaken_{false};
};

}  // namespace Zint
