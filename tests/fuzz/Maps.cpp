// Register maps and overlays from anybody: a text is refused with file and line, or becomes a map
// whose plan, regions, tables and trials keep what they promise.
//
// The first byte chooses: a whole file of XML, or a map that is put together from the bytes that
// follow; an overlay stands behind the last zero byte.
#include <maps/Diff.h>
#include <maps/Import.h>
#include <maps/Overlay.h>
#include <maps/Table.h>
#include <maps/Trials.h>

#include <unordered_set>

#include "fuzz/Fuzz.h"

namespace {

void expectMaps(bool held, const char* what) {
  if (!held) Fuzz::failed(what);
}

// What every error of an input says: the file, and a line of it where it has one.
void expectPlace(const Maps::Error& error, const char* file, std::string_view text) {
  const std::string message = error.what();
  const auto lines = static_cast<U32>(std::count(text.begin(), text.end(), '\n')) + 1;
  expectMaps(message.starts_with(file), "an error does not begin with its file");
  expectMaps(error.line() <= lines, "an error names a line that is not there");
}

// Elements of both formats from few bytes each, so that most inputs are maps.
std::string madeOf(Fuzz::Input& input, bool isSvd) {
  std::string text = isSvd
                         ? "<device><name>C</name><access>read-write</access><peripherals>"
                           "<peripheral><name>B</name><baseAddress>0x1000</baseAddress><registers>"
                         : "<component><name>C</name><memoryMaps><memoryMap><name>M</name>"
                           "<addressBlock><name>B</name><baseAddress>'h1000</baseAddress>";
  static constexpr const char* names[] = {"register",
                                          "cluster",
                                          "registerFile",
                                          "field",
                                          "fields",
                                          "name",
                                          "addressOffset",
                                          "size",
                                          "dim",
                                          "dimIncrement",
                                          "dimIndex",
                                          "access",
                                          "readAction",
                                          "modifiedWriteValues",
                                          "resetValue",
                                          "resetMask",
                                          "bitRange",
                                          "bitOffset",
                                          "bitWidth",
                                          "lsb",
                                          "msb",
                                          "description",
                                          "enumeratedValues",
                                          "enumeratedValue",
                                          "usage",
                                          "value",
                                          "resets",
                                          "reset",
                                          "mask",
                                          "alternateRegister",
                                          "volatile",
                                          "range",
                                          "derivedFrom"};
  std::vector<const char*> open;
  while (!input.empty()) {
    const U32 chosen = input.below(48);
    if (chosen < std::size(names) && open.size() < 70) {
      const char* const name = names[chosen];
      if (std::string_view(name) == "derivedFrom") {
        text += "<register derivedFrom=\"" +
                std::string(1, static_cast<char>('A' + input.below(4))) + "\">";
        open.push_back("register");
      } else {
        text += "<" + std::string(name) + ">";
        open.push_back(name);
      }
    } else if (chosen < 40) {
      static constexpr const char* values[] = {
          "0",   "4",     "8",   "0x10",       "32",         "64",   "A",         "B",
          "C%s", "D[%s]", "3",   "[7:4]",      "1",          "2",    "read-only", "clear",
          "0-3", "#101",  "'h8", "4294967295", "oneToClear", "FIFO", "16"};
      text += values[input.below(std::size(values))];
    } else if (!open.empty()) {
      text += "</" + std::string(open.back()) + ">\n";
      open.pop_back();
    }
  }
  for (; !open.empty(); open.pop_back()) text += "</" + std::string(open.back()) + ">";
  return text + (isSvd ? "</registers></peripheral></peripherals></device>"
                       : "</addressBlock></memoryMap></memoryMaps></component>");
}

void checkRegions(const Maps::Plan& plan) {
  std::vector<U32> seen(plan.choices.size());
  std::unordered_set<std::string> names;
  for (const Maps::Region& region : Maps::regionsOf(plan)) {
    expectMaps(names.insert(region.name).second, "two regions have one name");
    expectMaps(region.entries == region.registers.size() && region.entries > 0,
               "a region has other entries than registers");
    for (U32 e = 0; e < region.entries; ++e) {
      const Maps::Register& r = plan.map.registers[region.registers[e]];
      expectMaps(r.address == region.address + U64{region.stride} * e, "an entry lies elsewhere");
      expectMaps(r.layout->bytes() == region.entrySize, "an entry has another size");
      expectMaps(plan.choices[region.registers[e]].rule.has_value(),
                 "a region holds an undecided register");
      expectMaps(++seen[region.registers[e]] == 1, "a register is in two regions");
    }
    // No declared register lies in the span but the entries themselves.
    const U64 end = region.address + U64{region.stride} * region.entries;
    for (std::size_t i = 0; i < plan.map.registers.size() && plan.map.registers.size() < 500; ++i) {
      const Maps::Register& r = plan.map.registers[i];
      expectMaps(
          seen[i] != 0 || !plan.choices[i].rule || r.address >= end || r.end() <= region.address,
          "a region's span holds another decided register");
    }
  }
  for (std::size_t i = 0; i < seen.size(); ++i) {
    expectMaps((seen[i] != 0) == plan.choices[i].rule.has_value(),
               "a decided register is in no region");
  }
}

void runMaps(const U8* bytes, std::size_t size) {
  if (size == 0) return;
  const std::string_view all(reinterpret_cast<const char*>(bytes) + 1, size - 1);
  const std::size_t zero = all.rfind('\0');
  const std::string_view overlay = zero == std::string_view::npos ? "" : all.substr(zero + 1);
  std::string text(all.substr(0, zero));
  if (bytes[0] % 3 != 0) {
    Fuzz::Input input(reinterpret_cast<const U8*>(all.data()),
                      zero == std::string_view::npos ? all.size() : zero);
    text = madeOf(input, bytes[0] % 3 == 1);
  }
  Maps::Plan plan;
  try {
    plan = Maps::proposed(Maps::parseMap(text, "fuzz.xml"));
  } catch (const Maps::Error& error) {
    return expectPlace(error, "fuzz.xml", text);
  }
  expectMaps(plan.map.registers.size() <= Maps::Limits::registers, "a limit is not kept");
  checkRegions(plan);
  const Maps::Plan before = plan;
  try {
    Maps::decide(plan, Maps::parseOverlay(overlay, "fuzz.overlay"));
  } catch (const Maps::Error& error) {
    expectPlace(error, "fuzz.overlay", overlay);
    expectMaps(Maps::differences(before, plan).empty(), "a refused overlay has changed the plan");
  }
  checkRegions(plan);
  expectMaps(Maps::differences(plan, plan).empty(), "a plan differs from itself");
  if (plan.map.registers.size() > 500) return;
  Maps::differences(before, plan);
  const Maps::Table table(plan);
  expectMaps(table.regions().size() == Maps::regionsOf(plan).size(), "a table has other regions");
  Maps::headerText(plan, "fuzz");
  Maps::ScratchChip chip(before.map);
  expectMaps(Maps::tryResetValues(before, chip).failed == 0, "a sound chip has other reset values");
  expectMaps(Maps::tryBitBash(before, chip).failed == 0, "a sound chip fails bit-bash");
}

}  // namespace

FUZZ_TARGET("maps", runMaps)
