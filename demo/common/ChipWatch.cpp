#include "demo/common/ChipWatch.h"

namespace Demo {

void ChipWatch::takeFlips() {
  for (Flip flip; chip_.control().flips.take(flip);) ledger_.recordFlip(flip);
}

void ChipWatch::onTime() {
  takeFlips();
  if (chip_.isRunning()) {
    timeMinIs(Zint::now() + interval);
  } else {
    zintFwkActivity()->stop();
  }
}

bool ChipWatch::endChip() {
  timeMinIs(Zint::never);
  const bool orderly = chip_.end();
  takeFlips();
  return orderly;
}

}  // namespace Demo
