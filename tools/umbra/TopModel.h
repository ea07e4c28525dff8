// What `umbra top` shows of one driver: read from its live view at one moment.
#pragma once

#include <map>

#include "tools/umbra/EventLines.h"

namespace Tool {

struct TopRegion {
  std::string name, shadow, chip, mode;
  U64 findings = 0, repairs = 0;
  U64 lastMinute = 0, lastHour = 0;  // findings
  std::optional<S64> lastFinding;    // wall clock
  bool isTorn = false;
};

struct TopPass {
  std::string shadow, state, reason;
  U64 done = 0, entries = 0;
  std::optional<double> timeLeft;  // seconds
  std::optional<double> period;
  double share() const {
    return entries == 0 ? 0
                        : std::min(1.0, static_cast<double>(done) / static_cast<double>(entries));
  }
};

struct TopAlarm {
  std::string name, state;
  U64 findings = 0, raises = 0;
  std::optional<S64> raised;
};

struct TopChip {
  std::string name, state, reason;
  U64 absences = 0, resets = 0;
};

class TopModel {
 public:
  // Reads all of it. A file that was replaced is opened again; one that is gone stays as it was.
  void viewIs(ViewPtr view);
  void update();

  const std::string& driver() const { return driver_; }
  const std::string& liveness() const { return liveness_; }  // "live"
  const std::string& livenessText() const { return livenessText_; }
  U32 pid() const { return pid_; }
  U32 pointerBits() const { return pointerBits_; }
  double uptime() const { return uptime_; }  // seconds up to the last heartbeat
  U32 notFit() const { return notFit_; }
  U64 lastMinute() const;  // findings
  U64 lastHour() const;
  U64 findings() const;
  U64 repairs() const;

  const std::vector<TopRegion>& regions() const { return regions_; }
  const std::vector<TopPass>& passes() const { return passes_; }
  const std::vector<TopAlarm>& alarms() const { return alarms_; }  // raised first
  const std::vector<TopChip>& chips() const { return chips_; }

  // All columns of a region's row as texts.
  std::vector<std::pair<std::string, std::string>> columnsOf(const std::string& region) const;
  // The newest events, oldest first; of one region unless that is empty.
  std::vector<std::string> events(const std::string& region, std::size_t most) const;

  Json json() const;

 private:
  struct Seen {
    U64 done = 0;
    S64 time = 0;
    std::optional<double> timeLeft;
  };
  std::optional<double> estimated(const TopPass& pass, S64 time);
  void updatePasses(S64 time);

  ViewPtr view_;
  std::string driver_, liveness_, livenessText_;
  U32 pid_ = 0, pointerBits_ = 0, notFit_ = 0;
  double uptime_ = 0;
  std::vector<TopRegion> regions_;
  std::vector<TopPass> passes_;
  std::vector<TopAlarm> alarms_;
  std::vector<TopChip> chips_;
  std::map<std::string, Seen> seen_;  // by shadow
  mutable EventTail events_;          // what was read of the log before
};

}  // namespace Tool
