// What changes between two plans: what is newly audited, what no longer is, what moved.
#pragma once

#include <maps/Plan.h>

namespace Maps {

enum class ChangeKind : U8 {
  newlyAudited,  // compared now, and was not
  noLongerAudited,
  newlyDecided,  // in a region now, without being compared
  noLongerDecided,
  rule,   // another rule, mask or treatment of masked bits
  moved,  // another address, width
  resetValue,
  added,   // undecided as it is
  removed  // was undecided
};

struct Change {
  ChangeKind kind;
  std::string name;    // BLOCK.REGISTER
  std::string before;  // empty: it was not there
  std::string after;   // empty: it is not there
};

// Registers are the same that have the same name. A register with several changes has several
// lines. In the order of the new map; then those that are gone, in the order of the old one.
UMBRA_API std::vector<Change> differences(const Plan& before, const Plan& after);

// "newly audited", "no longer audited", ...
UMBRA_API const char* textOf(ChangeKind kind);
// "repaired mask 0xff00 kept once", "undecided (REASON)"
UMBRA_API std::string textOf(const Choice& choice);

}  // namespace Maps
