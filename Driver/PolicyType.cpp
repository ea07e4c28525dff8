#include <Driver/Driver.h>
#include <Driver/Policy.h>

namespace Driver {
namespace {

using Zint::attribute;
using Zint::Bytes;
using Zint::constructorParameter;
using Zint::enumerator;
using Zint::operation;
using Zint::readOnly;

template <class Word>
constexpr Zint::Member word(const char* name, Word value) {
  return enumerator(name, static_cast<S32>(value));
}

constexpr Zint::Member ruleMembers[] = {
    word("repaired", Rule::repaired),   word("detectOnly", Rule::detectOnly),
    word("volatile", Rule::volatile_),  word("noRead", Rule::noRead),
    word("writeOnly", Rule::writeOnly), word("readOnly", Rule::readOnly),
};

constexpr Zint::Member rewriteMembers[] = {
    word("kept", Rewrite::kept),
    word("zero", Rewrite::zero),
    word("shadow", Rewrite::shadow),
};

constexpr Zint::Member unwrittenMembers[] = {
    word("adopted", Unwritten::adopted),
    word("zero", Unwritten::zero),
    word("defaults", Unwritten::defaults),
    word("baseline", Unwritten::baseline),
};

// Adapters: bytes in place of pointers, none for null.
Bytes policyBytesAt(const Policy& policy, const U8* bytes) {
  if (bytes == nullptr) return {};
  return {{bytes, bytes + policy.chipMemory()->entrySize()}};
}
Bytes maskByName(const Policy& policy, U32 entry) {
  return policyBytesAt(policy, policy.mask(entry));
}
Bytes resetValueByName(const Policy& policy, U32 entry) {
  return policyBytesAt(policy, policy.resetValue(entry));
}
void maskIsByName(Policy& policy, Bytes mask, Rewrite rewrite) {
  policy.maskIs(mask.bytes, rewrite);
}
void maskOfRunIsByName(Policy& policy, U32 first, U32 count, Bytes mask, Rewrite rewrite) {
  policy.maskIs(first, count, mask.bytes, rewrite);
}
void resetValueIsByName(Policy& policy, U32 first, U32 count, Bytes value) {
  policy.resetValueIs(first, count, value.bytes);
}

constexpr Zint::Member policyMembers[] = {
    constructorParameter<&Policy::chipMemory>("chipMemory").says("the region that it is for"),
    operation<&Policy::rule>("rule", "entry").says("the rule of an entry").needs(Zint::Level::look),
    operation<&Policy::ruleIs>("ruleIs", "first", "count", "rule"),
    operation<&Policy::isOnce>("isOnce", "entry")
        .says("whether each write of an entry counts")
        .needs(Zint::Level::look),
    operation<&Policy::onceIs>("onceIs", "first", "count", "once"),
    operation<&maskByName>("mask", "entry")
        .says("the bits of an entry that are compared")
        .needs(Zint::Level::look),
    operation<&Policy::rewrite>("rewrite", "entry")
        .says("what becomes of masked bits at a repair")
        .needs(Zint::Level::look),
    operation<&maskIsByName>("maskIs", "?mask", "?rewrite"),
    operation<&maskOfRunIsByName>("maskOfRunIs", "first", "count", "?mask", "?rewrite"),
    readOnly<&Policy::isPlain>("isPlain").says(
        "whether every entry is compared and repaired whole"),
    attribute<&Policy::unwritten, &Policy::unwrittenIs>("unwritten")
        .says("what is expected of entries that nobody wrote"),
    operation<&resetValueByName>("resetValue", "entry")
        .says("what an entry holds after a reset")
        .needs(Zint::Level::look),
    operation<&resetValueIsByName>("resetValueIs", "first", "count", "?value"),
    attribute<&Policy::auditEvery, &Policy::auditEveryIs>("auditEvery")
        .in("passes")
        .says("in which passes it is read: every one, every second, ...")
        .needs(Zint::Level::operate),
    attribute<&Policy::isInForce, &Policy::isInForceIs>("isInForce").says("whether it is followed"),
    readOnly<&Policy::unmatchedRuns>("unmatchedRuns")
        .says("runs of entries that the region does not have"),
    operation<&Policy::text>("text", "entry")
        .says("what it does with an entry")
        .needs(Zint::Level::look),
};
ZINT_CHECK_IDS(Policy, policyMembers, Zint::firstAttributeId, chipMemory, rule, ruleIs, isOnce,
               onceIs, mask, rewrite, maskIs, maskOfRunIs, isPlain, unwritten, resetValue,
               resetValueIs, auditEvery, isInForce, unmatchedRuns, text);

}  // namespace

constexpr Zint::Type ruleType = describe<Rule>("enumeration", nullptr, ruleMembers);
constexpr Zint::Type rewriteType = describe<Rewrite>("enumeration", nullptr, rewriteMembers);
constexpr Zint::Type unwrittenType = describe<Unwritten>("enumeration", nullptr, unwrittenMembers);
constexpr Zint::Type policyType = describe<Policy>(countedObject, nullptr, policyMembers);

}  // namespace Driver
