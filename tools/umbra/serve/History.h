// Keeps events and samples of all drivers in a file of SQLite.
//
//   History history("umbra.db", {});
//   collector.listenerIs([&](auto& view, auto& news) { history.add(view, news); });
//   std::thread writer([&] { history.run(); });
//   history.events("switch1", filter);
//
// What was added is committed once a second, so at most the last second is lost when the process is
// killed. What the disk refuses is tried again, and counted when there is too much of it. Other
// programs may read the file at any time; nobody here leaves a transaction open.
//
// Tables (version 1, in user_version):
//   driver(id, name, generation, last, last_time)
//   event(driver, generation, number, kind, time, monotonic, verdict, nature, entry, entry_size,
//   uid,
//         pid, region, chip, expected, actual, text)
//     generation: counts how often the driver's log was begun anew; time: nanoseconds since 1970
//   series(id, driver, object, name)      "region/vlan", "findings"
//   sample(series, time, value)           when it changed
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/umbra/serve/Collector.h"

namespace Serve {

class Database;

// Events that a history holds of a driver, from before what its log holds. A std::runtime_error
// where the file is no history.
struct Past {
  std::string driver;
  Time since = INT64_MIN;
  // The oldest event that the log holds; 0 where there is no log, or nothing in it.
  U64 firstNumber = 0;
  Time firstTime = 0;
};
// Newest first, until `take` returns false.
void readPast(const std::string& path, const Past& past,
              const std::function<bool(const Event&)>& take);

struct HistoryOptions {
  U64 maxBytes = 256ull << 20;         // the oldest is dropped beyond it
  Time maxAge = 90 * 86'400 * second;  // and what is older
  Time sampleInterval = 10 * second;
};

class History {
 public:
  struct Figures {
    U64 events = 0;  // written
    U64 samples = 0;
    U64 dropped = 0;  // events
    U64 errors = 0;
    U64 bytes = 0;
    std::string lastError;
  };

  // A std::runtime_error where the file cannot be opened, or is of a newer version.
  explicit History(std::string path, HistoryOptions options = {});
  History(const History&) = delete;
  History& operator=(const History&) = delete;
  ~History();

  // By the collector's thread.
  void add(const View& view, const std::map<std::string, std::vector<Event>>& news);
  // Commits what was added; by one thread, run() or a caller's.
  void commit();
  void run();
  void stop();

  // Newest first. By any thread.
  std::vector<Event> events(const std::string& driver, const EventFilter& filter) const;
  // How many findings there were in each of `steps` equal parts of the time.
  std::vector<U64> findings(const std::string& driver, Time from, Time to, std::size_t steps) const;
  Figures figures() const;

 private:
  struct SampleRow {
    std::string driver;
    std::string object;
    std::string name;
    Time time = 0;
    double value = 0;
  };
  // Of a driver: where its log was last.
  struct Place {
    S64 id = 0;
    S64 generation = 1;
    U64 last = 0;
    Time lastTime = 0;
  };

  void addSamples(const View& view);
  void write(const std::vector<std::pair<std::string, Event>>& events,
             const std::vector<SampleRow>& samples);
  Place& placeOf(const std::string& driver);
  // False: it is kept already.
  bool advance(Place& place, const Event& event);
  void writeEvents(const std::vector<std::pair<std::string, Event>>& events);
  void writeSamples(const std::vector<SampleRow>& samples);
  void retain(Time now);
  S64 seriesOf(const SampleRow& sample);

  static constexpr std::size_t maxPending = 200'000;

  const std::string path_;
  const HistoryOptions options_;
  std::unique_ptr<Database> database_;
  // Of the thread that commits.
  std::map<std::string, Place> places_;
  std::map<std::string, S64> series_;
  Time lastRetention_ = 0;
  // Of the collector's thread.
  std::map<std::string, double> lastSamples_;
  Time lastSampleTime_ = 0;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::vector<std::pair<std::string, Event>> pendingEvents_;
  std::vector<SampleRow> pendingSamples_;
  Figures figures_;
  bool stopped_ = false;
};

}  // namespace Serve
