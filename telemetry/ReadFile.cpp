#include <telemetry/ReadFile.h>

#include <Zint/Exception.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Telemetry {
namespace {

// Bytes of rows that are looked at together.
constexpr U32 bytesPerLook = 64 * 1024;

}  // namespace

ReadFile::ReadFile(const std::string& path)
    : path_(path),  // A named pipe must not be waited for.
      descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (descriptor_ < 0) refuse(std::generic_category().message(errno));
  struct stat found = {};
  if (::fstat(descriptor_, &found) == 0 && S_ISREG(found.st_mode)) return;
  ::close(descriptor_);
  refuse("this is no file");
}

ReadFile::~ReadFile() { ::close(descriptor_); }

void ReadFile::refuse(const std::string& why) const {
  Zint::throwRangeException(path_ + ": " + why);
}

U64 ReadFile::size() const {
  struct stat found = {};
  return ::fstat(descriptor_, &found) == 0 ? static_cast<U64>(found.st_size) : 0;
}

bool ReadFile::isReplaced() const {
  struct stat ours = {};
  struct stat there = {};
  if (::fstat(descriptor_, &ours) != 0 || ::stat(path_.c_str(), &there) != 0) return true;
  return ours.st_ino != there.st_ino || ours.st_dev != there.st_dev;
}

bool ReadFile::read(U64 offset, void* to, std::size_t bytes) const {
  char* next = static_cast<char*>(to);
  while (bytes != 0) {
    const ssize_t got = ::pread(descriptor_, next, bytes, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      std::memset(next, 0, bytes);
      return false;
    }
    next += got;
    offset += static_cast<U64>(got);
    bytes -= static_cast<std::size_t>(got);
  }
  return true;
}

std::string ReadFile::textAt(U64 offset, std::size_t bytes) const {
  std::string text(bytes, '\0');
  read(offset, text.data(), bytes);
  return text.substr(0, text.find('\0'));
}

std::vector<U32> ReadFile::rows(U64 offset, U32 rowBytes, U32 count,
                                std::vector<bool>& isTorn) const {
  const std::size_t words = rowBytes / sizeof(U32);
  std::vector<U32> all(words * count);
  isTorn.assign(count, true);
  const U32 together = std::max(bytesPerLook / rowBytes, U32{1});
  for (U32 first = 0; first < count; first += together) {
    const U32 some = std::min(together, count - first);
    std::vector<bool> someTorn(some, true);
    look(offset + U64{first} * rowBytes, rowBytes, some, all.data() + words * first, someTorn);
    for (U32 i = 0; i < some; ++i) {
      const U32 row = first + i;
      std::vector<bool> torn = {someTorn[i]};
      for (U32 tries = 1; torn[0] && tries < rowTries; ++tries) {
        look(offset + U64{row} * rowBytes, rowBytes, 1, all.data() + words * row, torn);
      }
      isTorn[row] = torn[0];
    }
  }
  return all;
}

void ReadFile::look(U64 offset, U32 rowBytes, U32 count, U32* to, std::vector<bool>& isTorn) const {
  const std::size_t words = rowBytes / sizeof(U32);
  // From the first sequence number to the last.
  const std::size_t bytes = std::size_t{count - 1} * rowBytes + sizeof(U32);
  std::vector<U32> before(words * count);
  std::vector<U32> after(words * count);
  read(offset, before.data(), bytes);
  const bool isWhole = read(offset, to, std::size_t{count} * rowBytes);
  read(offset, after.data(), bytes);
  for (U32 i = 0; i < count; ++i) {
    const U32 sequence = to[words * i];
    isTorn[i] = (sequence & 1) != 0 || before[words * i] != sequence ||
                after[words * i] != sequence || (!isWhole && count == 1);
  }
}

std::string textOfField(const U32* words, U32 bytes, bool* isCut) {
  std::string text(bytes, '\0');
  std::memcpy(text.data(), words, bytes);
  if (isCut != nullptr) *isCut = bytes != 0 && text.back() == '\1';
  if (bytes != 0) text.pop_back();
  return text.substr(0, text.find('\0'));
}

}  // namespace Telemetry
