#include <telemetry/TraceReader.h>

#include <Mirl/Outside.h>
#include <telemetry/LiveFormat.h>
#include <telemetry/ReadFile.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Telemetry {
namespace {

namespace At = TraceFormat;

constexpr U32 recordHeaderBytes = 16;
constexpr U32 partsMax = 1024;
constexpr U32 partBytesMax = 1024 * 1024;
// Numbers of records in a part's `end` are of so many bits.
constexpr U32 numberMask = 0xfffff;

U32 wordAt(const std::vector<U8>& bytes, U32 at) {
  U32 word = 0;
  std::memcpy(&word, bytes.data() + at, sizeof word);
  return word;
}

}  // namespace

// One part as it was at a look.
struct TraceReader::Part {
  std::vector<U8> bytes;
  U32 place = 0;    // of the oldest record
  U32 newest = 0;   // place behind the newest one
  U32 count = 0;    // of records
  U64 first = 0;    // number of the oldest
  U64 cleared = 0;  // so many are forgotten
};

TraceReader::TraceReader(TraceReader&&) noexcept = default;
TraceReader& TraceReader::operator=(TraceReader&&) noexcept = default;
TraceReader::~TraceReader() = default;

TraceReader::TraceReader(const std::string& path) : file_(std::make_unique<ReadFile>(path)) {
  if (file_->textAt(0, 8) != At::magic) file_->refuse("this is no file of trace records");
  const U32 version = file_->numberAt<U32>(At::majorVersion);
  if (version != majorVersion) {
    file_->refuse("version " + std::to_string(version) + " of trace records cannot be read");
  }
  const auto number = [this](U32 at) { return file_->numberAt<U32>(at); };
  name_ = file_->textAt(At::name, nameBytes);
  pid_ = number(At::pid);
  formats_ = number(At::formats);
  formatsBytes_ = number(At::formatsSize);
  firstEntry_ = number(At::firstEntry);
  parts_ = number(At::parts);
  levels_ = number(At::levels);
  partsPerLevel_ = number(At::partsPerLevel);
  partBytes_ = number(At::partBytes);
  begin_ = number(At::partBegin);
  end_ = number(At::partEnd);
  cleared_ = number(At::partCleared);
  records_ = number(At::partRecords);
  starts_ = number(At::recordStarts);
  unit_ = number(At::unit);
  const bool hasPlaces = partBytes_ <= partBytesMax && records_ < partBytes_ &&
                         starts_ <= partBytes_ - records_ && begin_ < partBytes_ &&
                         end_ < partBytes_ && cleared_ < partBytes_ && unit_ != 0;
  const bool hasParts = levels_ != 0 && levels_ <= 32 && partsPerLevel_ != 0 &&
                        U64{levels_} * partsPerLevel_ <= partsMax;
  const bool hasFormats =
      formatsBytes_ <= partBytesMax && firstEntry_ <= formatsBytes_ && formats_ >= headerBytes;
  if (!hasPlaces || !hasParts || !hasFormats || file_->size() < parts_) {
    file_->refuse("the file is incomplete");
  }
}

const std::string& TraceReader::path() const { return file_->path(); }
bool TraceReader::isReplaced() const { return file_->isReplaced(); }

// A row that its writer left half written holds what was before or after.
std::vector<U32> TraceReader::row() const {
  std::vector<bool> isTorn;
  return file_->rows(At::row, rowAlignment, 1, isTorn);
}

U32 TraceReader::state() const { return row()[At::rowState]; }
U32 TraceReader::partsLeftOut() const { return row()[At::rowLeftOut]; }
U32 TraceReader::formatsLeftOut() const {
  return file_->numberAt<U32>(formats_ + At::formatsLeftOut);
}

S64 TraceReader::wallClockOf(Zint::Seconds time) const {
  const std::vector<U32> words = row();
  const auto number = [&words](U32 at) {
    return static_cast<S64>(words[at] | U64{words[at + 1]} << 32);
  };
  const S64 moment = timeOfSeconds(time);
  if (moment == neverTime || moment == -neverTime - 1) return moment;
  return moment + (number(At::rowWallClock) - number(At::rowMonotonic));
}

// --- Formats ---

