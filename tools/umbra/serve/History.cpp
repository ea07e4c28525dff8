#include "tools/umbra/serve/History.h"

#include <algorithm>
#include <chrono>

#include "tools/umbra/serve/Database.h"

namespace Serve {
namespace {

constexpr S64 schemaVersion = 1;

constexpr const char* schemaText = R"(
create table driver(id integer primary key, name text unique not null, generation integer not null,
                    last integer not null, last_time integer not null);
create table event(driver integer not null, generation integer not null, number integer not null,
                   kind integer not null, time integer not null, monotonic integer not null,
                   verdict integer not null, nature integer not null, entry integer not null,
                   entry_size integer not null, uid integer not null, pid integer not null,
                   region text not null, chip text not null, expected blob, actual blob,
                   text text not null, primary key(driver, generation, number)) without rowid;
create index event_time on event(time);
create index event_kind on event(driver, kind, time);
create index event_region on event(driver, region, generation, number);
create table series(id integer primary key, driver text not null, object text not null,
                    name text not null, unique(driver, object, name));
create table sample(series integer not null, time integer not null, value real not null,
                    primary key(series, time)) without rowid;
create index sample_time on sample(time);
pragma user_version = 1;
)";

S64 oneNumber(Database& database, const char* text) {
  Statement statement(database, text);
  return statement.step() ? statement.number(0) : 0;
}

// How often regions are read and written says nothing of what broke, and changes all the time.
bool isSampled(const Column& column) {
  return column.total && column.name != "readCacheHits" && column.name != "writeCacheHits";
}

constexpr const char* eventColumns =
    "e.number, e.kind, e.time, e.monotonic, e.verdict, e.nature, e.entry, e.entry_size, e.uid, "
    "e.pid, e.region, e.chip, e.expected, e.actual, e.text";

Event eventOf(const Statement& row) {
  Event event;
  event.number = static_cast<U64>(row.number(0));
  event.kind = static_cast<U32>(row.number(1));
  event.wall = row.number(2);
  event.time = row.number(3);
  event.verdict = static_cast<S32>(row.number(4));
  event.nature = static_cast<S32>(row.number(5));
  event.entry = static_cast<U32>(row.number(6));
  event.entrySize = static_cast<U32>(row.number(7));
  event.uid = static_cast<U32>(row.number(8));
  event.pid = static_cast<U32>(row.number(9));
  event.region = row.text(10);
  event.chip = row.text(11);
  event.expected = row.bytes(12);
  event.actual = row.bytes(13);
  event.text = row.text(14);
  return event;
}

}  // namespace

