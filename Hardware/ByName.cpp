#include <Hardware/ByName.h>

#include <Zint/Accessors.h>
#include <Zint/Sizes.h>

namespace Hardware::ByName {
namespace {

// The most bytes that an operation by name may read.
constexpr U64 longestText = 1u << 24;

[[noreturn]] void refuse(const Zint::String8& why) { throw Zint::ArgumentException(why); }

void requireRegion(const ChipMemory::Ptr& cm) {
  if (cm == nullptr) refuse("a region is needed");
}

// Never null: operations may hand the address of an empty buffer to memcpy, which requires one.
U8* dataOf(Bytes& bytes) {
  static U8 nothing;
  return bytes.bytes.empty() ? &nothing : bytes.bytes.data();
}

// The bytes, which must be `size`.
U8* dataOfSize(Bytes& bytes, U64 size) {
  if (bytes.bytes.size() != size) {
    refuse(Zint::format("%zu bytes given where %ju are needed", bytes.bytes.size(), size));
  }
  return dataOf(bytes);
}

// The bytes of a stream, which must hold the bits.
U8* streamOf(Bytes& bytes, U64 bit, U64 bits) {
  if (bit + bits > bytes.bytes.size() * U64{8}) refuse("the bits reach beyond the stream");
  return dataOf(bytes);
}

Bytes makeZeros(U64 size) {
  if (size > longestText) {
    refuse(Zint::format("%ju bytes are more than a text should hold", size));
  }
  return {std::vector<U8>(Zint::sizeOf(size))};
}

// "true 001f80"
Result resultOf(bool isDone, const Bytes& bytes) {
  return {isDone ? Zint::valueToStrep(true) + " " + Zint::valueToStrep(bytes)
                 : Zint::valueToStrep(false)};
}

template <auto copy, class Ham>
Result copyThrough(Ham& ham, Bytes& source) {
  Bytes destination = makeZeros(source.bytes.size());
  const bool isDone = (ham.*copy)(dataOf(destination), dataOf(source), Zint::countOf(source.bytes));
  return resultOf(isDone, destination);
}

}  // namespace

// --- Access methods ---

Result doRead(ChipHam& ham, ChipAddress address, U32 entrySize, U32 entries) {
  Bytes bytes = makeZeros(U64{entrySize} * entries);
  ham.doRead(address, dataOf(bytes), entrySize, entries);
  return {Zint::valueToStrep(bytes)};
}

void doWrite(ChipHam& ham, ChipAddress address, Bytes buffer, U32 entrySize, U32 entries) {
  ham.doWrite(address, dataOfSize(buffer, U64{entrySize} * entries), entrySize, entries);
}

bool doCompare(const ChipHam& ham, Bytes a, Bytes b) {
  return ham.doCompare(dataOf(a), dataOfSize(b, a.bytes.size()), Zint::countOf(b.bytes));
}

Result doReadToCache(const ChipHam& ham, Bytes source) {
  return copyThrough<&ChipHam::doReadToCache>(ham, source);
}

Result doWriteToCache(ChipHam& ham, Bytes source) {
  return copyThrough<&ChipHam::doWriteToCache>(ham, source);
}

Result doReadFromCache(const ChipHam& ham, Bytes source) {
  return copyThrough<&ChipHam::doReadFromCache>(ham, source);
}

// --- Bit streams ---

U8 byteFromBitStream(const ChipHam& ham, Bytes stream, U32 bit) {
  return ham.byteFromBitStream(streamOf(stream, bit, 8), bit);
}

Bytes byteToBitStream(const ChipHam& ham, Bytes stream, U32 bit, U8 value) {
  ham.byteToBitStream(streamOf(stream, bit, 8), bit, value);
  return stream;
}

bool bitFromBitStream(const ChipHam& ham, Bytes stream, U32 bit) {
  return ham.bitFromBitStream(streamOf(stream, bit, 1), bit);
}

Bytes bitToBitStream(const ChipHam& ham, Bytes stream, U32 bit, bool value) {
  ham.bitToBitStream(streamOf(stream, bit, 1), bit, value);
  return stream;
}

Bytes copyBits(const ChipHam& ham, Bytes destination, U32 destinationBit, Bytes source,
               U32 sourceBit, U32 bits) {
  ham.copyBits(streamOf(destination, destinationBit, bits), destinationBit,
               streamOf(source, sourceBit, bits), sourceBit, bits);
  return destination;
}

// --- Regions ---

void doClearRange(ChipMemory& cm, U32 startIndex, U32 endIndex) {
  cm.doClearRange(startIndex, endIndex, false);
}

// --- The shadow ---

bool shadowWriteAndCompareWithCache(HardwareShadow& shadow, ChipMemory::Ptr cm, U32 entry,
                                    Bytes data, U32 size) {
  return shadow.shadowWriteAndCompareWithCache(cm, entry, dataOfSize(data, size), size);
}

void shadowWriteHack(HardwareShadow& shadow, ChipAddress address, Bytes data, U32 size) {
  shadow.shadowWriteHack(address, dataOfSize(data, size), size);
}

Result readFromCacheHack(HardwareShadow& shadow, ChipAddress address, Bytes data, U32 size) {
  if (data.bytes.empty()) data = makeZeros(size);
  const bool isServed = shadow.readFromCacheHack(address, dataOfSize(data, size), size);
  return resultOf(isServed, data);
}

void handleChipMemory(HardwareShadow& shadow, ChipAddress address) {
  shadow.handleChipMemory(address);
}

void doFixBadRegister(HardwareShadow& shadow, ChipMemory::Ptr cm, U32 entry, Bytes data) {
  requireRegion(cm);
  shadow.doFixBadRegister(cm, entry, dataOfSize(data, cm->entrySize()));
}

void chipMemoryAuditEnabledIs(HardwareShadow& shadow, ChipMemory::Ptr cm, bool auditEnabled) {
  requireRegion(cm);
  shadow.chipMemoryAuditEnabledIs(cm, auditEnabled);
}

// --- Insertion ---

ChipMemory::Ptr insertIntoRequest(ChipReadRequest& request, ChipMemory::Ptr cm) {
  request.chipMemoryIs(cm);
  return cm;
}

ChipMemory::Ptr insertIntoShadow(HardwareShadow& shadow, ChipMemory::Ptr cm) {
  shadow.chipMemoryIs(cm);
  return cm;
}

ChipMemory::Ptr appendToReader(ChipReader& reader, ChipMemory::Ptr cm) {
  requireRegion(cm);
  reader.chipMemoryEnq(cm);
  return cm;
}

ChipMemory::Ptr findOrMake(ChipMemoryBogon& directory, Zint::String8 name, ChipAddress address,
                           U32 entrySize, U32 stride, Zint::Ptr<ChipHam> chipHam,
                           std::optional<U32> entries) {
  const ChipMemory::Ptr existing = directory.chipMemory(name);
  const U32 currentEntries = existing == nullptr ? 0 : existing->entries();
  return directory.chipMemoryIs(name, address, entries.value_or(currentEntries), entrySize, stride,
                                chipHam);
}

}  // namespace Hardware::ByName
