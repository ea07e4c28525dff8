#include <Mirl/Mirl.h>

#include <Mirl/Format.h>
#include <Mirl/Outside.h>
#include <Zint/Clock.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>

namespace Mirl {
namespace {

// --- Threads ---

// The keys of the threads that live and have written a record, each at the index that is its
// remainder. A key is used once.
constexpr U32 threadsMax = 64;
constinit std::atomic<U32> threads[threadsMax];
constinit std::atomic<U32> threadsBegun{0};

struct Thread {
  U32 key;        // 0 before the first record, at the end, and for one too many
  bool hasBegun;  // the first record was written
};
// Trivially destructible: destructors of other objects may still trace. initial-exec: no call to
// __tls_get_addr, also in a library that is loaded later.
[[gnu::tls_model("initial-exec")]] constinit thread_local Thread thread{0, false};
// The ring and the part that the thread wrote to last, at each level.
struct Used {
  const void* ring;
  void* part;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Used used[TraceFile::rings]{};

// Gives the thread's key back when the thread ends. What is written after that is nobody's.
struct ThreadEnd {
  ThreadEnd() = default;
  ThreadEnd(const ThreadEnd&) = delete;
  ThreadEnd& operator=(const ThreadEnd&) = delete;
  ~ThreadEnd() {
    const U32 key = std::exchange(thread.key, 0);
    std::fill(std::begin(used), std::end(used), Used{});
    threads[key % threadsMax].store(0, std::memory_order_release);
  }
};

void beginThread() {
  thread.hasBegun = true;
  const U32 begun = threadsBegun.fetch_add(1, std::memory_order_relaxed) + 1;
  for (U32 i = 0; i < threadsMax; ++i) {
    U32 none = 0;
    const U32 key = begun * threadsMax + i;
    if (key == 0 || !threads[i].compare_exchange_strong(none, key)) continue;
    thread.key = key;
    static thread_local const ThreadEnd end;
    (void)&end;
    return;
  }
}

}  // namespace

bool Threads::isAlive(U32 key) {
  return threads[key % threadsMax].load(std::memory_order_acquire) == key;
}
U32 Threads::ownKey() { return thread.key; }

constinit TraceFile theTraceFile;

MsgDesc::MsgDesc(TraceFile& file, const char* format, int line)
    : file_(file), format_(format), line_(line) {
  const SpinHold hold(file_.held_);
  id_ = ++file_.ids_;
  next_ = file_.descs_;
  file_.descs_ = this;
  if (&file_ == &theTraceFile) Outside::add(*this);
}

MsgDesc::~MsgDesc() {
  const SpinHold hold(file_.held_);
  const MsgDesc** link = &file_.descs_;
  while (*link != this) link = &const_cast<MsgDesc*>(*link)->next_;
  *link = next_;
}

// --- Parts ---

U32 RingBuf::Part::recordSize(U32 place) const {
  U32 record = 0;
  std::memcpy(&record, bytes + place, sizeof record);
  return record;
}

// By a new owner. What the last one had under construction is lost.
void RingBuf::Part::takeOver() {
  if (held == 0) limit = size;  // in a new one it is 0
  current = nullptr;
}

// Drops what is not shown any more, and then as much as is needed. REQUIRES: the owner.
void RingBuf::Part::makeRoom(U32 needed) {
  while (held > capacity || (held > 0 && limit - next < needed)) {
    const U32 oldest = recordSize(first);
    const bool isWrapped = limit != size;
    held -= oldest;
    first = following(first, oldest);
    limit = isWrapped && first != 0 && held > 0 ? first : size;
    ++dropped;
  }
  begin.exchange(dropped << 16 | first / unit);
  while (isRead.load()) {
  }
}

// The bytes of a whole record are in their place.
inline void RingBuf::Part::commit(U32 record) {
  held += record;
  next += record;
  if (next >= starts) {
    next = 0;
    limit = first;
  }
  ++written;
  end.store(written << 12 | next / unit, std::memory_order_release);
}

void RingBuf::Part::append(const U8* record, U32 recordBytes) {
  if (limit - next < recordBytes) makeRoom(recordBytes);
  std::memcpy(bytes + next, record, recordBytes);
  commit(recordBytes);
}

// The part that this thread writes to at a level.
[[gnu::always_inline]] inline RingBuf::Part& RingBuf::partOf(U32 level) {
  // The last one may be another file's, also of one that is destroyed and had the same memory.
  Used& last = used[level];
  auto* part = static_cast<Part*>(last.part);
  if (last.ring != this || part->owner.load(std::memory_order_relaxed) != thread.key) [[unlikely]] {
    part = &claim();
    last = {this, part};
  }
  return *part;
}

// A part that was never used, or else one whose owner has ended, or else the last one.
[[gnu::cold]] RingBuf::Part& RingBuf::claim() {
  if (!thread.hasBegun) beginThread();
  const SpinHold hold(held_);
  Part* part = nullptr;
  for (Part* each = parts_ + threadParts; thread.key != 0 && each-- != parts_;) {
    const U32 holder = each->holder();
    if (holder == thread.key) {
      part = each;
      break;
    }
    const bool isFree =
        holder == 0 || (!Threads::isAlive(holder) && (part == nullptr || part->holder() != 0));
    if (isFree) part = each;
  }
  if (part == nullptr) {
    takeShared();
    return parts_[threadParts];
  }
  if (part->holder() != thread.key) part->takeOver();
  if (isOutside_) Outside::move(*this, *part);
  part->called = 0;
  part->owner.store(thread.key, std::memory_order_relaxed);
  return *part;
}

void RingBuf::takeShared() {
  Part& shared = parts_[threadParts];
  if (shared.held == 0) shared.takeOver();
  if (isOutside_) Outside::move(*this, shared);
}

// --- Records ---

[[gnu::always_inline]] inline RingBuf::Msg::Msg(RingBuf& ring, U32 id, U32 level)
    : ring_(ring),
      part_(&ring.partOf(level)),
      size_(sizeof(Header)),
      isInPlace_(part_ != ring.parts_ + threadParts) {
  // Read first: a clock may throw, and then the part must not know this record.
  const Zint::Seconds time = Zint::recordTime();
  if (isInPlace_) {
    if (part_->current != nullptr) part_->current->moveToStack();
    part_->current = this;
    constexpr U32 usual = 256;  // bytes of a record
    if (part_->limit - part_->next < usual) part_->makeRoom(usual);
    bytes_ = part_->bytes + part_->next;
    limit_ = std::min(recordMax, part_->limit - part_->next - Part::slack);
  } else {
    bytes_ = own_;
    limit_ = recordMax;
  }
  // The size is known at the end.
  std::memcpy(bytes_ + offsetof(Header, id), &id, sizeof id);
  std::memcpy(bytes_ + offsetof(Header, time), &time, sizeof time);
}

void RingBuf::Msg::moveToStack() {
  std::memcpy(own_, bytes_, size_);
  bytes_ = own_;
  limit_ = leavesOut_ ? 0 : recordMax;
  isInPlace_ = false;
  part_->current = nullptr;
}

// For so many more bytes; false when the record is full. Then it takes nothing any more.
bool RingBuf::Msg::makeRoom(U32 bytes) {
  if (limit_ != 0 && bytes <= recordMax - size_) {
    // Less than the record may have: it is in its place.
    part_->makeRoom(size_ + bytes + Part::slack);
    limit_ = std::min(recordMax, part_->limit - part_->next - Part::slack);
    return true;
  }
  limit_ = 0;
  leavesOut_ = !hasEnded_;
  return false;
}

RingBuf::Msg& RingBuf::Msg::appendText(std::string_view text) {
  constexpr U32 tag = 3;  // and the length
  if (size_ + tag > limit_ && !makeRoom(tag)) return *this;
  const auto length = static_cast<U16>(std::min<std::size_t>(text.size(), recordMax - size_ - tag));
  if (size_ + tag + length > limit_ && !makeRoom(tag + length)) return *this;
  U8* to = bytes_ + size_;
  *to = length < text.size() ? cutTextTag : textTag;
  std::memcpy(to + 1, &length, sizeof length);
  if (length != 0) std::memcpy(to + tag, text.data(), length);  // no text: null
  size_ += tag + length;
  return *this;
}

void RingBuf::Msg::endMsg() {
  if (hasEnded_) return;
  hasEnded_ = true;
  limit_ = 0;
  if (leavesOut_) bytes_[size_++] = leftOutTag;
  std::memset(bytes_ + size_, endTag, unit);
  const U32 size = (size_ + unit - 1) / unit * unit;
  std::memcpy(bytes_, &size, sizeof size);
  if (std::exchange(isInPlace_, false)) {
    if (part_->current != this) return;  // the thread has ended, and the part is another one's
    part_->current = nullptr;
    part_->commit(size);
  } else {
    ring_.append(*part_, bytes_, size);
  }
}

// A record that is not in its place: it was on the stack.
void RingBuf::append(Part& part, const U8* record, U32 size) {
  if (&part != parts_ + threadParts && part.owner == thread.key) {
    if (part.current != nullptr) part.current->moveToStack();
    part.append(record, size);
  } else {
    const SpinHold hold(held_);
    takeShared();
    parts_[threadParts].append(record, size);
  }
}

RingBuf::Msg RingBuf::startMsg(TraceFile& file, const MsgDesc& desc, U32 level) {
  return Msg(file.ringBuf(level), desc.id(), level);
}

}  // namespace Mirl
