// The writer: its attributes and its reactors. What a command does is in ChipWriterCommands.cpp,
// the writing itself in ChipWriterReplay.cpp.
#include <Driver/ChipWriter.h>

#include <Driver/AccessCost.h>
#include <Driver/Driver.h>
#include <cmath>

namespace Driver {
namespace {

U32 requireAboveZero(U32 entries, const char* message) {
  if (entries == 0) Zint::throwRangeException(message);
  return entries;
}
constexpr const char* noEntriesPerWrite = "maxEntriesPerWrite must be above 0";
constexpr const char* noEntriesPerSlice = "maxEntriesPerSlice must be above 0";

Zint::Seconds requireDuration(Zint::Seconds seconds, const char* message) {
  if (!std::isfinite(seconds) || seconds < 0) Zint::throwRangeException(message);
  return seconds;
}
constexpr const char* noWriteInterval = "writeInterval must be finite and not negative";
constexpr const char* noAccessCost = "accessCost must be finite and not negative";

}  // namespace

// The shadow, for as long as it lives.
class ChipWriter::ZintShadow : public Hardware::HardwareShadow::NotifieeConst {
 public:
  ZintShadow(const Zint::Ptr<Zint::ActivityConfig>& activity, const AuditedShadow::Ptr& shadow)
      : Hardware::HardwareShadow::NotifieeConst(activity, shadow), shadow_(shadow.ptr()) {
    interestIs(0);
    isNonReferencingIs(true);
  }
  AuditedShadow* shadow() const { return notifier() == nullptr ? nullptr : shadow_; }

 protected:
  ~ZintShadow() override = default;

 private:
  AuditedShadow* const shadow_;
};

Zint::Ptr<ChipWriter> chipWriterFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const AuditedShadow::Ptr& shadow,
                                        const ChipWriteRequest::Ptr& request,
                                        const Zint::Ptr<const Zint::Clock>& clock,
                                        U32 maxEntriesPerWrite, U32 maxEntriesPerSlice,
                                        const Zint::Seconds& writeInterval) {
  return chipWriterFactoryOf<ChipWriter>(activity, shadow, request, clock, maxEntriesPerWrite,
                                         maxEntriesPerSlice, writeInterval);
}

ChipWriter::ChipWriter(const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const AuditedShadow::Ptr& shadow, const ChipWriteRequest::Ptr& request,
                       const Zint::Ptr<const Zint::Clock>& clock, U32 maxEntriesPerWrite,
                       U32 maxEntriesPerSlice, const Zint::Seconds& writeInterval)
    : zintFwkActivity_(activity),
      maxEntriesPerWrite_(requireAboveZero(maxEntriesPerWrite, noEntriesPerWrite)),
      maxEntriesPerSlice_(requireAboveZero(maxEntriesPerSlice, noEntriesPerSlice)),
      writeInterval_(requireDuration(writeInterval, noWriteInterval)),
      cost_(std::make_unique<AccessCost>()) {
  if (shadow != nullptr) shadow_ = Zint::makePtr<ZintShadow>(activity, shadow);
  if (request != nullptr) newRequest(request);
  if (clock != nullptr) newClock(clock);
}

ChipWriter::~ChipWriter() {
  ChipWriter::zintDoZombieReactors(true);
  if (clock_ != nullptr) clock_->chipWriterIs(nullptr);
  if (request_ != nullptr) request_->chipWriterIs(nullptr);
}

const Zint::Type* ChipWriter::fwkType() const { return &chipWriterType; }

void ChipWriter::hasNotificationActiveIs(bool active) {
  if (request_ != nullptr) request_->hasNotificationActiveIs(active);
  if (clock_ != nullptr) clock_->hasNotificationActiveIs(active);
  PtrInterface::hasNotificationActiveIs(active);
}

