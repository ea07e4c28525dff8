// The reading: what a command does, one tick, and one slice.
#include <Hardware/ChipReader.h>
#include <Hardware/Umbra.h>
#include <algorithm>

namespace Hardware {

void ChipReader::handleReadRequest() {
  const Ptr self(this);
  const ChipReadRequest::Ptr request = this->request();
  if (request == nullptr) return;
  UMBRA_TRACE(0, 299, "handleReadRequest " << request->state());
  switch (static_cast<S32>(request->state())) {
    case ChipReadRequest::idle_:
      return;
    case ChipReadRequest::start_: {
      const U32 command = ++commands_;
      // What is still queued from an unfinished start stays in front (deliberate).
      for (auto member = request->chipMemoryIterator(); member; ++member) {
        chipMemoryEnq(member->chipMemory());
      }
      // An observer may stop or restart: then that command rules.
      entriesReadIs(0);
      if (command != commands_) return;
      currentChipMemoryIs(chipMemoryDeq());
      if (command != commands_) return;
      UMBRA_ASSERT(313, currentChipMemory_);
      if (clock_ != nullptr) clock_->timeMinIs(0.0);
      return;
    }
    case ChipReadRequest::stop_: {
      const U32 command = ++commands_;
      if (clock_ != nullptr) clock_->timeMinIs(Zint::never);
      chipMemoryDelAll();
      if (command == commands_) currentChipMemoryIs(nullptr);
      return;
    }
    default:
      UMBRA_ASSERT(323, 0);
  }
}

void ChipReader::handleTimeout() {
  const Ptr self(this);
  const ChipReadRequest::Ptr request = this->request();
  if (request == nullptr || request->state() != ChipReadRequest::start_) return;
  UMBRA_ASSERT(334, currentChipMemory_);
  UMBRA_TRACE(9, 336, "ChipReader::handleTimeout");
  const U32 command = commands_;
  doRead();
  if (command != commands_) return;  // stopped or restarted by an access: that command rules
  if (currentChipMemory_ != nullptr) {
    // From the end of this slice: the time of the turn is that of its beginning.
    if (clock_ != nullptr) clock_->timeMinIs(clock_->notifier()->timeRead() + readInterval_);
  } else {
    request->statusIs(ChipReadRequest::done_);
  }
}

void ChipReader::doRead() {
  UMBRA_ASSERT(350, currentChipMemory_);
  UMBRA_ASSERT(352, (currentChipMemory_->mode() != ChipMemory::override()));
  const Ptr self(this);
  const U32 command = commands_;
  for (U32 done = 0; done < maxEntriesPerRead_;) {
    const ChipMemory::Ptr m =
        currentChipMemory_;  // held, as is its buffer: an access may drop them
    const U32 k = entriesRead_;
    UMBRA_ASSERT_REGION(*m, k <= m->entries());  // entries may have shrunk during the pass
    const U32 readChunkSizeInEntries = std::min(maxEntriesPerRead_ - done, m->entries() - k);
    UMBRA_ASSERT(363, readChunkSizeInEntries);
    const Zint::Ptr<Hal::Buf> hardwareBuf = m->hardware();
    UMBRA_ASSERT_REGION(*m, hardwareBuf && entriesFit(*hardwareBuf, U64{k} + readChunkSizeInEntries,
                                                      m->entrySize()));
    UMBRA_ASSERT_REGION(*m, m->chipHam());
    const ChipAddress address = m->entryAddress(k);
    UMBRA_TRACE(6, 366,
                "ChipReader::doRead " << m->fwkKey() << " 0x" << std::hex << address.value()
                                      << " 0x" << readChunkSizeInEntries << " entries");
    m->chipHam()->doRead(address, hardwareBuf->data() + k * m->entrySize(), m->entrySize(),
                         readChunkSizeInEntries);
    if (command != commands_) return;  // stopped or restarted meanwhile
    if (k + readChunkSizeInEntries == m->entries()) {
      entriesReadIs(0);
      if (command != commands_) return;
      currentChipMemoryIs(chipMemoryDeq());
    } else {
      entriesReadIs(k + readChunkSizeInEntries);
    }
    if (command != commands_ || currentChipMemory_ == nullptr) return;
    done += readChunkSizeInEntries;
  }
}

}  // namespace Hardware
