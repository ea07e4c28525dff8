// The demonstration from beginning to end: bring-up, errors and traffic, settlement, account.
#pragma once

#include <memory>

#include "demo/common/Options.h"
#include "demo/driver/Outside.h"
#include "demo/driver/Stage.h"
#include "demo/driver/Status.h"

namespace Demo {

class Demonstration {
 public:
  Demonstration(const Options& options, bool isPicture);

  // Runs all of it once.
  Report run();

 private:
  StatusView view() const;

  const Options options_;
  Stage stage_;
  std::unique_ptr<Outside> outside_;
  const bool isPicture_;
  Zint::Ptr<Status> status_;
  const char* phase_ = "bring-up";
  Zint::Seconds began_ = Zint::never;  // when errors and traffic did
  Zint::Seconds ended_ = Zint::never;
};

}  // namespace Demo
