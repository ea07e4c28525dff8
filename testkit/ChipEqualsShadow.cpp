#include <testkit/ChipEqualsShadow.h>

#include <testkit/Failure.h>

#include <algorithm>
#include <cstring>

namespace TestKit {
namespace {

constexpr U32 differencesTold = 10;

// The bytes as a number, as far as it holds them: what registers of up to 64 bits are.
U64 numberOfBytes(const U8* bytes, U32 size) {
  U64 number = 0;
  std::memcpy(&number, bytes, std::min(size, U32{8}));
  return number;
}

}  // namespace

void expectChipEqualsShadow(const FakeChip::Ptr& chip, const Hardware::ChipMemory::Ptr& region,
                            const EntryEquals& equals, const char* file, int line) {
  if (!region->shadowStoreNeeded() || !region->shadow()) {
    Zint::throwRangeException(region->name() + " has no shadow to compare with");
  }
  const U32 size = region->entrySize();
  std::vector<U8> held(size);
  std::string text;
  U32 differing = 0;
  for (U32 entry = 0; entry < region->entries(); ++entry) {
    if (!region->entryInitialized(entry)) continue;
    const U64 address = region->entryAddress(entry).chipMemoryOffset();
    const U8* known = region->shadow()->data() + std::size_t{size} * entry;
    chip->bytesAt(address, held.data(), size);
    if (equals(entry, known, held.data())) continue;
    if (++differing > differencesTold) continue;
    // Told word by word where the entry is wider than its registers.
    for (U32 at = 0; at < size;) {
      const U32 width = std::min(chip->widthAt(address + at), size - at);
      if (std::memcmp(known + at, held.data() + at, width) != 0) {
        text += "  " + region->name().bytes() + "[" + std::to_string(entry) + "]: expected " +
                chip->valueText(address + at, numberOfBytes(known + at, width)) + ", actual " +
                hexText(numberOfBytes(held.data() + at, width)) + "\n";
      }
      at += width;
    }
  }
  if (differing == 0) return;
  text = "chip \"" + chip->name() + "\" does not equal the shadow, seed " +
         std::to_string(chip->seed()) + ": " + std::to_string(differing) + " of " +
         std::to_string(region->entries()) + " entries differ\n" + text + "  the last accesses:\n" +
         chip->lastAccesses();
  text.pop_back();
  report({std::move(text), file, line, false});
}

void expectChipEqualsShadow(const FakeChip::Ptr& chip, const Hardware::ChipMemory::Ptr& region,
                            const char* file, int line) {
  const auto equals = [size = region->entrySize()](U32, const U8* shadow, const U8* held) {
    return std::memcmp(shadow, held, size) == 0;
  };
  expectChipEqualsShadow(chip, region, equals, file, line);
}

}  // namespace TestKit
