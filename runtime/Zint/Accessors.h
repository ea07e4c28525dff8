// How a row of a type's description reaches an object: texts are read into arguments, the accessor
// is called, and its result is written as text. For <Zint/Reflect.h> and <Zint/Collections.h>;
// clients use those.
#pragma once

#include <Zint/Exception.h>
#include <Zint/ObjectText.h>
#include <Zint/Strep.h>
#include <Zint/Type.h>
#include <bit>
#include <concepts>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Zint {

// An argument that cannot be read or does not fit: reported with the type, the member and the texts
// of the call. REQUIRES: thrown before anything has changed.
class UMBRA_API ArgumentException : public RangeException {
 public:
  using RangeException::RangeException;
  ~ArgumentException() override;
};

namespace Detail {

template <class T>
constexpr bool isPtr = false;
template <class T>
constexpr bool isPtr<Ptr<T>> = true;
template <class T>
constexpr bool isPtr<ValidPtr<T>> = true;
template <class T>
constexpr bool isOptional = false;
template <class T>
constexpr bool isOptional<std::optional<T>> = true;

// The object of class C at the address.
template <class C>
C& objectAt(ConstObjectAddress address) {
  const ObjectAddress object = const_cast<ObjectAddress>(address);
  if constexpr (std::derived_from<C, PtrInterface>) {
    return static_cast<C&>(*static_cast<PtrInterface*>(object));
  } else {
    return *static_cast<C*>(object);
  }
}

// The class, the result and the parameters of a member function, or of a free function whose first
// parameter is the object. Parameters are without references.
template <class F>
struct Signature;
template <class C_, class R_, class... P>
struct Signature<R_ (C_::*)(P...)> {
  using C = C_;
  using R = R_;
  using Parameters = std::tuple<std::remove_cvref_t<P>...>;
  static constexpr bool isConst = false;
};
template <class C_, class R_, class... P>
struct Signature<R_ (C_::*)(P...) const> : Signature<R_ (C_::*)(P...)> {
  static constexpr bool isConst = true;
};
template <class C_, class R_, class... P>
struct Signature<R_ (*)(C_&, P...)> {
  using C = std::remove_const_t<C_>;
  using R = R_;
  using Parameters = std::tuple<std::remove_cvref_t<P>...>;
  static constexpr bool isConst = std::is_const_v<C_>;
};

template <auto f>
using ClassOf = typename Signature<decltype(f)>::C;
template <auto f>
using ResultOf = std::remove_cvref_t<typename Signature<decltype(f)>::R>;
template <auto f>
using ParametersOf = typename Signature<decltype(f)>::Parameters;
template <auto f, std::size_t i>
using ParameterOf = std::tuple_element_t<i, ParametersOf<f>>;
template <auto f>
constexpr std::size_t parameterCount = std::tuple_size_v<ParametersOf<f>>;

template <auto f, class... A>
decltype(auto) invoke(ConstObjectAddress address, A&&... arguments) {
  auto& object = objectAt<ClassOf<f>>(address);
  if constexpr (std::is_member_pointer_v<decltype(f)>) {
    return (object.*f)(std::forward<A>(arguments)...);
  } else {
    return f(object, std::forward<A>(arguments)...);
  }
}

// --- Results as text ---

template <class T>
Result makeResult(const T& value) {
  if constexpr (isPtr<T>) {
    return {objectText(value.ptr()), value, std::is_const_v<typename T::Element>};
  } else if constexpr (isOptional<T>) {
    return value.has_value() ? makeResult(*value) : Result{"null"};
  } else {
    return {valueToStrep(value), nullptr, true};
  }
}

template <auto getter>
String8 get(ConstObjectAddress address) {
  return valueToStrep(ResultOf<getter>(invoke<getter>(address)));
}

// The kind of number that a value of type T is. An enumeration may be a class with a value().
template <class T>
constexpr NumberKind numberKindOf() {
  if constexpr (std::same_as<T, bool>) {
    return NumberKind::boolean;
  } else if constexpr (std::floating_point<T>) {
    return NumberKind::real;
  } else if constexpr (std::unsigned_integral<T>) {
    return NumberKind::unsignedNumber;
  } else if constexpr (std::signed_integral<T> || std::is_enum_v<T>) {
    return NumberKind::signedNumber;
  } else {
    return NumberKind::none;
  }
}

template <auto getter>
U64 number(ConstObjectAddress address) {
  using T = ResultOf<getter>;
  const T value = invoke<getter>(address);
  if constexpr (std::floating_point<T>) {
    return std::bit_cast<U64>(static_cast<double>(value));
  } else if constexpr (numberKindOf<T>() == NumberKind::signedNumber) {
    return static_cast<U64>(static_cast<S64>(value));
  } else {
    return static_cast<U64>(value);
  }
}

template <auto getter>
Result target(ConstObjectAddress address) {
  return makeResult(ResultOf<getter>(invoke<getter>(address)));
}

// --- Arguments from text ---

template <class T>
T read(const String8& text) {
  try {
    return strepToValue<T>(text);
  } catch (const RangeException& cause) {
    throw ArgumentException(cause.message());
  }
}

// An argument that was left out is null: empty if the parameter is optional, else the default
// value.
template <class T>
T readArgument(const String8* text) {
  if (text == nullptr) return T{};
  if constexpr (isOptional<T>) {
    return read<typename T::value_type>(*text);
  } else {
    return read<T>(*text);
  }
}

template <auto setter>
void set(ObjectAddress address, const String8& text) {
  const auto value = read<ParameterOf<setter, 0>>(text);
  invoke<setter>(address, value);
}

// All arguments are read before the call, so that one that cannot be read changes nothing.
template <auto f, std::size_t... i>
Result callWith(ObjectAddress address, [[maybe_unused]] ArgumentTexts texts,
                std::index_sequence<i...>) {
  using R = ResultOf<f>;
  ParametersOf<f> arguments{readArgument<ParameterOf<f, i>>(texts[i])...};
  if constexpr (std::is_void_v<R>) {
    invoke<f>(address, std::get<i>(arguments)...);
    return {};
  } else if constexpr (std::same_as<R, Result>) {
    return invoke<f>(address, std::get<i>(arguments)...);
  } else {
    return makeResult(R(invoke<f>(address, std::get<i>(arguments)...)));
  }
}

template <auto f>
Result call(ObjectAddress address, ArgumentTexts texts) {
  return callWith<f>(address, texts, std::make_index_sequence<parameterCount<f>>());
}

// A free function without an object.
template <auto f, class F = decltype(f)>
struct Factory;
template <auto f, class R_, class... P>
struct Factory<f, R_ (*)(P...)> {
  using R = R_;
  static constexpr std::size_t parameters = sizeof...(P);

  static Result call(ObjectAddress, ArgumentTexts texts) {
    return callWith(texts, std::make_index_sequence<parameters>());
  }

 private:
  template <std::size_t... i>
  static Result callWith([[maybe_unused]] ArgumentTexts texts, std::index_sequence<i...>) {
    std::tuple<std::remove_cvref_t<P>...> arguments{
        readArgument<std::remove_cvref_t<P>>(texts[i])...};
    return makeResult(R(f(std::get<i>(arguments)...)));
  }
};

}  // namespace Detail

}  // namespace Zint
