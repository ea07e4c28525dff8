// Structured trace in fixed memory: one ring of records per level, the newest overwriting the
// oldest. It is always on, and a small record costs a few nanoseconds: what happened last can be
// read after the fact.
//
// Each thread has a part of each ring to itself, which it writes without a lock; who reads a ring
// sees the records of all threads in the order of their times. A thread that writes its first
// record at a level takes a free part, or else that of a thread that has ended, whose records stay
// until they are overwritten. When there is none it shares the last part, under a lock, with all
// others like it; so does what is written while a thread or the process ends. The memory is the
// file's own, 68 KiB for each part that is used. Nothing is allocated but once by a thread's first
// record: the announcement that the thread's end is of interest. Outside.h puts the process's
// records where other processes can read them.
//
//   static const Mirl::MsgDesc desc(Mirl::theTraceFile, "repaired entry %u of %s", __LINE__);
//   Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 0);
//   msg << entry << name;
//   msg.endMsg();
//
// May be used from several threads.
#pragma once

#include <Zint/Api.h>
#include <Zint/String8.h>
#include <Zint/Types.h>
#include <atomic>
#include <cstring>
#include <variant>
#include <vector>

namespace Mirl {

class Outside;
class TraceFile;

// What the records of one call site have in common. In the format, %u stands for an unsigned
// decimal number, %x for a hexadecimal one and %s for a text. Static: it must outlive its file's
// records.
class UMBRA_API MsgDesc {
 public:
  MsgDesc(TraceFile& file, const char* format, int line);
  ~MsgDesc();
  MsgDesc(const MsgDesc&) = delete;
  MsgDesc& operator=(const MsgDesc&) = delete;

  U32 id() const { return id_; }
  const char* format() const { return format_; }
  int line() const { return line_; }

 private:
  friend class Outside;
  friend class TraceFile;

  TraceFile& file_;
  const char* format_;
  int line_;
  U32 id_ = 0;
  const MsgDesc* next_ = nullptr;
};

// An argument: a number with its size in bytes, or a text.
struct Number {
  U64 value;
  U32 bytes;
  friend bool operator==(const Number&, const Number&) = default;
};
using Argument = std::variant<Number, Zint::String8>;

// A record as it is read back.
struct Record {
  U32 id;
  Zint::Seconds time;  // Zint::recordTime() at startMsg
  std::vector<Argument> arguments;
  // The format with the arguments in their places. A text that was cut ends in "[cut]", and
  // "[left out]" stands for an argument that there was no room for.
  Zint::String8 text;
};

class UMBRA_API RingBuf {
  friend class Outside;
  struct Part;

 public:
  static constexpr U32 capacity = 32768;  // bytes of records that a thread's part of the ring keeps
  // Bytes. Two texts of three characters for each byte of an entry of 4,096 bytes fit; a record is
  // cut where it would become longer.
  static constexpr U32 recordMax = 24'640;
  static constexpr U32 unit = 16;  // bytes; records are whole units
  // Each ring has so many parts that belong to one thread, and one more that all others share.
  static constexpr U32 threadParts = 7;

  // A record under construction; lost unless endMsg() is called, by the thread that started it. It
  // is written in its place in the ring. When its thread starts another one before its end, it
  // moves to the caller's stack (25 KB, untouched otherwise).
  class UMBRA_API Msg {
   public:
    Msg(const Msg&) = delete;
    Msg& operator=(const Msg&) = delete;
    ~Msg() {
      if (isInPlace_ && part_->current == this) [[unlikely]]
        part_->current = nullptr;
    }

    Msg& operator<<(U8 value) { return appendNumber(value); }
    Msg& operator<<(U32 value) { return appendNumber(value); }
    Msg& operator<<(U64 value) { return appendNumber(value); }
    // Most texts are names, for which a call takes longer than the copy.
    Msg& operator<<(std::string_view text) {
      const std::size_t length = text.size();
      if (length > 16 || size_ + 19 > limit_) [[unlikely]]
        return appendText(text);
      U8* to = bytes_ + size_;
      to[0] = 0;  // the tag of a text, and its length
      to[1] = static_cast<U8>(length);
      to[2] = 0;
      copyName(to + 3, text.data(), length);
      size_ += 3 + static_cast<U32>(length);
      return *this;
    }
    // Writes the record. What follows it is ignored.
    void endMsg();

