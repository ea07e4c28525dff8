// The command `show`: buffers as rows. A region's buffers are shown by its entries.
#include <Hardware/ChipMemory.h>

#include <algorithm>

#include "tools/console/Commands.h"
#include "tools/console/Library.h"
#include "tools/console/Session.h"
#include "tools/console/Values.h"

namespace Console {
namespace {

constexpr U32 bytesPerRow = 16;
constexpr U32 bitsPerRow = 64;
constexpr U32 rowsByDefault = 16;

// Units (entries, or bytes where there are none) from `first` to before `end`.
struct Range {
  U64 first = 0;
  U64 end = 0;
  bool isGiven = false;
};

U64 unit(const std::string& word) {
  try {
    return Zint::strepToValue<U32>(word);
  } catch (const Zint::RangeException& cause) {
    throw Error(std::string("show: ") + cause.what());
  }
}

// "FIRST", "FIRST..LAST", "FIRST+COUNT"; without a word everything.
Range rangeOf(const Words& arguments, U64 units) {
  if (arguments.size() < 2) return {0, units, false};
  const std::string& word = arguments[1];
  Range range{0, 0, true};
  if (const std::size_t dots = word.find(".."); dots != std::string::npos) {
    range.first = unit(word.substr(0, dots));
    range.end = unit(word.substr(dots + 2)) + 1;
  } else if (const std::size_t plus = word.find('+'); plus != std::string::npos) {
    range.first = unit(word.substr(0, plus));
    range.end = range.first + unit(word.substr(plus + 1));
  } else {
    range.first = unit(word);
    range.end = range.first + 1;
  }
  if (range.first >= range.end) throw Error("show: the range " + word + " is empty");
  if (range.end > units) {
    throw Error(Zint::format("show: %s ends at 0x%llx, but there are only 0x%llx", word.c_str(),
                             static_cast<unsigned long long>(range.end - 1),
                             static_cast<unsigned long long>(units))
                    .bytes());
  }
  return range;
}

std::string hex(U64 value) {
  return Zint::format("0x%llx", static_cast<unsigned long long>(value)).bytes();
}

void printMore(std::ostream& out, U64 units, const char* name) {
  if (units != 0) out << "... " << units << " more " << name << "\n";
}

// Rows of one entry each, or of several where an entry is longer than a row: no row holds parts of
// two entries.
void printEntries(std::ostream& out, const Hal::BufBase& buffer, U32 entrySize, Range range,
                  const char* name) {
  const U32 rowsPerEntry = (entrySize + bytesPerRow - 1) / bytesPerRow;
  const U64 end = range.isGiven
                      ? range.end
                      : std::min<U64>(range.end, std::max(1u, rowsByDefault / rowsPerEntry));
  const auto most = static_cast<int>(std::max<std::size_t>(5, hex(end).size()));
  out << Zint::format("%*s    offset  bytes\n", most, name);
  for (U64 entry = range.first; entry < end; ++entry) {
    const U64 begin = entry * entrySize;
    for (U32 at = 0; at < entrySize; at += bytesPerRow) {
      if (!range.isGiven && at == 4 * rowsByDefault * bytesPerRow) {
        printMore(out, entrySize - at, "bytes of this entry");
        break;
      }
      out << Zint::format("%*s  %8s ", most, at == 0 ? hex(entry).c_str() : "",
                          hex(begin + at).c_str());
      for (U32 i = at; i < std::min(entrySize, at + bytesPerRow); ++i) {
        out << Zint::format("%s%02x", i % 4 == 0 && i != at ? "  " : " ", buffer.data()[begin + i]);
      }
      out << "\n";
    }
  }
  if (!range.isGiven) printMore(out, range.end - end, rowsPerEntry == 0 ? "bytes" : "entries");
}

// A bitmap: a digit for each entry of the range, eight of them are a byte.
void printBits(std::ostream& out, const Hal::BufBase& bitmap, Range range) {
  const U64 end =
      range.isGiven ? range.end : std::min<U64>(range.end, U64{rowsByDefault} * bitsPerRow);
  const auto most = static_cast<int>(std::max<std::size_t>(5, hex(end).size()));
  out << Zint::format("%*s    offset  bits\n", most, "entry");
  for (U64 row = range.first / bitsPerRow * bitsPerRow; row < end; row += bitsPerRow) {
    std::string digits;
    for (U64 entry = row; entry < std::min(end, row + bitsPerRow); ++entry) {
      if (entry % 8 == 0) digits += ' ';
      const bool isSet = (bitmap.data()[entry / 8] >> (entry % 8) & 1) != 0;
      digits += entry < range.first ? ' ' : isSet ? '1' : '.';
    }
    out << Zint::format("%*s  %8s %s\n", most, hex(row).c_str(), hex(row / 8).c_str(),
                        digits.c_str());
  }
  if (!range.isGiven) printMore(out, range.end - end, "entries");
}

}  // namespace

void doShow(Session& session, const Words& arguments) {
  const Place place = session.names().at(arguments[0]);
  const auto* buffer = dynamic_cast<const Hal::BufBase*>(place.result.object.ptr());
  if (place.kind != Place::object || buffer == nullptr) {
    const bool isRegion = place.kind == Place::object &&
                          dynamic_cast<const Hardware::ChipMemory*>(place.result.object.ptr());
    throw Error(place.name() + " is no buffer" +
                (isRegion ? ": show its hardware, shadow, initialized or dirty" : ""));
  }
  std::ostream& out = session.out();
  const auto* region = dynamic_cast<const Hardware::ChipMemory*>(place.owner.object.ptr());
  const std::string name = place.member == nullptr ? "" : place.member->name;
  if (region == nullptr || region->entrySize() == 0) {
    const Range range = rangeOf(arguments, buffer->size());
    out << buffer->size() << " bytes\n";
    // By default as many rows as of entries.
    Range rowsOf = range;
    if (!range.isGiven) rowsOf.end = std::min<U64>(range.end, rowsByDefault * bytesPerRow);
    out << " offset  bytes\n";
    for (U64 at = rowsOf.first; at < rowsOf.end; at += bytesPerRow) {
      out << Zint::format("%7s ", hex(at).c_str());
      for (U64 i = at; i < std::min(rowsOf.end, at + bytesPerRow); ++i) {
        out << Zint::format(" %02x", buffer->data()[i]);
      }
      out << "\n";
    }
    return printMore(out, range.end - (range.isGiven ? range.end : rowsOf.end), "bytes");
  }
  if (name == "dirty" || name == "initialized") {
    const U64 entries = std::min<U64>(region->entries(), U64{buffer->size()} * 8);
    const Range range = rangeOf(arguments, entries);
    out << entries << " entries, " << buffer->size() << " bytes\n";
    return printBits(out, *buffer, range);
  }
  const U64 entries = std::min<U64>(region->entries(), buffer->size() / region->entrySize());
  const Range range = rangeOf(arguments, entries);
  out << entries << " entries of " << region->entrySize() << " bytes, " << buffer->size()
      << " bytes\n";
  printEntries(out, *buffer, region->entrySize(), range, "entry");
}

}  // namespace Console
