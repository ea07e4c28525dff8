// umbra show: what a driver's live view holds.
#include <CLI/CLI.hpp>

#include "tools/umbra/Drivers.h"
#include "tools/umbra/Show.h"

namespace Tool {
namespace {

using Telemetry::Column;

// All columns of one row, with what they mean.
void addRow(Report& report, const Rows& rows, std::size_t at) {
  std::vector<Fact> facts;
  // The names live as long as the view does.
  for (const Column& column : rows.table()->columns) {
    facts.push_back(
        {column.name.c_str(), column.name.c_str(), formOf(column), rows.value(at, column)});
  }
  facts.push_back({"torn", "torn", Form::flag, rows.isTorn(at)});
  report.facts(std::move(facts));
}

Exit showObject(const Settings& settings, const Telemetry::LiveReader& view,
                const std::string& name) {
  bool isFound = false;
  Report report;
  for (const Telemetry::Table& table : view.tables()) {
    const Rows rows(view, table.name);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows.holds(i, "name", name)) continue;
      if (isFound) report.line("");
      report.value("table", table.name);
      addRow(report, rows, i);
      isFound = true;
    }
  }
  if (!isFound) {
    throw Failure("nothing is called '" + name + "' in driver " + view.name() +
                      "; umbra show lists what there is",
                  Exit::nothingFound);
  }
  report.print(settings);
  return Exit::done;
}

void addColumns(std::vector<::Tool::Column>& columns, const Telemetry::Table& table) {
  for (const Column& column : table.columns) {
    columns.push_back({column.name.c_str(), column.name.c_str(), formOf(column)});
  }
}

Exit showTable(const Settings& settings, const Telemetry::LiveReader& view,
               const std::string& name) {
  const Telemetry::Table* const table = view.find(name);
  if (table == nullptr) {
    std::string names;
    for (const Telemetry::Table& one : view.tables())
      names += (names.empty() ? "" : ", ") + one.name;
    throw Failure("no table '" + name + "'; there is " + names, Exit::nothingFound);
  }
  Report report;
  std::vector<::Tool::Column> columns;
  addColumns(columns, *table);
  columns.push_back({"torn", "torn", Form::flag});
  Table& shown = report.table(name, columns);
  const Rows rows(view, name);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::vector<Json> values;
    for (const Column& column : table->columns) values.push_back(rows.value(i, column));
    values.emplace_back(rows.isTorn(i));
    shown.row(std::move(values));
  }
  report.print(settings);
  return shown.size() == 0 ? Exit::nothingFound : Exit::done;
}

}  // namespace

void addHead(Report& report, const Telemetry::LiveReader& view) {
  const Telemetry::Heartbeat beat = view.heartbeat();
  const Telemetry::Liveness liveness = view.liveness();
  report.facts(
      {{"driver", "driver", Form::text, view.name()},
       {"state", "state", Form::state, nameOf(liveness.state)},
       {"since", "last heartbeat", Form::time, liveness.since},
       {"reason", "reason", Form::text, liveness.reason.empty() ? Json() : Json(liveness.reason)},
       {"pid", "process", Form::number, view.pid()},
       {"bits", "bits", Form::number, beat.pointerBits},
       {"started", "started", Form::time, view.startTime()},
       {"heartbeats", "heartbeats", Form::count, beat.count},
       {"notFit", "without a row", Form::count, beat.notFit},
       {"socket", "socket", Form::text, view.socket().empty() ? Json() : Json(view.socket())},
       {"adminSocket", "admin socket", Form::text,
        view.adminSocket().empty() ? Json() : Json(view.adminSocket())}});
}

void addShadows(Report& report, const Telemetry::LiveReader& view) {
  Table& table = report.table("shadows", {{"name", "SHADOW"},
                                          {"state", "STATE", Form::state},
                                          {"patrol", "PATROL", Form::state},
                                          {"reason", "REASON"},
                                          {"done", "DONE", Form::count},
                                          {"entries", "ENTRIES", Form::count},
                                          {"lastPass", "LAST PASS", Form::time},
                                          {"findings", "FINDINGS", Form::count},
                                          {"repairs", "REPAIRS", Form::count},
                                          {"quarantined", "QUARANTINED", Form::count},
                                          {"torn", "TORN", Form::flag}});
  table.emptyIs("no shadow");
  const Rows rows(view, "shadow");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    table.row({rows.value(i, "name"), rows.value(i, "state"), rows.value(i, "patrolState"),
               rows.value(i, "patrolReason"), rows.value(i, "passEntriesDone"),
               rows.value(i, "passEntries"), rows.value(i, "lastPassTime"),
               rows.value(i, "findings"), rows.value(i, "repairs"), rows.value(i, "quarantined"),
               rows.isTorn(i)});
  }
}

