// Writes trace records into a file, or reads them.
//
//   trace-process write FILE [RECORDS]     from two threads; for ever by default, as quickly as it
//   can trace-process die FILE                 ends by SIGKILL in the middle of its third record
//   trace-process read FILE [SECONDS]
//   trace-process read-once FILE [SECONDS] wrong: does not look at the beginning again
//
// A reader ends after so many seconds, when it is asked to (SIGTERM), or at the first look that is
// wrong. It prints how many looks it took, how many records they showed, how many parts were torn,
// and how many records were wrong, and exits with 3 where one was, with 4 where a part was torn.
#include <Mirl/Outside.h>
#include <fcntl.h>
#include <signal.h>
#include <telemetry/TraceLog.h>
#include <telemetry/TraceReader.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <thread>

namespace {

using Mirl::MsgDesc;
using Mirl::Outside;
using Mirl::RingBuf;
using Mirl::theTraceFile;

constexpr const char* format = "record %u of thread %u: %s.";

std::string lettersOf(U32 number) {
  return std::string(number % 80, static_cast<char>('a' + number % 26));
}

Telemetry::Times timesNow() {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  Telemetry::Times times;
  times.monotonic = S64{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  times.clock = static_cast<double>(times.monotonic) * 1e-9;
  return times;
}

// Level 0 or 1, in turn.
void writeRecord(U32 number, U32 thread) {
  static const MsgDesc desc(theTraceFile, format, __LINE__);
  RingBuf::Msg msg = RingBuf::startMsg(theTraceFile, desc, number % 2);
  msg << number << thread << lettersOf(number);
  msg.endMsg();
}

int tellAndExit(const std::string& error) {
  std::fprintf(stderr, "%s\n", error.c_str());
  std::exit(2);
}

int write(const char* path, U64 records) {
  const auto writeAll = [records](U32 thread) {
    for (U64 i = 0; i < records; ++i) writeRecord(static_cast<U32>(i), thread);
  };
  // It writes already while the file is made, and moves its part itself.
  std::thread other(writeAll, 2);
  const Telemetry::TraceLog log({path, "writer"}, &tellAndExit, timesNow());
  writeAll(1);
  other.join();
  return 0;
}

int die(const char* path) {
  const Telemetry::TraceLog log({path, "writer"}, &tellAndExit, timesNow());
  writeRecord(0, 1);
  writeRecord(2, 1);
  static const MsgDesc desc(theTraceFile, "never completed %u", __LINE__);
  RingBuf::Msg msg = RingBuf::startMsg(theTraceFile, desc, 0);
  msg << U32{4};
  ::kill(::getpid(), SIGKILL);
  return 2;
}

// --- Readers: how many records of a look are wrong ---

struct Counts {
  U64 looks = 0, records = 0, torn = 0, wrong = 0;
};

// Each thread's records of a level follow each other.
class Sequences {
 public:
  bool takes(U32 level, const std::string& text) {
    U32 number = 0;
    U32 thread = 0;
    int end = 0;
    if (std::sscanf(text.c_str(), "record %u of thread %u: %n", &number, &thread, &end) != 2 ||
        number % 2 != level || text.c_str() + end != lettersOf(number) + ".") {
      return false;
    }
    const auto [last, isFirst] = last_.try_emplace(thread * 2 + level, number);
    const bool isNext = isFirst || number == last->second + 2;
    last->second = number;
    return isNext;
  }

 private:
  std::map<U32, U32> last_;
};

struct WholeReader {
  explicit WholeReader(const char* path) : reader(path) {}
  void look(Counts& counts) const {
    Telemetry::TraceReader::Position position;
    const Telemetry::TraceReader::Look look = reader.read(position);
    Sequences sequences;
    counts.torn += look.tornParts;
    for (const Telemetry::TraceRecord& record : look.records) {
      ++counts.records;
      if (!sequences.takes(record.level, record.text)) ++counts.wrong;
    }
  }
  Telemetry::TraceReader reader;
};

// The oldest records of the first part of level 0, as they are found: what is overwritten meanwhile
// is overwritten from there.
struct OnceReader {
  explicit OnceReader(const char* path)
      : file(::open(path, O_RDONLY | O_CLOEXEC)), layout(Outside::layout()) {
    bytes.resize(layout.partBytes - layout.bytes);
  }
  void read(U32 offset, void* to, std::size_t size) const {
    const auto at = static_cast<off_t>(Outside::offsetOf(0, 0) + offset);
    if (::pread(file, to, size, at) <= 0) std::exit(2);
  }
  void look(Counts& counts) {
    U64 begin = 0;
    U32 end = 0;
    read(layout.begin, &begin, sizeof begin);
    read(layout.end, &end, sizeof end);
    read(layout.bytes, bytes.data(), bytes.size());
    const U32 count = ((end >> 12) - static_cast<U32>(begin >> 16)) & 0xfffff;
    U32 place = static_cast<U32>(begin & 0xffff) * layout.unit;
    Sequences sequences;
    for (U32 i = 0; i < std::min(count, U32{8}); ++i) {
      U32 length = 0;
      std::memcpy(&length, &bytes[place], sizeof length);
      ++counts.records;
      if (length < 16 || length > bytes.size() - place ||
          !sequences.takes(0, Mirl::recordFrom({&bytes[place], length}, format).text.bytes())) {
        ++counts.wrong;
        return;
      }
      place = place + length < layout.starts ? place + length : 0;
    }
  }
  int file;
  Outside::Layout layout;
  std::vector<U8> bytes;
};

volatile sig_atomic_t isToEnd = 0;

template <class Reader>
int read(const char* path, double seconds) {
  Reader reader(path);
  Counts counts;
  ::signal(SIGTERM, [](int) { isToEnd = 1; });
  const double end = timesNow().clock + seconds;
  do {
    reader.look(counts);
    ++counts.looks;
  } while (counts.wrong == 0 && isToEnd == 0 && timesNow().clock < end);
  const auto number = [](U64 value) { return static_cast<unsigned long long>(value); };
  std::printf("%llu looks, %llu records, %llu torn parts, %llu wrong\n", number(counts.looks),
              number(counts.records), number(counts.torn), number(counts.wrong));
  return counts.wrong != 0 ? 3 : counts.torn != 0 ? 4 : 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() < 2) return 2;
  const std::string& what = words[0];
  const char* path = words[1].c_str();
  const bool hasNumber = words.size() > 2;
  const U64 records = hasNumber ? std::strtoull(words[2].c_str(), nullptr, 10) : ~U64{0};
  const double seconds = hasNumber ? std::strtod(words[2].c_str(), nullptr) : 1e9;
  if (what == "write") return write(path, records);
  if (what == "die") return die(path);
  if (what == "read") return read<WholeReader>(path, seconds);
  if (what == "read-once") return read<OnceReader>(path, seconds);
  return 2;
}
