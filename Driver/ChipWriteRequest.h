// What is to be written back to chips, and in which order: the twin of a read request.
//
//   auto request = chipWriteRequestFactory("replay");
//   request->chipMemoryIs(vlans);
//   request->newGroup(0.010);                    // all before it first, then a pause of 10 ms
//   request->chipMemoryIs(ports);
//   request->stateIs(Zint::Request::start_);     // the ChipWriter of this request writes
//   ... onStatus(): request->status() == Zint::Request::done_
//
// A group is a barrier: nothing of it is written before everything of the groups before it was.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Zint/Request.h>
#include <vector>

namespace Driver {

class UMBRA_API ChipWriteRequest : public Zint::Request {
 public:
  using Ptr = Zint::Ptr<ChipWriteRequest>;
  using ChipMemory = Hardware::ChipMemory;
  using ChipAddress = Hardware::ChipAddress;

  struct Id : Request::Id {
    enum : Zint::AttributeId {
      chipMemory = generation + 1,
      newGroup,
      includesAdopted,
      leavesBuffered,
      stringValue,
      lastMember = stringValue
    };
  };

  class UMBRA_API NotifieeConst : public Request::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipWriteRequest>& request, bool active = true);
    const ChipWriteRequest* notifier() const {
      return static_cast<const ChipWriteRequest*>(Request::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onChipMemory() {}  // a region was added, moved or removed
    virtual void onIncludesAdopted() {}
    virtual void onLeavesBuffered() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipWriteRequest> {
    using NotifieeOf::NotifieeOf;
  };

  // Regions that are written one after the other, in the order in which they were added.
  struct Group {
    Zint::Seconds delay = 0;  // from the end of the group before it to its first access
    std::vector<ChipMemory::Ptr> chipMemory;
  };

  explicit ChipWriteRequest(Zint::Name name) : Request(std::move(name)), groups_(1) {}

  const Zint::Type* fwkType() const override;

 protected:
  ~ChipWriteRequest() override;

 public:
  // --- The regions, at most one for a base address -----------------------------------------------
  // At least one group; one without regions counts as a pause.
  const std::vector<Group>& groups() const { return groups_; }
  // The region at that address, null if there is none.
  ChipMemory::Ptr chipMemory(const ChipAddress& address) const;
  U32 chipMemorys() const;
  // In the order of writing.
  std::vector<ChipAddress> chipMemoryAddresses() const;
  bool holds(const ChipMemory::Ptr& region) const;
  // Adds a region to the end of the last group. One that is in the request already, or another one
  // at its address, is taken out before. Null: a range exception.
  void chipMemoryIs(const ChipMemory::Ptr& region);
  // Nothing happens where it is not in the request.
  void chipMemoryDel(const ChipMemory::Ptr& region);
  // Removes the regions and the groups.
  void chipMemoryDelAll();
  // Regions that are added from now on belong to a new group. REQUIRES: a delay that is finite and
  // not negative (range exception).
  void newGroup(const Zint::Seconds& delay);

  // Whether entries are written, too, that are known but were never written by a client: adopted,
  // or known from the start. Off by default.
  bool includesAdopted() const { return includesAdopted_; }
  void includesAdoptedIs(bool includesAdopted);
  // Whether buffered regions return to normal (ChipWriter::doLeaveBuffered). Off by default: they
  // are left as they are, and listed as held.
  bool leavesBuffered() const { return leavesBuffered_; }
  void leavesBufferedIs(bool leavesBuffered);

  // "vlans, ports; after 0.01 s: mac"
  Zint::String8 stringValue() const;

 private:
  std::vector<Group> groups_;
  bool includesAdopted_ = false;
  bool leavesBuffered_ = false;
};

UMBRA_API Zint::Ptr<ChipWriteRequest> chipWriteRequestFactory(Zint::Name name);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipWriteRequest*) { return "Driver::ChipWriteRequest"; }

}  // namespace Driver
