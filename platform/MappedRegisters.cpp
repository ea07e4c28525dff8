#include <platform/MappedRegisters.h>

#include <Zint/Exception.h>
#include <Zint/Sizes.h>
#include <Zint/Strep.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Platform {
namespace {

constexpr U64 addressSpace = U64{1} << 32;

[[noreturn]] void throwCallFailure(const char* call, const Zint::String8& path) {
  throw std::system_error(errno, std::generic_category(), std::string(call) + " " + path.c_str());
}

// Closes the file after the mapping has been made, or has failed.
class OpenFile {
 public:
  OpenFile(const Zint::String8& path, bool created)
      : descriptor_(open(path.c_str(), O_RDWR | O_CLOEXEC | (created ? O_CREAT : 0), 0600)) {
    if (descriptor_ < 0) throwCallFailure("open", path);
  }
  ~OpenFile() { close(descriptor_); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace

MappedRegisters::MappedRegisters(Zint::String8 path, U32 baseAddress,
                                 std::optional<U32> createdSize)
    : path_(std::move(path)), baseAddress_(baseAddress) {
  if (baseAddress_ % sizeof(U32) != 0) {
    Zint::throwRangeException(Zint::format("%s: the base address 0x%08x is no multiple of 4",
                                           path_.c_str(), baseAddress_));
  }
  const OpenFile file(path_, createdSize.has_value());
  if (createdSize && ftruncate(file.descriptor(), off_t{*createdSize}) != 0) {
    throwCallFailure("ftruncate", path_);
  }
  struct stat status {};
  if (fstat(file.descriptor(), &status) != 0) throwCallFailure("fstat", path_);
  size_ = static_cast<U64>(status.st_size);
  if (size_ < sizeof(U32) || size_ > addressSpace - baseAddress_) {
    Zint::throwRangeException(
        Zint::format("%s: %ju bytes cannot be mapped as registers from 0x%08x on", path_.c_str(),
                     size_, baseAddress_));
  }
  void* mapping =
      mmap(nullptr, Zint::sizeOf(size_), PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor(), 0);
  if (mapping == MAP_FAILED) throwCallFailure("mmap", path_);
  registers_ = static_cast<volatile U32*>(mapping);
}

MappedRegisters::~MappedRegisters() {
  if (registers_ != nullptr) {
    munmap(const_cast<U32*>(registers_), Zint::sizeOf(size_));
  }
}

void MappedRegisters::read(U32 address, U32* value) { *value = registerAt(address); }

void MappedRegisters::write(U32 address, U32 value) { registerAt(address) = value; }

volatile U32& MappedRegisters::registerAt(U32 address) const {
  const U32 offset = address - baseAddress_;  // wraps below the base, to beyond any mapping
  if (address < baseAddress_ || address % sizeof(U32) != 0 || U64{offset} + sizeof(U32) > size_)
      [[unlikely]] {
    refuseAddress(address);
  }
  return registers_[offset / sizeof(U32)];
}

void MappedRegisters::refuseAddress(U32 address) const {
  const bool unaligned = address % sizeof(U32) != 0;
  Zint::throwRangeException(
      Zint::format("%s: register address 0x%08x is %s 0x%08x to 0x%08x", path_.c_str(), address,
                   unaligned ? "no multiple of 4; mapped is" : "outside the mapping from",
                   baseAddress_, static_cast<U32>(baseAddress_ + size_ - 1)));
}

Zint::ValidPtr<MappedRegisters> mappedRegistersFactory(Zint::String8 path, U32 baseAddress,
                                                       std::optional<U32> createdSize) {
  return Zint::makePtr<MappedRegisters>(std::move(path), baseAddress, createdSize);
}

}  // namespace Platform