void readPast(const std::string& path, const Past& past,
              const std::function<bool(const Event&)>& take) {
  Database database(path, SQLITE_OPEN_READONLY);
  try {
    const S64 version = oneNumber(database, "pragma user_version");
    if (version != schemaVersion) throw std::runtime_error("this is no history that can be read");
    // Where the history knows the log's oldest event, what is before it has smaller numbers; else
    // the log was begun anew, or nobody kept it then.
    Statement known(database,
                    "select 1 from event e join driver d on d.id = e.driver where d.name = ?1 and "
                    "e.generation = d.generation and e.number = ?2 and e.time = ?3");
    known.bind(1, past.driver).bind(2, static_cast<S64>(past.firstNumber)).bind(3, past.firstTime);
    std::string text = std::string("select ") + eventColumns +
                       " from event e join driver d on d.id = e.driver where d.name = ?1 and "
                       "e.time >= ?2";
    if (past.firstNumber != 0) {
      text +=
          known.step() ? " and (e.generation < d.generation or e.number < ?3)" : " and e.time < ?4";
    }
    text += " order by e.generation desc, e.number desc";
    Statement select(database, text.c_str());
    select.bind(1, past.driver).bind(2, past.since);
    select.bind(3, static_cast<S64>(past.firstNumber)).bind(4, past.firstTime);
    while (select.step() && take(eventOf(select))) continue;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

History::History(std::string path, HistoryOptions options)
    : path_(std::move(path)),
      options_(options),
      database_(std::make_unique<Database>(
          path_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX)) {
  // Before the first table: later it would have no effect.
  try {
    database_->run(
        "pragma auto_vacuum=incremental; pragma journal_mode=wal; pragma synchronous=normal;");
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path_ + ": " + error.what());
  }
  const S64 version = oneNumber(*database_, "pragma user_version");
  if (version > schemaVersion) {
    throw std::runtime_error(path_ + " is a history of version " + std::to_string(version) +
                             "; this program knows version 1");
  }
  if (version == 0) {
    if (oneNumber(*database_, "select count(*) from sqlite_master") != 0) {
      throw std::runtime_error(path_ + " is a database, but no history");
    }
    database_->run((std::string("begin;") + schemaText + "commit;").c_str());
  }
}

History::~History() = default;

void History::add(const View& view, const std::map<std::string, std::vector<Event>>& news) {
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [driver, events] : news) {
      for (const Event& event : events) {
        if (pendingEvents_.size() >= maxPending) {
          ++figures_.dropped;
        } else {
          pendingEvents_.emplace_back(driver, event);
        }
      }
    }
  }
  if (view.time - lastSampleTime_ < options_.sampleInterval) return;
  lastSampleTime_ = view.time;
  addSamples(view);
}

void History::addSamples(const View& view) {
  std::vector<SampleRow> changed;
  const auto sample = [&](const Driver& driver, std::string object, std::string name,
                          double value) {
    const std::string key = driver.name + "\n" + object + "\n" + name;
    const auto [last, isNew] = lastSamples_.try_emplace(key, value);
    if (!isNew && last->second == value) return;
    last->second = value;
    changed.push_back({driver.name, std::move(object), std::move(name), view.time, value});
  };
  for (const auto& driver : view.drivers) {
    sample(*driver, "driver", "up", driver->liveness == Liveness::live ? 1 : 0);
    for (const auto& table : driver->tables) {
      const Column* name = table->find("name");
      for (const Column& column : table->columns) {
        if (!isSampled(column)) continue;
        for (U32 i = 0; i < table->rows(); ++i) {
          if (table->state(i) != usedRow) continue;
          const std::string label = name == nullptr ? std::to_string(i) : name->text(table->row(i));
          sample(*driver, table->name + "/" + label, column.name, column.number(table->row(i)));
        }
      }
    }
  }
  const std::lock_guard lock(mutex_);
  if (pendingSamples_.size() > maxPending) return;
  std::ranges::move(changed, std::back_inserter(pendingSamples_));
}

void History::commit() {
  std::vector<std::pair<std::string, Event>> events;
  std::vector<SampleRow> samples;
  {
    const std::lock_guard lock(mutex_);
    events.swap(pendingEvents_);
    samples.swap(pendingSamples_);
  }
  const Time now = wallTime();
  try {
    if (!events.empty() || !samples.empty()) write(events, samples);
    if (now - lastRetention_ >= 10 * second) {
      lastRetention_ = now;
      retain(now);
    }
    const U64 pages = static_cast<U64>(oneNumber(*database_, "pragma page_count"));
    const U64 pageBytes = static_cast<U64>(oneNumber(*database_, "pragma page_size"));
    const std::lock_guard lock(mutex_);
    figures_.bytes = pages * pageBytes;
  } catch (const std::exception& error) {
    sqlite3_exec(database_->handle(), "rollback", nullptr, nullptr, nullptr);
    // What was read from the file may be of the transaction that is gone.
    places_.clear();
    series_.clear();
    const std::lock_guard lock(mutex_);
    ++figures_.errors;
    figures_.lastError = error.what();
    // Tried again with what comes.
    const std::size_t room = maxPending - std::min(maxPending, pendingEvents_.size());
    const std::size_t kept = std::min(room, events.size());
    figures_.dropped += events.size() - kept;
    events.resize(kept);
    pendingEvents_.insert(pendingEvents_.begin(), std::make_move_iterator(events.begin()),
                          std::make_move_iterator(events.end()));
  }
}

