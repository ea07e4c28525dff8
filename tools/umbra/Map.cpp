// umbra map: register maps. What they hold, what is proposed, decided and undecided, what changes
// from one to another, and a header of constants.
#ifdef UMBRA_TOOL_MAPS
#include <maps/Diff.h>
#include <maps/Import.h>
#include <maps/Overlay.h>
#include <maps/Table.h>
#include <maps/Trials.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "tools/umbra/Command.h"
#include "tools/umbra/Report.h"

namespace Tool {
namespace {

struct MapOptions {
  std::string action;
  std::vector<std::string> files;
  std::vector<std::string> overlays, oldOverlays;
  std::string space = "registers";
  std::string match;
  bool isUndecided = false;
};

struct MadePlan {
  Maps::Plan plan;
  std::vector<std::string> notes;  // of the overlays
};

MadePlan planOf(const std::string& file, const std::vector<std::string>& overlays) {
  MadePlan made{Maps::proposed(Maps::readMap(file)), {}};
  for (const std::string& overlay : overlays) {
    const auto notes = Maps::decide(made.plan, Maps::readOverlay(overlay));
    made.notes.insert(made.notes.end(), notes.begin(), notes.end());
  }
  return made;
}

const std::string& onlyFile(const MapOptions& options) {
  if (options.files.size() != 1) {
    throw Failure("map " + options.action + " takes one file", Exit::wrongUsage);
  }
  return options.files.front();
}

void addNotes(Report& report, const MadePlan& made) {
  Table& table = report.table("notes", {{"place", "PLACE"}, {"text", "NOTE"}});
  for (const Maps::Note& note : made.plan.map.notes) {
    table.row({made.plan.map.file + ":" + std::to_string(note.line), note.text});
  }
  for (const std::string& note : made.notes) {
    const std::size_t end = note.find(": ");
    table.row({note.substr(0, end), note.substr(end + 2)});
  }
}

Exit importMaps(const Settings& settings, const MapOptions& options) {
  Report report;
  Table& table = report.table("maps", {{"file", "FILE"},
                                       {"name", "CHIP"},
                                       {"format", "FORMAT"},
                                       {"registers", "REGISTERS", Form::count},
                                       {"regions", "REGIONS", Form::count},
                                       {"audited", "AUDITED", Form::count},
                                       {"undecided", "UNDECIDED", Form::count},
                                       {"notes", "NOTES", Form::count},
                                       {"seconds", "TIME", Form::duration}});
  for (const std::string& file : options.files) {
    const auto begin = std::chrono::steady_clock::now();
    const MadePlan made = planOf(file, options.overlays);
    const std::size_t regions = Maps::regionsOf(made.plan).size();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    const std::size_t registers = made.plan.map.registers.size();
    table.row({file, made.plan.map.name, made.plan.map.format, registers, regions,
               made.plan.audited(), registers - made.plan.decided(),
               made.plan.map.notes.size() + made.notes.size(), took.count()});
  }
  report.print(settings);
  return Exit::done;
}

std::string resetText(const Maps::Layout& layout) {
  if (!layout.resetValue || (layout.resetMask & layout.bits()) == 0) return "";
  return Maps::hexText(*layout.resetValue & layout.resetMask);
}

Exit showMap(const Settings& settings, const MapOptions& options) {
  const MadePlan made = planOf(onlyFile(options), options.overlays);
  const Maps::Map& map = made.plan.map;
  std::vector<std::string> regionOf(map.registers.size());
  for (const Maps::Region& region : Maps::regionsOf(made.plan)) {
    for (const U32 which : region.registers) regionOf[which] = region.name;
  }
  Report report;
  Table& table = report.table("registers", {{"name", "REGISTER"},
                                            {"address", "ADDRESS"},
                                            {"width", "BITS", Form::number},
                                            {"access", "ACCESS"},
                                            {"reset", "RESET"},
                                            {"region", "REGION"},
                                            {"policy", "POLICY"},
                                            {"reason", "WHY"}});
  table.emptyIs("no such register");
  for (std::size_t i = 0; i < map.registers.size(); ++i) {
    const Maps::Register& r = map.registers[i];
    const Maps::Choice& choice = made.plan.choices[i];
    const std::string name = map.nameOf(r);
    if (options.isUndecided && choice.rule) continue;
    if (!options.match.empty() && !Maps::matches(options.match, name)) continue;
    table.row({name, Maps::hexText(r.address), r.layout->width, Maps::tokenOf(*r.layout),
               resetText(*r.layout), regionOf[i],
               choice.rule ? Json(Maps::textOf(choice)) : Json("undecided"), choice.reason});
  }
  const bool isEmpty = table.size() == 0;
  report.print(settings);
  return isEmpty ? Exit::nothingFound : Exit::done;
}

// An overlay to begin with: what is undecided stands there as comments, each with its reason.
Exit proposeMap(const Settings& settings, const MapOptions& options) {
  const MadePlan made = planOf(onlyFile(options), options.overlays);
  const Maps::Map& map = made.plan.map;
  if (settings.json) {
    MapOptions all = options;
    all.match.clear();
    return showMap(settings, all);
  }
  std::string text = "# Decisions on the registers of " + map.name + " (" + map.file +
                     ").\n# A line that is no comment decides: BLOCK.REGISTER RULE [mask BITS "
                     "[kept|zero|shadow]] [once].\n# Lines with `#?` are undecided registers, each "
                     "with its reason: nobody audits them.\n";
  U32 block = ~U32{0};
  const Maps::Layout* layout = nullptr;
  for (std::size_t i = 0; i < map.registers.size(); ++i) {
    const Maps::Register& r = map.registers[i];
    const Maps::Choice& choice = made.plan.choices[i];
    if (choice.rule) continue;
    if (std::exchange(block, r.block) != r.block) text += "\n# " + map.blocks[r.block].name + "\n";
    // The elements of an array have one line.
    const bool isNext = r.index != Maps::notInArray && r.index != 0 && r.layout.get() == layout;
    layout = r.layout.get();
    if (isNext) continue;
    std::string name = map.nameOf(r);
    if (r.index != Maps::notInArray && r.name.ends_with("[0]")) {
      name = map.blocks[r.block].name + "." + r.array + "[*]";
    }
    text += "#? " + name + " noRead   # " + choice.reason + "\n";
  }
  write(text);
  return Exit::done;
}

Exit checkMaps(const Settings& settings, const MapOptions& options) {
  Report report;
  for (const std::string& file : options.files) addNotes(report, planOf(file, options.overlays));
  report.print(settings);
  return Exit::done;
}

Exit tryMap(const Settings& settings, const MapOptions& options) {
  const MadePlan made = planOf(onlyFile(options), options.overlays);
  Report report;
  Table& table = report.table("trials", {{"trial", "TRIAL"},
                                         {"registers", "REGISTERS", Form::count},
                                         {"skipped", "SKIPPED", Form::count},
                                         {"failed", "FAILED", Form::count}});
  Table& failures = report.table("failures", {{"register", "REGISTER"}, {"text", "FAILURE"}});
  Maps::ScratchChip chip(made.plan.map);
  U64 failed = 0;
  const auto run = [&](const char* name, auto trial) {
    const Maps::TrialResult result = trial(made.plan, chip);
    table.row({name, result.registers, result.skipped, result.failed});
    for (const Maps::Failure& failure : result.failures) {
      failures.row({failure.name, failure.text});
    }
    failed += result.failed;
  };
  run("reset values", &Maps::tryResetValues);
  run("bit-bash", &Maps::tryBitBash);
  run("access rights", &Maps::tryAccessRights);
  report.print(settings);
  return failed == 0 ? Exit::done : Exit::failed;
}

Exit diffMaps(const Settings& settings, const MapOptions& options) {
  if (options.files.size() != 2) {
    throw Failure("map diff takes two files: the old one and the new one", Exit::wrongUsage);
  }
  const MadePlan before = planOf(
      options.files[0], options.oldOverlays.empty() ? options.overlays : options.oldOverlays);
  const MadePlan after = planOf(options.files[1], options.overlays);
  Report report;
  Table& table = report.table(
      "changes",
      {{"change", "CHANGE"}, {"register", "REGISTER"}, {"before", "BEFORE"}, {"after", "AFTER"}});
  table.emptyIs("no difference");
  for (const Maps::Change& change : Maps::differences(before.plan, after.plan)) {
    table.row({Maps::textOf(change.kind), change.name, change.before, change.after});
  }
  const bool isEmpty = table.size() == 0;
  report.print(settings);
  return isEmpty ? Exit::nothingFound : Exit::done;
}

Exit printHeader(const Settings&, const MapOptions& options) {
  write(Maps::headerText(planOf(onlyFile(options), options.overlays).plan, options.space));
  return Exit::done;
}

struct MapAction {
  const char* name;
  Exit (*run)(const Settings&, const MapOptions&);
};

constexpr MapAction mapActions[] = {
    {"import", &importMaps}, {"show", &showMap},  {"propose", &proposeMap}, {"check", &checkMaps},
    {"try", &tryMap},        {"diff", &diffMaps}, {"header", &printHeader},
};

}  // namespace

Runner addMap(CLI::App& app) {
  const auto options = std::make_shared<MapOptions>();
  std::vector<std::string> names;
  for (const MapAction& action : mapActions) names.emplace_back(action.name);
  app.add_option("action", options->action, "import, show, propose, check, try, diff or header")
      ->required()
      ->check(CLI::IsMember(names))
      ->type_name("ACTION");
  app.add_option("file", options->files, "register maps: CMSIS-SVD or IP-XACT")
      ->required()
      ->type_name("FILE");
  app.add_option("--overlay", options->overlays, "decisions of a person; may be given again")
      ->take_all()
      ->expected(1)
      ->type_name("FILE");
  app.add_option("--old-overlay", options->oldOverlays,
                 "of diff, those on the old map (default: the same)")
      ->take_all()
      ->expected(1)
      ->type_name("FILE");
  app.add_option("--match", options->match, "of show, registers whose name matches alone")
      ->type_name("PATTERN");
  app.add_flag("--undecided", options->isUndecided, "of show, undecided registers alone");
  app.add_option("--namespace", options->space,
                 "of header, the namespace of its constants (default registers)")
      ->type_name("WORD");
  return [options](const Settings& settings) {
    const auto* const action =
        std::find_if(std::begin(mapActions), std::end(mapActions),
                     [&](const MapAction& one) { return one.name == options->action; });
    return action->run(settings, *options);
  };
}

}  // namespace Tool
#endif
