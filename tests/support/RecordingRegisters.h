// An in-memory register file that logs every access in order.
#pragma once

#include <Fru/HamImpl.h>
#include <Zint/Ptr.h>

#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace Support {

struct Access {
  enum Kind { read, write } kind;
  U32 address;
  U32 value;
  friend bool operator==(const Access&, const Access&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const Access& access) {
  return out << (access.kind == Access::read ? "read 0x" : "write 0x") << std::hex << access.address
             << " 0x" << access.value << std::dec;
}

// Registers by byte address; one that was never written holds 0.
class RecordingRegisters : public Fru::HamImpl {
 public:
  void read(U32 address, U32* value) override {
    if (beforeAccess) beforeAccess(Access::read, address);
    *value = registers[address];
    log.push_back({Access::read, address, *value});
  }
  void write(U32 address, U32 value) override {
    if (beforeAccess) beforeAccess(Access::write, address);
    registers[address] = value;
    log.push_back({Access::write, address, value});
  }

  // The accesses since the last call.
  std::vector<Access> taken() { return std::exchange(log, {}); }

  std::map<U32, U32> registers;  // change them here to damage the chip unseen
  std::vector<Access> log;
  // Runs before each access; may throw, which leaves the access undone and unlogged.
  std::function<void(Access::Kind, U32 address)> beforeAccess;
};

}  // namespace Support
