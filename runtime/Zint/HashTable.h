// The buckets of a HashMap, and the tables below those that are crowded. Used by HashMap alone.
//
// A table distinguishes its members by some bits of their reversed hash: `bits` of them, from bit
// `from` on, counted from the top. A bucket is empty, or holds a short chain of members, or holds a
// table of its own, which begins with the first bit in which its members differ. So keys that agree
// in many bits, as multiples of a large number do, are found in few steps. There are at most 32
// tables one below the other. Many members of one hash are in a table of one bucket, with an index
// of their keys.
//
// Invariants:
// 1. Buckets are in ascending order of the reversed hash, and so are the members of a chain; those
//    of equal hashes are in ascending order of their keys.
// 2. A chain that an insertion meets has at most `longestChain` members, unless its table is of one
//    hash. (It can have more for a while, after memory ran out when it was to be divided.)
// 3. The members of a table agree in all bits before `from`, its prefix.
// 4. A table below another one is never empty, and is dropped when a chain can hold its members.
#pragma once

#include <Zint/Ptr.h>
#include <Zint/Types.h>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

namespace Zint {

// The base of a member. Only its map writes it.
template <class V>
class HashMapLink {
 public:
  // The next member of its chain; null at the end.
  const Ptr<V>& fwkHmNext() const { return fwkHmNext_; }

 private:
  template <class, class>
  friend class HashMap;
  template <class, class>
  friend class HashTable;

  Ptr<V> fwkHmNext_;
  const void* fwkHmMap_ = nullptr;
  U32 fwkHmHash_ = 0;  // reversed
};

template <class V, class K>
class HashTable {
 public:
  static constexpr U32 longestChain = 8;

  // One word: null, a chain, or a table. It owns a reference to the first member of its chain, or
  // its table; who copies or overwrites a bucket sees to that.
  class Bucket {
   public:
    Bucket() = default;
    explicit Bucket(V* first) : word_(reinterpret_cast<std::uintptr_t>(first)) {}
    explicit Bucket(HashTable* table) : word_(reinterpret_cast<std::uintptr_t>(table) | 1) {}

    bool isEmpty() const { return word_ == 0; }
    bool hasTable() const { return (word_ & 1) != 0; }
    // Null when it is empty. REQUIRES: it has no table.
    V* first() const { return reinterpret_cast<V*>(word_); }
    // REQUIRES: it has one.
    HashTable* table() const { return reinterpret_cast<HashTable*>(word_ - 1); }

   private:
    std::uintptr_t word_ = 0;
  };

  // Where a key is in a chain, or where it would be inserted.
  struct Place {
    V* before;  // null at the beginning
    V* at;      // the first member that is not before the key; null at the end
    bool holdsKey;
  };

  // The first table; it has no buckets until a member is inserted.
  HashTable() = default;

  // REQUIRES: it has buckets and is the first table.
  Bucket firstBucketOf(U32 hash) const { return buckets_[hash >> (32 - bits_)]; }

  // The search of a bucket that has a table. Null when there is none.
  static V* findBelow(Bucket bucket, U32 hash, const K& key) {
    do {
      const HashTable& table = *bucket.table();
      if (table.isOfOneHash()) {
        const auto place = table.byKey_->find(key);
        return place == table.byKey_->end() ? nullptr : *place;
      }
      bucket = table.buckets_[table.indexOf(hash)];
    } while (bucket.hasTable());
    return findInChain(bucket, hash, key);
  }
  static V* findInChain(Bucket bucket, U32 hash, const K& key) {
    for (V* t = bucket.first(); t != nullptr; t = next(*t)) {
      if (link(*t).fwkHmHash_ == hash && t->fwkKey() == key) return t;
    }
    return nullptr;
  }

  // The first member in that bucket or a later one; null when there is none.
  V* firstFrom(std::size_t index) const {
    for (; index < buckets_.size(); ++index) {
      const Bucket bucket = buckets_[index];
      if (bucket.isEmpty()) continue;
      return bucket.hasTable() ? bucket.table()->firstFrom(0) : bucket.first();
    }
    return nullptr;
  }
  // The first member after the chain of that hash. REQUIRES: the hash is that of a member.
  V* firstAfter(U32 hash) const {
    const std::size_t index = indexOf(hash);
    if (buckets_[index].hasTable()) {
      if (V* t = buckets_[index].table()->firstAfter(hash); t != nullptr) return t;
    }
    return firstFrom(index + 1);
  }

