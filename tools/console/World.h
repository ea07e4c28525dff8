// What a console works on. Whoever opens a system fills this in; the console itself knows no class.
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
  // The objects that stand in "/", in the order shown.
  std::vector<std::pair<std::string, Zint::Result>> objects;
  // The path of the attribute that counts finished audit passes; "" for none.
  std::string passes;
  // Whether lines that break a rule of the library are refused where that is known beforehand. When
  // false, such a rule is as fatal as in C++.
  bool checksRules = true;
  // The trace handle that is meant when none is named.
  std::string traceHandle;
  // The chip's registers, past the library: byte addresses, multiples of 4 below `chipSize`.
  U32 chipSize = 0;
  std::function<U32(U32 address)> peek;
  std::function<void(U32 address, U32 value)> poke;
};

// An object as a console needs it.
template <class T>
Zint::Result objectOf(const Zint::Ptr<T>& object) {
  return {"", object, std::is_const_v<T>};
}

}  // namespace Console
