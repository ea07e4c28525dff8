// What all classes of this library share: the type descriptions, the assertions and the trace
// handle.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Trace.h>
#include <Zint/Type.h>

namespace Hardware {

UMBRA_API extern const Zint::Type chipMemoryModeType;
UMBRA_API extern const Zint::Type hardwareShadowStateType;
UMBRA_API extern const Zint::Type chipAddressType;
UMBRA_API extern const Zint::Type chipHamType;
UMBRA_API extern const Zint::Type genericChipHamType;
UMBRA_API extern const Zint::Type chipMemoryType;
UMBRA_API extern const Zint::Type chipReadRequestType;
UMBRA_API extern const Zint::Type chipReaderType;
UMBRA_API extern const Zint::Type chipMemoryArrayIndexType;
UMBRA_API extern const Zint::Type chipMemoryChunkType;
UMBRA_API extern const Zint::Type hardwareShadowType;
UMBRA_API extern const Zint::Type chipMemoryBogonType;

// The library's trace handle, "Umbra".
UMBRA_API extern Zint::TraceHandle umbraTraceHandle;
inline Zint::TraceHandle& umbraTrace() { return umbraTraceHandle; }

}  // namespace Hardware

// A broken internal rule ends the process. Where no line is fixed, it is __LINE__.
#define UMBRA_ASSERT(line, condition)                                                   \
  do {                                                                                  \
    if (!(condition)) [[unlikely]]                                                      \
      ::Zint::assertionFailed(#condition, "Hardware/Umbra", line, __PRETTY_FUNCTION__); \
  } while (0)

// The same in a helper, on behalf of the operation that the report names; `detail` as in
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

// One line of trace; `text` is what stands to the right of `stream <<`.
#define UMBRA_TRACE(level, line, text) \
  ZINT_TRACE_CONTEXT(::Hardware::umbraTrace(), level, "", "Hardware/Umbra", line, text)
