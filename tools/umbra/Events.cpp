// umbra events: the event log, and what is added to it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>

#include "tools/umbra/EventLines.h"

namespace Tool {
namespace {

using Telemetry::EventReader;

constexpr useconds_t pollInterval = 200'000;  // microseconds

struct EventOptions {
  bool follow = false;
  bool all = false;
  std::size_t last = 100;
  std::string since, region;
  std::vector<std::string> classes;
};

volatile std::sig_atomic_t eventsInterrupted = 0;

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

void writeEvent(const Settings& settings, const Telemetry::Event& event) {
  write((settings.json ? eventJson(event).dump(-1, ' ', false, Json::error_handler_t::replace)
                       : eventLine(event, settings.colour)) +
        "\n");
}

// A loss is told in both forms, on standard error: it is no event.
void tellLoss(U64 overwritten, U64 torn) {
  if (overwritten > 0) std::cerr << "umbra: " << overwritten << " events were overwritten\n";
  if (torn > 0) std::cerr << "umbra: " << torn << " events were never completed\n";
}

Exit follow(const Settings& settings, const std::filesystem::path& path,
            const EventOptions& options) {
  const EventFilter filter = filterOf(options);
  auto log = std::make_unique<EventReader>(path.string());
  std::signal(SIGINT, [](int) { eventsInterrupted = 1; });
  std::signal(SIGTERM, [](int) { eventsInterrupted = 1; });
  U64 next = log->last() + 1;
  for (const Telemetry::Event& event :
       newestEvents(*log, filter, options.since.empty() && !options.all ? 10 : ~std::size_t{0})
           .events) {
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

Exit list(const Settings& settings, const EventReader& log, const EventOptions& options) {
  const Events found =
      newestEvents(log, filterOf(options),
                   options.all || !options.since.empty() ? ~std::size_t{0} : options.last);
  if (settings.json) {
    Report report;
    Table& table = report.table("events", eventColumns());
    for (const Telemetry::Event& event : found.events) table.row(eventValues(event));
    report.facts({{"last", "last", Form::number, log.last()},
                  {"overwritten", "overwritten", Form::count, found.overwritten},
                  {"torn", "torn", Form::count, found.torn},
                  {"suppressed", "suppressed", Form::count, log.suppressed()}});
    report.print(settings);
  } else {
    Report report;
    for (const Telemetry::Event& event : found.events) {
      report.line(eventLine(event, settings.colour));
    }
    report.print(settings);
    tellLoss(found.overwritten, found.torn);
    if (log.suppressed() > 0)
      std::cerr << "umbra: " << log.suppressed() << " events were suppressed\n";
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
  app.add_option("-n,--last", options->last, "the newest ones (default 100)")->type_name("NUMBER");
  app.add_flag("--all", options->all, "all that the log still holds");
  return [options](const Settings& settings) {
    filterOf(*options);
    const ViewPtr view = theDriver(settings);
    const std::filesystem::path path = eventsOf(view->path());
    if (!std::filesystem::exists(path)) {
      throw Failure("driver " + view->name() + " has no event log (" + path.string() + ")",
                    Exit::nothingFound);
    }
    if (options->follow) return follow(settings, path, *options);
    return list(settings, EventReader(path.string()), *options);
  };
}

}  // namespace Tool
