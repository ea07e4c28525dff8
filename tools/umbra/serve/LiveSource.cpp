#include "tools/umbra/serve/LiveSource.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <set>

namespace Serve {
namespace {

Kind kindOf(Telemetry::ColumnKind kind) {
  switch (kind) {
    case Telemetry::ColumnKind::boolean:
      return Kind::boolean;
    case Telemetry::ColumnKind::unsignedNumber:
      return Kind::unsignedNumber;
    case Telemetry::ColumnKind::signedNumber:
      return Kind::signedNumber;
    case Telemetry::ColumnKind::real:
      return Kind::real;
    case Telemetry::ColumnKind::time:
      return Kind::time;
    case Telemetry::ColumnKind::text:
      return Kind::text;
  }
  return Kind::unsignedNumber;
}

Liveness livenessOf(Telemetry::Liveness::State state) {
  switch (state) {
    case Telemetry::Liveness::live:
      return Liveness::live;
    case Telemetry::Liveness::stalled:
      return Liveness::stalled;
    case Telemetry::Liveness::dead:
      return Liveness::dead;
    case Telemetry::Liveness::ended:
      return Liveness::ended;
  }
  return Liveness::dead;
}

std::shared_ptr<const Table> tableOf(const Telemetry::LiveReader& view,
                                     const Telemetry::Table& from) {
  auto table = std::make_shared<Table>();
  table->name = from.name;
  table->rowWords = from.rowBytes / sizeof(U32);
  for (const Telemetry::Column& column : from.columns) {
    table->columns.push_back({column.name,
                              kindOf(column.kind),
                              column.offset,
                              column.bytes,
                              column.unit,
                              column.help,
                              column.isTotal,
                              {column.names.begin(), column.names.end()}});
  }
  const std::vector<Telemetry::Row> rows = view.rows(from);
  table->words.reserve(rows.size() * table->rowWords);
  table->torn.reserve(rows.size());
  for (const Telemetry::Row& row : rows) {
    table->words.insert(table->words.end(), row.words().begin(), row.words().end());
    table->torn.push_back(row.isTorn());
  }
  return table;
}

std::shared_ptr<const Driver> driverOf(const Telemetry::LiveReader& view) {
  auto driver = std::make_shared<Driver>();
  const Telemetry::Heartbeat beat = view.heartbeat();
  const Telemetry::Liveness liveness = view.liveness();
  driver->name = view.name();
  driver->pid = view.pid();
  driver->pointerBits = beat.pointerBits;
  driver->liveness = livenessOf(liveness.state);
  driver->assertionEnded = beat.state == Telemetry::Heartbeat::failed;
  driver->since = liveness.since;
  driver->start = view.startTime();
  driver->heartbeat = beat.wallClock;
  driver->clockOffset = beat.wallClock - beat.monotonic;
  driver->heartbeats = beat.count;
  driver->notFit = beat.notFit;
  driver->looking = view.socket();
  driver->operating = view.adminSocket();
  for (const Telemetry::Table& table : view.tables()) {
    driver->tables.push_back(tableOf(view, table));
  }
  return driver;
}

Event eventOf(Telemetry::Event&& from) {
  Event event;
  event.number = from.number;
  event.kind = static_cast<U32>(from.kind);
  event.time = from.monotonic;
  event.wall = from.wallClock;
  event.verdict = static_cast<S32>(from.verdict);
  event.nature = static_cast<S32>(from.nature);
  event.entry = from.entry;
  event.entrySize = from.entrySize;
  event.uid = from.uid;
  event.pid = from.pid;
  event.region = std::move(from.region);
  event.chip = std::move(from.chip);
  event.expected = std::move(from.expected);
  event.actual = std::move(from.actual);
  event.text = std::move(from.text);
  return event;
}

}  // namespace

bool LiveSource::open(const std::string& stem, Files& files) const {
  const std::string path = directory_ + "/" + stem;
  try {
    if (!files.view.has_value() || files.view->isReplaced()) {
      files.view.reset();
      files.view.emplace(path + ".live");
    }
  } catch (const std::exception&) {
    return false;
  }
  try {
    if (!files.log.has_value() || files.log->isReplaced()) {
      files.log.reset();
      if (std::filesystem::exists(path + ".events")) files.log.emplace(path + ".events");
    }
  } catch (const std::exception&) {
    // The driver is shown without its events.
  }
  return true;
}

Drivers LiveSource::drivers() {
  std::set<std::string> stems;
  std::error_code error;
  for (const auto& file : std::filesystem::directory_iterator(directory_, error)) {
    if (file.path().extension() == ".live") stems.insert(file.path().stem().string());
  }
  std::erase_if(files_, [&](const auto& each) { return !stems.contains(each.first); });
  byDriver_.clear();
  Drivers drivers;
  for (const std::string& stem : stems) {
    Files& files = files_[stem];
    if (!open(stem, files)) continue;
    auto driver = driverOf(*files.view);
    if (!byDriver_.try_emplace(driver->name, &files).second) continue;
    if (files.log.has_value()) {
      auto withLog = std::make_shared<Driver>(*driver);
      withLog->hasLog = true;
      withLog->events = files.log->last();
      withLog->suppressed = files.log->suppressed();
      driver = std::move(withLog);
    }
    drivers.push_back(std::move(driver));
  }
  std::ranges::sort(drivers, {}, [](const auto& driver) { return driver->name; });
  return drivers;
}

std::vector<Event> LiveSource::events(const std::string& driver, U64 from, U32 max) {
  std::vector<Event> events;
  const auto found = byDriver_.find(driver);
  if (found == byDriver_.end() || !found->second->log.has_value()) return events;
  const Telemetry::EventReader& log = *found->second->log;
  while (events.empty() && from <= log.last()) {
    Telemetry::EventReader::Batch batch = log.read(from, max);
    for (Telemetry::Event& event : batch.events) events.push_back(eventOf(std::move(event)));
    if (batch.next <= from) break;
    from = batch.next;
  }
  return events;
}

}  // namespace Serve
