// Reads a register map: CMSIS-SVD (up to 1.3) or IP-XACT 2014, told apart by the root element.
//
// Of CMSIS-SVD: peripherals, clusters, registers and fields with derivedFrom, arrays (dim, also
// nested), inherited size, access and reset values, readAction, modifiedWriteValues, enumerated
// values, alternate registers and peripherals, reserved address blocks. A derived element that has
// <registers> or <fields> of its own has these alone.
// Of IP-XACT: memory maps, address blocks, register files, registers and fields with dim, access,
// readAction, modifiedWriteValue, volatile, resets. Numbers are literals: an expression with
// parameters is an error.
//
// A file is not trusted: it is refused beyond the limits below, and memory is bounded by them. All
// that is refused is an Error with file and line.
#pragma once

#include <maps/Map.h>

#include <string_view>

namespace Maps {

namespace Limits {
constexpr std::size_t fileBytes = 64U << 20;
constexpr U32 depth = 64;               // of elements within each other
constexpr U32 registers = 250'000;      // elements of arrays count
constexpr U32 steps = 4'000'000;        // elements looked at, those of arrays and derived ones too
constexpr U32 derivations = 32;         // one after the other
constexpr U32 bits = 1U << 20;          // of a register
constexpr std::size_t nameBytes = 200;  // of a register within its block
constexpr std::size_t textBytes = 128U << 20;  // of all names and descriptions
constexpr std::size_t notes = 1'000;           // further ones are not kept
}  // namespace Limits

UMBRA_API Map readMap(const std::string& path);
// The same of a text in memory; `name` stands for the file in messages.
UMBRA_API Map parseMap(std::string_view text, const std::string& name);

}  // namespace Maps
