// Ctrl-C, and the other signals that ask a program to end, stop the activity.
#pragma once

#include <Zint/Activity.h>

namespace Demo {

// One at a time. While it lives, each such signal is counted and stops the activity.
class Interrupts {
 public:
  explicit Interrupts(Zint::ActivityConfig& activity);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  static int count();
};

}  // namespace Demo
