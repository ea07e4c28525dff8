// The regions of a plan as a register table of the driver layer: what regions, policies and names
// are made from, at run time or as a header of constants.
//
//   const Maps::Table table(plan);
//   shadow->registerNamesIs(Driver::registerNamesOf(table.regions()));
#pragma once

#include <Driver/RegisterTable.h>
#include <maps/Regions.h>

#include <deque>

namespace Maps {

// Owns all that its regions refer to: it must outlive them, and the names made from them.
class UMBRA_API Table {
 public:
  explicit Table(const Plan& plan);
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  std::span<const Driver::TableRegion> regions() const { return regions_; }

 private:
  const char* keep(std::string text) { return texts_.emplace_back(std::move(text)).c_str(); }

  std::deque<std::string> texts_;
  std::deque<std::vector<Driver::TableField>> fields_;
  std::deque<std::vector<Driver::TableRegister>> registers_;
  std::vector<Driver::TableRegion> regions_;
};

// A C++ header of such a table, for programs that want no XML when they run: constexpr values of
// Driver/RegisterTable.h in namespace `space` (letters, digits and underscores; "a::b" too: else a
// range exception), and one constant for each region.
UMBRA_API std::string headerText(const Plan& plan, const std::string& space);

}  // namespace Maps
