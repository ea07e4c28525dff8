// What a policy holds, refuses, tells and says.
#include <Driver/Descriptions.h>
#include <Driver/Policy.h>
#include <Zint/GenericIf.h>

#include <sstream>

#include "RefusedMemory.h"
#include "support/ShadowTest.h"

namespace {

using Driver::Policy;
using Driver::Rewrite;
using Driver::Rule;
using Driver::Unwritten;

class PolicyOfRegion : public Support::ShadowTest {
 protected:
  std::vector<U8> merged(U32 entry, std::vector<U8> expected, std::vector<U8> actual) {
    std::vector<U8> out(expected.size());
    policy->mergeForRewrite(entry, expected.data(), actual.data(), out.data());
    return out;
  }

  const ChipMemory::Ptr cm = region("table", 0x1000, 32, 2);
  const Policy::Ptr policy = Driver::policyFactory(cm);
  const std::vector<U8> lowByte{0xff, 0x00};
  const std::vector<U8> highBit{0x00, 0x80};
};

TEST_F(PolicyOfRegion, isPlainAtFirst) {
  EXPECT_EQ(policy->chipMemory(), cm);
  EXPECT_TRUE(policy->isPlain());
  EXPECT_EQ(policy->rule(7), Rule::repaired);
  EXPECT_EQ(policy->ruleEnd(7, 32), 32u);
  EXPECT_EQ(policy->mask(7), nullptr);
  EXPECT_EQ(policy->rewrite(7), Rewrite::kept);
  EXPECT_EQ(policy->maskEnd(7, 32), 32u);
  EXPECT_FALSE(policy->isOnce(7));
  EXPECT_EQ(policy->unwritten(), Unwritten::adopted);
  EXPECT_EQ(policy->resetValue(7), nullptr);
  EXPECT_EQ(policy->auditEvery(), 1u);
  EXPECT_TRUE(policy->isInForce());
  EXPECT_FALSE(policy->hasUnmatchedRun());
  EXPECT_EQ(policy->text(7), "repaired");
  EXPECT_EQ(cm->volatileEntries(), nullptr);
}

TEST_F(PolicyOfRegion, withoutARegionIsRefused) {
  EXPECT_EQ(Support::exceptionText([] { Driver::policyFactory(nullptr); }),
            "null _chipMemory parameter to mutator for Driver::Policy::chipMemory not allowed\"");
}

TEST_F(PolicyOfRegion, isPlain_endsWithEachThingThatChangesAJudgement) {
  policy->ruleIs(3, 1, Rule::detectOnly);
  EXPECT_FALSE(policy->isPlain());
  policy->ruleIs(0, 32, Rule::repaired);
  EXPECT_TRUE(policy->isPlain());
  policy->maskIs(lowByte, Rewrite::zero);
  EXPECT_FALSE(policy->isPlain());
  policy->maskIs({}, Rewrite::zero);
  EXPECT_TRUE(policy->isPlain());
  policy->maskIs(4, 2, lowByte, Rewrite::zero);
  EXPECT_FALSE(policy->isPlain());
  policy->maskIs(4, 2, {}, Rewrite::zero);
  policy->unwrittenIs(Unwritten::baseline);
  EXPECT_FALSE(policy->isPlain());
  policy->unwrittenIs(Unwritten::adopted);
  policy->onceIs(2, 2, true);
  policy->resetValueIs(1, 1, lowByte);
  policy->auditEveryIs(2);
  EXPECT_TRUE(policy->isPlain());
}

TEST_F(PolicyOfRegion, ruleIs_holdsForItsRun) {
  policy->ruleIs(16, 16, Rule::detectOnly);
  policy->ruleIs(20, 2, Rule::noRead);
  EXPECT_EQ(policy->rule(15), Rule::repaired);
  EXPECT_EQ(policy->rule(16), Rule::detectOnly);
  EXPECT_EQ(policy->rule(21), Rule::noRead);
  EXPECT_EQ(policy->rule(22), Rule::detectOnly);
  EXPECT_EQ(policy->ruleEnd(0, 32), 16u);
  EXPECT_EQ(policy->ruleEnd(16, 32), 20u);
  EXPECT_EQ(policy->ruleEnd(16, 18), 18u);
  EXPECT_EQ(policy->ruleEnd(22, 32), 32u);
}

TEST_F(PolicyOfRegion, runsOfNoEntryAndThoseThatWrapAreRefused) {
  const std::string none = "a run needs at least one entry";
  const std::string wraps = "2 entries from 4294967295 on end beyond the last entry number";
  const auto refused = [this](auto set) { return Support::exceptionText([&] { set(*policy); }); };
  EXPECT_EQ(refused([](Policy& p) { p.ruleIs(1, 0, Rule::noRead); }), none);
  EXPECT_EQ(refused([](Policy& p) { p.ruleIs(~0u, 2, Rule::noRead); }), wraps);
  EXPECT_EQ(refused([](Policy& p) { p.onceIs(1, 0, true); }), none);
  EXPECT_EQ(refused([](Policy& p) { p.onceIs(~0u, 2, true); }), wraps);
  EXPECT_EQ(refused([this](Policy& p) { p.maskIs(1, 0, lowByte, Rewrite::kept); }), none);
  EXPECT_EQ(refused([this](Policy& p) { p.maskIs(~0u, 2, lowByte, Rewrite::kept); }), wraps);
  EXPECT_EQ(refused([this](Policy& p) { p.resetValueIs(1, 0, lowByte); }), none);
  EXPECT_EQ(refused([this](Policy& p) { p.resetValueIs(~0u, 2, lowByte); }), wraps);
  EXPECT_EQ(policy->text(1), "repaired");
  policy->ruleIs(~0u, 1, Rule::noRead);
  EXPECT_EQ(policy->rule(~0u), Rule::noRead);
}

TEST_F(PolicyOfRegion, unknownWordsAreRefused) {
  const auto refused = [this](auto set) { return Support::exceptionText([&] { set(*policy); }); };
  EXPECT_EQ(refused([](Policy& p) { p.ruleIs(1, 1, static_cast<Rule>(6)); }), "Rule");
  EXPECT_EQ(refused([](Policy& p) { p.unwrittenIs(static_cast<Unwritten>(-1)); }), "Unwritten");
  EXPECT_EQ(refused([this](Policy& p) { p.maskIs(lowByte, static_cast<Rewrite>(3)); }), "Rewrite");
  EXPECT_EQ(refused([this](Policy& p) { p.maskIs(1, 1, lowByte, static_cast<Rewrite>(3)); }),
            "Rewrite");
  EXPECT_TRUE(policy->isPlain());
}

TEST_F(PolicyOfRegion, masksAndResetValuesOfAnotherSizeAreRefused) {
  const std::vector<U8> three{1, 2, 3};
  const std::string text = "3 bytes given where 2 are needed";
  EXPECT_EQ(Support::exceptionText([&] { policy->maskIs(three, Rewrite::kept); }), text);
  EXPECT_EQ(Support::exceptionText([&] { policy->maskIs(1, 1, three, Rewrite::kept); }), text);
  EXPECT_EQ(Support::exceptionText([&] { policy->resetValueIs(1, 1, three); }), text);
  EXPECT_TRUE(policy->isPlain());
}

TEST_F(PolicyOfRegion, maskIs_ofARunTakesThePlaceOfTheRegions) {
  policy->maskIs(lowByte, Rewrite::zero);
  policy->maskIs(8, 4, highBit, Rewrite::shadow);
  policy->maskIs(10, 1, std::vector<U8>{0, 0}, Rewrite::shadow);
  EXPECT_EQ(policy->mask(7)[0], 0xff);
  EXPECT_EQ(policy->rewrite(7), Rewrite::zero);
  EXPECT_EQ(policy->mask(8)[1], 0x80);
  EXPECT_EQ(policy->rewrite(8), Rewrite::shadow);
  EXPECT_EQ(policy->mask(10), nullptr);
  EXPECT_EQ(policy->rewrite(10), Rewrite::kept);
  EXPECT_EQ(policy->maskEnd(0, 32), 8u);
  EXPECT_EQ(policy->maskEnd(8, 32), 10u);
  EXPECT_EQ(policy->maskEnd(10, 32), 11u);
  EXPECT_EQ(policy->maskEnd(12, 32), 32u);
  policy->maskIs(0, 32, {}, Rewrite::kept);
  EXPECT_EQ(policy->mask(8)[0], 0xff);
  EXPECT_EQ(policy->maskEnd(0, 32), 32u);
}

TEST_F(PolicyOfRegion, maskEnd_goesOnWhereAnExceptionIsLikeTheRegions) {
  policy->maskIs(lowByte, Rewrite::zero);
  policy->maskIs(8, 4, lowByte, Rewrite::zero);
  policy->maskIs(20, 4, lowByte, Rewrite::kept);
  EXPECT_EQ(policy->maskEnd(0, 32), 20u);
  EXPECT_EQ(policy->maskEnd(9, 11), 11u);
}

TEST_F(PolicyOfRegion, mergeForRewrite_putsInPlaceOfMaskedBitsWhatRewriteSays) {
  const std::vector<U8> mask{0x0f, 0xf0}, expected{0xaa, 0xaa}, actual{0x55, 0x55};
  EXPECT_EQ(merged(0, expected, actual), expected);
  policy->maskIs(mask, Rewrite::kept);
  EXPECT_EQ(merged(0, expected, actual), (std::vector<U8>{0xa5, 0x5a}));
  policy->maskIs(mask, Rewrite::zero);
  EXPECT_EQ(merged(0, expected, actual), (std::vector<U8>{0xa0, 0x0a}));
  policy->maskIs(mask, Rewrite::shadow);
  EXPECT_EQ(merged(0, expected, actual), expected);
}

TEST_F(PolicyOfRegion, mergeForRewrite_needsWhatTheChipHoldsOnlyToKeepIt) {
  const std::vector<U8> expected{0xaa, 0xaa};
  U8 out[2];
  policy->mergeForRewrite(0, expected.data(), nullptr, out);
  EXPECT_EQ(out[0], 0xaa);
  policy->maskIs(lowByte, Rewrite::zero);
  policy->mergeForRewrite(0, expected.data(), nullptr, out);
  EXPECT_EQ(out[0], 0x00);
  policy->maskIs(lowByte, Rewrite::shadow);
  policy->mergeForRewrite(0, expected.data(), nullptr, out);
  EXPECT_EQ(out[0], 0xaa);
}

TEST_F(PolicyOfRegion, mergeForRewrite_mayWriteOverEitherValue) {
  policy->maskIs(lowByte, Rewrite::kept);
  U8 expected[] = {1, 2}, actual[] = {3, 4};
  policy->mergeForRewrite(0, expected, actual, actual);
  EXPECT_EQ(actual[0], 3);
  EXPECT_EQ(actual[1], 2);
  actual[0] = 9;
  policy->mergeForRewrite(0, expected, actual, expected);
  EXPECT_EQ(expected[0], 9);
  EXPECT_EQ(expected[1], 2);
}

TEST_F(PolicyOfRegion, equals_looksAtTheMaskAloneWhateverTheRule) {
  policy->maskIs(5, 1, lowByte, Rewrite::kept);
  policy->ruleIs(5, 1, Rule::volatile_);
  const U8 a[] = {1, 2}, otherLow[] = {9, 2}, otherHigh[] = {1, 9};
  EXPECT_TRUE(policy->equals(5, a, otherLow));
  EXPECT_FALSE(policy->equals(5, a, otherHigh));
  EXPECT_FALSE(policy->equals(4, a, otherLow));
}

TEST_F(PolicyOfRegion, resetValueIs_holdsForItsRunAndZerosAreNone) {
  policy->resetValueIs(4, 4, lowByte);
  EXPECT_EQ(policy->resetValue(3), nullptr);
  EXPECT_EQ(policy->resetValue(7)[0], 0xff);
  policy->resetValueIs(5, 1, std::vector<U8>{0, 0});
  EXPECT_EQ(policy->resetValue(5), nullptr);
  policy->resetValueIs(4, 1, {});
  EXPECT_EQ(policy->resetValue(4), nullptr);
  EXPECT_EQ(policy->resetValue(6)[0], 0xff);
}

TEST_F(PolicyOfRegion, auditEveryIs_refusesZero) {
  EXPECT_EQ(Support::exceptionText([&] { policy->auditEveryIs(0); }), "auditEvery must not be 0");
  policy->auditEveryIs(4);
  EXPECT_EQ(policy->auditEvery(), 4u);
}

TEST_F(PolicyOfRegion, onceEnd_isTheEndOfTheRun) {
  policy->onceIs(4, 2, true);
  EXPECT_TRUE(policy->isOnce(5));
  EXPECT_EQ(policy->onceEnd(0, 32), 4u);
  EXPECT_EQ(policy->onceEnd(4, 32), 6u);
  policy->onceIs(4, 2, false);
  EXPECT_EQ(policy->onceEnd(0, 32), 32u);
}

TEST_F(PolicyOfRegion, text_namesEachRuleAndItsRun) {
  policy->ruleIs(16, 16, Rule::detectOnly);
  EXPECT_EQ(policy->text(20), "detectOnly (entries 16 to 31)");
  EXPECT_EQ(policy->text(3), "repaired (entries 0 to 15)");
  policy->maskIs(lowByte, Rewrite::zero);
  policy->maskIs(8, 1, highBit, Rewrite::kept);
  policy->maskIs(9, 1, std::vector<U8>{0, 0}, Rewrite::kept);
  EXPECT_EQ(policy->text(3), "repaired (entries 0 to 15); mask ff00 zero of the region");
  EXPECT_EQ(policy->text(8), "repaired (entries 0 to 15); mask 0080 kept (entry 8)");
  EXPECT_EQ(policy->text(9), "repaired (entries 0 to 15); no mask (entry 9)");
  policy->maskIs({}, Rewrite::zero);
  policy->ruleIs(0, 32, Rule::volatile_);
  policy->onceIs(3, 1, true);
  policy->resetValueIs(0, 8, highBit);
  policy->unwrittenIs(Unwritten::defaults);
  policy->auditEveryIs(3);
  policy->isInForceIs(false);
  EXPECT_EQ(policy->text(3),
            "volatile; once (entry 3); unwritten: defaults; reset value 0080 (entries 0 to 7); "
            "read in one of 3 passes; not in force");
}

TEST_F(PolicyOfRegion, text_ofAnEntryBeyondTheRegionSaysSo) {
  policy->ruleIs(30, 10, Rule::readOnly);
  EXPECT_EQ(policy->text(30), "readOnly (entries 30 to 31)");
  EXPECT_EQ(policy->text(35), "readOnly (entries 30 to 39); beyond the region's 32 entries");
}

TEST_F(PolicyOfRegion, unmatchedRuns_areThoseBeyondTheRegion) {
  policy->ruleIs(30, 10, Rule::readOnly);
  EXPECT_FALSE(policy->hasUnmatchedRun());
  policy->ruleIs(60, 10, Rule::detectOnly);
  policy->maskIs(50, 1, lowByte, Rewrite::zero);
  policy->onceIs(99, 1, true);
  policy->resetValueIs(~0u, 1, lowByte);
  EXPECT_TRUE(policy->hasUnmatchedRun());
  EXPECT_EQ(policy->unmatchedRuns(),
            "detectOnly (entries 60 to 69), mask ff00 zero (entry 50), once (entry 99), "
            "reset value ff00 (entry 4294967295)");
  cm->entriesIs(100);
  EXPECT_EQ(policy->unmatchedRuns(), "reset value ff00 (entry 4294967295)");
  for (U32 i = 0; i < 12; ++i) policy->onceIs(1000 + 2 * i, 1, true);
  EXPECT_TRUE(std::string_view(policy->unmatchedRuns()).ends_with(", once (entry 1008) and 5 more"))
      << policy->unmatchedRuns();
}

// --- Notifiees ---

struct PolicyWatch : Policy::NotifieeConst {
  explicit PolicyWatch(const Policy::Ptr& policy) : Policy::NotifieeConst(nullptr, policy) {}
  void onRule() override { seen("rule"); }
  void onIsOnce() override { seen("once"); }
  void onMask() override { seen("mask"); }
  void onUnwritten() override { seen("unwritten"); }
  void onResetValue() override { seen("resetValue"); }
  void onAuditEvery() override { seen("auditEvery"); }
  void onIsInForce() override { seen("isInForce"); }
  void seen(const char* what) {
    all += std::string(what) + " ";
    if (action) action();
  }
  std::string all;
  std::function<void()> action;
};

TEST_F(PolicyOfRegion, notifiesOfEachChangeOnceAndOfNothingThatHoldsAlready) {
  const auto watch = Zint::makePtr<PolicyWatch>(policy);
  for (U32 twice = 0; twice < 2; ++twice) {
    policy->ruleIs(3, 4, Rule::volatile_);
    policy->onceIs(3, 4, true);
    policy->maskIs(lowByte, Rewrite::zero);
    policy->maskIs(3, 4, highBit, Rewrite::zero);
    policy->unwrittenIs(Unwritten::zero);
    policy->resetValueIs(3, 4, lowByte);
    policy->auditEveryIs(2);
    policy->isInForceIs(false);
  }
  EXPECT_EQ(watch->all, "rule once mask mask unwritten resetValue auditEvery isInForce ");
  policy->ruleIs(4, 1, Rule::volatile_);
  policy->maskIs(lowByte, Rewrite::shadow);
  EXPECT_EQ(watch->all, "rule once mask mask unwritten resetValue auditEvery isInForce mask ");
}

TEST(PolicyTeardown, aNotifieeMayDropThePolicyAndTheRegion) {
  const auto mutators = std::vector<std::function<void(Policy&)>>{
      [](Policy& p) { p.ruleIs(3, 4, Rule::volatile_); },
      [](Policy& p) { p.onceIs(3, 4, true); },
      [](Policy& p) { p.maskIs(std::vector<U8>{1}, Rewrite::zero); },
      [](Policy& p) { p.maskIs(3, 4, std::vector<U8>{1}, Rewrite::zero); },
      [](Policy& p) { p.unwrittenIs(Unwritten::zero); },
      [](Policy& p) { p.resetValueIs(3, 4, std::vector<U8>{1}); },
      [](Policy& p) { p.auditEveryIs(2); },
      [](Policy& p) { p.isInForceIs(false); },
  };
  for (const auto& change : mutators) {
    auto cm = Hardware::chipMemoryFactory("t", Hardware::ChipAddress(0), 8, 1, 1, nullptr);
    Policy::Ptr policy = Driver::policyFactory(cm);
    const auto watch = Zint::makePtr<PolicyWatch>(policy);
    watch->isNonReferencingIs(true);
    watch->action = [&] {
      policy = nullptr;
      cm = Zint::Ptr<Hardware::ChipMemory>();
    };
    change(*policy);
    EXPECT_EQ(policy, nullptr);
    EXPECT_EQ(watch->notifier(), nullptr);
  }
}

TEST_F(PolicyOfRegion, whatANotifieeThrowsDoesNotReachTheMutator) {
  const auto watch = Zint::makePtr<PolicyWatch>(policy);
  watch->action = [] { throw 1; };
  policy->ruleIs(3, 4, Rule::noRead);
  EXPECT_EQ(policy->rule(3), Rule::noRead);
}

TEST_F(PolicyOfRegion, aNotifieeMayChangeThePolicyAgain) {
  const auto watch = Zint::makePtr<PolicyWatch>(policy);
  watch->action = [&] {
    watch->action = nullptr;
    policy->ruleIs(0, 32, Rule::repaired);
  };
  policy->ruleIs(3, 4, Rule::volatile_);
  EXPECT_TRUE(policy->isPlain());
  EXPECT_EQ(cm->volatileEntries(), nullptr);
  EXPECT_EQ(watch->all, "rule rule ");
}

// --- Memory ---

TEST_F(PolicyOfRegion, withoutMemoryNothingChanges) {
  policy->ruleIs(2, 3, Rule::volatile_);
  cm->entriesIs(100);
  const auto state = [this] {
    std::string text;
    for (U32 e = 0; e < 100; ++e) text += policy->text(e).bytes() + "\n";
    for (const U8 byte : Support::bytes(cm->volatileEntries())) text += std::to_string(byte) + " ";
    return text;
  };
  const std::string before = state();
  const auto unchanged = [&] { EXPECT_EQ(state(), before); };
  const auto check = [&](auto change, auto undo) {
    EXPECT_GT(Support::withEachBlockRefused(change, unchanged), 0u);
    undo();
    EXPECT_EQ(state(), before);
  };
  check([&] { policy->ruleIs(40, 10, Rule::volatile_); },
        [&] { policy->ruleIs(40, 10, Rule::repaired); });
  check([&] { policy->onceIs(3, 4, true); }, [&] { policy->onceIs(3, 4, false); });
  check([&] { policy->maskIs(lowByte, Rewrite::zero); },
        [&] { policy->maskIs({}, Rewrite::zero); });
  check([&] { policy->maskIs(3, 4, lowByte, Rewrite::zero); },
        [&] { policy->maskIs(3, 4, {}, Rewrite::zero); });
  check([&] { policy->resetValueIs(3, 4, lowByte); }, [&] { policy->resetValueIs(3, 4, {}); });
  Support::withEachBlockRefused([&] { Driver::policyFactory(cm); },
                                [&] { EXPECT_EQ(cm->notifiees(), 1u); });
}

TEST_F(PolicyOfRegion, theComparisonNeedsNoMemory) {
  policy->ruleIs(2, 3, Rule::volatile_);
  policy->maskIs(8, 4, lowByte, Rewrite::zero);
  std::vector<U8> a(64, 1), b(64, 1);
  b[2 * 3] = b[2 * 8] = b[2 * 9 + 1] = 7;
  Support::withEachBlockRefused(
      [&] { EXPECT_EQ(policy->differentEntry(a.data(), b.data(), 0, 32), 9u); },
      [] { FAIL() << "the comparison threw"; });
  b[2 * 9 + 1] = 1;
  EXPECT_EQ(policy->differentEntry(a.data(), b.data(), 0, 32), 32u);
}

// --- By name ---

TEST_F(PolicyOfRegion, isReachedByName) {
  EXPECT_NE(Zint::TypeRegistry::findFactory("policyFactory"), nullptr);
  Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(policy)};
  EXPECT_STREQ(byName.typeName(), "Driver::Policy");
  byName.call("ruleIs", {{"first", "16"}, {"count", "4"}, {"rule", "'volatile'"}});
  byName.call("maskIs", {{"mask", "00ff"}, {"rewrite", "'zero'"}});
  byName.call("maskOfRunIs", {{"first", "3"}, {"count", "1"}, {"mask", "0001"}});
  byName.call("onceIs", {{"first", "3"}, {"count", "1"}, {"once", "true"}});
  byName.call("resetValueIs", {{"first", "3"}, {"count", "1"}, {"value", "1234"}});
  byName.attributeIs("unwritten", "'baseline'");
  byName.attributeIs("auditEvery", "5");
  EXPECT_EQ(byName.call("rule", {{"entry", "17"}}).text, "'volatile'");
  EXPECT_EQ(byName.call("mask", {{"entry", "0"}}).text, "00ff");
  EXPECT_EQ(byName.call("rewrite", {{"entry", "0"}}).text, "'zero'");
  EXPECT_EQ(byName.call("isOnce", {{"entry", "3"}}).text, "true");
  EXPECT_EQ(byName.call("resetValue", {{"entry", "3"}}).text, "1234");
  EXPECT_EQ(byName.call("resetValue", {{"entry", "4"}}).text, "");
  EXPECT_EQ(byName.attribute("unwritten"), "'baseline'");
  EXPECT_EQ(byName.attribute("isPlain"), "false");
  EXPECT_EQ(byName.call("text", {{"entry", "3"}}).text,
            "'repaired (entries 0 to 15); mask 0001 kept (entry 3); once (entry 3); unwritten: "
            "baseline; reset value 1234 (entry 3); read in one of 5 passes'");
}

