// The calls that a driver layer makes into code that is not its own: accesses, notifications,
// overridden operations, readings of the clock. They are numbered, and one of them acts.
#pragma once

#include <Zint/Types.h>

#include <functional>
#include <utility>

namespace CallOuts {

class Calls {
 public:
  // The call `number` (1, 2, ...) acts; 0: none does.
  void actionIs(U64 number, std::function<void()> action) {
    number_ = number;
    action_ = std::move(action);
  }
  // Counts a call. `place` says which; the text outlives this.
  void out(const char* place) {
    if (!isCounting || ++made_ != number_) return;
    place_ = place;
    const std::function<void()> action = std::exchange(action_, nullptr);
    if (action) action();
  }

  U64 made() const { return made_; }
  bool hasActed() const { return *place_ != '\0'; }
  const char* place() const { return place_; }  // of the call that acted; "" before it

  bool isCounting = true;
  bool countsClock = false;  // readings of the clock as well

 private:
  U64 made_ = 0;
  U64 number_ = 0;
  const char* place_ = "";
  std::function<void()> action_;
};

}  // namespace CallOuts
