// A derived shadow that audits by itself: the base's pass is off, and its two building blocks find
// and do what the base's comparison does.
#include <Mirl/Mirl.h>

#include <cstring>

#include "support/Random.h"
#include "support/ShadowTest.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

class OwnShadow : public HardwareShadow {
 public:
  using HardwareShadow::auditsItself;
  using HardwareShadow::auditsItselfIs;
  using HardwareShadow::differentEntry;
  using HardwareShadow::doAuditEntry;
  using HardwareShadow::HardwareShadow;

  void auditAll(const ChipMemory::Ptr& cm) {
    const U32 entries = cm->entries();
    for (U32 e = differentEntry(cm, 0, entries); e < entries;
         e = differentEntry(cm, e + 1, entries))
      doAuditEntry(cm, e);
  }
};

class OwnAudit : public Support::ShadowTest {
 protected:
  OwnAudit() { configureOwn({mac}); }
  void configureOwn(const std::vector<ChipMemory::Ptr>& regions) {
    for (const ChipMemory::Ptr& cm : regions) own->chipMemoryIs(cm);
    own->stateIs(HardwareShadow::configured());
    own->auditsItselfIs(true);
    own->stateIs(HardwareShadow::auditing());
    trace.full.clear();
  }
  // Random bytes in both images, and random marks.
  static void fill(const ChipMemory::Ptr& cm, U32 seed) {
    Support::Random random(seed);
    U8* shadow = cm->shadow()->data();
    U8* hardware = cm->hardware()->data();
    for (U32 i = 0; i < cm->shadow()->size(); ++i) {
      shadow[i] = random.byte();
      hardware[i] = random.oneIn(8) ? random.byte() : shadow[i];
    }
    for (const auto& bitmap : {cm->initialized(), cm->dirty()}) {
      for (U32 i = 0; i < bitmap->size(); ++i) bitmap->data()[i] = random.byte();
    }
  }
  std::string contents(const ChipMemory::Ptr& cm) const {
    std::string all = std::to_string(cm->registersFixed()) + " ";
    for (const Hal::BufBase::Ptr& buffer :
         {cm->shadow(), cm->initialized(), cm->dirty(), Hal::BufBase::Ptr(cm->hardware())}) {
      all.append(reinterpret_cast<const char*>(buffer->data()), buffer->size());
    }
    for (const Support::TraceCapture::Full& line : trace.full)
      all += std::to_string(line.level) + line.function + ":" + line.text + "\n";
    for (const U32 level : {0u, 8u}) {
      for (const Mirl::Record& record : Mirl::theTraceFile.records(level))
        all += record.text + "\n";
    }
    return all;
  }

  Zint::Ptr<OwnShadow> own =
      Hardware::hardwareShadowFactoryOf<OwnShadow>(loop.activity, loop.clock);
  ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
};

TEST_F(OwnAudit, theBaseBeginsNoPassAndComparesNothing) {
  EXPECT_TRUE(own->auditsItself());
  Support::wordIs(mac->hardware(), 3, 77);
  loop.turn();
  own->doStartAudit();
  own->doAuditChips();
  own->auditReadRequest()->statusIs(Hardware::ChipReadRequest::done_);
  EXPECT_NE(own->auditReadRequest()->state(), Hardware::ChipReadRequest::start_);
  EXPECT_EQ(own->audits(), 0u);
  EXPECT_EQ(Support::word(mac->shadow(), 3), 0u);
  EXPECT_EQ(own->state(), HardwareShadow::auditing());
}

TEST_F(OwnAudit, theBaseGoesOnOnceItIsSwitchedBack) {
  own->auditsItselfIs(false);
  own->stateIs(HardwareShadow::idle());
  own->stateIs(HardwareShadow::auditing());
  loop.turn();
  EXPECT_EQ(own->auditReadRequest()->state(), Hardware::ChipReadRequest::start_);
}

TEST_F(OwnAudit, findsAndDoesWhatTheBaseDoes) {
  Hardware::umbraTrace().levelUpToIs(8);
  for (U32 seed = 1; seed <= 200; ++seed) {
    const U32 entrySize = 4 * (1 + seed % 4);
    std::string results[2];
    for (const bool byBase : {false, true}) {
      const auto other = Hardware::hardwareShadowFactoryOf<OwnShadow>(loop.activity, loop.clock);
      const ChipMemory::Ptr cm = audited("region", 0, 1 + seed % 40, entrySize);
      other->chipMemoryIs(cm);
      other->stateIs(HardwareShadow::configured());
      fill(cm, seed);
      trace.full.clear();
      Mirl::theTraceFile.clear();
      chip->log.clear();
      if (byBase) {
        other->doAuditChips();
        trace.full.erase(trace.full.begin());  // says that the comparison begins
      } else {
        other->auditAll(cm);
      }
      results[byBase] = contents(cm) + std::to_string(chip->log.size());
    }
    ASSERT_EQ(results[0], results[1]) << seed;
  }
  Hardware::umbraTrace().levelUpToIs(0);
}

