// Audits on demand, beside the passes of the patrol.
#include <Driver/Driver.h>
#include <Driver/Patrol.h>
#include <Driver/PatrolRun.h>
#include <algorithm>
#include <utility>

namespace Driver {

using Hardware::ChipMemory;

// Not part of a pass: a chip that does not answer ends it, and nobody asks whether it was reset.
PassResult Patrol::doAudit(const ChipMemory::Ptr& region, U32 first, U32 count) {
  const ChipMemory::Ptr cm = region;
  if (shadow_.state() != Hardware::HardwareShadow::idle() &&
      shadow_.state() != Hardware::HardwareShadow::auditing()) {
    Zint::throwRangeException("doAudit needs a shadow that is idle or auditing");
  }
  if (U64{first} + count > cm->entries()) {
    Zint::throwRangeException("doAudit: entries beyond those of " + cm->name());
  }
  if (!cm->shadowStoreNeeded()) Zint::throwRangeException(cm->name() + " has no shadow store");
  if (const Zint::String8 obstacle = whyNotHeld(*cm); !obstacle.empty()) {
    Zint::throwRangeException(obstacle);
  }
  const Zint::Epoch::Mark mark(commands_);
  PassResult result;
  result.start = time();
  const Chip::Ptr chip = stateOf(cm).chip;
  if (shadow_.overrideHardware()) {
    result.reason = "overrideHardware is set";
    return result;
  }
  if (chip->isRestoring()) {
    result.reason = chip->name() + " is being restored";
    return result;
  }
  const Zint::Seconds outer = std::exchange(turnStart_, Zint::never);  // no bound of time
  const U32 outerRepairs = std::exchange(repairsOfTurn_, 0);
  const RegionMarks* marks = this->marks(cm.ptr());
  const Policy::Ptr policy = marks == nullptr ? nullptr : marks->policy;
  Visit visited = Visit::done;
  for (U32 entry = first; entry < first + count && visited == Visit::done;) {
    U32 end = entry + std::min(first + count - entry, shadow_.maxEntriesPerSlice());
    if (policy != nullptr) {
      entry = firstRead(*policy, entry, end);
      if (entry == end || !isRead(policy->rule(entry))) continue;
      end = readEnd(*policy, entry, end);
    }
    U32 judged = 0;
    visited = audit(cm, entry, end, result, judged);
    if (mark.isSuperseded()) visited = Visit::ended;
    entry += judged;
    result.entries += judged;
  }
  turnStart_ = outer;
  repairsOfTurn_ = outerRepairs;
  result.isComplete = visited == Visit::done;
  if (visited == Visit::full) result.reason = "maxRepairsPerTurn is reached";
  if (visited == Visit::isVoid) {
    result.reason = chip->name() + " is absent: " + chip->reason();
  }
  if (visited == Visit::ended) result.reason = "a notifiee or an access has changed the audit";
  result.duration = result.longestTurn = time() - result.start;
  if (!isInTurn_) {
    tellTurn({.start = result.start,
              .duration = result.duration,
              .entries = result.entries,
              .isOutsidePass = true});
  }
  return result;
}

}  // namespace Driver
