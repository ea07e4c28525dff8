#include <telemetry/LiveReader.h>

#include <Zint/Exception.h>
#include <Zint/Strep.h>
#include <fcntl.h>
#include <telemetry/LiveFormat.h>
#include <telemetry/ReadFile.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace Telemetry {
namespace {

S64 timeOfClock(clockid_t clock) {
  timespec time = {};
  ::clock_gettime(clock, &time);
  return S64{time.tv_sec} * 1'000'000'000 + S64{time.tv_nsec};
}

// At most 4 KiB; empty where it cannot be read.
std::string contentOf(const char* path) {
  std::array<char, 4096> bytes;
  const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return "";
  const ssize_t got = ::read(descriptor, bytes.data(), bytes.size());
  ::close(descriptor);
  return got < 0 ? "" : std::string(bytes.data(), static_cast<std::size_t>(got));
}

// Larger ones are not made: a damaged file is no reason to take all memory.
constexpr U32 maxSchemaBytes = 16 * 1024 * 1024;

void checkColumns(const ReadFile& file, const Table& table) {
  for (const Column& column : table.columns) {
    const U32 least = column.kind == ColumnKind::boolean ? 4 : 8;
    if (column.offset % 4 != 0 || column.bytes % 4 != 0 || column.bytes < least ||
        column.offset > table.rowBytes || column.bytes > table.rowBytes - column.offset) {
      file.refuse("the column " + table.name + "." + column.name + " is outside of its row");
    }
  }
}

}  // namespace

// --- Rows ---

U64 Row::number(const Column& column) const {
  const U32 at = column.offset / 4;
  if (column.kind == ColumnKind::boolean) return words_[at];
  return words_[at] | U64{words_[at + 1]} << 32;
}

double Row::real(const Column& column) const { return std::bit_cast<double>(number(column)); }

std::string Row::text(const Column& column, bool* isCut) const {
  return textOfField(words_.data() + column.offset / 4, column.bytes, isCut);
}

std::string Row::shown(const Column& column) const {
  switch (column.kind) {
    case ColumnKind::boolean:
      return isTrue(column) ? "true" : "false";
    case ColumnKind::unsignedNumber:
      return std::to_string(number(column));
    case ColumnKind::signedNumber: {
      const std::string_view name = column.nameOfNumber(signedNumber(column));
      return name.empty() ? std::to_string(signedNumber(column)) : std::string(name);
    }
    case ColumnKind::real:
      return Zint::valueToStrep(real(column)).bytes();
    case ColumnKind::time:
      if (time(column) == neverTime) return "never";
      if (time(column) == -neverTime - 1) return "before everything";
      return Zint::format("%.6f", secondsOfTime(time(column))).bytes();
    case ColumnKind::text:
      break;
  }
  return text(column);
}

// --- The machine ---

const char* nameOf(Liveness::State state) {
  constexpr std::array<const char*, 4> names = {"live", "stalled", "dead", "ended"};
  return names.at(state);
}

Machine::~Machine() = default;
S64 Machine::monotonic() const { return timeOfClock(CLOCK_MONOTONIC); }
S64 Machine::wallClock() const { return timeOfClock(CLOCK_REALTIME); }

std::string Machine::bootId() const {
  std::string bytes;
  int half = -1;
  for (const char c : contentOf("/proc/sys/kernel/random/boot_id")) {
    const int digit = Zint::hexDigit(c);
    if (digit < 0) continue;
    if (half < 0) {
      half = digit;
    } else {
      bytes += static_cast<char>(half << 4 | digit);
      half = -1;
    }
  }
  return bytes.size() == 16 ? bytes : "";
}

U64 Machine::startOfProcess(U32 pid) const {
  const std::string stat = contentOf(("/proc/" + std::to_string(pid) + "/stat").c_str());
  // The name, in brackets, may hold anything; the state is field 3, the start field 22.
  std::size_t at = stat.rfind(')');
  if (at == std::string::npos || at + 2 >= stat.size()) return 0;
  if (stat[at + 2] == 'Z' || stat[at + 2] == 'X') return 0;  // it has ended
  for (int field = 2; field < 22; ++field) {
    at = stat.find(' ', at + 1);
    if (at == std::string::npos) return 0;
  }
  U64 ticks = 0;
  std::from_chars(stat.data() + at + 1, stat.data() + stat.size(), ticks);
  return ticks;
}

// --- The file ---

LiveReader::LiveReader(LiveReader&&) noexcept = default;
LiveReader& LiveReader::operator=(LiveReader&&) noexcept = default;
LiveReader::~LiveReader() = default;

