// Wake-ups in the order in which they are due: by time, and by order of arming where times are
// equal.
//
// Invariants:
// 1. A wake-up is in one queue at most and knows it. One that is destroyed leaves its queue.
// 2. add() allocates nothing once reserve() has made room for it; remove() never allocates.
//
// A binary heap. Adding and removing take logarithmic time, the earliest is found at once.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Types.h>
#include <limits>
#include <utility>
#include <vector>

namespace Zint {

constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

class NotifieeConst;
class WakeQueue;

// One wake-up of a notifiee, which owns it.
class WakeUp {
 public:
  explicit WakeUp(NotifieeConst* notifiee) : notifiee_(notifiee) {}
  inline ~WakeUp();
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;

  NotifieeConst* notifiee() const { return notifiee_; }
  bool isQueued() const { return queue_ != nullptr; }
  // Takes it out of the queue that holds it, if any.
  inline void leaveQueue();

  // The time and the number of its arming, as they were given to the queue.
  Seconds due() const { return due_; }
  U64 order() const { return order_; }

 private:
  friend class WakeQueue;

  NotifieeConst* const notifiee_;
  WakeQueue* queue_ = nullptr;
  std::size_t place_ = 0;  // in the queue's heap
  Seconds due_ = never;
  U64 order_ = 0;
};

class WakeQueue {
 public:
  WakeQueue() = default;
  ~WakeQueue() { clear(); }
  WakeQueue(const WakeQueue&) = delete;
  WakeQueue& operator=(const WakeQueue&) = delete;

  bool isEmpty() const { return heap_.empty(); }
  std::size_t size() const { return heap_.size(); }
  // Null when the queue is empty.
  WakeUp* earliest() const { return heap_.empty() ? nullptr : heap_.front(); }
  // All of them, the earliest first, the others in no particular order.
  const std::vector<WakeUp*>& wakeUps() const { return heap_; }

  // Makes room for `size` wake-ups in all. May throw std::bad_alloc.
  void reserve(std::size_t size) {
    if (size > heap_.capacity()) heap_.reserve(size + heap_.size() + 8);
  }

  // REQUIRES: a wake-up that is in no queue, and an `order` that no other one has.
  void add(WakeUp& wakeUp, Seconds due, U64 order) {
    ZINT_ASSERT("Zint/WakeQueue", !wakeUp.isQueued());
    heap_.push_back(&wakeUp);
    wakeUp.queue_ = this;
    wakeUp.due_ = due;
    wakeUp.order_ = order;
    rise(heap_.size() - 1, &wakeUp);
  }

  // REQUIRES: a wake-up of this queue.
  void remove(WakeUp& wakeUp) {
    ZINT_ASSERT("Zint/WakeQueue", wakeUp.queue_ == this);
    WakeUp* last = heap_.back();
    heap_.pop_back();
    wakeUp.queue_ = nullptr;
    if (last == &wakeUp) return;
    // Only one of the two moves it.
    rise(wakeUp.place_, last);
    sink(last->place_, last);
  }

  // Moves one over from another queue; its time and its order stay.
  void take(WakeUp& wakeUp) {
    wakeUp.leaveQueue();
    add(wakeUp, wakeUp.due(), wakeUp.order());
  }

  void clear() {
    for (WakeUp* wakeUp : heap_) wakeUp->queue_ = nullptr;
    heap_.clear();
  }

 private:
  static bool isBefore(const WakeUp* left, const WakeUp* right) {
    if (left->due_ != right->due_) return left->due_ < right->due_;
    return left->order_ < right->order_;
  }

  void put(std::size_t place, WakeUp* wakeUp) {
    heap_[place] = wakeUp;
    wakeUp->place_ = place;
  }

  // Puts `wakeUp` at `place`, or further to the front while it is before its parent.
  void rise(std::size_t place, WakeUp* wakeUp) {
    for (; place > 0; place = (place - 1) / 2) {
      WakeUp* parent = heap_[(place - 1) / 2];
      if (!isBefore(wakeUp, parent)) break;
      put(place, parent);
    }
    put(place, wakeUp);
  }

  // Puts `wakeUp` at `place`, or further to the back while one of its children is before it.
  void sink(std::size_t place, WakeUp* wakeUp) {
    for (std::size_t child; (child = 2 * place + 1) < heap_.size(); place = child) {
      if (child + 1 < heap_.size() && isBefore(heap_[child + 1], heap_[child])) ++child;
      if (!isBefore(heap_[child], wakeUp)) break;
      put(place, heap_[child]);
    }
    put(place, wakeUp);
  }

  std::vector<WakeUp*> heap_;
};

void WakeUp::leaveQueue() {
  if (queue_ != nullptr) queue_->remove(*this);
}

WakeUp::~WakeUp() { leaveQueue(); }

}  // namespace Zint
