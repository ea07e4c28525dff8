// Looks at all drivers several times a second, and tells what changed since the last look: a frame.
//
//   Collector collector(source);
//   collector.turn();                      // or a thread that does it: collector.run(interval)
//   const View view = collector.view();    // any thread
//
// A frame is a text in JSON for the page:
//   {"frame": 7, "time": 1700000000000,
//    "drivers": [driverJson of each that changed], "gone": ["name", ...],
//    "regions": {"name": [[row, values...], ...]}, "events": {"name": [...]}}
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "tools/umbra/serve/Model.h"

namespace Serve {

struct View {
  U64 frame = 0;
  Time time = 0;
  Drivers drivers;

  // Null if there is none.
  std::shared_ptr<const Driver> driver(std::string_view name) const;
};

struct EventFilter {
  U64 since = 0;   // numbers above it
  U64 before = 0;  // numbers below it; 0: all
  std::string region;
  U32 kind = 0;  // 0: all
  U32 max = 200;

  bool takes(const Event& event) const {
    return event.number > since && (before == 0 || event.number < before) &&
           (region.empty() || event.region == region) && (kind == 0 || event.kind == kind);
  }
};

class Collector {
 public:
  // What a turn brought: the drivers, and for each its new events. For what keeps them.
  using Listener =
      std::function<void(const View&, const std::map<std::string, std::vector<Event>>&)>;

  explicit Collector(Source& source) : source_(source) {}
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  void listenerIs(Listener listener) { listener_ = std::move(listener); }

  // One look. By one thread.
  void turn();
  // Turns until stop(); `interval` between their beginnings.
  void run(Time interval);
  void stop();
  bool isStopped() const { return stopped_; }

  View view() const;
  // The newest events that are still known here, newest first.
  std::vector<Event> events(const std::string& driver, const EventFilter& filter) const;
  // Events that were overwritten before they were read.
  U64 eventsMissed() const { return eventsMissed_; }
  double longestTurn() const { return longestTurn_; }  // seconds

  // The frames after `frame`, oldest first; waits at most `wait` for one. None where there are none
  // yet, nullopt where some are no longer known or `frame` is of another time.
  std::optional<std::vector<std::string>> framesAfter(U64 frame, Time wait) const;
  // Tells two runs of a server apart: frames are counted from 1 in each.
  U64 epoch() const { return epoch_; }

 private:
  struct Known {
    std::string header;                  // driverJson without what always changes
    std::map<U32, std::string> regions;  // row and what the page shows of it
    std::map<U32, U32> sequences;        // row and its sequence number
    std::deque<Event> recent;
    U64 lastEvent = 0;
    U32 pid = 0;
    Time start = 0;
    bool seen = false;
  };
  std::vector<Event> newEvents(const Driver& driver, Known& known);

  static constexpr std::size_t recentEvents = 5000;
  static constexpr std::size_t framesKept = 64;

  Source& source_;
  Listener listener_;
  const U64 epoch_ = static_cast<U64>(wallTime() / 1'000'000);
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  View view_;
  std::map<std::string, Known, std::less<>> known_;
  std::deque<std::string> frames_;
  U64 lastFrame_ = 0;
  std::atomic<U64> eventsMissed_ = 0;
  std::atomic<double> longestTurn_ = 0;
  std::atomic<bool> stopped_ = false;
};

}  // namespace Serve
