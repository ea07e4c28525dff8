// What a fault does to the chip that made it. Not installed.
#pragma once

#include <testkit/FakeChip.h>

namespace TestKit {

struct FaultState {
  enum class Type : U8 { absent, stuck, lost, failing, flipping, slow, reset };

  Type type;
  FakeChip::Target target = {};
  Absence absence = Absence::allOnes;
  U64 bits = 0;  // stuck ones
  U64 value = 0;
  double chance = 1;
  std::optional<U32> bit = {};
  Zint::Seconds seconds = 0;
  U64 accesses = 0;  // until the reset
  U64 hits = 0;
  bool isOver = false;
};

}  // namespace TestKit
