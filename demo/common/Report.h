// The closing account, as text.
#pragma once

#include <string>
#include <vector>

#include "demo/common/Ledger.h"

namespace Demo {

struct Report {
  struct Row {
    std::string name;
    Account account;
    U32 registersDiffering = 0;  // between chip and shadow
  };

  std::vector<Row> rows;
  Account all;  // of the whole register file
  U32 passes = 0;
  U32 differences = 0;  // found by the audit
  U32 repairs = 0;
  bool isChipOrderly = true;  // it ended in order, so that its log is complete
  bool isSettled = true;      // the last two passes found nothing

  U32 registersDiffering() const;
  // What is wrong, one sentence each; empty when all is well.
  std::vector<std::string> faults() const;
  // The table and the sums, without the verdict.
  std::string tableText() const;
  std::string text() const;
};

}  // namespace Demo
