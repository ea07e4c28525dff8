#include <Driver/ChipAccess.h>
#include <Driver/Driver.h>
#include <Zint/Accessors.h>
#include <Zint/Bytes.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::constructorParameter;
using Zint::operation;
using Zint::readOnly;

constexpr U64 longestAccessText = 1u << 24;

Zint::Bytes readByName(const ChipAccess& access, U32 entry, U32 entries) {
  const U64 size = U64{access.chipMemory()->entrySize()} * entries;
  if (size > longestAccessText) {
    throw Zint::ArgumentException(
        Zint::format("%ju bytes are more than a text should hold", std::uintmax_t{size}));
  }
  Zint::Bytes bytes{std::vector<U8>(static_cast<std::size_t>(size))};
  access.readBytes(entry, bytes.bytes);
  return bytes;
}

void writeByName(ChipAccess& access, U32 entry, Zint::Bytes data) {
  access.writeBytes(entry, data.bytes);
}

using C = ChipAccess;
constexpr Zint::Member chipAccessMembers[] = {
    constructorParameter<&C::shadow>("shadow").says("the shadow that it goes through"),
    constructorParameter<&C::chipMemory>("chipMemory").says("its region"),
    attribute<&C::holdsWhileRestoring, &C::holdsWhileRestoringIs>("holdsWhileRestoring")
        .says("whether writes wait while the chip is being restored")
        .needs(Zint::Level::operate),
    readOnly<&C::readMisses>("readMisses").says("reads that went to the chip"),
    readOnly<&C::writeMisses>("writeMisses").says("writes that went to the chip"),
    readOnly<&C::writesHeld>("writesHeld").says("writes that wait for the chip"),
    operation<&readByName>("read", "entry", "entries")
        .says("reads entries")
        .needs(Zint::Level::operate),
    operation<&writeByName>("write", "entry", "data").says("writes entries"),
};
ZINT_CHECK_IDS(ChipAccess, chipAccessMembers, Zint::firstAttributeId, shadow, chipMemory,
               holdsWhileRestoring, readMisses, writeMisses, writesHeld, read, write);

}  // namespace

constexpr Zint::Type chipAccessType =
    describe<ChipAccess>(countedObject, nullptr, chipAccessMembers);

}  // namespace Driver
