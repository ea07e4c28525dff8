// What the classes rely on of the runtime: the walks over notifiees, the requests, the texts.
#include <Hardware/ChipReader.h>
#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>

#include "support/ShadowTest.h"

namespace {

using namespace Support;
using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::ChipMemoryArrayIndex;
using Hardware::ChipReadRequest;
using Hardware::HardwareShadow;

class Seer : public ChipMemory::NotifieeConst {
 public:
  Seer(const Zint::Ptr<Zint::ActivityConfig>& activity, const ChipMemory::Ptr& cm, std::string name,
       std::string& log)
      : NotifieeConst(activity, Zint::Ptr<const ChipMemory>(cm)),
        name_(std::move(name)),
        log_(&log) {}
  void onShadowEnabled() override {
    *log_ += name_;
    if (also) also();
  }
  void onNotificationException(Zint::AttributeId attribute) override { reported = attribute; }
  std::function<void()> also;
  Zint::AttributeId reported = 0;

 private:
  std::string name_;
  std::string* log_;
};

class SnapshotRules : public ShadowTest {
 protected:
  Zint::Ptr<Seer> seer(const char* name) {
    return Zint::makePtr<Seer>(loop.activity, cm, name, log);
  }
  std::string change() {
    log.clear();
    cm->shadowEnabledIs(!cm->shadowEnabled());
    return log;
  }
  const ChipMemory::Ptr cm = region("cm", 0x1000, 4);
  std::string log;
  Zint::Ptr<Seer> a = seer("a"), b = seer("b"), c = seer("c");
};

TEST_F(SnapshotRules, order_isThatOfRegistration) {
  EXPECT_EQ("abc", change());
  b->isRegisteredNotifieeIs(false);
  EXPECT_EQ("ac", change());
  b->isRegisteredNotifieeIs(true);
  EXPECT_EQ("acb", change());
}

TEST_F(SnapshotRules, switchedOffAndOn_keepsItsPlace) {
  b->hasNotificationActiveIs(false);
  EXPECT_EQ("ac", change());
  b->hasNotificationActiveIs(true);
  EXPECT_EQ("abc", change());
}

TEST_F(SnapshotRules, switchedOffAndOnWithinAWalk_isStillNotified) {
  a->also = [&] {
    c->hasNotificationActiveIs(false);
    c->hasNotificationActiveIs(true);
  };
  EXPECT_EQ("abc", change());
}

TEST_F(SnapshotRules, switchedOffAndOnWithinAWalk_isNotifiedAlsoWhenItDoesNotCount) {
  c->isNonReferencingIs(true);
  a->also = [&] {
    c->hasNotificationActiveIs(false);
    c->hasNotificationActiveIs(true);
  };
  EXPECT_EQ("abc", change());
}

TEST_F(SnapshotRules, switchedOffWithinAWalk_isNotNotified) {
  a->also = [&] { c->hasNotificationActiveIs(false); };
  EXPECT_EQ("ab", change());
}

TEST_F(SnapshotRules, unregisteredWithinAWalk_isNotNotified) {
  a->also = [&] { b->isRegisteredNotifieeIs(false); };
  EXPECT_EQ("ac", change());
}

TEST_F(SnapshotRules, registeredWithinAWalk_waitsForTheNextChange) {
  Zint::Ptr<Seer> d;
  a->also = [&] {
    if (d == nullptr) d = seer("d");
  };
  EXPECT_EQ("abc", change());
  EXPECT_EQ("abcd", change());
}

TEST_F(SnapshotRules, unregisteringItself_doesNotDisturbTheOthers) {
  a->also = [&] { a->isRegisteredNotifieeIs(false); };
  EXPECT_EQ("abc", change());
  EXPECT_EQ("bc", change());
}

TEST_F(SnapshotRules, destroyedWithinAWalk_isNotNotified) {
  a->also = [&] { b = nullptr; };
  EXPECT_EQ("ac", change());
}

TEST_F(SnapshotRules, exception_isReportedAndTheOthersAreNotified) {
  a->also = [] { throw 5; };
  EXPECT_EQ("abc", change());
  EXPECT_EQ(ChipMemory::Id::shadowEnabled, a->reported);
  EXPECT_EQ(0, b->reported);
}

TEST_F(SnapshotRules, marked_isNotNotifiedUntilTheMarkIsTakenBack) {
  b->zintDoZombieReactors(true);
  EXPECT_EQ("ac", change());
  b->zintDoZombieReactors(false);
  EXPECT_EQ("abc", change());
}

TEST_F(SnapshotRules, nestedChange_isNotifiedInItsOwnWalk) {
  bool first = true;
  b->also = [&] {
    if (std::exchange(first, false)) cm->shadowEnabledIs(!cm->shadowEnabled());
  };
  EXPECT_EQ("ababcc", change());
}

// --- Requests ---

class RequestSeer : public ChipReadRequest::NotifieeConst {
 public:
  RequestSeer(const Zint::Ptr<Zint::ActivityConfig>& activity, const ChipReadRequest::Ptr& request)
      : NotifieeConst(activity, Zint::Ptr<const ChipReadRequest>(request)) {}
  void onChipMemory(const ChipAddress& key) override { keys.push_back(key.value()); }
  std::vector<U64> keys;
};

class RequestRules : public ShadowTest {
 protected:
  const ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  const Zint::Ptr<RequestSeer> seer = Zint::makePtr<RequestSeer>(loop.activity, request);
};

TEST_F(RequestRules, chipMemoryIs_sameRegionOnceOtherRegionReplaces) {
  const ChipMemory::Ptr a = region("a", 0x1000, 4), b = region("b", 0x1000, 4);
  request->chipMemoryIs(a);
  request->chipMemoryIs(a);
  EXPECT_EQ((std::vector<U64>{0x1000}), seer->keys);
  request->chipMemoryIs(b);
  EXPECT_EQ((std::vector<U64>{0x1000, 0x1000}), seer->keys);
  EXPECT_EQ(1u, request->chipMemorys());
  EXPECT_EQ(b, request->chipMemory(ChipAddress(0x1000)));
}

TEST_F(RequestRules, chipMemoryIs_nullIsRefusedWithTheUnmatchedQuote) {
  const std::string text =
      "null _chipMemory parameter to mutator for Hardware::ChipReadRequest::chipMemory not "
      "allowed\"";
  EXPECT_EQ(text, exceptionText([&] { request->chipMemoryIs(nullptr); }));
  EXPECT_THROW(request->newChipMemory(nullptr), Zint::RangeException);
  EXPECT_EQ(0u, request->chipMemorys());
  EXPECT_TRUE(seer->keys.empty());
}

TEST_F(RequestRules, chipMemoryDel_ofAnUnknownAddressNotifiesNobody) {
  request->chipMemoryIs(region("a", 0x1000, 4));
  EXPECT_EQ(nullptr, request->chipMemoryDel(ChipAddress(0x1004)));
  EXPECT_EQ(nullptr, request->chipMemoryDel(ChipAddress(0x100001000)));
  EXPECT_EQ(1u, seer->keys.size());
  EXPECT_NE(nullptr, request->chipMemoryDel(ChipAddress(0x1000)));
  EXPECT_EQ(2u, seer->keys.size());
}

TEST_F(RequestRules, regionsOfEqualLowWordsAreDifferentMembers) {
  request->chipMemoryIs(region("a", 0x1000, 4));
  request->chipMemoryIs(region("b", 0x100001000, 4));
  EXPECT_EQ(2u, request->chipMemorys());
  EXPECT_EQ("b", request->chipMemory(ChipAddress(0x100001000))->name().bytes());
}

// --- Texts ---

class TextRules : public ShadowTest {
 protected:
  template <class T>
  static std::string refusal(const std::string& text) {
    return exceptionText([&] { (void)Zint::strepToValue<T>(text); });
  }
};

TEST_F(TextRules, junk_afterAValueNamesTheColumnAndTheText) {
  EXPECT_EQ("junk at column 3 deserializing 123x", refusal<ChipAddress>("123x"));
  EXPECT_EQ("junk at column 2 deserializing 12 ", refusal<ChipMemoryArrayIndex>("12 "));
  EXPECT_EQ("junk at column 10 deserializing 'buffered'z",
            refusal<ChipMemory::ChipMemoryMode>("'buffered'z"));
  EXPECT_EQ("junk at column 6 deserializing 'idle' 'idle'",
            refusal<HardwareShadow::State>("'idle' 'idle'"));
}

TEST_F(TextRules, junk_afterAPointerNamesItsType) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4);
  const std::string text = Zint::objectText(cm.ptr()).bytes();
  EXPECT_EQ("junk at column " + std::to_string(text.size()) + " deserializing Hardware::ChipMemory",
            refusal<ChipMemory::Ptr>(text + "x"));
}

