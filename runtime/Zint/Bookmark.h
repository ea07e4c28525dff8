// Positions in a collection that survive the removal of members, of the current one too.
#pragma once

#include <Zint/Ptr.h>
#include <utility>

namespace Zint {

template <class V, class Place>
class BookmarkList;

// One position. When its member leaves the collection, the position moves to the member behind it
// and keeps the one that has left.
template <class V, class Place>
class Bookmark {
 public:
  Bookmark(BookmarkList<V, Place>& list, Place place) : list_(&list), place_(place) { enter(); }
  Bookmark(const Bookmark& other) : list_(other.list_), place_(other.place_), left_(other.left_) {
    enter();
  }
  Bookmark& operator=(const Bookmark& other) {
    if (this == &other) return *this;
    const Ptr<V> left = std::exchange(left_, other.left_);  // let go of when all else is done
    leave();
    list_ = other.list_;
    place_ = other.place_;
    enter();
    return *this;
  }
  ~Bookmark() { leave(); }

  const Place& place() const { return place_; }
  // The collection is gone.
  bool isOrphan() const { return list_ == nullptr; }
  // Whether the member at which this stood has left; then this stands on the next one already.
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

  // The member at `place` is about to leave; `next` is the one behind it.
  void leaving(const Ptr<V>& member, const Place& place, const Place& next) {
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

}  // namespace Zint
