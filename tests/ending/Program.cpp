// ending-program <who> <early|late|never>: checks once at one moment of the process's end. The
// first text is made before whoever checks exists, after that, or not before that moment.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include <Zint/ObjectText.h>

#include "Ending.h"

namespace {

using Ending::CheckAtEnd;
using Ending::subject;

bool checksInDestructorFunction = false;

[[gnu::destructor]] void destructorFunction() {
  if (checksInDestructorFunction) subject().check("destructor function");
}

void armThreadLocal(const char* who) { thread_local const CheckAtEnd atEnd(who); }

// A thread's thread_local destructor is the last to make a text on it; then the objects are used
// by the main thread, in a static destructor at last.
void runThread(bool early) {
  std::thread([early] {
    if (early) subject().check("thread");
    armThreadLocal("thread_local of a thread");
    subject().check("thread");
  }).join();
}

void armPlugin(bool unloads) {
  void* plugin = dlopen(ENDING_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    (void)std::printf("%s\n", dlerror());
    std::_Exit(1);
  }
  void (*arm)() = nullptr;
  void* symbol = dlsym(plugin, "pluginArm");
  std::memcpy(&arm, &symbol, sizeof arm);
  arm();
  if (unloads) dlclose(plugin);
}

bool arm(std::string_view who) {
  if (who == "static") {
    static const CheckAtEnd atEnd("static object");
  } else if (who == "handler") {
    std::atexit([] { subject().check("exit handler"); });
  } else if (who == "destructor") {
    checksInDestructorFunction = true;
  } else if (who == "thread_local") {
    armThreadLocal("thread_local of the main thread");
  } else if (who == "plugin") {
    armPlugin(false);
  } else if (who == "unloaded") {
    armPlugin(true);
  } else if (who == "end") {
    static const struct AtEnd {
      ~AtEnd() { subject().end("end"); }
    } atEnd;
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const std::string_view who = arguments[1], when = arguments[2];
  if (who == "thread") {
    runThread(when == "early");
    return 0;
  }
  // Objects that are numbered on a thread outlive it, and are numbered anew where they go on.
  if (who == "outlived") {
    std::thread([] { objectText(Zint::makePtr<Hardware::ChipHam>("brief").ptr()); }).join();
    Hardware::ChipHam::Ptr ham;
    std::thread([&] {
      objectText((ham = Zint::makePtr<Hardware::ChipHam>("outlives")).ptr());
    }).join();
    ham = nullptr;
    return arm("static") ? 0 : 2;
  }
  if (when == "early") subject().check("main");
  if (!arm(who)) return 2;
  if (when == "late") subject().check("main");
  return 0;
}
