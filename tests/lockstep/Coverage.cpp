#include "lockstep/Coverage.h"

#include <algorithm>
#include <iomanip>
#include <limits>
#include <set>

namespace Lockstep {
namespace {

constexpr const char* modeNames[] = {"normal", "override", "buffered"};
constexpr const char* stateNames[] = {"unconf", "config", "idle", "audit"};
constexpr const char* phaseNames[] = {"none", "reading", "between", "compared"};

}  // namespace

const char* Coverage::excluded(const Cell& cell) {
  if (cell.state == States::configured) {
    return "the state configured is passed through within one call; between calls it is seen only "
           "where that call ended the process";
  }
  if (cell.operation == Operation::auditEnabled && cell.state != States::idle) {
    return "chipMemoryAuditEnabledIs ends the process in every state but idle";
  }
  if (cell.operation == Operation::read && cell.state == States::unconfigured) {
    return "readFromCache ends the process while unconfigured";
  }
  return nullptr;
}

U32 Coverage::minimum() const {
  U32 least = std::numeric_limits<U32>::max();
  eachCell([&](const Cell& cell) {
    if (excluded(cell) == nullptr) least = std::min(least, counted(cell));
  });
  return least;
}

U32 Coverage::cells() const {
  U32 reachable = 0;
  eachCell([&](const Cell& cell) { reachable += excluded(cell) == nullptr; });
  return reachable;
}

void Coverage::print(std::ostream& out) const {
  out << "steps in each situation (operation and the mode of its region x state of the shadow and "
         "phase of the pass)\n"
      << std::setw(26) << "";
  for (U32 state = 0; state < states; ++state) {
    if (state == States::configured) continue;
    for (const char* phase : phaseNames) {
      out << std::setw(9)
          << std::string(stateNames[state]).substr(0, 3) + "." + std::string(phase).substr(0, 4);
    }
  }
  out << "\n";
  U32 excludedCells = 0;
  std::set<std::string> reasons;
  eachCell([&](const Cell& cell) {
    if (const char* reason = excluded(cell)) {
      ++excludedCells;
      reasons.insert(reason);
    }
  });
  for (U32 operation = 0; operation < operations; ++operation) {
    for (U32 mode = 0; mode < modes; ++mode) {
      out << std::setw(16) << nameOf(static_cast<Operation>(operation)) << " " << std::setw(9)
          << modeNames[mode];
      for (U32 state = 0; state < states; ++state) {
        if (state == States::configured) continue;
        for (U32 phase = 0; phase < phases; ++phase) {
          const Cell cell{static_cast<Operation>(operation), mode, state,
                          static_cast<Phase>(phase)};
          if (excluded(cell) != nullptr) {
            out << std::setw(9) << "-";
          } else {
            out << std::setw(9) << counted(cell);
          }
        }
      }
      out << "\n";
    }
  }
  out << cells() << " cells, the emptiest reached " << minimum() << " times in " << steps()
      << " steps; " << excludedCells << " cells left out:\n";
  for (const std::string& reason : reasons) out << "  " << reason << "\n";
}

}  // namespace Lockstep
