// Fatal assertions: a broken internal rule ends the process, in every build.
//
//   ZINT_ASSERT("Zint/HashMap", t->fwkHmNext() == 0);
//
// calls the hook, reports the condition as it is written, the source, the line and the function's
// full signature on standard error, and aborts.
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>

namespace Zint {

struct AssertionFailure {
  const char* condition;
  const char* source;
  int line;
  const char* function;
  const char* detail;  // what the failure is about, a region's name for instance; "" when nothing
};

// Called before the process aborts: to save a trace, say. A hook that throws leaves the process
// alive with the failed operation abandoned half way; that is for tests only.
using AssertionHook = void (*)(const AssertionFailure&);

// Installs `hook` (null for none) and returns the one before.
UMBRA_API AssertionHook assertionHookIs(AssertionHook hook);

[[noreturn, gnu::cold, gnu::noinline]] UMBRA_API void assertionFailed(const char* condition,
                                                                      const char* source, int line,
                                                                      const char* function,
                                                                      const char* detail = "");

}  // namespace Zint

#define ZINT_ASSERT(source, condition)                                            \
  do {                                                                            \
    if (!(condition)) [[unlikely]]                                                \
      ::Zint::assertionFailed(#condition, source, __LINE__, __PRETTY_FUNCTION__); \
  } while (0)
