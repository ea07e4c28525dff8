#include "tools/umbra/serve/Metrics.h"

#include <charconv>
#include <cmath>
#include <map>
#include <set>

#include "tools/umbra/serve/Json.h"

namespace Serve {
namespace {

// Families in the order in which they were first named, found by name.
class Families {
 public:
  // Null where the name is there with another type or unit: another version of a driver.
  Family* family(const std::string& name, MetricType type, const std::string& unit,
                 const std::string& help) {
    const auto [at, isNew] = index_.try_emplace(name, all_.size());
    if (isNew) all_.push_back({name, type, unit, help});
    Family& found = all_[at->second];
    return found.type == type && found.unit == unit ? &found : nullptr;
  }
  void add(const std::string& name, MetricType type, const std::string& unit,
           const std::string& help, Sample sample) {
    if (Family* found = family(name, type, unit, help)) found->samples.push_back(std::move(sample));
  }
  std::vector<Family> take() { return std::move(all_); }

 private:
  std::map<std::string, std::size_t> index_;
  std::vector<Family> all_;
};

double secondsOf(Time time) { return static_cast<double>(time) * 1e-9; }

// 0 for what has not come.
double momentSeconds(const Driver& driver, const Column& column, std::span<const U32> row) {
  const Time time = momentOf(driver, column, row);
  return time == never ? 0 : secondsOf(time);
}

// The labels of a row beside the driver's: what it is, and what it belongs to.
std::string rowLabels(const Table& table, std::span<const U32> row) {
  std::string labels;
  const auto add = [&](std::string_view name, std::string_view column) {
    if (const Column* found = table.find(column)) labels += "," + label(name, found->text(row));
  };
  if (table.name == "region") {
    add("shadow", "shadow");
    add("chip", "chip");
    add("region", "name");
    return labels;
  }
  add(table.name, "name");
  if (table.name == "alarm") {
    add("rule", "rule");
    add("subject", "subject");
  }
  if (table.name != "shadow") add("shadow", "shadow");
  if (table.name != "chip") add("chip", "chip");
  return labels;
}

Time createdOf(const Driver& driver, const Table& table, std::span<const U32> row) {
  const Column* since = table.find("since");
  if (since == nullptr) return driver.start;
  const Time time = momentOf(driver, *since, row);
  return time == never ? driver.start : time;
}

// The rows of one driver's table.
class TableMetrics {
 public:
  TableMetrics(Families& families, const Driver& driver, const Table& table,
               const MetricsOptions& options)
      : families_(families), driver_(driver), table_(table), options_(options) {}

  void add() {
    for (const Column& column : table_.columns) {
      if (isExported(table_.name, column)) columns_.push_back(&column);
    }
    names_.reserve(columns_.size());
    for (const Column* column : columns_) names_.push_back(metricName(table_.name, *column));
    const std::string driverLabel = label("driver", driver_.name);
    U32 own = 0;
    std::map<std::string, Rest> rests;
    for (U32 i = 0; i < table_.rows(); ++i) {
      if (table_.state(i) != usedRow) continue;
      const auto row = table_.row(i);
      if (table_.name == "region" && own++ >= options_.maxRegions) {
        addToRest(rests, row);
        continue;
      }
      std::string labels = driverLabel + rowLabels(table_, row);
      if (!labelsSeen_.insert(labels).second) labels += "," + label("row", std::to_string(i));
      addRow(labels, row);
    }
    U64 summed = 0;
    for (const auto& [labels, rest] : rests) {
      summed += rest.rows;
      addRest(driverLabel + labels, rest);
    }
    if (table_.name != "region") return;
    families_.add("umbra_driver_regions", MetricType::gauge, "", "regions of the driver",
                  {driverLabel, numberText(U64{own})});
    families_.add("umbra_driver_regions_summed", MetricType::gauge, "",
                  "regions without series of their own, summed for each chip",
                  {driverLabel, numberText(summed)});
  }

 private:
  struct Rest {
    U64 rows = 0;
    Time created = never;
    std::vector<double> sums;
  };

  void addRow(const std::string& labels, std::span<const U32> row) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const Column& column = *columns_[i];
      const MetricName& metric = names_[i];
      if (!column.names.empty()) {
        for (const auto& [number, name] : column.names) {
          families_.add(
              metric.name, MetricType::stateset, "", metric.help,
              {labels + "," + label(metric.name, name), column.integer(row) == number ? "1" : "0"});
        }
        continue;
      }
      families_.add(metric.name, column.total ? MetricType::counter : MetricType::gauge,
                    metric.unit, metric.help,
                    {labels, valueText(column, metric, row), createdOf(driver_, table_, row)});
    }
  }

  std::string valueText(const Column& column, const MetricName& metric,
                        std::span<const U32> row) const {
    if (isMoment(column)) return numberText(momentSeconds(driver_, column, row));
    if (column.kind == Kind::time && column.integer(row) == never) return "+Inf";
    if (column.kind == Kind::unsignedNumber && metric.factor == 1)
      return numberText(static_cast<U64>(column.integer(row)));
    return numberText(column.number(row) * metric.factor);
  }