TEST_F(OwnAudit, differentEntryLooksAtItsRangeAlone) {
  for (const U32 e : {2u, 5u, 9u}) Support::wordIs(mac->hardware(), e, 1);
  EXPECT_EQ(own->differentEntry(mac, 0, 16), 2u);
  EXPECT_EQ(own->differentEntry(mac, 3, 16), 5u);
  EXPECT_EQ(own->differentEntry(mac, 3, 5), 5u) << "none: the end";
  EXPECT_EQ(own->differentEntry(mac, 10, 16), 16u);
  EXPECT_EQ(own->differentEntry(mac, 7, 7), 7u);
  EXPECT_EQ(own->differentEntry(mac, 9, 10), 9u);
}

// A flag or a mode that keeps a region out of the base's comparison does not bind a shadow that
// audits by itself.
TEST_F(OwnAudit, doesNotAskForTheFlags) {
  mac->auditEnabledIs(false);
  Support::wordIs(mac->hardware(), 4, 1);
  EXPECT_EQ(own->differentEntry(mac, 0, 16), 4u);
}

TEST_F(OwnAudit, anAccessMethodJudgesByItself) {
  class EvenHam : public Hardware::ChipHam {
   public:
    using ChipHam::ChipHam;
    bool doCompare(U8* a, U8* b, U32) const override {
      if (onCompare) onCompare();
      return (*a & 1) == (*b & 1);
    }
    std::function<void()> onCompare;
  };
  const auto even = Zint::makePtr<EvenHam>("even");
  const ChipMemory::Ptr cm = Hardware::chipMemoryFactory("even", ChipAddress(0, 0), 8, 4, 4, even);
  cm->shadowEnabledIs(true);
  Support::wordIs(cm->hardware(), 1, 2);
  Support::wordIs(cm->hardware(), 6, 3);
  EXPECT_EQ(own->differentEntry(cm, 0, 8), 6u);
  even->onCompare = [&] { cm->entriesIs(9); };
  EXPECT_EQ(own->differentEntry(cm, 0, 8), 8u) << "the shadow buffer was replaced";
}

TEST_F(OwnAudit, refusesNullAndWhatTheBuffersDoNotHold) {
  EXPECT_EQ(Support::exceptionText([&] { own->differentEntry(nullptr, 0, 1); }),
            "null cm parameter to Hardware::HardwareShadow::differentEntry not allowed");
  EXPECT_EQ(Support::exceptionText([&] { own->doAuditEntry(nullptr, 0); }),
            "null cm parameter to Hardware::HardwareShadow::doAuditEntry not allowed");
  const char* const holds = "held.holdsEntries(end)";
  EXPECT_EQ(Support::assertedCondition([&] { own->differentEntry(mac, 0, 17); }), holds);
  EXPECT_EQ(Support::assertedCondition([&] { own->doAuditEntry(mac, 16); }),
            "entry < ~0u && held.holdsEntries(entry + 1)");
  EXPECT_EQ(Support::assertedCondition([&] { own->doAuditEntry(mac, ~0u); }),
            "entry < ~0u && held.holdsEntries(entry + 1)");
  const ChipMemory::Ptr bare = region("bare", 0x2000, 4);
  EXPECT_EQ(Support::assertedCondition([&] { own->differentEntry(bare, 0, 1); }), holds);
  const ChipMemory::Ptr noMethod =
      Hardware::chipMemoryFactory("no method", ChipAddress(0, 0x3000), 4, 4, 4, nullptr);
  noMethod->shadowEnabledIs(true);
  EXPECT_EQ(Support::assertedCondition([&] { own->differentEntry(noMethod, 0, 1); }), holds);
  EXPECT_ASSERTION_OF("mac", own->differentEntry(mac, 0, 17),
                      "U32 Hardware::HardwareShadow::differentEntry(const "
                      "Hardware::ChipMemory::Ptr&, U32, U32) const",
                      "held.holdsEntries(end)");
  EXPECT_ASSERTION_OF(
      "mac", own->doAuditEntry(mac, 16),
      "void Hardware::HardwareShadow::doAuditEntry(const Hardware::ChipMemory::Ptr&, U32)",
      "entry < ~0u && held.holdsEntries(entry + 1)");
}

}  // namespace
