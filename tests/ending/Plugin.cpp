// A library that is loaded and unloaded, with a static object and an exit handler of its own.
#include <cstdlib>

#include "Ending.h"

extern "C" __attribute__((visibility("default"))) void pluginCheck(const char* who) {
  Ending::subject().check(who);
}

extern "C" __attribute__((visibility("default"))) void pluginArm() {
  static const Ending::CheckAtEnd atEnd("plugin's static object");
  std::atexit([] { Ending::subject().check("plugin's exit handler"); });
}