  // The table whose chain receives a member of that hash, after what is crowded was divided. Who
  // calls is the first table. Nothing that can be observed changes, also when memory runs out.
  HashTable& makeRoom(U32 hash) {
    for (HashTable* table = this;;) {
      if (table->isFull()) table->grow();
      Bucket& bucket = table->bucketOf(hash);
      if (!bucket.hasTable()) {
        if (table->isOfOneHash() || !isLong(bucket)) return *table;
        table->divide(bucket);
      }
      if (!bucket.table()->hasPrefix(hash)) table->insertAbove(bucket, hash);
      table = bucket.table();
    }
  }

  // REQUIRES: the hash's bucket has no table.
  Place placeOf(U32 hash, const K& key) const {
    V* before = nullptr;
    V* at = buckets_[indexOf(hash)].first();
    if (isOfOneHash()) {
      const auto place = byKey_->lower_bound(key);
      if (place != byKey_->begin()) before = *std::prev(place);
      at = place == byKey_->end() ? nullptr : *place;
    } else {
      for (; at != nullptr && isBefore(*at, hash, key); at = next(*at)) before = at;
    }
    return {before, at, at != nullptr && link(*at).fwkHmHash_ == hash && at->fwkKey() == key};
  }

  // REQUIRES: `place` is that of the member's key.
  void insert(const Place& place, const Ptr<V>& t) {
    if (isOfOneHash()) byKey_->insert(t.ptr());
    link(*t).fwkHmNext_ = Ptr<V>::adopt(place.at);
    Ptr<V> counted = t;
    if (place.before == nullptr) {
      bucketOf(link(*t).fwkHmHash_) = Bucket(counted.release());
    } else {
      link(*place.before).fwkHmNext_.release();
      link(*place.before).fwkHmNext_ = std::move(counted);
    }
    ++chained_;
  }

  // REQUIRES: the place holds a member, and is in the table's bucket of that hash.
  Ptr<V> unlink(const Place& place) {
    if (isOfOneHash()) byKey_->erase(byKey_->find(place.at->fwkKey()));
    V* after = link(*place.at).fwkHmNext_.release();
    link(*place.at).fwkHmMap_ = nullptr;
    --chained_;
    if (place.before == nullptr) {
      bucketOf(link(*place.at).fwkHmHash_) = Bucket(after);
      return Ptr<V>::adopt(place.at);
    }
    Ptr<V> t = std::move(link(*place.before).fwkHmNext_);
    link(*place.before).fwkHmNext_ = Ptr<V>::adopt(after);
    return t;
  }

  // Drops the table of a bucket that a chain can hold as well.
  void dissolveIfSmall(Bucket& bucket) noexcept {
    const HashTable& table = *bucket.table();
    if (table.tables_ == 0 && table.chained_ <= longestChain / 2) dissolve(bucket);
  }
  // Makes one chain of the members of a bucket, however many they are.
  void dissolve(Bucket& bucket) noexcept {
    const std::unique_ptr<HashTable> table(bucket.table());
    V* first = nullptr;
    V* last = nullptr;
    for (Bucket& part : table->buckets_) {
      if (part.hasTable()) table->dissolve(part);
      if (part.isEmpty()) continue;
      if (last == nullptr) {
        first = part.first();
      } else {
        link(*last).fwkHmNext_ = Ptr<V>::adopt(part.first());
      }
      for (last = part.first(); next(*last) != nullptr;) last = next(*last);
    }
    chained_ += table->chained_;
    --tables_;
    bucket = Bucket(first);
  }

  std::size_t buckets() const { return buckets_.size(); }
  Bucket& bucket(std::size_t index) { return buckets_[index]; }
  Bucket& bucketOf(U32 hash) { return buckets_[indexOf(hash)]; }

 private:
  struct KeyOrder {
    using is_transparent = void;
    bool operator()(const V* left, const V* right) const {
      return left->fwkKey() < right->fwkKey();
    }
    bool operator()(const V* left, const K& right) const { return left->fwkKey() < right; }
    bool operator()(const K& left, const V* right) const { return left < right->fwkKey(); }
  };

  // A table of members that have the first `from` bits of `hash`. REQUIRES: from is at least 1.
  HashTable(U32 from, U32 bits, U32 hash)
      : from_(from),
        bits_(bits),
        prefix_(hash >> (32 - from) << (32 - from)),
        buckets_(std::size_t{1} << bits) {
    if (isOfOneHash()) byKey_ = std::make_unique<std::set<V*, KeyOrder>>();
  }

