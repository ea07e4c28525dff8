// What a command does to the writer: start, stop, go on, and the ends of a replay.
#include <Driver/ChipWriter.h>

#include <Driver/Driver.h>
#include <Zint/Sizes.h>
#include <new>
#include <utility>

namespace Driver {

using Hardware::ChipMemory;

void ChipWriter::handleWriteRequest() {
  const Ptr self(this);
  const ChipWriteRequest::Ptr request = this->request();
  if (request == nullptr) return;
  DRIVER_TRACE(0, "handleWriteRequest " << request->state());
  switch (static_cast<S32>(request->state())) {
    case ChipWriteRequest::idle_:
      return;
    case ChipWriteRequest::start_:
      return start(*request);
    case ChipWriteRequest::stop_:
      return stop();
    default:
      DRIVER_ASSERT(0);
  }
}

void ChipWriter::start(const ChipWriteRequest& request) {
  const Zint::Epoch::Mark command = commands_.advance();
  isStarted_ = true;
  isPlanned_ = false;
  std::vector<Job> jobs;
  std::vector<Zint::Seconds> delays;
  U64 entriesToWrite = 0;
  const AuditedShadow::Ptr shadow = this->shadow();
  const auto isOfShadow = [&shadow](const ChipMemory& region) {
    return shadow != nullptr && shadow->chipMemory(region.address()).ptr() == &region;
  };
  try {
    for (const ChipWriteRequest::Group& group : request.groups()) {
      for (const ChipMemory::Ptr& region : group.chipMemory) {
        jobs.push_back({region, Zint::countOf(delays), isOfShadow(*region)});
      }
      delays.push_back(group.delay);
    }
    entriesToWrite = plan().entries;
  } catch (const std::bad_alloc&) {
    return fail("no memory for the start");
  }
  isPlanned_ = true;
  const bool wasInterrupted = std::exchange(isInterrupted_, false);
  includesAdopted_ = request.includesAdopted();
  leavesBuffered_ = request.leavesBuffered();
  verifiesThis_ = verifies_;
  pause_ = delays.front();
  looksForHeld_ = true;
  reason_ = {};
  remarks_.clear();
  differences_.clear();
  leftOut_.clear();
  entriesToWrite_ = entriesToWrite;
  entriesRewritten_ = 0;
  jobs_.swap(jobs);
  delays_.swap(delays);
  groupIs(0);
  jobs.clear();  // the destructor of a region may give another command
  if (command.isSuperseded()) return;
  entriesWrittenIs(0);
  // A notifiee may stop or restart re-entrantly: that command wins.
  if (command.isSuperseded()) return;
  currentChipMemoryIs(jobs_.empty() ? nullptr : jobs_.front().region);
  if (command.isSuperseded()) return;
  notify(Id::entriesToWrite);
  if (wasInterrupted && !command.isSuperseded()) notify(Id::isInterrupted);
  if (!command.isSuperseded()) wakeAfter(pause_);
}

void ChipWriter::stop() {
  const Zint::Epoch::Mark command = commands_.advance();
  isStarted_ = false;
  isInterrupted_ = false;
  reason_ = {};
  std::vector<Job> jobs;
  jobs_.swap(jobs);
  wakeAt(Zint::never);
  jobs.clear();
  if (!command.isSuperseded()) currentChipMemoryIs(nullptr);
}

void ChipWriter::doResume() {
  if (!isStarted_ || !isInterrupted_) return;
  const Ptr self(this);
  DRIVER_TRACE(0, "doResume");
  if (!isPlanned_) {
    if (const ChipWriteRequest::Ptr request = this->request(); request != nullptr) start(*request);
    return;
  }
  const Zint::Epoch::Mark command = commands_.advance();
  isInterrupted_ = false;
  reason_ = {};
  notify(Id::isInterrupted);
  if (!command.isSuperseded()) wakeAt(0.0);
}

void ChipWriter::fail(const Zint::String8& reason) {
  const Ptr self(this);
  const Zint::Epoch::Mark command(commands_);
  const ChipWriteRequest::Ptr request = this->request();
  isInterrupted_ = true;
  try {
    reason_ = reason;
    DRIVER_TRACE(0, "ChipWriter: " << reason_);
  } catch (const std::bad_alloc&) {  // those who wait for the status matter more
  }
  notify(Id::isInterrupted);
  if (!command.isSuperseded() && request != nullptr) request->statusIs(ChipWriteRequest::failed_);
}

void ChipWriter::finish() {
  const Zint::Epoch::Mark command(commands_);
  const ChipWriteRequest::Ptr request = this->request();
  isStarted_ = false;
  std::vector<Job> jobs;
  jobs_.swap(jobs);
  jobs.clear();
  if (!command.isSuperseded()) currentChipMemoryIs(nullptr);
  if (!command.isSuperseded() && request != nullptr) request->statusIs(ChipWriteRequest::done_);
}

}  // namespace Driver