// The count of bytes is written after the entries.
void TraceReader::readFormats() const {
  const U32 used = std::min(file_->numberAt<U32>(formats_), formatsBytes_ - firstEntry_);
  if (used <= knownBytes_) return;
  std::vector<U8> bytes(used - knownBytes_);
  file_->read(U64{formats_} + firstEntry_ + knownBytes_, bytes.data(), bytes.size());
  constexpr U32 head = 12;  // number, line, length
  for (U32 at = 0; bytes.size() - at >= head;) {
    const U32 length = wordAt(bytes, at + 8);
    const U64 next = U64{at} + head + (U64{length} + 3) / 4 * 4;
    if (next > bytes.size()) break;
    const std::string text(reinterpret_cast<const char*>(&bytes[at]) + head, length);
    known_[wordAt(bytes, at)] = {wordAt(bytes, at + 4), text.substr(0, text.find('\0'))};
    at = static_cast<U32>(next);
  }
  knownBytes_ = used;
}

// --- Records ---

// The end, the bytes, and then the beginning: the writer advances the beginning before it
// overwrites a record, and the end after it has written one. So what is between the two has not
// changed.
bool TraceReader::readPart(U32 part, Part& look) const {
  const U64 at = U64{parts_} + U64{part} * partBytes_;
  look.bytes.resize(partBytes_ - records_);
  for (U32 tries = 0; tries < rowTries; ++tries) {
    const U32 end = file_->numberAt<U32>(at + end_);
    const bool isEmpty = end == 0 && file_->numberAt<U64>(at + begin_) == 0;
    if (!isEmpty) file_->read(at + records_, look.bytes.data(), look.bytes.size());
    look.cleared = file_->numberAt<U64>(at + cleared_);
    const U64 begin = file_->numberAt<U64>(at + begin_);
    look.first = begin >> 16;
    look.place = static_cast<U32>(begin & 0xffff) * unit_;
    look.newest = (end & 0xfff) * unit_;
    look.count = ((end >> 12) - static_cast<U32>(look.first)) & numberMask;
    if (isSound(look)) return true;
  }
  return false;
}

// Whether the records follow each other from the oldest to the place behind the newest. They do not
// where all of them were overwritten meanwhile.
bool TraceReader::isSound(Part& look) const {
  const U32 size = partBytes_ - records_;
  if (look.count > size / unit_) return false;
  U32 at = look.place;
  for (U32 i = 0; i < look.count; ++i) {
    if (at >= starts_) return false;
    const U32 length = wordAt(look.bytes, at);
    if (length < recordHeaderBytes || length % unit_ != 0 || length > size - at) return false;
    at = at + length < starts_ ? at + length : 0;
  }
  return look.count == 0 || at == look.newest;
}

TraceReader::Look TraceReader::read(Position& position, U32 levelMask) const {
  position.next.resize(std::size_t{levels_} * partsPerLevel_);
  struct Raw {
    U32 level;
    std::vector<U8> bytes;
    Zint::Seconds order;  // its time, but not before that of the one before it in its part
  };
  Look look;
  Part part;
  std::vector<Raw> raw;
  for (U32 index = 0; index < position.next.size(); ++index) {
    const U32 level = index % levels_;
    if ((levelMask >> level & 1) == 0) continue;
    if (!readPart(index, part)) {
      ++look.tornParts;
      continue;
    }
    U64& next = position.next[index];
    const U64 behind = part.first + part.count;
    const U64 from = std::min(std::max(next, part.cleared), behind);
    if (part.first > from) look.overwritten += part.first - from;
    Zint::Seconds order = -Zint::never;
    U32 at = part.place;
    for (U32 i = 0; i < part.count; ++i) {
      const U32 length = wordAt(part.bytes, at);
      const U8* record = &part.bytes[at];
      if (part.first + i >= from) {
        Zint::Seconds time = 0;
        std::memcpy(&time, record + 8, sizeof time);
        if (time > order) order = time;  // false for what is no number
        raw.push_back({level, {record, record + length}, order});
      }
      at = at + length < starts_ ? at + length : 0;
    }
    next = behind;
  }
  std::stable_sort(raw.begin(), raw.end(),
                   [](const Raw& a, const Raw& b) { return a.order < b.order; });
  readFormats();  // after the records: a format is written before those that use it
  for (const Raw& each : raw) {
    const auto format = known_.find(wordAt(each.bytes, 4));
    const bool isKnown = format != known_.end();
    const Mirl::Record record =
        Mirl::recordFrom(each.bytes, isKnown ? format->second.text.c_str() : nullptr);
    look.records.push_back(
        {each.level, isKnown ? format->second.line : 0, record.time, record.text.bytes()});
  }
  return look;
}

}  // namespace Telemetry
