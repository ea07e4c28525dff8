// umbra ps: the drivers of the machine.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/umbra/Drivers.h"

namespace Tool {
namespace {

using Telemetry::Liveness;

bool isOver(const Found& driver) {
  return driver.view != nullptr &&
         (driver.liveness.state == Liveness::dead || driver.liveness.state == Liveness::ended);
}

double sumOf(const Rows& rows, std::string_view column) {
  double sum = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) sum += rows.number(i, column);
  return sum;
}

double raisedIn(const Rows& alarms) {
  double raised = 0;
  for (std::size_t i = 0; i < alarms.size(); ++i) {
    const std::string state = alarms.text(i, "state");
    if (state == "raised" || state == "acknowledged") ++raised;
  }
  return raised;
}

void addRow(Table& table, const Found& driver) {
  if (driver.view == nullptr) {
    table.row({driver.name, "unreadable", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
               nullptr, nullptr, nullptr, driver.error, driver.path.string()});
    return;
  }
  const Telemetry::LiveReader& view = *driver.view;
  const Telemetry::Heartbeat beat = view.heartbeat();
  const Rows regions(view, "region");
  const Rows alarms(view, "alarm");
  const char* const access = isOver(driver)                ? "none"
                             : !view.adminSocket().empty() ? "administer"
                             : !view.socket().empty()      ? "look"
                                                           : "none";
  table.row({driver.name, nameOf(driver.liveness.state), driver.liveness.since, view.pid(),
             beat.pointerBits, view.startTime(), regions.size(),
             static_cast<U64>(sumOf(regions, "findings")),
             static_cast<U64>(sumOf(regions, "repairs")), static_cast<U64>(raisedIn(alarms)),
             access, driver.liveness.reason, driver.path.string()});
}

void remove(const Found& driver, Table& removed) {
  // It may have been started again meanwhile.
  if (driver.view->isReplaced() ||
      !isOver(Found{driver.name, driver.path, driver.view, {}, driver.view->liveness()})) {
    return;
  }
  const std::string base = std::filesystem::path(driver.path).replace_extension().string();
  for (const char* const ending :
       {".sock", ".admin.sock", ".events", ".trace", ".trace.old", ".live"}) {
    const std::string path = base + ending;
    if (unlink(path.c_str()) == 0) {
      removed.row({path});
    } else if (errno != ENOENT) {
      throw Failure("cannot remove " + path + ": " + std::strerror(errno));
    }
  }
}

Exit clean(const Settings& settings) {
  Report report;
  Table& removed = report.table("removed", {{"path", "REMOVED"}});
  removed.emptyIs("no dead or ended driver has left anything in " + settings.directory);
  for (const Found& driver : driversIn(settings.directory)) {
    if (isOver(driver) && (settings.driver.empty() || settings.driver == driver.name)) {
      remove(driver, removed);
    }
  }
  report.print(settings);
  return Exit::done;
}

}  // namespace

Runner addPs(CLI::App& app) {
  const auto cleans = std::make_shared<bool>(false);
  app.add_flag("--clean", *cleans,
               "remove what dead and ended drivers left, their events and trace records too");
  return [cleans](const Settings& settings) {
    if (*cleans) return clean(settings);
    Report report;
    Table& table = report.table("drivers", {{"name", "DRIVER"},
                                            {"state", "STATE", Form::state},
                                            {"heartbeat", "HEARTBEAT", Form::time},
                                            {"pid", "PID", Form::number},
                                            {"bits", "BITS", Form::number},
                                            {"started", "STARTED", Form::time},
                                            {"regions", "REGIONS", Form::count},
                                            {"findings", "FINDINGS", Form::count},
                                            {"repairs", "REPAIRS", Form::count},
                                            {"alarms", "ALARMS", Form::count},
                                            {"socket", "SOCKET"},
                                            {"reason", "REASON"},
                                            {"path", "PATH"}});
    for (const Found& driver : driversIn(settings.directory)) {
      if (settings.driver.empty() || settings.driver == driver.name) addRow(table, driver);
    }
    const std::string wanted = settings.driver.empty() ? "" : " '" + settings.driver + "'";
    table.emptyIs("no driver" + wanted + " in " + settings.directory);
    report.print(settings);
    return table.size() == 0 ? Exit::nothingFound : Exit::done;
  };
}

}  // namespace Tool
