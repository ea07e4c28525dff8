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
#include <type_traits>
#include <utility>
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

// Whether keys of equal hashes are equal.
template <class K>
constexpr bool isHashUnique = std::is_same_v<K, U32>;

template <class V, class K>
class HashTable {
 public:
  static constexpr U32 longestChain = 8;

  // Empty, a chain, or a table. It says the hash of the first member, and whether there are more,
  // so that most searches touch no member. It owns a reference to the first member of its chain, or
  // its table. A copy owns nothing: whoever copies or overwrites a
  // bucket moves the reference by hand.
  class Bucket {
   public:
    Bucket() = default;
    // Null makes it empty.
    explicit Bucket(V* first) {
      if (first == nullptr) return;
      const bool hasMore = next(*first) != nullptr;
      word_ = reinterpret_cast<std::uintptr_t>(first) | (hasMore ? more : 0);
      hash_ = link(*first).fwkHmHash_;
    }
    explicit Bucket(HashTable* table) : word_(reinterpret_cast<std::uintptr_t>(table) | below) {}

    bool isEmpty() const { return word_ == 0; }
    bool hasTable() const { return (word_ & below) != 0; }
    // REQUIRES: it has one.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a tagged address
    HashTable* table() const { return reinterpret_cast<HashTable*>(word_ - below); }
    // The rest REQUIRES: it has no table. Null when it is empty.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a tagged address
    V* first() const { return reinterpret_cast<V*>(word_ & ~more); }
    bool hasMore() const { return (word_ & more) != 0; }
    // Of the first member. REQUIRES: it is not empty.
    U32 hash() const { return hash_; }

   private:
    // Objects have virtual functions, so the two low bits of their addresses are 0.
    static constexpr std::uintptr_t below = 1, more = 2;

    std::uintptr_t word_ = 0;
    U32 hash_ = 0;
  };

  // Where a key is in a chain, or where it would be inserted.
  struct Place {
    V* before;  // null at the beginning
    V* at;      // the first member that is not before the key; null at the end
    bool holdsKey;
  };

  // The first table; it has no buckets until a member is inserted.
  HashTable() = default;

  // REQUIRES: it is the first table, and has buckets.
  Bucket firstBucketOf(U32 hash) const { return buckets_[hash << from_ >> (32 - bits_)]; }

