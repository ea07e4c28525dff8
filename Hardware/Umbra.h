// What the library's sources share: assertions, the trace handle, the refusal of null arguments and
// the type descriptions. No public header includes this one.
#pragma once

#include <Hardware/Descriptions.h>
#include <Zint/Assert.h>
#include <Zint/Trace.h>

namespace Hardware {

// The library's trace handle, "Umbra".
UMBRA_API extern Zint::TraceHandle umbraTraceHandle;
inline Zint::TraceHandle& umbraTrace() { return umbraTraceHandle; }

// Raises a range exception with this message if the argument is null. Returns the argument.
template <class T>
const Zint::Ptr<T>& refuseNull(const Zint::Ptr<T>& argument, const char* message) {
  if (argument == nullptr) Zint::throwRangeException(message);
  return argument;
}

}  // namespace Hardware

// A broken internal rule ends the process. `line` is the number that the report shows; clients rely
// on some of these numbers, which are not lines of this project. All others are __LINE__.
#define UMBRA_ASSERT(line, condition)                                                   \
  do {                                                                                  \
    if (!(condition)) [[unlikely]]                                                      \
      ::Zint::assertionFailed(#condition, "Hardware/Umbra", line, __PRETTY_FUNCTION__); \
  } while (0)

// The same in a helper: the report names `function`, the operation that called it; `detail` as in
// Zint::AssertionFailure.
#define UMBRA_ASSERT_IN(function, line, condition, detail)                             \
  do {                                                                                 \
    if (!(condition)) [[unlikely]]                                                     \
      ::Zint::assertionFailed(#condition, "Hardware/Umbra", line, (function), detail); \
  } while (0)

// The same for an operation on one region: the report names it.
#define UMBRA_ASSERT_REGION(region, condition)                                             \
  do {                                                                                     \
    if (!(condition)) [[unlikely]]                                                         \
      ::Zint::assertionFailed(#condition, "Hardware/Umbra", __LINE__, __PRETTY_FUNCTION__, \
                              (region).fwkKey().c_str());                                  \
  } while (0)

// One line of trace; `text` is what follows `stream <<`.
#define UMBRA_TRACE(level, line, text) \
  ZINT_TRACE_CONTEXT(::Hardware::umbraTrace(), level, "", "Hardware/Umbra", line, text)
