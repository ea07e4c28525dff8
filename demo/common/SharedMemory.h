// A file mapped into both processes.
#pragma once

#include <cstddef>
#include <string>

namespace Demo {

// Failing calls raise std::system_error with the path.
class SharedMemory {
 public:
  // With a size, makes the file; else maps it with the size that it has.
  explicit SharedMemory(const std::string& path, std::size_t createdSize = 0);
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  void* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  void* data_ = nullptr;
  std::size_t size_ = 0;
};

// A new folder for the shared files: in memory where the system has such a place, else in TMPDIR.
class SharedFolder {
 public:
  SharedFolder();
  ~SharedFolder() { remove(); }
  SharedFolder(const SharedFolder&) = delete;
  SharedFolder& operator=(const SharedFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string registersPath() const { return registersPath(path_); }
  std::string controlPath() const { return controlPath(path_); }
  static std::string registersPath(const std::string& folder) { return folder + "/registers"; }
  static std::string controlPath(const std::string& folder) { return folder + "/control"; }

  // What is mapped stays mapped. Once everyone has mapped the files nothing needs them any more,
  // and no file remains however the processes end.
  void remove();

 private:
  std::string path_;
};

}  // namespace Demo
