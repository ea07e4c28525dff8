#include "MadeUp.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace Serve {
namespace {

Column flag(const char* name, const char* help) { return {name, Kind::boolean, 0, 4, "", help}; }
Column count(const char* name, const char* unit, const char* help) {
  return {name, Kind::unsignedNumber, 0, 8, unit, help};
}
Column total(const char* name, const char* unit, const char* help) {
  return {name, Kind::unsignedNumber, 0, 8, unit, help, true};
}
Column time(const char* name, const char* unit, const char* help) {
  return {name, Kind::time, 0, 8, unit, help};
}
Column text(const char* name, const char* help) { return {name, Kind::text, 0, 64, "", help}; }

std::vector<Column> regionColumns() {
  return {text("name", "name of the region"),
          text("shadow", "its shadow"),
          text("chip", "its chip"),
          text("address", "its first address"),
          count("entries", "entries", "how many entries it has"),
          count("entrySize", "bytes", "size of an entry"),
          {"mode",
           Kind::signedNumber,
           0,
           8,
           "",
           "what happens to writes",
           false,
           {{0, "normal"}, {1, "override"}, {2, "buffered"}}},
          flag("auditEnabled", "1 while it is audited"),
          total("findings", "", "entries that differed"),
          total("repairs", "", "entries that were rewritten"),
          total("readCacheHits", "", "reads that the shadow answered"),
          count("findingsIn1m", "", "findings in the last minute"),
          count("findingsIn1h", "", "findings in the last hour"),
          time("lastFindingTime", "seconds since 1970", "time of the last finding"),
          time("since", "seconds since 1970", "since when the totals count")};
}
std::vector<Column> shadowColumns() {
  return {text("name", "name of the shadow"),
          {"patrolState",
           Kind::signedNumber,
           0,
           8,
           "",
           "what the patrol does",
           false,
           {{0, "stopped"}, {1, "waiting"}, {2, "reading"}, {3, "paused"}, {4, "suspended"}}},
          text("patrolReason", "why it is suspended"),
          count("passEntries", "entries", "entries of this pass"),
          count("passEntriesDone", "entries", "entries that were looked at"),
          time("lastPassTime", "seconds", "when the last pass ended"),
          time("sliceInterval", "seconds", "time between two slices"),
          {"timeLeft", Kind::time, 0, 8, "seconds", "until the end of the pass"},
          total("audits", "", "passes that have begun"),
          total("findings", "", "entries that differed"),
          total("repairs", "", "entries that were repaired"),
          {"share", Kind::real, 0, 8, "share", "of the thread"}};
}
std::vector<Column> chipColumns() {
  return {text("name", "name of the chip"), flag("isAbsent", "1 while it does not answer"),
          text("reason", "why it is absent"), total("absences", "", "how often it was absent"),
          total("resets", "", "how often it lost its state")};
}
std::vector<Column> alarmColumns() {
  return {text("name", "name of the alarm"),
          text("rule", "its rule"),
          text("subject", "what it is about"),
          {"state",
           Kind::signedNumber,
           0,
           8,
           "",
           "its state",
           false,
           {{0, "cleared"}, {1, "raised"}, {2, "acknowledged"}}},
          total("findings", "", "findings it counted"),
          total("raises", "", "how often it was raised"),
          time("raisedTime", "seconds", "when it was last raised")};
}

constexpr Time bootTime = 1'000 * second;  // of the made-up machine, on the wall clock

}  // namespace

MadeUpTable::MadeUpTable(std::string name, std::vector<Column> columns, U32 rows) {
  table_.name = std::move(name);
  U32 offset = 8;
  for (Column& column : columns) {
    column.offset = offset;
    offset += column.bytes;
  }
  table_.columns = std::move(columns);
  table_.rowWords = (offset + 63) / 64 * 16;
  table_.words.resize(std::size_t{table_.rowWords} * rows);
  table_.torn.resize(rows);
}

const Column& MadeUpTable::column(std::string_view name) const {
  const Column* found = table_.find(name);
  if (found == nullptr)
    throw std::runtime_error(table_.name + " has no column " + std::string(name));
  return *found;
}

void MadeUpTable::numberIs(U32 row, std::string_view name, S64 value) {
  const Column& at = column(name);
  word(row, at.offset / 4) = static_cast<U32>(value);
  if (at.bytes == 8) word(row, at.offset / 4 + 1) = static_cast<U32>(value >> 32);
  touch(row);
}

void MadeUpTable::realIs(U32 row, std::string_view name, double value) {
  numberIs(row, name, std::bit_cast<S64>(value));
}

void MadeUpTable::textIs(U32 row, std::string_view name, std::string_view value) {
  const Column& at = column(name);
  char field[64] = {};
  std::memcpy(field, value.data(), std::min(value.size(), sizeof field - 1));
  for (U32 i = 0; i < at.bytes / 4; ++i)
    std::memcpy(&word(row, at.offset / 4 + i), field + i * 4, 4);
  touch(row);
}

void MadeUpTable::add(U32 row, std::string_view name, S64 value) {
  numberIs(row, name, number(row, name) + value);
}

S64 MadeUpTable::number(U32 row, std::string_view name) const {
  return column(name).integer(table_.row(row));
}

std::string MadeUpTable::text(U32 row, std::string_view name) const {
  return column(name).text(table_.row(row));
}

