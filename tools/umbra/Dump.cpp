// umbra dump and why: entries of a region, and what is done with one.
#include <CLI/CLI.hpp>

#include "tools/umbra/Control.h"
#include "tools/umbra/EventLines.h"

namespace Tool {
namespace {

constexpr U64 shownWithoutRange = 64;
// Of one request: the answer comes in parts, so that the driver goes on in between.
constexpr U64 entriesTogether = 256;

// Null where the answer has no such member, or an empty one.
Json memberOf(const Json& item, const char* key) {
  const auto found = item.find(key);
  if (found == item.end() || (found->is_string() && found->get_ref<const std::string&>().empty())) {
    return nullptr;
  }
  return *found;
}

Exit dump(const Settings& settings, const std::string& region, const std::string& range,
          bool chip) {
  const ViewPtr view = theDriver(settings);
  Control control = chip ? Control::toOperate(settings, *view) : Control::toLook(settings, *view);
  const std::string path = regionPath(control, region);
  const U64 entries = entriesOf(control, path);
  const auto [first, count] = range.empty()
                                  ? std::pair<U64, U64>(0, std::min(entries, shownWithoutRange))
                                  : rangeOf(range, entries);
  Json items = Json::array();
  bool hasNames = false;
  for (U64 done = 0; done < count; done += entriesTogether) {
    const Json answer = control.ask({{"do", "dump"},
                                     {"path", path},
                                     {"first", first + done},
                                     {"count", std::min(entriesTogether, count - done)},
                                     {"chip", chip}});
    for (const Json& item : answer.value("items", Json::array())) {
      hasNames = hasNames || item.contains("name");
      items.push_back(item);
    }
  }
  std::vector<Column> columns = {
      {"entry", "ENTRY", Form::number},          {"address", "ADDRESS"}, {"expected", "EXPECTED"},
      {"actual", chip ? "ACTUAL" : "LAST READ"}, {"known", "KNOWN BY"},  {"policy", "POLICY"},
      {"differs", "DIFFERS", Form::flag}};
  if (hasNames) {
    columns.insert(columns.begin() + 1, {"name", "NAME"});
    columns.push_back({"fields", chip ? "DIFFERENCE" : "FIELDS"});
  }
  Report report;
  Table& table = report.table("items", columns);
  table.emptyIs("the region has no entries");
  U64 differences = 0;
  for (const Json& item : items) {
    const Json expected = memberOf(item, "expected");
    const Json actual = memberOf(item, "actual");
    const std::string known = knownBy(item);
    Json differs;
    if (chip && known != "unknown" && expected.is_string() && actual.is_string())
      differs = expected != actual;
    if (differs == true) ++differences;
    std::vector<Json> row = {memberOf(item, "entry"),
                             memberOf(item, "address"),
                             expected,
                             actual,
                             known,
                             memberOf(item, "policy"),
                             differs};
    if (hasNames) {
      row.insert(row.begin() + 1, memberOf(item, "name"));
      row.push_back(memberOf(item, chip ? "difference" : "fields"));
    }
    table.row(std::move(row));
  }
  report.value("region", path);
  report.value("fromChip", chip);
  report.value("entries", entries);
  report.value("first", first);
  if (chip) report.value("differences", differences);
  if (range.empty() && count < entries) {
    report.line("\n" + std::to_string(count) + " of " + std::to_string(entries) +
                " entries; a range shows others: umbra dump " + region + " 0x" + "40+64");
  }
  report.print(settings);
  return table.size() == 0 ? Exit::nothingFound : Exit::done;
}

std::optional<bool> truthOf(Control& control, const std::string& path, const char* operation,
                            const std::string& region, U64 entry) {
  const std::optional<Json> answer =
      control.askIfAllowed({{"do", "call"},
                            {"path", path + "/" + operation},
                            {"arguments", {{"chipMemory", region}, {"entry", entry}}}});
  if (!answer || !answer->contains("value") || !(*answer)["value"].is_boolean()) return {};
  return (*answer)["value"].get<bool>();
}

Json orNull(const std::optional<bool>& value) { return value ? Json(*value) : Json(); }

Exit why(const Settings& settings, const std::string& region, const std::string& entryText) {
  const ViewPtr view = theDriver(settings);
  const auto state = view->liveness().state;
  const bool isThere = state == Telemetry::Liveness::live || state == Telemetry::Liveness::stalled;
  std::string name = region.starts_with('/') ? nameOfPath(region) : region;
  const U64 entry = entryOf(entryText, ~U64{0});
  Report report;
  if (isThere) {
    Control control = Control::toDoMost(settings, *view);
    const std::string path = regionPath(control, region);
    entryOf(entryText, entriesOf(control, path));
    const Json policy = control.ask({{"do", "policyText"}, {"path", path}, {"entry", entry}});
    const Json dumped =
        control.ask({{"do", "dump"}, {"path", path}, {"first", entry}, {"count", 1}});
    const Json items = dumped.value("items", Json::array());
    const Json item = items.empty() ? Json::object() : items[0];
    const std::string shadow = shadowOfPath(path);
    const Json registerName = memberOf(item, "name");
    std::vector<Fact> facts = {{"region", "region", Form::text, path},
                               {"entry", "entry", Form::number, entry},
                               {"address", "address", Form::text, memberOf(item, "address")},
                               {"expected", "expected", Form::text, memberOf(item, "expected")},
                               {"known", "known by", Form::text, knownBy(item)},
                               {"policy", "policy", Form::text, memberOf(policy, "text")},
                               {"quarantined", "in quarantine", Form::flag,
                                orNull(truthOf(control, shadow, "isQuarantined", path, entry))},
                               {"openFinding", "has an open finding", Form::flag,
                                orNull(truthOf(control, shadow, "hasOpenFinding", path, entry))}};
    if (!registerName.is_null()) {
      facts.insert(facts.begin() + 2, {{"name", "register", Form::text, registerName},
                                       {"fields", "fields", Form::text, memberOf(item, "fields")}});
    }
    report.facts(std::move(facts));
  } else {
    report.facts({{"region", "region", Form::text, name}, {"entry", "entry", Form::number, entry}});
    report.line("The driver is " + std::string(nameOf(state)) + ": this is what its log holds.");
  }
  Json found = Json::array();
  const std::filesystem::path log = eventsOf(view->path());
  if (std::filesystem::exists(log)) {
    EventFilter filter;
    filter.region = name;
    filter.classes = {"finding"};
    const Telemetry::EventReader reader(log.string());
    for (const Telemetry::Event& event : newestEvents(reader, filter, 100'000).events) {
      if (event.entry != entry) continue;
      if (found.empty()) report.line("");
      found.push_back(eventJson(event));
      report.line(eventLine(event, settings.colour));
    }
  }
  if (found.empty()) report.line("\nThe log holds no finding of this entry.");
  const bool isNothing = found.empty() && !isThere;
  report.value("findings", std::move(found));
  report.print(settings);
  return isNothing ? Exit::nothingFound : Exit::done;
}

}  // namespace

Runner addDump(CLI::App& app) {
  struct Options {
    std::string region, range;
    bool chip = false;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("region", options->region, "a region, by name or path")
      ->required()
      ->type_name("REGION");
  app.add_option("range", options->range, "entries: FIRST, FIRST..LAST or FIRST+COUNT")
      ->type_name("RANGE");
  app.add_flag("--chip", options->chip, "read the chip as well");
  return [options](const Settings& settings) {
    return dump(settings, options->region, options->range, options->chip);
  };
}

Runner addWhy(CLI::App& app) {
  struct Options {
    std::string region, entry;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("region", options->region, "a region, by name or path")
      ->required()
      ->type_name("REGION");
  app.add_option("entry", options->entry, "its entry")->required()->type_name("ENTRY");
  return [options](const Settings& settings) {
    return why(settings, options->region, options->entry);
  };
}

}  // namespace Tool
