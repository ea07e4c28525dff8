// umbra trace: the trace records of a driver, and what is added to them.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>

#include "tools/umbra/EventLines.h"
#include "tools/umbra/TraceLines.h"

namespace Tool {
namespace {

using Telemetry::TraceReader;
using Telemetry::TraceRecord;

constexpr useconds_t tracePollInterval = 200'000;  // microseconds
constexpr U32 levelMost = 31;                      // a bit for each

struct TraceOptions {
  bool follow = false;
  bool all = false;
  bool old = false;
  std::size_t last = 100;
  std::string since;
  std::vector<U32> levels;

  U32 levelMask() const {
    U32 mask = levels.empty() ? ~U32{0} : 0;
    for (const U32 level : levels) mask |= U32{1} << level;
    return mask;
  }
  std::optional<S64> begin() const {
    return since.empty() ? std::optional<S64>() : momentOf(since, wallClockNow());
  }
};

volatile std::sig_atomic_t traceInterrupted = 0;

void keepSince(const TraceReader& trace, std::vector<TraceRecord>& records,
               const std::optional<S64>& begin) {
  if (!begin) return;
  std::erase_if(records,
                [&](const TraceRecord& record) { return trace.wallClockOf(record.time) < *begin; });
}

// A loss is told in both forms, on standard error: it is no record.
void tellTraceLoss(U64 overwritten, U32 torn) {
  if (overwritten > 0) std::cerr << "umbra: " << overwritten << " records were overwritten\n";
  if (torn > 0) std::cerr << "umbra: " << torn << " parts could not be read\n";
}

void writeRecord(const Settings& settings, const TraceReader& trace, const TraceRecord& record) {
  write((settings.json
             ? traceJson(trace, record).dump(-1, ' ', false, Json::error_handler_t::replace)
             : traceLine(trace, record)) +
        "\n");
}

Exit followTrace(const Settings& settings, const std::filesystem::path& path,
                 const TraceOptions& options) {
  std::signal(SIGINT, [](int) { traceInterrupted = 1; });
  std::signal(SIGTERM, [](int) { traceInterrupted = 1; });
  auto trace = std::make_unique<TraceReader>(path.string());
  TraceReader::Position position;
  std::vector<TraceRecord> first = trace->read(position, options.levelMask()).records;
  keepSince(*trace, first, options.begin());
  if (!options.all && options.since.empty()) keepNewest(first, 10);
  for (const TraceRecord& record : first) writeRecord(settings, *trace, record);
  while (traceInterrupted == 0 && std::ferror(stdout) == 0) {
    const TraceReader::Look look = trace->read(position, options.levelMask());
    tellTraceLoss(look.overwritten, look.tornParts);
    for (const TraceRecord& record : look.records) writeRecord(settings, *trace, record);
    if (!look.records.empty()) continue;
    usleep(tracePollInterval);
    if (!trace->isReplaced() || access(path.c_str(), R_OK) != 0) continue;
    trace = std::make_unique<TraceReader>(path.string());
    position = {};
  }
  return Exit::done;
}

Exit listTrace(const Settings& settings, const TraceReader& trace, const TraceOptions& options) {
  TraceReader::Position position;
  TraceReader::Look look = trace.read(position, options.levelMask());
  keepSince(trace, look.records, options.begin());
  if (!options.all && options.since.empty()) keepNewest(look.records, options.last);
  Report report;
  if (settings.json) {
    Table& table = report.table("records", traceColumns());
    for (const TraceRecord& record : look.records) table.row(traceValues(trace, record));
    report.facts({{"overwritten", "overwritten", Form::count, look.overwritten},
                  {"tornParts", "parts that could not be read", Form::count, look.tornParts},
                  {"partsLeftOut", "parts not in the file", Form::count, trace.partsLeftOut()},
                  {"formatsLeftOut", "formats left out", Form::count, trace.formatsLeftOut()}});
  } else {
    for (const TraceRecord& record : look.records) report.line(traceLine(trace, record));
  }
  report.print(settings);
  if (!settings.json) {
    tellTraceLoss(look.overwritten, look.tornParts);
    if (trace.partsLeftOut() > 0) {
      std::cerr
          << "umbra: " << trace.partsLeftOut()
          << " parts are not in the file: their threads have written nothing since the driver "
             "published, or there was no room\n";
    }
    if (trace.formatsLeftOut() > 0) {
      std::cerr << "umbra: " << trace.formatsLeftOut() << " formats are not in the file\n";
    }
  }
  return look.records.empty() ? Exit::nothingFound : Exit::done;
}

}  // namespace

std::filesystem::path traceOf(const std::filesystem::path& live) {
  return std::filesystem::path(live).replace_extension(".trace");
}

std::vector<Column> traceColumns() {
  return {{"time", "TIME", Form::time},
          {"level", "LEVEL", Form::number},
          {"line", "LINE", Form::number},
          {"text", "TEXT"}};
}

std::vector<Json> traceValues(const TraceReader& trace, const TraceRecord& record) {
  return {trace.wallClockOf(record.time), record.level,
          record.line == 0 ? Json() : Json(record.line), record.text};
}

Json traceJson(const TraceReader& trace, const TraceRecord& record) {
  const std::vector<Column> columns = traceColumns();
  const std::vector<Json> values = traceValues(trace, record);
  Json object = Json::object();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    object[columns[i].key] = jsonOf(columns[i].form, values[i]);
  }
  return object;
}

std::string traceLine(const TraceReader& trace, const TraceRecord& record, std::size_t columns) {
  return timeText(trace.wallClockOf(record.time)) + "  " + std::to_string(record.level) + "  " +
         printable(record.text, columns);
}

void keepNewest(std::vector<TraceRecord>& records, std::size_t most) {
  if (records.size() <= most) return;
  records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(most));
}

Runner addTrace(CLI::App& app) {
  const auto options = std::make_shared<TraceOptions>();
  app.add_flag("-f,--follow", options->follow, "go on with what is added, until interrupted");
  app.add_option("--level", options->levels, "those of these levels, divided by commas")
      ->delimiter(',')
      ->expected(1)
      ->take_all()
      ->check(CLI::Range(U32{0}, levelMost))
      ->type_name("LEVEL");
  app.add_option("--since", options->since,
                 "those after a time: 10m, 2h, 12:30, '2026-03-01 12:00'")
      ->type_name("TIME");
  app.add_option("-n,--last", options->last, "the newest ones (default 100)")
      ->check(CLI::Range(1, 1'000'000'000))
      ->type_name("NUMBER");
  app.add_flag("--all", options->all, "all that the file still holds");
  app.add_flag("--old", options->old, "those of the process before, where it did not end in order");
  return [options](const Settings& settings) {
    (void)options->begin();  // refused before anything is looked for
    const ViewPtr view = theDriver(settings);
    std::filesystem::path path = traceOf(view->path());
    if (options->old) path += ".old";
    if (!std::filesystem::exists(path)) {
      throw Failure("driver " + view->name() + " has no trace records (" + path.string() + ")",
                    Exit::nothingFound);
    }
    if (options->follow) return followTrace(settings, path, *options);
    return listTrace(settings, TraceReader(path.string()), *options);
  };
}

}  // namespace Tool
