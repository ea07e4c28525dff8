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
  using Iterator = MemberIterator<RbTreeMap, V, Place>;

  RbTreeMap() = default;
  RbTreeMap(const RbTreeMap&) = delete;
  RbTreeMap& operator=(const RbTreeMap&) = delete;
  ~RbTreeMap() { delAll(); }

  U32 size() const { return static_cast<U32>(tree_.size()); }
  Iterator iterator() const { return Iterator(*this, bookmarks_, tree_.begin()); }

  // Null when there is none.
  V* find(const K& key) const { return memberAt(tree_.find(key)); }

  // REQUIRES: no member has its key.
  void insert(const Ptr<V>& member) {
    if (member == nullptr) throwNullParameter("member", "Zint::RbTreeMap::insert");
    const bool isNew = tree_.emplace(member->fwkKey(), member).second;
    ZINT_ASSERT("Zint/RbTreeMap", isNew);
  }

  // Removes and returns the member of that key; null when there is none.
  Ptr<V> del(const K& key) {
    const auto place = tree_.find(key);
    return place == tree_.end() ? nullptr : unlink(place);
  }

  // Removes every member, in ascending order.
  void delAll() {
    while (!tree_.empty()) unlink(tree_.begin());
  }

 private:
  friend Iterator;

  V* memberAt(Place place) const { return place == tree_.end() ? nullptr : place->second.ptr(); }
  Place placeAfter(Place place) const { return std::next(place); }

  Ptr<V> unlink(typename Tree::iterator place) {
    bookmarks_.movePast(place->second, place, std::next(place));
    Ptr<V> member = std::move(place->second);
    tree_.erase(place);
    return member;
  }

  Tree tree_;
  mutable BookmarkList<V, Place> bookmarks_;
};

}  // namespace Zint
