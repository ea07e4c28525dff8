#include "demo/common/ChipWatch.h"

namespace Demo {

void ChipWatch::flipsTaken() {
  for (Flip flip; chip_.control().flips.take(flip);) ledger_.flipped(flip);
}

void ChipWatch::onTime() {
  flipsTaken();
  if (chip_.isRunning()) {
    timeMinIs(Zint::now() + interval);
  } else {
    zintFwkActivity()->stop();
  }
}

bool ChipWatch::chipEnded() {
  timeMinIs(Zint::never);
  const bool orderly = chip_.end();
  flipsTaken();
  return orderly;
}

}  // namespace Demo
