// Drivers that are made up, for tests of what shows them: tables as a live view has them, whose
// values a test sets.
//
//   MadeUp machine;
//   MadeUpDriver& driver = machine.driverIs("switch1", 100);  // regions
//   driver.find("region-00017", 3, {0x12}, {0x13});
//   machine.turn();                                           // what the next look sees
#pragma once

#include <mutex>
#include <random>

#include "tools/umbra/serve/Model.h"

namespace Serve {

// Rows that are written by the names of their columns.
class MadeUpTable {
 public:
  MadeUpTable(std::string name, std::vector<Column> columns, U32 rows);

  void numberIs(U32 row, std::string_view column, S64 value);
  void realIs(U32 row, std::string_view column, double value);
  void textIs(U32 row, std::string_view column, std::string_view value);
  void stateIs(U32 row, U32 state) { word(row, 1) = state; }
  void add(U32 row, std::string_view column, S64 value);
  S64 number(U32 row, std::string_view column) const;
  std::string text(U32 row, std::string_view column) const;
  std::shared_ptr<const Table> copy() const { return std::make_shared<Table>(table_); }
  U32 rows() const { return table_.rows(); }

 private:
  U32& word(U32 row, U32 at) { return table_.words[std::size_t{row} * table_.rowWords + at]; }
  void touch(U32 row) { word(row, 0) += 2; }
  const Column& column(std::string_view name) const;

  Table table_;
};

class MadeUpDriver {
 public:
  MadeUpDriver(std::string name, U32 regions, U32 chips);

  // An entry of a region differs and is repaired.
  void find(U32 region, U32 entry, S32 nature = 1);
  void passIs(U64 done, U64 entries);
  void alarmIs(U32 row, std::string_view subject, U32 state);
  void eventIs(Event event);

  MadeUpTable& regions() { return regions_; }
  MadeUpTable& shadow() { return shadow_; }
  MadeUpTable& chips() { return chips_; }
  Driver& header() { return header_; }
  const std::vector<Event>& events() const { return events_; }
  std::shared_ptr<const Driver> copy() const;

 private:
  Driver header_;
  MadeUpTable shadow_;
  MadeUpTable regions_;
  MadeUpTable chips_;
  MadeUpTable alarms_;
  std::vector<Event> events_;
};

class MadeUp : public Source {
 public:
  MadeUpDriver& driverIs(const std::string& name, U32 regions, U32 chips = 4);
  void driverDel(const std::string& name);
  // Held by whoever changes a driver while the server looks.
  std::mutex& mutex() { return mutex_; }

  Drivers drivers() override;
  std::vector<Event> events(const std::string& driver, U64 from, U32 max) override;

 private:
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<MadeUpDriver>> drivers_;
};

}  // namespace Serve
