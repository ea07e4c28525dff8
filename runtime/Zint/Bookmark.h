// Positions in a collection that survive the removal of members, of the current one too.
#pragma once

#include <Zint/Ptr.h>
#include <Zint/Types.h>
#include <utility>

namespace Zint {

template <class V, class Place>
class BookmarkList;

// One position. When its member leaves the collection, the position moves to the next member and
// keeps the one that has left.
template <class V, class Place>
class Bookmark {
 public:
  Bookmark(BookmarkList<V, Place>& list, Place place) : list_(&list), place_(place) { enter(); }
  Bookmark(const Bookmark& other) : list_(other.list_), place_(other.place_), left_(other.left_) {
    enter();
  }
  Bookmark& operator=(const Bookmark& other) {
    if (this == &other) return *this;
    const Ptr<V> left = std::exchange(left_, other.left_);  // released last
    leave();
    list_ = other.list_;
    place_ = other.place_;
    enter();
    return *this;
  }
  ~Bookmark() { leave(); }

  const Place& place() const { return place_; }
  // The collection is destroyed.
  bool isOrphan() const { return list_ == nullptr; }
  // Whether the member of this position has left; then the position is that of the next one
  // already.
  bool hasLeft() const { return left_ != nullptr; }
  void placeIs(Place place) { place_ = place; }
  // Hands that member over; null while it has not left.
  Ptr<V> leftDel() { return std::move(left_); }

 private:
  friend class BookmarkList<V, Place>;

  void enter();
  void leave();

  BookmarkList<V, Place>* list_;
  Place place_;
  Ptr<V> left_;
  Bookmark* next_ = nullptr;
  Bookmark* previous_ = nullptr;
};

// The positions that are open in one collection. Costs the collection one pointer.
template <class V, class Place>
class BookmarkList {
 public:
  BookmarkList() = default;
  BookmarkList(const BookmarkList&) = delete;
  BookmarkList& operator=(const BookmarkList&) = delete;
  ~BookmarkList() {
    for (auto* mark = first_; mark != nullptr; mark = mark->next_) mark->list_ = nullptr;
  }

  // No position is open.
  bool isEmpty() const { return first_ == nullptr; }
  // Call it before the member at `place` leaves; `next` is the place after it.
  void movePast(const Ptr<V>& member, const Place& place, const Place& next) {
    for (auto* mark = first_; mark != nullptr; mark = mark->next_) {
      if (mark->place_ != place) continue;
      mark->place_ = next;
      if (mark->left_ == nullptr) mark->left_ = member;
    }
  }

 private:
  friend class Bookmark<V, Place>;

  Bookmark<V, Place>* first_ = nullptr;
};

template <class V, class Place>
void Bookmark<V, Place>::enter() {
  if (list_ == nullptr) return;
  previous_ = nullptr;
  next_ = std::exchange(list_->first_, this);
  if (next_ != nullptr) next_->previous_ = this;
}

template <class V, class Place>
void Bookmark<V, Place>::leave() {
  if (list_ == nullptr) return;
  (previous_ == nullptr ? list_->first_ : previous_->next_) = next_;
  if (next_ != nullptr) next_->previous_ = previous_;
}

// A position in a collection; false at the end. A member that leaves the collection is held until
// the next step. A `Collection` has, for its friend:
//   V* memberAt(Place) const;       null at the end
//   Place placeAfter(Place) const;  REQUIRES: not at the end
template <class Collection, class V, class Place>
class MemberIterator {
 public:
  MemberIterator(const Collection& collection, BookmarkList<V, Place>& list, Place first)
      : collection_(&collection), mark_(list, first), current_(collection.memberAt(first)) {}

  explicit operator bool() const { return current_ != nullptr; }
  // Whether the member has left the collection, and another may have taken its key.
  bool hasLeft() const { return mark_.hasLeft(); }
  Ptr<V> operator*() const { return current_; }
  V* operator->() const { return current_; }
  // The member that lies so many steps ahead as the collection is now; null when the end comes
  // first. For who prepares for it: a change may keep the walk from getting there.
  V* ahead(U32 steps) const {
    if (mark_.isOrphan() || mark_.hasLeft()) return nullptr;
    V* member = current_;
    for (Place place = mark_.place(); member != nullptr && steps != 0; --steps) {
      place = collection_->placeAfter(place);
      member = collection_->memberAt(place);
    }
    return member;
  }
  MemberIterator& operator++() {
    // Released last: its destructor may remove members or destroy the collection.
    const Ptr<V> left = mark_.leftDel();
    if (mark_.isOrphan()) {
      current_ = nullptr;
      return *this;
    }
    if (left == nullptr) mark_.placeIs(collection_->placeAfter(mark_.place()));
    current_ = collection_->memberAt(mark_.place());
    return *this;
  }

 private:
  const Collection* collection_;
  Bookmark<V, Place> mark_;
  V* current_;  // null at the end
};

}  // namespace Zint
