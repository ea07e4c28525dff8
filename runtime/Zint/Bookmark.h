// Positions in a collection that survive the removal of members, of the current one too.
#pragma once

#include <utility>

namespace Zint {

template <class Place>
class BookmarkList;

// One position. When its member leaves the collection, the position moves to the member behind it
// and remembers that it need not step.
template <class Place>
class Bookmark {
 public:
  Bookmark(BookmarkList<Place>& list, Place place) : list_(&list), place_(place) { enter(); }
  Bookmark(const Bookmark& other)
      : list_(other.list_), place_(other.place_), stepped_(other.stepped_) {
    enter();
  }
  Bookmark& operator=(const Bookmark& other) {
    if (this == &other) return *this;
    leave();
    list_ = other.list_;
    place_ = other.place_;
    stepped_ = other.stepped_;
    enter();
    return *this;
  }
  ~Bookmark() { leave(); }

  const Place& place() const { return place_; }
  // The collection is gone.
  bool isOrphan() const { return list_ == nullptr; }
  // Whether the member at which this stood has left; then it stands on the next one already.
  bool isStepped() const { return stepped_; }
  void placeIs(Place place) {
    place_ = place;
    stepped_ = false;
  }

 private:
  friend class BookmarkList<Place>;

  void enter();
  void leave();

  BookmarkList<Place>* list_;
  Place place_;
  bool stepped_ = false;
  Bookmark* next_ = nullptr;
  Bookmark* previous_ = nullptr;
};

// The positions that are open in one collection. Costs the collection one pointer.
template <class Place>
class BookmarkList {
 public:
  BookmarkList() = default;
  BookmarkList(const BookmarkList&) = delete;
  BookmarkList& operator=(const BookmarkList&) = delete;
  ~BookmarkList() {
    for (Bookmark<Place>* mark = first_; mark != nullptr; mark = mark->next_) mark->list_ = nullptr;
  }

  // The member at `place` is about to leave; `next` is the one behind it.
  void leaving(const Place& place, const Place& next) {
    for (Bookmark<Place>* mark = first_; mark != nullptr; mark = mark->next_) {
      if (mark->place_ != place) continue;
      mark->place_ = next;
      mark->stepped_ = true;
    }
  }

 private:
  friend class Bookmark<Place>;

  Bookmark<Place>* first_ = nullptr;
};

template <class Place>
void Bookmark<Place>::enter() {
  if (list_ == nullptr) return;
  previous_ = nullptr;
  next_ = std::exchange(list_->first_, this);
  if (next_ != nullptr) next_->previous_ = this;
}

template <class Place>
void Bookmark<Place>::leave() {
  if (list_ == nullptr) return;
  (previous_ == nullptr ? list_->first_ : previous_->next_) = next_;
  if (next_ != nullptr) next_->previous_ = previous_;
}

}  // namespace Zint
