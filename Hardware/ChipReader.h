// Reads the regions of a read request from the chips into their hardware buffers, a bounded slice
// at a time, and sets the request's status when all of them have been read.
//
//   auto reader = chipReaderFactory(activity, request, clock, 1024, 0.001);
//   request->stateIs(Zint::Request::start_);   // 1,024 entries per tick, 1 ms between ticks
//
// A slice continues with the next region while entries of its budget are left, so a request takes
// ceil(entries / maxEntriesPerRead) ticks. An exception of an access method ends the reading: no
// tick is scheduled until the request is started again.
#pragma once

#include <Hardware/ChipReadRequest.h>
#include <Zint/Activity.h>
#include <Zint/Epoch.h>
#include <Zint/LinkQueue.h>
#include <concepts>

namespace Hardware {

class UMBRA_API ChipReader : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<ChipReader>;

  struct Id {
    enum : Zint::AttributeId {
      zintFwkActivity = Zint::firstAttributeId,
      request,
      clock,
      maxEntriesPerRead,
      readInterval,
      doRead,
      handleReadRequest,
      currentChipMemory,
      entriesRead,
      chipMemory,
      chipMemoryMetadata,
      hasNotificationActiveIs,
      zintDoZombieReactors
    };
  };

  class UMBRA_API NotifieeConst : public Zint::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipReader>& reader);
    const ChipReader* notifier() const {
      return static_cast<const ChipReader*>(Zint::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onCurrentChipMemory() {}
    virtual void onEntriesRead() {}
    virtual void onMaxEntriesPerRead() {}
    virtual void onReadInterval() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipReader> {
    using NotifieeOf::NotifieeOf;
  };

  // Starts and stops the reading.
  class UMBRA_API ZintRequest : public ChipReadRequest::NotifieeConst {
   public:
    ZintRequest(ChipReader* reader, const ChipReadRequest::Ptr& request);
    void onState() override;
    void chipReaderIs(ChipReader* reader) { reader_ = reader; }
    const ChipReadRequest::Ptr& request() const { return request_; }
    void requestIs(const ChipReadRequest::Ptr& request);

   protected:
    ~ZintRequest() override;

   private:
    ChipReader* reader_;  // not a counted reference
    ChipReadRequest::Ptr request_;
  };

  // Wakes the reader for each slice.
  class UMBRA_API ZintClock : public Zint::Clock::NotifieeConst {
   public:
    ZintClock(ChipReader* reader, const Zint::Ptr<const Zint::Clock>& clock);
    void onTime() override;
    void chipReaderIs(ChipReader* reader) { reader_ = reader; }

   protected:
    ~ZintClock() override;

   private:
    ChipReader* reader_;  // not a counted reference
  };

  // A region that waits in the queue.
  class ZintChipMemory : public Zint::PtrInterface,
                         public Zint::LinkQueueLink<ZintChipMemory, U32> {
   public:
    explicit ZintChipMemory(const ChipMemory::Ptr& chipMemory) : chipMemory_(chipMemory) {}
    const ChipMemory::Ptr& chipMemory() const { return chipMemory_; }

   private:
    friend class ChipReader;

    ChipMemory::Ptr chipMemory_;
  };
  using Queue = Zint::LinkQueue<ZintChipMemory, U32>;
  using ChipMemoryMetadata = Queue::Metadata;

  // Its reactors are switched off: use chipReaderFactory(), or chipReaderFactoryOf() for a derived
  // class. An object made by Zint::makePtr alone serves no request.
  ChipReader(const Zint::Ptr<Zint::ActivityConfig>& activity, const ChipReadRequest::Ptr& request,
             const Zint::Ptr<const Zint::Clock>& clock, U32 maxEntriesPerRead,
             const double& readInterval);

  // Switches the two reactors on or off, the request's first.
  void hasNotificationActiveIs(bool active) override;
  const Zint::Type* fwkType() const override;

 protected:
  ~ChipReader() override;

 public:
  // --- Virtual operations, in slot order ---------------------------------------------------------
  // Reads one slice of at most maxEntriesPerRead entries. REQUIRES: a current region.
  virtual void doRead();
  virtual void zintFwkActivityIs(const Zint::Ptr<Zint::ActivityConfig>& activity);
  // (Un)marks this and its reactors as being deleted.
  virtual void zintDoZombieReactors(bool zombie);

  // --- Attributes ---
  const Zint::Ptr<Zint::ActivityConfig>& zintFwkActivity() const { return zintFwkActivity_; }
  // Replacing a request or clock that is bound already acts on the new one at once: a request in
  // state start is read, a tick is run. A clock without an activity is refused (range exception),
  // as is no activity while there is a clock. REQUIRES for the clock: a reader that is reading, or
  // a request that is not in state start (fatal assertion).
  ChipReadRequest::Ptr request() const;
  void requestIs(const ChipReadRequest::Ptr& request);
  void newRequest(const ChipReadRequest::Ptr& request);
  void requestDel();
  Zint::Ptr<const Zint::Clock> clock() const;
  void clockIs(const Zint::Ptr<const Zint::Clock>& clock);
  void newClock(const Zint::Ptr<const Zint::Clock>& clock);
  void clockDel();
  // Entries per tick, over all regions; 0 reads nothing and never ends.
  U32 maxEntriesPerRead() const { return maxEntriesPerRead_; }
  void maxEntriesPerReadIs(U32 maxEntriesPerRead);
  // Seconds from the end of one tick to the next. REQUIRES: a number, here and where the reader is
  // made (range exception).
  double readInterval() const { return readInterval_; }
  void readIntervalIs(const double& readInterval);
  // The region being read; null when idle or finished.
  const ChipMemory::Ptr& currentChipMemory() const { return currentChipMemory_; }
  void currentChipMemoryIs(const ChipMemory::Ptr& chipMemory);
  // How many of its entries have been read.
  U32 entriesRead() const { return entriesRead_; }
  void entriesReadIs(U32 entriesRead);

  // --- The queue of waiting regions. A null region is refused (range exception). ---
  const Queue& chipMemory() const { return chipMemory_; }
  U32 chipMemorys() const { return chipMemory_.size(); }
  void chipMemoryEnq(const ChipMemory::Ptr& chipMemory);
  // Removes the head and returns its region; null when the queue is empty.
  ChipMemory::Ptr chipMemoryDeq();
  ChipMemory::Ptr chipMemoryDel(U32 index);
  void chipMemoryDelAll();
  void newChipMemory(U32 index, const ChipMemory::Ptr& chipMemory);
  const ChipMemoryMetadata& chipMemoryMetadata() const { return chipMemory_.metadata(); }
  void chipMemoryMetadataIs(const ChipMemoryMetadata& metadata);

  // --- Reactions ---
  void handleReadRequest();
  void handleTimeout();

 private:
  Zint::Ptr<ZintChipMemory> newMember(const ChipMemory::Ptr& chipMemory);

  // Destroyed from the last to the first.
  Zint::Ptr<Zint::ActivityConfig> zintFwkActivity_;
  Zint::Ptr<ZintRequest> request_;
  Zint::Ptr<ZintClock> clock_;
  U32 maxEntriesPerRead_;
  double readInterval_;
  ChipMemory::Ptr currentChipMemory_;
  U32 entriesRead_ = 0;
  Zint::Epoch commands_;  // advanced by every start and stop
  Queue chipMemory_;
  Queue spares_;  // members without a region, kept for the next pass: it allocates nothing
};

// `request` and `clock` may be null. A clock needs an activity (range exception). Neither handler
// runs here.
UMBRA_API Zint::Ptr<ChipReader> chipReaderFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                                  const ChipReadRequest::Ptr& request,
                                                  const Zint::Ptr<const Zint::Clock>& clock,
                                                  U32 maxEntriesPerRead,
                                                  const double& readInterval);
inline Zint::Ptr<ChipReader> ChipReaderIs(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                          const ChipReadRequest::Ptr& request,
                                          const Zint::Ptr<const Zint::Clock>& clock,
                                          U32 maxEntriesPerRead, const double& readInterval) {
  return chipReaderFactory(activity, request, clock, maxEntriesPerRead, readInterval);
}

// The same for a class derived from ChipReader, made from the arguments of its constructor.
template <std::derived_from<ChipReader> Reader, class... Arguments>
Zint::Ptr<Reader> chipReaderFactoryOf(Arguments&&... arguments) {
  Zint::Ptr<Reader> reader = Zint::makePtr<Reader>(std::forward<Arguments>(arguments)...);
  reader->hasNotificationActiveIs(true);
  return reader;
}

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipReader*) { return "Hardware::ChipReader"; }

}  // namespace Hardware