TEST_F(TextRules, index_isTruncatedToSixteenBits) {
  EXPECT_EQ(1, Zint::strepToValue<ChipMemoryArrayIndex>("65537").value());
  EXPECT_EQ(0xFFFF, Zint::strepToValue<ChipMemoryArrayIndex>("-1").value());
}

TEST_F(TextRules, address_isOneInteger) {
  EXPECT_EQ("4294967295", valueToStrep(ChipAddress(0, 0xFFFFFFFF)).bytes());
  EXPECT_EQ("0x0:ffffffff", ChipAddress(0, 0xFFFFFFFF).stringValue().bytes());
  EXPECT_EQ("0x2:00001f00", ChipAddress(2, 0x1F00).stringValue().bytes());
  EXPECT_EQ(~U64{0}, Zint::strepToValue<ChipAddress>("18446744073709551615").value());
  EXPECT_NE(std::string::npos, refusal<ChipAddress>("x").find("value"));
}

TEST_F(TextRules, enumerations_unknownNumbersAndNames) {
  EXPECT_EQ("HardwareShadow::State(7)", stringValue(static_cast<HardwareShadow::State>(7)).bytes());
  EXPECT_EQ("ChipMemory::ChipMemoryMode(-1)",
            stringValue(static_cast<ChipMemory::ChipMemoryMode>(-1)).bytes());
  const auto state = exceptionText([] { (void)HardwareShadow::StateInstance(4); });
  EXPECT_NE(std::string::npos, state.find("HardwareShadow::State"));
  const auto name = exceptionText([] { (void)HardwareShadow::StateInstance("Idle"); });
  EXPECT_NE(std::string::npos, name.find("State"));
  EXPECT_EQ(std::string::npos, name.find("HardwareShadow::State"));
  EXPECT_THROW(ChipMemory::ChipMemoryModeInstance(3), Zint::RangeException);
}

