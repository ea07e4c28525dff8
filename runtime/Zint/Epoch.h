// A count of the changes of something. Code that calls out takes a mark first and sees afterwards
// whether another change was made re-entrantly, which then wins:
//
//   const Epoch::Mark mark = changes_.advance();  // this change
//   notify(Id::state);                            // a notifiee may make another one
//   if (mark.isSuperseded()) return;
//
// The count wraps: marks are compared for equality alone, and none is kept for 2^32 changes.
#pragma once

#include <Zint/Types.h>

namespace Zint {

class Epoch {
 public:
  // The count at one moment. REQUIRES: the epoch outlives the mark.
  class Mark {
   public:
    explicit Mark(const Epoch& epoch) : epoch_(epoch), count_(epoch.count_) {}
    // Whether the epoch has advanced since the mark was taken.
    bool isSuperseded() const { return epoch_.count_ != count_; }

   private:
    const Epoch& epoch_;
    U32 count_;
  };

  // Records a change. The mark returned is superseded by the next one.
  Mark advance() {
    ++count_;
    return Mark(*this);
  }

 private:
  U32 count_ = 0;
};

}  // namespace Zint
