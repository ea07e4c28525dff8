// The reader's attributes, queue and reactors; birth and end.
#include <Hardware/ChipReader.h>
#include <Hardware/Umbra.h>

namespace Hardware {

Zint::Ptr<ChipReader> chipReaderFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const ChipReadRequest::Ptr& request,
                                        const Zint::Ptr<const Zint::Clock>& clock,
                                        U32 maxEntriesPerRead, const double& readInterval) {
  Zint::Ptr<ChipReader> reader =
      Zint::makePtr<ChipReader>(activity, request, clock, maxEntriesPerRead, readInterval);
  reader->hasNotificationActiveIs(true);
  return reader;
}

ChipReader::ChipReader(const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const ChipReadRequest::Ptr& request,
                       const Zint::Ptr<const Zint::Clock>& clock, U32 maxEntriesPerRead,
                       const double& readInterval)
    : zintFwkActivity_(activity),
      maxEntriesPerRead_(maxEntriesPerRead),
      readInterval_(readInterval) {
  if (request != nullptr) newRequest(request);
  if (clock != nullptr) newClock(clock);
}

ChipReader::~ChipReader() {
  ChipReader::zintDoZombieReactors(true);
  if (clock_ != nullptr) clock_->chipReaderIs(nullptr);
  if (request_ != nullptr) request_->chipReaderIs(nullptr);
}

const Zint::Type* ChipReader::fwkType() const { return &chipReaderType; }

void ChipReader::hasNotificationActiveIs(bool active) {
  if (request_ != nullptr) request_->hasNotificationActiveIs(active);
  if (clock_ != nullptr) clock_->hasNotificationActiveIs(active);
  PtrInterface::hasNotificationActiveIs(active);
}

void ChipReader::zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity) {
  if (zintFwkActivity_ == activity) return;
  if (clock_ != nullptr) clock_->zintFwkActivityIs(activity);
  if (request_ != nullptr) request_->zintFwkActivityIs(activity);
  zintFwkActivity_ = activity;  // last: the clock may refuse it
  notify(Id::zintFwkActivity);
}

void ChipReader::zintDoZombieReactors(bool zombie) {
  if (zombie == zintMarkedForDeletion()) return;
  if (clock_ != nullptr) clock_->zintDoZombieReactors(zombie);
  if (request_ != nullptr) request_->zintDoZombieReactors(zombie);
  zintMarkedForDeletionIs(zombie);
}

// --- Request and clock ---

ChipReadRequest::Ptr ChipReader::request() const {
  return request_ == nullptr ? nullptr : request_->request();
}

void ChipReader::requestIs(const ChipReadRequest::Ptr& request) {
  if (request == this->request()) return;
  const Ptr self(this);  // the end of the old one may drop this reader
  if (request == nullptr) {
    requestDel();
  } else if (request_ == nullptr) {
    newRequest(request);
  } else {
    const Zint::Ptr<ZintRequest> reactor = request_;
    reactor->requestIs(request);
    if (!reactor->zintMarkedForDeletion()) handleReadRequest();
  }
  notify(Id::request);
}

void ChipReader::newRequest(const ChipReadRequest::Ptr& request) {
  const Ptr self(this);
  Zint::Ptr<ZintRequest> made = Zint::makePtr<ZintRequest>(this, request);
  requestDel();
  request_ = std::move(made);
}

void ChipReader::requestDel() {
  if (request_ == nullptr) return;
  request_->chipReaderIs(nullptr);
  request_->isRegisteredNotifieeIs(false);
  request_ = nullptr;
}

Zint::Ptr<const Zint::Clock> ChipReader::clock() const {
  return clock_ == nullptr ? nullptr : clock_->notifier();
}

void ChipReader::clockIs(const Zint::Ptr<const Zint::Clock>& clock) {
  if (clock == this->clock()) return;
  const Ptr self(this);
  if (clock == nullptr) {
    clockDel();
  } else if (clock_ == nullptr) {
    newClock(clock);
  } else {
    const Zint::Ptr<ZintClock> reactor = clock_;
    reactor->timeMinIs(Zint::never);
    reactor->notifierIs(clock);
    if (!reactor->zintMarkedForDeletion()) handleTimeout();
  }
  notify(Id::clock);
}

