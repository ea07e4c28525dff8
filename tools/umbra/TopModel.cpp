#include "tools/umbra/TopModel.h"

#include <algorithm>

namespace Tool {
namespace {

std::optional<S64> momentIn(const Rows& rows, std::size_t at, std::string_view column) {
  const Json value = rows.value(at, column);
  return value.is_number_integer() ? std::optional(value.get<S64>()) : std::nullopt;
}

std::optional<double> secondsIn(const Rows& rows, std::size_t at, std::string_view column) {
  const Json value = rows.value(at, column);
  return value.is_number() ? std::optional(value.get<double>()) : std::nullopt;
}

U64 countIn(const Rows& rows, std::size_t at, std::string_view column) {
  return static_cast<U64>(rows.number(at, column));
}

// The governor of a shadow: named by a column, or the only one of the only shadow.
std::size_t governorOf(const Rows& governors, const std::string& shadow, bool isOnlyShadow) {
  const std::size_t at = governors.find("shadow", shadow);
  return at == governors.size() && isOnlyShadow && governors.size() == 1 ? 0 : at;
}

U64 sumOver(const std::vector<TopRegion>& regions, U64 TopRegion::*figure) {
  U64 sum = 0;
  for (const TopRegion& region : regions) sum += region.*figure;
  return sum;
}

Json orNull(const std::optional<double>& value) { return value ? Json(*value) : Json(); }

}  // namespace

void TopModel::viewIs(ViewPtr view) {
  view_ = std::move(view);
  seen_.clear();
  update();
}

void TopModel::update() {
  if (view_->isReplaced() && std::filesystem::exists(view_->path())) {
    try {
      view_ = std::make_shared<Telemetry::LiveReader>(view_->path());
    } catch (const std::exception&) {
      // It is looked for again at the next update.
    }
  }
  const Telemetry::Heartbeat beat = view_->heartbeat();
  const Telemetry::Liveness liveness = view_->liveness();
  driver_ = view_->name();
  liveness_ = nameOf(liveness.state);
  livenessText_ = Tool::livenessText(liveness);
  pid_ = view_->pid();
  pointerBits_ = beat.pointerBits;
  notFit_ = beat.notFit;
  uptime_ = static_cast<double>(beat.wallClock - view_->startTime()) * 1e-9;

  regions_.clear();
  const Rows regions(*view_, "region");
  for (std::size_t i = 0; i < regions.size(); ++i) {
    regions_.push_back({regions.text(i, "name"), regions.text(i, "shadow"), regions.text(i, "chip"),
                        regions.text(i, "mode"), countIn(regions, i, "findings"),
                        countIn(regions, i, "repairs"), countIn(regions, i, "findingsIn1m"),
                        countIn(regions, i, "findingsIn1h"),
                        momentIn(regions, i, "lastFindingTime"), regions.isTorn(i)});
  }
  updatePasses(beat.monotonic);

  alarms_.clear();
  const Rows alarms(*view_, "alarm");
  for (std::size_t i = 0; i < alarms.size(); ++i) {
    alarms_.push_back({alarms.text(i, "name"), alarms.text(i, "state"),
                       countIn(alarms, i, "findings"), countIn(alarms, i, "raises"),
                       momentIn(alarms, i, "raisedTime")});
  }
  const auto rank = [](const TopAlarm& alarm) {
    return alarm.state == "raised" ? 0 : alarm.state == "acknowledged" ? 1 : 2;
  };
  std::stable_sort(alarms_.begin(), alarms_.end(),
                   [&](const TopAlarm& a, const TopAlarm& b) { return rank(a) < rank(b); });

  chips_.clear();
  const Rows chips(*view_, "chip");
  for (std::size_t i = 0; i < chips.size(); ++i) {
    chips_.push_back({chips.text(i, "name"),
                      chips.number(i, "isAbsent") != 0      ? "absent"
                      : chips.number(i, "isRestoring") != 0 ? "restoring"
                                                            : "present",
                      chips.text(i, "reason"), countIn(chips, i, "absences"),
                      countIn(chips, i, "resets")});
  }
}

void TopModel::updatePasses(S64 time) {
  passes_.clear();
  const Rows shadows(*view_, "shadow");
  const Rows governors(*view_, "governor");
  for (std::size_t i = 0; i < shadows.size(); ++i) {
    TopPass pass{shadows.text(i, "name"),
                 shadows.text(i, "patrolState"),
                 shadows.text(i, "patrolReason"),
                 countIn(shadows, i, "passEntriesDone"),
                 countIn(shadows, i, "passEntries"),
                 {},
                 {}};
    const std::size_t governor = governorOf(governors, pass.shadow, shadows.size() == 1);
    if (governor < governors.size()) {
      pass.timeLeft = secondsIn(governors, governor, "timeLeft");
      pass.period = secondsIn(governors, governor, "period");
    }
    if (!pass.timeLeft) pass.timeLeft = estimated(pass, time);
    if (pass.state != "reading") pass.timeLeft.reset();
    passes_.push_back(std::move(pass));
  }
}

// From what was done between two heartbeats.
std::optional<double> TopModel::estimated(const TopPass& pass, S64 time) {
  Seen& seen = seen_[pass.shadow];
  if (time > seen.time) {
    const bool goesOn = seen.time != 0 && pass.done > seen.done;
    if (goesOn) {
      const double rate =
          static_cast<double>(pass.done - seen.done) / static_cast<double>(time - seen.time) * 1e9;
      seen.timeLeft = static_cast<double>(pass.entries - std::min(pass.done, pass.entries)) / rate;
    } else if (pass.done < seen.done) {
      seen.timeLeft.reset();
    }
    seen.done = pass.done;
    seen.time = time;
  }
  return seen.timeLeft;
}

U64 TopModel::lastMinute() const { return sumOver(regions_, &TopRegion::lastMinute); }
U64 TopModel::lastHour() const { return sumOver(regions_, &TopRegion::lastHour); }
U64 TopModel::findings() const { return sumOver(regions_, &TopRegion::findings); }
U64 TopModel::repairs() const { return sumOver(regions_, &TopRegion::repairs); }

std::vector<std::pair<std::string, std::string>> TopModel::columnsOf(
    const std::string& region) const {
  std::vector<std::pair<std::string, std::string>> texts;
  const Rows regions(*view_, "region");
  const std::size_t at = regions.find("name", region);
  if (at == regions.size()) return texts;
  for (const Telemetry::Column& column : regions.table()->columns) {
    texts.emplace_back(column.name, column.name == "address"
                                        ? addressOf(regions.text(at, "address"), 0, 0)
                                        : textOf(formOf(column), regions.value(at, column)));
  }
  return texts;
}

std::vector<std::string> TopModel::events(const std::string& region, std::size_t most) const {
  std::vector<std::string> lines;
  const std::filesystem::path path = eventsOf(view_->path());
  if (!std::filesystem::exists(path)) return {"there is no event log"};
  for (const Telemetry::Event& event : events_.look(path.string(), region, most)) {
    lines.push_back(eventLine(event, false));
  }
  return lines;
}

Json TopModel::json() const {
  Json regions = Json::array(), passes = Json::array(), alarms = Json::array(),
       chips = Json::array();
  for (const TopRegion& region : regions_) {
    regions.push_back(
        {{"name", region.name},
         {"shadow", region.shadow},
         {"chip", region.chip},
         {"mode", region.mode},
         {"findings", region.findings},
         {"repairs", region.repairs},
         {"lastMinute", region.lastMinute},
         {"lastHour", region.lastHour},
         {"lastFinding", region.lastFinding ? Json(isoTime(*region.lastFinding)) : Json()},
         {"torn", region.isTorn}});
  }
  for (const TopPass& pass : passes_) {
    passes.push_back({{"shadow", pass.shadow},
                      {"state", pass.state},
                      {"reason", pass.reason},
                      {"done", pass.done},
                      {"entries", pass.entries},
                      {"timeLeft", orNull(pass.timeLeft)},
                      {"period", orNull(pass.period)}});
  }
  for (const TopAlarm& alarm : alarms_) {
    alarms.push_back({{"name", alarm.name},
                      {"state", alarm.state},
                      {"findings", alarm.findings},
                      {"raises", alarm.raises},
                      {"raised", alarm.raised ? Json(isoTime(*alarm.raised)) : Json()}});
  }
  for (const TopChip& chip : chips_) {
    chips.push_back({{"name", chip.name},
                     {"state", chip.state},
                     {"reason", chip.reason},
                     {"absences", chip.absences},
                     {"resets", chip.resets}});
  }
  return {{"driver", driver_},          {"state", liveness_},     {"pid", pid_},
          {"uptime", uptime_},          {"findings", findings()}, {"repairs", repairs()},
          {"lastMinute", lastMinute()}, {"lastHour", lastHour()}, {"passes", passes},
          {"alarms", alarms},           {"chips", chips},         {"regions", regions}};
}

}  // namespace Tool
