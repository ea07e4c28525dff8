// Writes down what the turns of an audited shadow took.
#pragma once

#include <Driver/AuditedShadow.h>

#include <algorithm>
#include <vector>

namespace Support {

class TurnWatch : public Driver::AuditedShadow::NotifieeConst {
 public:
  TurnWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
            const Driver::AuditedShadow::Ptr& shadow)
      : NotifieeConst(activity, shadow) {
    isNonReferencingIs(true);
  }
  void onTurn(const Driver::TurnResult& turn) override { turns.push_back(turn); }

  Zint::Seconds longest() const {
    Zint::Seconds longest = 0;
    for (const Driver::TurnResult& turn : turns) longest = std::max(longest, turn.duration);
    return longest;
  }
  Zint::Seconds work() const {
    Zint::Seconds work = 0;
    for (const Driver::TurnResult& turn : turns) work += turn.duration;
    return work;
  }

  std::vector<Driver::TurnResult> turns;
};

}  // namespace Support
