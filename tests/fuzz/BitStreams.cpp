// The bit streams of the access method, the bitmaps and the runs of entries, each beside a copy
// that is kept bit by bit. Every buffer is a block of its own: an access beyond it is seen.
#include <Hardware/ChipHam.h>
#include <Hardware/Entries.h>

#include <memory>

#include "fuzz/Fuzz.h"

namespace {

constexpr U32 maxBytes = 48;

// A stream and what it should hold.
class Stream {
 public:
  Stream(Fuzz::Input& input, U32 bytes)
      : size_(bytes), bytes_(std::make_unique<U8[]>(bytes)), bits_(std::size_t{8} * bytes) {
    const U8 fill = input.byte();
    for (U32 i = 0; i < bytes; ++i) {
      bytes_[i] = (fill & 3) == 0 ? U8{0} : (fill & 3) == 1 ? U8{255} : input.byte();
    }
    for (U32 bit = 0; bit < bits(); ++bit) bits_[bit] = (bytes_[bit / 8] >> bit % 8) & 1;
  }

  U8* data() const { return bytes_.get(); }
  U32 size() const { return size_; }
  U32 bits() const { return size_ * 8; }
  bool bit(U32 at) const { return bits_[at] != 0; }
  void bitIs(U32 at, bool value) { bits_[at] = value; }
  U32 byteAt(U32 at) const {
    U32 value = 0;
    for (U32 i = 0; i < 8; ++i) value |= U32{bits_[at + i]} << i;
    return value;
  }
  bool allSet(U32 from, U32 count) const {
    for (U32 i = 0; i < count; ++i) {
      if (bits_[from + i] == 0) return false;
    }
    return true;
  }
  void check(const Fuzz::Story& story) const {
    for (U32 i = 0; i < size_; ++i) {
      if (byteAt(8 * i) == bytes_[i]) continue;
      Fuzz::failed(story.lines() + "byte " + std::to_string(i) + " differs");
    }
  }

 private:
  const U32 size_;
  const std::unique_ptr<U8[]> bytes_;
  std::vector<U8> bits_;  // one each
};

U32 naiveFirstDifference(const U8* a, const U8* b, U32 bytes) {
  U32 at = 0;
  while (at < bytes && a[at] == b[at]) ++at;
  return at;
}

// Any position in [0, end].
U32 upTo(Fuzz::Input& input, U32 end) {
  const U32 high = input.byte();
  return (high << 8 | input.byte()) % (end + 1);
}

void entriesCompared(Fuzz::Input& input, const Stream& a, const Stream& b, Fuzz::Story& story) {
  const U32 entrySize = 1 + input.below(13);
  const U32 most = std::min({a.size() / entrySize, b.size() / entrySize, 8u});
  const U32 count = most == 0 ? 0 : 1 + input.below(most);
  const U32 fromA = upTo(input, a.size() - entrySize * count);
  const U32 fromB = upTo(input, b.size() - entrySize * count);
  story.add("equalEntries from ", fromA, " and ", fromB, " size ", entrySize, " count ", count);
  U32 expected = 0;
  for (U32 i = 0; i < count; ++i) {
    const U32 at = i * entrySize;
    const U32 same = naiveFirstDifference(a.data() + fromA + at, b.data() + fromB + at, entrySize);
    expected |= U32{same == entrySize} << i;
  }
  Fuzz::same("equal entries", expected,
             Hardware::equalEntries(a.data() + fromA, b.data() + fromB, entrySize, count), story);
}

void step(Fuzz::Input& input, const Hardware::ChipHam& ham, Stream& a, Stream& b,
          Fuzz::Story& story) {
  const U32 operation = input.below(11);
  const U32 bit = a.bits() == 0 ? 0 : upTo(input, a.bits() - 1);
  const U32 count = upTo(input, a.bits() - bit);
  story.add("operation ", operation, " bit ", bit, " count ", count);
  if (a.bits() == 0 && operation < 7) return;
  switch (operation) {
    case 0:
      Fuzz::same("bit", a.bit(bit), ham.bitFromBitStream(a.data(), bit), story);
      Fuzz::same("bitmap bit", a.bit(bit), Hardware::bitmapBit(a.data(), bit), story);
      break;
    case 1: {
      const bool value = input.coin();
      ham.bitToBitStream(a.data(), bit, value);
      a.bitIs(bit, value);
      break;
    }
    case 2:
      if (bit + 8 > a.bits()) return;
      Fuzz::same("byte", a.byteAt(bit), U32{ham.byteFromBitStream(a.data(), bit)}, story);
      break;
    case 3: {
      if (bit + 8 > a.bits()) return;
      const U8 value = input.byte();
      ham.byteToBitStream(a.data(), bit, value);
      for (U32 i = 0; i < 8; ++i) a.bitIs(bit + i, ((value >> i) & 1) != 0);
      break;
    }
    case 4: {
      const U32 from = upTo(input, b.bits());
      const U32 copied = std::min(count, b.bits() - from);
      ham.copyBits(a.data(), bit, b.data(), from, copied);
      for (U32 i = 0; i < copied; ++i) a.bitIs(bit + i, b.bit(from + i));
      break;
    }
    case 5:
      Hardware::bitmapBitIs(a.data(), bit);
      a.bitIs(bit, true);
      break;
    case 6:
      Hardware::bitmapBitDel(a.data(), bit);
      a.bitIs(bit, false);
      break;
    case 7:
      Fuzz::same("range is set", a.allSet(bit, count),
                 Hardware::bitmapRangeIsSet(a.data(), bit, count), story);
      break;
    case 8:
      Hardware::bitmapRangeIs(a.data(), bit, count);
      for (U32 i = 0; i < count; ++i) a.bitIs(bit + i, true);
      break;
    case 9: {
      const U32 bytes = upTo(input, std::min(a.size(), b.size()));
      Fuzz::same("first difference", naiveFirstDifference(a.data(), b.data(), bytes),
                 Hardware::firstDifference(a.data(), b.data(), bytes), story);
      break;
    }
    default:
      entriesCompared(input, a, b, story);
  }
}

void run(const U8* bytes, std::size_t size) {
  static const Hardware::ChipHam::Ptr ham = Zint::makePtr<Hardware::ChipHam>("ham");
  Fuzz::Input input(bytes, size);
  const U32 sizeOfA = input.below(maxBytes + 1);
  const U32 sizeOfB = input.below(maxBytes + 1);
  Stream a(input, sizeOfA);
  Stream b(input, sizeOfB);
  Fuzz::Story story;
  story.add(a.size(), " and ", b.size(), " bytes");
  for (bool swapped = false; !input.empty(); swapped = input.coin()) {
    if (swapped) story.add("swapped");
    step(input, *ham, swapped ? b : a, swapped ? a : b, story);
    a.check(story);
    b.check(story);
  }
}

}  // namespace

FUZZ_TARGET("bit-streams", run)
