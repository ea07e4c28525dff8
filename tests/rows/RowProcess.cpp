// Writes or reads the one row of a file.
//
//   row-process make FILE                      a file with a row that is whole
//   row-process write FILE [PUBLICATIONS]      publishes without a pause; for ever by default
//   row-process write-plus-one FILE            the same, wrong: goes on with a row of a dead writer
//                                              by sequence + 1
//   row-process read FILE LOOKS [SECONDS]      through a mapping
//   row-process read-file FILE LOOKS [SECONDS] by three reads of the file
//   row-process read-once FILE LOOKS [SECONDS] wrong: without the second look at the sequence
//
// A reader ends after so many looks or seconds, when it is asked to (SIGTERM), or at the first look
// that is wrong: taken for whole, but of two publications. It prints how many looks were whole,
// torn and wrong, and exits with 3 where one was wrong.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <telemetry/Row.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

using Telemetry::Word;

constexpr U32 rowWords = 64;

// Each word follows from the number of the publication and its place.
U32 valueAt(U32 publication, U32 at) { return publication * 2654435761u + at * 40503u; }

bool isOneOf(const std::vector<U32>& row) {
  for (U32 at = 2; at < rowWords; ++at) {
    if (row[at] != valueAt(row[1], at)) return false;
  }
  return true;
}

Word* map(const char* path, bool isWriter) {
  const int file = ::open(path, (isWriter ? O_RDWR | O_CREAT : O_RDONLY) | O_CLOEXEC, 0644);
  if (file < 0 || (isWriter && ::ftruncate(file, 4096) != 0)) {
    std::perror(path);
    std::exit(2);
  }
  void* row =
      ::mmap(nullptr, 4096, isWriter ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, file, 0);
  if (row == MAP_FAILED) std::exit(2);
  return static_cast<Word*>(row);
}

void publish(Word* row, U32 publication) {
  Telemetry::RowWriter writer(row);
  writer.word(1, publication);
  for (U32 at = 2; at < rowWords; ++at) writer.word(at, valueAt(publication, at));
}

void publishByPlusOne(Word* row, U32 publication) {
  const U32 sequence = row[0].load(std::memory_order_relaxed) + 1;
  row[0].store(sequence, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  row[1].store(publication, std::memory_order_relaxed);
  for (U32 at = 2; at < rowWords; ++at) {
    row[at].store(valueAt(publication, at), std::memory_order_relaxed);
  }
  row[0].store(sequence + 1, std::memory_order_release);
}

template <class Publish>
int write(const char* path, U64 publications, Publish publishOne) {
  Word* row = map(path, true);
  U32 publication = row[1].load(std::memory_order_relaxed);
  for (U64 i = 0; i < publications; ++i) publishOne(row, ++publication);
  return 0;
}

// --- Readers: true where the copy is to be whole ---

struct MappedReader {
  explicit MappedReader(const char* path) : row(map(path, false)) {}
  bool read(std::vector<U32>& copy) const { return Telemetry::readRow(row, copy); }
  const Word* row;
};

struct FileReader {
  explicit FileReader(const char* path) : file(::open(path, O_RDONLY | O_CLOEXEC)) {}
  bool read(std::vector<U32>& copy) const {
    for (U32 tries = 0; tries < Telemetry::rowTries; ++tries) {
      U32 before = 0;
      U32 after = 0;
      const ssize_t rowBytes = rowWords * sizeof(U32);
      if (::pread(file, &before, sizeof before, 0) != sizeof before ||
          ::pread(file, copy.data(), rowWords * sizeof(U32), 0) != rowBytes ||
          ::pread(file, &after, sizeof after, 0) != sizeof after) {
        std::exit(2);
      }
      if (before == after && copy[0] == before && (before & 1) == 0) return true;
    }
    return false;
  }
  int file;
};

struct OnceReader : MappedReader {
  using MappedReader::MappedReader;
  bool read(std::vector<U32>& copy) const {
    for (U32 at = 0; at < rowWords; ++at) copy[at] = row[at].load(std::memory_order_acquire);
    return (copy[0] & 1) == 0;
  }
};

volatile sig_atomic_t isToEnd = 0;

double secondsNow() {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

template <class Reader>
int read(const char* path, U64 looks, double seconds) {
  const Reader reader(path);
  std::vector<U32> copy(rowWords);
  U64 whole = 0;
  U64 torn = 0;
  U64 wrong = 0;
  ::signal(SIGTERM, [](int) { isToEnd = 1; });
  const double end = secondsNow() + seconds;
  for (U64 i = 0; i < looks && wrong == 0 && isToEnd == 0; ++i) {
    if ((i & 1023) == 0 && secondsNow() >= end) break;
    if (!reader.read(copy)) {
      ++torn;
    } else if (isOneOf(copy)) {
      ++whole;
    } else {
      ++wrong;
    }
  }
  std::printf("%llu whole, %llu torn, %llu wrong\n", static_cast<unsigned long long>(whole),
              static_cast<unsigned long long>(torn), static_cast<unsigned long long>(wrong));
  return wrong == 0 ? 0 : 3;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() < 2) return 2;
  const std::string& what = words[0];
  const char* path = words[1].c_str();
  const U64 number = words.size() < 3 ? ~U64{0} : std::strtoull(words[2].c_str(), nullptr, 10);
  const double seconds = words.size() < 4 ? 1e9 : std::strtod(words[3].c_str(), nullptr);
  if (what == "make") return write(path, 1, publish);
  if (what == "write") return write(path, number, publish);
  if (what == "write-plus-one") return write(path, number, publishByPlusOne);
  if (what == "read") return read<MappedReader>(path, number, seconds);
  if (what == "read-file") return read<FileReader>(path, number, seconds);
  if (what == "read-once") return read<OnceReader>(path, number, seconds);
  return 2;
}
