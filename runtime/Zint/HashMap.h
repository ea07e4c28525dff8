// An unordered collection of counted members, chained through a link that each member carries.
//
//   class Chunk : public PtrInterface, public HashMapLink<Chunk> { U32 fwkKey() const; };
//   HashMap<Chunk, U32> chunks;
//   chunks.insert(makePtr<Chunk>(7));
//   for (auto it = chunks.iterator(); it; ++it) use(it->fwkKey());
//
// A map of its own, because the order of iteration and the link in each member are what clients
// rely on: the standard library's have neither.
//
// Invariants:
// 1. Members are in ascending order of their key's reversed hash; those of equal hashes, of their
//    keys. So the order of iteration depends on nothing but the keys.
// 2. A member's bucket is the top bits of its reversed hash; a bucket's members are one chain. Each
//    bucket keeps a tail pointer, so appending in key order is O(1) even if all hashes collide.
// 3. An iterator survives the removal of its own and of other members, and the map's destruction.
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

// The base of a member. Only its map writes it.
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
  using Iterator = MemberIterator<HashMap, V, V*>;

  HashMap() = default;
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap() { delAll(); }

  U32 size() const { return size_; }
  Iterator iterator() const { return Iterator(*this, bookmarks_, firstFrom(0)); }

  // Null when there is none.
  // A loop of its own: with placeOf() a look-up took a tenth longer.
  V* find(const K& key) const {
    if (size_ == 0) return nullptr;
    const U32 hash = reversedHash(key);
    const Bucket& bucket = buckets_[bucketOf(hash)];
    for (V* t = bucket.first.ptr(); t != nullptr; t = link(*t).fwkHmNext_.ptr()) {
      if (link(*t).fwkHmHash_ != hash) continue;
      if (t->fwkKey() == key) return t;
      if (isBefore(*bucket.last, hash, key)) return nullptr;
    }
    return nullptr;
  }

  // REQUIRES: no member has its key.
  void insert(const Ptr<V>& t) {
    if (t == nullptr) throwNullParameter("t", "Zint::HashMap::insert");
    ZINT_ASSERT("Zint/HashMap", t->fwkHmNext() == 0);
    ZINT_ASSERT("Zint/HashMap", link(*t).fwkHmMap_ == nullptr);
    if (size_ == buckets_.size()) grow();
    const K& key = t->fwkKey();
    const U32 hash = reversedHash(key);
    const Place place = placeOf(hash, key);
    ZINT_ASSERT("Zint/HashMap", !place.holdsKey);
    link(*t).fwkHmHash_ = hash;
    link(*t).fwkHmMap_ = this;
    link(*t).fwkHmNext_ = std::move(*place.link);
    *place.link = t;
    if (link(*t).fwkHmNext() == nullptr) place.bucket->last = t.ptr();
    ++size_;
  }

  // Removes and returns the member of that key; null when there is none.
  Ptr<V> del(const K& key) {
    if (size_ == 0) return nullptr;
    const Place place = placeOf(reversedHash(key), key);
    return place.holdsKey ? unlink(place) : nullptr;
  }

  // Removes every member, one after the other.
  void delAll() {
    // By index: the destructor of a member may insert others, and so move the buckets.
    for (std::size_t i = 0; i < buckets_.size(); ++i) {
      while (buckets_[i].first != nullptr)
        unlink({&buckets_[i], nullptr, &buckets_[i].first, true});
    }
  }

 private:
  struct Bucket {
    Ptr<V> first;
    V* last = nullptr;  // null exactly when first is
  };

  // Where a key is, or where it would be inserted.
  struct Place {
    Bucket* bucket;
    V* before;     // the member whose link this is; null for the bucket's own
    Ptr<V>* link;  // holds the first member that is not before the key; null at the end
    bool holdsKey;
  };

  friend Iterator;

  static HashMapLink<V>& link(V& member) { return member; }

  // Whether the member comes before the place of a key.
  static bool isBefore(V& member, U32 hash, const K& key) {
    const U32 its = link(member).fwkHmHash_;
    return its < hash || (its == hash && static_cast<const K&>(member.fwkKey()) < key);
  }

  // REQUIRES: there are buckets. The search of insert and del.
  Place placeOf(U32 hash, const K& key) {
    Bucket& bucket = buckets_[bucketOf(hash)];
    V* before = nullptr;
    Ptr<V>* place = &bucket.first;
    while (V* t = place->ptr()) {
      const U32 its = link(*t).fwkHmHash_;
      if (its > hash) break;
      if (its == hash) {
        if (t->fwkKey() == key) return {&bucket, before, place, true};
        if (!(static_cast<const K&>(t->fwkKey()) < key)) break;
      }
      // Checked once: a key after the last one is appended without a walk.
      if (before == nullptr && isBefore(*bucket.last, hash, key)) t = bucket.last;
      before = t;
      place = &link(*t).fwkHmNext_;
    }
    return {&bucket, before, place, false};
  }

  std::size_t bucketOf(U32 hash) const { return static_cast<U32>((U64{hash} << bits_) >> 32); }

  // The first member in that bucket or a later one; null when there is none.
  V* firstFrom(std::size_t bucket) const {
    for (; bucket < buckets_.size(); ++bucket) {
      if (buckets_[bucket].first != nullptr) return buckets_[bucket].first.ptr();
    }
    return nullptr;
  }

  V* memberAt(V* member) const { return member; }
  V* placeAfter(V* member) const {
    if (V* next = link(*member).fwkHmNext_.ptr(); next != nullptr) return next;
    return firstFrom(bucketOf(link(*member).fwkHmHash_) + 1);
  }

  // Removes the member at `place` and returns it. REQUIRES: there is one.
  Ptr<V> unlink(const Place& place) {
    V& member = **place.link;
    bookmarks_.movePast(*place.link, &member, placeAfter(&member));
    if (place.bucket->last == &member) place.bucket->last = place.before;
    Ptr<V> t = std::move(*place.link);
    *place.link = std::move(link(member).fwkHmNext_);
    link(member).fwkHmMap_ = nullptr;
    --size_;
    return t;
  }

  // Doubles the buckets: each chain is split at the first member whose new bit is set.
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