void History::write(const std::vector<std::pair<std::string, Event>>& events,
                    const std::vector<SampleRow>& samples) {
  database_->run("begin immediate");
  writeEvents(events);
  writeSamples(samples);
  database_->run("commit");
}

void History::writeEvents(const std::vector<std::pair<std::string, Event>>& events) {
  Statement insert(*database_,
                   "insert or ignore into event values"
                   "(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17)");
  U64 written = 0;
  for (const auto& [driver, event] : events) {
    Place& place = placeOf(driver);
    if (!advance(place, event)) continue;
    insert.bind(1, place.id).bind(2, place.generation).bind(3, static_cast<S64>(event.number));
    insert.bind(4, S64{event.kind}).bind(5, event.wall).bind(6, event.time);
    insert.bind(7, S64{event.verdict}).bind(8, S64{event.nature}).bind(9, S64{event.entry});
    insert.bind(10, S64{event.entrySize}).bind(11, S64{event.uid}).bind(12, S64{event.pid});
    insert.bind(13, event.region).bind(14, event.chip);
    insert.bind(15, std::span(event.expected)).bind(16, std::span(event.actual));
    insert.bind(17, event.text);
    insert.runOnce();
    ++written;
  }
  Statement update(*database_,
                   "update driver set generation=?2, last=?3, last_time=?4 where id=?1");
  for (const auto& [name, place] : places_) {
    update.bind(1, place.id).bind(2, place.generation).bind(3, static_cast<S64>(place.last));
    update.bind(4, place.lastTime).runOnce();
  }
  const std::lock_guard lock(mutex_);
  figures_.events += written;
}

History::Place& History::placeOf(const std::string& driver) {
  const auto [found, isNew] = places_.try_emplace(driver);
  if (!isNew) return found->second;
  Statement insert(*database_,
                   "insert into driver(name, generation, last, last_time) values(?1, 1, 0, 0) "
                   "on conflict do nothing");
  insert.bind(1, driver).runOnce();
  Statement select(*database_, "select id, generation, last, last_time from driver where name=?1");
  select.bind(1, driver).step();
  Place& place = found->second;
  place = {select.number(0), select.number(1), static_cast<U64>(select.number(2)),
           select.number(3)};
  return place;
}

bool History::advance(Place& place, const Event& event) {
  if (event.number <= place.last) {
    Statement select(*database_,
                     "select time from event where driver=?1 and generation=?2 and number=?3");
    select.bind(1, place.id).bind(2, place.generation).bind(3, static_cast<S64>(event.number));
    // It is no longer kept, or it is another one of the same number: the log was begun anew.
    const bool isKept = select.step();
    if (isKept ? select.number(0) == event.wall : event.wall <= place.lastTime) return false;
    ++place.generation;
  }
  place.last = event.number;
  place.lastTime = event.wall;
  return true;
}

void History::writeSamples(const std::vector<SampleRow>& samples) {
  Statement insert(*database_, "insert or replace into sample values(?1, ?2, ?3)");
  for (const SampleRow& sample : samples) {
    insert.bind(1, seriesOf(sample)).bind(2, sample.time).bind(3, sample.value).runOnce();
  }
  const std::lock_guard lock(mutex_);
  figures_.samples += samples.size();
}

S64 History::seriesOf(const SampleRow& sample) {
  const auto [found, isNew] =
      series_.try_emplace(sample.driver + "\n" + sample.object + "\n" + sample.name);
  if (!isNew) return found->second;
  Statement insert(*database_,
                   "insert into series(driver, object, name) values(?1, ?2, ?3) "
                   "on conflict do nothing");
  insert.bind(1, sample.driver).bind(2, sample.object).bind(3, sample.name).runOnce();
  Statement select(*database_, "select id from series where driver=?1 and object=?2 and name=?3");
  select.bind(1, sample.driver).bind(2, sample.object).bind(3, sample.name).step();
  return found->second = select.number(0);
}

