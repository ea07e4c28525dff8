// The library's rules, checked before a line is run.
//
// A broken rule is a fatal assertion of the library, by name as in C++. What can be known
// beforehand (sizes, ranges, states) is refused here instead: Error names the rule, and nothing has
// changed. Rules that only a later moment breaks, and those of a user's own types, stay fatal.
//
// "/" is where shadows and readers are looked for: a region may be under the audit of any of them.
#pragma once

#include <Zint/GenericIf.h>

#include <string>

#include <telemetry/Names.h>

namespace Telemetry {

// An operation of the object, or of one of its collections ("chipMemoryDel").
UMBRA_API void checkCall(const Names& names, const Zint::Result& object,
                         const std::string& operation, const Zint::Arguments& arguments);
UMBRA_API void checkSet(const Names& names, const Zint::Result& object,
                        const std::string& attribute, const Zint::String8& text);

}  // namespace Telemetry
