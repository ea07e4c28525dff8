#include <telemetry/SharedFile.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <telemetry/Telemetry.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <set>
#include <system_error>

namespace Telemetry {
namespace {

constexpr U32 pageBytes = 4096;

[[noreturn]] void throwFileError(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

// The files of the process. A process that is forked shares its parent's mappings: what it did with
// them, its end among it, would be seen as done by the parent.
struct SharedFiles {
  std::mutex mutex;
  std::set<SharedFile*> all;
};
SharedFiles& sharedFiles() {
  // Never destroyed: a process may be forked at its end.
  static SharedFiles& files = *[] {
    auto* const made = new SharedFiles;
    ::pthread_atfork([] { sharedFiles().mutex.lock(); }, [] { sharedFiles().mutex.unlock(); },
                     [] {
                       for (SharedFile* file : sharedFiles().all) file->leaveToParent();
                       sharedFiles().mutex.unlock();
                     });
    return made;
  }();
  return files;
}

void enter(SharedFile* file) {
  SharedFiles& files = sharedFiles();
  const std::lock_guard lock(files.mutex);
  files.all.insert(file);
}

}  // namespace

SharedFile::SharedFile(std::string path, U32 bytes)
    : process_(::getpid()), path_(std::move(path)), madeAs_(path_ + ".new"), bytes_(bytes) {
  // What an earlier process left half made.
  ::unlink(madeAs_.c_str());
  descriptor_ = ::open(madeAs_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (descriptor_ < 0) throwFileError(errno, path_);
  enter(this);
}

SharedFile::SharedFile(std::string path, Existing existing)
    : process_(::getpid()), path_(std::move(path)) {
  descriptor_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (descriptor_ < 0) throwFileError(errno, path_);
  struct stat found = {};
  const bool isRead = ::fstat(descriptor_, &found) == 0;
  if (!isRead || found.st_size < existing.leastBytes || found.st_size > 0x7fffffff ||
      !S_ISREG(found.st_mode)) {
    close();
    throwFileError(EINVAL, path_);
  }
  bytes_ = static_cast<U32>(found.st_size);
  enter(this);
}

SharedFile::~SharedFile() {
  {
    SharedFiles& files = sharedFiles();
    const std::lock_guard lock(files.mutex);
    files.all.erase(this);
  }
  if (words_ != nullptr && unmapped_ < bytes_) {
    ::munmap(reinterpret_cast<char*>(words_) + unmapped_, bytes_ - unmapped_);
  }
  close();
}

void SharedFile::close() {
  if (descriptor_ < 0) return;
  ::close(descriptor_);
  descriptor_ = -1;
  if (!madeAs_.empty() && !isForked()) ::unlink(madeAs_.c_str());
}

bool SharedFile::isForked() const { return ::getpid() != process_; }

void SharedFile::leaveToParent() noexcept {
  if (words_ == nullptr || unmapped_ >= bytes_) return;
  (void)::mmap(reinterpret_cast<char*>(words_) + unmapped_, bytes_ - unmapped_,
               PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, descriptor_, unmapped_);
}

void SharedFile::map() {
  void* mapped = ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
  if (mapped == MAP_FAILED) throwFileError(errno, path_);
  words_ = static_cast<Word*>(mapped);
}

bool SharedFile::make() {
  if (isForked()) throwFileError(EPERM, path_ + " belongs to the process before the fork");
  if (allocated_ < bytes_) {
    const U32 piece = std::min(pieceBytes, bytes_ - allocated_);
    const int error = ::posix_fallocate(descriptor_, allocated_, piece);
    if (error == EINTR) return false;
    if (error != 0) throwFileError(error, path_);
    allocated_ += piece;
    return false;
  }
  if (words_ == nullptr) {
    map();
    return false;
  }
  const U32 end = std::min(bytes_, touched_ + pieceBytes);
  // Changes nothing, and the page is there afterwards.
  for (; touched_ < end; touched_ += pageBytes) {
    words(touched_)->fetch_or(0, std::memory_order_relaxed);
  }
  return touched_ >= bytes_;
}

void SharedFile::publish() {
  if (madeAs_.empty()) return;
  if (isForked()) throwFileError(EPERM, path_ + " belongs to the process before the fork");
  if (::rename(madeAs_.c_str(), path_.c_str()) != 0) throwFileError(errno, path_);
  madeAs_.clear();
}

bool SharedFile::unmap() {
  if (words_ == nullptr) return true;
  const U32 piece = std::min(8 * pieceBytes, bytes_ - unmapped_);
  if (piece != 0) ::munmap(reinterpret_cast<char*>(words_) + unmapped_, piece);
  unmapped_ += piece;
  return unmapped_ == bytes_;
}

void SharedFile::put(U32 offset, const void* bytes, std::size_t size) {
  TELEMETRY_ASSERT(offset + size <= bytes_);
  std::memcpy(reinterpret_cast<char*>(words_) + offset, bytes, size);
}

bool SharedFile::isWhole() const {
  struct stat ours = {};
  return ::fstat(descriptor_, &ours) == 0 && ours.st_size >= bytes_;
}

bool SharedFile::isInPlace() const {
  struct stat ours = {};
  struct stat there = {};
  if (::fstat(descriptor_, &ours) != 0 || ::stat(path_.c_str(), &there) != 0) return false;
  return ours.st_ino == there.st_ino && ours.st_dev == there.st_dev && there.st_size >= bytes_;
}

}  // namespace Telemetry
