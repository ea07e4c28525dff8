#include "Lockstep.h"

#include <cinttypes>
#include <cstdio>
#include <random>

namespace Rtl {

void Lockstep::compare(const char* what, U32 place, U64 first, U64 second) {
  if (first == second || !difference_.empty()) return;
  char text[200];
  std::snprintf(text, sizeof text, "operation %ju: %s %#x: %s %#jx, %s %#jx",
                std::uintmax_t{operations_}, what, place, first_.name().c_str(),
                std::uintmax_t{first}, second_.name().c_str(), std::uintmax_t{second});
  difference_ = text;
}

U32 Lockstep::read(U32 address) {
  ++operations_;
  const U32 value = first_.read(address);
  compare("read at", address, value, second_.read(address));
  return value;
}

void Lockstep::write(U32 address, U32 value) {
  ++operations_;
  first_.write(address, value);
  second_.write(address, value);
}

void Lockstep::doClocks(U32 clocks) {
  ++operations_;
  first_.doClocks(clocks);
  second_.doClocks(clocks);
}

void Lockstep::doFlip(U32 address, U64 bits) {
  ++operations_;
  first_.doFlip(address, bits);
  second_.doFlip(address, bits);
}

State Lockstep::state() {
  const State first = first_.state(), second = second_.state();
  for (U32 i = 0; i < tableWords; ++i) compare("word", i, first.table[i], second.table[i]);
  for (U32 i = 0; i < registerCount; ++i) {
    compare("register", i, first.registers[i], second.registers[i]);
  }
  for (U32 i = 0; i < first.totals.size(); ++i) {
    compare("total", i, first.totals[i], second.totals[i]);
  }
  return first;
}

std::string runLockstep(Lockstep& chip, U64 operations, U32 seed) {
  std::mt19937 random(seed);
  const auto below = [&](U32 bound) { return static_cast<U32>(random() % bound); };
  for (U64 i = 1; i <= operations && chip.difference().empty(); ++i) {
    // A small part of the table, so that faults meet; sometimes all of it, and addresses of
    // nothing.
    const U32 wide = below(20);
    const U32 address = wide == 0   ? 4 * below(0x4000)
                        : wide == 1 ? tableAddress + 4 * below(tableWords)
                        : wide < 10 ? tableAddress + 4 * below(16)
                                    : 4 * below(registerCount);
    switch (const U32 kind = below(16)) {
      case 0:
        chip.doClocks(below(50));
        break;
      case 1:
      case 2:
      case 3:
        // One bit, two or three: those that are drawn twice make fewer.
        {
          U64 bits = 0;
          for (U32 flips = 0; flips < kind; ++flips) bits ^= U64{1} << below(39);
          chip.doFlip(address, bits);
        }
        break;
      case 4:
      case 5:
      case 6:
      case 7:
        chip.write(address, below(~U32{0}) | (address == 4 * control ? 1 : 0));
        break;
      default:
        chip.read(address);
    }
    if (i % 1000 == 0 || i == operations) chip.state();
  }
  return chip.difference();
}

}  // namespace Rtl
