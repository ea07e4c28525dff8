#include <Driver/AlarmWatch.h>

#include <Driver/Driver.h>

namespace Driver {

AlarmWatch::AlarmWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const AuditedShadow::Ptr& shadow, const AlarmBoard::Ptr& board)
    : NotifieeConst(activity,
                    refuseNull(shadow, "null shadow parameter to Driver::AlarmWatch not allowed")),
      board_(refuseNull(board, "null board parameter to Driver::AlarmWatch not allowed")) {}

AlarmWatch::~AlarmWatch() = default;

Zint::Seconds AlarmWatch::timeOf(const Finding& finding) const {
  const AuditedShadow* const shadow = notifier();
  const bool isSameClock = shadow != nullptr && shadow->clock() == board_->clock();
  return isSameClock ? finding.time : board_->clock()->time();
}

void AlarmWatch::onFinding(const Finding& finding) {
  const AlarmBoard::Ptr board = board_;
  const Zint::String8 chip = finding.chip->name();
  switch (finding.verdict) {
    case Verdict::adopted:
    case Verdict::writtenMeanwhile:
      return;
    case Verdict::reset:
      return board->manyAtOnceIs(chip, 1, timeOf(finding));
    default:
      return board->findingIs(finding.chipMemory, finding.entry, chip, timeOf(finding));
  }
}

void AlarmWatch::onLastAuditStartTime() {
  const AlarmBoard::Ptr board = board_;
  board->doBeginPass(board->clock()->time());
}

Zint::Ptr<AlarmWatch> alarmWatchFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const AuditedShadow::Ptr& shadow,
                                        const AlarmBoard::Ptr& board) {
  return Zint::makePtr<AlarmWatch>(activity, shadow, board);
}

}  // namespace Driver
