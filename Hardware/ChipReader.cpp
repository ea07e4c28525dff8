// The reader: its attributes and its queue, what a command does, one tick, and one slice.
#include <Hardware/ChipReader.h>

#include <Hardware/Umbra.h>
#include <algorithm>

namespace Hardware {
namespace {

constexpr const char* nullQueueMember =
    "null _chipMemory parameter to mutator for Hardware::ChipReader::chipMemory not allowed\"";

// Returns `readInterval`. A wake-up could not be armed with what is no number: the reading would
// stop in silence.
double requireNumber(double readInterval) {
  if (readInterval != readInterval) Zint::throwRangeException("readInterval must be a number");
  return readInterval;
}

}  // namespace

Zint::Ptr<ChipReader> chipReaderFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const ChipReadRequest::Ptr& request,
                                        const Zint::Ptr<const Zint::Clock>& clock,
                                        U32 maxEntriesPerRead, const double& readInterval) {
  return chipReaderFactoryOf<ChipReader>(activity, request, clock, maxEntriesPerRead, readInterval);
}

ChipReader::ChipReader(const Zint::Ptr<Zint::ActivityConfig>& activity,
                       const ChipReadRequest::Ptr& request,
                       const Zint::Ptr<const Zint::Clock>& clock, U32 maxEntriesPerRead,
                       const double& readInterval)
    : zintFwkActivity_(activity),
      maxEntriesPerRead_(maxEntriesPerRead),
      readInterval_(requireNumber(readInterval)) {
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
  const Ptr self(this);  // the destruction of the old one may drop this reader
  Zint::Ptr<Zint::ActivityConfig> held = activity;
  if (clock_ != nullptr) clock_->zintFwkActivityIs(held);
  if (request_ != nullptr) request_->zintFwkActivityIs(held);
  zintFwkActivity_.swap(held);  // last: the clock's notifiee refuses a null one
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
  const Ptr self(this);  // the old one's destructor may drop this reader
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
    reactor->notifierIs(clock);  // disarms
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

// To disarm reads other clocks, which may take the clock away here.
void ChipReader::clockDel() {
  const Zint::Ptr<ZintClock> reactor = std::move(clock_);
  if (reactor == nullptr) return;
  reactor->chipReaderIs(nullptr);
  reactor->timeMinIs(Zint::never);
  reactor->isRegisteredNotifieeIs(false);
}

ChipReader::ZintRequest::ZintRequest(ChipReader* reader, const ChipReadRequest::Ptr& request)
    : ChipReadRequest::NotifieeConst(reader->zintFwkActivity(), request,
                                     reader->hasNotificationActive()),
      reader_(reader),
      request_(request) {
  interestIs(Zint::interestIn(ChipReadRequest::Id::state));
}

ChipReader::ZintRequest::~ZintRequest() = default;

void ChipReader::ZintRequest::requestIs(const ChipReadRequest::Ptr& request) {
  notifierIs(request);
  request_ = request;
}

ChipReader::ZintClock::ZintClock(ChipReader* reader, const Zint::Ptr<const Zint::Clock>& clock)
    : Zint::Clock::NotifieeConst(reader->zintFwkActivity(), clock, reader->hasNotificationActive()),
      reader_(reader) {}

ChipReader::ZintClock::~ZintClock() = default;

// --- Attributes without a reaction ---

void ChipReader::maxEntriesPerReadIs(U32 maxEntriesPerRead) {
  if (Zint::updated(maxEntriesPerRead_, maxEntriesPerRead)) notify(Id::maxEntriesPerRead);
}

void ChipReader::readIntervalIs(const double& readInterval) {
  if (Zint::updated(readInterval_, requireNumber(readInterval))) notify(Id::readInterval);
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
  refuseNull(chipMemory, nullQueueMember);
  chipMemory_.enq(newMember(chipMemory));
}

Zint::Ptr<ChipReader::ZintChipMemory> ChipReader::newMember(const ChipMemory::Ptr& chipMemory) {
  Zint::Ptr<ZintChipMemory> member = spares_.deq();
  if (member == nullptr) return Zint::makePtr<ZintChipMemory>(chipMemory);
  member->chipMemory_ = chipMemory;
  return member;
}

ChipMemory::Ptr ChipReader::chipMemoryDeq() {
  const Zint::Ptr<ZintChipMemory> head = chipMemory_.deq();
  if (head == nullptr) return nullptr;
  if (head->references() != 1) return head->chipMemory();  // a client holds it
  ChipMemory::Ptr chipMemory = std::move(head->chipMemory_);
  spares_.enq(head);
  return chipMemory;
}

ChipMemory::Ptr ChipReader::chipMemoryDel(U32 index) {
  const Zint::Ptr<ZintChipMemory> member = chipMemory_.del(index);
  return member == nullptr ? nullptr : member->chipMemory();
}

void ChipReader::chipMemoryDelAll() {
  const Ptr self(this);  // a region's destructor may drop this reader
  spares_.delAll();
  chipMemory_.delAll();
}

void ChipReader::newChipMemory(U32 index, const ChipMemory::Ptr& chipMemory) {
  refuseNull(chipMemory, nullQueueMember);
  chipMemory_.insert(index, newMember(chipMemory));
}

void ChipReader::chipMemoryMetadataIs(const ChipMemoryMetadata& metadata) {
  if (metadata == chipMemory_.metadata()) return;
  chipMemory_.metadataIs(metadata);
  notify(Id::chipMemoryMetadata);
}

// --- Commands ---

void ChipReader::ZintRequest::onState() {
  if (const ChipReader::Ptr reader = reader_; reader != nullptr) reader->handleReadRequest();
}

void ChipReader::handleReadRequest() {
  const Ptr self(this);
  const ChipReadRequest::Ptr request = this->request();
  if (request == nullptr) return;
  UMBRA_TRACE(0, 299, "handleReadRequest " << request->state());
  switch (static_cast<S32>(request->state())) {
    case ChipReadRequest::idle_:
      return;
    case ChipReadRequest::start_: {
      const Zint::Epoch::Mark command = commands_.advance();
      // What is still queued from an unfinished start stays in front: deliberate, clients rely on
      // the queue being kept.
      for (auto member = request->chipMemoryIterator(); member; ++member) {
        chipMemoryEnq(member->chipMemory());
      }
      // A notifiee may stop or restart re-entrantly: that command wins.
      entriesReadIs(0);
      if (command.isSuperseded()) return;
      currentChipMemoryIs(chipMemoryDeq());
      if (command.isSuperseded()) return;
      UMBRA_ASSERT(313, currentChipMemory_);
      if (clock_ != nullptr) clock_->timeMinIs(0.0);
      return;
    }
    case ChipReadRequest::stop_: {
      const Zint::Epoch::Mark command = commands_.advance();
      if (clock_ != nullptr) clock_->timeMinIs(Zint::never);
      chipMemoryDelAll();
      if (!command.isSuperseded()) currentChipMemoryIs(nullptr);
      return;
    }
    default:
      UMBRA_ASSERT(323, 0);
  }
}

// --- Ticks and slices ---

void ChipReader::ZintClock::onTime() {
  if (const ChipReader::Ptr reader = reader_; reader != nullptr) reader->handleTimeout();
}

void ChipReader::handleTimeout() {
  const Ptr self(this);
  const ChipReadRequest::Ptr request = this->request();
  if (request == nullptr || request->state() != ChipReadRequest::start_) return;
  UMBRA_ASSERT(334, currentChipMemory_);
  UMBRA_TRACE(9, 336, "ChipReader::handleTimeout");
  const Zint::Epoch::Mark command(commands_);
  doRead();
  if (command.isSuperseded()) return;  // stopped or restarted by an access
  if (currentChipMemory_ != nullptr) {
    const Zint::Ptr<const Zint::Clock> clock = this->clock();
    if (clock == nullptr) return;
    // From the end of this slice. The reading may stop this reader or give it another clock.
    const Zint::Seconds time = clock->time();
    if (!command.isSuperseded() && clock == this->clock()) clock_->timeMinIs(time + readInterval_);
  } else {
    request->statusIs(ChipReadRequest::done_);
  }
}

void ChipReader::doRead() {
  UMBRA_ASSERT(350, currentChipMemory_);
  UMBRA_ASSERT(352, (currentChipMemory_->mode() != ChipMemory::override()));
  const Ptr self(this);
  const Zint::Epoch::Mark command(commands_);
  for (U32 done = 0; done < maxEntriesPerRead_;) {
    const ChipMemory::Ptr m =
        currentChipMemory_;  // held, as is its buffer: an access may drop them
    const U32 k = entriesRead_;
    UMBRA_ASSERT_REGION(*m, k <= m->entries());  // entries may have shrunk during the pass
    const U32 readChunkSizeInEntries = std::min(maxEntriesPerRead_ - done, m->entries() - k);
    UMBRA_ASSERT(363, readChunkSizeInEntries);
    const Zint::Ptr<Hal::Buf> hardwareBuf = m->hardware();
    UMBRA_ASSERT_REGION(*m, hardwareBuf && (U64{k} + readChunkSizeInEntries) * m->entrySize() <= hardwareBuf->size());
    UMBRA_ASSERT_REGION(*m, m->chipHam());
    const ChipAddress address = m->entryAddress(k);
    UMBRA_TRACE(6, 366,
                "ChipReader::doRead " << m->fwkKey() << " 0x" << std::hex << address.value()
                                      << " 0x" << readChunkSizeInEntries << " entries");
    m->chipHam()->doRead(address, hardwareBuf->data() + k * m->entrySize(), m->entrySize(),
                         readChunkSizeInEntries);
    if (command.isSuperseded()) return;
    if (k + readChunkSizeInEntries == m->entries()) {
      entriesReadIs(0);
      if (command.isSuperseded()) return;
      currentChipMemoryIs(chipMemoryDeq());
    } else {
      entriesReadIs(k + readChunkSizeInEntries);
    }
    if (command.isSuperseded() || currentChipMemory_ == nullptr) return;
    done += readChunkSizeInEntries;
  }
}

// --- Notifiees ---

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