  void addToRest(std::map<std::string, Rest>& rests, std::span<const U32> row) {
    std::string labels;
    for (const char* name : {"shadow", "chip"}) {
      if (const Column* column = table_.find(name)) labels += "," + label(name, column->text(row));
    }
    Rest& rest = rests[labels + "," + label("region", "_other")];
    rest.sums.resize(columns_.size());
    ++rest.rows;
    rest.created = std::min(rest.created, createdOf(driver_, table_, row));
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const Column& column = *columns_[i];
      if (isMoment(column)) {
        rest.sums[i] = std::max(rest.sums[i], momentSeconds(driver_, column, row));
      } else {
        rest.sums[i] += column.number(row) * names_[i].factor;
      }
    }
  }

  // Counters add up, and of moments the last one counts; what cannot be added is left out.
  void addRest(const std::string& labels, const Rest& rest) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const Column& column = *columns_[i];
      if (!column.total && !isMoment(column)) continue;
      families_.add(names_[i].name, column.total ? MetricType::counter : MetricType::gauge,
                    names_[i].unit, names_[i].help,
                    {labels, numberText(rest.sums[i]), rest.created});
    }
  }

  Families& families_;
  const Driver& driver_;
  const Table& table_;
  const MetricsOptions& options_;
  std::vector<const Column*> columns_;
  std::vector<MetricName> names_;
  std::set<std::string> labelsSeen_;
};

void addDriver(Families& families, const Driver& driver) {
  const std::string labels = label("driver", driver.name);
  const auto gauge = [&](const char* name, const char* unit, const char* help, std::string value) {
    families.add(name, MetricType::gauge, unit, help, {labels, std::move(value)});
  };
  gauge("umbra_driver_up", "", "1 while the driver's process runs and its heartbeat is young",
        driver.liveness == Liveness::live ? "1" : "0");
  for (const Liveness each : {Liveness::live, Liveness::stalled, Liveness::ended, Liveness::dead}) {
    families.add("umbra_driver_liveness", MetricType::stateset, "", "how the driver is",
                 {labels + "," + label("umbra_driver_liveness", nameOf(each)),
                  driver.liveness == each ? "1" : "0"});
  }
  gauge("umbra_driver_heartbeat_timestamp_seconds", "seconds",
        "when the driver last told of itself", numberText(secondsOf(driver.heartbeat)));
  gauge("umbra_driver_start_timestamp_seconds", "seconds", "when the driver was started",
        numberText(secondsOf(driver.start)));
  gauge("umbra_driver_not_fit_objects", "objects", "objects that found no row in the live view",
        numberText(U64{driver.notFit}));
  families.add("umbra_driver_events", MetricType::counter, "", "events of the driver's log",
               {labels, numberText(driver.events), driver.start});
  families.add("umbra_driver_suppressed_events", MetricType::counter, "events",
               "events that a limiter kept out of the log",
               {labels, numberText(driver.suppressed), driver.start});
}

const char* typeName(MetricType type, MetricsFormat format) {
  switch (type) {
    case MetricType::counter:
      return "counter";
    case MetricType::gauge:
      return "gauge";
    case MetricType::stateset:
      return format == MetricsFormat::openMetrics ? "stateset" : "gauge";
    case MetricType::info:
      return format == MetricsFormat::openMetrics ? "info" : "gauge";
  }
  return "";
}

// A help text ends at the end of its line.
std::string escapedHelp(std::string_view text, MetricsFormat format) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '\\') {
      escaped += "\\\\";
    } else if (letter == '\n') {
      escaped += "\\n";
    } else if (letter == '"' && format == MetricsFormat::openMetrics) {
      escaped += "\\\"";
    } else {
      escaped += letter;
    }
  }
  return escaped;
}

}  // namespace

std::string label(std::string_view name, std::string_view value) {
  std::string text(name);
  text += "=\"";
  for (const char letter : value) {
    if (letter == '\\' || letter == '"') text += '\\';
    if (letter == '\n') {
      text += "\\n";
    } else {
      text += letter;
    }
  }
  return text + '"';
}

std::string numberText(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  char buffer[32];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return {buffer, end};
}

std::string numberText(U64 value) { return std::to_string(value); }

std::vector<Family> metricFamilies(const Drivers& drivers, const MetricsOptions& options) {
  Families families;
  for (const auto& driver : drivers) addDriver(families, *driver);
  for (const auto& driver : drivers) {
    for (const auto& table : driver->tables) {
      TableMetrics(families, *driver, *table, options).add();
    }
  }
  return families.take();
}

std::string metricsText(const std::vector<Family>& families, MetricsFormat format) {
  const bool isOpen = format == MetricsFormat::openMetrics;
  std::string text;
  for (const Family& family : families) {
    // In the older format the name of a metric is that of its samples.
    std::string name = family.name;
    if (!isOpen && family.type == MetricType::counter) name += "_total";
    if (!isOpen && family.type == MetricType::info) name += "_info";
    text += "# TYPE " + name + " " + typeName(family.type, format) + "\n";
    if (isOpen && !family.unit.empty()) text += "# UNIT " + name + " " + family.unit + "\n";
    text += "# HELP " + name + " " + escapedHelp(family.help, format) + "\n";
    const char* suffix = family.type == MetricType::counter ? "_total"
                         : family.type == MetricType::info  ? "_info"
                                                            : "";
    for (const Sample& sample : family.samples) {
      const std::string labels = sample.labels.empty() ? "" : "{" + sample.labels + "}";
      text += family.name + suffix + labels + " " + sample.value + "\n";
      if (isOpen && family.type == MetricType::counter && sample.created != 0) {
        text +=
            family.name + "_created" + labels + " " + numberText(secondsOf(sample.created)) + "\n";
      }
    }
  }
  if (isOpen) text += "# EOF\n";
  return text;
}

const char* contentType(MetricsFormat format) {
  return format == MetricsFormat::openMetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

MetricsFormat formatFor(std::string_view accept) {
  return accept.find("application/openmetrics-text") != std::string_view::npos
             ? MetricsFormat::openMetrics
             : MetricsFormat::text004;
}

}  // namespace Serve
