// Tells an alarm board what an audited shadow finds.
//
//   auto board = alarmBoardFactory("alarms", activity, clock);
//   auto watch = alarmWatchFactory(activity, shadow, board);   // as long as it lives
//
// Counted are all findings but those of entries that were adopted or written meanwhile. A chip that
// was reset counts as many at once. Where the shadow has another clock than the board, a finding
// has the time that the board's clock shows when it is told.
#pragma once

#include <Driver/AlarmBoard.h>
#include <Driver/AuditedShadow.h>

namespace Driver {

class UMBRA_API AlarmWatch : public AuditedShadow::NotifieeConst {
 public:
  // Null: a range exception.
  AlarmWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, const AuditedShadow::Ptr& shadow,
             const AlarmBoard::Ptr& board);

  const AlarmBoard::Ptr& board() const { return board_; }
  void onFinding(const Finding& finding) override;
  void onLastAuditStartTime() override;

 protected:
  ~AlarmWatch() override;

 private:
  Zint::Seconds timeOf(const Finding& finding) const;

  const AlarmBoard::Ptr board_;
};

UMBRA_API Zint::Ptr<AlarmWatch> alarmWatchFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                  const AuditedShadow::Ptr& shadow,
                                                  const AlarmBoard::Ptr& board);

}  // namespace Driver
