#include "tools/umbra/serve/Collector.h"

#include <algorithm>
#include <chrono>

#include "tools/umbra/serve/Json.h"

namespace Serve {
namespace {

using Steady = std::chrono::steady_clock;

// What the page is told of the rows of a table of regions that changed.
Json changedRegions(const Driver& driver, std::map<U32, std::string>& known,
                    std::map<U32, U32>& sequences) {
  Json rows = Json::array();
  const Table* table = driver.table("region");
  if (table == nullptr) return rows;
  const RegionColumns columns(*table);
  for (U32 i = 0; i < table->rows(); ++i) {
    const U32 sequence = table->row(i)[0];
    const auto [seen, isNew] = sequences.try_emplace(i, sequence);
    if (!isNew && seen->second == sequence) continue;
    seen->second = sequence;
    Json row = columns.json(driver, i);
    std::string text = dump(row);
    std::string& last = known[i];
    if (last == text) continue;
    last = std::move(text);
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace

std::shared_ptr<const Driver> View::driver(std::string_view name) const {
  for (const auto& each : drivers) {
    if (each->name == name) return each;
  }
  return nullptr;
}

std::vector<Event> Collector::newEvents(const Driver& driver, Known& known) {
  std::vector<Event> all;
  if (!driver.hasLog) return all;
  // A log that was begun anew counts from 1 again.
  if (driver.events < known.lastEvent) {
    known.lastEvent = 0;
    known.recent.clear();
  }
  constexpr U32 piece = 1000;
  while (known.lastEvent < driver.events) {
    std::vector<Event> events = source_.events(driver.name, known.lastEvent + 1, piece);
    if (events.empty()) break;
    for (Event& event : events) {
      if (known.lastEvent != 0) eventsMissed_ += event.number - known.lastEvent - 1;
      known.lastEvent = event.number;
      all.push_back(std::move(event));
    }
  }
  return all;
}

void Collector::turn() {
  const auto began = Steady::now();
  View view;
  view.drivers = source_.drivers();
  view.time = wallTime();
  Json frame = Json::object();
  Json drivers = Json::array();
  Json gone = Json::array();
  Json regions = Json::object();
  Json events = Json::object();
  std::map<std::string, std::vector<Event>> news;

  for (auto& [name, known] : known_) known.seen = false;
  for (const auto& driver : view.drivers) {
    Known& known = known_[driver->name];
    known.seen = true;
    if (known.pid != driver->pid || known.start != driver->start) {
      known.pid = driver->pid;
      known.start = driver->start;
      // Another process has other rows: all of them are told.
      known.regions.clear();
      known.sequences.clear();
    }
    Json header = driverJson(*driver);
    std::string text = dump(header);
    if (text != known.header) {
      known.header = std::move(text);
      drivers.push_back(std::move(header));
    }
    Json rows = changedRegions(*driver, known.regions, known.sequences);
    if (!rows.empty()) regions[driver->name] = std::move(rows);

    std::vector<Event> fresh = newEvents(*driver, known);
    if (fresh.empty()) continue;
    Json list = Json::array();
    const std::size_t from = fresh.size() > framesKept * 4 ? fresh.size() - framesKept * 4 : 0;
    for (std::size_t i = from; i < fresh.size(); ++i) list.push_back(eventJson(fresh[i]));
    events[driver->name] = std::move(list);
    {
      const std::lock_guard lock(mutex_);
      known.recent.insert(known.recent.end(), fresh.begin(), fresh.end());
      while (known.recent.size() > recentEvents) known.recent.pop_front();
    }
    news[driver->name] = std::move(fresh);
  }
  {
    const std::lock_guard lock(mutex_);
    for (auto each = known_.begin(); each != known_.end();) {
      if (!each->second.seen) gone.push_back(each->first);
      each = each->second.seen ? std::next(each) : known_.erase(each);
    }
    const bool told =
        !drivers.empty() || !gone.empty() || !regions.empty() || !events.empty() || lastFrame_ == 0;
    if (told) {
      frame["frame"] = ++lastFrame_;
      frame["time"] = milliseconds(view.time);
      if (!drivers.empty()) frame["drivers"] = std::move(drivers);
      if (!gone.empty()) frame["gone"] = std::move(gone);
      if (!regions.empty()) frame["regions"] = std::move(regions);
      if (!events.empty()) frame["events"] = std::move(events);
      frames_.push_back(dump(frame));
      if (frames_.size() > framesKept) frames_.pop_front();
    }
    view.frame = lastFrame_;
    view_ = view;
  }
  changed_.notify_all();
  const double took = std::chrono::duration<double>(Steady::now() - began).count();
  longestTurn_ = std::max(longestTurn_.load(), took);
  if (listener_) listener_(view, news);
}

void Collector::run(Time interval) {
  auto next = Steady::now();
  while (!stopped_) {
    turn();
    next = std::max(next + std::chrono::nanoseconds(interval), Steady::now());
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, next, [&] { return stopped_.load(); });
  }
}

void Collector::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
}

View Collector::view() const {
  const std::lock_guard lock(mutex_);
  return view_;
}

std::vector<Event> Collector::events(const std::string& driver, const EventFilter& filter) const {
  std::vector<Event> found;
  const std::lock_guard lock(mutex_);
  const auto known = known_.find(driver);
  if (known == known_.end()) return found;
  const auto& recent = known->second.recent;
  for (auto each = recent.rbegin(); each != recent.rend() && found.size() < filter.max; ++each) {
    if (filter.takes(*each)) found.push_back(*each);
  }
  return found;
}

std::optional<std::vector<std::string>> Collector::framesAfter(U64 frame, Time wait) const {
  std::unique_lock lock(mutex_);
  if (frame > lastFrame_) return std::nullopt;
  changed_.wait_for(lock, std::chrono::nanoseconds(wait),
                    [&] { return stopped_.load() || lastFrame_ > frame; });
  const U64 first = lastFrame_ + 1 - frames_.size();
  if (frame + 1 < first) return std::nullopt;
  std::vector<std::string> after;
  for (U64 each = frame + 1; each <= lastFrame_; ++each) after.push_back(frames_[each - first]);
  return after;
}

}  // namespace Serve
