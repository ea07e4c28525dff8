// Work from other threads: a handle with which any thread hands functions to an activity's thread.
//
//   Zint::Poster poster = activity->poster();  // on the activity's thread
//   std::thread sender([poster] {
//     if (!poster.post([] { ... })) ...        // full, or the activity has ended
//   });
//
// Handles may be copied and moved between threads, and each of them may be used by one thread while
// the copies are used by others. It is the only part of an activity that other threads touch. What
// a function refers to is touched by the activity's thread alone: capture no counted pointer on
// another thread, for its count is not atomic.
//
// Invariants:
// 1. post() takes no lock and never waits. A sender that the system holds up in the middle of it
//    delays what was posted after it, its own and that of others; nothing is lost or changes
//    places.
// 2. Functions of one sender run in the order in which they were posted. Those of several run in
//    the order in which their places were taken.
// 3. Each function is run once or refused. Only the end of the activity destroys one that was
//    taken; it does so uncalled, on the activity's thread.
#pragma once

#include <Zint/Types.h>
#include <functional>
#include <memory>

namespace Zint {

class ActivityConfig;
class PostQueue;

class UMBRA_API Poster {
 public:
  // At most as many run in one turn; the others in the turns after it.
  static constexpr U32 functionsPerTurn = 64;
  static constexpr U32 defaultCapacity = 1'024;
  static constexpr U32 maxCapacity = 65'536;

  // Of no activity: refuses everything.
  Poster() = default;

  // True: `function` was taken and will run in a later turn of the activity, unless the activity
  // ends before that. False: no room, or the activity has ended; then `function` is as it was, and
  // still the caller's.
  // REQUIRES: a function that is not empty (range exception).
  bool post(std::function<void()>&& function) const;
  // False once the activity has ended: everything is refused from then on.
  bool isOpen() const;

 private:
  friend class ActivityConfig;
  explicit Poster(std::shared_ptr<PostQueue> queue) : queue_(std::move(queue)) {}

  std::shared_ptr<PostQueue> queue_;
};

}  // namespace Zint
