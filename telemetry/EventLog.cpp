#include <telemetry/EventLog.h>

#include <telemetry/Budget.h>
#include <telemetry/EventReader.h>
#include <telemetry/LiveFormat.h>
#include <telemetry/SharedFile.h>
#include <telemetry/Telemetry.h>
#include <unistd.h>

#include <algorithm>

namespace Telemetry {
namespace {

namespace At = EventFormat;

// Until a file that could not be made is tried again.
constexpr Zint::Seconds retryInterval = 10;
constexpr U32 leastRecords = 16;
constexpr U32 rescuedTogether = 32;

U32 bytesOfRing(U32 records) { return headerBytes + records * At::recordBytes; }

void putNumberAt(std::span<U32> record, U32 at, U64 value) {
  record[at] = static_cast<U32>(value);
  record[at + 1] = static_cast<U32>(value >> 32);
}

void putTextAt(std::span<U32> record, U32 at, U32 bytes, std::string_view text) {
  char* field = reinterpret_cast<char*>(record.data() + at);
  const std::size_t length = std::min<std::size_t>(text.size(), bytes - 1);
  if (length != 0) std::memcpy(field, text.data(), length);
  if (text.size() >= bytes) field[bytes - 1] = 1;
}

void putBytesAt(std::span<U32> record, U32 at, std::span<const U8> bytes) {
  if (bytes.empty()) return;
  std::memcpy(record.data() + at, bytes.data(),
              std::min<std::size_t>(bytes.size(), At::valueBytes));
}

EventLog::Settings checkedSettings(EventLog::Settings settings) {
  settings.records = std::max(settings.records, leastRecords);
  return settings;
}

}  // namespace

EventLog::EventLog(Settings settings, Tell tell)
    : settings_(checkedSettings(std::move(settings))),
      tell_(std::move(tell)),
      tokens_(settings_.burst) {
  try {
    const EventReader before(settings_.path);
    last_ = before.last();
    suppressed_ = suppressedTold_ = before.suppressed();
    isNew_ = before.records() != settings_.records;
  } catch (const Zint::RangeException&) {
    // None, or one that cannot be read: the numbers begin with 1.
  }
}

EventLog::~EventLog() = default;

bool EventLog::isAllowed(const Data& data, const Times& times) {
  switch (data.kind) {
    case EventKind::start:
    case EventKind::end:
    case EventKind::assertion:
    case EventKind::suppressed:
      return true;
    default:
      break;
  }
  if (times.clock > refilled_) {
    tokens_ = std::min(settings_.burst, tokens_ + (times.clock - refilled_) * settings_.rate);
    refilled_ = times.clock;
  }
  if (tokens_ < 1) return false;
  tokens_ -= 1;
  return true;
}

bool EventLog::add(const Data& data, const Times& times) {
  const bool isWaitingFull = file_ == nullptr && waiting_.size() >= waitingMax;
  if (isWaitingFull || !isAllowed(data, times)) {
    ++suppressed_;
    return false;
  }
  Record record{};
  record[At::kind] = static_cast<U32>(data.kind);
  putNumberAt(record, At::number, ++last_);
  putNumberAt(record, At::monotonic, static_cast<U64>(times.monotonic));
  putNumberAt(record, At::wallClock, static_cast<U64>(times.wallClock));
  record[At::verdict] = data.verdict;
  record[At::nature] = data.nature;
  record[At::entry] = data.entry;
  record[At::entrySize] = data.entrySize;
  record[At::uid] = data.uid;
  record[At::pid] = data.pid;
  putTextAt(record, At::region, At::regionBytes, data.region);
  putTextAt(record, At::chip, At::chipBytes, data.chip);
  putBytesAt(record, At::expected, data.expected);
  putBytesAt(record, At::actual, data.actual);
  putTextAt(record, At::text, At::textBytes, data.text);
  if (file_ == nullptr) {
    waiting_.push_back(record);
  } else {
    write(record);
    writeCounts();
  }
  return true;
}

bool EventLog::command(U32 uid, U32 pid, std::string_view line, const Times& times) {
  return add({.kind = EventKind::command, .uid = uid, .pid = pid, .text = line}, times);
}

void EventLog::tellSuppressed(const Times& times) {
  const bool isWaitingFull = file_ == nullptr && waiting_.size() >= waitingMax;
  if (suppressed_ == suppressedTold_ || isWaitingFull) return;
  const U64 more = suppressed_ - suppressedTold_;
  suppressedTold_ = suppressed_;
  add({.kind = EventKind::suppressed, .verdict = static_cast<U32>(std::min<U64>(more, ~0u))},
      times);
}

void EventLog::write(const Record& record) {
  const U64 number = record[At::number] | U64{record[At::number + 1]} << 32;
  const U32 place = static_cast<U32>(number % settings_.records);
  writeTo(*file_, place, record);
  if (making_ != nullptr && place < rescued_) writeTo(*making_, place, record);
}

void EventLog::writeTo(const SharedFile& file, U32 place, const Record& record) {
  RowWriter writer(file.words(headerBytes + place * At::recordBytes));
  for (U32 i = 1; i < recordWords; ++i) writer.word(i, record[i]);
}

// Copies some records of the file that was lost, whose pages are still here. True: that is all.
bool EventLog::rescue() {
  if (!isLost_ || !file_->isWhole()) return true;
  const U32 end = std::min(rescued_ + rescuedTogether, settings_.records);
  for (; rescued_ < end; ++rescued_) {
    const Word* words = file_->words(headerBytes + rescued_ * At::recordBytes);
    Record record{};
    for (U32 i = 1; i < recordWords; ++i) record[i] = words[i].load(std::memory_order_relaxed);
    if (record[At::kind] != 0) writeTo(*making_, rescued_, record);
  }
  return rescued_ == settings_.records;
}

void EventLog::writeCounts() {
  RowWriter writer(file_->words(At::counts));
  writer.number(At::countsEvents, last_);
  writer.number(At::countsSuppressed, suppressed_);
  writer.word(At::countsPid, static_cast<U32>(::getpid()));
}

bool EventLog::work(const Budget& budget, const Times& times) {
  if (making_ == nullptr) {
    if ((file_ != nullptr && !isLost_) || times.clock < retryTime_) return false;
  }
  retryTime_ = times.clock + retryInterval;
  try {
    if (making_ == nullptr) begin();
    do {
      if (making_->make() && rescue()) {
        putOnline();
        return true;
      }
    } while (!budget.isSpent());
  } catch (const std::exception& exception) {
    making_ = nullptr;
    isNew_ = true;
    tell_(exception.what());
    return false;
  }
  return true;
}

void EventLog::begin() {
  rescued_ = 0;
  const U32 bytes = bytesOfRing(settings_.records);
  if (!isNew_) {
    // Next time a new one, if this one cannot be mapped.
    isNew_ = true;
    making_ = std::make_unique<SharedFile>(settings_.path, SharedFile::Existing{bytes});
    isNew_ = false;
  } else {
    making_ = std::make_unique<SharedFile>(settings_.path, bytes);
  }
}

void EventLog::writeHeader() {
  SharedFile& file = *file_;
  const auto number = [&file](U32 at, U32 value) { file.put(at, &value, sizeof value); };
  file.put(0, At::magic, 8);
  number(At::majorVersion, EventReader::majorVersion);
  number(At::minorVersion, 0);
  number(At::headerSize, headerBytes);
  number(At::recordBytesAt, At::recordBytes);
  number(At::records, settings_.records);
  file.put(At::name, settings_.name.data(),
           std::min<std::size_t>(settings_.name.size(), nameBytes - 1));
}

void EventLog::putOnline() {
  file_ = std::move(making_);
  rescued_ = 0;
  if (isNew_) writeHeader();
  for (const Record& record : waiting_) write(record);
  waiting_ = {};
  writeCounts();
  file_->publish();
  isLost_ = false;
  isNew_ = true;  // should it get lost
  retryTime_ = -Zint::never;
}

void EventLog::check() {
  if (file_ == nullptr || isLost_ || file_->isInPlace()) return;
  isLost_ = true;
  tell_(settings_.path + ": somebody has removed the file");
}

}  // namespace Telemetry
