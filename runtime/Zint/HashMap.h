// An unordered collection of counted members, chained through a link that each member carries.
//
//   class Chunk : public PtrInterface, public HashMapLink<Chunk> { U32 fwkKey() const; };
//   HashMap<Chunk, U32> chunks;
//   chunks.insert(makePtr<Chunk>(7));
//   for (auto it = chunks.iterator(); it; ++it) use(it->fwkKey());
//
// Invariants:
// 1. Members stand in ascending order of their key's reversed hash; those of equal hashes in
//    ascending order of their keys. So the order of iteration depends on nothing but the keys.
// 2. A member's bucket is the top bits of its reversed hash; a bucket's members are one chain, the
//    last of which is known: keys that come in ascending order cost the same however many of them
//    share a hash.
// 3. An iterator survives the removal of its own and of other members, and the end of the map.
// 4. A member is in one map at a time.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Bookmark.h>
#include <Zint/Ptr.h>
#include <Zint/String8.h>
#include <Zint/Types.h>
#include <concepts>
#include <vector>

namespace Zint {

// The hash whose 32 bits the map reverses; a key that gives a reversed hash itself overloads
// reversedHash instead.
inline U32 keyHash(U32 key) { return key; }
inline U32 keyHash(const String8& key) { return key.hash(); }

template <class K>
U32 reversedHash(const K& key) {
  return reversedBits(keyHash(key));
}

// The base of a member. Its map is the only one to write it.
template <class V>
class HashMapLink {
 public:
  const Ptr<V>& fwkHmNext() const { return fwkHmNext_; }

 private:
  template <class, class>
  friend class HashMap;

  Ptr<V> fwkHmNext_;
  const void* fwkHmMap_ = nullptr;
  U32 fwkHmHash_ = 0;  // reversed
};

template <class V, class K>
class HashMap {
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
      if (left == nullptr) mark_.placeIs(map_->after(*current_));
      current_ = mark_.place();
      return *this;
    }

   private:
    friend class HashMap;
    explicit Iterator(const HashMap& map)
        : map_(&map), mark_(map.bookmarks_, map.first()), current_(mark_.place()) {}

    const HashMap* map_;
    Bookmark<V, V*> mark_;
    V* current_;  // null at the end
  };

  HashMap() = default;
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap() { delAll(); }

  U32 size() const { return size_; }
  Iterator iterator() const { return Iterator(*this); }

  // Null when there is none.
  V* find(const K& key) const {
    if (size_ == 0) return nullptr;
    const U32 hash = reversedHash(key);
    const Bucket& bucket = buckets_[bucketOf(hash)];
    for (V* t = bucket.first.ptr(); t != nullptr; t = link(*t).fwkHmNext_.ptr()) {
      if (link(*t).fwkHmHash_ != hash) continue;
      if (t->fwkKey() == key) return t;
      if (standsBefore(*bucket.last, hash, key)) return nullptr;
    }
    return nullptr;
  }

  // REQUIRES: no member has its key.
  void insert(const Ptr<V>& t) {
    ZINT_ASSERT("Zint/HashMap", t->fwkHmNext() == 0);
    ZINT_ASSERT("Zint/HashMap", link(*t).fwkHmMap_ == nullptr);
    if (size_ == buckets_.size()) grow();
    const K& key = t->fwkKey();
    const U32 hash = reversedHash(key);
    Bucket& bucket = buckets_[bucketOf(hash)];
    Ptr<V>* place = &bucket.first;
    if (bucket.last != nullptr && standsBefore(*bucket.last, hash, key)) {
      place = &link(*bucket.last).fwkHmNext_;
    }
    while (*place != nullptr && standsBefore(**place, hash, key)) place = &link(**place).fwkHmNext_;
    ZINT_ASSERT("Zint/HashMap", *place == nullptr || !((*place)->fwkKey() == key));
    link(*t).fwkHmHash_ = hash;
    link(*t).fwkHmMap_ = this;
    link(*t).fwkHmNext_ = std::move(*place);
    *place = t;
    if (link(*t).fwkHmNext() == nullptr) bucket.last = t.ptr();
    ++size_;
  }

  // Removes and returns the member of that key; null when there is none.
  Ptr<V> del(const K& key) {
    V* member = find(key);
    return member == nullptr ? nullptr : unlinked(*member);
  }

  // Removes every member, one after the other.
  void delAll() {
    // By index: the end of a member may insert others, and so move the buckets.
    for (std::size_t i = 0; i < buckets_.size(); ++i) {
      while (buckets_[i].first != nullptr) unlinked(*buckets_[i].first);
    }
  }

 private:
  struct Bucket {
    Ptr<V> first;
    V* last = nullptr;  // null exactly when first is
  };

  static HashMapLink<V>& link(V& member) { return member; }

  // Whether a member stands before the place of a key.
  static bool standsBefore(V& member, U32 hash, const K& key) {
    const U32 its = link(member).fwkHmHash_;
    return its < hash || (its == hash && static_cast<const K&>(member.fwkKey()) < key);
  }

  std::size_t bucketOf(U32 hash) const { return static_cast<U32>((U64{hash} << bits_) >> 32); }

  V* first() const { return firstFrom(0); }
  V* firstFrom(std::size_t bucket) const {
    for (; bucket < buckets_.size(); ++bucket) {
      if (buckets_[bucket].first != nullptr) return buckets_[bucket].first.ptr();
    }
    return nullptr;
  }
  V* after(V& member) const {
    if (V* next = link(member).fwkHmNext_.ptr(); next != nullptr) return next;
    return firstFrom(bucketOf(link(member).fwkHmHash_) + 1);
  }

  Ptr<V> unlinked(V& member) {
    Bucket& bucket = buckets_[bucketOf(link(member).fwkHmHash_)];
    V* before = nullptr;
    Ptr<V>* place = &bucket.first;
    while (place->ptr() != &member) {
      before = place->ptr();
      place = &link(*before).fwkHmNext_;
    }
    bookmarks_.leaving(*place, &member, after(member));
    if (bucket.last == &member) bucket.last = before;
    Ptr<V> t = std::move(*place);
    *place = std::move(link(member).fwkHmNext_);
    link(member).fwkHmMap_ = nullptr;
    --size_;
    return t;
  }

  // Doubles the buckets: each chain falls into two at the first member with the new bit set.
  void grow() {
    if (buckets_.empty()) {
      buckets_.resize(std::size_t{1} << firstBits);
      bits_ = firstBits;
      return;
    }
    std::vector<Bucket> buckets(buckets_.size() * 2);
    ++bits_;
    for (std::size_t i = 0; i < buckets_.size(); ++i) {
      Bucket& low = buckets[2 * i];
      Bucket& high = buckets[2 * i + 1];
      Ptr<V>* split = &buckets_[i].first;
      while (*split != nullptr && bucketOf(link(**split).fwkHmHash_) == 2 * i) {
        low.last = split->ptr();
        split = &link(**split).fwkHmNext_;
      }
      high.first = std::move(*split);
      if (high.first != nullptr) high.last = buckets_[i].last;
      low.first = std::move(buckets_[i].first);
    }
    buckets_.swap(buckets);
  }

  static constexpr U32 firstBits = 3;

  std::vector<Bucket> buckets_;
  U32 bits_ = 0;
  U32 size_ = 0;
  mutable BookmarkList<V, V*> bookmarks_;
};

}  // namespace Zint
