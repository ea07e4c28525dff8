// umbra pause, resume, audit-now, replay and ack: what changes a running driver.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "tools/umbra/Control.h"

namespace Tool {
namespace {

constexpr const char* auditedShadow = "Driver::AuditedShadow";
constexpr const char* replayedChip = "chip that can be replayed";
// One call: a turn of the driver's loop.
constexpr U64 auditedTogether = 256;

std::vector<std::string> chosenOf(Control& control, const std::string& type, const char* kind,
                                  const std::string& wanted) {
  std::vector<std::string> all = objectsOf(control, type);
  if (!wanted.empty()) {
    const std::string path = wanted.starts_with('/') ? wanted : "/" + wanted;
    if (std::find(all.begin(), all.end(), path) != all.end()) return {path};
    std::string names;
    for (const std::string& one : all) names += (names.empty() ? "" : ", ") + one;
    throw Failure("no " + std::string(kind) + " '" + wanted + "'; there is " +
                      (names.empty() ? "none" : names),
                  Exit::nothingFound);
  }
  if (all.empty()) {
    throw Failure("the driver has no " + std::string(kind) + " (umbra console -c ls: what it has)",
                  Exit::nothingFound);
  }
  return all;
}

Runner addPaused(CLI::App& app, bool isPaused) {
  const auto shadow = std::make_shared<std::string>();
  app.add_option("--shadow", *shadow, "one shadow alone, by name")->type_name("SHADOW");
  return [shadow, isPaused](const Settings& settings) {
    Control control = Control::toOperate(settings, *theDriver(settings));
    Report report;
    Table& table =
        report.table("shadows", {{"shadow", "SHADOW"}, {"paused", "PAUSED", Form::flag}});
    for (const std::string& path : chosenOf(control, auditedShadow, "audited shadow", *shadow)) {
      control.ask({{"do", "set"}, {"path", path + "/paused"}, {"value", isPaused}});
      table.row({path, isPaused});
    }
    report.print(settings);
    return Exit::done;
  };
}

struct Audited {
  U64 entries = 0, differences = 0, repairs = 0, adopted = 0;
  std::string reason;  // why it ended early
};

void add(Audited& sum, const std::string& text) {
  unsigned long long entries = 0, differences = 0, repairs = 0, adopted = 0;
  const std::size_t begin = text.find(", ");
  const std::size_t numbers = text.rfind(" entries, ");
  const std::size_t at = numbers == std::string::npos ? begin : text.rfind(", ", numbers - 1);
  if (at == std::string::npos ||
      std::sscanf(text.c_str() + at, ", %llu entries, %llu differences, %llu repairs, %llu adopted",
                  &entries, &differences, &repairs, &adopted) != 4) {
    throw Failure("an audit answered: " + text);
  }
  sum.entries += entries;
  sum.differences += differences;
  sum.repairs += repairs;
  sum.adopted += adopted;
  constexpr std::string_view early = "ended early: ";
  const std::size_t reason = text.find(early);
  if (reason != std::string::npos) {
    sum.reason = text.substr(reason + early.size(), at - reason - early.size());
  }
}

Audited audited(Control& control, const std::string& region, U64 first, U64 count) {
  Audited sum;
  for (U64 done = 0; done < count && sum.reason.empty(); done += auditedTogether) {
    const Json answer = control.ask({{"do", "call"},
                                     {"path", shadowOfPath(region) + "/doAudit"},
                                     {"arguments",
                                      {{"chipMemory", region},
                                       {"first", first + done},
                                       {"count", std::min(auditedTogether, count - done)}}}});
    add(sum, answer.value("text", std::string()));
  }
  return sum;
}

std::vector<std::string> auditedRegions(Control& control) {
  std::vector<std::string> paths;
  for (const std::string& shadow : objectsOf(control, auditedShadow)) {
    const Json all = control.ask({{"do", "list"}, {"path", shadow + "/chipMemory"}});
    for (const Json& item : all.value("items", Json::array())) {
      const std::string key = item.value("key", std::string());
      const std::string path = shadow + "/chipMemory/" + item.value("name", key);
      const auto answer = control.askIfAllowed({{"do", "get"}, {"path", path + "/auditEnabled"}});
      if (answer && answer->value("value", Json()) == true) paths.push_back(path);
    }
  }
  return paths;
}

Exit auditNow(const Settings& settings, const std::string& region, const std::string& range) {
  Control control = Control::toOperate(settings, *theDriver(settings));
  const std::vector<std::string> regions =
      region.empty() ? auditedRegions(control) : std::vector{regionPath(control, region)};
  Report report;
  Table& table = report.table("regions", {{"region", "REGION"},
                                          {"entries", "ENTRIES", Form::count},
                                          {"differences", "DIFFERENCES", Form::count},
                                          {"repairs", "REPAIRS", Form::count},
                                          {"adopted", "ADOPTED", Form::count},
                                          {"reason", "ENDED EARLY"}});
  table.emptyIs("no region is under audit");
  bool isComplete = true;
  for (const std::string& path : regions) {
    const U64 entries = entriesOf(control, path);
    const auto [first, count] =
        range.empty() ? std::pair<U64, U64>(0, entries) : rangeOf(range, entries);
    const Audited sum = audited(control, path, first, count);
    isComplete = isComplete && sum.reason.empty();
    table.row({path, sum.entries, sum.differences, sum.repairs, sum.adopted,
               sum.reason.empty() ? Json() : Json(sum.reason)});
  }
  report.print(settings);
  if (table.size() == 0) return Exit::nothingFound;
  return isComplete ? Exit::done : Exit::failed;
}

Exit showPlan(const Settings& settings, Control& control) {
  Report report;
  Json plans = Json::array();
  for (const std::string& shadow : chosenOf(control, auditedShadow, "audited shadow", {})) {
    const Json plan = control.ask({{"do", "plan"}, {"path", shadow}});
    report.line(shadow);
    Json items = plan.value("items", Json::array());
    for (const Json& item : items) report.line("  " + textOf(Form::text, item));
    if (items.empty()) report.line("  nothing to write");
    plans.push_back({{"shadow", shadow}, {"items", std::move(items)}});
  }
  report.value("plans", std::move(plans));
  report.print(settings);
  return Exit::done;
}

Exit replay(const Settings& settings, Control& control, const std::string& chip) {
  const std::vector<std::string> chips = chosenOf(control, "Driver::Chip", replayedChip, chip);
  if (chips.size() > 1) {
    std::string names;
    for (const std::string& one : chips) names += (names.empty() ? "" : ", ") + one;
    throw Failure("which chip? there is " + names, Exit::wrongUsage);
  }
  control.ask({{"do", "call"}, {"path", chips.front() + "/doChipReset"}});
  Report report;
  report.facts(
      {{"chip", "chip", Form::text, chips.front()}, {"state", "state", Form::state, "restoring"}});
  report.print(settings);
  return Exit::done;
}

Exit acknowledge(const Settings& settings, const std::string& wanted, bool all) {
  const ViewPtr view = theDriver(settings);
  Control control = Control::toOperate(settings, *view);
  Report report;
  Table& table = report.table("alarms", {{"board", "BOARD"}, {"alarm", "ACKNOWLEDGED"}});
  table.emptyIs("no alarm is raised");
  for (const std::string& board : chosenOf(control, "Driver::AlarmBoard", "alarm board", {})) {
    const Json alarms = control.ask({{"do", "list"}, {"path", board + "/alarm"}});
    for (const Json& item : alarms.value("items", Json::array())) {
      const std::string key = item.value("key", std::string());
      const bool isWanted = all || key == wanted || key == quoted(wanted);
      if (!isWanted) continue;
      const std::string path = board + "/alarm/" + item.value("name", key);
      const auto state = control.askIfAllowed({{"do", "get"}, {"path", path + "/state"}});
      if (all && state && state->value("value", Json()) != "raised") continue;
      control.ask(
          {{"do", "call"}, {"path", board + "/doAcknowledge"}, {"arguments", {{"name", key}}}});
      table.row({board, key});
    }
  }
  if (table.size() == 0 && !all) {
    throw Failure("no alarm '" + wanted + "'; umbra show lists the alarms", Exit::nothingFound);
  }
  report.print(settings);
  return table.size() == 0 ? Exit::nothingFound : Exit::done;
}

}  // namespace

Runner addPause(CLI::App& app) { return addPaused(app, true); }
Runner addResume(CLI::App& app) { return addPaused(app, false); }

Runner addAuditNow(CLI::App& app) {
  struct Options {
    std::string region, range;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("region", options->region, "a region, by name or path")->type_name("REGION");
  app.add_option("range", options->range, "entries: FIRST, FIRST..LAST or FIRST+COUNT")
      ->type_name("RANGE");
  return [options](const Settings& settings) {
    return auditNow(settings, options->region, options->range);
  };
}

Runner addReplay(CLI::App& app) {
  struct Options {
    std::string chip;
    bool plan = false;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("chip", options->chip, "the chip (default: the only one)")->type_name("CHIP");
  app.add_flag("--plan", options->plan, "show what would be written, and change nothing");
  return [options](const Settings& settings) {
    Control control = Control::toOperate(settings, *theDriver(settings));
    return options->plan ? showPlan(settings, control) : replay(settings, control, options->chip);
  };
}

Runner addAck(CLI::App& app) {
  struct Options {
    std::string alarm;
    bool all = false;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("alarm", options->alarm, "the alarm, by name")->type_name("ALARM");
  app.add_flag("--all", options->all, "all that are raised");
  return [options](const Settings& settings) {
    if (options->all == options->alarm.empty())
      return acknowledge(settings, options->alarm, options->all);
    throw Failure("ack takes the name of an alarm, or --all", Exit::wrongUsage);
  };
}

}  // namespace Tool
