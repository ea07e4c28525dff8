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
// 2. find, insert and del take a few steps for any keys (see HashTable.h); among n members of one
//    hash they compare about log n keys.
// 3. An iterator survives the removal of its own and of other members, and the map's destruction.
// 4. A member is in one map at a time.
// 5. insert changes nothing when memory runs out; del and delAll need none.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Bookmark.h>
#include <Zint/HashTable.h>
#include <Zint/Ptr.h>
#include <Zint/String8.h>
#include <Zint/Types.h>

namespace Zint {

// The hash whose 32 bits the map reverses; a key that gives a reversed hash itself overloads
// reversedHash instead.
inline U32 keyHash(U32 key) { return key; }
inline U32 keyHash(const String8& key) { return key.hash(); }

template <class K>
U32 reversedHash(const K& key) {
  return reversedBits(keyHash(key));
}

template <class V, class K>
class HashMap {
 public:
  using Iterator = MemberIterator<HashMap, V, V*>;

  HashMap() = default;
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  // The destructors of members may insert others.
  ~HashMap() {
    while (size_ != 0) delAll();
  }

  U32 size() const { return size_; }
  Iterator iterator() const { return Iterator(*this, bookmarks_, table_.firstFrom(0)); }

  // Null when there is none.
  V* find(const K& key) const {
    if (size_ == 0) return nullptr;
    const U32 hash = reversedHash(key);
    const Bucket bucket = table_.firstBucketOf(hash);
    return bucket.hasTable() ? Table::findBelow(bucket, hash, key)
                             : Table::findInChain(bucket, hash, key);
  }

  // REQUIRES: no member has its key, and it keeps that key as long as it is in the map.
  void insert(const Ptr<V>& t) {
    if (t == nullptr) throwNullParameter("t", "Zint::HashMap::insert");
    ZINT_ASSERT("Zint/HashMap", t->fwkHmNext() == 0);
    ZINT_ASSERT("Zint/HashMap", link(*t).fwkHmMap_ == nullptr);
    const K& key = t->fwkKey();
    const U32 hash = reversedHash(key);
    Table& table = table_.makeRoom(hash);
    const Place place = table.placeOf(hash, key);
    ZINT_ASSERT("Zint/HashMap", !place.holdsKey);
    link(*t).fwkHmHash_ = hash;
    table.insert(place, t);
    link(*t).fwkHmMap_ = this;
    ++size_;
  }

  // Removes and returns the member of that key; null when there is none.
  Ptr<V> del(const K& key) {
    return size_ == 0 ? nullptr : delBelow(table_, reversedHash(key), key);
  }

  // Removes every member, one after the other in the order of iteration; also those that
  // destructors insert after the current one.
  void delAll() {
    for (V* t = table_.firstFrom(0); t != nullptr;) {
      const U32 hash = link(*t).fwkHmHash_;
      const bool keyIsKept = delBelow(table_, hash, t->fwkKey()) != nullptr;
      ZINT_ASSERT("Zint/HashMap", keyIsKept);
      t = table_.firstOfHash(hash);
    }
  }

 private:
  using Table = HashTable<V, K>;
  using Bucket = typename Table::Bucket;
  using Place = typename Table::Place;

  friend Iterator;

  static HashMapLink<V>& link(V& member) { return member; }

  V* memberAt(V* member) const { return member; }
  V* placeAfter(V* member) const {
    if (V* next = link(*member).fwkHmNext_.ptr(); next != nullptr) return next;
    return table_.firstAfter(link(*member).fwkHmHash_);
  }

  Ptr<V> delBelow(Table& table, U32 hash, const K& key) {
    if (Bucket& bucket = table.bucketOf(hash); bucket.hasTable()) {
      Ptr<V> t = delBelow(*bucket.table(), hash, key);
      table.dissolveIfSmall(bucket);
      return t;
    }
    const Place place = table.placeOf(hash, key);
    return place.holdsKey ? unlink(table, place) : nullptr;
  }

  // Removes the member at `place` and returns it. REQUIRES: there is one.
  Ptr<V> unlink(Table& table, const Place& place) {
    if (!bookmarks_.isEmpty()) bookmarks_.movePast(place.at, place.at, placeAfter(place.at));
    --size_;
    return table.unlink(place);
  }

  Table table_;
  U32 size_ = 0;
  mutable BookmarkList<V, V*> bookmarks_;
};

}  // namespace Zint