  static HashMapLink<V>& link(V& member) { return member; }
  static V* next(V& member) { return link(member).fwkHmNext_.ptr(); }

  // Whether the member comes before the place of a key.
  static bool isBefore(V& member, U32 hash, const K& key) {
    const U32 its = link(member).fwkHmHash_;
    return its < hash || (its == hash && static_cast<const K&>(member.fwkKey()) < key);
  }
  // Whether it has no room for another member.
  static bool isLong(Bucket bucket) {
    U32 count = 0;
    for (V* t = bucket.first(); t != nullptr; t = next(*t)) {
      if (++count == longestChain) return true;
    }
    return false;
  }

  bool isOfOneHash() const { return from_ == 32; }
  bool isFull() const { return chained_ >= buckets_.size() && from_ + bits_ < 32; }
  bool hasPrefix(U32 hash) const { return ((hash ^ prefix_) >> (32 - from_)) == 0; }
  std::size_t indexOf(U32 hash) const { return bits_ == 0 ? 0 : hash << from_ >> (32 - bits_); }

  // Doubles the buckets. A table below that begins with the new bit is made anew, as two.
  void grow() {
    if (buckets_.empty()) {
      buckets_.resize(std::size_t{1} << firstBits);
      bits_ = firstBits;
      return;
    }
    std::vector<Bucket> old(buckets_.size() * 2);
    old.swap(buckets_);
    const U32 bit = from_ + bits_++;
    bool isAnyDissolved = false;
    for (Bucket& bucket : old) {
      if (bucket.hasTable() && bucket.table()->from_ > bit) {
        bucketOf(bucket.table()->prefix_) = bucket;
        continue;
      }
      if (bucket.hasTable()) {
        dissolve(bucket);
        isAnyDissolved = true;
      }
      distribute(bucket.first());
    }
    if (isAnyDissolved) divideLongChains();
  }

  // Makes a table of a chain.
  void divide(Bucket& bucket) {
    const U32 hash = link(*bucket.first()).fwkHmHash_;
    U32 count = 1;
    V* last = bucket.first();
    for (; next(*last) != nullptr; last = next(*last)) ++count;
    const U32 from = static_cast<U32>(std::countl_zero(hash ^ link(*last).fwkHmHash_));
    const U32 bits = std::min<U32>(32 - from, std::bit_width(count));
    std::unique_ptr<HashTable> table(new HashTable(from, bits, hash));
    if (table->isOfOneHash()) {
      for (V* t = bucket.first(); t != nullptr; t = next(*t)) {
        table->byKey_->insert(table->byKey_->end(), t);
      }
    }
    table->distribute(bucket.first());
    table->chained_ = count;
    chained_ -= count;
    ++tables_;
    bucket = Bucket(table.release());
    bucket.table()->divideLongChains();
  }
  void divideLongChains() {
    if (isOfOneHash()) return;
    for (Bucket& bucket : buckets_) {
      if (!bucket.hasTable() && isLong(bucket)) divide(bucket);
    }
  }

  // Puts a table above that of a bucket, for a hash that has not its prefix.
  void insertAbove(Bucket& bucket, U32 hash) {
    const HashTable& below = *bucket.table();
    const U32 from = static_cast<U32>(std::countl_zero(below.prefix_ ^ hash));
    const U32 bits = std::min(firstBits, below.from_ - from);
    std::unique_ptr<HashTable> table(new HashTable(from, bits, hash));
    table->bucketOf(below.prefix_) = bucket;
    table->tables_ = 1;
    bucket = Bucket(table.release());
  }

  // Puts the members of a chain into their buckets, which are empty.
  void distribute(V* t) noexcept {
    while (t != nullptr) {
      Bucket& bucket = bucketOf(link(*t).fwkHmHash_);
      bucket = Bucket(t);
      V* last = t;
      for (t = next(*t); t != nullptr && &bucketOf(link(*t).fwkHmHash_) == &bucket; t = next(*t)) {
        last = t;
      }
      link(*last).fwkHmNext_.release();
    }
  }

  static constexpr U32 firstBits = 3;

  U32 from_ = 0;  // constant after construction
  U32 bits_ = 0;
  U32 prefix_ = 0;   // constant after construction; all later bits are 0
  U32 chained_ = 0;  // members in its own chains
  U32 tables_ = 0;   // buckets that have a table
  std::vector<Bucket> buckets_;
  std::unique_ptr<std::set<V*, KeyOrder>> byKey_;  // null unless all are of one hash
};

}  // namespace Zint
