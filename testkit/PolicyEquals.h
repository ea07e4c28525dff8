// expectChipEqualsShadow() under the policy of the region: what is not compared may differ. Needs
// Umbra::Driver where it is included.
#pragma once

#include <Driver/AuditedShadow.h>
#include <testkit/ChipEqualsShadow.h>

namespace TestKit {

inline void expectChipEqualsShadow(const FakeChip::Ptr& chip,
                                   const Driver::AuditedShadow::Ptr& shadow,
                                   const Hardware::ChipMemory::Ptr& region,
                                   const char* file = __builtin_FILE(),
                                   int line = __builtin_LINE()) {
  const auto policy = shadow->policy(region);
  if (!policy) return expectChipEqualsShadow(chip, region, file, line);
  const auto equals = [&](U32 entry, const U8* known, const U8* held) {
    return !Driver::isCompared(policy->rule(entry)) || policy->equals(entry, known, held);
  };
  expectChipEqualsShadow(chip, region, equals, file, line);
}

}  // namespace TestKit
