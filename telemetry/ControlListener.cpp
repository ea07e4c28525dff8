#include <telemetry/ControlListener.h>

#include <Zint/Exception.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace Telemetry {
namespace {

constexpr int waiting = 128;  // connections that are not yet accepted

[[noreturn]] void refusePath(const std::string& path, const std::string& why) {
  Zint::throwRangeException(path + ": " + why);
}

[[noreturn]] void refuseWithErrno(const std::string& path) {
  refusePath(path, std::generic_category().message(errno));
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    refusePath(path, "a socket's path has at most " + std::to_string(sizeof address.sun_path - 1) +
                         " bytes");
  }
  std::memcpy(address.sun_path, path.c_str(), path.size());
  return address;
}

Descriptor newSocket(const std::string& path) {
  Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) refuseWithErrno(path);
  return made;
}

// Whether some process listens at it. A full queue is one that somebody has.
bool isServed(const std::string& path, const sockaddr_un& address) {
  const Descriptor asking = newSocket(path);
  const auto* raw = reinterpret_cast<const sockaddr*>(&address);
  return connect(asking.number(), raw, sizeof address) == 0 || errno != ECONNREFUSED;
}

void removeIfDead(const std::string& path, const sockaddr_un& address) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) return;  // whoever had it has removed it
  if (!S_ISSOCK(found.st_mode)) refusePath(path, "is there, and is no socket");
  if (isServed(path, address)) refusePath(path, "another driver of this name serves it");
  if (unlink(path.c_str()) != 0 && errno != ENOENT) refuseWithErrno(path);
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = other.release();
  }
  return *this;
}

void Descriptor::close() {
  if (const int number = release(); number >= 0) ::close(number);
}

int Descriptor::release() { return std::exchange(number_, -1); }

ControlListener::ControlListener(std::string path, const std::optional<U32>& group)
    : path_(std::move(path)), process_(::getpid()), descriptor_(newSocket(path_)) {
  const sockaddr_un address = addressOf(path_);
  // Two drivers that start at a time look for a dead socket one after the other.
  const std::string folder = path_.substr(0, path_.rfind('/') + 1);
  const Descriptor directory(
      open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) refuseWithErrno(path_);
  if (flock(directory.number(), LOCK_EX | LOCK_NB) != 0) {
    refusePath(path_, "another driver is just starting in this directory");
  }
  // The mode of a socket's name is that of its descriptor, less the umask: nobody may connect
  // before the mode that is meant is set.
  if (fchmod(descriptor_.number(), 0600) != 0) refuseWithErrno(path_);
  const auto bound = [&] {
    return bind(descriptor_.number(), reinterpret_cast<const sockaddr*>(&address),
                sizeof address) == 0;
  };
  if (!bound()) {
    if (errno != EADDRINUSE) refuseWithErrno(path_);
    removeIfDead(path_, address);
    if (!bound()) refuseWithErrno(path_);
  }
  struct stat made {};
  const bool isOpen = (!group || chown(path_.c_str(), static_cast<uid_t>(-1), *group) == 0) &&
                      chmod(path_.c_str(), 0660) == 0 && lstat(path_.c_str(), &made) == 0 &&
                      listen(descriptor_.number(), waiting) == 0;
  if (!isOpen) {
    const int error = errno;
    unlink(path_.c_str());
    errno = error;
    refuseWithErrno(path_);
  }
  device_ = made.st_dev;
  inode_ = made.st_ino;
}

ControlListener::~ControlListener() {
  if (::getpid() != process_) return;
  struct stat found {};
  if (lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_) {
    unlink(path_.c_str());
  }
}

}  // namespace Telemetry