TEST_F(TextRules, readOnlyView_refusesEveryChange) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4);
  auto view = Zint::GenericIf_::readOnlyView(Zint::Ptr<const Zint::PtrInterface>(cm));
  EXPECT_EQ("attempting to modify a const instance",
            exceptionText([&] { view.attributeIs("shadowEnabled", "true"); }));
  EXPECT_FALSE(cm->shadowEnabled());
}

TEST_F(TextRules, attributeIs_junkLeavesTheObjectUnchanged) {
  const ChipMemory::Ptr cm = region("mac", 0x1000, 4);
  Zint::GenericIf_ view{Zint::Ptr<Zint::PtrInterface>(cm)};
  const std::string text = exceptionText([&] { view.attributeIs("mode", "'buffered' and more"); });
  EXPECT_NE(std::string::npos, text.find("mode")) << text;
  EXPECT_EQ(ChipMemory::normal(), cm->mode());
}

TEST_F(TextRules, list_isOfTheListKind) {
  Zint::GenericIf_ view{Zint::Ptr<Zint::PtrInterface>(shadow)};
  const auto list = view.list("chipMemory");
  EXPECT_STREQ("Zint::GenericIf::List_", list.typeName());
  EXPECT_STREQ("List", list.kindName());
  EXPECT_STREQ("address", list.keyName());
}

}  // namespace
