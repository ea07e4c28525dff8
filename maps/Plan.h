// What is to be done with each register of a map: proposed from the file, decided by a person.
//
//   Maps::Plan plan = Maps::proposed(Maps::readMap("chip.svd"));
//   Maps::decide(plan, Maps::readOverlay("chip.overlay"));
//
// Nothing is audited that is not known to be safe. Proposed as `repaired` are registers whose
// access is read-write in all fields, which no tag, no word of their description and no word of
// their name gives another meaning, which share their bytes with no other register, and whose width
// is 8, 16, 32 or 64 bits. All others are undecided: they are in no region, so nobody but the
// driver itself accesses them. Of a register that has fields, the bits that no field names are not
// compared, whoever decides.
#pragma once

#include <Driver/Rules.h>
#include <maps/Map.h>

#include <string_view>

namespace Maps {

struct Choice {
  std::optional<Driver::Rule> rule;  // none: undecided
  // Bits that are not compared; of an undecided register, those that are not if it is decided.
  U64 mask = 0;
  Driver::Rewrite rewrite = Driver::Rewrite::kept;
  bool isOnce = false;
  // Why it is undecided, with the words that say so, or who decided: "proposed", "FILE:LINE".
  std::string reason;
  U32 line = 0;  // of the overlay that decided; 0: none

  bool isAudited() const { return rule && Driver::isCompared(*rule); }
};

struct UMBRA_API Plan {
  Map map;
  std::vector<Choice> choices;  // one for each register of the map

  U32 decided() const;
  U32 audited() const;
};

UMBRA_API Plan proposed(Map map);

}  // namespace Maps