void ChipReader::newClock(const Zint::Ptr<const Zint::Clock>& clock) {
  const Ptr self(this);
  Zint::Ptr<ZintClock> made = Zint::makePtr<ZintClock>(this, clock);
  clockDel();
  clock_ = std::move(made);
}

void ChipReader::clockDel() {
  if (clock_ == nullptr) return;
  clock_->chipReaderIs(nullptr);
  clock_->timeMinIs(Zint::never);
  clock_->isRegisteredNotifieeIs(false);
  clock_ = nullptr;
}

ChipReader::ZintRequest::ZintRequest(ChipReader* reader, const ChipReadRequest::Ptr& request)
    : ChipReadRequest::NotifieeConst(reader->zintFwkActivity(), request,
                                     reader->hasNotificationActive()),
      reader_(reader),
      request_(request) {}

ChipReader::ZintRequest::~ZintRequest() = default;

void ChipReader::ZintRequest::onState() {
  if (const ChipReader::Ptr reader = reader_; reader != nullptr) reader->handleReadRequest();
}

void ChipReader::ZintRequest::requestIs(const ChipReadRequest::Ptr& request) {
  notifierIs(request);
  request_ = request;
}

ChipReader::ZintClock::ZintClock(ChipReader* reader, const Zint::Ptr<const Zint::Clock>& clock)
    : Zint::Clock::NotifieeConst(reader->zintFwkActivity(), clock, reader->hasNotificationActive()),
      reader_(reader) {}

ChipReader::ZintClock::~ZintClock() = default;

void ChipReader::ZintClock::onTime() {
  if (const ChipReader::Ptr reader = reader_; reader != nullptr) reader->handleTimeout();
}

// --- Plain attributes ---

void ChipReader::maxEntriesPerReadIs(U32 maxEntriesPerRead) {
  if (Zint::updated(maxEntriesPerRead_, maxEntriesPerRead)) notify(Id::maxEntriesPerRead);
}

void ChipReader::readIntervalIs(const double& readInterval) {
  if (Zint::updated(readInterval_, readInterval)) notify(Id::readInterval);
}

void ChipReader::currentChipMemoryIs(const ChipMemory::Ptr& chipMemory) {
  const Ptr self(this);
  if (Zint::updated(currentChipMemory_, chipMemory)) notify(Id::currentChipMemory);
}

void ChipReader::entriesReadIs(U32 entriesRead) {
  if (Zint::updated(entriesRead_, entriesRead)) notify(Id::entriesRead);
}

// --- Queue ---

void ChipReader::chipMemoryEnq(const ChipMemory::Ptr& chipMemory) {
  chipMemory_.enq(Zint::makePtr<ZintChipMemory>(chipMemory));
}

ChipMemory::Ptr ChipReader::chipMemoryDeq() {
  const Zint::Ptr<ZintChipMemory> head = chipMemory_.deq();
  return head == nullptr ? nullptr : head->chipMemory();
}

ChipMemory::Ptr ChipReader::chipMemoryDel(U32 index) {
  const Zint::Ptr<ZintChipMemory> member = chipMemory_.del(index);
  return member == nullptr ? nullptr : member->chipMemory();
}

void ChipReader::chipMemoryDelAll() {
  const Ptr self(this);  // a region's end may drop this reader
  chipMemory_.delAll();
}

void ChipReader::newChipMemory(U32 index, const ChipMemory::Ptr& chipMemory) {
  chipMemory_.insert(index, Zint::makePtr<ZintChipMemory>(chipMemory));
}

void ChipReader::chipMemoryMetadataIs(const ChipMemoryMetadata& metadata) {
  if (metadata == chipMemory_.metadata()) return;
  chipMemory_.metadataIs(metadata);
  notify(Id::chipMemoryMetadata);
}

ChipReader::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                         const Zint::Ptr<const ChipReader>& reader)
    : Zint::NotifieeConst(activity, reader) {}

ChipReader::NotifieeConst::~NotifieeConst() = default;

void ChipReader::NotifieeConst::handleNotification(Zint::ActivityConfig* activity) {
  switch (attribute()) {
    case Id::currentChipMemory:
      return onCurrentChipMemory();
    case Id::entriesRead:
      return onEntriesRead();
    case Id::maxEntriesPerRead:
      return onMaxEntriesPerRead();
    case Id::readInterval:
      return onReadInterval();
    default:
      return Zint::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Hardware
