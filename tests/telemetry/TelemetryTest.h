// A driver on a manual clock, published into a directory of the test's own.
#pragma once

#include <gmock/gmock.h>
#include <stdlib.h>
#include <telemetry/EventReader.h>
#include <telemetry/LiveReader.h>
#include <telemetry/Publisher.h>

#include <filesystem>

#include "../Driver/PatrolTest.h"

namespace Support {

// A directory that is there as long as the object.
class OwnDirectory {
 public:
  OwnDirectory() {
    std::string pattern = testing::TempDir() + "telemetry-XXXXXX";
    path_ = ::mkdtemp(pattern.data());
  }
  OwnDirectory(const OwnDirectory&) = delete;
  OwnDirectory& operator=(const OwnDirectory&) = delete;
  ~OwnDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class TelemetryTest : public PatrolTest {
 protected:
  TelemetryTest() {
    options.directory = directory.path();
    options.events = 64;
    options.wallClock = wallClock;
    wallClock->timeIs(1'700'000'000);
    shadow->minIntervalBetweenAuditsIs(1);
  }
  void publish() {
    publisher = Telemetry::publisherFactory(loop.activity, loop.clock, "switch1", options);
    publisher->shadowIs(shadow);
  }
  // The publisher is destroyed in order, and the next one begins.
  void restart() {
    publisher = nullptr;
    publish();
  }
  Telemetry::LiveReader view() {
    publisher->doPublish();
    return Telemetry::LiveReader(publisher->livePath());
  }
  // The used row of that name.
  static std::optional<Telemetry::Row> row(const Telemetry::LiveReader& view, const char* table,
                                           const std::string& name) {
    const Telemetry::Table& found = *view.find(table);
    for (const Telemetry::Row& row : view.rows(found)) {
      if (row.isUsed() && row.text(*found.find("name")) == name) return row;
    }
    return std::nullopt;
  }
  // What a column of a row shows, as text; "no row" where there is none.
  static std::string shown(const Telemetry::LiveReader& view, const char* table,
                           const std::string& name, const char* column) {
    const auto found = row(view, table, name);
    if (!found.has_value()) return "no row";
    const Telemetry::Column* it = view.find(table)->find(column);
    return it == nullptr ? "no column" : found->shown(*it);
  }
  std::vector<Telemetry::Event> events() {
    publisher->doPublish();
    return Telemetry::EventReader(publisher->eventsPath()).read(1, ~0u).events;
  }
  // Those of one kind, each as "REGION ENTRY VERDICT TEXT".
  std::vector<std::string> eventTexts(Telemetry::EventKind kind) {
    std::vector<std::string> found;
    for (const Telemetry::Event& event : events()) {
      if (event.kind != kind) continue;
      found.push_back(event.region + " " + std::to_string(event.entry) + " " +
                      std::to_string(event.verdict) + " " + event.text);
    }
    return found;
  }
  // The message of the range exception that `act` raises; "" for none.
  template <class Act>
  static std::string refusal(Act act) {
    try {
      act();
    } catch (const Zint::RangeException& exception) {
      return exception.what();
    }
    return "";
  }
  // A region of `entries` that are known and right, on a shadow that audits.
  ChipMemory::Ptr audited(const char* name, U32 entries) {
    const ChipMemory::Ptr cm = region(name, 0x1000, entries);
    audit();
    for (U32 entry = 0; entry < entries; ++entry) write(cm, entry, entry + 1);
    EXPECT_TRUE(pass());
    return cm;
  }

  OwnDirectory directory;
  Zint::Ptr<Zint::ManualClock> wallClock = Zint::manualClockFactory("wall clock");
  Telemetry::PublisherOptions options;
  Telemetry::Publisher::Ptr publisher;
};

}  // namespace Support
