// A directory that makes, keeps and removes regions by name. A name may be asked for again only
// with the same address, entry size, stride and access method; the region gets the new number of
// entries.
//
//   auto directory = chipMemoryBogonFactory("switch");
//   auto table = directory->chipMemoryIs("mac", ChipAddress(0, 0x1000), 1024, 4, 4, ham);
//   directory->chipMemoryDel("mac");            // the region lives on while others hold it
//
// A region can be in one directory at a time: the map chains it through a link of its own.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Zint/Entity.h>
#include <Zint/HashMap.h>

namespace Hardware {

class UMBRA_API ChipMemoryBogon : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<ChipMemoryBogon>;
  struct Id : Entity::Id {
    enum : Zint::AttributeId { chipMemory = isNondestructing + 1 };
  };

  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const ChipMemoryBogon>& directory);
    const ChipMemoryBogon* notifier() const {
      return static_cast<const ChipMemoryBogon*>(Entity::NotifieeConst::notifier());
    }
    // A region of that name was made or removed.
    virtual void onChipMemory(Zint::String8) {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, ChipMemoryBogon> {
    using NotifieeOf::NotifieeOf;
  };

  using Map = Zint::HashMap<ChipMemory, Zint::String8>;
  using ChipMemoryIteratorConst = Map::Iterator;
  // Walks the regions and can remove them.
  class ChipMemoryIterator : public Map::Iterator {
   public:
    // Removes the current region and announces it. Does nothing if the region has left already.
    void del() {
      if (hasLeft()) return;
      const ChipMemory::Ptr region = **this;
      directory_->chipMemory_.del(region->fwkKey());
      deleteNotify(region);
    }
    void deleteNotify(const ChipMemory::Ptr& region) {
      const ChipMemory::Ptr held = region;  // a notifiee may clear the pointer that was passed
      directory_->announce(held->fwkKey());
    }

   private:
    friend class ChipMemoryBogon;
    explicit ChipMemoryIterator(ChipMemoryBogon* directory)
        : Map::Iterator(directory->chipMemory_.iterator()), directory_(directory) {}

    ChipMemoryBogon* directory_;
  };

  explicit ChipMemoryBogon(Zint::Name name);

  const Zint::Type* fwkType() const override;

 protected:
  // Announces the removal of every region, then drops the notifiees, then frees the map.
  ~ChipMemoryBogon() override;

 public:
  // Null when there is none.
  ChipMemory::Ptr chipMemory(const Zint::String8& name) const { return chipMemory_.find(name); }
  U32 chipMemorys() const { return chipMemory_.size(); }
  ChipMemoryIteratorConst chipMemoryIteratorConst() const { return chipMemory_.iterator(); }
  ChipMemoryIterator chipMemoryIterator() { return ChipMemoryIterator(this); }

  // Finds or makes; never null. An existing region is compared with the arguments in this order:
  // address, entrySize, stride, chipHam. A difference raises the name-in-use exception. Deliberate,
  // because clients rely on it: `entries` is set after the address has been compared, before the
  // rest.
  ChipMemory::Ptr chipMemoryIs(Zint::String8 name, const ChipAddress& address, U32 entries,
                               U32 entrySize, U32 stride, const Zint::Ptr<ChipHam>& chipHam);
  // Makes and inserts, without look-up and without notification. REQUIRES: no region of that name.
  ChipMemory::Ptr newChipMemory(Zint::String8 name, const ChipAddress& address, U32 entries,
                                U32 entrySize, U32 stride, const Zint::Ptr<ChipHam>& chipHam);
  // Returns the removed region, null when there was none.
  ChipMemory::Ptr chipMemoryDel(Zint::String8 name);
  void chipMemoryDelAll();
  // Notifies every notifiee that the member `name` has changed.
  void chipMemoryNotify(Zint::String8 name, const ChipMemory::Ptr& chipMemory);

 private:
  void announce(const Zint::String8& name);

  Map chipMemory_;
};

UMBRA_API Zint::Ptr<ChipMemoryBogon> chipMemoryBogonFactory(Zint::Name name);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const ChipMemoryBogon*) { return "Hardware::ChipMemoryBogon"; }

}  // namespace Hardware
