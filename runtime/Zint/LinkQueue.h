// A queue, first in first out, of counted members that carry a sequence index. The index is an
// unsigned number that wraps; positions are compared by their distance from the head.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Exception.h>
#include <Zint/Ptr.h>
#include <Zint/Strep.h>
#include <Zint/Types.h>
#include <concepts>
#include <utility>

namespace Zint {

// The base of a member. Only its queue writes it.
template <class V, class I>
class LinkQueueLink {
 public:
  I zint_index() const { return zint_index_; }

 private:
  template <class, std::unsigned_integral>
  friend class LinkQueue;

  I zint_index_ = 0;
  // The next member, a counted reference; for the last member of a queue itself, uncounted; null
  // outside of a queue.
  V* next_ = nullptr;
};

// A queue's bookkeeping: `head` is the index of the first member, `next` the index that the next
// one receives, always after the last one's. In texts "head:next".
template <std::unsigned_integral I>
struct LinkQueueMetadata {
  I head = 0;
  I next = 0;
  friend bool operator==(const LinkQueueMetadata&, const LinkQueueMetadata&) = default;
};

template <class V, std::unsigned_integral I>
class LinkQueue {
 public:
  using Metadata = LinkQueueMetadata<I>;

  LinkQueue() = default;
  LinkQueue(const LinkQueue&) = delete;
  LinkQueue& operator=(const LinkQueue&) = delete;
  ~LinkQueue() { delAll(); }

  U32 size() const { return size_; }
  const Metadata& metadata() const { return metadata_; }
  // Moves the index space, for a queue that does not start at 0.
  // The members must lie between `head` and `next` (range exception).
  void metadataIs(const Metadata& metadata) {
    const I span = static_cast<I>(metadata.next - metadata.head);
    if (head_ != nullptr && (head_->zint_index() != metadata.head ||
                             static_cast<I>(tail_->zint_index() - metadata.head) >= span)) {
      throwRangeException("linkqueue index out of range");
    }
    metadata_ = metadata;
  }

  V* head() const { return head_.ptr(); }
  V* tail() const { return tail_; }
  // The member after `member`, null at the end. REQUIRES: it is in this queue.
  V* after(const V& member) const {
    V* next = link(member).next_;
    return next == &member ? nullptr : next;
  }

  // Appends. The range exception "linkqueue index space full" when the index after the new member
  // would be that of the head. REQUIRES: the member is in no queue.
  void enq(const Ptr<V>& member) {
    if (member == nullptr) throwNullParameter("member", "Zint::LinkQueue::enq");
    append(metadata_.next, member);
  }

  // Appends a member with a caller-chosen index; one that lies before `next` raises the range
  // exception "linkqueue index out of range".
  void insert(I index, const Ptr<V>& member) {
    if (member == nullptr) throwNullParameter("member", "Zint::LinkQueue::insert");
    if (head_ != nullptr &&
        static_cast<I>(index - metadata_.head) < static_cast<I>(metadata_.next - metadata_.head)) {
      throwRangeException("linkqueue index out of range");
    }
    append(index, member);
  }

  // Removes and returns the first member; null when there is none.
  Ptr<V> deq() {
    if (head_ == nullptr) return nullptr;
    Ptr<V> member = std::move(head_);
    head_ = takeNext(*member);
    if (head_ == nullptr) tail_ = nullptr;
    metadata_.head = head_ == nullptr ? metadata_.next : head_->zint_index();
    --size_;
    return member;
  }

  // Removes and returns the member of that index; null when it has been removed before. An index
  // outside of the queue raises the range exception "linkqueue index out of range".
  Ptr<V> del(I index) {
    if (static_cast<I>(index - metadata_.head) >= static_cast<I>(metadata_.next - metadata_.head)) {
      throwRangeException("linkqueue index out of range");
    }
    V* before = nullptr;
    V* member = head_.ptr();
    while (member != nullptr && member->zint_index() != index) {
      before = member;
      member = after(*member);
    }
    if (member == nullptr) return nullptr;
    if (before == nullptr) return deq();
    if (tail_ == member) tail_ = before;
    Ptr<V> removed = takeNext(*before);
    Ptr<V> next = takeNext(*removed);
    link(*before).next_ = next == nullptr ? before : next.release();
    --size_;
    return removed;
  }

  void delAll() {
    while (deq() != nullptr) {
    }
  }

 private:
  void append(I index, const Ptr<V>& member) {
    ZINT_ASSERT("Zint/LinkQueue", link(*member).next_ == nullptr);
    if (head_ == nullptr) {
      metadata_.head = index;
    } else if (static_cast<I>(index + 1 - metadata_.head) == 0) {
      throwRangeException("linkqueue index space full");
    }
    link(*member).zint_index_ = index;
    if (head_ == nullptr) {
      head_ = member;
    } else {
      link(*tail_).next_ = Ptr<V>(member).release();
    }
    tail_ = member.ptr();
    link(*tail_).next_ = tail_;
    metadata_.next = static_cast<I>(index + 1);
    ++size_;
  }

  // Unlinks what follows a member, and returns it; null after the last one.
  static Ptr<V> takeNext(V& member) {
    V* next = std::exchange(link(member).next_, nullptr);
    return next == &member ? nullptr : Ptr<V>::adopt(next);
  }

  static LinkQueueLink<V, I>& link(V& member) { return member; }
  static const LinkQueueLink<V, I>& link(const V& member) { return member; }

  Ptr<V> head_;
  V* tail_ = nullptr;
  Metadata metadata_;
  U32 size_ = 0;
};

template <class I>
String8 valueToStrep(const LinkQueueMetadata<I>& metadata) {
  return valueToStrep(metadata.head) + ":" + valueToStrep(metadata.next);
}

template <class I>
void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                     LinkQueueMetadata<I>& metadata) {
  auto p = pos;
  LinkQueueMetadata<I> read;
  sequenceToValue(p, end, read.head);
  if (p == end || *p != ':') throwRangeException("a queue's bookkeeping is written head:next");
  sequenceToValue(++p, end, read.next);
  pos = p;
  metadata = read;
}

template <class I>
constexpr const char* zintTypeName(const LinkQueueMetadata<I>*) {
  return "Zint::LinkQueueMetadata";
}

}  // namespace Zint
