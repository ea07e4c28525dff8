// umbra events: the event log, and what is added to it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>

#include "tools/umbra/EventLines.h"
#ifdef UMBRA_TOOL_SERVE
#include "tools/umbra/serve/History.h"
#endif

namespace Tool {
namespace {

using Telemetry::EventReader;

constexpr useconds_t pollInterval = 200'000;  // microseconds

#ifdef UMBRA_TOOL_SERVE
constexpr std::size_t longestRegion = 47;  // bytes that a record holds of a region's name
#endif

struct EventOptions {
  bool follow = false;
  bool all = false;
  std::optional<std::size_t> last;
  std::string since, region, history;
  std::vector<std::string> classes;
};

volatile std::sig_atomic_t eventsInterrupted = 0;

// How many are wanted, where nothing else limits them to `usual`.
std::size_t mostOf(const EventOptions& options, std::size_t usual) {
  if (options.last) return *options.last;
  return options.all || !options.since.empty() ? ~std::size_t{0} : usual;
}

EventFilter filterOf(const EventOptions& options) {
  EventFilter filter;
  if (!options.since.empty()) filter.since = momentOf(options.since, wallClockNow());
  filter.region = options.region;
  const std::vector<std::string> known = eventClasses();
  for (const std::string& word : options.classes) {
    if (std::find(known.begin(), known.end(), word) == known.end()) {
      std::string names;
      for (const std::string& one : known) names += (names.empty() ? "" : ", ") + one;
      throw Failure("no class '" + word + "' of events; there is " + names, Exit::wrongUsage);
    }
    filter.classes.push_back(word);
  }
  return filter;
}

#ifdef UMBRA_TOOL_SERVE
Telemetry::Event eventOfHistory(const Serve::Event& from) {
  Telemetry::Event event;
  event.kind = static_cast<Telemetry::EventKind>(from.kind);
  event.number = from.number;
  event.monotonic = from.time;
  event.wallClock = from.wall;
  event.verdict = static_cast<U32>(from.verdict);
  event.nature = static_cast<U32>(from.nature);
  event.entry = from.entry;
  event.entrySize = from.entrySize;
  event.uid = from.uid;
  event.pid = from.pid;
  event.region = from.region;
  event.regionIsCut = from.region.size() == longestRegion;
  event.chip = from.chip;
  event.expected = from.expected;
  event.actual = from.actual;
  event.text = from.text;
  return event;
}
#endif

// Sets before `events` what the history holds from before the log, oldest first, until there are
// `most`. `log`: null where there is none.
void addPast(const EventOptions& options, const std::string& driver, const EventReader* log,
             std::size_t most, std::vector<Telemetry::Event>& events) {
  if (options.history.empty() || events.size() >= most) return;
#ifdef UMBRA_TOOL_SERVE
  const EventFilter filter = filterOf(options);
  Serve::Past past{.driver = driver};
  if (filter.since) past.since = *filter.since;
  const EventReader::Batch oldest =
      log == nullptr ? EventReader::Batch{} : log->read(log->first(), 1);
  if (!oldest.events.empty()) {
    past.firstNumber = oldest.events.front().number;
    past.firstTime = oldest.events.front().wallClock;
    if (past.firstNumber == 1 && past.since >= past.firstTime) return;
  }
  std::vector<Telemetry::Event> found;
  Serve::readPast(options.history, past, [&](const Serve::Event& event) {
    Telemetry::Event one = eventOfHistory(event);
    if (filter.takes(one)) found.push_back(std::move(one));
    return found.size() + events.size() < most;
  });
  events.insert(events.begin(), std::make_move_iterator(found.rbegin()),
                std::make_move_iterator(found.rend()));
#endif
}

void writeEvent(const Settings& settings, const Telemetry::Event& event) {
  write((settings.json ? eventJson(event).dump(-1, ' ', false, Json::error_handler_t::replace)
                       : eventLine(event, settings.colour)) +
        "\n");
}

// A loss is told in both forms, on standard error: it is no event.
void tellLoss(U64 overwritten, U64 torn) {
  if (overwritten > 0) std::cerr << "umbra: " << overwritten << " events were overwritten\n";
  if (torn > 0)
    std::cerr << "umbra: " << torn
              << " events are missing: their writer died in them, or their file was removed\n";
}

Exit follow(const Settings& settings, const std::filesystem::path& path,
            const EventOptions& options, const std::string& driver) {
  const EventFilter filter = filterOf(options);
  auto log = std::make_unique<EventReader>(path.string());
  std::signal(SIGINT, [](int) { eventsInterrupted = 1; });
  std::signal(SIGTERM, [](int) { eventsInterrupted = 1; });
  U64 next = log->last() + 1;
  std::vector<Telemetry::Event> newest = newestEvents(*log, filter, mostOf(options, 10)).events;
  addPast(options, driver, log.get(), mostOf(options, 10), newest);
  for (const Telemetry::Event& event : newest) {
    if (event.number < next) writeEvent(settings, event);
  }
  while (eventsInterrupted == 0 && std::ferror(stdout) == 0) {
    const EventReader::Batch batch = log->read(next, 1000);
    for (const Telemetry::Event& event : batch.events) {
      if (filter.takes(event)) writeEvent(settings, event);
    }
    tellLoss(batch.overwritten, batch.missing);
    const bool isIdle = batch.next == next;
    next = batch.next;
    if (!isIdle) continue;
    usleep(pollInterval);
    if (!log->isReplaced() || access(path.c_str(), R_OK) != 0) continue;
    log = std::make_unique<EventReader>(path.string());
    next = std::max<U64>(log->first(), 1);
  }
  return Exit::done;
}

// `log`: null where there is none.
Exit list(const Settings& settings, const EventReader* log, const EventOptions& options,
          const std::string& driver) {
  const std::size_t most = mostOf(options, 100);
  Events found;
  if (log != nullptr) found = newestEvents(*log, filterOf(options), most);
  addPast(options, driver, log, most, found.events);
  const U64 suppressed = log == nullptr ? 0 : log->suppressed();
  if (settings.json) {
    Report report;
    Table& table = report.table("events", eventColumns());
    for (const Telemetry::Event& event : found.events) table.row(eventValues(event));
    report.facts({{"last", "last", Form::number, log == nullptr ? 0 : log->last()},
                  {"overwritten", "overwritten", Form::count, found.overwritten},
                  {"torn", "torn", Form::count, found.torn},
                  {"suppressed", "suppressed", Form::count, suppressed}});
    report.print(settings);
  } else {
    Report report;
    for (const Telemetry::Event& event : found.events) {
      report.line(eventLine(event, settings.colour));
    }
    report.print(settings);
    // Of a history nobody knows what it never held.
    tellLoss(options.history.empty() ? found.overwritten : 0, found.torn);
    if (suppressed > 0) std::cerr << "umbra: " << suppressed << " events were suppressed\n";
  }
  return found.events.empty() ? Exit::nothingFound : Exit::done;
}

}  // namespace

Runner addEvents(CLI::App& app) {
  const auto options = std::make_shared<EventOptions>();
  app.add_flag("-f,--follow", options->follow, "go on with what is added, until interrupted");
  app.add_option("--since", options->since,
                 "those after a time: 10m, 2h, 12:30, '2026-03-01 12:00'")
      ->type_name("TIME");
  app.add_option("--region", options->region, "those of one region")->type_name("REGION");
  app.add_option(
         "--class", options->classes,
         "those of these kinds, verdicts or natures, divided by commas: finding,alarm,stuck")
      ->delimiter(',')
      ->expected(1)
      ->take_all()
      ->type_name("CLASS");
  app.add_option("-n,--last", options->last,
                 "the newest ones (default 100, or all with --since and --all)")
      ->check(CLI::Range(1, 1'000'000'000))
      ->type_name("NUMBER");
  app.add_flag("--all", options->all, "all that the log still holds");
#ifdef UMBRA_TOOL_SERVE
  app.add_option("--history", options->history,
                 "the file that umbra serve keeps: for events that the log no longer holds, and "
                 "with --driver for a driver that has left nothing else")
      ->envname("UMBRA_HISTORY")
      ->type_name("FILE");
#endif
  return [options](const Settings& settings) {
    filterOf(*options);
    ViewPtr view;
    try {
      view = theDriver(settings);
    } catch (const Failure& failure) {
      const bool isInHistory = !options->history.empty() && !options->follow &&
                               !settings.driver.empty() && failure.exit == Exit::nothingFound;
      if (!isInHistory) throw;
      return list(settings, nullptr, *options, settings.driver);
    }
    const std::filesystem::path path = eventsOf(view->path());
    if (!std::filesystem::exists(path)) {
      if (!options->history.empty() && !options->follow) {
        return list(settings, nullptr, *options, view->name());
      }
      throw Failure("driver " + view->name() + " has no event log (" + path.string() + ")",
                    Exit::nothingFound);
    }
    if (options->follow) return follow(settings, path, *options, view->name());
    const EventReader log(path.string());
    return list(settings, &log, *options, view->name());
  };
}

}  // namespace Tool
