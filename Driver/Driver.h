// What the library's sources share: assertions, the trace handle, the refusal of null arguments and
// the type descriptions. No public header includes this one.
#pragma once

#include <Driver/Descriptions.h>
#include <Zint/Assert.h>
#include <Zint/Reflect.h>
#include <Zint/Trace.h>

namespace Driver {

// The library's trace handle, "Driver".
extern Zint::TraceHandle driverTraceHandle;
inline Zint::TraceHandle& driverTrace() { return driverTraceHandle; }

// Raises a range exception with this message if the argument is null. Returns the argument.
template <class T>
const Zint::Ptr<T>& refuseNull(const Zint::Ptr<T>& argument, const char* message) {
  if (argument == nullptr) Zint::throwRangeException(message);
  return argument;
}

// The description of T, for its ...Type.cpp.
template <class T>
constexpr Zint::Type describe(const char* kind, const Zint::Type* base,
                              std::span<const Zint::Member> members) {
  return {Zint::typeNameOf<T>(), kind, base, members};
}

constexpr const char* countedObject = "reference-counted object";

}  // namespace Driver

// A broken internal rule ends the process.
#define DRIVER_ASSERT(condition) ZINT_ASSERT("Driver/Driver", condition)

// One line of trace; `text` is what follows `stream <<`.
#define DRIVER_TRACE(level, text) \
  ZINT_TRACE_CONTEXT(::Driver::driverTrace(), level, "", "Driver/Driver", __LINE__, text)
