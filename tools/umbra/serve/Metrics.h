// What a monitoring system scrapes: all drivers of the machine as families of metrics, in the text
// format 0.0.4 or as OpenMetrics.
//
//   MetricsOptions options;
//   const std::string text = metricsText(drivers, options, MetricsFormat::openMetrics);
//
// Names come from the schemas of the live views: umbra_<table>_<column>[_unit][_total]. A few
// columns have better names of their own. All numbers are in base units; a moment is the number of
// seconds since 1970, 0 for one that has not come; a share is a ratio. Of a driver that has died
// the last values stay, with umbra_driver_up at 0.
//
// Regions up to `maxRegions` of a driver, in the order of their rows, have series of their own. The
// rest is summed for each chip, with the label region="_other", and umbra_driver_regions_summed
// says how many they are. Which they are does not change while the driver has the same rows.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/umbra/serve/Model.h"

namespace Serve {

struct MetricsOptions {
  U32 maxRegions = 200;  // of each driver
};

enum class MetricsFormat { text004, openMetrics };

enum class MetricType { counter, gauge, stateset, info };

struct Sample {
  std::string labels;  // `driver="switch1",region="vlan"`, escaped
  std::string value;
  Time created = 0;  // of a counter
};

struct Family {
  std::string name;  // without _total
  MetricType type = MetricType::gauge;
  std::string unit;
  std::string help;
  std::vector<Sample> samples = {};
};

// Figures of the server itself.
using MoreFamilies = std::vector<Family>;

std::vector<Family> metricFamilies(const Drivers& drivers, const MetricsOptions& options);
std::string metricsText(const std::vector<Family>& families, MetricsFormat format);
const char* contentType(MetricsFormat format);
// What a client that sent this `Accept` gets.
MetricsFormat formatFor(std::string_view accept);

// `name="value"` with what the formats escape.
std::string label(std::string_view name, std::string_view value);
// The shortest text that reads back as the same number.
std::string numberText(double value);
std::string numberText(U64 value);

// What a column is called, and how its value becomes the metric's: value * factor.
struct MetricName {
  std::string name;
  std::string unit;
  std::string help;
  double factor = 1;
};
MetricName metricName(const std::string& table, const Column& column);
// Whether a column is exported. Not what a monitoring system computes itself, ages and recent
// counts, and of the many regions no settings.
bool isExported(const std::string& table, const Column& column);

}  // namespace Serve
