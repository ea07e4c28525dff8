// What a fake chip is made of: registers, and what an access does to their bits. Plain values.
//
//   {.name = "ctrl", .address = 0x0, .resetValue = 3, .fields = {{"enable", 0, 1}, {"speed", 1,
//   2}}}
//   {.name = "status", .address = 0x4, .oneToClear = 0xffff}
//   {.name = "packets", .address = 0x100, .count = 16, .clearOnRead = TestKit::allBits}
#pragma once

#include <Zint/Types.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace TestKit {

constexpr U64 allBits = ~U64{0};

struct Field {
  std::string name = {};
  U32 low = 0;   // the lowest bit
  U32 bits = 1;  // 1 to 64
};

// A register, or an array of them: "packets[0]", "packets[1]", ... In a test, "packets" means all
// of them. Masks name the bits to which a rule applies; a bit without a rule holds what is written.
struct Register {
  std::string name = {};
  U64 address = 0;     // of the first, in bytes
  U32 width = 4;       // bytes: 1, 2, 4 or 8
  U32 count = 0;       // of an array; 0: one register
  U32 stride = 0;      // bytes from one to the next; 0: the width
  U64 resetValue = 0;  // of each

  U64 readOnly = 0;   // a write changes nothing
  U64 writeOnly = 0;  // read as 0
  U64 writeOnce = 0;  // only the first write since the reset counts
  U64 clearOnRead = 0;
  U64 setOnRead = 0;
  U64 oneToClear = 0;  // a 1 that is written clears the bit, a 0 changes nothing
  U64 oneToSet = 0;
  U64 oneToToggle = 0;
  U64 zeroToClear = 0;
  U64 zeroToSet = 0;
  U64 zeroToToggle = 0;
  U64 clearOnWrite = 0;  // whatever is written
  U64 setOnWrite = 0;

  std::vector<Field> fields = {};  // for messages
};

enum class Kind : U8 { read, write };

// One access, as the chip saw it.
struct Access {
  Kind kind = Kind::read;
  U64 address = 0;
  U32 width = 4;  // bytes
  U64 value = 0;  // written, or answered
  friend bool operator==(const Access&, const Access&) = default;
};

// "0x1f"
std::string hexText(U64 value);
// "12.5ms", to the nanosecond.
std::string timeText(Zint::Seconds time);
std::ostream& operator<<(std::ostream& out, const Access& access);

}  // namespace TestKit
