// A chip of bytes: each is 0 until it is written.
#pragma once

#include <Zint/Types.h>

#include <optional>
#include <unordered_map>

namespace Support {

class ByteChip {
 public:
  U8& operator[](U64 address) { return bytes_[address]; }
  void read(U64 address, U8* buffer, U32 size) {
    for (U32 i = 0; i < size; ++i) buffer[i] = answer_ ? *answer_ : bytes_[address + i];
  }
  void write(U64 address, const U8* buffer, U32 size) {
    for (U32 i = 0; i < size && !answer_; ++i) bytes_[address + i] = buffer[i];
  }
  // The bus answers this byte for everything, and writes get lost; nothing: the chip is back.
  void answersIs(std::optional<U8> byte) { answer_ = byte; }

  friend bool operator==(const ByteChip&, const ByteChip&) = default;

 private:
  std::unordered_map<U64, U8> bytes_;
  std::optional<U8> answer_;
};

}  // namespace Support
