// What is seen of a demonstration from outside its process: `--publish DIR`.
#pragma once

#include <memory>
#include <vector>

#include "demo/common/Options.h"
#include "demo/driver/Stage.h"

namespace Demo {

// Live view, event log and both control sockets, while it lives.
class Outside {
 public:
  // Null where the options publish nothing. A build without the telemetry library raises UsageError
  // for those that do.
  static std::unique_ptr<Outside> of(const Options& options, const Stage& stage);

 private:
  Outside(const Options& options, const Stage& stage);

  std::vector<Zint::Ptr<const Zint::PtrInterface>> held_;
};

}  // namespace Demo
