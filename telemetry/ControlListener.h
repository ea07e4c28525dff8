// A Unix socket that is listened at, and its name in the file system. No installed header.
#pragma once

#include <Zint/Types.h>
#include <sys/types.h>
#include <optional>
#include <string>

namespace Telemetry {

// Owns a descriptor.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor() { close(); }

  int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  void close();

 private:
  int release();

  int number_;
};

// Removes its name at the end, unless another socket has taken it meanwhile, or it is the end of a
// process that was forked.
class ControlListener {
 public:
  // Bound with 0600, open to the owner and the group afterwards. A socket that nobody serves is
  // replaced. Range exceptions: why it cannot be bound.
  ControlListener(std::string path, const std::optional<U32>& group);
  ~ControlListener();
  ControlListener(const ControlListener&) = delete;
  ControlListener& operator=(const ControlListener&) = delete;

  int descriptor() const { return descriptor_.number(); }
  const std::string& path() const { return path_; }

 private:
  const std::string path_;
  const pid_t process_;
  Descriptor descriptor_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace Telemetry
