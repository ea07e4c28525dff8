#include <telemetry/EventReader.h>

#include <telemetry/LiveFormat.h>
#include <telemetry/ReadFile.h>

#include <algorithm>
#include <array>

namespace Telemetry {
namespace {

namespace At = EventFormat;

constexpr std::array<const char*, 14> eventNames = {
    "",     "finding", "adopted", "pass",      "alarm",      "chip",  "patrol",
    "mode", "policy",  "command", "assertion", "suppressed", "start", "end"};

U64 numberAtWord(const U32* row, U32 at) { return row[at] | U64{row[at + 1]} << 32; }

std::vector<U8> bytesAtWord(const U32* row, U32 at, U32 bytes) {
  std::vector<U8> value(std::min(bytes, At::valueBytes));
  if (!value.empty()) std::memcpy(value.data(), row + at, value.size());
  return value;
}

Event eventOfRecord(const U32* row) {
  Event event;
  event.kind = static_cast<EventKind>(row[At::kind]);
  event.number = numberAtWord(row, At::number);
  event.monotonic = static_cast<S64>(numberAtWord(row, At::monotonic));
  event.wallClock = static_cast<S64>(numberAtWord(row, At::wallClock));
  event.verdict = row[At::verdict];
  event.nature = row[At::nature];
  event.entry = row[At::entry];
  event.entrySize = row[At::entrySize];
  event.uid = row[At::uid];
  event.pid = row[At::pid];
  event.region = textOfField(row + At::region, At::regionBytes, &event.regionIsCut);
  event.chip = textOfField(row + At::chip, At::chipBytes);
  event.expected = bytesAtWord(row, At::expected, event.entrySize);
  event.actual = bytesAtWord(row, At::actual, event.entrySize);
  event.text = textOfField(row + At::text, At::textBytes, &event.textIsCut);
  return event;
}

}  // namespace

std::string nameOf(EventKind kind) {
  const U32 number = static_cast<U32>(kind);
  if (number == 0 || number >= eventNames.size()) return "event " + std::to_string(number);
  return eventNames[number];
}

EventReader::EventReader(EventReader&&) noexcept = default;
EventReader& EventReader::operator=(EventReader&&) noexcept = default;
EventReader::~EventReader() = default;

EventReader::EventReader(const std::string& path) : file_(std::make_unique<ReadFile>(path)) {
  if (file_->textAt(0, 8) != At::magic) file_->refuse("this is no event log");
  const U32 version = file_->numberAt<U32>(At::majorVersion);
  if (version != majorVersion) {
    file_->refuse("version " + std::to_string(version) + " of an event log cannot be read");
  }
  name_ = file_->textAt(At::name, nameBytes);
  records_ = file_->numberAt<U32>(At::records);
  if (records_ == 0 || file_->numberAt<U32>(At::recordBytesAt) != At::recordBytes ||
      headerBytes + U64{records_} * At::recordBytes > file_->size()) {
    file_->refuse("the file is incomplete");
  }
}

const std::string& EventReader::path() const { return file_->path(); }
bool EventReader::isReplaced() const { return file_->isReplaced(); }

// A row that its writer left half written holds the number before or the one after.
U64 EventReader::count(U32 word) const {
  std::vector<bool> isTorn;
  const std::vector<U32> row = file_->rows(At::counts, rowAlignment, 1, isTorn);
  return numberAtWord(row.data(), word);
}

U32 EventReader::pid() const { return static_cast<U32>(count(At::countsPid)); }
U64 EventReader::suppressed() const { return count(At::countsSuppressed); }

U64 EventReader::last() const {
  U64 newest = count(At::countsEvents);
  // The writer may have died between a record and the count.
  for (U32 i = 0; i < 2; ++i) {
    const U64 at = headerBytes + ((newest + 1) % records_) * At::recordBytes;
    if (file_->numberAt<U64>(at + U64{At::number} * sizeof(U32)) != newest + 1) break;
    ++newest;
  }
  return newest;
}

U64 EventReader::first() const {
  const U64 newest = last();
  return newest < records_ ? 1 : newest - records_ + 1;
}

EventReader::Batch EventReader::read(U64 from, U32 max) const {
  Batch batch;
  const U64 newest = last();
  const U64 oldest = newest < records_ ? 1 : newest - records_ + 1;
  batch.next = std::max(from, U64{1});
  if (batch.next < oldest) {
    batch.overwritten = oldest - batch.next;
    batch.next = oldest;
  }
  while (batch.events.size() < max && batch.next <= newest) {
    // Up to the end of the ring at once.
    const U32 at = static_cast<U32>(batch.next % records_);
    const U32 some = static_cast<U32>(std::min<U64>(
        {newest - batch.next + 1, U64{max} - batch.events.size(), U64{records_} - at}));
    std::vector<bool> isTorn;
    const std::vector<U32> rows =
        file_->rows(headerBytes + U64{at} * At::recordBytes, At::recordBytes, some, isTorn);
    for (U32 i = 0; i < some; ++i, ++batch.next) {
      const U32* row = rows.data() + std::size_t{At::recordWords} * i;
      const U64 number = numberAtWord(row, At::number);
      if (!isTorn[i] && number == batch.next) {
        batch.events.push_back(eventOfRecord(row));
      } else if (number > batch.next) {
        ++batch.overwritten;
      } else {
        ++batch.missing;
      }
    }
  }
  return batch;
}

}  // namespace Telemetry
