// Chips, access methods and bit streams.
#include <cstring>

#include "Model.h"

namespace Model {

int System::chipCreate() {
  chips_.emplace_back();
  return static_cast<int>(chips_.size()) - 1;
}

u32 System::chipPeek(int chip, u64 address) const {
  const auto& pages = chips_.at(chip).pages;
  auto page = pages.find(address / Chip::pageSize);
  return page == pages.end() ? 0 : page->second[address % Chip::pageSize];
}

void System::chipPoke(int chip, u64 address, u32 value) {
  chips_.at(chip).pages[address / Chip::pageSize][address % Chip::pageSize] = value;
}

void System::chipFailIn(int chip, u64 n) { chips_.at(chip).failIn = n; }

void System::countAccess(int chip) {
  u64& failIn = chips_.at(chip).failIn;
  if (failIn == 0) return;
  failIn--;
  if (failIn == 0) throw AccessFailed{chip};
}

u32 System::registerRead(int chip, u32 address) {
  countAccess(chip);
  u32 value = chipPeek(chip, address);
  if (logAccesses_) accesses_.push_back({chip, false, address, value});
  return value;
}

void System::registerWrite(int chip, u32 address, u32 value) {
  countAccess(chip);
  chipPoke(chip, address, value);
  if (logAccesses_) accesses_.push_back({chip, true, address, value});
}

int System::baseMethodCreate(const std::string& name) {
  methods_.push_back({MethodKind::base, name, name, none, 0, false, false, false});
  return static_cast<int>(methods_.size()) - 1;
}

int System::genericMethodCreate(const std::string& name, int chip) {
  methods_.push_back({MethodKind::generic, name, name, chip, 0, false, false, false});
  return static_cast<int>(methods_.size()) - 1;
}

int System::sparseMethodCreate(const std::string& name, int chip, u32 stride) {
  methods_.push_back({MethodKind::sparse, name, name, chip, stride, false, false, false});
  return static_cast<int>(methods_.size()) - 1;
}

void System::methodTextIs(int method, const std::string& text) { methods_.at(method).text = text; }

void System::refuseWriteToCacheIs(int method, bool refuse) {
  methods_.at(method).refuseWriteToCache = refuse;
}

void System::refuseReadFromCacheIs(int method, bool refuse) {
  methods_.at(method).refuseReadFromCache = refuse;
}

void System::refuseReadToCacheIs(int method, bool refuse) {
  methods_.at(method).refuseReadToCache = refuse;
}

u32 System::entryStep(const AccessMethod& method, u32 entrySize) const {
  return method.kind == MethodKind::sparse ? method.stride : entrySize;
}

void System::methodRead(int handle, u64 address, u8* buffer, u32 entrySize, u32 entries) {
  const AccessMethod& method = methods_.at(handle);
  require(method.kind != MethodKind::base, "0",
          "virtual void Hardware::ChipHam::doRead(const Hardware::ChipAddress&, U8*, U32, U32)",
          34);
  if (method.kind == MethodKind::sparse) {
    guard(entrySize % 4 == 0, "entry size of a sparse method");
  } else {
    require(entrySize % 4 == 0, "( entrySize % 4 ) == 0",
            "virtual void Hardware::GenericChipHam::doRead(const Hardware::ChipAddress&, U8*, "
            "U32, U32)",
            128);
  }
  if (entrySize == 0) return;
  u32 step = entryStep(method, entrySize);
  u32 base = static_cast<u32>(address);
  for (u32 entry = 0; entry < entries; entry++) {
    for (u32 byte = 0; byte < entrySize; byte += 4) {
      u32 value = registerRead(method.chip, base + entry * step + byte);
      std::memcpy(buffer + static_cast<std::size_t>(entry) * entrySize + byte, &value, 4);
    }
  }
}

void System::methodWrite(int handle, u64 address, const u8* buffer, u32 entrySize, u32 entries) {
  const AccessMethod& method = methods_.at(handle);
  require(method.kind != MethodKind::base, "0",
          "virtual void Hardware::ChipHam::doWrite(const Hardware::ChipAddress&, U8*, U32, U32)",
          40);
  if (method.kind == MethodKind::sparse) {
    guard(entrySize % 4 == 0, "entry size of a sparse method");
  } else {
    require(entrySize % 4 == 0, "( entrySize % 4 ) == 0",
            "virtual void Hardware::GenericChipHam::doWrite(const Hardware::ChipAddress&, U8*, "
            "U32, U32)",
            140);
  }
  if (entrySize == 0) return;
  u32 step = entryStep(method, entrySize);
  u32 base = static_cast<u32>(address);
  for (u32 entry = 0; entry < entries; entry++) {
    for (u32 byte = 0; byte < entrySize; byte += 4) {
      u32 value = 0;
      std::memcpy(&value, buffer + static_cast<std::size_t>(entry) * entrySize + byte, 4);
      registerWrite(method.chip, base + entry * step + byte, value);
    }
  }
}

bool bitFromStream(const u8* stream, u32 bit) { return (stream[bit / 8] >> (bit % 8)) & 1; }

void bitToStream(u8* stream, u32 bit, bool value) {
  u8 mask = static_cast<u8>(1u << (bit % 8));
  stream[bit / 8] = static_cast<u8>(value ? stream[bit / 8] | mask : stream[bit / 8] & ~mask);
}

u8 byteFromStream(const u8* stream, u32 bit) {
  u32 value = 0;
  for (u32 i = 0; i < 8; i++) value += static_cast<u32>(bitFromStream(stream, bit + i)) << i;
  return static_cast<u8>(value);
}

void byteToStream(u8* stream, u32 bit, u8 value) {
  for (u32 i = 0; i < 8; i++) bitToStream(stream, bit + i, (value >> i) & 1);
}

void copyBits(u8* destination, u32 destinationBit, const u8* source, u32 sourceBit, u32 bits) {
  for (u32 i = 0; i < bits; i++) {
    bitToStream(destination, destinationBit + i, bitFromStream(source, sourceBit + i));
  }
}

}  // namespace Model