TEST(PolicyWords, areReadAndWrittenAsNames) {
  std::ostringstream out;
  for (U32 i = 0; i < 6; ++i) out << Driver::RuleInstance(i) << ' ';
  for (U32 i = 0; i < 3; ++i) out << Driver::RewriteInstance(i) << ' ';
  for (U32 i = 0; i < 4; ++i) out << Driver::UnwrittenInstance(i) << ' ';
  EXPECT_EQ(out.str(),
            "repaired detectOnly volatile noRead writeOnly readOnly kept zero shadow "
            "adopted zero defaults baseline ");
  EXPECT_EQ(Driver::RuleInstance("volatile"), Rule::volatile_);
  EXPECT_EQ(Driver::RewriteInstance("kept"), Rewrite::kept);
  EXPECT_EQ(Driver::UnwrittenInstance("defaults"), Unwritten::defaults);
  EXPECT_EQ(Driver::stringValue(static_cast<Rule>(9)), "Rule(9)");
  EXPECT_EQ(Zint::strepToValue<Rule>("'noRead'"), Rule::noRead);
  EXPECT_EQ(Zint::strepToValue<Rewrite>("shadow"), Rewrite::shadow);
  EXPECT_EQ(Support::exceptionText([] { Driver::RuleInstance("audited"); }), "Rule");
}

TEST(PolicyWords, sayWhatThePatrolDoes) {
  using enum Rule;
  for (const Rule rule : {repaired, detectOnly, volatile_, noRead, writeOnly, readOnly}) {
    EXPECT_EQ(Driver::isRead(rule), rule != noRead && rule != writeOnly);
    EXPECT_EQ(Driver::isCompared(rule), rule == repaired || rule == detectOnly || rule == readOnly);
    EXPECT_EQ(Driver::isRewritten(rule), rule == repaired);
  }
}

}  // namespace
