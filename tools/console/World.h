// What a console works on: filled in by the program that opens a system.
#pragma once

#include <Zint/Activity.h>
#include <Zint/Type.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Console {

struct World {
  Zint::Ptr<Zint::ActivityConfig> activity;
  // The objects of "/", in the order shown.
  std::vector<std::pair<std::string, Zint::Result>> objects;
  // The path of the attribute that counts finished audit passes; "" for none.
  std::string passes;
  // Whether lines that break a rule of the library are refused where that is known beforehand. When
  // false, such a rule is as fatal as in C++.
  bool checksRules = true;
  // Runs a shell command on a command's output, see Filter.h; none where lines are not to be
  // trusted.
  std::function<void(const std::string& shellCommand, const std::string& input)> filter;
  // What the patrol has found, the newest last: at most that many lines. None where there is no
  // patrol.
  std::function<std::vector<std::string>(std::size_t most)> findings;
  // What will go wrong as the system is set up, a line each; none where it cannot be checked.
  std::function<std::vector<std::string>()> check;
  // The trace handle of `trace` without a name.
  std::string traceHandle;
  // The chip's registers, past the library: byte addresses, multiples of 4 below `chipSize`.
  U32 chipSize = 0;
  std::function<U32(U32 address)> peek;
  std::function<void(U32 address, U32 value)> poke;
  // What befalls the chip; none where it cannot be had.
  std::function<void(bool isAbsent)> absentIs;
  std::function<void()> reset;
  std::function<void(U32 address, U32 bits)> stuckBitsAre;  // read 0; no bits: all are free
};

// An object as a console needs it.
template <class T>
Zint::Result objectOf(const Zint::Ptr<T>& object) {
  return {"", object, std::is_const_v<T>};
}

}  // namespace Console
