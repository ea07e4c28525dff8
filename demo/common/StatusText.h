// What the driver shows while it runs, as text.
#pragma once

#include <string>
#include <vector>

#include "demo/common/Switch.h"

namespace Demo {

struct StatusView {
  struct Row {
    std::string name;
    U32 entries = 0;
    std::string mode;
    U32 differences = 0;
    U32 repairs = 0;
    // Entries asked for, and those served or skipped by the shadow; 0 where the table's shadow does
    // no such thing.
    U64 read = 0;
    U64 readHits = 0;
    U64 written = 0;
    U64 writeHits = 0;
  };

  std::string phase;
  double time = 0;     // seconds since traffic and errors began
  double seconds = 0;  // how long they go on
  U32 passes = 0;
  double progress = 0;  // of the running pass, 0 to 1
  std::string reading;  // the table being read; empty while the patrol reads none
  std::string patrol;   // what it does instead
  U64 injected = 0;
  std::vector<Row> rows;

  // All rows in one, without name and mode.
  Row sum() const;
};

// The switch's part of the view.
StatusView statusOf(const Switch& theSwitch);

// A picture for a terminal: lines of at most 79 characters without line ends, as many of them for
// each picture of the same switch.
std::vector<std::string> statusPicture(const StatusView& view);
// One line for a log, without line end.
std::string statusLine(const StatusView& view);

}  // namespace Demo
