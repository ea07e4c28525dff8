// Describes a type in one table, from which everything by name follows:
//
//   constexpr Zint::Member tcamHamMembers[] = {
//       Zint::readOnly<&TcamHam::banks>("banks"),
//       Zint::attribute<&TcamHam::parity, &TcamHam::parityIs>("parity"),
//       Zint::operation<&TcamHam::doScrub>("doScrub", "bank", "?passes"),   // passes may be left
//       out
//   };
//   const Zint::Type tcamHamType{"Chips::TcamHam", "entity", &Hardware::chipHamType,
//   tcamHamMembers}; Zint::TypeRegistry::typeIs(tcamHamType);
//
// and `const Type* fwkType() const override { return &tcamHamType; }` in the class. An accessor
// that is renamed no longer compiles. An operation may be a member function or a free function
// whose first parameter is the object; argument and result types need valueToStrep and
// sequenceToValue.
#pragma once

#include <Zint/ObjectText.h>
#include <Zint/Strep.h>
#include <Zint/Type.h>
#include <concepts>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Zint {

// Raw bytes in text: two hexadecimal digits a byte.
struct Bytes {
  std::vector<U8> bytes;
};
UMBRA_API String8 valueToStrep(const Bytes& value);
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               Bytes& value);

// The name under which a member's type is shown: a fixed one for the runtime's own value types, and
// otherwise what `zintTypeName(static_cast<const T*>(nullptr))` gives.
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
  else if constexpr (std::same_as<T, Bytes>)
    return "Bytes";
  else if constexpr (requires { typename T::Element; })
    return typeNameOf<std::remove_const_t<typename T::Element>>();
  else
    return zintTypeName(static_cast<const T*>(nullptr));
}

namespace Detail {

template <class T>
constexpr bool isPtr = false;
template <class T>
constexpr bool isPtr<Ptr<T>> = true;
template <class T>
constexpr bool isPtr<ValidPtr<T>> = true;

// The object behind the untyped address.
template <class C>
C& object(void* address) {
  if constexpr (std::derived_from<C, PtrInterface>) {
    return static_cast<C&>(*static_cast<PtrInterface*>(address));
  } else {
    return *static_cast<C*>(address);
  }
}
template <class C>
const C& object(const void* address) {
  return object<C>(const_cast<void*>(address));
}

template <class T>
Result result(const T& value) {
  if constexpr (isPtr<T>) {
    return {objectText(value.ptr()), value, std::is_const_v<typename T::Element>};
  } else {
    return {valueToStrep(value), nullptr, true};
  }
}

// The object's class, the result and the parameters of an accessor or an operation.
template <class F>
struct Signature;
template <class C_, class R_, class... P>
struct Signature<R_ (C_::*)(P...)> {
  using C = C_;
  using R = R_;
  using Parameters = std::tuple<std::remove_cvref_t<P>...>;
  static constexpr bool constant = false;
};
template <class C_, class R_, class... P>
struct Signature<R_ (C_::*)(P...) const> : Signature<R_ (C_::*)(P...)> {
  static constexpr bool constant = true;
};
template <class C_, class R_, class... P>
struct Signature<R_ (*)(C_&, P...)> {
  using C = std::remove_const_t<C_>;
  using R = R_;
  using Parameters = std::tuple<std::remove_cvref_t<P>...>;
  static constexpr bool constant = std::is_const_v<C_>;
};

template <auto f, class C, class... A>
decltype(auto) invoked(C& object, A&&... arguments) {
  if constexpr (std::is_member_pointer_v<decltype(f)>) {
    return (object.*f)(std::forward<A>(arguments)...);
  } else {
    return f(object, std::forward<A>(arguments)...);
  }
}

template <auto getter>
String8 get(const void* address) {
  using S = Signature<decltype(getter)>;
  return valueToStrep(std::remove_cvref_t<typename S::R>(
      invoked<getter>(object<typename S::C>(const_cast<void*>(address)))));
}

template <auto getter>
Result target(const void* address) {
  using S = Signature<decltype(getter)>;
  return result(std::remove_cvref_t<typename S::R>(
      invoked<getter>(object<typename S::C>(const_cast<void*>(address)))));
}

// A text that does not parse, before anything has changed.
class UMBRA_API Unreadable : public RangeException {
 public:
  explicit Unreadable(const RangeException& cause) : RangeException(cause) {}
};

template <class T>
T read(const String8& text) {
  try {
    return strepToValue<T>(text);
  } catch (const RangeException& cause) {
    throw Unreadable(cause);
  }
}

template <auto setter>
void set(void* address, const String8& text) {
  using S = Signature<decltype(setter)>;
  auto value = read<std::tuple_element_t<0, typename S::Parameters>>(text);
  invoked<setter>(object<typename S::C>(address), value);
}

template <class T>
T argument(const String8* text) {
  return text == nullptr ? T{} : read<T>(*text);
}

// All arguments are read before the call: one that does not parse changes nothing.
template <auto f, std::size_t... i>
Result call(void* address, [[maybe_unused]] std::span<const String8* const> texts,
            std::index_sequence<i...>) {
  using S = Signature<decltype(f)>;
  using R = typename S::R;
  typename S::Parameters arguments{
      argument<std::tuple_element_t<i, typename S::Parameters>>(texts[i])...};
  auto& target = object<typename S::C>(address);
  if constexpr (std::is_void_v<R>) {
    invoked<f>(target, std::get<i>(arguments)...);
    return {};
  } else if constexpr (std::same_as<R, Result>) {
    return invoked<f>(target, std::get<i>(arguments)...);
  } else {
    return result(std::remove_cvref_t<R>(invoked<f>(target, std::get<i>(arguments)...)));
  }
}

template <auto f>
Result called(void* address, std::span<const String8* const> texts) {
  constexpr std::size_t count = std::tuple_size_v<typename Signature<decltype(f)>::Parameters>;
  return call<f>(address, texts, std::make_index_sequence<count>());
}

// A free function without an object: a factory.
template <auto f, class R, class... P, std::size_t... i>
Result made([[maybe_unused]] std::span<const String8* const> texts, R (*)(P...),
            std::index_sequence<i...>) {
  std::tuple<std::remove_cvref_t<P>...> arguments{argument<std::remove_cvref_t<P>>(texts[i])...};
  return result(R(f(std::get<i>(arguments)...)));
}
template <auto f, class R, class... P>
constexpr std::size_t parameterCount(R (*)(P...)) {
  return sizeof...(P);
}
template <auto f>
Result factoryCalled(void*, std::span<const String8* const> texts) {
  return made<f>(texts, f, std::make_index_sequence<parameterCount<f>(f)>());
}

}  // namespace Detail

