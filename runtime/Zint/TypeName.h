// The name under which a type is shown to users.
#pragma once

#include <Zint/String8.h>
#include <Zint/Types.h>
#include <concepts>
#include <type_traits>

namespace Zint {

// A fixed name for the integers and the runtime's value types, "" for void, the element's name for
// a pointer or a std::optional; for any other T the text of `zintTypeName(static_cast<const
// T*>(nullptr))`, which its header declares.
template <class T>
constexpr const char* typeNameOf() {
  if constexpr (std::is_void_v<T>)
    return "";
  else if constexpr (std::same_as<T, bool>)
    return "bool";
  else if constexpr (std::floating_point<T>)
    return "Zint::Seconds";
  else if constexpr (std::same_as<T, U8>)
    return "U8";
  else if constexpr (std::same_as<T, U16>)
    return "U16";
  else if constexpr (std::same_as<T, U32>)
    return "U32";
  else if constexpr (std::same_as<T, U64>)
    return "U64";
  else if constexpr (std::same_as<T, S64>)
    return "S64";
  else if constexpr (std::same_as<T, String8>)
    return "Zint::String8";
  else if constexpr (requires { typename T::Element; })  // a pointer
    return typeNameOf<std::remove_const_t<typename T::Element>>();
  else if constexpr (requires(const T& optional) { optional.has_value(); })
    return typeNameOf<typename T::value_type>();
  else
    return zintTypeName(static_cast<const T*>(nullptr));
}

}  // namespace Zint