   private:
    friend class RingBuf;
    Msg(RingBuf& ring, U32 id, U32 level);
    template <class T>
    Msg& appendNumber(T value) {
      constexpr U32 bytes = 1 + sizeof value;
      if (size_ + bytes > limit_ && !makeRoom(bytes)) [[unlikely]]
        return *this;
      bytes_[size_] = sizeof value;
      std::memcpy(bytes_ + size_ + 1, &value, sizeof value);
      size_ += bytes;
      return *this;
    }
    Msg& appendText(std::string_view text);
    static void copyName(U8* to, const char* from, std::size_t length) {
      if (length >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + length - 8, from + length - 8, 8);
      } else if (length >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + length - 4, from + length - 4, 4);
      } else if (length != 0) {
        to[0] = static_cast<U8>(from[0]);
        to[length / 2] = static_cast<U8>(from[length / 2]);
        to[length - 1] = static_cast<U8>(from[length - 1]);
      }
    }
    bool makeRoom(U32 bytes);
    void moveToStack();

    RingBuf& ring_;
    Part* part_;
    U8* bytes_;
    U32 size_;
    U32 limit_;  // what size_ may grow to as it is; 0 when nothing more is taken
    bool isInPlace_;
    bool leavesOut_ = false;  // an argument was left out: all later ones are, too
    bool hasEnded_ = false;
    alignas(U32) U8 own_[recordMax + 2 * unit];
  };

  static Msg startMsg(TraceFile& file, const MsgDesc& desc, U32 level);

  // Records overwritten so far.
  U64 lost() const;

 private:
  friend class TraceFile;

  // What one thread writes. The owner alone changes it, without a lock; whoever reads it announces
  // itself, and the owner then overwrites no more until it has read. Zero when it is new.
  //
  // Bytes: records begin before `starts` and follow each other; after the one that passes it the
  // next one begins at 0. So each is in one piece. More of them are kept than are shown, so that
  // the owner makes room for many at a time.
  //
  // Whole pages, which can be those of a file. What other processes read has the same places in
  // both widths.
  struct alignas(4096) Part {
    static constexpr U32 size = 65536;
    static constexpr U32 slack = 2 * unit;  // for the end of a record
    static constexpr U32 starts = size - recordMax - slack;

    class Reading;

    void takeOver();
    void makeRoom(U32 needed);
    void commit(U32 record);
    void append(const U8* record, U32 recordBytes);
    U32 recordSize(U32 place) const;
    static U32 following(U32 place, U32 bytes) {
      return place + bytes < starts ? place + bytes : 0;
    }
    // Whether nothing was ever written.
    bool isNew() const { return end.load() == 0 && begin.load() == 0; }
    // The key of the thread whose part it is; 0 for none. REQUIRES: the ring is held.
    U32 holder() const {
      const U32 key = owner.load(std::memory_order_relaxed);
      return key != 0 ? key : called;
    }

    std::atomic<U32> owner;  // the thread's key; 0 for none
    std::atomic<bool> isRead;
    std::atomic<U64> begin;  // records dropped so far << 16 | place of the oldest in units
    std::atomic<U32> end;    // records written so far, mod 2^20, << 12 | place of the next in units
    // The key of the owner that is to claim it again, and to move it then; guarded by the ring.
    U32 called;
    alignas(8) U64 cleared;  // so many records are forgotten; guarded by the ring
    // The owner's alone.
    Msg* current;  // that is written in its place
    U64 dropped;
    U32 written;
    U32 first;  // place of the oldest record
    U32 next;   // place of the next one
    U32 limit;  // where the bytes end that it may fill
    U32 held;   // bytes of records
    alignas(unit) U8 bytes[size];
  };

  Part& partOf(U32 level);
  Part& claim();
  // The last part is written to. REQUIRES: the ring is held.
  void takeShared();
  void append(Part& part, const U8* record, U32 size);

  mutable Part parts_[threadParts + 1] = {};
  mutable std::atomic_flag held_{};  // guards readers, claims, and the last part
  // Guarded: whether parts that are claimed move into a file, and the number of the file that each
  // part has moved to, 0 for none.
  bool isOutside_ = false;
  U32 movedTo_[threadParts + 1] = {};
};

class UMBRA_API TraceFile {
 public:
  static constexpr U32 rings = 10;

  constexpr TraceFile() = default;
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  // Level n's ring. REQUIRES: level < rings.
  RingBuf& ringBuf(U32 level) { return rings_[level]; }
  // The records of one level in the order of their times, except that those of one part are in the
  // order in which they were ended.
  std::vector<Record> records(U32 level) const;
  // Forgets all records; the counts of what was lost start at 0 again.
  void clear();

 private:
  friend class MsgDesc;
  friend class Outside;

  const MsgDesc* find(U32 id) const;

  RingBuf rings_[rings];
  mutable std::atomic_flag held_{};  // guards the list
  const MsgDesc* descs_ = nullptr;
  U32 ids_ = 0;  // given out; the first is 1
};

// The process's trace file.
UMBRA_API extern TraceFile theTraceFile;

}  // namespace Mirl
