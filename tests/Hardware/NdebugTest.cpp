// Compiled with NDEBUG, which takes the standard library's assertions out: this library's stay.
#ifndef NDEBUG
#define NDEBUG
#endif
#include <Hardware/Umbra.h>
#include <Zint/DynArray.h>

#include <cassert>

#include "support/ShadowTest.h"

namespace {

struct NamedRegion {
  const Zint::String8& fwkKey() const { return name; }
  Zint::String8 name = "mac";
};

void regionRule(const NamedRegion& region, int entries) {
  UMBRA_ASSERT_REGION(region, entries > 0);
}
void quotedRule(int entries) { UMBRA_ASSERT(77, ( entries % 4 ) == 0); }
void plainRule(int entries) { ZINT_ASSERT("Chips/Mine", entries > 0); }

TEST(Ndebug, isOnHere) { assert(!"the standard library's assertion is gone"); }

TEST(Ndebug, everyAssertionMacroStillEndsTheProcess) {
  EXPECT_ASSERTION_OF("mac", regionRule({}, 0),
                      "void {anonymous}::regionRule(const NamedRegion&, int)", "entries > 0");
  EXPECT_ASSERTION(quotedRule(3), 77, "void {anonymous}::quotedRule(int)", "( entries % 4 ) == 0");
  EXPECT_DEATH(plainRule(0), Support::Assertion("Chips/Mine", 0, "void {anonymous}::plainRule(int)",
                                                "entries > 0"));
}

TEST(Ndebug, theCollectionsInHeadersKeepTheirs) {
  Zint::DynArray<U8, U32> array;
  EXPECT_DEATH(
      array.atIs(~U32{0}, 1),
      Support::Assertion("Zint/DynArray", 0, "void Zint::DynArray<V, I>::atIs(I, const V&)",
                         "newEntries<2147483647"));
}

}  // namespace
