#include <telemetry/TraceLog.h>

#include <Mirl/Outside.h>
#include <telemetry/Budget.h>
#include <telemetry/LiveFormat.h>
#include <telemetry/LiveReader.h>
#include <telemetry/SharedFile.h>
#include <telemetry/Telemetry.h>
#include <telemetry/TraceReader.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <mutex>
#include <system_error>

namespace Telemetry {
namespace {

namespace At = TraceFormat;

// Until a file that could not be made is tried again, and until a failure is told again.
constexpr Zint::Seconds traceRetryInterval = 10;

// The log that has the rings of the process, and the path of its file. Logs of two activities may
// live in two threads.
struct TraceOwner {
  std::mutex mutex;
  const TraceLog* log = nullptr;
  pid_t pid = 0;  // that of the process: the records of a child of fork() are its own
  std::string path;
};
TraceOwner& traceOwner() {
  static auto* owner = new TraceOwner;  // never destroyed: a log may be later
  return *owner;
}

}  // namespace

TraceLog::TraceLog(Settings settings, Tell tell, const Times& times)
    : settings_(std::move(settings)), tell_(std::move(tell)), pid_(::getpid()) {
  const Budget endless(Zint::never);
  while (work(endless, times)) {
  }
}

TraceLog::~TraceLog() {
  TraceOwner& owner = traceOwner();
  const std::scoped_lock lock(owner.mutex);
  if (owner.log == this) owner.log = nullptr;
}

bool TraceLog::work(const Budget& budget, const Times& times) {
  try {
    do {
      const bool isToMake = making_ != nullptr || file_ == nullptr || isLost_;
      if (isToMake ? !makePiece(times) : !isMoving_) return false;
      if (!isToMake && budget.isHalfSpent()) return true;
      if (!isToMake) isMoving_ = Mirl::Outside::moveOne();
    } while (!budget.isSpent());
  } catch (const std::exception& exception) {
    making_ = nullptr;
    tell_(exception.what());
    return false;
  }
  return true;
}

// False: not now.
bool TraceLog::makePiece(const Times& times) {
  if (making_ == nullptr) {
    if (times.clock < retryTime_) return false;
    retryTime_ = times.clock + traceRetryInterval;
    if (becomeOther()) return false;
    making_ = std::make_unique<SharedFile>(settings_.path, Mirl::Outside::partsAt);
  }
  if (making_->make()) putOnline(times);
  return true;
}

// Whether another log has the rings. Its file gets this name, too, where that can be.
bool TraceLog::becomeOther() {
  TraceOwner& owner = traceOwner();
  const std::scoped_lock lock(owner.mutex);
  if (owner.log == nullptr || owner.log == this || owner.pid != ::getpid()) {
    owner.log = this;
    owner.pid = ::getpid();
    owner.path = settings_.path;
    isOther_ = false;
    return false;
  }
  if (isOther_) return true;
  const std::string made = settings_.path + ".new";
  ::unlink(made.c_str());
  if (::link(owner.path.c_str(), made.c_str()) != 0) return true;
  keepOld();
  isOther_ = std::rename(made.c_str(), settings_.path.c_str()) == 0;
  return true;
}

void TraceLog::keepOld() const {
  try {
    const TraceReader before(settings_.path);
    if (before.state() == static_cast<U32>(State::ended)) return;
    if (before.pid() == static_cast<U32>(::getpid())) return;
    (void)std::rename(settings_.path.c_str(), (settings_.path + ".old").c_str());
  } catch (const Zint::RangeException&) {
    // None, or one that cannot be read.
  }
}

void TraceLog::writeHeader(SharedFile& file, const Times& times) const {
  const auto number = [&file](U32 at, U32 value) { file.put(at, &value, sizeof value); };
  const Mirl::Outside::Layout layout = Mirl::Outside::layout();
  const Machine machine;
  const U64 processStart = machine.startOfProcess(static_cast<U32>(::getpid()));
  const std::string bootId = machine.bootId();
  file.put(0, At::magic, 8);
  number(At::majorVersion, TraceReader::majorVersion);
  number(At::minorVersion, 0);
  number(At::headerSize, headerBytes);
  number(At::pid, static_cast<U32>(::getpid()));
  file.put(At::processStart, &processStart, sizeof processStart);
  file.put(At::bootId, bootId.data(), std::min<std::size_t>(bootId.size(), At::bootIdBytes));
  file.put(At::name, settings_.name.data(),
           std::min<std::size_t>(settings_.name.size(), nameBytes - 1));
  number(At::formats, Mirl::Outside::formatsAt);
  number(At::formatsSize, Mirl::Outside::formatsBytes);
  number(At::firstEntry, Mirl::Outside::Formats::entriesAt);
  number(At::parts, Mirl::Outside::partsAt);
  number(At::levels, Mirl::TraceFile::rings);
  number(At::partsPerLevel, Mirl::Outside::partsPerRing);
  number(At::partBytes, layout.partBytes);
  number(At::partBegin, layout.begin);
  number(At::partEnd, layout.end);
  number(At::partCleared, layout.cleared);
  number(At::partRecords, layout.bytes);
  number(At::recordStarts, layout.starts);
  number(At::unit, layout.unit);
  writeRow(file, State::running, times);
}

void TraceLog::writeRow(SharedFile& file, State state, const Times& times) const {
  RowWriter writer(file.words(At::row));
  writer.word(At::rowState, static_cast<U32>(state));
  writer.time(At::rowMonotonic, times.monotonic);
  writer.time(At::rowWallClock, times.wallClock);
  writer.word(At::rowLeftOut, Mirl::Outside::partsLeftOut());
  writer.word(At::rowFailures, Mirl::Outside::failures());
}

void TraceLog::putOnline(const Times& times) {
  writeHeader(*making_, times);
  keepOld();
  try {
    Mirl::Outside::fileIs(making_->descriptor());
  } catch (const std::system_error& error) {
    throw std::system_error(error.code(), settings_.path);
  }
  making_->publish();
  file_ = std::move(making_);
  retryTime_ = -Zint::never;
  isLost_ = false;
  isMoving_ = true;
}

void TraceLog::check(const Times& times) {
  if (file_ == nullptr || pid_ != ::getpid()) return;
  if (!isLost_ && !file_->isInPlace()) {
    isLost_ = true;
    tell_(settings_.path + ": somebody has removed the file");
  }
  isMoving_ = true;
  writeRow(*file_, State::running, times);
  const U32 failures = Mirl::Outside::failures();
  if (failures == failuresTold_ || times.clock < toldTime_ + traceRetryInterval) return;
  failuresTold_ = failures;
  toldTime_ = times.clock;
  tell_(settings_.path + ": no room for the records of a thread");
}

void TraceLog::end(const Times& times) {
  if (file_ != nullptr && pid_ == ::getpid()) writeRow(*file_, State::ended, times);
}

void TraceLog::markFailed() noexcept {
  if (file_ == nullptr || pid_ != ::getpid()) return;
  RowWriter(file_->words(At::row)).word(At::rowState, static_cast<U32>(State::failed));
}

}  // namespace Telemetry
