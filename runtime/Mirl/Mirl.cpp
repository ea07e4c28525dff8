#include <Mirl/Mirl.h>

#include <Zint/Clock.h>
#include <Zint/Sizes.h>

#include <algorithm>
#include <cstring>

namespace Mirl {
namespace {

// A record: its size and its descriptor's id, the time, then the arguments. An argument: a tag (its
// size for a number, textTag for a text, followed by the text's length) and the bytes.
struct Header {
  U32 size;
  U32 id;
  Zint::Seconds time;
};
constexpr U8 textTag = 0;
constexpr U8 leftOutTag = 0xfd;  // after the arguments: more were given
constexpr U8 cutTextTag = 0xfe;  // a text that is the beginning of the one that was given
constexpr U8 endTag = 0xff;      // fills the last unit

// What can be read back of a record's arguments.
struct Arguments {
  std::vector<Argument> values;
  bool lastIsCut = false;
  bool leavesOut = false;
};

class SpinHold {
 public:
  explicit SpinHold(std::atomic_flag& flag) : flag_(flag) {
    while (flag_.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~SpinHold() { flag_.clear(std::memory_order_release); }
  SpinHold(const SpinHold&) = delete;
  SpinHold& operator=(const SpinHold&) = delete;

 private:
  std::atomic_flag& flag_;
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

Arguments readArguments(const U8* bytes, const U8* end) {
  Arguments arguments;
  while (bytes < end) {
    const U8 tag = *bytes++;
    if (tag == endTag) break;
    if (tag == leftOutTag) {
      arguments.leavesOut = true;
    } else if (tag == textTag || tag == cutTextTag) {
      U16 length = 0;
      std::memcpy(&length, bytes, sizeof length);
      bytes += sizeof length;
      arguments.values.emplace_back(
          Zint::String8(std::string_view(reinterpret_cast<const char*>(bytes), length)));
      arguments.lastIsCut = tag == cutTextTag;
      bytes += length;
    } else {
      U64 value = 0;
      std::memcpy(&value, bytes, tag);
      arguments.values.emplace_back(Number{value, tag});
      bytes += tag;
    }
  }
  return arguments;
}

}  // namespace

constinit TraceFile theTraceFile;

MsgDesc::MsgDesc(TraceFile& file, const char* format, int line)
    : file_(file), format_(format), line_(line) {
  const SpinHold hold(file_.held_);
  id_ = ++file_.ids_;
  next_ = file_.descs_;
  file_.descs_ = this;
}

MsgDesc::~MsgDesc() {
  const SpinHold hold(file_.held_);
  const MsgDesc** link = &file_.descs_;
  while (*link != this) link = &const_cast<MsgDesc*>(*link)->next_;
  *link = next_;
}

RingBuf::Msg::Msg(RingBuf& ring, U32 id) : ring_(ring), size_(sizeof(Header)) {
  const Header header{0, id, Zint::turnTime()};
  std::memcpy(bytes_, &header, sizeof header);
}

RingBuf::Msg& RingBuf::Msg::operator<<(std::string_view text) {
  if (isFull_ || recordMax - size_ < 3) {
    isFull_ = true;
    return *this;
  }
  const auto length = static_cast<U16>(std::min<std::size_t>(text.size(), recordMax - size_ - 3));
  bytes_[size_] = length < text.size() ? cutTextTag : textTag;
  std::memcpy(bytes_ + size_ + 1, &length, sizeof length);
  std::memcpy(bytes_ + size_ + 3, text.data(), length);
  size_ += 3u + length;
  return *this;
}

void RingBuf::Msg::endMsg() {
  if (size_ == 0) return;  // ended before
  if (isFull_) bytes_[size_++] = leftOutTag;
  std::memset(bytes_ + size_, endTag, unit);
  size_ = (size_ + unit - 1) / unit * unit;
  std::memcpy(bytes_, &size_, sizeof size_);
  ring_.append(bytes_, size_);
  size_ = 0;
  isFull_ = true;
}

RingBuf::Msg RingBuf::startMsg(TraceFile& file, const MsgDesc& desc, U32 level) {
  return Msg(file.ringBuf(level), desc.id());
}

U64 RingBuf::lost() const {
  const SpinHold hold(held_);
  return lost_;
}

void RingBuf::append(const U8* record, U32 size) {
  const SpinHold hold(held_);
  while (end_ + size - begin_ > capacity) {
    U32 oldest = 0;
    std::memcpy(&oldest, bytes_ + begin_ % capacity, sizeof oldest);
    begin_ += oldest;
    ++lost_;
  }
  for (U32 at = 0; at < size; at += unit) {
    std::memcpy(bytes_ + (end_ + at) % capacity, record + at, unit);
  }
  end_ += size;
}

void RingBuf::copy(U32 position, U8* to, U32 size) const {
  const U32 place = position % capacity;
  const U32 first = std::min(size, capacity - place);
  std::memcpy(to, bytes_ + place, first);
  std::memcpy(to + first, bytes_, size - first);
}

std::vector<Record> TraceFile::records(U32 level) const {
  const RingBuf& ring = rings_[level];
  std::vector<U8> bytes(RingBuf::capacity);  // allocated before the ring is held
  {
    const SpinHold hold(ring.held_);
    bytes.resize(ring.end_ - ring.begin_);
    ring.copy(ring.begin_, bytes.data(), Zint::countOf(bytes));
  }
  std::vector<Record> records;
  for (std::size_t at = 0; at < bytes.size();) {
    Header header;
    std::memcpy(&header, &bytes[at], sizeof header);
    const U8* record = bytes.data() + at;
    Arguments arguments = readArguments(record + sizeof header, record + header.size);
    const MsgDesc* desc = find(header.id);
    Zint::String8 text = recordText(desc == nullptr ? "unknown" : desc->format(), arguments);
    records.push_back({header.id, header.time, std::move(arguments.values), std::move(text)});
    at += header.size;
  }
  return records;
}

void TraceFile::clear() {
  for (RingBuf& ring : rings_) {
    const SpinHold hold(ring.held_);
    ring.begin_ = ring.end_;
    ring.lost_ = 0;
  }
}

const MsgDesc* TraceFile::find(U32 id) const {
  const SpinHold hold(held_);
  const MsgDesc* desc = descs_;
  while (desc != nullptr && desc->id_ != id) desc = desc->next_;
  return desc;
}

}  // namespace Mirl
