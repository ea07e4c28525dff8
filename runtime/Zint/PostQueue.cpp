#include <Zint/PostQueue.h>

#include <Zint/Exception.h>
#include <Zint/Trace.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <string>

// Every atomic access is sequentially consistent, for the sake of one pair: a sender publishes a
// cell and then reads `pending`; the taker clears `pending` and then reads the cell. Were both to
// read what was before, the function would wait for the next wake-up. Those of 64 bits are single
// instructions on every x86 processor of 32 bits that has SSE2.

namespace Zint {
namespace {

// Call it from a catch clause only.
[[gnu::cold, gnu::noinline]] void tracePostedException() noexcept {
  try {
    std::string what = "an exception of another kind";
    try {
      throw;  // cppcheck-suppress rethrowNoCurrentException
    } catch (const std::exception& exception) {
      what = exception.what();
    } catch (...) {
    }
    ZINT_TRACE(0, "exception in a posted function: " << what);
  } catch (...) {  // no memory for this line either
  }
}

}  // namespace

// --- The handle ---

bool Poster::post(std::function<void()>&& function) const {
  if (!function) throwRangeException("an empty function cannot be posted");
  return queue_ != nullptr && queue_->post(std::move(function));
}

bool Poster::isOpen() const { return queue_ != nullptr && queue_->isOpen(); }

// --- Senders ---

PostQueue::PostQueue(U32 capacity, int descriptor)
    : mask_(std::bit_ceil(std::max(capacity, 2u)) - 1),
      cells_(std::make_unique<Cell[]>(mask_ + 1)),
      descriptor_(descriptor) {
  for (U32 at = 0; at <= mask_; ++at) cell(at).position = at;
}

bool PostQueue::post(std::function<void()>&& function) {
  U64 tail = tail_;
  U64 at;
  for (;;) {
    if ((tail & closed) != 0) return false;
    at = tail / claim;
    const U64 found = cell(at).position;
    if (found < at) return false;  // full: what was there a round ago is there still
    if (found > at) {
      tail = tail_;  // another sender was faster
    } else if (tail_.compare_exchange_weak(tail, tail + claim)) {
      break;
    }
  }
  Cell& own = cell(at);
  own.function = std::move(function);
  if (!own.position.compare_exchange_strong(at, at + 1)) {
    function = std::move(own.function);  // the activity has ended meanwhile
    return false;
  }
  wake();
  return true;
}

void PostQueue::wake() {
  U32 state = waking_;
  do {
    if ((state & (pending | ended)) != 0) return;
  } while (!waking_.compare_exchange_weak(state, (state | pending) + waker));
  const itimerspec atOnce{{}, {0, 1}};
  timerfd_settime(descriptor_, TFD_TIMER_ABSTIME, &atOnce, nullptr);
  isTimerTaken_ = true;
  const U32 before = waking_.fetch_sub(waker);
  if ((before & ended) != 0 && before / waker == 1) close(descriptor_);
}

// --- The activity ---

bool PostQueue::takeTimer() { return isTimerTaken_ && isTimerTaken_.exchange(false); }

// While it lives, functions are run. Its end says whether some are left, also when the thread is
// cancelled in one.
class PostQueue::Run {
 public:
  explicit Run(PostQueue& queue) : queue_(queue) { queue_.waking_ &= ~pending; }
  ~Run() {
    if (queue_.isNextThere()) queue_.waking_ |= pending;
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

 private:
  PostQueue& queue_;
};

U32 PostQueue::run() {
  const Run run(*this);
  const U64 end = std::min(claimed(), head_ + Poster::functionsPerTurn);
  U32 count = 0;
  while (head_ < end && isNextThere()) {
    const std::function<void()> function = take();
    ++count;
    try {
      function();
    } catch (abi::__forced_unwind&) {  // cancels the thread; must not be stopped
      throw;
    } catch (...) {
      tracePostedException();
    }
  }
  return count;
}

// REQUIRES: isNextThere().
std::function<void()> PostQueue::take() {
  Cell& next = cell(head_);
  std::function<void()> function = std::move(next.function);
  next.function = nullptr;  // a function that was moved from may hold anything
  next.position = head_ + mask_ + 1;
  ++head_;
  return function;
}

void PostQueue::end() {
  const U64 end = tail_.fetch_or(closed) / claim;
  while (head_ < end) {
    U64 free = head_;
    if (cell(head_).position.compare_exchange_strong(free, abandoned)) {
      ++head_;  // claimed only: its sender takes the function back
    } else {
      take();
    }
  }
  if (waking_.fetch_or(ended) / waker == 0) close(descriptor_);
}

}  // namespace Zint