void History::retain(Time now) {
  Database& database = *database_;
  database.run("begin immediate");
  for (const char* text :
       {"delete from event where time < ?1", "delete from sample where time < ?1"}) {
    Statement(database, text).bind(1, now - options_.maxAge).runOnce();
  }
  database.run("commit");
  const U64 pageBytes = static_cast<U64>(oneNumber(database, "pragma page_size"));
  // The oldest, by the part of the time that their share of the file would take.
  for (int i = 0; i < 20; ++i) {
    const U64 used = static_cast<U64>(oneNumber(database, "pragma page_count") -
                                      oneNumber(database, "pragma freelist_count"));
    if (used * pageBytes <= options_.maxBytes) break;
    const S64 oldest = oneNumber(database,
                                 "select min(t) from (select min(time) t from event union all "
                                 "select min(time) from sample)");
    database.run("begin immediate");
    const double excess =
        1 - static_cast<double>(options_.maxBytes) / static_cast<double>(used * pageBytes);
    const S64 until =
        oldest + static_cast<S64>(static_cast<double>(now - oldest) * std::max(excess, 0.02));
    for (const char* text :
         {"delete from event where time <= ?1", "delete from sample where time <= ?1"}) {
      Statement(database, text).bind(1, until).runOnce();
    }
    database.run("commit");
  }
  database.run("pragma incremental_vacuum");
}

void History::run() {
  std::unique_lock lock(mutex_);
  while (!stopped_) {
    wake_.wait_for(lock, std::chrono::seconds(1), [&] { return stopped_; });
    lock.unlock();
    commit();
    lock.lock();
  }
}

void History::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  wake_.notify_all();
}

History::Figures History::figures() const {
  const std::lock_guard lock(mutex_);
  return figures_;
}

std::vector<Event> History::events(const std::string& driver, const EventFilter& filter) const {
  Database database(path_, SQLITE_OPEN_READONLY);
  std::string text = std::string("select ") + eventColumns +
                     " from event e join driver d on d.id = e.driver where d.name = ?1"
                     " and (e.generation < d.generation or e.number > ?2)";
  if (filter.before != 0) text += " and (e.generation < d.generation or e.number < ?3)";
  if (!filter.region.empty()) text += " and e.region = ?4";
  if (filter.kind != 0) text += " and e.kind = ?5";
  text += " order by e.generation desc, e.number desc limit ?6";
  Statement select(database, text.c_str());
  select.bind(1, driver).bind(2, static_cast<S64>(filter.since));
  if (filter.before != 0) select.bind(3, static_cast<S64>(filter.before));
  if (!filter.region.empty()) select.bind(4, filter.region);
  if (filter.kind != 0) select.bind(5, S64{filter.kind});
  select.bind(6, S64{filter.max});
  std::vector<Event> events;
  while (select.step()) events.push_back(eventOf(select));
  return events;
}

std::vector<U64> History::findings(const std::string& driver, Time from, Time to,
                                   std::size_t steps) const {
  std::vector<U64> counts(steps);
  const Time width = std::max<Time>((to - from) / static_cast<Time>(steps), 1);
  Database database(path_, SQLITE_OPEN_READONLY);
  Statement select(database,
                   "select (e.time - ?2) / ?4, count(*) from event e join driver d on d.id = "
                   "e.driver where d.name = ?1 and e.kind = ?5 and e.time >= ?2 and e.time < ?3 "
                   "group by 1");
  select.bind(1, driver).bind(2, from).bind(3, to).bind(4, width).bind(5, S64{findingEvent});
  while (select.step()) {
    const auto step = static_cast<std::size_t>(select.number(0));
    counts[std::min(step, steps - 1)] += static_cast<U64>(select.number(1));
  }
  return counts;
}

}  // namespace Serve
