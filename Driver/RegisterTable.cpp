// Tables of constants: their regions, policies and names.
#include <Driver/RegisterTable.h>

#include <Zint/Sizes.h>
#include <charconv>
#include <unordered_map>

namespace Driver {
namespace {

using Hardware::ChipMemory;

constexpr U32 mostFieldsTold = 8;

// As people read registers: small numbers in decimal, others in hexadecimal.
std::string registerNumber(U64 value) {
  if (value < 10) return std::to_string(value);
  char text[16];
  return "0x" + std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}

// The lowest `size` bytes of a value, the lowest one first.
std::vector<U8> tableBytes(U64 value, U32 size) {
  std::vector<U8> bytes(size);
  for (U32 i = 0; i < size && i < 8; ++i) bytes[i] = static_cast<U8>(value >> (8 * i));
  return bytes;
}

U64 allBits(U32 entrySize) { return entrySize >= 8 ? ~U64{0} : (U64{1} << (8 * entrySize)) - 1; }

bool isOfOneKind(const TableRegion& region) {
  return region.entries != 0 && region.registers.size() == 1;
}

U32 entriesOf(const TableRegion& region) {
  return isOfOneKind(region) ? region.entries : Zint::countOf(region.registers);
}

class TableNames : public RegisterNames {
 public:
  explicit TableNames(std::span<const TableRegion> regions) {
    for (const TableRegion& region : regions) {
      if (!regions_.emplace(region.name, &region).second) {
        Zint::throwRangeException(Zint::String8("two regions of a register table have the name ") +
                                  region.name);
      }
    }
  }

  Zint::String8 entryName(const ChipMemory& region, U32 entry) const override {
    const TableRegister* found = nullptr;
    return Zint::String8(find(region, entry, found));
  }

  Zint::String8 differenceText(const ChipMemory& region, U32 entry, std::span<const U8> expected,
                               std::span<const U8> actual,
                               std::span<const U8> mask) const override {
    const TableRegister* found = nullptr;
    const std::string name = find(region, entry, found);
    if (found == nullptr) return "";
    std::string text;
    U32 told = 0;
    const auto tell = [&](const std::string& what, U64 left, U64 right) {
      if (++told > mostFieldsTold) return;
      text += (told == 1 ? "" : ", ") + what + " expected " + registerNumber(left) + " actual " +
              registerNumber(right);
    };
    U64 named = 0;
    for (const TableField& field : found->fields) {
      const U64 compared = ~fieldOf(mask, field.low, field.bits);
      const U64 left = fieldOf(expected, field.low, field.bits);
      const U64 right = fieldOf(actual, field.low, field.bits);
      if (field.low < 64) named |= fieldBits(field);
      if (((left ^ right) & compared) != 0) {
        tell(name + "." + field.name, left, right);
      }
    }
    // Bits that no field names.
    const U64 left = fieldOf(expected, 0, 64), right = fieldOf(actual, 0, 64);
    if (((left ^ right) & ~named & ~fieldOf(mask, 0, 64)) != 0) tell(name, left, right);
    if (told > mostFieldsTold) text += " and " + std::to_string(told - mostFieldsTold) + " more";
    return Zint::String8(text);
  }

  Zint::String8 valueText(const ChipMemory& region, U32 entry,
                          std::span<const U8> value) const override {
    const TableRegister* found = nullptr;
    std::string text = find(region, entry, found);
    if (found == nullptr) return "";
    for (const TableField& field : found->fields) {
      text += std::string(" ") + field.name + "=" +
              registerNumber(fieldOf(value, field.low, field.bits));
    }
    return Zint::String8(text);
  }

 private:
  // The entry's name, and what describes it; null where nothing does.
  std::string find(const ChipMemory& region, U32 entry, const TableRegister*& described) const {
    const auto found = regions_.find(region.name().bytes());
    if (found == regions_.end() || entry >= entriesOf(*found->second)) return "";
    const TableRegion& table = *found->second;
    if (!isOfOneKind(table)) {
      described = &table.registers[entry];
      return described->name;
    }
    described = &table.registers.front();
    return std::string(described->name) + "[" + std::to_string(entry) + "]";
  }
  static U64 fieldBits(const TableField& field) {
    return (field.bits >= 64 ? ~U64{0} : (U64{1} << field.bits) - 1) << field.low;
  }

  std::unordered_map<std::string, const TableRegion*> regions_;
};

// Calls use(first, count) for each run of registers that are alike.
template <class Same, class Use>
void eachTableRun(const TableRegion& region, Same same, Use use) {
  const auto registers = region.registers;
  if (isOfOneKind(region)) return use(0, region.entries, registers.front());
  const U32 count = Zint::countOf(registers);
  for (U32 first = 0; first < count;) {
    U32 end = first + 1;
    while (end < count && same(registers[first], registers[end])) ++end;
    use(first, end - first, registers[first]);
    first = end;
  }
}

}  // namespace

RegisterNames::~RegisterNames() = default;

U64 fieldOf(std::span<const U8> bytes, U32 low, U32 bits) {
  U64 value = 0;
  for (U32 i = 0; i < bits && i < 64; ++i) {
    const U64 bit = U64{low} + i;
    if (bit / 8 >= bytes.size()) break;
    const U32 byte = bytes.begin()[static_cast<std::ptrdiff_t>(bit / 8)];
    value |= U64{byte >> (bit % 8) & 1u} << i;
  }
  return value;
}

Zint::Ptr<ChipMemory> chipMemoryOf(const TableRegion& region,
                                   const Zint::Ptr<Hardware::ChipHam>& ham, U64 base) {
  return Hardware::chipMemoryFactory(region.name, Hardware::ChipAddress(base + region.address),
                                     entriesOf(region), region.entrySize, region.stride, ham);
}

Zint::Ptr<Policy> policyOf(const ChipMemory::Ptr& chipMemory, const TableRegion& region) {
  const Policy::Ptr policy = policyFactory(chipMemory);
  const U32 size = region.entrySize;
  if (chipMemory->entrySize() != size || chipMemory->entries() != entriesOf(region)) {
    Zint::throwRangeException(Zint::String8("the register table of ") + region.name +
                              " has other entries than the region " + chipMemory->name());
  }
  const auto sameRule = [](const TableRegister& a, const TableRegister& b) {
    return a.rule == b.rule && a.isOnce == b.isOnce;
  };
  eachTableRun(region, sameRule, [&](U32 first, U32 count, const TableRegister& r) {
    if (r.rule != Rule::repaired) policy->ruleIs(first, count, r.rule);
    if (r.isOnce) policy->onceIs(first, count, true);
  });
  const auto sameMask = [](const TableRegister& a, const TableRegister& b) {
    return a.mask == b.mask && a.rewrite == b.rewrite;
  };
  eachTableRun(region, sameMask, [&](U32 first, U32 count, const TableRegister& r) {
    if (r.mask != 0) policy->maskIs(first, count, tableBytes(r.mask, size), r.rewrite);
  });
  const auto sameReset = [](const TableRegister& a, const TableRegister& b) {
    return a.resetValue == b.resetValue && a.resetMask == b.resetMask;
  };
  eachTableRun(region, sameReset, [&](U32 first, U32 count, const TableRegister& r) {
    if (size <= 8 && (r.resetMask & allBits(size)) == allBits(size)) {
      policy->resetValueIs(first, count, tableBytes(r.resetValue, size));
    }
  });
  return policy;
}

Zint::Ptr<RegisterNames> registerNamesOf(std::span<const TableRegion> regions) {
  return Zint::makePtr<TableNames>(regions);
}

}  // namespace Driver
