// The notifiees of one object, each at its place. Used by the runtime alone.
//
// Invariants:
// 1. While walks are under way, places do not move: a notifiee that leaves becomes a hole, and a
//    new one is appended, where no walk under way sees it. The end of the last walk closes the
//    holes.
// 2. A notifiee that is switched off keeps its place. What is switched during a walk is recorded,
//    so that the walk knows who was switched on when it began.
#pragma once

#include <Zint/Notifiee.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace Zint {

class NotifieeList : public NotifieeListHead {
 public:
  std::size_t size() const { return members_.size(); }
  // Null for a hole.
  NotifieeConst* operator[](std::size_t place) const { return members_[place]; }
  // Those that are registered: one that is switched off is not.
  U32 registered() const { return registered_; }

  // Appends a registered notifiee.
  void add(NotifieeConst* notifiee) {
    members_.push_back(notifiee);
    ++registered_;
    interest |= notifiee->interest();
  }

  void remove(NotifieeConst* notifiee, bool isRegistered) {
    if (isRegistered) --registered_;
    const auto place = std::find(members_.begin(), members_.end(), notifiee);
    if (walks_ == 0) {
      members_.erase(place);
    } else {
      *place = nullptr;
      hasHoles_ = true;
    }
    updateInterest();
  }

  // A member was switched on or off.
  void changeRegistered(bool isRegistered) {
    isRegistered ? ++registered_ : --registered_;
    updateInterest();
  }

  // A member's interest has changed.
  void updateInterest() {
    interest = 0;
    for (const NotifieeConst* member : members_) {
      if (member != nullptr && member->isRegisteredNotifiee()) interest |= member->interest();
      if (interest == everyAttribute) return;
    }
  }

  // Call it before a notifiee that has a place is switched on or off. Without memory nothing is
  // recorded: then its state at its turn decides whether it is notified.
  void recordSwitch(const NotifieeConst* notifiee, bool wasActive) noexcept {
    if (walks_ == 0) return;
    const auto place = static_cast<std::size_t>(
        std::find(members_.begin(), members_.end(), notifiee) - members_.begin());
    if (findSwitch(place, walkStart_, switches_.size()) != nullptr) return;
    try {
      switches_.push_back({place, wasActive});
      hasSwitches_ = true;
    } catch (const std::bad_alloc&) {
    }
  }

  // A walk's start is a position in the record of switches. Both are 0 while nothing is recorded,
  // which beginWalk() leaves as they are. Walks end in the opposite order.
  void beginWalk(std::size_t& start, std::size_t& outerStart) {
    ++walks_;
    if (!hasSwitches_) [[likely]]
      return;
    start = switches_.size();
    outerStart = std::exchange(walkStart_, start);
  }

  void endWalk(std::size_t outerStart) {
    --walks_;
    if (hasHoles_ || hasSwitches_) [[unlikely]]
      tidy(outerStart);
  }

  // Whether the notifiee at that place was switched on when the walk with this start began. True
  // for one that has not been switched since: its present state is that of the beginning.
  bool wasActive(std::size_t place, std::size_t start) const {
    if (!hasSwitches_) [[likely]]
      return true;
    const Switch* first = findSwitch(place, start, switches_.size());
    return first == nullptr || first->wasActive;
  }

 private:
  struct Switch {
    std::size_t place;
    bool wasActive;  // before it
  };

  // The first one of that place in [begin, end); null when there is none.
  const Switch* findSwitch(std::size_t place, std::size_t begin, std::size_t end) const {
    for (; begin < end; ++begin) {
      if (switches_[begin].place == place) return &switches_[begin];
    }
    return nullptr;
  }

  void tidy(std::size_t outerStart) {
    const std::size_t start = std::exchange(walkStart_, outerStart);
    if (walks_ != 0) return mergeSwitches(start);
    switches_.clear();
    hasSwitches_ = false;
    if (std::exchange(hasHoles_, false)) std::erase(members_, nullptr);
  }

  // Only the first switch of a place counts for the outer walk: drops the later ones, so
  // that the record is bounded by the number of places.
  void mergeSwitches(std::size_t start) {
    std::size_t kept = start;
    for (std::size_t i = start; i < switches_.size(); ++i) {
      if (findSwitch(switches_[i].place, walkStart_, start) == nullptr)
        switches_[kept++] = switches_[i];
    }
    switches_.resize(kept);
  }

  std::vector<NotifieeConst*> members_;
  std::vector<Switch> switches_;  // since the outermost walk began, in their order
  std::size_t walkStart_ = 0;     // of the innermost walk
  U32 walks_ = 0;
  U32 registered_ = 0;
  bool hasHoles_ = false;
  bool hasSwitches_ = false;
};

inline NotifieeList* PtrInterface::notifieeList() const {
  return static_cast<NotifieeList*>(notifiees_);
}

}  // namespace Zint
