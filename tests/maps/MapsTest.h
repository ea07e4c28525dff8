// What the tests of register maps share: small maps as text.
#pragma once

#include <gtest/gtest.h>
#include <maps/Import.h>
#include <maps/Overlay.h>
#include <maps/Plan.h>

#include <string>

namespace MapsTest {

// A device around its peripherals; registers are read-write unless they say something else.
inline std::string svd(const std::string& peripherals, const std::string& defaults = "") {
  return "<?xml version=\"1.0\"?>\n<device><name>CHIP</name><size>32</size>"
         "<access>read-write</access>" +
         defaults + "<peripherals>\n" + peripherals + "\n</peripherals></device>";
}

// One peripheral at 0x1000.
inline std::string block(const std::string& registers, const std::string& name = "B",
                         const std::string& address = "0x1000") {
  return "<peripheral><name>" + name + "</name><baseAddress>" + address +
         "</baseAddress><registers>" + registers + "</registers></peripheral>";
}

inline std::string reg(const std::string& name, const std::string& offset,
                       const std::string& more = "") {
  return "<register><name>" + name + "</name><addressOffset>" + offset + "</addressOffset>" + more +
         "</register>";
}

inline std::string field(const std::string& name, const std::string& range,
                         const std::string& more = "") {
  return "<field><name>" + name + "</name><bitRange>" + range + "</bitRange>" + more + "</field>";
}

inline Maps::Map parsed(const std::string& text) { return Maps::parseMap(text, "chip.svd"); }
inline Maps::Map parsedBlock(const std::string& registers) { return parsed(svd(block(registers))); }
inline Maps::Plan planned(const std::string& registers) {
  return Maps::proposed(parsedBlock(registers));
}

// The register of that full name; a failure where there is none.
inline const Maps::Register& registerOf(const Maps::Map& map, const std::string& name) {
  for (const Maps::Register& r : map.registers) {
    if (map.nameOf(r) == name) return r;
  }
  throw std::runtime_error("the map has no register " + name);
}
inline const Maps::Choice& choiceOf(const Maps::Plan& plan, const std::string& name) {
  const Maps::Register& r = registerOf(plan.map, name);
  return plan.choices[static_cast<std::size_t>(&r - plan.map.registers.data())];
}

// The message that parsing ends with; empty if it does not.
inline std::string errorOf(const std::string& text) {
  try {
    parsed(text);
  } catch (const Maps::Error& error) {
    return error.what();
  }
  return "";
}

}  // namespace MapsTest