void addChips(Report& report, const Telemetry::LiveReader& view) {
  const Rows rows(view, "chip");
  Table& table = report.table("chips", {{"name", "CHIP"},
                                        {"state", "STATE", Form::state},
                                        {"reason", "REASON"},
                                        {"absences", "ABSENCES", Form::count},
                                        {"resets", "RESETS", Form::count},
                                        {"findings", "FINDINGS", Form::count},
                                        {"torn", "TORN", Form::flag}});
  table.emptyIs("no chip");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const char* const state = rows.number(i, "isAbsent") != 0      ? "absent"
                              : rows.number(i, "isRestoring") != 0 ? "restoring"
                                                                   : "present";
    table.row({rows.value(i, "name"), state, rows.value(i, "reason"), rows.value(i, "absences"),
               rows.value(i, "resets"), rows.value(i, "findings"), rows.isTorn(i)});
  }
}

void addAlarms(Report& report, const Telemetry::LiveReader& view) {
  const Rows rows(view, "alarm");
  Table& table = report.table("alarms", {{"name", "ALARM"},
                                         {"state", "STATE", Form::state},
                                         {"findings", "FINDINGS", Form::count},
                                         {"raises", "RAISES", Form::count},
                                         {"raised", "RAISED", Form::time},
                                         {"acknowledged", "ACKNOWLEDGED", Form::time},
                                         {"cleared", "CLEARED", Form::time},
                                         {"torn", "TORN", Form::flag}});
  table.emptyIs("no alarm");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    table.row({rows.value(i, "name"), rows.value(i, "state"), rows.value(i, "findings"),
               rows.value(i, "raises"), rows.value(i, "raisedTime"),
               rows.value(i, "acknowledgedTime"), rows.value(i, "clearedTime"), rows.isTorn(i)});
  }
}

void addRegions(Report& report, const Telemetry::LiveReader& view, bool onlyDamaged) {
  const Rows rows(view, "region");
  Table& table = report.table("regions", {{"name", "REGION"},
                                          {"shadow", "SHADOW"},
                                          {"chip", "CHIP"},
                                          {"address", "ADDRESS"},
                                          {"mode", "MODE", Form::state},
                                          {"findings", "FINDINGS", Form::count},
                                          {"repairs", "REPAIRS", Form::count},
                                          {"lastMinute", "1 MIN", Form::count},
                                          {"lastHour", "1 H", Form::count},
                                          {"lastFinding", "LAST FINDING", Form::time},
                                          {"since", "COUNTED SINCE", Form::time},
                                          {"torn", "TORN", Form::flag}});
  table.emptyIs(onlyDamaged ? "no region with findings" : "no region");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (onlyDamaged && rows.number(i, "findings") == 0 && !rows.isTorn(i)) continue;
    table.row({rows.value(i, "name"), rows.value(i, "shadow"), rows.value(i, "chip"),
               addressOf(rows.text(i, "address"), 0, 0), rows.value(i, "mode"),
               rows.value(i, "findings"), rows.value(i, "repairs"), rows.value(i, "findingsIn1m"),
               rows.value(i, "findingsIn1h"), rows.value(i, "lastFindingTime"),
               rows.value(i, "since"), rows.isTorn(i)});
  }
}

Runner addShow(CLI::App& app) {
  struct Options {
    std::string name, table;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("name", options->name, "one object alone, with all that is known of it")
      ->type_name("REGION");
  app.add_option("--table", options->table, "all columns of one table")->type_name("TABLE");
  return [options](const Settings& settings) {
    const ViewPtr view = theDriver(settings);
    if (!options->name.empty()) return showObject(settings, *view, options->name);
    if (!options->table.empty()) return showTable(settings, *view, options->table);
    Report report;
    addHead(report, *view);
    addShadows(report, *view);
    addChips(report, *view);
    addAlarms(report, *view);
    addRegions(report, *view, false);
    report.print(settings);
    return Exit::done;
  };
}

}  // namespace Tool