LiveReader::LiveReader(const std::string& path) : file_(std::make_unique<ReadFile>(path)) {
  namespace At = LiveFormat;
  const ReadFile& file = *file_;
  if (file.textAt(0, 8) != At::magic) file.refuse("this is no live view");
  const U32 version = file.numberAt<U32>(At::majorVersion);
  if (version != majorVersion) {
    file.refuse("version " + std::to_string(version) + " of a live view cannot be read");
  }
  minorVersion_ = file.numberAt<U32>(At::minorVersion);
  pid_ = file.numberAt<U32>(At::pid);
  startTime_ = file.numberAt<S64>(At::startTime);
  processStart_ = file.numberAt<U64>(At::processStart);
  bootId_.assign(16, '\0');
  file.read(At::bootId, bootId_.data(), bootId_.size());
  name_ = file.textAt(At::name, nameBytes);

  const U32 schemaAt = file.numberAt<U32>(At::schema);
  const U32 schemaBytes = file.numberAt<U32>(At::schemaBytes);
  const U32 tables = file.numberAt<U32>(At::tableCount);
  const U64 size = file.size();
  if (schemaBytes > maxSchemaBytes || U64{schemaAt} + schemaBytes > size ||
      tables > At::maxTables) {
    file.refuse("the file is incomplete");
  }
  std::string text(schemaBytes, '\0');
  file.read(schemaAt, text.data(), text.size());
  try {
    schema_ = Schema::fromJson(text);
  } catch (const Zint::RangeException& exception) {
    file.refuse(exception.what());
  }
  if (schema_.tables.size() != tables) file.refuse("the schema has other tables than the header");
  for (U32 i = 0; i < tables; ++i) {
    Table& table = schema_.tables[i];
    const U32 at = At::tables + At::tableBytes * i;
    if (file.textAt(at, At::tableNameBytes) != table.name) {
      file.refuse("the schema has other tables than the header");
    }
    table.firstRow = file.numberAt<U32>(at + At::tableNameBytes);
    table.rowBytes = file.numberAt<U32>(at + At::tableNameBytes + 4);
    table.rows = file.numberAt<U32>(at + At::tableNameBytes + 8);
    if (table.rowBytes < rowAlignment || table.rowBytes % 4 != 0 ||
        table.firstRow + U64{table.rowBytes} * table.rows > size) {
      file.refuse("the file is incomplete");
    }
    checkColumns(file, table);
  }
}

const std::string& LiveReader::path() const { return file_->path(); }
bool LiveReader::isReplaced() const { return file_->isReplaced(); }

std::string LiveReader::socket() const {
  return file_->textAt(LiveFormat::socket, LiveFormat::socketBytes);
}
std::string LiveReader::adminSocket() const {
  return file_->textAt(LiveFormat::adminSocket, LiveFormat::socketBytes);
}

Heartbeat LiveReader::heartbeat() const {
  namespace At = LiveFormat;
  std::vector<bool> isTorn;
  const std::vector<U32> row = file_->rows(At::heartbeat, rowAlignment, 1, isTorn);
  const auto number = [&row](U32 at) { return row[at] | U64{row[at + 1]} << 32; };
  return {.state = row[At::beatState],
          .monotonic = static_cast<S64>(number(At::beatMonotonic)),
          .wallClock = static_cast<S64>(number(At::beatWallClock)),
          .count = number(At::beatCount),
          .notFit = row[At::beatNotFit],
          .pointerBits = row[At::beatPointerBits],
          .isTorn = isTorn[0]};
}

Liveness LiveReader::liveness() const { return liveness(Machine()); }

Liveness LiveReader::liveness(const Machine& machine) const {
  const Heartbeat beat = heartbeat();
  const S64 wallAge = std::max<S64>(machine.wallClock() - beat.wallClock, 0);
  const auto is = [&](Liveness::State state, S64 ago, const char* reason) {
    return Liveness{.state = state, .since = beat.wallClock, .sinceAgo = ago, .reason = reason};
  };
  // The last words of a driver hold, whether its process is still there or not.
  if (beat.state == Heartbeat::ended) return is(Liveness::ended, wallAge, "it ended in order");
  const std::string boot = machine.bootId();
  if (!boot.empty() && boot != bootId_) {
    return is(Liveness::dead, wallAge, "the machine was booted since");
  }
  if (beat.state == Heartbeat::failed) {
    return is(Liveness::dead, wallAge, "an assertion ended it");
  }
  const U64 start = machine.startOfProcess(pid_);
  if (start == 0) return is(Liveness::dead, wallAge, "the process is no more");
  if (start != processStart_) {
    return is(Liveness::dead, wallAge, "its process id was given to another process");
  }
  const S64 age = machine.monotonic() - beat.monotonic;
  if (age > stalledAfter) return is(Liveness::stalled, age, "no heartbeat");
  return is(Liveness::live, std::max<S64>(age, 0), "");
}

Row LiveReader::row(const Table& table, U32 index) const { return rows(table, index, 1).front(); }

std::vector<Row> LiveReader::rows(const Table& table, U32 first, U32 count) const {
  if (first > table.rows || count > table.rows - first) {
    file_->refuse("the table " + table.name + " has " + std::to_string(table.rows) + " rows");
  }
  std::vector<bool> isTorn;
  const std::vector<U32> words =
      file_->rows(table.firstRow + U64{table.rowBytes} * first, table.rowBytes, count, isTorn);
  const std::size_t wordsOfRow = table.rowBytes / 4;
  std::vector<Row> rows;
  rows.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto begin = words.begin() + static_cast<std::ptrdiff_t>(wordsOfRow * i);
    rows.emplace_back(std::vector<U32>(begin, begin + static_cast<std::ptrdiff_t>(wordsOfRow)),
                      isTorn[i]);
  }
  return rows;
}

}  // namespace Telemetry