void ChipWriter::zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) {
  if (zintFwkActivity_ == activity) return;
  const Ptr self(this);  // the destruction of the old one may drop this writer
  Zint::Ptr<Zint::ActivityConfig> held = activity;
  if (clock_ != nullptr) clock_->zintFwkActivityIs(held);
  if (request_ != nullptr) request_->zintFwkActivityIs(held);
  if (shadow_ != nullptr) shadow_->zintFwkActivityIs(held);
  zintFwkActivity_.swap(held);  // last: the clock's notifiee refuses a null one
  notify(Id::zintFwkActivity);
}

void ChipWriter::zintDoZombieReactors(bool zombie) {
  if (zombie == zintMarkedForDeletion()) return;
  if (clock_ != nullptr) clock_->zintDoZombieReactors(zombie);
  if (request_ != nullptr) request_->zintDoZombieReactors(zombie);
  zintMarkedForDeletionIs(zombie);
}

// --- Shadow, request and clock ---

AuditedShadow::Ptr ChipWriter::shadow() const {
  return shadow_ == nullptr ? nullptr : AuditedShadow::Ptr(shadow_->shadow());
}

void ChipWriter::shadowIs(const AuditedShadow::Ptr& shadow) {
  if (shadow == this->shadow()) return;
  const Ptr self(this);
  shadow_ = shadow == nullptr
                ? Zint::Ptr<ZintShadow>()
                : Zint::Ptr<ZintShadow>(Zint::makePtr<ZintShadow>(zintFwkActivity_, shadow));
  notify(Id::shadow);
}

ChipWriteRequest::Ptr ChipWriter::request() const {
  return request_ == nullptr ? nullptr : request_->request();
}

void ChipWriter::requestIs(const ChipWriteRequest::Ptr& request) {
  if (request == this->request()) return;
  const Ptr self(this);  // the old one's destructor may drop this writer
  if (request == nullptr) {
    requestDel();
  } else if (request_ == nullptr) {
    newRequest(request);
  } else {
    const Zint::Ptr<ZintRequest> reactor = request_;
    reactor->requestIs(request);
    if (!reactor->zintMarkedForDeletion()) handleWriteRequest();
  }
  notify(Id::request);
}

void ChipWriter::newRequest(const ChipWriteRequest::Ptr& request) {
  const Ptr self(this);
  Zint::Ptr<ZintRequest> made = Zint::makePtr<ZintRequest>(this, request);
  requestDel();
  request_ = std::move(made);
}

void ChipWriter::requestDel() {
  if (request_ == nullptr) return;
  request_->chipWriterIs(nullptr);
  request_->isRegisteredNotifieeIs(false);
  request_ = nullptr;
}

Zint::Ptr<const Zint::Clock> ChipWriter::clock() const {
  return clock_ == nullptr ? nullptr : clock_->notifier();
}

void ChipWriter::clockIs(const Zint::Ptr<const Zint::Clock>& clock) {
  if (clock == this->clock()) return;
  const Ptr self(this);
  if (clock == nullptr) {
    clockDel();
  } else if (clock_ == nullptr) {
    newClock(clock);
  } else {
    clock_->notifierIs(clock);  // disarms
  }
  sliceEnd_ = Zint::never;  // times of the old clock mean nothing to the new one
  if (isStarted_ && !isInterrupted_) wakeAfter(pause_);
  notify(Id::clock);
}

void ChipWriter::newClock(const Zint::Ptr<const Zint::Clock>& clock) {
  const Ptr self(this);
  Zint::Ptr<ZintClock> made = Zint::makePtr<ZintClock>(this, clock);
  clockDel();
  clock_ = std::move(made);
}

// To disarm reads other clocks, which may take the clock away here.
void ChipWriter::clockDel() {
  const Zint::Ptr<ZintClock> reactor = std::move(clock_);
  if (reactor == nullptr) return;
  reactor->chipWriterIs(nullptr);
  reactor->timeMinIs(Zint::never);
  reactor->isRegisteredNotifieeIs(false);
}