  // The member of that key in the table of a bucket. Null when there is none.
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
    if (bucket.hash() == hash && !bucket.isEmpty() && holdsKey(*bucket.first(), key)) {
      return bucket.first();
    }
    if (!bucket.hasMore()) return nullptr;
    for (V* t = next(*bucket.first()); t != nullptr; t = next(*t)) {
      if (link(*t).fwkHmHash_ == hash && holdsKey(*t, key)) return t;
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
  // The first member of that hash or a later one; null when there is none.
  V* firstOfHash(U32 hash) const {
    if (!hasPrefix(hash)) return hash < prefix_ ? firstFrom(0) : nullptr;
    const std::size_t index = indexOf(hash);
    const Bucket bucket = buckets_[index];
    V* t = bucket.hasTable() ? bucket.table()->firstOfHash(hash) : bucket.first();
    while (t != nullptr && link(*t).fwkHmHash_ < hash) t = next(*t);
    return t != nullptr ? t : firstFrom(index + 1);
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
    if (!hasPrefix(hash)) moveBelow(hash);
    for (HashTable* table = this;;) {
      if (table->isFull()) table->grow();
      Bucket& bucket = table->bucketOf(hash);
      if (!bucket.hasTable()) {
        if (table->isOfOneHash() || !isLong(bucket)) return *table;
        table->divide(bucket);
        if (table == this && chained_ == 0 && tables_ == 1 && !bucket.table()->isOfOneHash()) {
          replaceBy(bucket);
          return makeRoom(hash);
        }
      }
      if (!bucket.table()->hasPrefix(hash)) insertAbove(bucket, hash);
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
    return {before, at, at != nullptr && link(*at).fwkHmHash_ == hash && holdsKey(*at, key)};
  }

  // REQUIRES: `place` is that of the member's key.
  void insert(const Place& place, const Ptr<V>& t) {
    if (isOfOneHash()) byKey_->insert(t.ptr());
    link(*t).fwkHmNext_ = Ptr<V>::adopt(place.at);
    Ptr<V> counted = t;
    Bucket& bucket = bucketOf(link(*t).fwkHmHash_);
    if (place.before == nullptr) {
      bucket = Bucket(counted.release());
    } else {
      link(*place.before).fwkHmNext_.release();
      link(*place.before).fwkHmNext_ = std::move(counted);
      bucket = Bucket(bucket.first());
    }
    ++chained_;
  }

  // REQUIRES: the place holds a member, and is in the table's bucket of that hash.
  Ptr<V> unlink(const Place& place) {
    if (isOfOneHash()) byKey_->erase(byKey_->find(place.at->fwkKey()));
    V* after = link(*place.at).fwkHmNext_.release();
    link(*place.at).fwkHmMap_ = nullptr;
    --chained_;
    Bucket& bucket = bucketOf(link(*place.at).fwkHmHash_);
    if (place.before == nullptr) {
      bucket = Bucket(after);
      return Ptr<V>::adopt(place.at);
    }
    Ptr<V> t = std::move(link(*place.before).fwkHmNext_);
    link(*place.before).fwkHmNext_ = Ptr<V>::adopt(after);
    bucket = Bucket(bucket.first());
    return t;
  }

  // Drops the table of a bucket that a chain can hold as well.
  void dissolveIfSmall(Bucket& bucket) noexcept {
    const HashTable& table = *bucket.table();
    if (table.tables_ == 0 && table.chained_ <= longestChain / 2) dissolve(bucket);
  }
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

  // A table of members that have the first `from` bits of `hash`.
  HashTable(U32 from, U32 bits, U32 hash)
      : from_(from),
        bits_(bits),
        prefix_(from == 0 ? 0 : hash >> (32 - from) << (32 - from)),
        buckets_(std::size_t{1} << bits) {
    if (isOfOneHash()) byKey_ = std::make_unique<std::set<V*, KeyOrder>>();
  }

  static HashMapLink<V>& link(V& member) { return member; }
  static V* next(V& member) { return link(member).fwkHmNext_.ptr(); }

  // Whether a member that has the hash of a key has the key.
  static bool holdsKey(const V& member, const K& key) {
    return isHashUnique<K> || member.fwkKey() == key;
  }
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
  bool isFull() const { return 2 * chained_ >= buckets_.size() && from_ + bits_ < 32; }
  bool hasPrefix(U32 hash) const { return from_ == 0 || ((hash ^ prefix_) >> (32 - from_)) == 0; }
  std::size_t indexOf(U32 hash) const { return bits_ == 0 ? 0 : hash << from_ >> (32 - bits_); }

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

  // For the first table. Takes the place of the table of that bucket, its only one, and so saves
  // each search a step.
  void replaceBy(Bucket bucket) {
    const std::unique_ptr<HashTable> table(bucket.table());
    std::swap(*this, *table);
  }
  // For the first table. Moves it below another one, for a hash that has not its prefix.
  void moveBelow(U32 hash) {
    if (chained_ == 0 && tables_ == 0) {
      from_ = prefix_ = 0;
      return;
    }
    auto below = std::make_unique<HashTable>();
    HashTable table = above(*this, hash);
    std::swap(*this, *below);
    std::swap(*this, table);
    Bucket& bucket = bucketOf(below->prefix_);
    bucket = Bucket(below.release());
    tables_ = 1;
  }

  // Puts a table above that of a bucket, for a hash that has not its prefix.
  static void insertAbove(Bucket& bucket, U32 hash) {
    auto table = std::make_unique<HashTable>(above(*bucket.table(), hash));
    table->bucketOf(bucket.table()->prefix_) = bucket;
    table->tables_ = 1;
    bucket = Bucket(table.release());
  }
  // An empty table that distinguishes the hash from those of another one.
  static HashTable above(const HashTable& below, U32 hash) {
    const U32 from = static_cast<U32>(std::countl_zero(below.prefix_ ^ hash));
    return HashTable(from, std::min(firstBits, below.from_ - from), hash);
  }

  // Puts the members of a chain into their buckets, which are empty.
  void distribute(V* t) noexcept {
    while (t != nullptr) {
      V* const first = t;
      V* last = t;
      const std::size_t index = indexOf(link(*first).fwkHmHash_);
      for (t = next(*t); t != nullptr && indexOf(link(*t).fwkHmHash_) == index; t = next(*t)) {
        last = t;
      }
      link(*last).fwkHmNext_.release();
      buckets_[index] = Bucket(first);
    }
  }

  static constexpr U32 firstBits = 3;

  U32 from_ = 0;  // the first bit that distinguishes its members
  U32 bits_ = 0;
  U32 prefix_ = 0;   // all later bits are 0
  U32 chained_ = 0;  // members in its own chains
  U32 tables_ = 0;   // buckets that have a table
  std::vector<Bucket> buckets_;
  std::unique_ptr<std::set<V*, KeyOrder>> byKey_;  // null unless all are of one hash
};

}  // namespace Zint