// An attribute that cannot be set.
template <auto getter>
constexpr Member readOnly(const char* name, U32 moreFlags = 0) {
  using T = std::remove_cvref_t<typename Detail::Signature<decltype(getter)>::R>;
  using Flags = ZintAttrIntrospectionFlags;
  Member member{name, typeNameOf<T>(), Flags::readable | Flags::constant | moreFlags};
  member.get = Detail::get<getter>;
  if constexpr (Detail::isPtr<T>) member.target = Detail::target<getter>;
  return member;
}

// One that a constructor parameter sets for good.
template <auto getter>
constexpr Member constructorParameter(const char* name) {
  return readOnly<getter>(name, ZintAttrIntrospectionFlags::constructorParameter);
}

template <auto getter, auto setter>
constexpr Member attribute(const char* name) {
  Member member = readOnly<getter>(name);
  member.flags = ZintAttrIntrospectionFlags::readable | ZintAttrIntrospectionFlags::writable;
  member.set = Detail::set<setter>;
  return member;
}

template <auto f, class... Names>
constexpr Member operation(const char* name, Names... names) {
  using S = Detail::Signature<decltype(f)>;
  using R = std::remove_cvref_t<typename S::R>;
  static_assert(sizeof...(names) == std::tuple_size_v<typename S::Parameters>);
  using Flags = ZintAttrIntrospectionFlags;
  Member member{name, "", Flags::callable | (S::constant ? U32{Flags::constant} : 0u)};
  if constexpr (!std::same_as<R, Result>) member.typeName = typeNameOf<R>();
  member.arguments = {names...};
  member.call = Detail::called<f>;
  return member;
}

template <auto f, class... Names>
constexpr Member factory(const char* name, const char* typeName, Names... names) {
  Member member{name, typeName, ZintAttrIntrospectionFlags::callable};
  static_assert(sizeof...(names) == Detail::parameterCount<f>(f));
  member.arguments = {names...};
  member.call = Detail::factoryCalled<f>;
  return member;
}

constexpr Member collection(const char* name, const ListAccess& list) {
  Member member{name, "Zint::GenericIf::List_",
                ZintAttrIntrospectionFlags::readable | ZintAttrIntrospectionFlags::collection};
  member.list = &list;
  return member;
}

constexpr Member enumerator(const char* name, S32 value) {
  Member member{name, "", ZintAttrIntrospectionFlags::constant};
  member.value = value;
  return member;
}

}  // namespace Zint
