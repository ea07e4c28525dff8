// Families of metrics: names, values, and both text formats.
#include "tools/umbra/serve/Metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MadeUp.h"

namespace Serve {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

std::string textOf(const MadeUpDriver& driver, MetricsFormat format, U32 maxRegions = 200) {
  return metricsText(metricFamilies({driver.copy()}, {maxRegions}), format);
}

Column column(const char* name, Kind kind, const char* unit, bool total = false) {
  return {name, kind, 8, 8, unit, "help", total};
}

TEST(MetricName, metricName_ofAColumnIsItsTypeAndNameInSnakeCase) {
  EXPECT_EQ(metricName("region", column("readCacheHits", Kind::unsignedNumber, "")).name,
            "umbra_region_read_cache_hits");
}

TEST(MetricName, metricName_ofADurationIsInSeconds) {
  const MetricName metric = metricName("shadow", column("sliceInterval", Kind::time, "seconds"));
  EXPECT_EQ(metric.name, "umbra_shadow_slice_interval_seconds");
  EXPECT_EQ(metric.unit, "seconds");
  EXPECT_EQ(metric.factor, 1e-9);
}

TEST(MetricName, metricName_ofAMomentIsATimestamp) {
  EXPECT_EQ(metricName("alarm", column("raisedTime", Kind::time, "seconds")).name,
            "umbra_alarm_raised_timestamp_seconds");
  EXPECT_EQ(metricName("shadow", column("patrolSince", Kind::time, "seconds")).name,
            "umbra_shadow_patrol_since_timestamp_seconds");
}

TEST(MetricName, metricName_ofAMultipleIsInTheBaseUnit) {
  const MetricName metric = metricName("chip", column("delay", Kind::real, "milliseconds"));
  EXPECT_EQ(metric.name, "umbra_chip_delay_seconds");
  EXPECT_EQ(metric.factor, 1e-3);
  EXPECT_EQ(metricName("governor", column("share", Kind::real, "share")).name,
            "umbra_governor_share_ratio");
}

TEST(MetricName, metricName_namesAUnitOnce) {
  const MetricName metric =
      metricName("shadow", column("passEntries", Kind::unsignedNumber, "entries"));
  EXPECT_EQ(metric.name, "umbra_shadow_pass_entries");
  EXPECT_EQ(metric.unit, "entries");
}

TEST(MetricName, metricName_ofAWellKnownColumnIsItsOwn) {
  EXPECT_EQ(
      metricName("region", column("registersFixed", Kind::unsignedNumber, "entries", true)).name,
      "umbra_region_rewritten_entries");
}

TEST(MetricName, isExported_notWhatAMonitoringSystemComputes) {
  EXPECT_FALSE(isExported("shadow", column("lastPassAge", Kind::time, "seconds")));
  EXPECT_FALSE(isExported("region", column("findingsIn1m", Kind::unsignedNumber, "")));
  EXPECT_FALSE(isExported("region", column("since", Kind::time, "seconds since 1970")));
  EXPECT_FALSE(isExported("region", column("stride", Kind::unsignedNumber, "")));
  EXPECT_TRUE(isExported("region", column("anything", Kind::unsignedNumber, "", true)));
  EXPECT_TRUE(isExported("chip", column("stride", Kind::unsignedNumber, "")));
}

TEST(Metrics, metricFamilies_startAtZeroBeforeTheFirstEvent) {
  MadeUpDriver driver("switch1", 2, 1);
  const std::string text = textOf(driver, MetricsFormat::openMetrics);
  EXPECT_THAT(text, HasSubstr("umbra_region_findings_total{driver=\"switch1\",shadow=\"shadow\","
                              "chip=\"asic0\",region=\"region-00001\"} 0\n"));
  EXPECT_THAT(text,
              HasSubstr("umbra_shadow_repairs_total{driver=\"switch1\",shadow=\"shadow\"} 0\n"));
}

TEST(Metrics, metricFamilies_countWhatWasFound) {
  MadeUpDriver driver("switch1", 2, 1);
  driver.find(1, 7);
  driver.find(1, 7);
  EXPECT_THAT(textOf(driver, MetricsFormat::text004), HasSubstr("region=\"region-00001\"} 2\n"));
}

TEST(Metrics, metricFamilies_ofADeadDriverKeepItsLastValues) {
  MadeUpDriver driver("switch1", 1, 1);
  driver.find(0, 7);
  driver.header().liveness = Liveness::dead;
  const std::string text = textOf(driver, MetricsFormat::openMetrics);
  EXPECT_THAT(text, HasSubstr("umbra_driver_up{driver=\"switch1\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("umbra_driver_liveness=\"dead\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("region=\"region-00000\"} 1\n"));
}

TEST(Metrics, metricFamilies_ofManyRegionsAreSummedForEachChip) {
  MadeUpDriver driver("switch1", 10, 2);
  for (U32 region = 0; region < 10; ++region) driver.find(region, 1);
  const std::string text = textOf(driver, MetricsFormat::openMetrics, 4);
  EXPECT_THAT(text, HasSubstr("region=\"region-00003\"} 1\n"));
  EXPECT_THAT(text, Not(HasSubstr("region-00004")));
  EXPECT_THAT(text, HasSubstr("umbra_region_findings_total{driver=\"switch1\",shadow=\"shadow\","
                              "chip=\"asic0\",region=\"_other\"} 3\n"));
  EXPECT_THAT(text, HasSubstr("umbra_driver_regions_summed{driver=\"switch1\"} 6\n"));
  EXPECT_THAT(text, HasSubstr("umbra_driver_regions{driver=\"switch1\"} 10\n"));
}

TEST(Metrics, metricFamilies_tellNoMomentOfWhatHasNotHappened) {
  MadeUpDriver driver("switch1", 1, 1);
  EXPECT_THAT(textOf(driver, MetricsFormat::text004),
              ContainsRegex("umbra_region_last_finding_timestamp_seconds\\{[^}]*\\} 0\n"));
}

TEST(Metrics, metricFamilies_ofRowsOfOneNameAreToldApart) {
  MadeUpDriver driver("switch1", 2, 1);
  driver.regions().textIs(1, "name", "region-00000");
  const std::string text = textOf(driver, MetricsFormat::openMetrics);
  EXPECT_THAT(text, HasSubstr("region=\"region-00000\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("region=\"region-00000\",row=\"1\"} 0\n"));
}

TEST(Metrics, metricsText_ofOpenMetricsEndsWithItsMark) {
  MadeUpDriver driver("switch1", 1, 1);
  EXPECT_THAT(textOf(driver, MetricsFormat::openMetrics), EndsWith("# EOF\n"));
  EXPECT_THAT(textOf(driver, MetricsFormat::text004), Not(HasSubstr("# EOF")));
}

TEST(Metrics, metricsText_namesCountersAsItsFormatDoes) {
  MadeUpDriver driver("switch1", 1, 1);
  EXPECT_THAT(textOf(driver, MetricsFormat::openMetrics),
              HasSubstr("# TYPE umbra_region_findings counter\n"));
  EXPECT_THAT(textOf(driver, MetricsFormat::text004),
              HasSubstr("# TYPE umbra_region_findings_total counter\n"));
}

TEST(Metrics, metricsText_tellsSinceWhenACounterCounts) {
  MadeUpDriver driver("switch1", 1, 1);
  driver.regions().numberIs(0, "since", 1'700'000'000 * second);
  EXPECT_THAT(textOf(driver, MetricsFormat::openMetrics),
              ContainsRegex("umbra_region_findings_created\\{[^}]*\\} 1700000000\n|"
                            "umbra_region_findings_created\\{[^}]*\\} 1.7e\\+09\n"));
  EXPECT_THAT(textOf(driver, MetricsFormat::text004), Not(HasSubstr("_created")));
}

TEST(Metrics, label_escapesQuotesBackslashesAndNewLines) {
  EXPECT_EQ(label("region", "a\"b\\c\nd"), "region=\"a\\\"b\\\\c\\nd\"");
}

TEST(Metrics, numberText_ofInfinityAndNotANumberIsThatOfTheFormats) {
  EXPECT_EQ(numberText(INFINITY), "+Inf");
  EXPECT_EQ(numberText(-INFINITY), "-Inf");
  EXPECT_EQ(numberText(NAN), "NaN");
  EXPECT_EQ(numberText(0.1), "0.1");
}

TEST(Metrics, formatFor_takesOpenMetricsWhereItIsAsked) {
  EXPECT_EQ(formatFor("application/openmetrics-text;version=1.0.0,text/plain;q=0.5"),
            MetricsFormat::openMetrics);
  EXPECT_EQ(formatFor("*/*"), MetricsFormat::text004);
  EXPECT_EQ(formatFor(""), MetricsFormat::text004);
}

}  // namespace
}  // namespace Serve
