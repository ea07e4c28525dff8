// Structured trace in fixed memory: one ring of records per level, the newest overwriting the
// oldest. It is always on, and a small record costs a few nanoseconds: what happened last can be
// read after the fact.
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
  Zint::Seconds time;  // Zint::turnTime() at startMsg
  std::vector<Argument> arguments;
  // The format with the arguments in their places. A text that was cut ends in "[cut]", and
  // "[left out]" stands for an argument that there was no room for.
  Zint::String8 text;
};

class UMBRA_API RingBuf {
 public:
  static constexpr U32 capacity = 32768;  // bytes
  // Bytes. Two texts of three characters for each byte of an entry of 4,096 bytes fit; a record is
  // cut where it would become longer.
  static constexpr U32 recordMax = 24'640;
  // Bytes: records are whole units, so that neither the header nor a unit's copy is ever torn.
  static constexpr U32 unit = 16;

  // A record under construction, on the caller's stack (25 KB, of which only what is written is
  // touched); lost unless endMsg() is called.
  class UMBRA_API Msg {
   public:
    Msg& operator<<(U8 value) { return appendNumber(value); }
    Msg& operator<<(U32 value) { return appendNumber(value); }
    Msg& operator<<(U64 value) { return appendNumber(value); }
    Msg& operator<<(std::string_view text);
    // Writes the record. What follows it is ignored.
    void endMsg();

   private:
    friend class RingBuf;
    Msg(RingBuf& ring, U32 id);
    template <class T>
    Msg& appendNumber(T value) {
      if (isFull_ || recordMax - size_ < 1 + sizeof value) {
        isFull_ = true;
        return *this;
      }
      bytes_[size_] = sizeof value;
      std::memcpy(bytes_ + size_ + 1, &value, sizeof value);
      size_ += 1 + sizeof value;
      return *this;
    }

    RingBuf& ring_;
    U32 size_;             // 0 once it has ended
    bool isFull_ = false;  // an argument was left out: all later ones are, too
    alignas(U32) U8 bytes_[recordMax + 2 * unit];
  };

  static Msg startMsg(TraceFile& file, const MsgDesc& desc, U32 level);

  // Records overwritten so far.
  U64 lost() const;

 private:
  friend class TraceFile;

  void append(const U8* record, U32 size);
  void copy(U32 position, U8* to, U32 size) const;

  mutable std::atomic_flag held_{};
  // Byte positions of the oldest record and past the newest, counted since the start, mod 2^32.
  U32 begin_ = 0;
  U32 end_ = 0;
  U64 lost_ = 0;
  U8 bytes_[capacity] = {};
};

class UMBRA_API TraceFile {
 public:
  static constexpr U32 rings = 10;

  constexpr TraceFile() = default;
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  // Level n's ring. REQUIRES: level < rings.
  RingBuf& ringBuf(U32 level) { return rings_[level]; }
  // The records of one level, oldest first.
  std::vector<Record> records(U32 level) const;
  // Forgets all records; the counts of what was lost start at 0 again.
  void clear();

 private:
  friend class MsgDesc;

  const MsgDesc* find(U32 id) const;

  RingBuf rings_[rings];
  mutable std::atomic_flag held_{};  // guards the list
  const MsgDesc* descs_ = nullptr;
  U32 ids_ = 0;  // given out; the first is 1
};

// The process's trace file.
UMBRA_API extern TraceFile theTraceFile;

}  // namespace Mirl