void ChipWriter::wakeAt(const Zint::Seconds& time) {
  if (const Zint::Ptr<ZintClock> reactor = clock_; reactor != nullptr) reactor->timeMinIs(time);
}

ChipWriter::ZintRequest::ZintRequest(ChipWriter* writer, const ChipWriteRequest::Ptr& request)
    : ChipWriteRequest::NotifieeConst(writer->zintFwkActivity(), request,
                                      writer->hasNotificationActive()),
      writer_(writer),
      request_(request) {}

ChipWriter::ZintRequest::~ZintRequest() = default;

// The old request outlives the change of the notifier.
void ChipWriter::ZintRequest::requestIs(const ChipWriteRequest::Ptr& request) {
  const ChipWriteRequest::Ptr old = request_;
  notifierIs(request);
  request_ = request;
}

void ChipWriter::ZintRequest::onState() {
  if (const ChipWriter::Ptr writer = writer_; writer != nullptr) writer->handleWriteRequest();
}

ChipWriter::ZintClock::ZintClock(ChipWriter* writer, const Zint::Ptr<const Zint::Clock>& clock)
    : Zint::Clock::NotifieeConst(writer->zintFwkActivity(), clock, writer->hasNotificationActive()),
      writer_(writer) {}

ChipWriter::ZintClock::~ZintClock() = default;

void ChipWriter::ZintClock::onTime() {
  if (const ChipWriter::Ptr writer = writer_; writer != nullptr) writer->handleTimeout();
}

// --- Attributes ---

void ChipWriter::maxEntriesPerWriteIs(U32 entries) {
  if (Zint::updated(maxEntriesPerWrite_, requireAboveZero(entries, noEntriesPerWrite))) {
    notify(Id::maxEntriesPerWrite);
  }
}

void ChipWriter::maxEntriesPerSliceIs(U32 entries) {
  if (Zint::updated(maxEntriesPerSlice_, requireAboveZero(entries, noEntriesPerSlice))) {
    notify(Id::maxEntriesPerSlice);
  }
}

void ChipWriter::writeIntervalIs(const Zint::Seconds& seconds) {
  if (Zint::updated(writeInterval_, requireDuration(seconds, noWriteInterval))) {
    notify(Id::writeInterval);
  }
}

Zint::Seconds ChipWriter::accessCost() const {
  if (accessCost_ != 0) return accessCost_;
  return accesses_ == 0 ? 0 : accessTime_ / static_cast<double>(accesses_);
}

void ChipWriter::accessCostIs(const Zint::Seconds& seconds) {
  if (Zint::updated(accessCost_, requireDuration(seconds, noAccessCost))) notify(Id::accessCost);
}

void ChipWriter::verifiesIs(bool verifies) {
  if (Zint::updated(verifies_, verifies)) notify(Id::verifies);
}

void ChipWriter::currentChipMemoryIs(const ChipMemory::Ptr& region) {
  const Ptr self(this);
  if (Zint::updated(currentChipMemory_, region)) notify(Id::currentChipMemory);
}

void ChipWriter::entriesWrittenIs(U64 entries) {
  if (Zint::updated(entriesWritten_, entries)) notify(Id::entriesWritten);
}

void ChipWriter::remarkAdd(const ReplayRemark& remark) {
  remarks_.push_back(remark);
  notify(Id::remarks);
}

// --- Notifiees ---

ChipWriter::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                         const Zint::Ptr<const ChipWriter>& writer)
    : Zint::NotifieeConst(activity, writer) {}

ChipWriter::NotifieeConst::~NotifieeConst() = default;

void ChipWriter::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::currentChipMemory:
      return onCurrentChipMemory();
    case Id::entriesWritten:
      return onEntriesWritten();
    case Id::isInterrupted:
      return onIsInterrupted();
    case Id::remarks:
      return onRemarks();
    case Id::differences:
      return onDifferences();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Driver
