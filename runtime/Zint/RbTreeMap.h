// A collection of counted members in ascending order of their keys. The tree is the standard
// library's, which is a red-black one; what this adds is iterators that survive the removal of
// members.
//
//   RbTreeMap<Region, ChipAddress> regions;
//   regions.insert(region);                      // under region->fwkKey()
//   for (auto it = regions.iterator(); it; ++it) if (old(**it)) regions.del(it->fwkKey());
#pragma once

#include <Zint/Assert.h>
#include <Zint/Bookmark.h>
#include <Zint/Ptr.h>
#include <Zint/Types.h>
#include <map>

namespace Zint {

template <class V, class K>
class RbTreeMap {
  using Tree = std::map<K, Ptr<V>>;
  using Place = typename Tree::const_iterator;

 public:
  // A position; false at the end. A member that leaves the map is held until the next step.
  class Iterator {
   public:
    explicit operator bool() const { return current_ != nullptr; }
    // Whether the member has left the map, and another may have taken its key.
    bool hasLeft() const { return mark_.hasLeft(); }
    Ptr<V> operator*() const { return current_; }
    V* operator->() const { return current_; }
    Iterator& operator++() {
      // Let go of last: as it goes it may remove members, or the map itself.
      const Ptr<V> left = mark_.leftDel();
      if (mark_.isOrphan()) {
        current_ = nullptr;
        return *this;
      }
      if (left == nullptr) mark_.placeIs(std::next(mark_.place()));
      read();
      return *this;
    }

   private:
    friend class RbTreeMap;
    explicit Iterator(const RbTreeMap& map) : map_(&map), mark_(map.bookmarks_, map.tree_.begin()) {
      read();
    }
    void read() {
      const bool end = mark_.place() == map_->tree_.end();
      current_ = end ? nullptr : mark_.place()->second.ptr();
    }

    const RbTreeMap* map_;
    Bookmark<V, Place> mark_;
    V* current_ = nullptr;  // null at the end
  };

  RbTreeMap() = default;
  RbTreeMap(const RbTreeMap&) = delete;
  RbTreeMap& operator=(const RbTreeMap&) = delete;
  ~RbTreeMap() { delAll(); }

  U32 size() const { return static_cast<U32>(tree_.size()); }
  Iterator iterator() const { return Iterator(*this); }

  // Null when there is none.
  V* find(const K& key) const {
    const auto place = tree_.find(key);
    return place == tree_.end() ? nullptr : place->second.ptr();
  }

  // REQUIRES: no member has its key.
  void insert(const Ptr<V>& member) {
    const bool isNew = tree_.emplace(member->fwkKey(), member).second;
    ZINT_ASSERT("Zint/RbTreeMap", isNew);
  }

  // Removes and returns the member of that key; null when there is none.
  Ptr<V> del(const K& key) {
    const auto place = tree_.find(key);
    return place == tree_.end() ? nullptr : unlinked(place);
  }

  // Removes every member, in ascending order.
  void delAll() {
    while (!tree_.empty()) unlinked(tree_.begin());
  }

 private:
  Ptr<V> unlinked(typename Tree::iterator place) {
    bookmarks_.leaving(place->second, place, std::next(place));
    Ptr<V> member = std::move(place->second);
    tree_.erase(place);
    return member;
  }

  Tree tree_;
  mutable BookmarkList<V, Place> bookmarks_;
};

}  // namespace Zint
