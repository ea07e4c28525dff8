// Adapters for operations by name. Each has the name of the operation that it calls, and takes
// and returns what has a text form: bytes in place of pointers. An argument that does not fit
// raises an ArgumentException before anything has changed: the number of bytes must be what the
// operation accesses.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Bytes.h>
#include <Zint/Type.h>
#include <optional>

namespace Hardware::ByName {

using Zint::Bytes;
using Zint::Result;

// --- Access methods. The result of a copy is "true" and the copied bytes, or "false" ---
Result doRead(ChipHam& ham, ChipAddress address, U32 entrySize, U32 entries);
void doWrite(ChipHam& ham, ChipAddress address, Bytes buffer, U32 entrySize, U32 entries);
bool doCompare(const ChipHam& ham, Bytes a, Bytes b);
Result doReadToCache(const ChipHam& ham, Bytes source);
Result doWriteToCache(ChipHam& ham, Bytes source);
Result doReadFromCache(const ChipHam& ham, Bytes source);

// --- Bit streams. What writes to a stream returns the stream ---
U8 byteFromBitStream(const ChipHam& ham, Bytes stream, U32 bit);
Bytes byteToBitStream(const ChipHam& ham, Bytes stream, U32 bit, U8 value);
bool bitFromBitStream(const ChipHam& ham, Bytes stream, U32 bit);
Bytes bitToBitStream(const ChipHam& ham, Bytes stream, U32 bit, bool value);
Bytes copyBits(const ChipHam& ham, Bytes destination, U32 destinationBit, Bytes source,
               U32 sourceBit, U32 bits);

// --- Regions ---
// Without write-through to the chip.
void doClearRange(ChipMemory& cm, U32 startIndex, U32 endIndex);

// --- The shadow ---
bool shadowWriteAndCompareWithCache(HardwareShadow& shadow, ChipMemory::Ptr cm, U32 entry,
                                    Bytes data, U32 size);
void shadowWriteHack(HardwareShadow& shadow, ChipAddress address, Bytes data, U32 size);
// No bytes given: `size` zeros. The result is "true" and the bytes read, or "false".
Result readFromCacheHack(HardwareShadow& shadow, ChipAddress address, Bytes data, U32 size);
void handleChipMemory(HardwareShadow& shadow, ChipAddress address);
void doFixBadRegister(HardwareShadow& shadow, ChipMemory::Ptr cm, U32 entry, Bytes data);
void chipMemoryAuditEnabledIs(HardwareShadow& shadow, ChipMemory::Ptr cm, bool auditEnabled);

// --- Insertion into a collection of regions. The result is the region ---
ChipMemory::Ptr insertIntoRequest(ChipReadRequest& request, ChipMemory::Ptr cm);
ChipMemory::Ptr insertIntoShadow(HardwareShadow& shadow, ChipMemory::Ptr cm);
ChipMemory::Ptr appendToReader(ChipReader& reader, ChipMemory::Ptr cm);
// The number of entries is no constructor parameter: without it, an existing region keeps its own
// and a new one has none.
ChipMemory::Ptr findOrMake(ChipMemoryBogon& directory, Zint::String8 name, ChipAddress address,
                           U32 entrySize, U32 stride, Zint::Ptr<ChipHam> chipHam,
                           std::optional<U32> entries);

}  // namespace Hardware::ByName
