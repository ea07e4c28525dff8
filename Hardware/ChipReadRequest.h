// A named set of regions that are to be read from the hardware as one job.
//
//   auto request = chipReadRequestFactory("dump");
//   request->chipMemoryIs(table);
//   request->stateIs(Zint::Request::start_);   // the ChipReader of this request reads every region
//   ... onStatus(): request->status() == Zint::Request::done_
#pragma once

#include <Hardware/ChipMemory.h>
#include <Zint/HashMap.h>
#include <Zint/Request.h>

namespace Hardware {

class UMBRA_API ChipReadRequest : public Zint::Request {
 public:
  using Ptr = Zint::Ptr<ChipReadRequest>;
  struct Id : Request::Id {
    enum : Zint::AttributeId { handleState = generation + 1, chipMemory };
  };

  class UMBRA_API NotifieeConst : public Request::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipReadRequest>& request, bool active = true);
    const ChipReadRequest* notifier() const {
      return static_cast<const ChipReadRequest*>(Request::NotifieeConst::notifier());
    }
    // A region was added, replaced or removed. The immediate form is called first, then the one
    // with the key, which calls the one without a key unless it is overridden.
    virtual void onChipMemory(const ChipAddress& key);
    virtual void onChipMemory() {}
    virtual void onChipMemoryzintImmediate() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipReadRequest> {
    using NotifieeOf::NotifieeOf;
  };

  // A member of the set. It has a hash link of its own, so that a region can be in a directory and
  // in requests at the same time.
  class UMBRA_API ZintChipMemory : public Zint::PtrInterface,
                                   public Zint::HashMapLink<ZintChipMemory> {
   public:
    explicit ZintChipMemory(const ChipMemory::Ptr& chipMemory)
        : fwkKey_(chipMemory->address()), chipMemory_(chipMemory) {}
    const ChipAddress& fwkKey() const { return fwkKey_; }
    const ChipMemory::Ptr& chipMemory() const { return chipMemory_; }
    void chipMemoryIs(const ChipMemory::Ptr& chipMemory);

   private:
    const ChipAddress fwkKey_;
    ChipMemory::Ptr chipMemory_;
  };
  using ChipMemoryIteratorConst = Zint::HashMap<ZintChipMemory, ChipAddress>::Iterator;

  explicit ChipReadRequest(Zint::Name name) : Request(std::move(name)) {}

  const Zint::Type* fwkType() const override;

 protected:
  ~ChipReadRequest() override;

 public:
  // Nothing: the reader reacts to `state`.
  void handleState() override {}

  // --- The regions, at most one per base address ---

  // Iterated in ascending order of the bit-reversed low address word.

  // The region at that address, null if there is none.
  ChipMemory::Ptr chipMemory(const ChipAddress& address) const;
  U32 chipMemorys() const { return chipMemory_.size(); }
  ChipMemoryIteratorConst chipMemoryIterator() const { return chipMemory_.iterator(); }
  // Adds a region under its address; it replaces another one there. Nothing happens if it is the
  // one there. Null: a range exception.
  void chipMemoryIs(const ChipMemory::Ptr& chipMemory);
  void newChipMemory(const ChipMemory::Ptr& chipMemory);
  // Returns the removed region, null if there was none.
  ChipMemory::Ptr chipMemoryDel(const ChipAddress& address);
  void chipMemoryDelAll();

 private:
  void chipMemoryNotify(const ChipAddress& address);

  Zint::HashMap<ZintChipMemory, ChipAddress> chipMemory_;
};

UMBRA_API Zint::Ptr<ChipReadRequest> chipReadRequestFactory(Zint::Name name);
inline Zint::Ptr<ChipReadRequest> ChipReadRequestIs(Zint::Name name) {
  return chipReadRequestFactory(std::move(name));
}

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipReadRequest*) { return "Hardware::ChipReadRequest"; }

}  // namespace Hardware
