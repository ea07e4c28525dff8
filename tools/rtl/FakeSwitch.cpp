#include "FakeSwitch.h"

#include <bit>

namespace Rtl {
namespace {

// The bits of data that each check bit covers.
constexpr std::array<U32, 6> rows = {0x56aaad5b, 0x9b33366d, 0xe3c3c78e,
                                     0x03fc07f0, 0x03fff800, 0xfc000000};
constexpr int wordBits = 39;

U64 parityOf(U64 bits) { return static_cast<U64>(std::popcount(bits) & 1); }

bool isRegister(U32 address) { return address < 4 * registerCount; }
bool isTable(U32 address) { return address / 4096 == 1; }
U32 entryOf(U32 address) { return address % 4096 / 4; }
bool isCounter(U32 number) { return number >= corrected && number <= injected; }

}  // namespace

U64 encode(U32 data) {
  U64 word = data;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    word |= parityOf(data & rows[row]) << (32 + row);
  }
  return word | parityOf(word) << (wordBits - 1);
}

Decoded decode(U64 word) {
  const auto isValid = [](U64 tried) { return tried == encode(static_cast<U32>(tried)); };
  if (isValid(word)) return {word, false, false};
  for (int bit = 0; bit < wordBits; ++bit) {
    const U64 tried = word ^ U64 { 1 } << bit;
    if (isValid(tried)) return {tried, true, false};
  }
  return {word, false, true};
}

FakeSwitch::FakeSwitch() {
  state_.registers[identity] = identityValue;
  state_.registers[strap] = strapValue;
}

void FakeSwitch::count(U32 counter, U32 events) {
  state_.registers[counter] += events;
  state_.totals[counter - corrected] += events;
}

void FakeSwitch::clock() {
  ++state_.registers[clockCount];
  if ((state_.registers[control] & 1) == 0) return;
  noise_ = (noise_ << 1 | parityOf(noise_ & 0xb400)) & 0xffff;
  for (U32 port = 0; port < 5; ++port) {
    if ((noise_ >> 3 * port) % 8 == 0) count(packets + port, 1);
  }
  if (noise_ >> 8 != 0x5a) return;
  state_.registers[ports + noise_ % 8] ^= linkBit;
  state_.registers[interrupt] |= latchLink;
}

U32 FakeSwitch::readTable(U32 entry) {
  const Decoded found = decode(state_.table[entry]);
  state_.table[entry] = found.word;
  if (found.isCorrected) {
    count(corrected, 1);
    state_.registers[interrupt] |= latchCorrected;
  }
  if (found.isUncorrectable) {
    count(uncorrectable, 1);
    state_.registers[interrupt] |= latchUncorrectable;
    state_.registers[errorEntry] = entry;
  }
  return static_cast<U32>(found.word);
}

U32 FakeSwitch::read(U32 address) {
  clock();
  if (isTable(address)) return readTable(entryOf(address));
  const U32 number = address / 4;
  if (!isRegister(address) || number == command) return 0;
  const U32 value = state_.registers[number];
  if (isCounter(number)) state_.registers[number] = 0;
  return value;
}

void FakeSwitch::write(U32 address, U32 value) {
  clock();
  if (isTable(address)) state_.table[entryOf(address)] = encode(value);
  if (isRegister(address)) writeRegister(address / 4, value);
}

void FakeSwitch::writeRegister(U32 number, U32 value) {
  U32& held = state_.registers[number];
  if (number == command) {
    count(injected, value & 0xff);
  } else if (number == interrupt) {
    held = (value & ~latches) | (held & latches & ~value);
  } else if (number >= ports) {
    held = (held & linkBit) | (value & ~linkBit);
  } else if (number >= configuration || number == scratch || number == control) {
    held = value;
  }
}

void FakeSwitch::doClocks(U32 clocks) {
  while (clocks-- > 0) clock();
}

void FakeSwitch::doFlip(U32 address, U64 bits) {
  clock();
  if (isTable(address)) state_.table[entryOf(address)] ^= bits & ((U64{1} << wordBits) - 1);
  if (isRegister(address) && address / 4 != identity) {
    state_.registers[address / 4] ^= static_cast<U32>(bits);
  }
}

}  // namespace Rtl
