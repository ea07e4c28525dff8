// The library's types and factories, and their registration. The tables of members are in the
// ...Type.cpp files. Compiled for size.
#include <Driver/Driver.h>

#include <Driver/AlarmBoard.h>
#include <Driver/AuditedShadow.h>
#include <Driver/Check.h>
#include <Driver/Chip.h>
#include <Driver/ChipAccess.h>
#include <Driver/ChipWriteRequest.h>
#include <Driver/ChipWriter.h>
#include <Driver/Governor.h>
#include <Driver/Policy.h>

#include <algorithm>
#include <array>

namespace Driver {

// NOLINTNEXTLINE(cert-err58-cpp): initialised as a constant
constinit Zint::TraceHandle driverTraceHandle(Zint::TraceHandle::constant, "Driver", false);

namespace {

using Zint::factory;
using Zint::Member;

struct TypeRow {
  const Zint::Type* type;
  std::string_view name;
};

template <class T>
constexpr TypeRow row(const Zint::Type& type) {
  return {&type, Zint::typeNameOf<T>()};
}

// In the order of registration: that of the alphabet.
// clang-format off: a line for each
constexpr TypeRow types[] = {
    row<Alarm>(alarmType),
    row<Alarm::State>(alarmStateType),
    row<AlarmBoard>(alarmBoardType),
    row<AlarmRule>(alarmRuleType),
    row<AlarmRule::Scope>(alarmRuleScopeType),
    row<AuditedShadow>(auditedShadowType),
    row<Chip>(chipType),
    row<ChipAccess>(chipAccessType),
    row<ChipWriteRequest>(chipWriteRequestType),
    row<ChipWriter>(chipWriterType),
    row<Complaint>(complaintType),
    row<ComplaintKind>(complaintKindType),
    row<Governor>(governorType),
    row<PatrolState>(patrolStateType),
    row<Policy>(policyType),
    row<Rewrite>(rewriteType),
    row<Rule>(ruleType),
    row<Unwritten>(unwrittenType),
};
// clang-format on

constexpr Member factories[] = {
    factory<&alarmBoardFactory>("alarmBoardFactory", "name", "activity", "clock"),
    factory<&alarmRuleFactory>("alarmRuleFactory", "name", "scope", "count", "within",
                               "clearAfter"),
    factory<&auditedShadowFactory>("auditedShadowFactory", "zintFwkActivity", "clock"),
    factory<&chipFactory>("chipFactory", "name", "chipHam"),
    factory<&chipAccessFactory>("chipAccessFactory", "shadow", "chipMemory"),
    factory<&chipWriteRequestFactory>("chipWriteRequestFactory", "name"),
    factory<&chipWriterFactory>("chipWriterFactory", "activity", "shadow", "request", "clock",
                                "maxEntriesPerWrite", "maxEntriesPerSlice", "writeInterval"),
    factory<&governorFactory>("governorFactory", "zintFwkActivity", "shadow"),
    factory<&policyFactory>("policyFactory", "chipMemory"),
};

constexpr std::size_t typeNamesSize = [] {
  std::size_t size = 0;
  for (const TypeRow& row : types) size += row.name.size() + 1;
  return size;
}();

// The names in a section of their own, each terminated by a zero byte, for tools that read the
// file.
[[gnu::section(".zint.type"), gnu::used, gnu::retain]] constexpr auto typeNames = [] {
  std::array<char, typeNamesSize> names{};
  auto end = names.begin();
  for (const TypeRow& row : types) end = std::copy(row.name.begin(), row.name.end(), end) + 1;
  return names;
}();

[[gnu::constructor]] void registerTypes() {
  driverTraceHandle.registerHandle();
  for (const TypeRow& row : types) Zint::TypeRegistry::typeIs(*row.type);
  for (const Member& member : factories) Zint::TypeRegistry::factoryIs(member);
}

[[gnu::destructor]] void unregisterTypes() {
  for (const TypeRow& row : types) Zint::TypeRegistry::typeDel(*row.type);
  for (const Member& member : factories) Zint::TypeRegistry::factoryDel(member);
}

}  // namespace

}  // namespace Driver