MadeUpDriver::MadeUpDriver(std::string name, U32 regions, U32 chips)
    : shadow_("shadow", shadowColumns(), 2),
      regions_("region", regionColumns(), regions + 8),
      chips_("chip", chipColumns(), chips),
      alarms_("alarm", alarmColumns(), 16) {
  header_.name = std::move(name);
  header_.pid = 4711;
  header_.pointerBits = 32;
  header_.start = wallTime();
  header_.since = header_.start;
  header_.clockOffset = bootTime;
  header_.hasLog = true;
  shadow_.stateIs(0, usedRow);
  shadow_.textIs(0, "name", "shadow");
  shadow_.numberIs(0, "patrolState", 2);
  shadow_.numberIs(0, "sliceInterval", 1'000'000);
  shadow_.numberIs(0, "lastPassTime", header_.start - bootTime);
  shadow_.numberIs(0, "timeLeft", 0);
  shadow_.realIs(0, "share", 0.03);
  for (U32 i = 0; i < chips; ++i) {
    chips_.stateIs(i, usedRow);
    chips_.textIs(i, "name", "asic" + std::to_string(i));
  }
  std::mt19937 random(7);
  // A few large tables, many single registers: as register maps are.
  std::lognormal_distribution<double> size(2.0, 2.2);
  for (U32 i = 0; i < regions; ++i) {
    char label[32];
    std::snprintf(label, sizeof label, "region-%05u", i);
    regions_.stateIs(i, usedRow);
    regions_.textIs(i, "name", label);
    regions_.textIs(i, "shadow", "shadow");
    regions_.textIs(i, "chip", "asic" + std::to_string(i % chips));
    std::snprintf(label, sizeof label, "0x%x", i * 0x1000);
    regions_.textIs(i, "address", label);
    regions_.numberIs(i, "entries", static_cast<S64>(std::clamp(size(random), 1.0, 65536.0)));
    regions_.numberIs(i, "entrySize", 4);
    regions_.numberIs(i, "auditEnabled", 1);
    regions_.numberIs(i, "lastFindingTime", -never - 1);
    regions_.numberIs(i, "since", header_.start);
  }
}

void MadeUpDriver::find(U32 region, U32 entry, S32 nature) {
  const Time now = wallTime();
  for (const char* column : {"findings", "repairs", "findingsIn1m", "findingsIn1h"}) {
    regions_.add(region, column, 1);
  }
  regions_.numberIs(region, "lastFindingTime", now);
  shadow_.add(0, "findings", 1);
  shadow_.add(0, "repairs", 1);
  Event event;
  event.kind = findingEvent;
  event.nature = nature;
  event.entry = entry;
  event.entrySize = 4;
  event.region = regions_.text(region, "name");
  event.chip = regions_.text(region, "chip");
  event.expected = {0x12, 0x34, 0x56, 0x78};
  event.actual = {0x12, 0x34, 0x56, 0x79};
  event.text = "repaired";
  eventIs(std::move(event));
}

void MadeUpDriver::passIs(U64 done, U64 entries) {
  shadow_.numberIs(0, "passEntries", static_cast<S64>(entries));
  shadow_.numberIs(0, "passEntriesDone", static_cast<S64>(done));
  shadow_.numberIs(0, "timeLeft", static_cast<S64>(entries - done) * 1'000'000);
}

void MadeUpDriver::alarmIs(U32 row, std::string_view subject, U32 state) {
  alarms_.stateIs(row, usedRow);
  alarms_.textIs(row, "name", "many:" + std::string(subject));
  alarms_.textIs(row, "rule", "many");
  alarms_.textIs(row, "subject", subject);
  alarms_.numberIs(row, "state", state);
  alarms_.numberIs(row, "findings", 12);
  alarms_.numberIs(row, "raises", 1);
  alarms_.numberIs(row, "raisedTime", wallTime() - bootTime);
}

void MadeUpDriver::eventIs(Event event) {
  event.number = ++header_.events;
  event.wall = wallTime();
  event.time = event.wall - bootTime;
  events_.push_back(std::move(event));
}

std::shared_ptr<const Driver> MadeUpDriver::copy() const {
  auto driver = std::make_shared<Driver>(header_);
  driver->heartbeat = wallTime();
  driver->tables = {shadow_.copy(), regions_.copy(), alarms_.copy(), chips_.copy()};
  return driver;
}

MadeUpDriver& MadeUp::driverIs(const std::string& name, U32 regions, U32 chips) {
  const std::lock_guard lock(mutex_);
  auto& driver = drivers_[name];
  driver = std::make_unique<MadeUpDriver>(name, regions, chips);
  return *driver;
}

void MadeUp::driverDel(const std::string& name) {
  const std::lock_guard lock(mutex_);
  drivers_.erase(name);
}

Drivers MadeUp::drivers() {
  const std::lock_guard lock(mutex_);
  Drivers all;
  for (const auto& [name, driver] : drivers_) all.push_back(driver->copy());
  return all;
}

std::vector<Event> MadeUp::events(const std::string& driver, U64 from, U32 max) {
  const std::lock_guard lock(mutex_);
  std::vector<Event> found;
  const auto& all = drivers_.at(driver)->events();
  for (std::size_t i = from - 1; i < all.size() && found.size() < max; ++i) found.push_back(all[i]);
  return found;
}

}  // namespace Serve
