#include <platform/bus/MappedBus.h>

#include <Zint/Exception.h>
#include <Zint/Sizes.h>
#include <Zint/Strep.h>
#include <platform/bus/BusError.h>
#include <platform/bus/SigbusGuard.h>
#include <sys/mman.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>

namespace Platform {
namespace {

template <class T>
void readAll(const volatile U8* from, U8* to, U32 count) {
  const auto* registers = reinterpret_cast<const volatile T*>(from);
  for (U32 i = 0; i < count; ++i, to += sizeof(T)) {
    const T value = registers[i];
    std::memcpy(to, &value, sizeof value);
  }
}

template <class T>
void writeAll(volatile U8* to, const U8* from, U32 count) {
  auto* registers = reinterpret_cast<volatile T*>(to);
  for (U32 i = 0; i < count; ++i, from += sizeof(T)) {
    T value;
    std::memcpy(&value, from, sizeof value);
    registers[i] = value;
  }
}

// The place of the half that goes first: 0 or 4.
std::size_t firstHalf(Halves halves) {
  return (halves == Halves::lowFirst) == (std::endian::native == std::endian::little) ? 0 : 4;
}

void readHalves(const volatile U8* from, U8* to, U32 count, Halves halves) {
  const std::size_t first = firstHalf(halves);
  for (U32 i = 0; i < count; ++i, from += 8, to += 8) {
    readAll<U32>(from + first, to + first, 1);
    readAll<U32>(from + (first ^ 4), to + (first ^ 4), 1);
  }
}

void writeHalves(volatile U8* to, const U8* from, U32 count, Halves halves) {
  const std::size_t first = firstHalf(halves);
  for (U32 i = 0; i < count; ++i, to += 8, from += 8) {
    writeAll<U32>(to + first, from + first, 1);
    writeAll<U32>(to + (first ^ 4), from + (first ^ 4), 1);
  }
}

}  // namespace

MappedBus::MappedBus(const MappingOptions& options) : options_(options) {
  if (options_.isGuarded) SigbusGuard::install();
}

MappedBus::~MappedBus() { unmap(); }

void MappedBus::map(int descriptor, U64 offset, U64 bytes, U64 skip) {
  unmap();
  if (bytes > std::numeric_limits<std::size_t>::max() / 2) {
    throw BusError(name(), 0, ENOMEM, "cannot be mapped");
  }
  const std::size_t size = Zint::sizeOf(bytes);
  void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor,
                       static_cast<off_t>(offset));
  if (mapping == MAP_FAILED) throw BusError(name(), 0, errno, "cannot be mapped");
  if (options_.isGuarded) {
    guard_ = SigbusGuard::add(mapping, size);
    if (guard_ < 0) {
      munmap(mapping, size);
      throw BusError(name(), 0, 0, "there is no room for another guarded mapping");
    }
  }
  mapping_ = mapping;
  mappedSize_ = size;
  registers_ = static_cast<volatile U8*>(mapping) + skip;
  size_ = size - Zint::sizeOf(skip);
}

void MappedBus::unmap() {
  if (mapping_ == nullptr) return;
  if (options_.isGuarded) SigbusGuard::remove(guard_);
  munmap(mapping_, mappedSize_);
  mapping_ = nullptr;
  registers_ = nullptr;
  size_ = 0;
}

void MappedBus::check(const RegisterRun& run) const {
  if (mapping_ == nullptr) throw ChipAbsent(name(), run.address, 0, "is not mapped");
  const U64 end = run.address + static_cast<U64>(run.width) * run.count;
  const bool isWidth = std::has_single_bit(run.width) && run.width <= 8;
  if (!isWidth || run.address % run.width != 0 || end > size_) {
    Zint::throwRangeException(Zint::format(
        "%s: %u registers of %u bytes at 0x%x %s 0x%jx bytes", name().c_str(), run.count, run.width,
        run.address, end > size_ ? "are not within its" : "are not aligned within its",
        std::uintmax_t{size_}));
  }
}

void MappedBus::checkGuard(U32 address) const {
  if (options_.isGuarded && SigbusGuard::hasFaulted(guard_)) {
    throw ChipAbsent(name(), address, 0, "its memory is gone");
  }
}

void MappedBus::read(const RegisterRun& run, U8* bytes) {
  check(run);
  const volatile U8* from = registers_ + run.address;
  switch (run.width) {
    case 1:
      readAll<U8>(from, bytes, run.count);
      break;
    case 2:
      readAll<U16>(from, bytes, run.count);
      break;
    case 4:
      readAll<U32>(from, bytes, run.count);
      break;
    default:
      if constexpr (sizeof(void*) == 8) {
        readAll<U64>(from, bytes, run.count);
      } else {
        readHalves(from, bytes, run.count, options_.halves);
      }
  }
  checkGuard(run.address);
}

void MappedBus::write(const RegisterRun& run, const U8* bytes) {
  check(run);
  volatile U8* to = registers_ + run.address;
  switch (run.width) {
    case 1:
      writeAll<U8>(to, bytes, run.count);
      break;
    case 2:
      writeAll<U16>(to, bytes, run.count);
      break;
    case 4:
      writeAll<U32>(to, bytes, run.count);
      break;
    default:
      if constexpr (sizeof(void*) == 8) {
        writeAll<U64>(to, bytes, run.count);
      } else {
        writeHalves(to, bytes, run.count, options_.halves);
      }
  }
  checkGuard(run.address);
}

}  // namespace Platform
