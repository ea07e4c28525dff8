// umbra post-mortem: all that a driver left.
#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/umbra/EventLines.h"
#include "tools/umbra/Show.h"
#include "tools/umbra/TraceLines.h"

namespace Tool {
namespace {

using Telemetry::EventKind;

// Any of a driver's files, or what they are called without their ending.
std::filesystem::path liveViewOf(const std::string& file) {
  std::filesystem::path path = file;
  if (path.extension() == ".events" || path.extension() == ".trace")
    path.replace_extension(".live");
  if (path.extension() != ".live") path += ".live";
  return path;
}

void addEvents(Report& report, const std::filesystem::path& path, std::size_t most, bool colour) {
  if (!std::filesystem::exists(path)) {
    report.value("events", Json::array());
    report.line("\nThere is no event log " + path.string() + ".");
    return;
  }
  const Telemetry::EventReader log(path.string());
  const Events assertions = newestEvents(log, {{}, {}, {"assertion"}}, 1);
  if (!assertions.events.empty() && assertions.events.front().pid == Telemetry::nobody) {
    report.facts({{"assertion", "assertion", Form::text, assertions.events.front().text},
                  {"assertionTime", "at", Form::time, assertions.events.front().wallClock}});
  }
  const Events found = newestEvents(log, {}, most);
  report.facts({{"lastEvent", "events so far", Form::count, log.last()},
                {"overwritten", "overwritten", Form::count, found.overwritten},
                {"tornEvents", "never completed", Form::count, found.torn},
                {"suppressed", "suppressed", Form::count, log.suppressed()}});
  Json all = Json::array();
  report.line("");
  for (const Telemetry::Event& event : found.events) {
    all.push_back(eventJson(event));
    report.line(eventLine(event, colour));
  }
  report.value("events", std::move(all));
}

// A long one is cut: `umbra trace` shows it whole.
void addTraceRecords(Report& report, const std::filesystem::path& path, std::size_t most) {
  constexpr std::size_t widest = 160;
  Json all = Json::array();
  if (std::filesystem::exists(path)) {
    const Telemetry::TraceReader trace(path.string());
    Telemetry::TraceReader::Position position;
    Telemetry::TraceReader::Look look = trace.read(position);
    keepNewest(look.records, most);
    if (!look.records.empty()) report.line("\nlast trace records");
    for (const Telemetry::TraceRecord& record : look.records) {
      all.push_back(traceJson(trace, record));
      report.line(traceLine(trace, record, widest));
    }
    report.facts({{"tornTraceParts", "torn trace parts", Form::count, look.tornParts}});
  }
  report.value("trace", std::move(all));
}

std::size_t addTorn(Report& report, const Telemetry::LiveReader& view) {
  std::size_t torn = 0;
  for (const Telemetry::Table& table : view.tables()) {
    const Rows rows(view, table.name);
    for (std::size_t i = 0; i < rows.size(); ++i) torn += rows.isTorn(i) ? 1 : 0;
  }
  report.facts({{"tornRows", "torn rows", Form::count, torn}});
  return torn;
}

}  // namespace

Runner addPostMortem(CLI::App& app) {
  struct Options {
    std::string file;
    std::size_t last = 30;
    bool all = false;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("file", options->file,
                 "its live view, its event log, its trace, or their name without ending")
      ->required()
      ->type_name("FILE");
  app.add_option("-n,--last", options->last, "events and trace records to show (default 30)")
      ->check(CLI::Range(1, 1'000'000'000))
      ->type_name("NUMBER");
  app.add_flag("--all", options->all, "regions without findings, too");
  return [options](const Settings& settings) {
    const std::filesystem::path path = liveViewOf(options->file);
    if (!std::filesystem::exists(path)) {
      const bool isOther = std::filesystem::exists(options->file);
      throw Failure(isOther
                        ? options->file + ": neither a live view (.live) nor an event log (.events)"
                        : path.string() + ": no such live view",
                    Exit::nothingFound);
    }
    const Telemetry::LiveReader view(path.string());
    Report report;
    addHead(report, view);
    addTorn(report, view);
    addShadows(report, view);
    addChips(report, view);
    addAlarms(report, view);
    addRegions(report, view, !options->all);
    addEvents(report, eventsOf(path), options->last, settings.colour);
    addTraceRecords(report, traceOf(path), options->last);
    report.print(settings);
    const auto state = view.liveness().state;
    if (state == Telemetry::Liveness::live || state == Telemetry::Liveness::stalled) {
      std::cerr << "umbra: the process is still there: this is what it shows now\n";
    }
    return Exit::done;
  };
}

}  // namespace Tool
