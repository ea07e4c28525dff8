// Describes a type in one table, from which everything by name follows:
//
//   class Fan : public Zint::Entity {
//    public:
//     using Entity::Entity;
//     const Zint::Type* fwkType() const override;
//     U32 blades() const { return 7; }
//     Zint::Seconds period() const { return period_; }
//     void periodIs(Zint::Seconds period) { period_ = period; }
//     bool doSpin(U32 turns, U32 pause) { return turns > pause; }
//
//    private:
//     Zint::Seconds period_ = 0;
//   };
//
//   constexpr const char* zintTypeName(const Fan*) { return "Cooling::Fan"; }  // for other rows
//
//   constexpr Zint::Member fanMembers[] = {
//       Zint::readOnly<&Fan::blades>("blades").says("how many there are"),
//       Zint::attribute<&Fan::period, &Fan::periodIs>("period"),
//       Zint::operation<&Fan::doSpin>("doSpin", "turns", "?pause"),  // pause may be left out
//   };
//   constinit const Zint::Type fanType{"Cooling::Fan", "entity", &Zint::entityType, fanMembers};
//   const Zint::Type* Fan::fwkType() const { return &fanType; }
//   void registerTypes() { Zint::TypeRegistry::typeIs(fanType); }  // once, at start
//
// A real number is taken for seconds; in("ratio") says otherwise. An accessor that is renamed no
// longer compiles. An accessor may also be a free function whose first parameter is the object.
// Result and parameter types need valueToStrep and sequenceToValue. An argument that was left out
// is the default value of its type; a std::optional parameter shows whether it was given.
// <Zint/Collections.h> describes collections.
#pragma once

#include <Zint/Accessors.h>
#include <Zint/Bytes.h>
#include <Zint/TypeName.h>

namespace Zint {

namespace Detail {

template <auto getter>
constexpr Member getterRow(const char* name, U32 moreFlags) {
  Member member{name, typeNameOf<ResultOf<getter>>(),
                ZintAttrIntrospectionFlags::readable | moreFlags};
  member.get = get<getter>;
  member.numberKind = numberKindOf<ResultOf<getter>>();
  if constexpr (numberKindOf<ResultOf<getter>>() != NumberKind::none)
    member.number = number<getter>;
  if constexpr (std::floating_point<ResultOf<getter>>) member.unit = "seconds";
  if constexpr (isPtr<ResultOf<getter>>) member.target = target<getter>;
  return member;
}

}  // namespace Detail

// An attribute that cannot be set.
template <auto getter>
constexpr Member readOnly(const char* name) {
  return Detail::getterRow<getter>(name, ZintAttrIntrospectionFlags::constant);
}

// An attribute that only a constructor parameter sets.
template <auto getter>
constexpr Member constructorParameter(const char* name) {
  using Flags = ZintAttrIntrospectionFlags;
  return Detail::getterRow<getter>(name, Flags::constant | Flags::constructorParameter);
}

template <auto getter, auto setter>
constexpr Member attribute(const char* name) {
  Member member = Detail::getterRow<getter>(name, ZintAttrIntrospectionFlags::writable);
  member.set = Detail::set<setter>;
  return member;
}

// The names are those of the arguments, in order.
template <auto f, class... Names>
constexpr Member operation(const char* name, Names... names) {
  static_assert(sizeof...(names) == Detail::parameterCount<f>);
  using R = Detail::ResultOf<f>;
  using Flags = ZintAttrIntrospectionFlags;
  constexpr bool isConst = Detail::Signature<decltype(f)>::isConst;
  Member member{name, "", Flags::callable | (isConst ? U32{Flags::constant} : 0u)};
  if constexpr (!std::same_as<R, Result>) member.typeName = typeNameOf<R>();
  member.arguments = {names...};
  member.call = Detail::call<f>;
  return member;
}

// A free function that makes an object.
template <auto f, class... Names>
constexpr Member factory(const char* name, Names... names) {
  static_assert(sizeof...(names) == Detail::Factory<f>::parameters);
  Member member{name, typeNameOf<typename Detail::Factory<f>::R>(),
                ZintAttrIntrospectionFlags::callable};
  member.arguments = {names...};
  member.call = Detail::Factory<f>::call;
  return member;
}

// `list` must outlive the row.
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

// Whether the rows have the names in `names` ("name, mode") in this order, and the ids count from
// `first` on.
constexpr bool areIdsOfRows(std::span<const Member> rows, AttributeId first, std::string_view names,
                            std::span<const AttributeId> ids) {
  if (ids.size() != rows.size()) return false;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string_view name = names.substr(0, names.find(','));
    if (name != rows[i].name || ids[i] != first + i) return false;
    names.remove_prefix(name.size() < names.size() ? name.size() + 2 : name.size());
  }
  return names.empty();
}

}  // namespace Zint

// Asserts at compile time that the enumerators of Class::Id are the ids of the rows: named as they
// are, in their order, from the id `first` on. The enumerators are listed after it.
#define ZINT_CHECK_IDS(Class, rows, first, ...)                    \
  struct rows##Ids : Class::Id {                                   \
    static constexpr bool hold() {                                 \
      constexpr ::Zint::AttributeId ids[] = {__VA_ARGS__};         \
      return ::Zint::areIdsOfRows(rows, first, #__VA_ARGS__, ids); \
    }                                                              \
  };                                                               \
  static_assert(rows##Ids::hold(), "an id is not the position of the row of its name")
