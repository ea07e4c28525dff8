// Soft errors: picks registers of the chip at random and flips one bit in each.
#pragma once

#include <random>

#include "demo/common/ControlBlock.h"

namespace Demo {

class Injector {
 public:
  // `registers` are the chip's, the first at address 0.
  Injector(U32* registers, FlipLog& log, U32 seed)
      : registers_(registers), log_(log), random_(seed) {}

  // Flips one bit of one register and logs it. Nothing happens while the log is full.
  void flip();

 private:
  U32 below(U32 limit) { return static_cast<U32>(random_() % limit); }
  U32 anyRegister();

  U32* registers_;
  FlipLog& log_;
  std::mt19937 random_;
};

}  // namespace Demo
