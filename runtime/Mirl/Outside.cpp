#include <Mirl/Outside.h>

#include <Mirl/Format.h>
#include <Zint/Assert.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <utility>

namespace Mirl {
namespace {

// Guarded by the lock of the trace file.
struct OutsideState {
  int file;                 // -1: none
  int former;               // the one before, until all parts have left it; -1: none
  std::atomic<U32> number;  // of the file; the first is 1
  void* formats;            // mapped; null for none
  U32 nextToMove;           // the caller's of moveOne(), as the next one
  U32 stayed;               // parts that were not moved since it began from the front
  U32 hasSpaceFor;          // the last one that space was taken for, plus 1
  std::atomic<U32> leftOut;
  std::atomic<U32> failures;
};
constinit OutsideState outside{-1, -1, 0, nullptr, 0, 0, 0, 0, 0};

// errno is that of the code that writes a record.
class ErrnoKeeper {
 public:
  ErrnoKeeper() : error_(errno) {}
  ~ErrnoKeeper() { errno = error_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int error_;
};

constexpr int readAndWrite = PROT_READ | PROT_WRITE;

Outside::Formats& formatsIn(void* memory) { return *static_cast<Outside::Formats*>(memory); }

void* mapped(std::size_t bytes, int file, U64 offset) {
  constexpr int flags = MAP_SHARED | MAP_POPULATE;
  void* memory = ::mmap(nullptr, bytes, readAndWrite, flags, file, static_cast<off_t>(offset));
  return memory == MAP_FAILED ? nullptr : memory;
}

// Before a mapping: a store into a page that the disk has no room for would be a signal.
int allocate(int file, U64 offset, U64 bytes) {
  int error = EINTR;
  for (int tries = 0; error == EINTR && tries < 100; ++tries) {
    error = ::posix_fallocate(file, static_cast<off_t>(offset), static_cast<off_t>(bytes));
  }
  return error;
}

}  // namespace

Outside::Layout Outside::layout() {
  using Part = RingBuf::Part;
  static_assert(offsetof(Part, begin) == 8 && offsetof(Part, end) == 16);
  static_assert(offsetof(Part, cleared) == 24);
  return {
      sizeof(Part),          offsetof(Part, begin), offsetof(Part, end), offsetof(Part, cleared),
      offsetof(Part, bytes), Part::starts,          RingBuf::unit};
}

U64 Outside::offsetOf(U32 ring, U32 part) {
  return partsAt + U64{part * TraceFile::rings + ring} * sizeof(RingBuf::Part);
}

U32 Outside::partsLeftOut() { return outside.leftOut.load(std::memory_order_relaxed); }

U32 Outside::failures() { return outside.failures.load(std::memory_order_relaxed); }

U32 Outside::formatsLeftOut() {
  const SpinHold hold(theTraceFile.held_);
  if (outside.formats == nullptr) return 0;
  return formatsIn(outside.formats).leftOut.load(std::memory_order_relaxed);
}

void Outside::fileIs(int descriptor) {
  const int error = allocate(descriptor, formatsAt, formatsBytes);
  if (error != 0) throw std::system_error(error, std::generic_category());
  const int file = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (file < 0) throw std::system_error(errno, std::generic_category());
  void* formats = mapped(formatsBytes, file, formatsAt);
  if (formats == nullptr) {
    const int mapError = errno;
    ::close(file);
    throw std::system_error(mapError, std::generic_category());
  }
  static const int isForkHandled = ::pthread_atfork(nullptr, nullptr, &Outside::handleFork);
  (void)isForkHandled;
  int before = -1;
  void* formatsBefore = nullptr;
  {
    const SpinHold hold(theTraceFile.held_);
    before = std::exchange(outside.former, std::exchange(outside.file, file));
    formatsBefore = std::exchange(outside.formats, formats);
    ++outside.number;
    for (const MsgDesc* desc = theTraceFile.descs_; desc != nullptr; desc = desc->next_) add(*desc);
  }
  outside.nextToMove = 0;
  outside.stayed = 0;
  outside.hasSpaceFor = 0;
  for (RingBuf& ring : theTraceFile.rings_) {
    const SpinHold hold(ring.held_);
    ring.isOutside_ = true;
  }
  if (formatsBefore != nullptr) ::munmap(formatsBefore, formatsBytes);
  if (before >= 0) ::close(before);
}

// REQUIRES: the trace file is held.
void Outside::add(const MsgDesc& desc) {
  if (outside.formats == nullptr) return;
  Formats& formats = formatsIn(outside.formats);
  U32 length = 0;
  while (length < Formats::formatMax && desc.format_[length] != '\0') ++length;
  const U32 entry[3] = {desc.id_, static_cast<U32>(desc.line_), length};
  const U32 filled = formats.used.load(std::memory_order_relaxed);
  const U32 bytes = U32{sizeof entry} + (length + 3) / 4 * 4;
  if (bytes > formatsBytes - Formats::entriesAt - filled) {
    formats.leftOut.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  U8* to = static_cast<U8*>(outside.formats) + Formats::entriesAt + filled;
  std::memcpy(to, entry, sizeof entry);
  std::memcpy(to + sizeof entry, desc.format_, length);
  formats.used.store(filled + bytes, std::memory_order_release);
}

// --- Parts ---

bool Outside::moveOne() {
  while (outside.nextToMove < parts) {
    if (moveNext()) return true;
  }
  if (outside.stayed == 0 && outside.former >= 0) {
    const SpinHold hold(theTraceFile.held_);
    ::close(std::exchange(outside.former, -1));
  }
  outside.leftOut.store(outside.stayed, std::memory_order_relaxed);
  outside.nextToMove = 0;
  outside.stayed = 0;
  return false;
}

// The parts that are claimed first come first. A ring's first part is moved before it is used: so
// the thread that is the first one to write has its part in the file even if the disk fills up.
bool Outside::moveNext() {
  const U32 at = outside.nextToMove++;
  const U32 index = at / TraceFile::rings;
  RingBuf& ring = theTraceFile.rings_[at % TraceFile::rings];
  RingBuf::Part& part = ring.parts_[index];
  const SpinHold hold(ring.held_);
  if (!ring.isOutside_ || ring.movedTo_[index] == outside.number) return false;
  const U32 holder = part.holder();
  if (index != 0 && holder == 0 && part.isNew()) return false;
  if (holder != 0 && holder != Threads::ownKey() && Threads::isAlive(holder)) {
    ++outside.stayed;
    // The next record that its thread begins finds that the part is not its own, and claims it.
    part.called = holder;
    return part.owner.exchange(0, std::memory_order_relaxed) != 0;
  }
  // A record that its thread has begun and did not end before its own end is lost.
  if (holder != Threads::ownKey()) part.current = nullptr;
  if (outside.hasSpaceFor != at + 1) {
    // The space first: half of the work.
    outside.hasSpaceFor = at + 1;
    if (allocate(outside.file, offsetOf(at % TraceFile::rings, index), sizeof part) == 0) {
      outside.nextToMove = at;
      return true;
    }
  }
  if (move(ring, part)) return true;
  ++outside.stayed;
  return false;
}

// REQUIRES: the ring is held, and nobody else writes to the part.
bool Outside::move(RingBuf& ring, RingBuf::Part& part) {
  const auto partIndex = static_cast<U32>(&part - ring.parts_);
  U32& movedTo = ring.movedTo_[partIndex];
  if (movedTo == outside.number) return true;
  const ErrnoKeeper keeper;
  const SpinHold hold(theTraceFile.held_);
  const auto ringIndex = static_cast<U32>(&ring - theTraceFile.rings_);
  const U64 offset = offsetOf(ringIndex, partIndex);
  if (bring(outside.file, offset, part)) {
    if (movedTo + 1 == outside.number) leaveFormer(offset);
    movedTo = outside.number;
    return true;
  }
  outside.failures.fetch_add(1, std::memory_order_relaxed);
  return false;
}

// Of a file that was removed each part's space is given back on its own: all of it takes long when
// the last part leaves.
void Outside::leaveFormer(U64 offset) {
  struct stat found = {};
  if (outside.former < 0 || ::fstat(outside.former, &found) != 0 || found.st_nlink != 0) return;
  constexpr int flags = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
  (void)::fallocate(outside.former, flags, static_cast<off_t>(offset), sizeof(RingBuf::Part));
}

// Makes the part's memory that of the file, with what it holds.
bool Outside::bring(int file, U64 offset, RingBuf::Part& part) {
  constexpr std::size_t bytes = sizeof part;
  if (allocate(file, offset, bytes) != 0) return false;
  void* there = mapped(bytes, file, offset);
  if (there == nullptr) return false;
  void* here = &part;
  // Behind its records nothing was written yet, but by one that is under construction.
  const bool isPartly = part.current == nullptr && part.dropped == 0 && part.held == part.next;
  std::memcpy(there, here, isPartly ? offsetof(RingBuf::Part, bytes) + part.next : bytes);
  if (::mremap(there, bytes, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, here) == here) return true;
  // The system may have taken the memory away before it failed.
  void* again = ::mmap(here, bytes, readAndWrite, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
  ZINT_ASSERT("runtime/Mirl/Outside", again == here);
  std::memcpy(here, there, bytes);
  ::munmap(there, bytes);
  return false;
}

// In the child of a fork, which has this thread alone. Calls nothing that may not be called there.
void Outside::handleFork() {
  if (outside.file < 0) return;
  const ErrnoKeeper keeper;
  // All rings as in a new process, their locks too. A record that was begun before finds that it is
  // not its part's current one.
  void* rings = theTraceFile.rings_;
  constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED;
  void* again = ::mmap(rings, sizeof theTraceFile.rings_, readAndWrite, flags, -1, 0);
  ZINT_ASSERT("runtime/Mirl/Outside", again == rings);
  if (outside.formats != nullptr) ::munmap(std::exchange(outside.formats, nullptr), formatsBytes);
  ::close(std::exchange(outside.file, -1));
  if (outside.former >= 0) ::close(std::exchange(outside.former, -1));
  outside.leftOut.store(0, std::memory_order_relaxed);
  theTraceFile.held_.clear();
}

}  // namespace Mirl
