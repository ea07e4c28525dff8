// Reading records back.
#include <Mirl/Format.h>
#include <Mirl/Outside.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Mirl {
namespace {

// What can be read back of a record's arguments.
struct Arguments {
  std::vector<Argument> values;
  bool lastIsCut = false;
  bool leavesOut = false;
};

Zint::String8 argumentText(const Argument& argument, char conversion) {
  if (const auto* text = std::get_if<Zint::String8>(&argument)) return *text;
  const U64 value = std::get<Number>(argument).value;
  char text[32];
  (void)std::snprintf(text, sizeof text, conversion == 'x' ? "%llx" : "%llu",
                      static_cast<unsigned long long>(value));
  return text;
}

Zint::String8 recordText(const char* format, const Arguments& arguments) {
  std::string text;
  std::size_t next = 0;
  for (const char* c = format; *c != '\0'; ++c) {
    const bool isPlace = *c == '%' && c[1] != '\0';
    if (isPlace && next < arguments.values.size()) {
      text += argumentText(arguments.values[next++], *++c);
      if (arguments.lastIsCut && next == arguments.values.size()) text += "[cut]";
    } else if (isPlace && arguments.leavesOut) {
      text += "[left out]";
      ++c;
    } else {
      text += *c;
    }
  }
  return text;
}

// Nothing behind `end` is read, whatever the bytes say.
Arguments readArguments(const U8* bytes, const U8* end) {
  Arguments arguments;
  while (bytes < end) {
    const U8 tag = *bytes++;
    const auto left = static_cast<std::size_t>(end - bytes);
    if (tag == leftOutTag) {
      arguments.leavesOut = true;
    } else if (tag == textTag || tag == cutTextTag) {
      U16 length = 0;
      if (left < sizeof length) break;
      std::memcpy(&length, bytes, sizeof length);
      if (left - sizeof length < length) break;
      bytes += sizeof length;
      arguments.values.emplace_back(
          Zint::String8(std::string_view(reinterpret_cast<const char*>(bytes), length)));
      arguments.lastIsCut = tag == cutTextTag;
      bytes += length;
    } else {
      U64 value = 0;
      if (tag > sizeof value || left < tag) break;  // also the tag of the end
      std::memcpy(&value, bytes, tag);
      arguments.values.emplace_back(Number{value, tag});
      bytes += tag;
    }
  }
  return arguments;
}

}  // namespace

Record recordFrom(std::span<const U8> bytes, const char* format) {
  Header header;
  std::memcpy(&header, bytes.data(), sizeof header);
  Arguments arguments = readArguments(bytes.data() + sizeof header, bytes.data() + bytes.size());
  Zint::String8 text = recordText(format == nullptr ? "unknown" : format, arguments);
  return {header.id, header.time, std::move(arguments.values), std::move(text)};
}

// While it lives, the part's records stay as they are. REQUIRES: the ring is held.
class RingBuf::Part::Reading {
 public:
  // Of the two, the announcement here and what the owner drops in makeRoom(), one is seen by the
  // other side: both are sequentially consistent.
  explicit Reading(Part& part) : part_(part) {
    part_.isRead.exchange(true);
    const U64 oldest = part_.begin.load();
    const U32 newest = part_.end.load(std::memory_order_acquire);
    dropped_ = oldest >> 16;
    place_ = static_cast<U32>(oldest & 0xffff) * unit;
    records_ = ((newest >> 12) - static_cast<U32>(dropped_)) & 0xfffff;
    U32 total = 0;
    for (U32 i = 0, at = place_; i < records_; ++i) {
      const U32 length = part_.recordSize(at);
      total += length;
      at = following(at, length);
    }
    for (; total > capacity; --records_, ++dropped_) {  // kept, but not shown
      const U32 length = part_.recordSize(place_);
      total -= length;
      place_ = following(place_, length);
    }
  }
  ~Reading() { part_.isRead.store(false, std::memory_order_release); }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  // Since the last clear().
  U64 lost() const { return dropped_ > part_.cleared ? dropped_ - part_.cleared : 0; }
  void clear() { part_.cleared = dropped_ + records_; }
  // Returns the bytes of all records.
  U32 copy(U8* to) const {
    U32 total = 0;
    for (U32 i = 0, at = place_; i < records_; ++i) {
      const U32 length = part_.recordSize(at);
      if (dropped_ + i >= part_.cleared) {
        std::memcpy(to + total, part_.bytes + at, length);
        total += length;
      }
      at = following(at, length);
    }
    return total;
  }

 private:
  Part& part_;
  U64 dropped_;  // records before the first that is shown
  U32 place_;    // of that one
  U32 records_;  // that are shown
};

U64 RingBuf::lost() const {
  const SpinHold hold(held_);
  U64 lost = 0;
  for (Part& part : parts_) lost += Part::Reading(part).lost();
  return lost;
}

void TraceFile::clear() {
  for (RingBuf& ring : rings_) {
    const SpinHold hold(ring.held_);
    for (RingBuf::Part& part : ring.parts_) RingBuf::Part::Reading(part).clear();
  }
}

// The parts are merged by the times of their oldest records that are left.
std::vector<Record> TraceFile::records(U32 level) const {
  const RingBuf& ring = rings_[level];
  std::vector<std::vector<Record>> parts;
  std::vector<U8> bytes;
  for (RingBuf::Part& part : ring.parts_) {
    if (part.isNew()) continue;
    bytes.resize(RingBuf::capacity);  // allocated before the part is held
    {
      const SpinHold hold(ring.held_);
      bytes.resize(RingBuf::Part::Reading(part).copy(bytes.data()));
    }
    std::vector<Record>& records = parts.emplace_back();
    for (std::size_t at = 0; at < bytes.size();) {
      Header header;
      std::memcpy(&header, &bytes[at], sizeof header);
      const MsgDesc* desc = find(header.id);
      records.push_back(
          recordFrom({&bytes[at], header.size}, desc == nullptr ? nullptr : desc->format()));
      at += header.size;
    }
  }
  if (parts.size() == 1) return std::move(parts.front());
  std::vector<Record> records;
  std::vector<std::size_t> next(parts.size());
  for (;;) {
    std::size_t oldest = parts.size();
    for (std::size_t i = 0; i < parts.size(); ++i) {
      if (next[i] == parts[i].size()) continue;
      if (oldest == parts.size() || parts[i][next[i]].time < parts[oldest][next[oldest]].time)
        oldest = i;
    }
    if (oldest == parts.size()) return records;
    records.push_back(std::move(parts[oldest][next[oldest]++]));
  }
}

const MsgDesc* TraceFile::find(U32 id) const {
  const SpinHold hold(held_);
  const MsgDesc* desc = descs_;
  while (desc != nullptr && desc->id_ != id) desc = desc->next_;
  return desc;
}

}  // namespace Mirl
