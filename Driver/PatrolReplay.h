// The replay of a chip that was reset. Used by Patrol alone.
#pragma once

#include <Driver/ChipWriteRequest.h>
#include <Driver/ChipWriter.h>
#include <Driver/Patrol.h>

namespace Driver {

// The replay of one chip, and the notifiee that is told how it ended.
class Patrol::Replay : public ChipWriteRequest::NotifieeConst {
 public:
  Replay(Patrol& patrol, const Chip::Ptr& chip, const ChipWriteRequest::Ptr& request,
         const ChipWriter::Ptr& writer)
      : NotifieeConst(patrol.shadow_.zintFwkActivity(), request),
        patrol_(&patrol),
        chip_(chip),
        request_(request),
        writer_(writer) {}

  void onStatus() override {
    if (patrol_ == nullptr) return;
    const AuditedShadow::Ptr shadow(&patrol_->shadow_);
    patrol_->handleReplay(*this);
  }
  void forget() {
    patrol_ = nullptr;
    isRegisteredNotifieeIs(false);
  }
  // False: it has ended, well or not.
  bool isUnderWay() const {
    return request_->status() != Zint::Request::done_ && !writer_->isInterrupted();
  }
  // Interrupted by overrideHardware, not by the chip.
  bool isHalted() const { return isHalted_; }
  void isHaltedIs(bool isHalted) { isHalted_ = isHalted; }
  const Chip::Ptr& chip() const { return chip_; }
  const ChipWriteRequest::Ptr& request() const { return request_; }
  const ChipWriter::Ptr& writer() const { return writer_; }

 private:
  Patrol* patrol_;
  const Chip::Ptr chip_;
  const ChipWriteRequest::Ptr request_;
  const ChipWriter::Ptr writer_;
  bool isHalted_ = false;
};

}  // namespace Driver
