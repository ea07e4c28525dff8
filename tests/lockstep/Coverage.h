// Which situations the runs of this program have met: for each operation, the mode of the region
// that it names, the shadow's state and the phase of the audit's pass before it. An operation that
// names no region counts for each mode among the registered regions.
#pragma once

#include <array>
#include <ostream>

#include "lockstep/Operation.h"

namespace Lockstep {

enum class Phase : U8 {
  none,      // no pass
  reading,   // begun, nothing read yet
  between,   // a slice has been read, another is to come
  compared,  // the compare was the last thing of the request; nothing was commanded since
};
constexpr U32 phases = 4;
constexpr U32 modes = 3;
constexpr U32 states = 4;

// The shadow's states by their numbers, as a cell and a step have them.
namespace States {
constexpr U32 unconfigured = 0;
constexpr U32 configured = 1;
constexpr U32 idle = 2;
constexpr U32 auditing = 3;
}  // namespace States

struct Cell {
  Operation operation;
  U32 mode;
  U32 state;
  Phase phase;
};

class Coverage {
 public:
  void count(const Cell& cell) { ++counts_[place(cell)]; }
  U32 counted(const Cell& cell) const { return counts_[place(cell)]; }
  // Null, or why no run can reach the cell.
  static const char* excluded(const Cell& cell);

  void countStep() { ++steps_; }
  U64 steps() const { return steps_; }
  U32 minimum() const;
  U32 cells() const;  // that can be reached
  void print(std::ostream& out) const;

 private:
  static std::size_t place(const Cell& cell) {
    return ((static_cast<std::size_t>(cell.operation) * modes + cell.mode) * states + cell.state) *
               phases +
           static_cast<std::size_t>(cell.phase);
  }

  std::array<U32, operations * modes * states * phases> counts_{};
  U64 steps_ = 0;
};

// Calls `visit` for every cell, excluded ones too.
template <class Visit>
void eachCell(Visit visit) {
  for (U32 operation = 0; operation < operations; ++operation) {
    for (U32 mode = 0; mode < modes; ++mode) {
      for (U32 state = 0; state < states; ++state) {
        for (U32 phase = 0; phase < phases; ++phase) {
          visit(Cell{static_cast<Operation>(operation), mode, state, static_cast<Phase>(phase)});
        }
      }
    }
  }
}

}  // namespace Lockstep
