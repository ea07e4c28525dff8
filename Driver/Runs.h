// A value for every entry number, kept as runs of equal values:
//
//   Runs<Rule> rules;                       // Rule{} everywhere
//   rules.roomIs();                         // may lack memory; nothing has changed then
//   rules.runIs(16, 32, Rule::detectOnly);  // entries 16 to 31
//
// Invariants:
// 1. A sorted vector of the places where the value changes: memory is bounded by the number of
//    runs, and a look-up is a binary search.
// 2. Neighbours differ, and so does the first one from the default value T{}: equal runs are one.
#pragma once

#include <Zint/Types.h>
#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace Driver {

template <class T>
class Runs {
 public:
  struct Run {
    U32 first;
    T value;  // up to the next run
  };

  // Goes through the entries in ascending order, without a search.
  class Cursor {
   public:
    explicit Cursor(const Runs& runs, U64 entry = 0)
        : runs_(runs),
          next_(static_cast<std::size_t>(
              std::upper_bound(runs.runs_.begin(), runs.runs_.end(), entry,
                               [](U64 at, const Run& run) { return at < run.first; }) -
              runs.runs_.begin())) {}
    // REQUIRES: no entry before the last one.
    void entryIs(U64 entry) {
      while (next_ < runs_.runs_.size() && runs_.runs_[next_].first <= entry) ++next_;
    }
    const T& value() const { return next_ == 0 ? default_ : runs_.runs_[next_ - 1].value; }
    U64 end() const { return next_ == runs_.runs_.size() ? endOfAll : runs_.runs_[next_].first; }

   private:
    const Runs& runs_;
    std::size_t next_;  // the first run that begins behind the entry
  };

  // One past the last entry number.
  static constexpr U64 endOfAll = U64{1} << 32;

  // Every entry has the default value.
  bool isEmpty() const { return runs_.empty(); }
  const T& at(U32 entry) const {
    const auto next = after(entry);
    return next == runs_.begin() ? default_ : std::prev(next)->value;
  }
  // The ends of the run that holds the entry.
  U32 firstOf(U32 entry) const {
    const auto next = after(entry);
    return next == runs_.begin() ? 0 : std::prev(next)->first;
  }
  U64 endOf(U32 entry) const {
    const auto next = after(entry);
    return next == runs_.end() ? endOfAll : next->first;
  }
  // Whether all of [first, end) have the value.
  bool holds(U32 first, U64 end, const T& value) const {
    return endOf(first) >= end && at(first) == value;
  }
  // In ascending order; entries before the first have the default value.
  const std::vector<Run>& runs() const { return runs_; }

  // Makes room for one more run anywhere.
  void roomIs() {
    if (runs_.capacity() - runs_.size() < 2) runs_.reserve(2 * runs_.size() + 2);
  }
  // REQUIRES: room, first < end <= endOfAll.
  void runIs(U32 first, U64 end, T value) noexcept {
    const T before = first == 0 ? T{} : at(first - 1);
    const T behind = end == endOfAll ? value : at(static_cast<U32>(end));
    const auto isBefore = [](const Run& run, U64 entry) { return run.first < entry; };
    auto lower = std::lower_bound(runs_.begin(), runs_.end(), U64{first}, isBefore);
    auto upper = std::lower_bound(lower, runs_.end(), end, isBefore);
    if (upper != runs_.end() && upper->first == end) ++upper;
    const bool startsHere = value != before;
    const bool changesBehind = end != endOfAll && value != behind;
    // What is replaced gives way to at most two.
    lower = runs_.erase(lower, upper);
    if (changesBehind) lower = runs_.insert(lower, Run{static_cast<U32>(end), behind});
    if (startsHere) runs_.insert(lower, Run{first, std::move(value)});
  }
  void clear() { runs_.clear(); }

 private:
  auto after(U32 entry) const {
    return std::upper_bound(runs_.begin(), runs_.end(), entry,
                            [](U32 at, const Run& run) { return at < run.first; });
  }

  static inline const T default_{};

  std::vector<Run> runs_;
};

}  // namespace Driver
