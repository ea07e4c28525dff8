// An access method that logs every access as the library asked for it, in order.
#pragma once

#include <Hardware/ChipHam.h>
#include <Zint/Ptr.h>

#include <functional>
#include <ostream>
#include <utility>
#include <vector>

namespace Support {

struct HamAccess {
  enum Kind { read, write } kind;
  U64 address;
  U32 entrySize;
  U32 entries;
  friend bool operator==(const HamAccess&, const HamAccess&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const HamAccess& access) {
  return out << (access.kind == HamAccess::read ? "read 0x" : "write 0x") << std::hex
             << access.address << std::dec << " entrySize " << access.entrySize << " entries "
             << access.entries;
}

// The cache side is the base's. Reads leave the buffer to `onAccess`.
class RecordingHam : public Hardware::ChipHam {
 public:
  explicit RecordingHam(Zint::Name name = "ham") : ChipHam(std::move(name)) {}

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    accessed({HamAccess::read, address.value(), entrySize, entries}, buffer);
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    accessed({HamAccess::write, address.value(), entrySize, entries}, buffer);
  }

  // The accesses since the last call.
  std::vector<HamAccess> taken() { return std::exchange(log, {}); }

  std::vector<HamAccess> log;
  // Runs in each access, after it was logged; may throw.
  std::function<void(const HamAccess&, U8* buffer)> onAccess;

 private:
  void accessed(const HamAccess& access, U8* buffer) {
    log.push_back(access);
    if (onAccess) onAccess(access, buffer);
  }
};

}  // namespace Support
