// What the library's sources share: assertions, the trace handle, the refusal of null arguments and
// the type descriptions. No public header includes this one.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Reflect.h>
#include <Zint/Trace.h>
#include <telemetry/Descriptions.h>

namespace Telemetry {

// The library's trace handle, "Telemetry".
extern Zint::TraceHandle telemetryTraceHandle;
inline Zint::TraceHandle& telemetryTrace() { return telemetryTraceHandle; }

// Raises a range exception with this message if the argument is null. Returns the argument.
template <class T>
const Zint::Ptr<T>& refuseNull(const Zint::Ptr<T>& argument, const char* message) {
  if (argument == nullptr) Zint::throwRangeException(message);
  return argument;
}

}  // namespace Telemetry

// A broken internal rule ends the process.
#define TELEMETRY_ASSERT(condition) ZINT_ASSERT("telemetry/Telemetry", condition)

// One line of trace; `text` is what follows `stream <<`.
#define TELEMETRY_TRACE(level, text)                                                            \
  ZINT_TRACE_CONTEXT(::Telemetry::telemetryTrace(), level, "", "telemetry/Telemetry", __LINE__, \
                     text)
