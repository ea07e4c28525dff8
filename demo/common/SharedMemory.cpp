#include "demo/common/SharedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace Demo {
namespace {

[[noreturn]] void callFailed(const char* call, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), std::string(call) + " " + path);
}

// A new folder in that place; empty when it cannot be made.
std::string newFolder(const std::string& place) {
  std::string path = place + "/umbra-demo-XXXXXX";
  return mkdtemp(path.data()) == nullptr ? std::string() : path;
}

}  // namespace

SharedMemory::SharedMemory(const std::string& path, std::size_t createdSize) {
  const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC | (createdSize ? O_CREAT : 0), 0600);
  if (descriptor < 0) callFailed("open", path);
  struct stat status {};
  const char* failed = nullptr;
  if (createdSize != 0 && ftruncate(descriptor, static_cast<off_t>(createdSize)) != 0) {
    failed = "ftruncate";
  } else if (fstat(descriptor, &status) != 0) {
    failed = "fstat";
  } else {
    size_ = static_cast<std::size_t>(status.st_size);
    data_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (data_ == MAP_FAILED) failed = "mmap";
  }
  const int error = errno;
  close(descriptor);
  errno = error;
  if (failed != nullptr) callFailed(failed, path);
}

SharedMemory::~SharedMemory() { munmap(data_, size_); }

SharedFolder::SharedFolder() : path_(newFolder("/dev/shm")) {
  if (!path_.empty()) return;
  const char* temporary = std::getenv("TMPDIR");
  const std::string place = temporary == nullptr ? "/tmp" : temporary;
  path_ = newFolder(place);
  if (path_.empty()) callFailed("mkdtemp", place);
}

void SharedFolder::remove() {
  if (path_.empty()) return;
  unlink(registersPath().c_str());
  unlink(controlPath().c_str());
  rmdir(path_.c_str());
  path_.clear();
}

}  // namespace Demo
